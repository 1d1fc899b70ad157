// What the service manager hears from the daemon.
#include "e2e/daemon_test.h"

#include <csignal>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace e2e {

namespace {

using namespace std::chrono_literals;
using testing::AllOf;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;

class ServiceManagerTest : public DaemonTest {
  protected:
    ServiceManagerTest() {
        const std::string path = machine.root.folder() / "notify";
        settings["NOTIFY_SOCKET"] = path;
        sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
        path.copy(static_cast<char*>(address.sun_path), sizeof(address.sun_path) - 1);
        if (::bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
            throw std::system_error(errno, std::generic_category(), "bind");
        }
    }

    ~ServiceManagerTest() override { ::close(socket_); }

    void TearDown() override {
        DaemonTest::TearDown();
        EXPECT_EQ(told().back(), "STOPPING=1");
    }

    /// All that the daemon has told so far.
    const Lines& told() {
        std::array<char, 4096> buffer{};
        for (ssize_t size = 0; (size = ::recv(socket_, buffer.data(), buffer.size(), MSG_DONTWAIT)) >= 0;) {
            told_.emplace_back(buffer.data(), static_cast<std::size_t>(size));
        }
        return told_;
    }

    template <typename Matcher>
    bool tells(const Matcher& matcher, std::chrono::milliseconds within = 10s) {
        return trial::eventually([&] { return testing::Matches(Contains(matcher))(told()); }, within);
    }

  private:
    int socket_ = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    Lines told_;
};

TEST_F(ServiceManagerTest, WhatIsPostedOnceTheDaemonIsReadyIsHeard) {
    ::kill(machine.bus.pid(), SIGSTOP);
    startUp();
    EXPECT_FALSE(tells("READY=1", 500ms)) << "the bus knows no observer yet";
    ::kill(machine.bus.pid(), SIGCONT);
    ASSERT_TRUE(tells("READY=1"));
    expectAnswer();
}

TEST_F(ServiceManagerTest, IsNotKeptWaitingByASlowTool) {
    const std::string goOn = machine.root.folder() / "go on";
    machine.tools.script("lpstat", "until [ -e " + trial::shellQuoted(goOn) + " ]; do sleep 0.05; done");
    start();
    ASSERT_TRUE(tells("READY=1"));
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
    EXPECT_TRUE(tells(testing::MatchesRegex("STATUS=Idle; bus reachable; web service reachable; "
                                            "3 of 3 proxies answered at ....-..-.. ..:..:..; host service on")));
    client.post("killAction");
    EXPECT_TRUE(tells(HasSubstr("Busy: killAction; "))) << "or the tool was given the manager's address";
    machine.bus.stop();
    EXPECT_TRUE(tells(HasSubstr("Idle; bus unreachable since ")));
}

} // namespace

} // namespace e2e
