#include "daemon/SystemSetingsClass.h"
#include "foundation/error.h"
#include "prefs/HVLUserPrefManager.h"
#include "unit/helper_test.h"

using namespace havrel;
using platform::Value;
using platform::processes::TaskOutput;
using SleepTimer = HelperTest;

TEST_F(SleepTimer, IsReadFromTheToolsWords) {
    constexpr auto never = SystemSetingsClass::never;
    constexpr auto failed = SystemSetingsClass::failed;

    const struct {
        const char* name;
        TaskOutput output;
        std::uint64_t minutes;
    } cases[] = {
        {"minutes", {"Computer Sleep: after 10 minutes\n", ""}, 10},
        {"the most", {"Computer Sleep: after 180 minutes\r\n", ""}, 180},
        {"beyond the most", {"Computer Sleep: after 181 minutes\r\n", ""}, 181},
        {"off", {"Computer Sleep: Never\n", ""}, never},
        {"the other timer", {"Display Sleep: after 10 minutes\n", ""}, never},
        {"no unit", {"Computer Sleep: after 10\n", ""}, never},
        {"no number", {"Computer Sleep: after a while, in minutes\n", ""}, 0},
        {"silence", {"", ""}, never},
        {"only the first one counts", {"Computer Sleep: after 1 h, Computer Sleep: after 9 minutes", ""}, never},
        {"not UTF-8", {"\xff Computer Sleep: after 10 minutes", ""}, never},
        {"an error", {"", "You need administrator access\n"}, failed},
        {"minutes and a warning", {"Computer Sleep: after 10 minutes\n", "warning"}, failed},
        {"minutes and an error that is not UTF-8", {"Computer Sleep: after 10 minutes\n", "\xff"}, failed},
    };

    for (const auto& row : cases) {
        fakes::processes::onTask([&row](const auto&) { return row.output; });
        EXPECT_EQ(SystemSetingsClass::getComputerSleep(), row.minutes) << row.name;
    }
    fakes::processes::onTask([](const auto&) { return TaskOutput{"Display Sleep: after 7 minutes", ""}; });
    EXPECT_EQ(SystemSetingsClass::getDisplaySleep(), 7);
    fakes::processes::onTask([](const auto&) -> TaskOutput { throw platform::Exception("no shell"); });
    EXPECT_EQ(SystemSetingsClass::getDisplaySleep(), failed);
}

TEST_F(SleepTimer, IsSetAsMinutesOrNever) {
    const struct {
        std::uint64_t minutes;
        std::string argument;
        TaskOutput output;
        bool succeeds;
    } cases[] = {
        {0, "0", {"set", ""}, true},        {180, "180", {"", ""}, false},
        {181, "Never", {"set", ""}, true},  {UINT64_MAX, "Never", {"set", "no"}, false},
        {10, "10", {"set", "\xff"}, false},
    };

    for (const auto& row : cases) {
        SCOPED_TRACE(row.minutes);
        fakes::processes::onTask([&row](const auto&) { return row.output; });
        EXPECT_EQ(SystemSetingsClass::setDisableComputerSleep(row.minutes), row.succeeds);
        EXPECT_EQ(fakes::processes::calls().back(), "/bin/bash -c systemsetup -setcomputersleep " + row.argument);
        EXPECT_EQ(SystemSetingsClass::setDisableDisplaySleep(row.minutes), row.succeeds);
        EXPECT_EQ(fakes::processes::calls().back(), "/bin/bash -c systemsetup -setdisplaysleep " + row.argument);
    }
}

TEST_F(SleepTimer, IsNotReadAgainWhileAnEmptyOneIsStored) {
    hostPreferences().setComputerSleep("");
    hostPreferences().setDisplaySleep({});
    fakes::processes::reset();
    const Helper another;
    EXPECT_THAT(fakes::processes::calls(), testing::Contains("/bin/bash -c systemsetup -getdisplaysleep"));
    EXPECT_THAT(fakes::processes::calls(),
                testing::Not(testing::Contains("/bin/bash -c systemsetup -getcomputersleep")));
    EXPECT_EQ(hostPreferences().computerSleep(), Value(""));
}

TEST_F(SleepTimer, IsForgottenByAnUninstall) {
    helper->uninstallHavrelAction({});
    hostPreferences().setComputerSleep("45");
    hostPreferences().setDisplaySleep("15");
    helper->recevedSleepState({"sleepState", "", platform::Dictionary{{"sleep", "0"}}});
    EXPECT_EQ(hostPreferences().computerSleep(), Value(""));
    EXPECT_EQ(hostPreferences().displaySleep(), Value(""));
}
