#include "platform/notifications.h"

#include "platform/own_bus.h"
#include "support/serve.h"
#include "trial/support/bus_client.h"
#include "trial/support/sleep_service.h"

#include <algorithm>
#include <deque>
#include <functional>
#include <gmock/gmock.h>
#include <optional>
#include <systemd/sd-bus.h>
#include <thread>

using namespace std::chrono_literals;
using namespace platform;
using testing::ElementsAre;
using trial::BusClient;

namespace {

/// How many messages may wait.
constexpr std::size_t bound = 16384;

/// Observes one name and keeps what arrives.
struct Ear {
    std::vector<Notification> heard;
    ObservationPtr observation;

    explicit Ear(const std::string& name)
        : observation(distributed_center::addObserver(name, [this](const Notification& n) { heard.push_back(n); })) {}

    bool hears(std::size_t count) const {
        return support::serveUntil(RunLoop::main(), [&] { return heard.size() >= count; });
    }
};

std::vector<std::string> objectsOf(const Ear& ear) {
    std::vector<std::string> objects;
    for (const Notification& notification : ear.heard) {
        objects.push_back(notification.object);
    }
    return objects;
}

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
    for (const std::size_t posts : {std::size_t{10}, std::size_t{100}, bound + 1000}) {
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
        EXPECT_EQ(objectsOf(ear), numbers(kept + 1));
    }
}

TEST_F(NotificationCenters, LetAnObserverHearOnlyWhatIsPostedAfterItWasAdded) {
    for (const bool isBusAway : {false, true}) {
        SCOPED_TRACE(isBusAway ? "bus away" : "bus there");
        if (isBusAway) {
            bus.stop();
        }
        distributed_center::post("ordered", "1");
        const Ear early("ordered");
        distributed_center::post("ordered", "2");
        const Ear late("ordered");
        distributed_center::post("ordered", "3");
        if (isBusAway) {
            bus.start();
        }
        const Ear last("last");
        distributed_center::post("last");
        ASSERT_TRUE(last.hears(1));
        EXPECT_EQ(objectsOf(early), (std::vector<std::string>{"2", "3"}));
        EXPECT_EQ(objectsOf(late), (std::vector<std::string>{"3"}));
    }
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
    EXPECT_EQ(objectsOf(ear), numbers(bound + 1)) << "the newest are dropped";
}

TEST_F(NotificationCenters, DeliverThePostsOfManyThreadsOnceInOrderToAllAndBack) {
    constexpr std::size_t posts = 500;
    const std::vector<std::string> names{"a", "b", "c", "d", "e", "f", "g", "h"};
    const std::deque<Ear> ears(names.begin(), names.end());
    std::vector<std::jthread> posters;
    for (const std::string& name : names) {
        posters.emplace_back([name] {
            for (const std::string& number : numbers(posts)) {
                distributed_center::post(name, number);
            }
        });
    }
    for (const Ear& ear : ears) {
        EXPECT_TRUE(ear.hears(posts));
        EXPECT_EQ(objectsOf(ear), numbers(posts));
    }
    EXPECT_TRUE(client->waitFor([&](const auto& heard) { return heard.size() == names.size() * posts; }));
}

TEST_F(NotificationCenters, CarryEveryKindOfValue) {
    struct Row {
        std::string name;
        Value sent;
        Value received;
    };

    const Row rows[] = {
        {.name = "boolean", .sent = true, .received = true},
        {.name = "integer", .sent = -5, .received = -5},
        {.name = "unsigned", .sent = std::uint64_t{1} << 63, .received = std::uint64_t{1} << 63},
        {.name = "real", .sent = 2.5, .received = 2.5},
        {.name = "date", .sent = Date{7.5}, .received = 7.5},
        {.name = "data", .sent = Data{std::string("\0\xff", 2)}, .received = Data{std::string("\0\xff", 2)}},
        {.name = "text", .sent = "é\"'\\", .received = "é\"'\\"},
        {.name = "invalid UTF-8", .sent = "bad\xff", .received = "bad\uFFFD"},
        {.name = "zero character", .sent = std::string("n\0l", 3), .received = "n\uFFFDl"},
        {.name = "noncharacter", .sent = "a\uFFFF", .received = "a???"},
        {.name = "array", .sent = Array{1, nullptr, "x", Array{}}, .received = Array{1, "x", Array{}}},
        {.name = "dictionary", .sent = Dictionary{{"null", nullptr}, {"k", 1}}, .received = Dictionary{{"k", 1}}},
        {.name = "nested", .sent = nested(14), .received = nested(14)},
    };
    Ear ear("observed");
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        distributed_center::post("observed", "ob\xffject", Dictionary{{"value", row.sent}});
        ASSERT_TRUE(ear.hears(1));
        EXPECT_EQ(ear.heard[0].object, "ob\uFFFDject");
        EXPECT_EQ(ear.heard[0].userInfo, (Dictionary{{"value", row.received}}));
        ear.heard.clear();
    }
    distributed_center::post("observed", "", Dictionary{{"null", nullptr}});
    ASSERT_TRUE(ear.hears(1));
    EXPECT_EQ(ear.heard[0].userInfo, std::nullopt);
}

TEST_F(NotificationCenters, ReadEveryTypeThatABusHas) {
    struct Row {
        std::string type;
        std::function<void()> send;
        Value received;
    };

    // The object, one member of the user information, the options.
    const Row rows[] = {
        {.type = "y", .send = [&] { emit("ssa{sv}u", "", 1, "k", "y", 200, 3); }, .received = 200},
        {.type = "n", .send = [&] { emit("ssa{sv}u", "", 1, "k", "n", -2, 3); }, .received = -2},
        {.type = "q", .send = [&] { emit("ssa{sv}u", "", 1, "k", "q", 65535, 3); }, .received = 65535},
        {.type = "i", .send = [&] { emit("ssa{sv}u", "", 1, "k", "i", -7, 3); }, .received = -7},
        {.type = "u", .send = [&] { emit("ssa{sv}u", "", 1, "k", "u", 4000000000U, 3); }, .received = 4000000000},
        {.type = "o", .send = [&] { emit("ssa{sv}u", "", 1, "k", "o", "/o", 3); }, .received = "/o"},
        {.type = "g", .send = [&] { emit("ssa{sv}u", "", 1, "k", "g", "a{sv}", 3); }, .received = "a{sv}"},
        {.type = "as", .send = [&] { emit("ssa{sv}u", "", 1, "k", "as", 1, "p", 3); }, .received = Array{"p"}},
        {.type = "v", .send = [&] { emit("ssa{sv}u", "", 1, "k", "v", "b", 1, 3); }, .received = true},
        {.type = "a{si}",
         .send = [&] { emit("ssa{sv}u", "", 1, "k", "a{si}", 1, "m", 5, 3); },
         .received = Dictionary{{"m", 5}}},
    };
    Ear ear("observed");
    distributed_center::flush();
    for (const Row& row : rows) {
        SCOPED_TRACE(row.type);
        row.send();
        ASSERT_TRUE(ear.hears(1));
        EXPECT_EQ(ear.heard[0].userInfo, (Dictionary{{"k", row.received}}));
        ear.heard.clear();
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
        {.name = "one value more", .send = [&] { emit("ssa{sv}us", "", 0, 3, "more"); }},
        {.name = "descriptor", .send = [&] { emit("ssa{sv}u", "", 1, "key", "h", 0, 3); }},
        {.name = "numbers as keys", .send = [&] { emit("ssa{sv}u", "", 1, "key", "a{is}", 1, 2, "x", 3); }},
        {.name = "large", .send = [&] { client->post("observed", {}, large); }},
        {.name = "nested", .send = [&] { client->post("observed", {}, nested(20)); }},
        {.name = "own, large", .send = [&] { distributed_center::post("observed", {}, large); }},
        // For this one the bus would disconnect us.
        {.name = "own, nested", .send = [&] { distributed_center::post("observed", {}, nested(30)); }},
        {.name = "own, no name", .send = [&] { distributed_center::post(""); }},
        {.name = "own, long name", .send = [&] { distributed_center::post(std::string(256, 'n')); }},
    };
    Ear ear("observed");
    distributed_center::flush();
    std::string lines;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        testing::internal::CaptureStderr();
        row.send();
        client->post("observed", "next");
        EXPECT_TRUE(ear.hears(1));
        EXPECT_THAT(objectsOf(ear), ElementsAre("next"));
        ear.heard.clear();
        lines = testing::internal::GetCapturedStderr();
        EXPECT_EQ(std::ranges::count(lines, '\n'), 1) << lines;
    }
    testing::internal::CaptureStderr();
    distributed_center::post("");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "") << "more lines than these are not written at once";
}

TEST_F(NotificationCenters, DelaySleepUntilThePostsAreOnTheBus) {
    std::optional<trial::SleepService> manager;
    std::size_t locksAtSleep = 0;
    auto sleep = workspace_center::addObserver(workspace_center::willSleepNotification, [&](const auto&) {
        locksAtSleep += manager->locks();
        for (int i = 0; i < 500; ++i) {
            distributed_center::post("asleep");
        }
    });
    const auto wake = workspace_center::addObserver(workspace_center::didWakeNotification,
                                                    [](const auto&) { distributed_center::post("woken"); });
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
        EXPECT_EQ(std::exchange(locksAtSleep, 0), 1U) << "it is held while the handlers run";
        manager->prepareForSleep(false);
        ASSERT_TRUE(support::serveUntil(RunLoop::main(), [&] { return client->countOf("woken") == 1; }));
    }
    ASSERT_TRUE(manager->waitForLocks(1)) << "again after the wake";
    sleep.reset();
    EXPECT_TRUE(manager->waitForLocks(0));
}

} // namespace
