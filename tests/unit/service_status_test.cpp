#include "util/ServiceStatus.h"

#include <gtest/gtest.h>

using havrel::ServiceFacts;

TEST(ServiceStatus, IsOneLine) {
    struct {
        const char* name;
        ServiceFacts facts;
        std::string line;
    } const cases[] = {
        {"nothing known", {}, "Idle; bus reachable; no web request yet; no proxy measured yet"},
        {"all well",
         {.hasWebAnswered = true, .proxies = {{.answered = 48, .asked = 60, .at = "T"}}, .isHostServiceOn = true},
         "Idle; bus reachable; web service reachable; 48 of 60 proxies answered at T; host service on"},
        {"nothing reached",
         {.busAwaySince = "T1", .silentServers = {{"a:1", {"T2", "refused"}}, {"b", {"T3", "no name"}}}},
         "Idle; bus unreachable since T1; a:1 unreachable since T2 (refused), b unreachable since T3 (no name); "
         "no proxy measured yet"},
        {"busy",
         {.activities = {"measuring", "killAction", "measuring"}, .isHostServiceOn = false},
         "Busy: killAction, measuring; bus reachable; no web request yet; no proxy measured yet; host service off"},
    };

    for (const auto& row : cases) {
        EXPECT_EQ(statusLine(row.facts), row.line) << row.name;
    }
}
