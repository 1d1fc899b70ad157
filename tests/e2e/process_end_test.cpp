// The system asks the daemon to end at the worst of moments.
#include "e2e/daemon_test.h"
#include "trial/support/process_table.h"

#include <csignal>

namespace e2e {

namespace {

using namespace std::chrono_literals;

/// `TearDown` looks at the exit status and the last log line.
class ProcessEndTest : public DaemonTest {
  protected:
    /// Asks the daemon to end while its main thread is busy.
    void endWhileBusy(int signal = SIGTERM) {
        const auto start = std::chrono::steady_clock::now();
        daemon->signal(signal);
        ASSERT_TRUE(daemon->waitForEnd().has_value());
        const auto taken = std::chrono::steady_clock::now() - start;
        EXPECT_GE(taken, 2s) << "the main thread was not busy";
        EXPECT_LT(taken, 4s);
    }

    /// The names of the programs that the daemon has started and that still run.
    std::vector<std::string> programs() const {
        std::vector<std::string> names;
        for (const trial::Process& process : trial::processTable()) {
            if (process.session == daemon->id() && process.id != daemon->id() && !process.isZombie) {
                names.push_back(process.name);
            }
        }
        return names;
    }

    /// A tool that goes on until the file "go" is there.
    void scriptWaiting(const std::string& tool) const {
        machine.tools.script(tool, "while [ ! -e '" + go() + "' ]; do sleep 0.05; done; echo > '" + finished() + "'");
    }

    std::string go() const { return machine.root.folder() / "go"; }

    std::string finished() const { return machine.root.folder() / "finished"; }
};

TEST_F(ProcessEndTest, DoesNotWaitForTheStartUp) {
    machine.service.receive(trial::WebManner::stallAfterTls);
    start();
    ASSERT_TRUE(trial::eventually([&] { return machine.service.connections() > 0; }));
    endWhileBusy();
}

TEST_F(ProcessEndTest, DoesNotWaitForAStalledRequest) {
    startUp();
    const std::size_t before = machine.service.connections();
    machine.service.receive(trial::WebManner::stallAfterTls);
    client.post("UNInstallAction");
    ASSERT_TRUE(trial::eventually([&] { return machine.service.connections() > before; }));
    endWhileBusy(SIGINT);
}

TEST_F(ProcessEndTest, DoesNotWaitForASlowTool) {
    scriptWaiting("killall");
    startUp();
    client.post("killAction");
    ASSERT_TRUE(trial::eventually([&] { return !machine.tools.calls("killall").empty(); }));
    endWhileBusy();
}

TEST_F(ProcessEndTest, LeavesTheUninstallerToItsWork) {
    scriptWaiting("sh");
    startUp();
    client.post("UNInstallAction");
    ASSERT_TRUE(trial::eventually([&] { return !machine.tools.calls("sh").empty(); }));
    endWhileBusy();
    EXPECT_FALSE(std::filesystem::exists(finished()));
    trial::writeFile(go(), "");
    EXPECT_TRUE(trial::eventually([&] { return std::filesystem::exists(finished()); }));
}

TEST_F(ProcessEndTest, LeavesNoPingAndNoHalfMeasuredList) {
    machine.service.answer(trial::proxyListPath, trial::listing(trial::numberedProxies(60, "127.1.0")));
    machine.tools.script("ping", "exec sleep 60");
    startUp();
    ASSERT_TRUE(trial::eventually([&] { return std::ranges::count(programs(), "sleep") >= 50; }));
    const auto listed = machine.root.read(havrel::paths::allProxies);
    daemon->signal(SIGTERM);
    ASSERT_TRUE(daemon->waitForEnd(2s).has_value()) << "the main thread was not busy";
    EXPECT_TRUE(trial::eventually([&] { return programs().empty(); }, 2s)) << testing::PrintToString(programs());
    EXPECT_EQ(machine.root.read(havrel::paths::allProxies), listed);
}

/// Without a last log line, for which there may be no descriptor.
class ShortageTest : public DaemonTest, public testing::WithParamInterface<int> {
  protected:
    void TearDown() override {}
};

TEST_P(ShortageTest, DoesNotEndTheDaemon) {
    const std::string limit = "--nofile=" + std::to_string(GetParam());
    daemon = std::make_unique<trial::DaemonProcess>(trial::findProgram("prlimit"), machine.environment(),
                                                    machine.root.folder(), "daemon",
                                                    std::vector<std::string>{limit, HAVREL_DAEMON});
    EXPECT_TRUE(trial::eventually([&] { return !daemon->diagnostics().empty(); }));
    EXPECT_TRUE(daemon->isRunning()) << daemon->diagnostics();
    EXPECT_EQ(daemon->terminate(), 0) << daemon->diagnostics();
}

INSTANTIATE_TEST_SUITE_P(Descriptors, ShortageTest, testing::Values(4, 5, 6, 8), testing::PrintToStringParamName());

} // namespace

} // namespace e2e
