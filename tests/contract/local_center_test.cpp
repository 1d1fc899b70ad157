#include "platform/notifications.h"

#include <gtest/gtest.h>

namespace {

using namespace platform;

TEST(LocalCenterContract, CallsObserversBeforePostReturns) {
    std::string calls;
    const auto observe = [&](const std::string& name, const std::string& answer) {
        return local_center::addObserver(name, [&calls, answer](const Notification& notification) {
            calls += notification.name + notification.object + (notification.userInfo ? "+ " : " ");
            if (!answer.empty()) {
                local_center::post(answer, "nested", Dictionary{{"key", "value"}});
            }
        });
    };
    const auto first = observe("a", "b"), other = observe("b", "");
    auto second = observe("a", "");
    local_center::post("a");
    second.reset();
    local_center::post("unobserved");
    local_center::post("a", "x");
    EXPECT_EQ(calls, "a bnested+ a ax bnested+ ");
}

} // namespace
