// A proxy and its latency, the lists of them and their files, and the fetch of the service's list.
#include "foundation/error.h"
#include "foundation/text.h"
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
    // What follows "stddev", and the latency, which was 7. In single precision 0.99999999 is 1, so it is cut to its 0.
    // clang-format off
    const std::pair<std::string, std::string> rows[] = {
        {" = 0.4/1.5/2.5/0.1 ms\n", "1"}, {" = .5/2/3/4 ms", "1"}, {" = 1.999/2/3/4 ms", "1"}, {" = 37.8/38/39", "37"},
        {" = 0.99999999/1", "0"}, {" = -1.5/1", "18446744073709551615"}, {" = 5/6 min/avg/max/stddev = 8/9", "5"},
        {" = 12.5 ms", "7"}, {" =/5/6", "7"}, {": 5/6/7/8 ms", "7"}, {" = 5/6/7/8 \xff", "7"}, {"raises", "7"}};
    // clang-format on
    const auto host = HVLPingHost::initWithHostName("a", "-f $(x)");
    const auto operation = HVLPingOperation::initWithPingHost(host);
    for (const auto& [output, latency] : rows) {
        fakes::processes::onPing([text = output](const std::string&) {
            return text == "raises" ? throw platform::Exception(text) : "rtt min/avg/max/stddev" + text;
        });
        host->setPingTime(7);
        EXPECT_NO_THROW(operation->main());
        EXPECT_EQ(host->toRegisterJSON(), "\"a\":\"" + latency + "\"") << output;
    }
    operation->cancel();
    operation->main();
    host->setIpAddr(std::nullopt);
    host->pingToProxyNow();
    EXPECT_EQ(fakes::processes::calls(), std::vector<std::string>(std::size(rows), "ping -f $(x)"));
}

TEST_F(ProxyList, ReadsDropsSortsAndRenders) {
    // clang-format off
    const std::tuple<std::string, std::string, std::string, std::string> rows[] = { // the text, all, sorted, answered
        {R"({"a":"0","b":"12","c":"0","d":"7"})", "a:0,b:12,c:0,d:7,", "a:0 c:0 d:7 b:12 ", R"("d":"7","b":"12")"},
        {"w:9,x:5,y:9,z:5", "w:9,x:5,y:9,z:5,", "x:5 z:5 w:9 y:9 ", R"("x":"5","z":"5","w":"9","y":"9")"},
        {R"("d" : -1 :9,,c,b:x,{f}:99999999999)", "d\" :18446744073709551615,b:0,f:2147483647,",
         "b:0 f:2147483647 d\" :-1 ", R"("f":"2147483647","d" ":"18446744073709551615")"}};
    // clang-format on
    for (const auto& [text, all, sorted, answered] : rows) {
        List list = List::initWithPingStringWithCommaSeprator(text);
        EXPECT_EQ(list.getPintableString(), "HostProxies State : " + all);
        list.sortPingArrayByMinimumPingTime();
        EXPECT_EQ(list.toJSONFormat(), sorted);
        const auto first = list.getMinimumPingTimeHost();
        list.removeAllZeroPings();
        EXPECT_EQ(list.toRegisterJSONFormat(), answered);
        EXPECT_EQ(list.objectAtIndex(0), first);
    }
}

TEST_F(ProxyList, FindsTheFirstThatMatchesAndRaisesOutOfRange) {
    List list = pings("c:1 b:2 a:3");
    const auto c = list.objectAtIndex(0), b = list.objectAtIndex(1), a = list.objectAtIndex(2);
    c->setHostName(std::nullopt);
    b->setMappHostName("a");
    EXPECT_TRUE(list.findHost("a") == b && list.findHostByIP("ip-c") == c && list.findHostByMappedName("m-a") == a);
    EXPECT_FALSE(list.findHost({}) || list.findHost("B") || list.findHostByIP("a") || list.findHostByMappedName("b"));
    EXPECT_THROW(list.removeObjectsInRange(1, SIZE_MAX), platform::Exception);
    EXPECT_THROW(List().removeLastObject(), platform::Exception);
}

TEST_F(ProxyList, WritesWhatItReadsAndReadsAnyFile) {
    const List list = pings("b:0 a:37 c:4");
    list.objectAtIndex(0)->setPingTime(4294967301);
    list.objectAtIndex(2)->setPingTime(4294967295);
    ASSERT_TRUE(list.writeProxyOnFile(paths::proxies));
    EXPECT_EQ(List::initWithPlistWithPath(paths::proxies).getPlistArray(), list.getPlistArray());
    for (const auto set : {&HVLPingHost::setHostName, &HVLPingHost::setIpAddr, &HVLPingHost::setMappHostName}) {
        const List lacking = pings("x:1");
        (*lacking.objectAtIndex(0).*set)(std::nullopt);
        EXPECT_THROW(lacking.writeProxyOnFile(paths::proxies), platform::Exception);
    }
    EXPECT_EQ(storedPings(paths::proxies), "b:5 a:37 c:-1 ");
    const std::string mega((1 << 20) - 1, 'x');
    // clang-format off
    const std::pair<std::string, std::string> rows[] = {
        {"<dict><key>hostName</key><string>a</string></dict>", ""},
        {"<array><string>a</string><array/><dict/></array>", "(null):0 "},
        {"<array><dict><key>hostName</key><true/><key>pingTime</key><integer>9</integer></dict></array>", "(null):9 "},
        {"<array><dict><key>hostName</key><string/><key>pingTime</key><real>9.9</real></dict></array>", ":9 "},
        {"<array>" + repeated("<dict><key>hostName</key><string>" + mega + "</string></dict>", 5) + "</array>",
         repeated(mega + ":0 ", 4)},
        {"<array>" + repeated("<dict/>", 10'001) + "</array>", repeated("(null):0 ", 10'000)}};
    // clang-format on
    for (const auto& [content, expected] : rows) {
        root.write(paths::proxies, "<plist version=\"1.0\">" + content + "</plist>");
        EXPECT_EQ(storedPings(paths::proxies), expected);
    }
}

TEST_F(ProxyList, FetchesComparesWritesAndTells) {
    const std::string write = "\nHOST : PListManager : write : ", wrote = write + "1";
    const auto decided = [](const std::string& best, const std::string& changed, const std::string& toAll,
                            const std::string& end) {
        return "\nHost Name: ip-" + best + "\nHOST : PListManager : isProxyChanged : " + changed +
               "\nHOST : PListManager : isProxyChanged:" + changed + " isPingToALL:" + toAll + end;
    };
    const std::string none = "\nHost : ProxyList : NIL", refused = decided("a Latency: 9", "0", "0", write + "0");
    const std::string incomplete = decided("a Latency: 9", "1", "0", ""), deep = repeated("[", 200'000);
    const std::string head = R"({"y": [], "proxy_list": {"P1": {"domain": "ip-P1"})";
    const std::string two = head + R"(, "b": {"domain": "ip-b", "x": 1}}})";
    const std::string mapped = head + R"(, "m-b": {"domain": "ip-b"}}})", moved = head + R"(, "b": {"domain": "b"}}})";
    // clang-format off
    const std::tuple<std::optional<std::string>, std::string, std::string> rows[] = { // answer, what is stored, the log
        {two,                          "b:60 P1:50",  decided("P1 Latency: 50", "0", "0", wrote)},
        {head + "}}",                  "P1:60 b:51",  decided("b Latency: 51", "1", "1", wrote)}, // one is left over
        {mapped,                       "P1:60 b:51",  decided("b Latency: 51", "0", "1", wrote)},
        {moved,                        "P1:60 b:51",  decided("b Latency: 51", "1", "1", wrote)},
        {two,                          "P1:-9", decided("P1 Latency: 18446744073709551607", "1", "0", wrote)},
        {{},                           "a:9", none},
        {"<html>",                     "a:9", refused},    {"[" + two + "]",                         "a:9", refused},
        {deep + repeated("]", 200'000), "a:9", refused},   {R"({"proxies":{}})",                     "a:9", incomplete},
        {R"({"proxy_list":"P1"})",     "a:9", incomplete}, {R"({"proxy_list":{"P1":{"domain":1}}})", "a:9", incomplete},
        {R"({"proxy_list":{"P1":{"domain":"b"},"c":{}}})", "a:9", incomplete}};
    // clang-format on
    for (const auto& [answer, stored, log] : rows) {
        fakes::notifications::reset();
        pings(stored).writeProxyOnFile(paths::allProxies);
        fakes::network::onRequest([&given = answer](const auto&, auto&) { return given; });
        root.write(paths::hostInstallMarker, "");
        HVLPlistManager().startPlistUpdateManager();
        EXPECT_THAT(platform::text::join(takeLog(hostLog), "\n"), EndsWith("ProxyList : CheckForProxyUpdate()" + log));
        EXPECT_EQ(storedPings(paths::allProxies) != stored + " ", log.ends_with(wrote)) << log;
        const bool isTold = log.find(" : write : ") != std::string::npos;
        EXPECT_EQ(fakes::notifications::countOf("HVLProxyStateChangedNotification"), isTold ? 1 : 0) << log;
    }
    EXPECT_THAT(takeLog(generalLog), ElementsAre("HOST : PListManager : iSChanged")); // for what is left over only
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
