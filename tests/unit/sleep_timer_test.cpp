#include "daemon/SystemSetingsClass.h"
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
        {"the other timer", {"Display Sleep: after 10 minutes\n", ""}, never},
        {"an error", {"", "You need administrator access\n"}, failed},
        {"minutes and a warning", {"Computer Sleep: after 10 minutes\n", "warning"}, failed},
    };

    for (const auto& row : cases) {
        fakes::processes::onTask([&row](const auto&) { return row.output; });
        EXPECT_EQ(SystemSetingsClass::getComputerSleep(), row.minutes) << row.name;
    }
}

TEST_F(SleepTimer, IsSetAsMinutesOrNever) {
    fakes::processes::onTask([](const auto&) { return TaskOutput{"set", ""}; });
    EXPECT_TRUE(SystemSetingsClass::setDisableComputerSleep(180));
    EXPECT_EQ(fakes::processes::calls().back(), "/bin/bash -c systemsetup -setcomputersleep 180");
    fakes::processes::onTask([](const auto&) { return TaskOutput{"set", "no"}; });
    EXPECT_FALSE(SystemSetingsClass::setDisableDisplaySleep(181));
    EXPECT_EQ(fakes::processes::calls().back(), "/bin/bash -c systemsetup -setdisplaysleep Never");
}

TEST_F(SleepTimer, IsNotReadAgainWhileAnEmptyOneIsStored) {
    hostPreferences().setComputerSleep("");
    hostPreferences().setDisplaySleep({});
    fakes::processes::reset();
    const Helper another;
    EXPECT_THAT(fakes::processes::calls(), testing::Contains("/bin/bash -c systemsetup -getdisplaysleep"));
    EXPECT_THAT(fakes::processes::calls(),
                testing::Not(testing::Contains("/bin/bash -c systemsetup -getcomputersleep")));
}

TEST_F(SleepTimer, IsForgottenByAnUninstall) {
    helper->uninstallHavrelAction({});
    hostPreferences().setComputerSleep("45");
    hostPreferences().setDisplaySleep("15");
    helper->recevedSleepState({"sleepState", "", platform::Dictionary{{"sleep", "0"}}});
    EXPECT_EQ(hostPreferences().computerSleep(), Value(""));
    EXPECT_EQ(hostPreferences().displaySleep(), Value(""));
}
