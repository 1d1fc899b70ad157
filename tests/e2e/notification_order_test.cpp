#include "e2e/daemon_test.h"

#include <csignal>

namespace e2e {

namespace {

class NotificationOrderTest : public DaemonTest {};

} // namespace

TEST_F(NotificationOrderTest, AListPostedBeforeThereIsAnObserverStartsNoPass) {
    constexpr std::size_t proxies = 60;
    machine.service.answer(trial::proxyListPath, trial::listing(trial::numberedProxies(proxies, "127.1.0")));
    // The bus is slow: it takes the daemon in when all posts and observers of the start-up are waiting.
    ::kill(machine.bus.pid(), SIGSTOP);
    startUp();
    ::kill(machine.bus.pid(), SIGCONT);
    // Of each manager the pinger's first turn and, for the list that was posted when it observed, one all-proxies pass.
    ASSERT_TRUE(client.waitForCount("BestThreeProxyFoundNotification", 4));
    EXPECT_FALSE(client.waitForCount("BestThreeProxyFoundNotification", 5, std::chrono::seconds(1)));
    EXPECT_EQ(client.countOf("HVLProxyStateChangedNotification"), 2U);
    EXPECT_EQ(machine.tools.calls("ping").size(), 2 * proxies);
}

} // namespace e2e
