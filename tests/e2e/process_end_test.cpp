// The system asks the daemon to end at the worst of moments.
#include "e2e/daemon_test.h"
#include "trial/support/process_table.h"

#include <csignal>

namespace e2e {

namespace {

using namespace std::chrono_literals;

constexpr auto longestEnd = 2s + 500ms; // for a loaded machine

/// `TearDown` looks at the exit status and the last log line.
class ProcessEndTest : public DaemonTest {
  protected:
    void endWhileBusy() {
        const auto start = std::chrono::steady_clock::now();
        daemon->signal(SIGTERM);
        ASSERT_TRUE(daemon->waitForEnd(longestEnd).has_value());
        EXPECT_GE(std::chrono::steady_clock::now() - start, 500ms) << "the main thread was not busy";
    }

    void endDuringARequest(int signal) {
        ASSERT_TRUE(trial::eventually([&] { return running("HavrelFetch") > 0; }));
        daemon->signal(signal);
        ASSERT_TRUE(daemon->waitForEnd(longestEnd).has_value());
        EXPECT_TRUE(trial::eventually([&] { return running("HavrelFetch") == 0; }, 2s));
    }

    /// How many of the daemon's children, and theirs, have that name.
    std::ptrdiff_t running(const std::string& name) const {
        return std::ranges::count_if(trial::processTable(), [&](const trial::Process& process) {
            return process.session == daemon->id() && process.name == name && !process.isZombie;
        });
    }

    /// The tools that were scripted to sleep.
    std::ptrdiff_t sleepingTools() const { return running("sleep"); }
};

TEST_F(ProcessEndTest, DoesNotWaitForTheStartUp) {
    machine.service.receive(trial::WebManner::stallAfterTls);
    start();
    endDuringARequest(SIGINT);
}

TEST_F(ProcessEndTest, LeavesNoRequestWhenItIsKilled) {
    machine.service.receive(trial::WebManner::stallAfterTls);
    start();
    endDuringARequest(SIGKILL);
    machine.service.reset();
    startUp(); // for `TearDown`
}

TEST_F(ProcessEndTest, WaitsNeitherForASlowToolNorForTheBus) {
    machine.tools.script("killall", "exec sleep 60");
    startUp();
    client.post("killAction");
    ASSERT_TRUE(trial::eventually([&] { return !machine.tools.calls("killall").empty(); }));
    ::kill(machine.bus.pid(), SIGSTOP);
    endWhileBusy();
}

TEST_F(ProcessEndTest, LeavesTheUninstallerToItsWork) {
    machine.tools.script("sh", "exec sleep 60");
    startUp();
    client.post("UNInstallAction");
    ASSERT_TRUE(trial::eventually([&] { return !machine.tools.calls("sh").empty(); }));
    endWhileBusy();
    EXPECT_EQ(sleepingTools(), 1);
}

TEST_F(ProcessEndTest, LeavesNoPing) {
    machine.service.answer(trial::proxyListPath, trial::listing(trial::numberedProxies(60, "127.1.0")));
    machine.tools.script("ping", "exec sleep 60");
    startUp();
    ASSERT_TRUE(trial::eventually([&] { return sleepingTools() >= 50; }));
    daemon->signal(SIGTERM);
    ASSERT_TRUE(daemon->waitForEnd(longestEnd).has_value());
    EXPECT_EQ(sleepingTools(), 0);
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

INSTANTIATE_TEST_SUITE_P(Descriptors, ShortageTest, testing::Values(6, 8, 10), testing::PrintToStringParamName());

} // namespace

} // namespace e2e
