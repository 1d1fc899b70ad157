#include "platform/linux/bus/bus_connection.h"

#include "foundation/diagnostics.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <future>
#include <system_error>
#include <utility>

namespace platform {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

namespace {

constexpr const char* defaultAddress = "unix:path=/run/dbus/system_bus_socket";
constexpr milliseconds firstPause{20};
constexpr milliseconds patience{1000};
constexpr milliseconds maxPause{30'000};

std::string addressSetting() {
    const char* address = std::getenv("DBUS_SYSTEM_BUS_ADDRESS");
    return address != nullptr && *address != '\0' ? address : defaultAddress;
}

int reportRefusal(sd_bus_message* reply, void* /*data*/, sd_bus_error* /*error*/) {
    if (const sd_bus_error* error = sd_bus_message_get_error(reply)) {
        diagnostics::report("system bus: subscription refused: " + textOf(*error));
    }
    return 0;
}

/// A signal that the library itself makes, of what becomes of the connection.
BusSlot addLocalMatch(sd_bus& bus, const std::string& member, sd_bus_message_handler_t handler, void* data) {
    return addMatch(bus, "type='signal',interface='org.freedesktop.DBus.Local',member='" + member + "'", handler, data);
}

bool isConnectionError(const std::error_code& code) {
    return code == std::errc::not_connected || code == std::errc::connection_reset || code == std::errc::broken_pipe ||
           code.value() == ESHUTDOWN;
}

} // namespace

std::string textOf(const sd_bus_error& error) { return error.message != nullptr ? error.message : error.name; }

BusSlot addMatch(sd_bus& bus, const std::string& rule, sd_bus_message_handler_t handler, void* data) {
    sd_bus_slot* slot = nullptr;
    check(sd_bus_add_match_async(&bus, &slot, rule.c_str(), handler, reportRefusal, data), "sd_bus_add_match_async");
    return BusSlot(slot);
}

BusConnection& BusConnection::shared() {
    RunLoop::main(); // blocks the signals that stop it before the bus thread starts
    static BusConnection& connection = *new BusConnection;
    return connection;
}

BusConnection::BusConnection() : address_(addressSetting()), pause_(firstPause) {
    EventLoop& events = eventLoop(loop_);
    retry_ = events.timer(milliseconds{1}, [this] { onRetryTime(); });
    afterDispatch_ = events.afterDispatch([this] { afterDispatch(); });
    loop_.perform([this] { attempt(); });
    thread_ = std::thread([this] { diagnostics::contain("system bus", [this] { loop_.run(); }); });
}

void BusConnection::addUser(BusUser& user) {
    const std::lock_guard lock(mutex_);
    users_.push_back(&user);
}

bool BusConnection::send(std::size_t cost, Work work) {
    const std::lock_guard lock(mutex_);
    if (cost > 0) {
        if (queuedMessages_ == maxQueuedMessages || queuedCost_ + cost > maxQueuedCost) {
            return false;
        }
        ++queuedMessages_;
        queuedCost_ += cost;
    }
    queue_.push_back({cost, std::move(work)});
    if (queue_.size() == 1) {
        loop_.perform([] {}); // wakes the thread, which sends after every dispatch
    }
    return true;
}

void BusConnection::releaseAfterDelivery(std::shared_ptr<void> kept) {
    send(0, [kept = std::move(kept)](sd_bus& bus) {
        // The bus answers when it has passed on what was sent before. The slot's data goes with the slot, which the
        // library lets go of after the reply and with the connection.
        auto data = std::make_unique<std::shared_ptr<void>>(kept);
        sd_bus_slot* slot = nullptr;
        check(sd_bus_call_method_async(
                  &bus, &slot, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "GetId",
                  [](sd_bus_message*, void*, sd_bus_error*) { return 0; }, data.get(), nullptr),
              "sd_bus_call_method_async");
        const BusSlot owner(slot);
        check(sd_bus_slot_set_destroy_callback(
                  slot, [](void* released) { delete static_cast<std::shared_ptr<void>*>(released); }),
              "sd_bus_slot_set_destroy_callback");
        static_cast<void>(data.release());
        check(sd_bus_slot_set_floating(slot, 1), "sd_bus_slot_set_floating");
    });
}

void BusConnection::flush(milliseconds deadline) {
    {
        const std::lock_guard lock(mutex_);
        if (!connected_ && queue_.empty()) {
            return;
        }
    }
    // Ready when the promise is gone, whether it was kept or not.
    auto promise = std::make_shared<std::promise<void>>();
    const auto delivered = promise->get_future();
    releaseAfterDelivery(std::move(promise));
    delivered.wait_for(deadline);
}

void BusConnection::attempt() {
    retryDue_ = false;
    retry_.fireAfter(pause_);
    pause_ = std::min(2 * pause_, maxPause);
    try {
        open();
    } catch (const std::system_error& error) {
        dropConnection();
        reportMissing(error.what());
    }
}

void BusConnection::open() {
    sd_bus* bus = nullptr;
    check(sd_bus_new(&bus), "sd_bus_new");
    bus_.reset(bus);
    disconnected_ = false;
    check(sd_bus_set_address(bus, address_.c_str()), "sd_bus_set_address");
    check(sd_bus_set_bus_client(bus, 1), "sd_bus_set_bus_client");
    check(sd_bus_set_watch_bind(bus, 1), "sd_bus_set_watch_bind");
    check(sd_bus_set_connected_signal(bus, 1), "sd_bus_set_connected_signal");
    onConnected_ = addLocalMatch(
        *bus, "Connected",
        [](sd_bus_message*, void* self, sd_bus_error*) {
            diagnostics::contain("system bus", [&] { static_cast<BusConnection*>(self)->onConnected(); });
            return 0;
        },
        this);
    // The connection can't be dropped inside its own callback: that is left to afterDispatch.
    onDisconnected_ = addLocalMatch(
        *bus, "Disconnected",
        [](sd_bus_message*, void* self, sd_bus_error*) {
            static_cast<BusConnection*>(self)->disconnected_ = true;
            return 0;
        },
        this);
    check(sd_bus_attach_event(bus, eventLoop(loop_).get(), SD_EVENT_PRIORITY_NORMAL), "sd_bus_attach_event");
    check(sd_bus_start(bus), "sd_bus_start");
}

void BusConnection::onConnected() {
    std::vector<BusUser*> users;
    {
        const std::lock_guard lock(mutex_);
        connected_ = true;
        users = users_;
    }
    connectedAt_ = steady_clock::now();
    for (BusUser* user : users) {
        diagnostics::contain("system bus", [&] { user->connected(*bus_); });
    }
    if (std::exchange(reportedMissing_, false)) {
        diagnostics::report("system bus: connected again");
    }
}

void BusConnection::onRetryTime() {
    retryDue_ = true;
    if (!connected_) {
        dropConnection();
        if (pause_ > patience) { // a slow answer is no news
            reportMissing("no answer");
        }
        attempt();
    }
}

void BusConnection::afterDispatch() {
    if (disconnected_) {
        if (connected_ && steady_clock::now() - connectedAt_ >= maxPause) {
            pause_ = firstPause;
        }
        dropConnection();
        reportMissing("connection lost");
        if (retryDue_) {
            attempt();
        }
    }
    if (connected_) {
        sendQueued();
    }
}

void BusConnection::dropConnection() {
    std::vector<BusUser*> users;
    {
        const std::lock_guard lock(mutex_);
        connected_ = false;
        users = users_;
    }
    disconnected_ = false;
    frontIsSent_ = false;
    for (BusUser* user : users) {
        diagnostics::contain("system bus", [&] { user->lost(); });
    }
    onConnected_.reset();
    onDisconnected_.reset();
    bus_.reset();
}

void BusConnection::sendQueued() {
    while (popWritten()) {
        const Work* front = nullptr;
        {
            const std::lock_guard lock(mutex_);
            if (queue_.empty()) {
                return;
            }
            front = &queue_.front().work; // stays where it is: only this thread removes
        }
        frontIsSent_ = true;
        try {
            (*front)(*bus_);
        } catch (const std::system_error& error) {
            if (isConnectionError(error.code())) {
                frontIsSent_ = false; // the library tells of the loss in a moment
                return;
            }
            diagnostics::report(std::string("system bus: ") + error.what());
        }
    }
}

/// Takes what is written out of the queue. False while the connection still holds some of it.
bool BusConnection::popWritten() {
    std::uint64_t unwritten = 0;
    check(sd_bus_get_n_queued_write(bus_.get(), &unwritten), "sd_bus_get_n_queued_write");
    if (unwritten > 0) {
        return false;
    }
    if (std::exchange(frontIsSent_, false)) {
        Queued written;
        const std::lock_guard lock(mutex_);
        written = std::move(queue_.front());
        queue_.pop_front();
        queuedMessages_ -= written.cost > 0 ? 1 : 0;
        queuedCost_ -= written.cost;
    }
    return true;
}

void BusConnection::reportMissing(std::string_view reason) {
    if (!std::exchange(reportedMissing_, true)) {
        diagnostics::report("system bus: " + std::string(reason) + "; posts are kept until it is back");
    }
}

} // namespace platform
