// Notifications, and what keeps an observation alive.
#pragma once

#include "foundation/value.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace platform {

struct Notification {
    std::string name;
    /// Empty for none.
    std::string object;
    std::optional<Dictionary> userInfo;
};

using NotificationHandler = std::function<void(const Notification&)>;

/// Ends an observation when destroyed. A handler that is running then finishes; it is not called again.
class Observation {
  public:
    explicit Observation(std::function<void()> end) : end_(std::move(end)) {}

    ~Observation() { end_(); }

    Observation(const Observation&) = delete;
    Observation& operator=(const Observation&) = delete;

  private:
    std::function<void()> end_;
};

using ObservationPtr = std::unique_ptr<Observation>;

} // namespace platform
