#include "platform/notifications.h"

#include "platform/own_bus.h"
#include "support/serve.h"
#include "trial/support/bus_client.h"
#include "trial/support/sleep_service.h"
#include "trial/support/wait.h"

#include <algorithm>
#include <atomic>
#include <functional>
#include <gmock/gmock.h>
#include <optional>
#include <systemd/sd-bus.h>

using namespace std::chrono_literals;
using namespace platform;
using testing::ElementsAre;
using trial::BusClient;

namespace {

constexpr std::size_t bound = 16384; // of the messages that wait

/// Observes one name and keeps what arrives.
struct Ear {
    std::vector<Notification> heard;
    std::vector<std::string> objects;
    ObservationPtr observation;

    explicit Ear(const std::string& name)
        : observation(distributed_center::addObserver(name, [this](const Notification& n) {
            heard.push_back(n);
            objects.push_back(n.object);
        })) {}

    bool hears(std::size_t count) const {
        return support::serveUntil(RunLoop::main(), [&] { return heard.size() >= count; });
    }
};

/// The objects of as many posts, when each has its number as its object.
std::vector<std::string> numbers(std::size_t count) {
    std::vector<std::string> numbers;
    for (std::size_t i = 0; i < count; ++i) {
        numbers.push_back(std::to_string(i));
    }
    return numbers;
}

Dictionary nested(std::size_t levels) { return {{"inner", levels == 1 ? Value(1) : Value(nested(levels - 1))}}; }

class NotificationCenters : public testing::Test {
  protected:
    /// Another program's signal under the name "observed", with values of any types after it.
    template <typename... Values>
    void emit(const char* types, Values... values) {
        client->perform([&](sd_bus& connection) {
            sd_bus_emit_signal(&connection, "/com/Dravex/DistributedNotifications",
                               "com.Dravex.DistributedNotifications", "Posted", types, "observed", values...);
        });
        client->sync();
    }

    trial::PrivateBus& bus = support::ownBus();
    std::optional<BusClient> client{bus.address()};
};

TEST_F(NotificationCenters, KeepPostsInOrderWhileTheBusIsAway) {
    bus.stop(); // the first time before this process has a connection
    for (const std::size_t posts : {std::size_t{10}, bound + 1000}) {
        SCOPED_TRACE(posts);
        Ear ear("kept");
        bus.stop();
        for (const std::string& number : numbers(posts)) {
            distributed_center::post("kept", number);
        }
        bus.start();
        const std::size_t kept = std::min(posts, bound); // the newest beyond it are dropped
        ASSERT_TRUE(ear.hears(kept));
        BusClient(bus.address()).post("kept", std::to_string(kept));
        ASSERT_TRUE(ear.hears(kept + 1));
        EXPECT_EQ(ear.objects, numbers(kept + 1));
    }
}

TEST_F(NotificationCenters, TellAWatcherOfTheBusThatWasReachedBefore) {
    Ear ear("reached");
    distributed_center::post("reached");
    ASSERT_TRUE(ear.hears(1));
    static std::atomic<bool> isReached = false; // outlives this test, as the watcher does
    distributed_center::watchConnection([](bool isReachable) { isReached = isReachable; });
    EXPECT_TRUE(trial::eventually([] { return isReached.load(); }));
}

TEST_F(NotificationCenters, LetAnObserverHearOnlyWhatIsPostedAfterItWasAdded) {
    bus.stop();
    distributed_center::post("ordered", "1");
    const Ear early("ordered");
    distributed_center::post("ordered", "2");
    const Ear late("ordered");
    distributed_center::post("ordered", "3");
    bus.start();
    ASSERT_TRUE(late.hears(1));
    EXPECT_THAT(early.objects, ElementsAre("2", "3"));
    EXPECT_THAT(late.objects, ElementsAre("3"));
}

TEST_F(NotificationCenters, BoundWhatAFloodLeavesBehindABusyMainLoop) {
    Ear ear("flood");
    distributed_center::flush();                              // the bus knows the observer now
    for (const std::string& number : numbers(bound + 2000)) { // nobody serves the main loop meanwhile
        client->post("flood", number);
    }
    client->sync();
    for (int i = 0; i < 10; ++i) {
        distributed_center::flush(); // its answer comes behind the flood
    }
    ASSERT_TRUE(ear.hears(bound));
    client->post("flood", std::to_string(bound)); // there is room again
    ASSERT_TRUE(ear.hears(bound + 1));
    EXPECT_EQ(ear.objects, numbers(bound + 1)) << "the newest are dropped";
}

TEST_F(NotificationCenters, CarryEveryKindOfValue) {
    struct Row {
        std::string name;
        std::function<void()> send;
        Value received;
    };

    const Array array{1, nullptr, Array{}};
    const Dictionary dictionary{{"null", nullptr}, {"k", 1}};
    const auto post = [](const Value& value) { distributed_center::post("observed", "", Dictionary{{"k", value}}); };
    const Row rows[] = {
        {.name = "unsigned", .send = [&] { post(std::uint64_t{1} << 63); }, .received = std::uint64_t{1} << 63},
        {.name = "data", .send = [&] { post(Data{"\xff"}); }, .received = Data{"\xff"}},
        {.name = "invalid UTF-8", .send = [&] { post("bad\xff"); }, .received = "bad\uFFFD"},
        {.name = "zero character", .send = [&] { post(std::string("n\0l", 3)); }, .received = "n\uFFFDl"},
        {.name = "noncharacter", .send = [&] { post("a\uFFFF"); }, .received = "a???"},
        {.name = "array", .send = [&] { post(array); }, .received = Array{1, Array{}}},
        {.name = "dictionary", .send = [&] { post(dictionary); }, .received = Dictionary{{"k", 1}}},
        // Of another program: the object, one member of the user information, the options.
        {.name = "short", .send = [&] { emit("ssa{sv}u", "", 1, "k", "n", -2, 3); }, .received = -2},
        {.name = "path", .send = [&] { emit("ssa{sv}u", "", 1, "k", "o", "/o", 3); }, .received = "/o"},
        {.name = "texts", .send = [&] { emit("ssa{sv}u", "", 1, "k", "as", 1, "p", 3); }, .received = Array{"p"}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const Ear ear("observed");
        distributed_center::flush();
        row.send();
        ASSERT_TRUE(ear.hears(1));
        EXPECT_EQ(ear.heard[0].userInfo, (Dictionary{{"k", row.received}}));
    }
}

TEST_F(NotificationCenters, DropWhatIsMalformedWithALineEach) {
    struct Row {
        std::string name;
        std::function<void()> send;
    };

    const Dictionary large{{"key", std::string(std::size_t{1} << 20U, 'x')}};
    const Row rows[] = {
        {.name = "name only", .send = [&] { emit("s"); }},
        {.name = "descriptor", .send = [&] { emit("ssa{sv}u", "", 1, "key", "h", 0, 3); }},
        {.name = "large", .send = [&] { client->post("observed", {}, large); }},
        {.name = "nested", .send = [&] { client->post("observed", {}, nested(20)); }},
        {.name = "own, large", .send = [&] { distributed_center::post("observed", {}, large); }},
        // For this one the bus would disconnect us.
        {.name = "own, nested", .send = [&] { distributed_center::post("observed", {}, nested(30)); }},
        {.name = "own, no name", .send = [&] { distributed_center::post(""); }},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const Ear ear("observed");
        distributed_center::flush();
        testing::internal::CaptureStderr();
        row.send();
        client->post("observed", "next");
        EXPECT_TRUE(ear.hears(1));
        EXPECT_THAT(ear.objects, ElementsAre("next"));
        const std::string lines = testing::internal::GetCapturedStderr();
        EXPECT_EQ(std::ranges::count(lines, '\n'), 1) << lines;
    }
}

TEST_F(NotificationCenters, DelaySleepUntilThePostsAreOnTheBus) {
    std::optional<trial::SleepService> manager;
    const auto sleep = workspace_center::addObserver(workspace_center::willSleepNotification, [](const auto&) {
        for (int i = 0; i < 500; ++i) {
            distributed_center::post("asleep");
        }
    });
    // Another program's, straight to this process.
    const auto forge = [&](sd_bus& connection) {
        sd_bus_message* signal = nullptr;
        sd_bus_message_new_signal(&connection, &signal, "/org/freedesktop/login1", "org.freedesktop.login1.Manager",
                                  "PrepareForSleep");
        sd_bus_message_append(signal, "b", 1);
        sd_bus_send_to(&connection, signal, client->heard()[0].sender.c_str(), nullptr);
        sd_bus_message_unref(signal);
    };
    for (const bool isNewBus : {false, true, false}) {
        manager.reset();
        client.reset();
        if (isNewBus) {
            bus.stop();
            bus.start();
        }
        client.emplace(bus.address());
        manager.emplace(bus.address()); // another owner of the name
        distributed_center::post("here");
        ASSERT_TRUE(client->waitForCount("here", 1));
        ASSERT_TRUE(manager->waitForLocks(1));
        client->perform(forge);
        client->sync();
        manager->prepareForSleep(true);
        ASSERT_TRUE(support::serveUntil(RunLoop::main(), [&] { return manager->locks() == 0; }));
        client->post("marker"); // comes behind what was on the bus when the lock was let go
        ASSERT_TRUE(client->waitForCount("marker", 1));
        EXPECT_EQ(client->countOf("asleep"), 500U);
    }
}

} // namespace
