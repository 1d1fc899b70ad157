// How the notification cases are driven. The unit tests define these for the stand-in, the platform tests for the real
// service.
#pragma once

#include "platform/notifications.h"

#include <memory>

namespace contract::notifications {

/// What is outside of this process: other processes on the bus, and the system.
class Outside {
  public:
    Outside();
    ~Outside();
    Outside(const Outside&) = delete;
    Outside& operator=(const Outside&) = delete;

    /// Another process posts; returns when the observers in this one have been called.
    void post(const platform::Notification& notification);

    /// The machine goes to sleep or wakes, by the notification's name; returns when the observers have been called.
    void changeSleep(const platform::Notification& notification);

  private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace contract::notifications
