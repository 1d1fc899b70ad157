#include "e2e/daemon_test.h"

namespace e2e {

struct Service {
    const char* name;
    bool isEnabled;
    bool isInstantAccessEnabled;
    Lines commands;
};

void PrintTo(const Service& service, std::ostream* out) { *out << service.name; }

class StartUpTest : public DaemonTest, public testing::WithParamInterface<Service> {};

TEST_P(StartUpTest, TakesItsStepsInOrder) {
    const Service& service = GetParam();
    machine.service.answer(trial::proxyListPath, trial::listing(trial::numberedProxies(3, "127.1.0")));
    setPreferences({{"isServiceEnabled", service.isEnabled},
                    {"IsInstanstAccessEnabled", service.isInstantAccessEnabled},
                    {"HavrelVersion", "7.1.2"},
                    {"DisplaySleep", "33"}});
    const std::string leftByAKilledOne = "/Library/Application Support/HVLHostForMac/.havrel-left";
    machine.root.write(leftByAKilledOne, "");
    startUp();
    EXPECT_FALSE(machine.root.has(leftByAKilledOne));

    const std::string folder = "'/Library/Application Support/HVLHostForMac'";
    const std::string openBest = "sudo chmod 777 /Library/Application Support/HVLHostForMac/Proxies.plist";
    const std::string openAll = "sudo chmod 777 /Library/Application Support/HVLHostForMac/AllProxies.plist";
    Lines expected{"sudo chmod -R 777 " + folder,   openBest, openAll, openAll, "lpstat -d",
                   "systemsetup -getcomputersleep", openBest, openAll, openAll};
    expected.insert(expected.end(), service.commands.begin(), service.commands.end());
    expected.emplace_back("launchctl load /Library/LaunchAgents/com.Dravex.HVLSuiteHost.plist");
    Lines made;
    for (const trial::ToolCall& call : machine.tools.calls()) {
        if (call.name != "ping") {
            made.push_back(call.line());
        }
    }
    EXPECT_EQ(made, expected);

    const std::string installed = "Helper :  app is installed now so fetch proxy list from server and ping to ALL";
    EXPECT_EQ(machine.root.logged(trial::generalLog).front(), "Write permission status : 0");
    EXPECT_PRED2(
        inOrder, machine.root.logged(trial::hostLog),
        (Lines{installed, "Host : ProxyList : CheckForProxyUpdate()", "HOST : PListManager : isProxyChanged : 1",
               "HOST : PListManager : isProxyChanged:1 isPingToALL:0", "HOST : PListManager : write : 1",
               "Helper :  SleepState notofocation observer added", installed,
               "HOST : PListManager : isProxyChanged:0 isPingToALL:0", "HOST : PListManager : write : 1",
               service.isEnabled ? "HVLHelper : EnableAction : Called" : "HVLHelper : DisableAction : Called",
               "HVLHelper :  Called"}));

    const auto requests = machine.service.requests();
    EXPECT_EQ(requests.size(), 2U);
    for (const trial::WebRequest& request : requests) {
        EXPECT_EQ(described(request), "GET " + machine.service.host() + trial::proxyListPath);
        EXPECT_EQ(request.body, "");
        EXPECT_EQ(request.header("User-Agent"), "Havrel Mac:7.1.2");
        EXPECT_EQ(request.header("Expect"), std::nullopt);
    }
    EXPECT_EQ(preferences().at("ComputerSleep"), platform::Value("10"));
    EXPECT_EQ(preferences().at("DisplaySleep"), platform::Value("33"));
}

INSTANTIATE_TEST_SUITE_P(
    Service, StartUpTest,
    testing::Values(
        Service{"Off", false, false, {"launchctl unload /Library/LaunchDaemons/com.Dravex.HVLDaemonHost.plist"}},
        Service{"InstantAccessOnly", false, true, {}},
        Service{"On",
                true,
                false,
                {"killall HavrelAgent", "launchctl load /Library/LaunchDaemons/com.Dravex.HVLDaemonHost.plist"}}),
    [](const auto& info) { return info.param.name; });

} // namespace e2e
