#include "platform/notifications.h"

#include "foundation/diagnostics.h"
#include "foundation/error.h"
#include "foundation/limited_report.h"
#include "foundation/observer_list.h"
#include "platform/linux/bus/bus_connection.h"
#include "platform/linux/bus/notification_message.h"
#include "platform/linux/bus/sleep_monitor.h"

#include <algorithm>
#include <map>
#include <mutex>

namespace platform {

namespace {

/// Counts what was received and waits for the main loop, within bounds: whoever floods the bus while a handler is
/// slow must not fill the memory.
class Inbox {
  public:
    bool enter(std::size_t cost) {
        const std::lock_guard lock(mutex_);
        if (messages_ == BusConnection::maxQueuedMessages || cost_ + cost > BusConnection::maxQueuedCost) {
            return false;
        }
        ++messages_;
        cost_ += cost;
        return true;
    }

    void leave(std::size_t cost) {
        const std::lock_guard lock(mutex_);
        --messages_;
        cost_ -= cost;
    }

  private:
    std::mutex mutex_;
    std::size_t messages_ = 0;
    std::size_t cost_ = 0;
};

/// What stands between quotes in a match rule.
bool isObservable(const std::string& name) {
    return !name.empty() && name.size() <= NotificationMessage::maxNameLength &&
           std::all_of(name.begin(), name.end(),
                       [](unsigned char c) { return c >= 0x20 && c < 0x7f && c != '\'' && c != '\\'; });
}

class DistributedCenter : private BusUser {
  public:
    static DistributedCenter& shared() {
        static DistributedCenter& center = *new DistributedCenter;
        return center;
    }

    ObservationPtr addObserver(const std::string& name, NotificationHandler handler) {
        if (!isObservable(name)) {
            throw Exception("unobservable notification name");
        }
        return observers_.add(name, std::move(handler), std::make_shared<RunLoop::Source>(RunLoop::main()));
    }

    void post(NotificationMessage message) {
        std::size_t cost = 0;
        try {
            validate(message);
            cost = message.cost();
        } catch (const MalformedMessage& reason) {
            malformed_(std::string("notification not posted: ") + reason.what());
            return;
        }
        const auto shared = std::make_shared<const NotificationMessage>(std::move(message));
        const bool taken = BusConnection::shared().send(cost, [shared](sd_bus& bus) {
            const BusMessage signal = encode(bus, *shared);
            check(sd_bus_send(&bus, signal.get(), nullptr), "sd_bus_send");
        });
        if (!taken) {
            overflow_("notifications not posted: too many wait for the bus");
        }
    }

  private:
    DistributedCenter() { BusConnection::shared().addUser(*this); }

    void connected(sd_bus& bus) override {
        for (const std::string& name : observers_.names()) {
            subscribe(bus, name);
        }
    }

    void lost() override { matches_.clear(); }

    void observersChanged(const std::string& name) {
        BusConnection::shared().send(0, [this, name](sd_bus& bus) { subscribe(bus, name); });
    }

    /// Makes the subscription agree with the present observers.
    void subscribe(sd_bus& bus, const std::string& name) {
        if (!observers_.observes(name)) {
            matches_.erase(name);
        } else if (!matches_.contains(name)) {
            matches_[name] = addMatch(bus,
                                      std::string("type='signal',path='") + NotificationMessage::path +
                                          "',interface='" + NotificationMessage::interface + "',member='" +
                                          NotificationMessage::member + "',arg0='" + name + "'",
                                      onPosted, this);
        }
    }

    static int onPosted(sd_bus_message* signal, void* self, sd_bus_error* /*error*/) {
        diagnostics::contain("notification", [&] { static_cast<DistributedCenter*>(self)->receive(*signal); });
        return 0;
    }

    void receive(sd_bus_message& signal) {
        try {
            handOver(decode(signal));
        } catch (const MalformedMessage& reason) {
            const char* sender = sd_bus_message_get_sender(&signal);
            malformed_("notification from " + std::string(sender != nullptr ? sender : "nobody") +
                       " dropped: " + reason.what());
        }
    }

    void handOver(NotificationMessage message) {
        const std::size_t cost = message.cost();
        if (!inbox_.enter(cost)) {
            overflow_("notifications dropped: too many wait for the main loop");
            return;
        }
        RunLoop::main().perform([this, cost, notification = std::move(message.notification)] {
            inbox_.leave(cost);
            observers_.deliver(notification);
        });
    }

    ObserverList observers_{[this](const std::string& name) { observersChanged(name); }};
    Inbox inbox_;
    LimitedReport malformed_{10};
    LimitedReport overflow_{1};
    std::map<std::string, BusSlot> matches_; // the bus thread's own
};

ObserverList& localObservers() {
    static ObserverList& observers = *new ObserverList;
    return observers;
}

} // namespace

namespace distributed_center {

ObservationPtr addObserver(const std::string& name, NotificationHandler handler) {
    return DistributedCenter::shared().addObserver(name, std::move(handler));
}

void post(const std::string& name, const std::string& object, const std::optional<Dictionary>& userInfo,
          std::uint32_t options) {
    DistributedCenter::shared().post({{name, object, userInfo}, options});
}

void flush() { BusConnection::shared().flush(std::chrono::seconds{1}); }

} // namespace distributed_center

namespace local_center {

ObservationPtr addObserver(const std::string& name, NotificationHandler handler) {
    return localObservers().add(name, std::move(handler));
}

void post(const std::string& name, const std::string& object, const std::optional<Dictionary>& userInfo) {
    localObservers().deliver({name, object, userInfo});
}

} // namespace local_center

namespace workspace_center {

ObservationPtr addObserver(const std::string& name, NotificationHandler handler) {
    return SleepMonitor::shared().addObserver(name, std::move(handler));
}

} // namespace workspace_center

} // namespace platform
