#include "contract/time_driver.h"
#include "foundation/error.h"
#include "platform/clock.h"

#include <gmock/gmock.h>
#include <optional>
#include <thread>

namespace {

using namespace platform;
using namespace std::chrono_literals;
using contract::time::now;
using contract::time::passUntil;
using testing::ElementsAre;
using testing::Ge;

TEST(ClockContract, EndsASleepWhenAStopIsRequested) {
    const auto sleepOn = [](const std::stop_token& stop) { clock::sleep(std::chrono::nanoseconds::max(), stop); };
    std::jthread sleeper(sleepOn);
    sleeper.request_stop();
    sleeper.join();
    std::stop_source requestedBefore;
    requestedBefore.request_stop();
    sleepOn(requestedBefore.get_token());
}

TEST(TimerContract, CallsAtEachBeatAfterTheFirstInterval) {
    RunLoop loop;
    std::vector<std::chrono::nanoseconds> calls;
    const auto start = now();
    const RepeatingTimer timer(loop, 5ms, [&] { calls.push_back(now() - start); });
    ASSERT_TRUE(passUntil(loop, [&] { return calls.size() == 3; }));
    EXPECT_THAT(calls, ElementsAre(Ge(5ms), Ge(10ms), Ge(15ms)));
}

TEST(TimerContract, MayBeEndedByItsCallback) {
    RunLoop loop;
    int calls = 0;
    int laterCalls = 0;
    std::optional<RepeatingTimer> timer;
    timer.emplace(loop, 5ms, [&] {
        ++calls;
        timer.reset();
    });
    const RepeatingTimer later(loop, 7ms, [&] { ++laterCalls; });
    ASSERT_TRUE(passUntil(loop, [&] { return laterCalls == 3; }));
    EXPECT_EQ(calls, 1);
}

TEST(TimerContract, GoesOnAfterAnException) {
    RunLoop loop;
    int calls = 0;
    const RepeatingTimer timer(loop, 5ms, [&] {
        ++calls;
        throw Exception("from a timer");
    });
    EXPECT_TRUE(passUntil(loop, [&] { return calls == 2; }));
}

} // namespace
