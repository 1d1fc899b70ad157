#include "foundation/error.h"
#include "prefs/HVLUserPrefManager.h"
#include "proxy/HVLPingManager.h"
#include "support/core_test.h"
#include "support/ping_lists.h"
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

    /// From now on pings last until the end of the test.
    void holdPings() {
        fakes::clock::onSleep({});
        fakes::processes::onPing([this](const std::string&) {
            released.wait();
            return std::string();
        });
    }

    void waitForPings() const {
        EXPECT_TRUE(eventually([this] { return manager->pingingQueue()->operationCount() == 0; }));
    }

    static void store(const std::string& path, const std::string& list) { pings(list).writeProxyOnFile(path); }

    /// "1:1 2:2 … ", ending at `last`.
    static std::string upTo(int last) {
        return last == 0 ? "" : upTo(last - 1) + platform::text::format("%d:%d ", last, last);
    }

    std::latch released{1};
    std::optional<HVLPingManager> manager;
};

TEST_F(PingManager, MeasuresWritesLogsAndPosts) {
    using Measure = void (*)(HVLPingManager&);
    const Measure known = [](HVLPingManager& made) { made.startPing(); };
    const Measure topFive = [](HVLPingManager& made) { made.pintThreeBestProxiesOnOneHr(15); };
    const Measure every = [](HVLPingManager& made) { made.startPingForAllProxies(); };
    const auto found = [](int count) { return platform::text::format("Five Best Proxies On OneHr Count - %d", count); };

    const std::string seven = "g3:7 a7:70 b6:60 z9:0 c5:50 d4:40 e0:30";
    const std::string sevenThen = "g3:3 a7:70 b6:6 z9:0 c5:5 d4:4 e0:30 ";
    const std::string sixty = "60:60 z:0 " + upTo(59);
    const std::string refilled = "Top proxies list is empty. Helper Reupdate";

    struct Row {
        const char* name;
        Measure measure;
        std::string best, all, bestThen, allThen;
        bool isPosted;
        std::vector<std::string> log;
    };

    const Row rows[] = {
        {"the silent keep what they had", known, "a0:0 b0:20 c3:35 d3:0", "", "c3:3 d3:3 b0:20 ", "", true, {}},
        {"50 known are kept", known, "51:51 " + upTo(50), "", upTo(50), "", true, {}},
        {"the file keeps its order", topFive, seven, "", sevenThen, "", true, {found(6)}},
        {"refilled", topFive, "a1:0", sixty, upTo(50), sixty, false, {found(0), refilled}},
        {"nothing to refill from", topFive, "a1:0", "", "a1:0 ", "", false, {found(0)}},
        {"50 of all", every, "a1:1", "z0:0 50:0 " + upTo(49), upTo(50), "z0:0 50:50 " + upTo(49), true, {}},
        {"49 of all", every, "a1:1", "49:0 " + upTo(48), "a1:1 ", "49:49 " + upTo(48), false, {}},
        {"none of all", every, "a1:1", "b0:0", "a1:1 ", "b0:0 ", false, {}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        fakes::notifications::reset();
        root.write(hostInstallMarker, "");
        store(proxies, row.best);
        store(allProxies, row.all);
        row.measure(manager.emplace());
        EXPECT_EQ(storedPings(proxies), row.bestThen);
        EXPECT_EQ(storedPings(allProxies), row.allThen);
        EXPECT_EQ(fakes::notifications::countOf("BestThreeProxyFoundNotification"), row.isPosted ? 1 : 0);
        EXPECT_EQ(takeLog(hostLog), row.log);
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

TEST_F(PingManager, WaitsNoLongerThanItsLimits) {
    store(proxies, "a1:1");
    holdPings();
    fakes::clock::blockFrom(8min);
    hostPreferences().setIsPingToProxyDone(true);
    std::atomic<int> sleepsOfFull = 0;
    fakes::clock::onSleep([&](auto) { sleepsOfFull += hostPreferences().isPingToProxyDone() ? 0 : 1; });
    manager.emplace().startPingOnNewThread();
    fakes::clock::waitForSleepers(1);
    EXPECT_EQ(sleepsOfFull, 60);
    EXPECT_THAT(fakes::clock::sleeps(), SizeIs(10 + 1 + 60 + 1)) << "a full turn and its pause";
    released.count_down();
}

TEST_F(PingManager, CancelsWhatHasNotBegunInTime) {
    store(proxies, upTo(60));
    holdPings();
    fakes::clock::onSleep([](auto) { eventually([] { return fakes::processes::calls().size() == 50; }); });
    manager.emplace().doPingInTimeOut(1);
    EXPECT_EQ(manager->pingingQueue()->operationCount(), 50);
    EXPECT_EQ(storedPings(proxies), upTo(50)) << "the known latencies";
    released.count_down();
    waitForPings();
    EXPECT_EQ(fakes::processes::calls().size(), 50);
}

TEST_F(PingManager, HeedsTheListThatReplacesTheFileWhileItMeasures) {
    fakes::processes::onPing([this](const std::string& address) {
        store(proxies, "c3:30 b2:25 d4:0");
        manager->getPingFromFile();
        return answer(address);
    });
    store(proxies, "a1:10 b2:20");
    manager.emplace().pintThreeBestProxiesOnOneHr(15);
    EXPECT_EQ(storedPings(proxies), "c3:30 b2:2 d4:0 ") << "the top five are stored in the new list";
    store(proxies, "a1:10 b2:20");
    manager.emplace().doPingInTimeOut(60);
    EXPECT_EQ(storedPings(proxies), "c3:30 b2:25 d4:0 ") << "the old list as a whole is not";
}

TEST_F(PingManager, WritesNoOldListOverTheOneOfAnotherManagersPass) {
    store(proxies, "a1:10");
    store(allProxies, upTo(60));
    HVLPingManager other;
    fakes::processes::onPing([this](const std::string& address) {
        address == "ip-a1" ? released.wait() : void();
        return answer(address);
    });
    fakes::clock::onSleep([&](auto) {
        fakes::clock::onSleep([&](auto) { eventually([&] { return other.pingingQueue()->operationCount() == 0; }); });
        other.startPingForAllProxies();
        released.count_down();
        fakes::clock::onSleep([this](auto) { waitForPings(); });
    });
    manager.emplace().doPingInTimeOut(60);
    EXPECT_EQ(storedPings(proxies), upTo(50));
    manager->doPingInTimeOut(60);
    EXPECT_EQ(manager->pingArray().toJSONFormat(), upTo(50)) << "read anew";
}

TEST_F(PingManager, LeavesOutARecordThatLacksAText) {
    auto records = pings("a2:20 b1:10").getPlistArray();
    records.emplace_back(platform::Dictionary{{"hostName", "no address"}, {"pingTime", "9"}});
    writePropertyList(proxies, records);
    manager.emplace().startPing();
    EXPECT_EQ(storedPings(proxies), "b1:1 a2:2 ");
}

TEST_F(PingManager, TakesEachStepOfATurnByItself) {
    store(proxies, "a1:1");
    holdPings();
    fakes::clock::blockFrom(8min);
    fakes::clock::onSleep([](auto duration) { duration == 1s ? throw platform::Exception("spoilt") : void(); });
    manager.emplace().startPingOnNewThread();
    fakes::clock::waitForSleepers(1);
    EXPECT_THAT(fakes::clock::sleeps(), ElementsAre(1s, 1s, 1s, 8min)) << "three steps, none of which got further";
    EXPECT_TRUE(manager->isPingCompleted());
    EXPECT_TRUE(hostPreferences().isPingToProxyDone()) << "applications wait no longer";
    released.count_down();
}

TEST_F(PingManager, RunsAtMostEightPassesAndBeginsThemBetweenMeasurements) {
    const auto threads = [] { return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {}); };
    fakes::clock::setStepped(true);
    const auto before = threads();
    manager.emplace();
    for (int proxyCount = 1; proxyCount <= 11; ++proxyCount) {
        store(allProxies, upTo(proxyCount));
        fakes::notifications::deliver({"HVLProxyStateChangedNotification", "", std::nullopt});
        EXPECT_TRUE(eventually([&] { return manager->allProxyListArray().count() == std::size_t(proxyCount); }));
    }
    EXPECT_LE(threads(), before + 9) << "eight passes and who reads the files";
    manager->doPingInTimeOut(0);
    EXPECT_THAT(fakes::processes::calls(), IsEmpty()) << "a pass looks once a second";
    fakes::clock::setStepped(false);
    EXPECT_TRUE(eventually([] { return !fakes::processes::calls().empty(); }));
}
