#include "prefs/HVLUserPrefManager.h"
#include "unit/helper_test.h"

using namespace havrel;
using namespace std::chrono_literals;
using ServiceControl = HelperTest;
using Lines = std::vector<std::string>;
using Stored = std::optional<platform::Value>;

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
const std::string nothingRuns = "2 ?? grep HavrelSuite";
const std::string loaded = "Suite launch called from helper : 0";
const std::string notLoaded = "Suite launch called from helper : 256";

} // namespace

TEST_F(ServiceControl, RelaunchesARunningSuiteIfThePreferenceAsks) {
    const struct {
        const char* name;
        Stored startSuite;
        std::string listed;
        Lines failing = {};
        Lines calls, log;
        Stored startSuiteThen;
    } cases[] = {
        {.name = "restart asked for",
         .startSuite = 1,
         .listed = suiteRuns,
         .calls = {lookForSuite, killSuite, loadForUsers, loadAndEnable},
         .log = {"Helper : Suite running", loaded},
         .startSuiteThen = 1},
        {.name = "restart not wanted",
         .startSuite = 0,
         .listed = suiteRuns,
         .calls = {lookForSuite, loadForUsers, loadAndEnable},
         .log = {loaded},
         .startSuiteThen = 0},
        {.name = "not running",
         .startSuite = {},
         .listed = nothingRuns,
         .calls = {lookForSuite, lookForOlderSuite, loadForUsers, loadAndEnable},
         .log = {loaded},
         .startSuiteThen = {}},
        {.name = "an older application runs",
         .startSuite = 1,
         .listed = "/Applications/Havrel.app",
         .calls = {lookForSuite, lookForOlderSuite, killSuite, loadForUsers, loadAndEnable},
         .log = {"Helper : Suite running", loaded},
         .startSuiteThen = 1},
        {.name = "never decided, first load fails",
         .startSuite = {},
         .listed = suiteRuns,
         .failing = {loadAndEnable},
         .calls = {lookForSuite, killSuite, loadForUsers, loadAndEnable, load},
         .log = {"Helper : Suite Re-launch When Permission is reset", notLoaded},
         .startSuiteThen = 1},
        {.name = "both loads fail",
         .startSuite = {},
         .listed = nothingRuns,
         .failing = {loadAndEnable, load},
         .calls = {lookForSuite, lookForOlderSuite, loadForUsers, loadAndEnable, load, killSuite, openSuite},
         .log = {notLoaded, "Launch Havrel After launchctl failed"},
         .startSuiteThen = {}},
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
        EXPECT_EQ(hostPreferences().startSuiteWithSystem(), row.startSuiteThen);
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
