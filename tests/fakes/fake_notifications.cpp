#include "fakes/fake_notifications.h"

#include "foundation/observer_list.h"

using namespace platform;

static ObserverList systemWide;
static ObserverList local;

void fakes::notifications::deliver(const Notification& notification) { systemWide.deliver(notification); }

ObservationPtr distributed_center::addObserver(const std::string& name, NotificationHandler handler) {
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

void distributed_center::flush() {}

ObservationPtr workspace_center::addObserver(const std::string& name, NotificationHandler handler) {
    return systemWide.add(name, std::move(handler));
}

ObservationPtr local_center::addObserver(const std::string& name, NotificationHandler handler) {
    return local.add(name, std::move(handler));
}

void local_center::post(const std::string& name, const std::string& object, const std::optional<Dictionary>& userInfo) {
    local.deliver({name, object, userInfo});
}
