// Who observes what in one notification centre.
#pragma once

#include "foundation/notification.h"

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace platform {

/// Thread-safe. Must outlive its observations.
class ObserverList {
  public:
    /// Called after an observation of that name has begun or ended, on the thread that did it.
    using Changed = std::function<void(const std::string& name)>;

    explicit ObserverList(Changed changed = {}) : changed_(std::move(changed)) {}

    /// `kept` is released when the observation ends.
    [[nodiscard]] ObservationPtr add(const std::string& name, NotificationHandler handler,
                                     std::shared_ptr<void> kept = nullptr);

    /// Calls the notification's observers on this thread, in the order in which they were added, but none whose
    /// observation has ended meanwhile. What a handler throws is reported and ends that handler only.
    void deliver(const Notification& notification) const;

    bool observes(const std::string& name) const;
    std::vector<std::string> names() const;

  private:
    struct Observer;
    using ObserverPtr = std::shared_ptr<Observer>;

    void remove(const std::string& name, const ObserverPtr& observer);

    const Changed changed_;
    mutable std::mutex mutex_;
    std::map<std::string, std::vector<ObserverPtr>, std::less<>> observers_;
};

} // namespace platform
