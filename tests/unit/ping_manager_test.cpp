#include "foundation/error.h"
#include "foundation/format.h"
#include "foundation/text.h"
#include "prefs/HVLUserPrefManager.h"
#include "proxy/HVLPingManager.h"
#include "support/core_test.h"
#include "support/ping_lists.h"
#include "support/thread_shortage.h"
#include "trial/support/wait.h"
#include "util/PropertyListFile.h"

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
        fakes::clock::onSleep([this](auto) { waitForPings(); });
        fakes::processes::onPing(answer);
    }

    /// A proxy answers in as many milliseconds as its name ends in; "a0" is silent.
    static std::string answer(const std::string& address) {
        const std::string latency = address.substr(address.find_last_not_of("0123456789") + 1);
        return latency == "0" ? std::string() : fakes::processes::pingSummary(latency + ".5");
    }

    /// From now on pings last until the end of the test and answer in 70 ms.
    void holdPings() {
        fakes::clock::onSleep({});
        fakes::processes::onPing([this](const std::string&) {
            released.wait();
            return fakes::processes::pingSummary("70");
        });
    }

    void waitForPings() const {
        EXPECT_TRUE(eventually([this] { return manager->pingingQueue()->operationCount() == 0; }));
    }

    static void store(const std::string& path, const std::string& list) { pings(list).writeProxyOnFile(path); }

    static std::string one(int i) { return platform::text::format("%d:%d ", i, i); }

    /// "1:1 2:2 … ", ending at `last`.
    static std::string upTo(int last) { return last == 0 ? "" : upTo(last - 1) + one(last); }

    static std::string downFrom(int first) { return first == 0 ? "" : one(first) + downFrom(first - 1); }

    /// The same proxies without a latency.
    static std::string unmeasured(int first) { return platform::text::replaceAll(downFrom(first), ":", ":x"); }

    std::latch released{1};
    std::optional<HVLPingManager> manager;
};

TEST_F(PingManager, MeasuresWritesLogsAndPosts) {
    using Measure = void (*)(HVLPingManager&);
    const Measure known = [](HVLPingManager& made) { made.startPing(); };
    const Measure topFive = [](HVLPingManager& made) { made.pintThreeBestProxiesOnOneHr(15); };
    const Measure every = [](HVLPingManager& made) { made.startPingForAllProxies(); };
    const auto found = [](int count) { return platform::text::format("Five Best Proxies On OneHr Count - %d", count); };

    const std::string refilled = "Top proxies list is empty. Helper Reupdate";
    const std::string seven = "g3:7 a7:70 b6:60 z9:0 c5:50 d4:40 e0:30";
    const std::string sevenThen = "g3:3 a7:70 b6:6 z9:0 c5:5 d4:4 e0:30 ";
    const std::string sixty = downFrom(60) + "z:0 ";

    struct Files {
        std::string best, all;
    };

    struct Row {
        const char* name;
        Measure measure;
        Files before, after;
        std::size_t pings;
        bool isPosted;
        std::vector<std::string> log;
    };

    const Row rows[] = {
        {"the silent keep what they had", known, {"a0:0 b0:20 c3:35 d3:0", ""}, {"c3:3 d3:3 b0:20 ", ""}, 4, true, {}},
        {"50 known are kept", known, {downFrom(51), ""}, {upTo(50), ""}, 51, true, {}},
        {"the file keeps its order", topFive, {seven, ""}, {sevenThen, ""}, 5, true, {found(6)}},
        {"refilled", topFive, {"a1:0", sixty}, {upTo(50), sixty}, 0, false, {found(0), refilled}},
        {"nothing to refill from", topFive, {"a1:0", ""}, {"a1:0 ", ""}, 0, false, {found(0)}},
        {"50 of all", every, {"a1:1", "z0:0 " + unmeasured(50)}, {upTo(50), "z0:0 " + downFrom(50)}, 51, true, {}},
        {"49 of all", every, {"a1:1", unmeasured(49)}, {"a1:1 ", downFrom(49)}, 49, false, {}},
        {"none of all", every, {"a1:1", "b0:0"}, {"a1:1 ", "b0:0 "}, 1, false, {}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        fakes::notifications::reset();
        fakes::processes::calls({});
        root.write(hostInstallMarker, "");
        store(proxies, row.before.best);
        store(allProxies, row.before.all);
        takeLog(hostLog);
        row.measure(manager.emplace());
        EXPECT_EQ(storedPings(proxies), row.after.best);
        EXPECT_EQ(storedPings(allProxies), row.after.all);
        EXPECT_EQ(fakes::processes::calls().size(), row.pings);
        EXPECT_EQ(fakes::notifications::countOf("BestThreeProxyFoundNotification"), row.isPosted ? 1 : 0);
        EXPECT_EQ(takeLog(hostLog), row.log);
        EXPECT_EQ(manager->isPingCompleted(), row.measure != topFive);
        EXPECT_EQ(std::filesystem::exists(root.at(hostInstallMarker)), row.measure != every || !row.isPosted);
    }
    EXPECT_EQ(manager->plistPingArray().toJSONFormat(), "a1:1 ") << "nobody's answer replaces nothing";
}

TEST_F(PingManager, TellsWhileItMeasuresTheKnownProxies) {
    store(proxies, "a1:1");
    hostPreferences().setIsPingToProxyDone(true);
    fakes::processes::onPing([](const std::string& address) {
        EXPECT_FALSE(hostPreferences().isPingToProxyDone());
        return answer(address);
    });
    manager.emplace().startPing();
    EXPECT_TRUE(hostPreferences().isPingToProxyDone());
    EXPECT_EQ(lastPost(), "BestThreeProxyFoundNotification//3");
}

TEST_F(PingManager, WaitsNoLongerThanItsLimit) {
    struct Row {
        const char* name;
        void (*measure)(HVLPingManager&);
        std::size_t seconds;
    };

    const Row rows[] = {
        {"as asked", [](HVLPingManager& made) { made.doPingInTimeOut(3); }, 3},
        {"not at all", [](HVLPingManager& made) { made.doPingInTimeOut(-1); }, 0},
        {"the known proxies", [](HVLPingManager& made) { made.startPing(); }, 60},
        {"every proxy", [](HVLPingManager& made) { made.startPingForAllProxies(); }, 60},
        {"the top five", [](HVLPingManager& made) { made.pintThreeBestProxiesOnOneHr(1); }, 1},
    };
    store(proxies, downFrom(60));
    store(allProxies, downFrom(60));
    holdPings();
    std::list<HVLPingManager> managers;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        fakes::clock::sleeps({});
        row.measure(managers.emplace_back());
        EXPECT_THAT(fakes::clock::sleeps(), AllOf(SizeIs(row.seconds), Each(1s)));
    }
    fakes::clock::sleeps({});
    fakes::clock::blockFrom(8min);
    managers.emplace_back().startPingOnNewThread();
    fakes::clock::waitForSleepers(1);
    EXPECT_THAT(fakes::clock::sleeps(), SizeIs(10 + 1 + 60 + 1)) << "a full turn and its pause";
    released.count_down();
}

TEST_F(PingManager, CancelsWhatHasNotBegunInTime) {
    store(proxies, downFrom(60));
    holdPings();
    fakes::clock::onSleep([](auto) { eventually([] { return fakes::processes::calls().size() == 50; }); });
    manager.emplace().doPingInTimeOut(1);
    EXPECT_EQ(manager->pingingQueue()->operationCount(), 50);
    EXPECT_EQ(storedPings(proxies), upTo(50)) << "the known latencies";
    released.count_down();
    waitForPings();
    EXPECT_EQ(fakes::processes::calls().size(), 50);
    EXPECT_EQ(manager->plistPingArray().objectAtIndex(0)->pingTime(), 70) << "a ping that has begun still reports";
}

TEST_F(PingManager, StoresTheTopFiveInTheFileAsItIsByThen) {
    store(proxies, "a1:10 b2:20");
    fakes::clock::onSleep([this](auto) {
        waitForPings();
        store(proxies, "c3:30 b2:25 d4:0");
    });
    manager.emplace().pintThreeBestProxiesOnOneHr(15);
    EXPECT_EQ(storedPings(proxies), "c3:30 b2:2 d4:0 ");
}

TEST_F(PingManager, LeavesTheFileToTheListThatHasReplacedTheMeasuredOne) {
    store(proxies, "a1:10");
    fakes::clock::onSleep([this](auto) {
        waitForPings();
        store(proxies, "b2:20");
        manager->getPingFromFile();
    });
    manager.emplace().doPingInTimeOut(60);
    EXPECT_EQ(storedPings(proxies), "b2:20 ");
    EXPECT_EQ(manager->pingArray().toJSONFormat(), "a1:1 ");
}

TEST_F(PingManager, LeavesOutARecordThatLacksAText) {
    auto records = pings("a2:20 b1:10").getPlistArray();
    records.emplace_back(platform::Dictionary{{"hostName", "no address"}, {"pingTime", "9"}});
    for (const std::string& path : {proxies, allProxies}) {
        writePropertyList(path, records);
    }
    manager.emplace().pintThreeBestProxiesOnOneHr(15);
    EXPECT_EQ(storedPings(proxies), "a2:2 b1:1 ");
    writePropertyList(proxies, records);
    manager.emplace().startPing();
    EXPECT_EQ(storedPings(proxies), "b1:1 a2:2 ");
    manager->startPingForAllProxies();
    EXPECT_EQ(storedPings(allProxies), "a2:2 b1:1 ");
}

TEST_F(PingManager, TakesEachTurnAndEachOfItsStepsByItself) {
    store(proxies, "a1:1");
    holdPings();
    fakes::clock::blockFrom(8min);
    fakes::clock::onSleep([](auto duration) { duration == 1s ? throw platform::Exception("spoilt") : void(); });
    manager.emplace().startPingOnNewThread();
    fakes::clock::waitForSleepers(1);
    EXPECT_THAT(fakes::clock::sleeps(), ElementsAre(1s, 1s, 1s, 8min)) << "three steps, none of which got further";
    EXPECT_TRUE(manager->isPingCompleted());
    fakes::clock::advance();
    fakes::clock::waitForSleepers(1);
    EXPECT_THAT(fakes::clock::sleeps(), ElementsAre(1s, 1s, 1s, 8min, 1s, 8min));
    EXPECT_TRUE(manager->isPingCompleted());
    released.count_down();
    fakes::clock::onSleep({});
    manager->startPingOnNewThreadForUpdateOnce(); // beside the pinger, which sleeps
    fakes::notifications::waitFor("BestThreeProxyFoundNotification", 1);
}

TEST_F(PingManager, StartsItsPingerOnceAThreadCanBeMade) {
    fakes::clock::blockFrom(8min);
    manager.emplace();
    {
        const support::ThreadShortage shortage;
        manager->startPingOnNewThread();
    }
    EXPECT_THAT(fakes::clock::alarms, SizeIs(1));
    fakes::clock::advance();
    EXPECT_THAT(fakes::clock::alarms, IsEmpty());
    fakes::clock::waitForSleepers(1);
}

TEST_F(PingManager, RunsAtMostEightPassesAndBeginsThemBetweenMeasurements) {
    const auto threads = [] { return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {}); };
    const auto change = [] { fakes::notifications::deliver({"HVLProxyStateChangedNotification", "", std::nullopt}); };
    fakes::clock::setStepped(true);
    const auto before = threads();
    manager.emplace();
    for (const int proxyCount : {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 50}) {
        store(allProxies, upTo(proxyCount));
        change();
        EXPECT_TRUE(eventually([&] { return manager->allProxyListArray().count() == std::size_t(proxyCount); }));
    }
    EXPECT_LE(threads(), before + 9) << "eight passes and who reads the files";
    manager->doPingInTimeOut(0);
    EXPECT_THAT(fakes::processes::calls(), IsEmpty()) << "a pass looks once a second";
    fakes::clock::setStepped(false);
    fakes::notifications::waitFor("BestThreeProxyFoundNotification", 1);
    EXPECT_EQ(storedPings(proxies), upTo(50));
}

TEST_F(PingManager, ChoosesAmongWhatItHasMeasured) {
    store(proxies, "a:0 b:20 c:10");
    EXPECT_EQ(HVLPingManager::initWithPlist().bestProxyOnCurrentProxyPingsWithPno(1)->toJSON(), "b:20");
    EXPECT_EQ(HVLPingManager::initWithPlist().bestProxyOnCurrentProxyPingsWithPno(2), nullptr);
    auto list = pings("a:1 b:2 c:0 d:4");
    auto source = pings("d:8 m-a:9 b:16 c:32");
    EXPECT_EQ(HVLPingManager::generateTotalOfPings(list, source).toJSONFormat(), "b:18 d:12 ");
    EXPECT_EQ(HVLPingManager::fethProxyRechableToBoth(list, source).toJSONFormat(), "b:2 d:4 ");
}
