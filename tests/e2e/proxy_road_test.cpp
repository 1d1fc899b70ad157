#include "e2e/daemon_test.h"

#include <set>

namespace e2e {

using trial::CertificateKind;
using trial::ProxyEntry;
using trial::WebAnswer;
using trial::WebManner;

namespace {

const std::string changed = "HVLProxyStateChangedNotification";
const std::string bestFound = "BestThreeProxyFoundNotification";

class ProxyRoadTest : public DaemonTest {
  protected:
    std::vector<ProxyEntry> file(const std::string& path) const {
        return machine.root.proxies(path).value_or(std::vector<ProxyEntry>());
    }
};

} // namespace

TEST_F(ProxyRoadTest, EndsWithTheFiftyFastestAndNoMarker) {
    // 64 numbered ones, two of them silent, and some whose addresses look like options or shell commands.
    trial::Proxies listed = trial::numberedProxies(64, "127.1.0");
    const std::string touched = machine.root.folder() / "touched";
    const std::vector<std::string> hostile{"-f",  "-c1 127.0.0.1",           "$(touch '" + touched + "')",
                                           "a b", "`touch " + touched + '`', "; touch " + touched,
                                           "ä\n"};
    for (const std::string& address : hostile) {
        listed.emplace_back("hostile " + address, address);
    }
    machine.tools.scriptInstantPing("127.1.0.3|127.1.0.20");
    machine.service.answer(trial::proxyListPath, trial::listing(listed));
    startUp();
    ASSERT_TRUE(trial::eventually([&] { return !machine.root.has(havrel::paths::hostInstallMarker); }));

    const auto best = file(havrel::paths::proxies);
    ASSERT_EQ(best.size(), 50U);
    std::int64_t number = 0;
    for (const ProxyEntry& proxy : best) {
        number += number == 2 || number == 19 ? 2 : 1; // P3 and P20 are silent
        EXPECT_EQ(proxy.hostName, "P" + std::to_string(number));
        EXPECT_EQ(proxy.mappedHostName, proxy.hostName);
        EXPECT_EQ(proxy.ipAddr, "127.1.0." + std::to_string(number));
        EXPECT_EQ(proxy.pingTime, number);
    }

    std::set<std::string> known;
    for (const ProxyEntry& proxy : file(havrel::paths::allProxies)) {
        known.insert(proxy.hostName);
        const bool silent = proxy.hostName == "P3" || proxy.hostName == "P20" || proxy.hostName.starts_with("hostile");
        EXPECT_EQ(proxy.pingTime == 0, silent) << proxy.hostName;
    }
    EXPECT_EQ(known.size(), listed.size());

    const auto pings = machine.tools.calls("ping");
    for (const std::string& address : hostile) {
        EXPECT_THAT(pings, testing::Contains(trial::ToolCall{"ping", {"-n", "--", address}}));
    }
    EXPECT_FALSE(std::filesystem::exists(touched));

    EXPECT_TRUE(client.waitFor([](const std::vector<trial::Posted>& heard) {
        const auto first = std::ranges::find(heard, changed, &trial::Posted::name);
        return std::any_of(first, heard.end(), [](const auto& posted) { return posted.name == bestFound; });
    }));
}

TEST_F(ProxyRoadTest, LeavesWholeFilesWhenItIsKilled) {
    machine.service.answer(trial::proxyListPath, trial::listing(trial::numberedProxies(60, "127.1.0")));
    setPreferences({{"isServiceEnabled", true}, {"hostDescription", std::string(20000, 'd')}});
    for (int round = 0; round < 12; ++round) {
        machine.root.write(havrel::paths::hostInstallMarker, "");
        start();
        // Waits for no condition: the rounds vary the moment of the kill.
        EXPECT_FALSE(trial::eventually([&] { return !daemon->isRunning(); }, std::chrono::milliseconds(15 * round)));
        daemon->signal(SIGKILL);
        daemon->waitForEnd();

        const auto preferences = machine.root.propertyList(trial::hostPreferences);
        SCOPED_TRACE(round);
        ASSERT_TRUE(preferences);
        EXPECT_NE(preferences->member("hostDescription"), nullptr);
        EXPECT_EQ(file(havrel::paths::allProxies).size(), machine.root.has(havrel::paths::allProxies) ? 60U : 0U);
        EXPECT_EQ(machine.root.proxies(havrel::paths::proxies).has_value(), machine.root.has(havrel::paths::proxies));
    }
    startUp();
}

TEST_F(ProxyRoadTest, OutlivesAServiceThatMisbehaves) {
    const platform::Value stored = platform::Array{
        platform::Dictionary{{"hostName", "P9"}, {"ipAddr", "127.1.0.9"}, {"mappedHostName", "P9"}, {"pingTime", "9"}}};
    const WebAnswer whole = trial::listing(trial::numberedProxies(60, "127.1.0"));
    const WebAnswer huge{.promisedLength = 100U << 20U, .ending = WebAnswer::Ending::endless};
    const WebAnswer cutOff{.body = whole.body, .promisedLength = whole.body.size() + 1};
    machine.root.write(havrel::paths::allProxies, platform::property_list::toXml(stored).value());
    setPreferences({{"isServiceEnabled", true}});

    const struct {
        const char* name;
        WebAnswer answer;
        CertificateKind certificate = CertificateKind::good;
        WebManner manner = WebManner::serve;
    } cases[] = {
        {.name = "endless", .answer = huge},
        {.name = "cut off", .answer = cutOff},
        {.name = "untrusted", .answer = whole, .certificate = CertificateKind::untrusted},
        {.name = "closing at once", .answer = whole, .manner = WebManner::closeAtOnce},
    };

    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        trial::WebService service(machine.authority, row.certificate);
        service.answer(trial::proxyListPath, row.answer);
        service.receive(row.manner);
        settings["HAVREL_WEB_SERVICE_HOST"] = service.host();
        const auto before = countLogged("Host : ProxyList : NIL");
        startUp();
        expectAnswer();
        EXPECT_EQ(service.connections(), 2U);
        EXPECT_EQ(countLogged("Host : ProxyList : NIL"), before + 2);
        EXPECT_EQ(machine.root.propertyList(havrel::paths::allProxies), stored);
        EXPECT_EQ(daemon->terminate(), 0);
    }
    EXPECT_EQ(client.countOf(changed), 0U);
    settings["HAVREL_WEB_SERVICE_HOST"] = "127.0.0.1:1";
    startUp();
}

} // namespace e2e
