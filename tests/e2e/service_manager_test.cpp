// What the service manager hears from the daemon.
#include "e2e/daemon_test.h"
#include "trial/support/service_manager.h"

#include <csignal>

namespace e2e {

namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;

class ServiceManagerTest : public DaemonTest {
  protected:
    ServiceManagerTest() { settings["NOTIFY_SOCKET"] = manager.address(); }

    void TearDown() override {
        DaemonTest::TearDown();
        EXPECT_EQ(manager.told().back(), "STOPPING=1");
    }

    template <typename Matcher>
    bool hears(const Matcher& matcher, std::chrono::milliseconds within = 10s) {
        return trial::eventually([&] { return testing::Matches(testing::Contains(matcher))(manager.told()); }, within);
    }

    trial::ServiceManager manager{machine.root.folder()};
};

TEST_F(ServiceManagerTest, WhatIsPostedOnceTheDaemonIsReadyIsHeard) {
    std::filesystem::remove(machine.root.at(havrel::paths::hostInstallMarker));
    setPreferences({{"isServiceEnabled", true}}); // a short start-up: after five seconds ready is told in any case
    ::kill(machine.bus.pid(), SIGSTOP);
    startUp();
    EXPECT_FALSE(hears("READY=1", 500ms)) << "the bus knows no observer yet";
    ::kill(machine.bus.pid(), SIGCONT);
    ASSERT_TRUE(hears("READY=1"));
    expectAnswer();
}

TEST_F(ServiceManagerTest, IsNotKeptWaitingByASlowTool) {
    const std::string goOn = machine.root.folder() / "go on";
    machine.tools.script("lpstat", "until [ -e " + trial::shellQuoted(goOn) + " ]; do sleep 0.05; done");
    start();
    ASSERT_TRUE(hears("READY=1"));
    client.post("killAction");
    client.sync();
    trial::writeFile(goOn, "");
    EXPECT_TRUE(trial::eventually([&] { return machine.tools.calls("killall").size() == 2; }));
}

TEST_F(ServiceManagerTest, ShowsHowTheDaemonFares) {
    machine.service.answer(trial::proxyListPath, trial::listing(trial::numberedProxies(3, "127.1.0")));
    machine.tools.script("killall", R"([ -z "$NOTIFY_SOCKET" ] || exit; sleep 1.5)");
    setPreferences({{"isServiceEnabled", true}});
    start();
    EXPECT_TRUE(hears(testing::MatchesRegex("STATUS=Idle; bus reachable; web service reachable; "
                                            "3 of 3 proxies answered at ....-..-.. ..:..:..; host service on")));
    machine.tools.script("ping", "exit 1");
    client.post("HVLProxyStateChangedNotification");
    EXPECT_TRUE(hears(HasSubstr("; 0 of 3 proxies answered at "))) << "their latencies are those of before";
    client.post("killAction");
    EXPECT_TRUE(hears(HasSubstr("Busy: killAction; "))) << "or the tool was given the manager's address";
    machine.bus.stop();
    EXPECT_TRUE(hears(HasSubstr("Idle; bus unreachable since ")));
}

} // namespace

} // namespace e2e
