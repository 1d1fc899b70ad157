#include "platform/notifications.h"

#include "foundation/error.h"
#include "support/serve.h"
#include "trial/support/bus_client.h"
#include "trial/support/private_bus.h"
#include "trial/support/sleep_service.h"
#include "trial/support/temporary_folder.h"

#include <algorithm>
#include <deque>
#include <gmock/gmock.h>
#include <optional>
#include <systemd/sd-bus.h>
#include <thread>

using namespace std::chrono_literals;
using namespace platform;
using testing::Each;
using testing::Field;
using trial::BusClient;

namespace {

constexpr std::size_t bound = 16384;

/// Observes one name and keeps what came.
struct Ear {
    std::vector<Notification> heard;
    ObservationPtr observation;

    explicit Ear(const std::string& name)
        : observation(distributed_center::addObserver(name, [this](const Notification& n) { heard.push_back(n); })) {
    }

    bool hears(std::size_t count) const {
        return support::serveUntil(RunLoop::main(), [&] { return heard.size() >= count; });
    }

    /// Whether these are all, with their numbers as objects and in order.
    bool hearsAll(std::size_t count) const {
        std::size_t next = 0;
        const auto isNext = [&](const Notification& one) { return one.object == std::to_string(next++); };
        return hears(count) && heard.size() == count && std::ranges::all_of(heard, isNext);
    }
};

std::vector<std::string> objectsOf(const std::vector<Notification>& notifications) {
    std::vector<std::string> objects;
    for (const Notification& notification : notifications) {
        objects.push_back(notification.object);
    }
    return objects;
}

Dictionary nested(std::size_t levels) { return {{"inner", levels == 1 ? Value(1) : Value(nested(levels - 1))}}; }

class NotificationCenters : public testing::Test {
  protected:
    static void SetUpTestSuite() {
        ::setenv("DBUS_SYSTEM_BUS_ADDRESS", bus.address().c_str(), 1);
        bus.start();
    }

    static void TearDownTestSuite() { bus.stop(); }

    /// What another program may send under the name "observed", of any types.
    template <typename... More>
    void emit(const char* types, More... more) {
        client->perform([&](sd_bus& connection) {
            sd_bus_emit_signal(&connection, "/com/Dravex/DistributedNotifications",
                               "com.Dravex.DistributedNotifications", "Posted", types, "observed", more...);
        });
        client->sync();
    }

    static inline const trial::TemporaryFolder folder;
    /// The one that this process's connection goes to.
    static inline trial::PrivateBus bus{folder.path()};
    std::optional<BusClient> client{bus.address()};
};

TEST_F(NotificationCenters, KeepPostsInOrderWhileTheBusIsAway) {
    bus.stop(); // the first time before this process has a connection
    for (const std::size_t posts : {std::size_t{10}, std::size_t{100}, bound + 1000}) {
        SCOPED_TRACE(posts);
        Ear ear("kept");
        bus.stop();
        for (std::size_t i = 0; i < posts; ++i) {
            distributed_center::post("kept", std::to_string(i));
        }
        bus.start();
        const std::size_t kept = std::min(posts, bound);
        ASSERT_TRUE(ear.hears(kept));
        BusClient(bus.address()).post("kept", std::to_string(kept));
        EXPECT_TRUE(ear.hearsAll(kept + 1)) << "observers are subscribed again, the newest beyond the bound dropped";
    }
}

TEST_F(NotificationCenters, LetAnObserverHearWhatIsPostedAfterItWasAddedOnly) {
    for (const bool isBusAway : {false, true}) {
        SCOPED_TRACE(isBusAway);
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
        Ear last("last");
        distributed_center::post("last");
        ASSERT_TRUE(last.hears(1));
        EXPECT_EQ(objectsOf(early.heard), (std::vector<std::string>{"2", "3"}));
        EXPECT_EQ(objectsOf(late.heard), (std::vector<std::string>{"3"}));
    }
}

TEST_F(NotificationCenters, BoundWhatAFloodLeavesBehindABusyMainLoop) {
    Ear ear("flood");
    distributed_center::flush(); // from here on the bus knows of it
    for (std::size_t i = 0; i < bound + 2000; ++i) { // nobody serves the main loop meanwhile
        client->post("flood", std::to_string(i));
    }
    client->sync();
    for (int i = 0; i < 10; ++i) {
        distributed_center::flush(); // its answer comes behind the flood
    }
    ASSERT_TRUE(ear.hears(bound));
    client->post("flood", std::to_string(bound));
    EXPECT_TRUE(ear.hearsAll(bound + 1)) << "the newest are dropped, later ones come through";
}

TEST_F(NotificationCenters, DeliverPostsOfManyThreadsOnceInOrderToAllAndBack) {
    std::deque<Ear> ears;
    std::vector<std::jthread> posters;
    for (const std::string name : {"a", "b", "c", "d", "e", "f", "g", "h"}) {
        ears.emplace_back(name);
        posters.emplace_back([name] {
            for (int i = 0; i < 500; ++i) {
                distributed_center::post(name, std::to_string(i));
            }
        });
    }
    for (const Ear& ear : ears) {
        EXPECT_TRUE(ear.hearsAll(500));
    }
    EXPECT_TRUE(client->waitFor([](const auto& everyone) { return everyone.size() == 8 * 500; }));
    EXPECT_THAT(client->heard(), Each(Field(&trial::Posted::options, 3U)));
}

TEST_F(NotificationCenters, CarryEveryKindOfValue) {
    // clang-format off
    Dictionary sent{{"flag", true}, {"integer", -5}, {"unsigned", std::uint64_t{1} << 63}, {"real", 2.5},
                    {"data", Data{std::string("\0\xff", 2)}}, {"text", "é\"'\\"}, {"nested", nested(14)}};
    Dictionary received = sent;
    sent.merge(Dictionary{{"null", nullptr}, {"array", Array{1, nullptr, "x", Array{}}}, {"date", Date{7.5}},
                          {"invalid", "bad\xff"}, {"zero", std::string("n\0l", 3)}, {"noncharacter", "a\uFFFF"}});
    received.merge(Dictionary{{"array", Array{1, "x", Array{}}}, {"date", 7.5},
                              {"invalid", "bad\uFFFD"}, {"zero", "n\uFFFDl"}, {"noncharacter", "a???"}});
    const Dictionary foreign{{"y", 200}, {"n", -2}, {"q", 65535}, {"i", -7}, {"u", 4000000000}, {"o", "/o"},
                             {"as", Array{"p", "q"}}, {"vv", true}, {"asi", Dictionary{{"k", 5}}}};
    // clang-format on
    Ear ear("observed");
    distributed_center::post("observed", "ob\xffject", sent, postToAllSessions);
    ASSERT_TRUE(ear.hears(1));
    EXPECT_EQ(ear.heard[0].object, "ob\uFFFDject");
    EXPECT_EQ(ear.heard[0].userInfo, received);
    ASSERT_TRUE(client->waitForCount("observed", 1));
    EXPECT_EQ(client->heard()[0].options, 2U);
    emit("ssa{sv}u", "", 9, "y", "y", 200, "n", "n", -2, "q", "q", 65535, "i", "i", -7, "u", "u", 4000000000U, "o", "o",
         "/o", "as", "as", 2, "p", "q", "vv", "v", "v", "b", 1, "asi", "a{si}", 1, "k", 5, 1);
    ASSERT_TRUE(ear.hears(2));
    EXPECT_EQ(ear.heard[1].userInfo, foreign);
}

TEST_F(NotificationCenters, DropWhatIsMalformedWithALineEach) {
    const Dictionary large{{"key", std::string(std::size_t{1} << 20U, 'x')}};
    const std::function<void()> malformed[] = {
        [&] { emit("s"); },
        [&] { emit("ssa{sv}us", "", 0, 3, "more"); },
        [&] { emit("ssa{sv}u", "", 1, "key", "h", 0, 3); },
        [&] { emit("ssa{sv}u", "", 1, "key", "a{is}", 1, 2, "x", 3); },
        [&] { client->post("observed", {}, large); },
        [&] { client->post("observed", {}, nested(20)); },
        [&] { distributed_center::post("observed", {}, large); },
        [&] { distributed_center::post("observed", {}, nested(30)); }, // for this the bus would shut us out
        [&] { distributed_center::post(""); },
        [&] { distributed_center::post(std::string(256, 'n')); },
    };
    Ear ear("observed");
    distributed_center::flush();
    testing::internal::CaptureStderr();
    for (const auto& send : malformed) {
        send();
        client->post("observed", "good");
        distributed_center::post("observed", "good");
    }
    EXPECT_TRUE(ear.hears(2 * std::size(malformed)));
    EXPECT_THAT(ear.heard, Each(Field(&Notification::object, "good")));
    const std::string lines = testing::internal::GetCapturedStderr();
    EXPECT_EQ(std::ranges::count(lines, '\n'), std::ssize(malformed)) << lines;
    testing::internal::CaptureStderr();
    distributed_center::post("");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "") << "a flood of lines is cut short";
}

TEST_F(NotificationCenters, EndObservationsAtOnceAndContainHandlers) {
    std::string calls;
    ObservationPtr second, third;
    const auto first = distributed_center::addObserver("observed", [&](const auto&) {
        calls += '1';
        second.reset();
        throw Exception("ends this handler only");
    });
    second = distributed_center::addObserver("observed", [&](const auto&) { calls += '2'; });
    third = distributed_center::addObserver("observed", [&](const auto&) {
        calls += '3';
        third.reset();
    });
    Ear ear("last");
    distributed_center::flush();
    client->post("observed");
    client->post("observed");
    client->post("last");
    EXPECT_TRUE(ear.hears(1));
    EXPECT_EQ(calls, "131");
    for (const std::string name : {"", "it's", "line\n", "back\\slash"}) {
        EXPECT_THROW(static_cast<void>(distributed_center::addObserver(name, {})), Exception) << name;
    }
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
