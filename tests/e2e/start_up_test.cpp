#include "e2e/daemon_test.h"

namespace e2e {

namespace {

struct Service {
    const char* name;
    bool isServiceEnabled;
    bool isInstantAccessEnabled;
    /// What is done for it, between the settled sleep values and the suite's agent.
    std::vector<std::string> commands;
};

void PrintTo(const Service& service, std::ostream* out) { *out << service.name; }

const std::string loadDaemon = "launchctl load /Library/LaunchDaemons/com.Dravex.HVLDaemonHost.plist";
const std::string unloadDaemon = "launchctl unload /Library/LaunchDaemons/com.Dravex.HVLDaemonHost.plist";

class StartUpTest : public DaemonTest, public testing::WithParamInterface<Service> {};

} // namespace

TEST_P(StartUpTest, TakesItsStepsInOrder) {
    machine.service.answer(trial::proxyListPath, trial::listing(trial::numberedProxies(3, "127.1.0")));
    setPreferences({{"isServiceEnabled", GetParam().isServiceEnabled},
                    {"IsInstanstAccessEnabled", GetParam().isInstantAccessEnabled},
                    {"HavrelVersion", "7.1.2"},
                    {"DisplaySleep", "33"}});
    startUp();

    const std::string files = "/Library/Application Support/HVLHostForMac/";
    const std::vector<std::string> openFiles{"sudo chmod 777 " + files + "Proxies.plist",
                                             "sudo chmod 777 " + files + "AllProxies.plist",
                                             "sudo chmod 777 " + files + "AllProxies.plist"};
    std::vector<std::string> wanted{"sudo chmod -R 777 '/Library/Application Support/HVLHostForMac'"};
    wanted.insert(wanted.end(), openFiles.begin(), openFiles.end());
    wanted.insert(wanted.end(), {"lpstat -d", "systemsetup -getcomputersleep"});
    wanted.insert(wanted.end(), openFiles.begin(), openFiles.end());
    wanted.insert(wanted.end(), GetParam().commands.begin(), GetParam().commands.end());
    wanted.emplace_back("launchctl load /Library/LaunchAgents/com.Dravex.HVLSuiteHost.plist");
    std::vector<std::string> made;
    for (const trial::ToolCall& call : machine.tools.calls()) {
        if (call.name != "ping") {
            made.push_back(call.line());
        }
    }
    EXPECT_EQ(made, wanted);

    const std::string installed = "Helper :  app is installed now so fetch proxy list from server and ping to ALL";
    EXPECT_EQ(machine.root.logged(trial::generalLog).front(), "Write permission status : 0");
    EXPECT_PRED2(
        inOrder, machine.root.logged(trial::hostLog),
        (std::vector<std::string>{
            installed, "Host : ProxyList : CheckForProxyUpdate()", "HOST : PListManager : isProxyChanged : 1",
            "HOST : PListManager : isProxyChanged:1 isPingToALL:0", "HOST : PListManager : write : 1",
            "Helper :  SleepState notofocation observer added", installed,
            "HOST : PListManager : isProxyChanged:0 isPingToALL:0", "HOST : PListManager : write : 1",
            GetParam().isServiceEnabled ? "HVLHelper : EnableAction : Called" : "HVLHelper : DisableAction : Called",
            "HVLHelper :  Called"}));

    const auto requests = machine.service.requests();
    ASSERT_EQ(requests.size(), 2U);
    for (const trial::WebRequest& request : requests) {
        EXPECT_EQ(request.method + ' ' + request.target, "GET " + trial::proxyListPath);
        EXPECT_EQ(request.header("User-Agent"), "Havrel Mac:7.1.2");
        EXPECT_EQ(request.header("Expect"), std::nullopt);
        EXPECT_EQ(request.body, "");
    }

    const auto preferences = machine.root.propertyList(trial::hostPreferences);
    ASSERT_TRUE(preferences);
    EXPECT_EQ(*preferences->member("ComputerSleep"), platform::Value("10"));
    EXPECT_EQ(*preferences->member("DisplaySleep"), platform::Value("33"));
}

INSTANTIATE_TEST_SUITE_P(Service, StartUpTest,
                         testing::Values(Service{"Disabled", false, false, {unloadDaemon}},
                                         Service{"DisabledButInstant", false, true, {}},
                                         Service{"Enabled", true, false, {"killall HavrelAgent", loadDaemon}}),
                         [](const auto& info) { return info.param.name; });

} // namespace e2e
