#include "prefs/HVLUserPrefManager.h"
#include "unit/helper_test.h"

using namespace havrel;
using ServiceControl = HelperTest;
using Number = std::optional<platform::Value>;

TEST_F(ServiceControl, RelaunchesARunningSuiteWhereThePreferenceAsks) {
    const std::string suite = "1 ?? /Applications/HavrelSuite.app/Contents/MacOS/HavrelSuite\n2 ?? grep HavrelSuite";
    const std::string look = "/bin/sh -c ps -A | grep HavrelSuite\n", twice = look + "/bin/sh -c ps -A | grep Havrel\n";
    const std::string kill = "killall -9 HavrelSuite\n", launch = "\n" + kill + "open /Applications/HavrelSuite.app";
    const std::string job = "/Library/LaunchAgents/com.Dravex.HVLSuite.plist", plain = "\nlaunchctl load " + job;
    const std::string load = R"(ps aux | grep loginwindow | grep -v grep | awk '{system("sudo launchctl bsexec "$2" )"
                             R"(sudo -u "$1" launchctl load -S Aqua  )" +
                             job + "\")}'\nlaunchctl load -w " + job;
    const std::string running = "Helper : Suite running\n",
                      reset = "Helper : Suite Re-launch When Permission is reset\n";
    const std::tuple<Number, std::string, int, std::string, std::string, Number> rows[] = {
        // is it asked for? what is listed, how many of the two loads fail; the calls, the log, is it asked for then?
        {1, suite, 0, look + kill + load, running, 1},
        {0, suite, 0, look + load, "", 0},
        {{}, "2 ?? grep HavrelSuite", 0, twice + load, "", {}},
        {1, "/Applications/Havrel.app", 0, twice + kill + load, running, 1},
        {{}, suite, 1, look + kill + load + plain, reset, 1},
        {0, suite, 2, look + load + plain + launch, "", 0}};
    for (const auto& [isAskedFor, listed, failures, calls, log, isAskedForThen] : rows) {
        hostPreferences().setStartSuiteWithSystem(isAskedFor);
        fakes::processes::reset();
        fakes::processes::onTask([&text = listed](const auto&) { return platform::processes::TaskOutput{text, ""}; });
        fakes::processes::onSystem([&count = failures](const std::string& line) {
            const int loadsBefore = line.find("load -w ") == std::string::npos ? 1 : 0;
            return line.starts_with("launchctl") && count > loadsBefore ? 256 : 0;
        });
        helper->resgisterCTLForSuiteOld();
        EXPECT_EQ(platform::text::join(fakes::processes::calls(), "\n"), calls);
        EXPECT_EQ(takeLogs(), "|" + log + "Suite launch called from helper : " + (failures > 0 ? "256" : "0") +
                                  (failures > 1 ? "\nLaunch Havrel After launchctl failed" : ""));
        EXPECT_EQ(hostPreferences().startSuiteWithSystem(), isAskedForThen);
    }
}
