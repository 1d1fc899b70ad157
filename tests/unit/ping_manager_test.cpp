#include "foundation/format.h"
#include "foundation/text.h"
#include "prefs/HVLUserPrefManager.h"
#include "proxy/HVLPingManager.h"
#include "support/core_test.h"
#include "support/ping_lists.h"
#include "trial/support/wait.h"

#include <latch>

using namespace havrel;
using namespace havrel::paths;
using namespace std::chrono_literals;
using namespace testing;
using support::pings;
using support::storedPings;
using trial::eventually;

class PingManager : public support::CoreTest {
  protected:
    PingManager() {
        fakes::clock::onSleep([this](auto) { drain(); });
        // A proxy answers in as many milliseconds as its name ends in; "a0" is silent.
        fakes::processes::onPing([](const std::string& address) {
            const std::string latency = address.substr(address.find_last_not_of("0123456789") + 1);
            return latency == "0" ? std::string() : fakes::processes::pingSummary(latency + ".5");
        });
    }

    void drain() const {
        EXPECT_TRUE(eventually([this] { return manager->pingingQueue()->operationCount() == 0; }));
    }

    static void store(const std::string& path, const std::string& list) { pings(list).writeProxyOnFile(path); }

    static std::string one(int i) { return platform::text::format("%d:%d ", i, i); }

    /// "1:1 2:2 … ", ending at `last`.
    static std::string upTo(int last) { return last == 0 ? "" : upTo(last - 1) + one(last); }

    static std::string downFrom(int first) { return first == 0 ? "" : one(first) + downFrom(first - 1); }

    std::optional<HVLPingManager> manager;
};

TEST_F(PingManager, GoesOnAfterATurnThatFailed) {
    fakes::clock::setStepped(true);
    manager.emplace().startPingOnNewThread();
    fakes::clock::waitForSleepers(1);
    root.write(proxies, "<plist><array><dict><key>pingTime</key><integer>5</integer></dict></array></plist>");
    for (int sleep = 0; sleep < 3; ++sleep) {
        fakes::clock::advance();
        fakes::clock::waitForSleepers(1);
    }
    EXPECT_THAT(fakes::clock::sleeps(), ElementsAre(480s, 1s, 480s, 1s)); // 1 s for the top five
    manager->startPingOnNewThreadForUpdateOnce();                         // beside the pinger that sleeps
    fakes::notifications::waitFor("BestThreeProxyFoundNotification", 2);
    EXPECT_EQ(lastPost(), "BestThreeProxyFoundNotification//3");
    manager->updatePingFromLatestProxy(); // ends though it waits, as the pinger ends though it sleeps
}

TEST_F(PingManager, MeasuresWritesAndTells) {
    using Measure = void (*)(HVLPingManager&);
    const Measure known = [](HVLPingManager& made) { made.startPing(); };
    const Measure topFive = [](HVLPingManager& made) { made.pintThreeBestProxiesOnOneHr(15); };
    const Measure every = [](HVLPingManager& made) { made.startPingForAllProxies(); };
    const auto unknown = [](int last) { return platform::text::replaceAll(downFrom(last), ":", ":x"); };
    // clang-format off
    const std::tuple<Measure, std::string, std::string, std::string, std::string, std::size_t, bool> rows[] = {
        // what is done, the best and all as stored; the best and all then, how many are pinged, is it told?
        {known,   "a0:0 b0:20 c3:35 d3:0", "",                   "c3:3 d3:3 b0:20 ", "",                     4,  true},
        {known,   downFrom(51),            "",                   upTo(50),           "",                     51, true},
        {topFive, "g3:7 a7:70 b6:60 z9:0 c5:50 d4:40 e0:30", "", "g3:3 a7:70 b6:6 z9:0 c5:5 d4:4 e0:30 ", "", 5, true},
        {topFive, "x0:3 y1:0",             "b:9 ",               "x0:3 y1:0 ",       "b:9 ",                 1,  true},
        {topFive, "a1:0",                  "b:9 c:0 d:4",        "d:4 b:9 ",         "b:9 c:0 d:4 ",         0,  false},
        {topFive, "",                      downFrom(60),         upTo(50),           downFrom(60),           0,  false},
        {every,   "a1:1",                  unknown(50) + "z0:0", upTo(50),           downFrom(50) + "z0:0 ", 51, true},
        {every,   "a1:1",                  unknown(49),          "a1:1 ",            downFrom(49),          49, false}};
    // clang-format on
    for (const auto& [measure, best, all, bestThen, allThen, pinged, isTold] : rows) {
        SCOPED_TRACE(best);
        fakes::notifications::reset();
        fakes::processes::calls({});
        root.write(hostInstallMarker, "");
        store(proxies, best);
        store(allProxies, all);
        measure(manager.emplace());
        EXPECT_EQ(storedPings(proxies), bestThen);
        EXPECT_EQ(storedPings(allProxies), allThen);
        EXPECT_EQ(fakes::processes::calls().size(), pinged);
        EXPECT_EQ(fakes::notifications::countOf("BestThreeProxyFoundNotification"), isTold ? 1 : 0);
        EXPECT_EQ(manager->isPingCompleted(), measure != topFive);
        EXPECT_EQ(std::filesystem::exists(root.at(hostInstallMarker)), measure != every || !isTold);
    }
    manager->doPingInTimeOut(60); // from now on among what has answered
    EXPECT_EQ(storedPings(proxies), upTo(49));
    EXPECT_THAT(fakes::clock::sleeps(), IsSupersetOf({15s, 15s}));
    EXPECT_TRUE(hostPreferences().isPingToProxyDone());
}

TEST_F(PingManager, GivesUpWhatHasNotBegunInTime) {
    store(proxies, downFrom(60));
    std::latch release(1);
    fakes::processes::onPing([&](const std::string&) {
        release.wait();
        return fakes::processes::pingSummary("70");
    });
    fakes::clock::onSleep([](auto) { eventually([] { return fakes::processes::calls().size() == 50; }); });
    manager.emplace().doPingInTimeOut(3);
    EXPECT_THAT(fakes::clock::sleeps(), ElementsAre(1s, 1s, 1s));
    manager->pintThreeBestProxiesOnOneHr(1);
    EXPECT_EQ(storedPings(proxies), upTo(50)); // what was known before
    manager->stop();
    release.count_down();
    drain();
    EXPECT_EQ(fakes::processes::calls().size(), 50);
    EXPECT_EQ(manager->plistPingArray().objectAtIndex(0)->pingTime(), 70) << "what had begun still reports";
}

TEST_F(PingManager, HoldsAStormOfNotificationsInBounds) {
    const auto threads = [] { return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {}); };
    const auto change = [] { fakes::notifications::deliver({"HVLProxyStateChangedNotification", "", std::nullopt}); };
    const auto before = threads();
    manager.emplace();
    for (int i = 0; i < 1000; ++i) {
        change();
    }
    EXPECT_LE(threads(), before + 9);
    store(allProxies, upTo(50));
    change();
    EXPECT_TRUE(eventually([this] { return manager->allProxyListArray().count() == 50; }));
    EXPECT_THAT(fakes::processes::calls(), IsEmpty()) << "passes wait for the first measurement";
    manager->doPingInTimeOut(0);
    fakes::notifications::waitFor("BestThreeProxyFoundNotification", 1);
    EXPECT_EQ(storedPings(proxies), upTo(50));
}

TEST_F(PingManager, ChoosesAmongWhatItHasMeasured) {
    store(proxies, "a:0 b:20 c:10");
    EXPECT_EQ(HVLPingManager::initWithPlist().bestProxyOnCurrentProxyPingsWithPno(1)->toJSON(), "b:20");
    auto list = pings("a:1 b:2 c:0 d:4"), source = pings("d:8 m-a:9 b:16 c:32");
    EXPECT_EQ(HVLPingManager::generateTotalOfPings(list, source).toJSONFormat(), "b:18 d:12 ");
    EXPECT_EQ(HVLPingManager::fethProxyRechableToBoth(list, source).toJSONFormat(), "b:2 d:4 ");
}
