#include "contract/notification_driver.h"
#include "foundation/error.h"

#include <gmock/gmock.h>

namespace {

using namespace platform;
using contract::notifications::Outside;
using testing::ElementsAre;

struct Center {
    std::string name;
    ObservationPtr (*addObserver)(const std::string& name, NotificationHandler handler);
    void (*deliver)(Outside& outside, const Notification& notification);
    /// Two names that can be observed.
    std::string observed, other;
};

void PrintTo(const Center& center, std::ostream* out) { *out << center.name; }

class NotificationContract : public testing::TestWithParam<Center> {
  protected:
    /// Notes `call` at each delivery, then does `more`.
    [[nodiscard]] ObservationPtr observe(
        const std::string& name, const std::string& call, std::function<void()> more = [] {}) {
        return GetParam().addObserver(name, [this, call, more = std::move(more)](const Notification&) {
            calls.push_back(call);
            more();
        });
    }

    void deliver(const std::string& name) { GetParam().deliver(outside, {name, "", std::nullopt}); }

    Outside outside;
    const std::string observed = GetParam().observed;
    const std::string other = GetParam().other;
    std::vector<std::string> calls;
};

TEST_P(NotificationContract, CallsTheObserversOfTheNameInTheOrderAdded) {
    const auto first = observe(observed, "first");
    const auto foreign = observe(other, "other");
    const auto second = observe(observed, "second");
    deliver(observed);
    EXPECT_THAT(calls, ElementsAre("first", "second"));
    deliver(other);
    EXPECT_THAT(calls, ElementsAre("first", "second", "other"));
}

TEST_P(NotificationContract, DoesNotCallAnEndedObserver) {
    auto ended = observe(observed, "ended before");
    ended.reset();
    ObservationPtr endedByFirst;
    const auto first = observe(observed, "first", [&] { endedByFirst.reset(); });
    endedByFirst = observe(observed, "ended by the first");
    ObservationPtr once;
    once = observe(observed, "once", [&] { once.reset(); });
    deliver(observed);
    deliver(observed);
    EXPECT_THAT(calls, ElementsAre("first", "once", "first"));
}

TEST_P(NotificationContract, CallsAnObserverAddedByAHandlerFromTheNextNotificationOn) {
    ObservationPtr added;
    const auto first = observe(observed, "first", [&] {
        if (!added) {
            added = observe(observed, "added");
        }
    });
    deliver(observed);
    EXPECT_THAT(calls, ElementsAre("first"));
    deliver(observed);
    EXPECT_THAT(calls, ElementsAre("first", "first", "added"));
}

TEST_P(NotificationContract, EndsOnlyTheHandlerThatThrows) {
    const auto thrower = observe(observed, "thrower", [] { throw Exception("from a handler"); });
    const auto next = observe(observed, "next");
    deliver(observed);
    deliver(observed);
    EXPECT_THAT(calls, ElementsAre("thrower", "next", "thrower", "next"));
}

void post(Outside& outside, const Notification& notification) { outside.post(notification); }

void changeSleep(Outside& outside, const Notification& notification) { outside.changeSleep(notification); }

void postLocally(Outside& /*outside*/, const Notification& notification) {
    local_center::post(notification.name, notification.object, notification.userInfo);
}

const Center distributed{.name = "Distributed",
                         .addObserver = distributed_center::addObserver,
                         .deliver = post,
                         .observed = "observed",
                         .other = "other"};
const Center local{.name = "Local",
                   .addObserver = local_center::addObserver,
                   .deliver = postLocally,
                   .observed = "observed",
                   .other = "other"};
const Center workspace{.name = "Workspace",
                       .addObserver = workspace_center::addObserver,
                       .deliver = changeSleep,
                       .observed = workspace_center::willSleepNotification,
                       .other = workspace_center::didWakeNotification};

std::string nameOf(const testing::TestParamInfo<Center>& center) { return center.param.name; }

INSTANTIATE_TEST_SUITE_P(Centers, NotificationContract, testing::Values(distributed, local, workspace), nameOf);

/// The centers whose messages carry something.
class MessageContract : public NotificationContract {};

TEST_P(MessageContract, CarriesObjectAndUserInformation) {
    std::vector<Notification> heard;
    const auto observation = GetParam().addObserver("observed", [&](const Notification& n) { heard.push_back(n); });
    const Dictionary userInfo{{"key", "value"}, {"count", 3}};
    GetParam().deliver(outside, {"observed", "object", userInfo});
    GetParam().deliver(outside, {"observed", "", std::nullopt});
    ASSERT_EQ(heard.size(), 2U);
    EXPECT_EQ(heard[0].name, "observed");
    EXPECT_EQ(heard[0].object, "object");
    EXPECT_EQ(heard[0].userInfo, userInfo);
    EXPECT_EQ(heard[1].object, "");
    EXPECT_EQ(heard[1].userInfo, std::nullopt);
}

INSTANTIATE_TEST_SUITE_P(Centers, MessageContract, testing::Values(distributed, local), nameOf);

TEST(LocalCenterContract, DeliversBeforePostReturns) {
    std::string calls;
    const auto outer = local_center::addObserver("outer", [&](const Notification&) {
        calls += "outer ";
        local_center::post("inner");
        calls += "end ";
    });
    const auto inner = local_center::addObserver("inner", [&](const Notification&) { calls += "inner "; });
    local_center::post("outer");
    EXPECT_EQ(calls, "outer inner end ");
}

TEST(DistributedCenterContract, RefusesNamesThatCannotBeObserved) {
    const Outside outside;
    for (const std::string& name : {std::string(), std::string(256, 'n'), std::string("it's"), std::string("line\n"),
                                    std::string("back\\slash"), std::string("\xC3\xA9")}) {
        EXPECT_THROW(static_cast<void>(distributed_center::addObserver(name, {})), Exception) << name;
    }
}

} // namespace
