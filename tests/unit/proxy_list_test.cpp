// A proxy and its latency, the lists of them and their files, and the fetch of the service's list.
#include "foundation/error.h"
#include "proxy/HVLPingOperation.h"
#include "proxy/HVLPlistManager.h"
#include "support/core_test.h"
#include "support/ping_lists.h"

#include <set>

using namespace havrel;
using namespace testing;
using List = HVLPingMutableArray;
using ProxyList = support::CoreTest;
using support::pings;
using support::repeated;
using support::storedPings;

TEST_F(ProxyList, TakesTheMinimumFromThePingSummary) {
    struct Row {
        const char* name;
        std::string behindTitle;
        std::string latency; // 7 before
    };

    const Row rows[] = {
        {"less than a millisecond", " = 0.4/1.5/2.5/0.1 ms\n", "1"},
        {"truncated", " = 37.8/38/39", "37"},
        {"one figure", " = 12.5 ms", "7"},
        {"not UTF-8", " = 5/6/7/8 \xff", "7"},
        {"throws", "throws", "7"},
    };
    const auto host = HVLPingHost::initWithHostName("a", "-f $(x)");
    const auto operation = HVLPingOperation::initWithPingHost(host);
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        fakes::processes::onPing([text = row.behindTitle](const std::string&) {
            return text == "throws" ? throw platform::Exception(text) : "rtt min/avg/max/stddev" + text;
        });
        host->setPingTime(7);
        EXPECT_NO_THROW(operation->main());
        EXPECT_EQ(host->toRegisterJSON(), "\"a\":\"" + row.latency + "\"");
    }
    operation->cancel();
    operation->main();
    EXPECT_EQ(fakes::processes::calls(), std::vector<std::string>(std::size(rows), "ping -f $(x)"));
}

TEST_F(ProxyList, KeepsItsOrderWhereLatenciesAreEqual) {
    // More than 16 records, as library sorts are stable for fewer.
    std::string even, odd, all;
    for (char name = 'a'; name <= 'x'; ++name) {
        const std::string proxy = std::string(1, name) + (name % 2 == 0 ? ":2 " : ":1 ");
        all += proxy;
        (name % 2 == 0 ? even : odd) += proxy;
    }
    List list = pings(all);
    list.sortPingArrayByMinimumPingTime();
    EXPECT_EQ(list.toJSONFormat(), odd + even);
}

TEST_F(ProxyList, WritesWhatItReads) {
    const List list = pings("b:0 a:37 c:4");
    list.objectAtIndex(0)->setPingTime(4294967301);
    list.objectAtIndex(2)->setPingTime(4294967295);
    ASSERT_TRUE(list.writeProxyOnFile(paths::proxies));
    EXPECT_EQ(List::initWithPlistWithPath(paths::proxies).getPlistArray(), list.getPlistArray());
    for (const auto clear : {&HVLPingHost::setHostName, &HVLPingHost::setIpAddr, &HVLPingHost::setMappHostName}) {
        const List lacking = pings("x:1");
        (*lacking.objectAtIndex(0).*clear)(std::nullopt);
        EXPECT_THROW(lacking.writeProxyOnFile(paths::proxies), platform::Exception);
    }
    EXPECT_EQ(storedPings(paths::proxies), "b:5 a:37 c:-1 ");
}

TEST_F(ProxyList, ReadsTenThousandRecordsAndNothingElse) {
    const std::string records = "<string>a</string><array/>" + repeated("<dict/>", 10'001);
    root.write(paths::proxies, "<plist version=\"1.0\"><array>" + records + "</array></plist>");
    EXPECT_TRUE(storedPings(paths::proxies) == repeated("(null):0 ", 10'000)); // too long to be printed
}

TEST_F(ProxyList, FetchesComparesWritesAndTells) {
    struct Row {
        const char* name;
        std::string answer, stored;
        std::vector<std::string> log; // behind the common lines
    };

    const auto decided = [](const std::string& best, const char* changed, const char* toAll) {
        return std::vector<std::string>{
            "Host Name: ip-" + best, std::string("HOST : PListManager : isProxyChanged : ") + changed,
            platform::text::format("HOST : PListManager : isProxyChanged:%@ isPingToALL:%@", changed, toAll)};
    };
    const auto written = [&](const std::string& best, const char* changed, const char* toAll, bool isWritten = true) {
        auto log = decided(best, changed, toAll);
        log.push_back(platform::text::format("HOST : PListManager : write : %d", isWritten));
        return log;
    };
    const auto refused = written("a Latency: 9", "0", "0", false);
    const auto incomplete = decided("a Latency: 9", "1", "0");
    const std::string head = R"({"y": [], "proxy_list": {"P1": {"domain": "ip-P1"})";
    const std::string two = head + R"(, "b": {"domain": "ip-b", "x": 1}}})";
    const std::string mapped = head + R"(, "m-b": {"domain": "ip-b"}}})";
    const std::string moved = head + R"(, "b": {"domain": "b"}}})";
    const Row rows[] = {
        {"the same in another order", two, "b:60 P1:50", written("P1 Latency: 50", "0", "0")},
        {"one is left over", head + "}}", "P1:60 b:51", written("b Latency: 51", "1", "1")},
        {"known by the mapped name", mapped, "P1:60 b:51", written("b Latency: 51", "0", "1")},
        {"another address", moved, "P1:60 b:51", written("b Latency: 51", "1", "1")},
        {"an array", "[" + two + "]", "a:9", refused},
        {"the list is a text", R"({"proxy_list":"P1"})", "a:9", incomplete},
        {"a proxy without domain", R"({"proxy_list":{"P1":{"domain":"b"},"c":{}}})", "a:9", incomplete},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        fakes::notifications::reset();
        pings(row.stored).writeProxyOnFile(paths::allProxies);
        fakes::network::answerWith(row.answer);
        root.write(paths::hostInstallMarker, "");
        HVLPlistManager().startPlistUpdateManager();
        auto log = row.log;
        log.insert(log.begin(), {"Helper :  app is installed now so fetch proxy list from server and ping to ALL",
                                 "Host : ProxyList : CheckForProxyUpdate()"});
        EXPECT_EQ(takeLog(hostLog), log);
        EXPECT_EQ(storedPings(paths::allProxies) != row.stored + " ", log.back().ends_with("write : 1"));
        const bool isTold = log.back().find(" : write : ") != std::string::npos;
        EXPECT_EQ(fakes::notifications::countOf("HVLProxyStateChangedNotification"), isTold ? 1 : 0);
    }
    EXPECT_THAT(takeLog(generalLog), ElementsAre("HOST : PListManager : iSChanged")) << "only for the one left over";
}

TEST_F(ProxyList, ShufflesEveryRecordToEveryPlace) {
    fakes::network::answerWith(
        R"({"proxy_list": {"a": {"domain": "a"}, "P1": {"domain": "b"}, "c": {"domain": "c"}}})");
    std::set<std::string> orders;
    for (int i = 0; i < 100; ++i) {
        HVLPlistManager().checkProxyIsChanged();
        orders.insert(storedPings(paths::allProxies));
    }
    EXPECT_EQ(orders.size(), 6);
}
