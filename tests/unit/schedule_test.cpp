#include "platform/clock.h"
#include "proxy/HVLPingManager.h"
#include "support/core_test.h"
#include "support/ping_lists.h"

#include <thread>

namespace {

using namespace std::chrono;

TEST(PingerCycle, FollowsFromTheCounterAndThePauseSoFar) {
    const struct {
        const char* name;
        unsigned counter;
        minutes pause;
        havrel::PingerCycle expected;
    } rows[] = {
        {"the first", 0, 8min, {.isFull = true, .topFiveWait = 1s, .pause = 8min, .next = 1}},
        {"the last quick one", 2, 8min, {.topFiveWait = 1s, .pause = 8min, .next = 3}},
        {"from now on every hour", 3, 8min, {.topFiveWait = 15s, .pause = 1h, .next = 4}},
        {"the next full one", 23, 1h, {.isFull = true, .topFiveWait = 1s, .pause = 1h, .next = 1}},
    };

    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const havrel::PingerCycle cycle = havrel::pingerCycle(row.counter, row.pause);
        EXPECT_EQ(cycle.isFull, row.expected.isFull);
        EXPECT_EQ(cycle.topFiveWait, row.expected.topFiveWait);
        EXPECT_EQ(cycle.pause, row.expected.pause);
        EXPECT_EQ(cycle.next, row.expected.next);
    }
}

using Schedule = support::CoreTest;

TEST_F(Schedule, OfEightDays) {
    support::pings("a:9 b:8 c:7").writeProxyOnFile(havrel::paths::proxies);
    fakes::clock::setStepped(true);
    fakes::processes::onPing([](const std::string& /*address*/) {
        platform::clock::sleep(5900ms);
        return fakes::processes::pingSummary("4.5");
    });
    havrel::HVLPingManager managers[2];
    const std::shared_ptr<void> released(nullptr, [](void* /*none*/) { fakes::clock::setStepped(false); });
    const auto isQuiet = [&] {
        // Counted first: a thread that sleeps keeps sleeping, so no thread counted as busy can be missed.
        const std::size_t sleepers = fakes::clock::sleepers();
        std::size_t busy = std::size(managers);
        for (const auto& manager : managers) {
            busy += manager.pingingQueue()->operationCount();
        }
        return sleepers == busy;
    };
    for (auto& manager : managers) {
        manager.startPingOnNewThread();
    }
    std::vector<nanoseconds> bestFound;
    for (nanoseconds now{0}; now <= 8 * 24h; now = fakes::clock::now()) {
        while (!isQuiet()) {
            std::this_thread::yield();
        }
        bestFound.insert(bestFound.end(), fakes::notifications::countOf("BestThreeProxyFoundNotification"), now);
        fakes::notifications::reset();
        fakes::clock::advance();
    }
    EXPECT_EQ(bestFound.size(), 2 * 203);
    // A full turn posts twice. Both pingers keep the same schedule.
    bestFound.resize(6);
    EXPECT_THAT(bestFound, testing::ElementsAre(7s, 7s, 13s, 13s, 494s, 494s));
}

} // namespace
