#include "e2e/daemon_test.h"

namespace e2e {

/// Whether the service and the instant access are enabled, and what is done for it.
class StartUpTest : public DaemonTest, public testing::WithParamInterface<std::tuple<bool, bool, const char*>> {};

TEST_P(StartUpTest, TakesItsStepsInOrder) {
    const auto& [isServiceEnabled, isInstantAccessEnabled, commands] = GetParam();
    machine.service.answer(trial::proxyListPath, trial::listing(trial::numberedProxies(3, "127.1.0")));
    setPreferences({{"isServiceEnabled", isServiceEnabled},
                    {"IsInstanstAccessEnabled", isInstantAccessEnabled},
                    {"HavrelVersion", "7.1.2"},
                    {"DisplaySleep", "33"}});
    startUp();

    const std::string folder = "/Library/Application Support/HVLHostForMac", open = "sudo chmod 777 " + folder + "/";
    const std::string openFiles = open + "Proxies.plist|" + open + "AllProxies.plist|" + open + "AllProxies.plist|";
    std::string made;
    for (const trial::ToolCall& call : machine.tools.calls()) {
        made += call.name == "ping" ? "" : call.line() + "|";
    }
    EXPECT_EQ(made, "sudo chmod -R 777 '" + folder + "'|" + openFiles + "lpstat -d|systemsetup -getcomputersleep|" +
                        openFiles + commands + "launchctl load /Library/LaunchAgents/com.Dravex.HVLSuiteHost.plist|");

    const std::string installed = "Helper :  app is installed now so fetch proxy list from server and ping to ALL";
    EXPECT_EQ(machine.root.logged(trial::generalLog).front(), "Write permission status : 0");
    EXPECT_PRED2(inOrder, machine.root.logged(trial::hostLog),
                 (std::vector<std::string>{
                     installed, "Host : ProxyList : CheckForProxyUpdate()", "HOST : PListManager : isProxyChanged : 1",
                     "HOST : PListManager : isProxyChanged:1 isPingToALL:0", "HOST : PListManager : write : 1",
                     "Helper :  SleepState notofocation observer added", installed,
                     "HOST : PListManager : isProxyChanged:0 isPingToALL:0", "HOST : PListManager : write : 1",
                     isServiceEnabled ? "HVLHelper : EnableAction : Called" : "HVLHelper : DisableAction : Called",
                     "HVLHelper :  Called"}));

    const auto requests = machine.service.requests();
    EXPECT_EQ(requests.size(), 2U);
    for (const trial::WebRequest& request : requests) {
        EXPECT_EQ(request.method + ' ' + request.target + request.body, "GET " + trial::proxyListPath);
        EXPECT_EQ(request.header("User-Agent"), "Havrel Mac:7.1.2");
        EXPECT_EQ(request.header("Expect"), std::nullopt);
    }
    EXPECT_EQ(preferences().at("ComputerSleep"), platform::Value("10"));
    EXPECT_EQ(preferences().at("DisplaySleep"), platform::Value("33"));
}

INSTANTIATE_TEST_SUITE_P(
    Service, StartUpTest,
    testing::Values(std::tuple(false, false, "launchctl unload /Library/LaunchDaemons/com.Dravex.HVLDaemonHost.plist|"),
                    std::tuple(false, true, ""),
                    std::tuple(true, false,
                               "killall HavrelAgent|"
                               "launchctl load /Library/LaunchDaemons/com.Dravex.HVLDaemonHost.plist|")));

} // namespace e2e
