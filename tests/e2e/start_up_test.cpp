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
                    {"DisplaySleep", "33"}});
    settings = {{"HAVREL_API_HOST", ""}};
    startUp();
    EXPECT_THAT(daemon->diagnostics(), testing::StartsWith("settings: not set: HAVREL_API_HOST; no request"));

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

    const auto requests = machine.service.requests();
    EXPECT_EQ(requests.size(), 2U);
    for (const trial::WebRequest& request : requests) {
        EXPECT_EQ(described(request), "GET " + machine.service.host() + trial::proxyListPath);
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
