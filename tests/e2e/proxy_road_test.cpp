#include "e2e/daemon_test.h"

#include <set>

namespace e2e {

using trial::ProxyEntry;

namespace {

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
        const auto changed = std::ranges::find(heard, "HVLProxyStateChangedNotification", &trial::Posted::name);
        return std::ranges::count(changed, heard.end(), "BestThreeProxyFoundNotification", &trial::Posted::name) > 0;
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
    const std::string leftover = "/Library/Application Support/HVLHostForMac/.havrel-left";
    machine.root.write(leftover, "");
    startUp();
    EXPECT_FALSE(machine.root.has(leftover));
}

TEST_F(ProxyRoadTest, KeepsTheListWhenAnAnswerIsCutOff) {
    const trial::WebAnswer whole = trial::listing(trial::numberedProxies(60, "127.1.0"));
    const std::string stored = "<plist><array/></plist>";
    machine.root.write(havrel::paths::allProxies, stored);
    machine.service.answer(trial::proxyListPath, {.body = whole.body, .promisedLength = whole.body.size() + 1});
    startUp();
    EXPECT_EQ(countLogged("Host : ProxyList : NIL"), 2);
    EXPECT_EQ(machine.root.read(havrel::paths::allProxies), stored);
}

} // namespace e2e
