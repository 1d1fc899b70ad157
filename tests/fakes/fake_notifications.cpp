#include "fakes/fake_notifications.h"

#include "foundation/error.h"

#include <algorithm>

using namespace platform;

namespace {

struct Observer {
    std::string name;
    NotificationHandler handler;
};

/// Observers in the order in which they were added. The observations own them.
class Center {
  public:
    ObservationPtr add(const std::string& name, NotificationHandler handler) {
        auto observer = std::make_shared<Observer>(Observer{name, std::move(handler)});
        const std::lock_guard lock(mutex_);
        observers_.push_back(observer);
        return std::make_unique<Observation>([observer]() mutable { observer.reset(); });
    }

    void deliver(const Notification& notification) {
        for (const auto& entry : copy()) {
            const auto observer = entry.lock();
            if (!observer || observer->name != notification.name) {
                continue;
            }
            try {
                observer->handler(notification);
            } catch (const std::exception&) { // NOLINT(bugprone-empty-catch): ends this handler only
            }
        }
    }

  private:
    std::vector<std::weak_ptr<Observer>> copy() {
        const std::lock_guard lock(mutex_);
        std::erase_if(observers_, [](const auto& observer) { return observer.expired(); });
        return observers_;
    }

    std::mutex mutex_;
    std::vector<std::weak_ptr<Observer>> observers_;
};

Center systemWide;
Center local;

} // namespace

void fakes::notifications::deliver(const Notification& notification) { systemWide.deliver(notification); }

ObservationPtr distributed_center::addObserver(const std::string& name, NotificationHandler handler) {
    const auto isAllowed = [](char c) { return c >= ' ' && c <= '~' && c != '\'' && c != '\\'; };
    if (name.empty() || name.size() > 255 || !std::ranges::all_of(name, isAllowed)) {
        throw Exception("unobservable name");
    }
    return systemWide.add(name, std::move(handler));
}

void distributed_center::post(const std::string& name, const std::string& object,
                              const std::optional<Dictionary>& userInfo, std::uint32_t options) {
    const fakes::notifications::Post post{name, object, userInfo, options};
    fakes::notifications::posts.add(post);
    if (const auto hook = fakes::notifications::onPost()) {
        hook(post);
    }
}

void distributed_center::flush(std::chrono::milliseconds /*timeout*/) {}

// NOLINTNEXTLINE(performance-unnecessary-value-param): nobody is told of a bus that is always there
void distributed_center::watchConnection(std::function<void(bool isReachable)> /*watcher*/) {}

ObservationPtr workspace_center::addObserver(const std::string& name, NotificationHandler handler) {
    return systemWide.add(name, std::move(handler));
}

ObservationPtr local_center::addObserver(const std::string& name, NotificationHandler handler) {
    return local.add(name, std::move(handler));
}

void local_center::post(const std::string& name, const std::string& object, const std::optional<Dictionary>& userInfo) {
    local.deliver({name, object, userInfo});
}
