#include "daemon/SystemSetingsClass.h"
#include "foundation/error.h"
#include "support/core_test.h"

using havrel::SystemSetingsClass;
using platform::processes::TaskOutput;
using SleepTimer = support::CoreTest;

TEST_F(SleepTimer, IsReadFromTheToolsWords) {
    constexpr auto never = SystemSetingsClass::never, failed = SystemSetingsClass::failed;
    // clang-format off
    const std::pair<TaskOutput, std::uint64_t> rows[] = {
        {{"Computer Sleep: after 10 minutes\n", ""}, 10}, {{"Computer Sleep: after 180 minutes\r\n", ""}, 180},
        {{"Computer Sleep: after 181 minutes\r\n", ""}, 181}, {{"Computer Sleep: Never\n", ""}, never},
        {{"Display Sleep: after 10 minutes\n", ""}, never}, {{"Computer Sleep: after 10\n", ""}, never},
        {{"Computer Sleep: after a while, in minutes\n", ""}, 0}, {{"", ""}, never},
        {{"Computer Sleep: after 1 minute, Computer Sleep: after 9 minutes", ""}, never},
        {{"\xff Computer Sleep: after 10 minutes", ""}, never}, {{"", "You need administrator access\n"}, failed},
        {{"Computer Sleep: after 10 minutes\n", "warning"}, failed}, {{"raises", ""}, failed}};
    // clang-format on
    for (const auto& [output, minutes] : rows) {
        fakes::processes::onTask([&made = output](const auto&) {
            return made.standardOutput == "raises" ? throw platform::Exception("no shell") : made;
        });
        EXPECT_EQ(SystemSetingsClass::getComputerSleep(), minutes) << output.standardOutput;
    }
    fakes::processes::onTask([](const auto&) { return TaskOutput{"Display Sleep: after 7 minutes", ""}; });
    EXPECT_EQ(SystemSetingsClass::getDisplaySleep(), 7);
}

TEST_F(SleepTimer, IsSetAsMinutesOrNever) {
    // clang-format off
    const std::tuple<std::uint64_t, std::string, TaskOutput, bool> rows[] = { // minutes, as told the tool, its answer
        {0, "0", {"set", ""}, true}, {180, "180", {"", ""}, false}, {181, "Never", {"set", ""}, true},
        {UINT64_MAX, "Never", {"set", "no"}, false}};
    // clang-format on
    for (const auto& [minutes, argument, output, succeeds] : rows) {
        fakes::processes::onTask([&made = output](const auto&) { return made; });
        EXPECT_EQ(SystemSetingsClass::setDisableComputerSleep(minutes), succeeds);
        EXPECT_EQ(fakes::processes::calls().back(), "/bin/bash -c systemsetup -setcomputersleep " + argument);
        EXPECT_EQ(SystemSetingsClass::setDisableDisplaySleep(minutes), succeeds);
        EXPECT_EQ(fakes::processes::calls().back(), "/bin/bash -c systemsetup -setdisplaysleep " + argument);
    }
}
