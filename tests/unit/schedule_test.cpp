#include "daemon/HVLAutoUninstaller.h"
#include "platform/clock.h"
#include "prefs/HVLUserPrefManager.h"
#include "proxy/HVLPingManager.h"
#include "support/core_test.h"
#include "support/ping_lists.h"

#include <set>
#include <thread>

namespace {

using namespace std::chrono_literals;
using std::chrono::nanoseconds;

/// When a pinger tells of new proxies. A ping takes a bit less than six seconds.
std::multiset<nanoseconds> plannedPosts(nanoseconds end) {
    std::multiset<nanoseconds> posts;
    nanoseconds now{0};
    for (int turn = 0; now < end; ++turn) {
        const bool isFull = turn % 23 == 0;
        // Six for the pings, one for the top five; then the rest of theirs and as long again is waited for.
        posts.insert(now += isFull ? 7s : turn % 23 < 3 ? 1s : 15s);
        if (isFull) {
            posts.insert(now += 6s);
        }
        now += turn < 3 ? 480s : 3600s;
    }
    posts.erase(posts.upper_bound(end), posts.end());
    return posts;
}

using Schedule = support::CoreTest;

TEST_F(Schedule, OfAMonth) {
    constexpr auto month = 30 * 24h;
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
        // Looked at first: who sleeps goes on sleeping, and whoever does not is missing here.
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
    std::multiset<nanoseconds> bestFound;
    std::vector<nanoseconds> checks, changes;
    for (nanoseconds now{0}; now <= month; now = fakes::clock::now()) {
        while (!isQuiet()) {
            std::this_thread::yield();
        }
        for (const auto& post : fakes::notifications::posts()) {
            if (post.name == "BestThreeProxyFoundNotification") {
                bestFound.insert(now);
            } else if (post.name == "UpdatePublicIP") {
                changes.push_back(now);
            }
        }
        checks.insert(checks.end(), fakes::network::requests().size(), now);
        fakes::notifications::reset();
        fakes::network::requests({});
        fakes::clock::advance();
    }
    auto posts = plannedPosts(month);
    posts.merge(plannedPosts(month));
    EXPECT_EQ(bestFound, posts) << "both pingers keep the same schedule";
    ASSERT_EQ(checks.size(), 30 * 24);
    EXPECT_EQ(checks.front(), 1h);
    EXPECT_EQ(checks.back(), month);
    EXPECT_THAT(changes, testing::ElementsAre(1h, 168h, 336h, 504h, 672h));
    EXPECT_EQ(support::storedPings(havrel::paths::proxies), "a:4 b:4 c:4 ");
}

} // namespace
