#include "platform/notifications.h"

#include "foundation/diagnostics.h"
#include "foundation/error.h"
#include "foundation/guarded.h"
#include "foundation/limited_report.h"
#include "foundation/observer_list.h"
#include "platform/linux/bus/bus_connection.h"
#include "platform/linux/bus/message_quota.h"
#include "platform/linux/bus/notification_message.h"
#include "platform/linux/bus/sleep_monitor.h"

#include <algorithm>
#include <map>

namespace platform {

namespace {

/// Whether a match rule can hold the name: it stands there in single quotes, and nothing in it can be escaped.
bool isObservable(const std::string& name) {
    return !name.empty() && name.size() <= NotificationMessage::maxNameLength &&
           std::all_of(name.begin(), name.end(),
                       [](unsigned char c) { return c >= 0x20 && c < 0x7f && c != '\'' && c != '\\'; });
}

class DistributedCenter : private BusListener {
  public:
    static DistributedCenter& shared() {
        static DistributedCenter& center = *new DistributedCenter;
        return center;
    }

    ObservationPtr addObserver(const std::string& name, NotificationHandler handler) {
        if (!isObservable(name)) {
            throw Exception("unobservable notification name");
        }
        // What was posted before the call may still be on its way through the bus. It has arrived when the bus answers.
        const auto isBehindEarlierPosts = std::make_shared<bool>(false); // the main loop's own
        auto observation = observers_.add(
            name,
            [isBehindEarlierPosts, handler = std::move(handler)](const Notification& notification) {
                if (*isBehindEarlierPosts) {
                    handler(notification);
                }
            },
            std::make_shared<RunLoop::Source>(RunLoop::main()));
        BusConnection::shared().afterDelivery([isBehindEarlierPosts] {
            RunLoop::main().perform([isBehindEarlierPosts] { *isBehindEarlierPosts = true; });
        });
        return observation;
    }

    void post(NotificationMessage message) {
        try {
            validate(message);
        } catch (const MalformedMessage& reason) {
            malformed_(std::string("notification not posted: ") + reason.what());
            return;
        }
        const MessageQuota::Ticket ticket = outbox_.take(message.cost());
        if (!ticket) {
            overflow_("notifications not posted: too many wait for the bus");
            return;
        }
        const auto shared = std::make_shared<const NotificationMessage>(std::move(message));
        BusConnection::shared().send([ticket, shared](sd_bus& bus) {
            const BusMessage signal = encode(bus, *shared);
            check(sd_bus_send(&bus, signal.get(), nullptr), "sd_bus_send");
        });
    }

    void watchConnection(std::function<void(bool isReachable)> watcher) {
        watcher_.set(std::move(watcher));
        BusConnection::shared().send([this](sd_bus&) { tellWatcher(true); }); // it may have been reached before
    }

  private:
    DistributedCenter() { BusConnection::shared().addListener(*this); }

    void connected(sd_bus& bus) override {
        for (const std::string& name : observers_.names()) {
            subscribe(bus, name);
        }
        tellWatcher(true);
    }

    void disconnected() override {
        matches_.clear();
        tellWatcher(false);
    }

    void tellWatcher(bool isReachable) {
        if (const auto watcher = watcher_.get()) {
            watcher(isReachable);
        }
    }

    void observersChanged(const std::string& name) {
        BusConnection::shared().send([this, name](sd_bus& bus) { subscribe(bus, name); });
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
        const MessageQuota::Ticket ticket = inbox_.take(message.cost());
        if (!ticket) {
            overflow_("notifications dropped: too many wait for the main loop");
            return;
        }
        RunLoop::main().perform(
            [this, ticket, notification = std::move(message.notification)] { observers_.deliver(notification); });
    }

    ObserverList observers_{[this](const std::string& name) { observersChanged(name); }};
    /// What waits for the bus, and what waits for the main loop.
    MessageQuota outbox_;
    MessageQuota inbox_;
    LimitedReport malformed_{10};
    LimitedReport overflow_{1};
    Guarded<std::function<void(bool isReachable)>> watcher_;
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

void flush(std::chrono::milliseconds timeout) { BusConnection::shared().flush(timeout); }

void watchConnection(std::function<void(bool isReachable)> watcher) {
    DistributedCenter::shared().watchConnection(std::move(watcher));
}

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
