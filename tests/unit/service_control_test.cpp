#include "prefs/HVLUserPrefManager.h"
#include "support/ping_lists.h"
#include "unit/helper_test.h"

using namespace havrel;
using namespace std::chrono_literals;
using ServiceControl = HelperTest;
using StartUp = HelperTest;
using Lines = std::vector<std::string>;

namespace {

const std::string lookForSuite = "/bin/sh -c ps -A | grep HavrelSuite";
const std::string lookForOlderSuite = "/bin/sh -c ps -A | grep Havrel";
const std::string killSuite = "killall -9 HavrelSuite";
const std::string loadForUsers =
    R"(ps aux | grep loginwindow | grep -v grep | awk '{system("sudo launchctl bsexec "$2" sudo -u "$1" )"
    R"(launchctl load -S Aqua  /Library/LaunchAgents/com.Dravex.HVLSuite.plist")}')";
const std::string loadAndEnable = "launchctl load -w /Library/LaunchAgents/com.Dravex.HVLSuite.plist";
const std::string load = "launchctl load /Library/LaunchAgents/com.Dravex.HVLSuite.plist";
const std::string openSuite = "open /Applications/HavrelSuite.app";

const std::string suiteRuns = "1 ?? /Applications/HavrelSuite.app/Contents/MacOS/HavrelSuite\n2 ?? grep HavrelSuite";
const std::string notLoaded = "Suite launch called from helper : 256";

} // namespace

TEST_F(StartUp, FetchesAndMeasuresOnceTheNetworkIsThere) {
    helper.reset();
    fakes::machine::uptime(2s);
    root.write(paths::hostInstallMarker, "");
    support::pings("a:5").writeProxyOnFile(paths::proxies);
    helper = std::make_unique<Helper>();
    EXPECT_EQ(fakes::network::requests().size(), 2U) << "one of each proxy list manager, in vain";
    const auto measures = testing::Contains("Five Best Proxies On OneHr Count - 1");
    EXPECT_THAT(takeLog(hostLog), testing::Not(measures));
    fakes::network::hasDefaultRoute(true);
    for (int look = 1; look <= 3 * 2; ++look) { // two for the fetch and for each pinger
        fakes::clock::advance();
    }
    fakes::clock::waitForSleepers(2);
    EXPECT_EQ(fakes::network::requests().size(), 3U);
    EXPECT_THAT(takeLog(hostLog), measures.Times(2)) << "once by each pinger";
}

TEST_F(ServiceControl, RelaunchesARunningSuiteIfThePreferenceAsks) {
    const struct {
        const char* name;
        std::optional<platform::Value> startSuite;
        std::string listed;
        Lines failing, calls, log;
    } cases[] = {
        {.name = "never decided, first load fails",
         .startSuite = {},
         .listed = suiteRuns,
         .failing = {loadAndEnable},
         .calls = {lookForSuite, killSuite, loadForUsers, loadAndEnable, load},
         .log = {"Helper : Suite Re-launch When Permission is reset", notLoaded}},
        {.name = "an older application runs, both loads fail",
         .startSuite = 1,
         .listed = "/Applications/Havrel.app",
         .failing = {loadAndEnable, load},
         .calls = {lookForSuite, lookForOlderSuite, killSuite, loadForUsers, loadAndEnable, load, killSuite, openSuite},
         .log = {"Helper : Suite running", notLoaded, "Launch Havrel After launchctl failed"}},
    };

    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        hostPreferences().setStartSuiteWithSystem(row.startSuite);
        fakes::processes::reset();
        fakes::processes::onTask([&row](const auto&) { return platform::processes::TaskOutput{row.listed, ""}; });
        fakes::processes::onSystem([&row](const auto& line) { return std::ranges::count(row.failing, line) * 256; });
        helper->resgisterCTLForSuiteOld();
        EXPECT_EQ(fakes::processes::calls(), row.calls);
        EXPECT_EQ(takeLog(generalLog), row.log);
        EXPECT_EQ(hostPreferences().startSuiteWithSystem(), 1);
    }
}

TEST_F(ServiceControl, PausesASecondBeforeItSwitchesOff) {
    fakes::processes::reset();
    fakes::clock::sleeps({});
    fakes::clock::onSleep([](auto) { EXPECT_THAT(fakes::processes::calls(), testing::IsEmpty()); });
    helper->disableAction();
    EXPECT_EQ(fakes::clock::sleeps(), std::vector<std::chrono::nanoseconds>{1s});
    EXPECT_EQ(fakes::processes::calls(),
              Lines{"launchctl unload /Library/LaunchDaemons/com.Dravex.HVLDaemonHost.plist"});
}
