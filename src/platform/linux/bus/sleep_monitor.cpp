#include "platform/linux/bus/sleep_monitor.h"

#include "foundation/diagnostics.h"
#include "foundation/format.h"
#include "platform/notifications.h"

#include <fcntl.h>
#include <string_view>

namespace platform {

namespace {

constexpr const char* managerName = "org.freedesktop.login1";
constexpr const char* managerPath = "/org/freedesktop/login1";
constexpr const char* managerInterface = "org.freedesktop.login1.Manager";
constexpr const char* busName = "org.freedesktop.DBus";
constexpr const char* busPath = "/org/freedesktop/DBus";

/// Match rules don't tell: anybody may address a signal to this connection directly.
bool isFrom(sd_bus_message* signal, std::string_view sender) {
    const char* actual = sd_bus_message_get_sender(signal);
    return actual != nullptr && actual == sender;
}

sd_bus& busOf(sd_bus_message* message) { return *sd_bus_message_get_bus(message); }

} // namespace

SleepMonitor& SleepMonitor::shared() {
    static SleepMonitor& monitor = *new SleepMonitor;
    return monitor;
}

SleepMonitor::SleepMonitor()
    : observers_([this](const std::string&) { BusConnection::shared().send([this](sd_bus& bus) { watch(bus); }); }) {
    BusConnection::shared().addListener(*this);
}

ObservationPtr SleepMonitor::addObserver(const std::string& name, NotificationHandler handler) {
    return observers_.add(name, std::move(handler), std::make_shared<RunLoop::Source>(RunLoop::main()));
}

void SleepMonitor::connected(sd_bus& bus) { watch(bus); }

void SleepMonitor::disconnected() {
    manager_.clear();
    managerChanged_.reset();
    managerCall_.reset();
    prepareForSleep_.reset();
    lockCall_.reset();
    lock_.reset();
}

/// Subscribes to what the present observers need, as far as that hasn't been done.
void SleepMonitor::watch(sd_bus& bus) {
    if (observers_.names().empty()) {
        disconnected();
        return;
    }
    if (managerChanged_) {
        updateLock(bus);
        return;
    }
    const auto rule = [](auto... words) {
        return text::format("type='signal',sender='%@',path='%@',interface='%@',member='%@'", words...);
    };
    managerChanged_ = addMatch(bus, rule(busName, busPath, busName, "NameOwnerChanged") + ",arg0='" + managerName + "'",
                               onManagerChanged, this);
    prepareForSleep_ =
        addMatch(bus, rule(managerName, managerPath, managerInterface, "PrepareForSleep"), onPrepareForSleep, this);
    sd_bus_slot* slot = nullptr;
    check(sd_bus_call_method_async(&bus, &slot, busName, busPath, busName, "GetNameOwner", onManagerReply, this, "s",
                                   managerName),
          "sd_bus_call_method_async");
    managerCall_.reset(slot);
}

int SleepMonitor::onManagerReply(sd_bus_message* reply, void* self, sd_bus_error* /*error*/) {
    const char* owner = nullptr;
    // An error reply means that nobody owns the name.
    if (sd_bus_message_is_method_error(reply, nullptr) == 0 && sd_bus_message_read(reply, "s", &owner) > 0) {
        diagnostics::contain("sleep", [&] { static_cast<SleepMonitor*>(self)->setManager(busOf(reply), owner); });
    }
    return 0;
}

int SleepMonitor::onManagerChanged(sd_bus_message* signal, void* self, sd_bus_error* /*error*/) {
    const char* name = nullptr;
    const char* before = nullptr;
    const char* owner = nullptr;
    if (isFrom(signal, busName) && sd_bus_message_read(signal, "sss", &name, &before, &owner) > 0) {
        diagnostics::contain("sleep", [&] { static_cast<SleepMonitor*>(self)->setManager(busOf(signal), owner); });
    }
    return 0;
}

void SleepMonitor::setManager(sd_bus& bus, const std::string& uniqueName) {
    manager_ = uniqueName;
    lockCall_.reset();
    lock_.reset();
    updateLock(bus);
}

void SleepMonitor::updateLock(sd_bus& bus) {
    if (!observers_.observes(workspace_center::willSleepNotification)) {
        lockCall_.reset();
        lock_.reset();
    } else if (!manager_.empty() && !lock_ && !lockCall_) {
        sd_bus_slot* slot = nullptr;
        check(sd_bus_call_method_async(&bus, &slot, manager_.c_str(), managerPath, managerInterface, "Inhibit",
                                       onLockReply, this, "ssss", "sleep", "Havrel", "Tells the applications first",
                                       "delay"),
              "sd_bus_call_method_async");
        lockCall_.reset(slot);
    }
}

int SleepMonitor::onLockReply(sd_bus_message* reply, void* self, sd_bus_error* /*error*/) {
    diagnostics::contain("sleep", [&] { static_cast<SleepMonitor*>(self)->takeLock(*reply); });
    return 0;
}

void SleepMonitor::takeLock(sd_bus_message& reply) {
    lockCall_.reset();
    int descriptor = -1;
    if (const sd_bus_error* error = sd_bus_message_get_error(&reply)) {
        diagnostics::report("sleep: no delay lock: " + errorMessage(*error));
    } else if (sd_bus_message_read(&reply, "h", &descriptor) > 0) {
        // The descriptor in the message belongs to the message.
        lock_ = std::make_shared<Descriptor>(::fcntl(descriptor, F_DUPFD_CLOEXEC, 3));
    }
}

int SleepMonitor::onPrepareForSleep(sd_bus_message* signal, void* self, sd_bus_error* /*error*/) {
    auto& monitor = *static_cast<SleepMonitor*>(self);
    int begins = 0;
    if (isFrom(signal, monitor.manager_) && sd_bus_message_read(signal, "b", &begins) > 0) {
        diagnostics::contain("sleep", [&] { monitor.prepareForSleep(busOf(signal), begins != 0); });
    }
    return 0;
}

void SleepMonitor::prepareForSleep(sd_bus& bus, bool begins) {
    if (!begins) {
        RunLoop::main().perform([this] { observers_.deliver({workspace_center::didWakeNotification, {}, {}}); });
        updateLock(bus);
        return;
    }
    lockCall_.reset();
    RunLoop::main().perform([this, lock = std::move(lock_)] {
        observers_.deliver({workspace_center::willSleepNotification, {}, {}});
        BusConnection::shared().afterDelivery([lock] {}); // held until then
    });
}

} // namespace platform
