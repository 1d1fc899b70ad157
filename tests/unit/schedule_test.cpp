#include "daemon/HVLAutoUninstaller.h"
#include "platform/clock.h"
#include "prefs/HVLUserPrefManager.h"
#include "proxy/HVLPingManager.h"
#include "support/core_test.h"
#include "support/ping_lists.h"

#include <thread>

namespace {

using namespace std::chrono_literals;
using std::chrono::nanoseconds;

TEST(PingerCycle, FollowsFromTheCounterAndThePauseSoFar) {
    struct Row {
        const char* name;
        unsigned counter;
        std::chrono::minutes pause;
        havrel::PingerCycle expected;
    };

    const Row rows[] = {
        {"the first", 0, 8min, {.isFull = true, .topFiveWait = 1s, .pause = 8min, .next = 1}},
        {"quick", 1, 8min, {.topFiveWait = 1s, .pause = 8min, .next = 2}},
        {"the last quick one", 2, 8min, {.topFiveWait = 1s, .pause = 8min, .next = 3}},
        {"from now on every hour", 3, 8min, {.topFiveWait = 15s, .pause = 1h, .next = 4}},
        {"the last of a round", 22, 1h, {.topFiveWait = 15s, .pause = 1h, .next = 23}},
        {"the next full one", 23, 1h, {.isFull = true, .topFiveWait = 1s, .pause = 1h, .next = 1}},
        {"quick after an hour", 1, 1h, {.topFiveWait = 1s, .pause = 1h, .next = 2}},
    };
    for (const Row& row : rows) {
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
    constexpr auto end = 8 * 24h;
    support::pings("a:9 b:8 c:7").writeProxyOnFile(havrel::paths::proxies);
    havrel::hostPreferences().setUserConfigured(true);
    fakes::clock::setStepped(true);
    fakes::processes::onPing([](const std::string& /*address*/) {
        platform::clock::sleep(5900ms);
        return fakes::processes::pingSummary("4.5");
    });
    fakes::network::onRequest([](const auto& /*request*/, auto& /*error*/) {
        // The provider gives another address every week.
        return platform::text::format(R"({"remoteIp":"10.0.0.%d"})", static_cast<int>(fakes::clock::now() / (7 * 24h)));
    });
    havrel::HVLAutoUninstaller uninstaller;
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
    std::vector<nanoseconds> bestFound, checks, changes;
    for (nanoseconds now{0}; now <= end; now = fakes::clock::now()) {
        while (!isQuiet()) {
            std::this_thread::yield();
        }
        for (const auto& post : fakes::notifications::posts()) {
            if (post.name == "BestThreeProxyFoundNotification") {
                bestFound.push_back(now);
            } else if (post.name == "UpdatePublicIP") {
                changes.push_back(now);
            }
        }
        checks.insert(checks.end(), fakes::network::requests().size(), now);
        fakes::notifications::reset();
        fakes::network::requests({});
        fakes::clock::advance();
    }
    // Two full turns with two posts each, quick ones and hourly ones. A ping takes almost six seconds.
    const std::vector<nanoseconds> firstDay = {7s,     13s,    494s,   975s,   1470s,  5085s,  8700s,  12315s,
                                               15930s, 19545s, 23160s, 26775s, 30390s, 34005s, 37620s, 41235s,
                                               44850s, 48465s, 52080s, 55695s, 59310s, 62925s, 66540s, 70155s,
                                               73762s, 73768s, 77369s, 80970s, 84585s};
    for (std::size_t i = 0; i < firstDay.size(); ++i) {
        EXPECT_EQ(bestFound.at(2 * i), firstDay[i]);
        EXPECT_EQ(bestFound.at(2 * i + 1), firstDay[i]) << "both pingers keep the same schedule";
    }
    EXPECT_EQ(bestFound.size(), 2 * 203);
    ASSERT_EQ(checks.size(), 8 * 24);
    EXPECT_EQ(checks.front(), 1h);
    EXPECT_EQ(checks.back(), end);
    EXPECT_THAT(changes, testing::ElementsAre(1h, 168h));
    EXPECT_EQ(support::storedPings(havrel::paths::proxies), "a:4 b:4 c:4 ");
}

} // namespace
