#include "foundation/observer_list.h"

#include "foundation/diagnostics.h"

#include <atomic>
#include <utility>

namespace platform {

struct ObserverList::Observer {
    NotificationHandler handler;
    std::shared_ptr<void> kept;
    std::atomic<bool> ended{false};
};

ObservationPtr ObserverList::add(const std::string& name, NotificationHandler handler, std::shared_ptr<void> kept) {
    auto observer = std::make_shared<Observer>();
    observer->handler = std::move(handler);
    observer->kept = std::move(kept);
    {
        const std::lock_guard lock(mutex_);
        observers_[name].push_back(observer);
    }
    auto observation = std::make_unique<Observation>([this, name, observer] { remove(name, observer); });
    if (changed_) {
        changed_(name);
    }
    return observation;
}

void ObserverList::remove(const std::string& name, const ObserverPtr& observer) {
    observer->ended = true;
    {
        const std::lock_guard lock(mutex_);
        const auto entry = observers_.find(name);
        std::erase(entry->second, observer);
        if (entry->second.empty()) {
            observers_.erase(entry);
        }
    }
    if (changed_) {
        changed_(name);
    }
}

void ObserverList::deliver(const Notification& notification) const {
    std::vector<ObserverPtr> called;
    {
        const std::lock_guard lock(mutex_);
        if (const auto entry = observers_.find(notification.name); entry != observers_.end()) {
            called = entry->second;
        }
    }
    for (const ObserverPtr& observer : called) {
        if (!observer->ended) {
            diagnostics::contain(notification.name, [&] { observer->handler(notification); });
        }
    }
}

bool ObserverList::observes(const std::string& name) const {
    const std::lock_guard lock(mutex_);
    return observers_.contains(name);
}

std::vector<std::string> ObserverList::names() const {
    const std::lock_guard lock(mutex_);
    std::vector<std::string> names;
    for (const auto& [name, observers] : observers_) {
        names.push_back(name);
    }
    return names;
}

} // namespace platform
