#include "platform/linux/bus/bus_connection.h"

#include "foundation/diagnostics.h"
#include "platform/clock.h"

#include <cstdint>
#include <cstdlib>
#include <future>
#include <system_error>
#include <thread>
#include <utility>

namespace platform {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

namespace {

constexpr const char* defaultAddress = "unix:path=/run/dbus/system_bus_socket";
constexpr milliseconds firstPause{20};
constexpr milliseconds longestPause{30'000};
/// A bus that answers within this time is not reported missing.
constexpr milliseconds patience{1000};

std::string addressSetting() {
    const char* address = std::getenv("DBUS_SYSTEM_BUS_ADDRESS");
    return address != nullptr && *address != '\0' ? address : defaultAddress;
}

int reportRefusal(sd_bus_message* reply, void* /*data*/, sd_bus_error* /*error*/) {
    if (const sd_bus_error* error = sd_bus_message_get_error(reply)) {
        diagnostics::report("system bus: subscription refused: " + errorMessage(*error));
    }
    return 0;
}

/// For a signal about the connection that the library itself makes.
BusSlot addLocalMatch(sd_bus& bus, const std::string& member, sd_bus_message_handler_t handler, void* data) {
    return addMatch(bus, "type='signal',interface='org.freedesktop.DBus.Local',member='" + member + "'", handler, data);
}

bool isConnectionError(const std::error_code& code) {
    return code == std::errc::not_connected || code == std::errc::connection_reset || code == std::errc::broken_pipe ||
           code.value() == ESHUTDOWN;
}

} // namespace

std::string errorMessage(const sd_bus_error& error) { return error.message != nullptr ? error.message : error.name; }

BusSlot addMatch(sd_bus& bus, const std::string& rule, sd_bus_message_handler_t handler, void* data) {
    sd_bus_slot* slot = nullptr;
    check(sd_bus_add_match_async(&bus, &slot, rule.c_str(), handler, reportRefusal, data), "sd_bus_add_match_async");
    return BusSlot(slot);
}

BusConnection& BusConnection::shared() {
    static BusConnection& connection = *new BusConnection;
    return connection;
}

BusConnection::BusConnection() : address_(addressSetting()), backoff_(firstPause, longestPause) { startThread(); }

void BusConnection::startThread() {
    try {
        std::thread([this] { diagnostics::contain("system bus", [this] { serve(); }); }).detach();
    } catch (const std::system_error& error) {
        startFailed_(std::string("system bus: no thread: ") + error.what());
        RunLoop::main().perform([this] {
            startTimer_ = std::make_unique<RepeatingTimer>(RunLoop::main(), patience, [this] {
                startTimer_.reset();
                startThread();
            });
        });
    }
}

void BusConnection::serve() {
    while (!prepareLoop()) {
        clock::sleep(backoff_.next());
    }
    backoff_.reset();
    attempt();
    loop_->run();
}

bool BusConnection::prepareLoop() {
    try {
        auto loop = std::make_unique<RunLoop>();
        EventLoop& events = eventLoop(*loop);
        retry_ = events.timer(milliseconds{1}, [this] { onRetryTime(); });
        afterDispatch_ = events.afterDispatch([this] { afterDispatch(); });
        keepsRunning_ = std::make_unique<RunLoop::Source>(*loop);
        const std::lock_guard lock(mutex_);
        loop_ = std::move(loop);
        return true;
    } catch (const std::system_error& error) {
        startFailed_(std::string("system bus: no run loop: ") + error.what());
        return false;
    }
}

void BusConnection::addListener(BusListener& listener) {
    const std::lock_guard lock(mutex_);
    listeners_.push_back(&listener);
}

std::vector<BusListener*> BusConnection::listeners() {
    const std::lock_guard lock(mutex_);
    return listeners_;
}

void BusConnection::send(Work work) {
    const std::lock_guard lock(mutex_);
    queue_.push_back(std::move(work));
    if (loop_ && queue_.size() == 1) {
        loop_->perform([] {}); // wakes the thread, which sends after every dispatch
    }
}

void BusConnection::afterDelivery(std::function<void()> done) {
    // Destroyed when neither the queue nor a call that waits for its reply needs it any more.
    const std::shared_ptr<void> calling(nullptr,
                                        [done = std::move(done)](void*) { diagnostics::contain("system bus", done); });
    send([calling](sd_bus& bus) {
        // The bus answers when it has passed on what was sent before. The library destroys the slot, and with it
        // what it owns, after the reply or with the connection.
        auto owned = std::make_unique<std::shared_ptr<void>>(calling);
        sd_bus_slot* slot = nullptr;
        check(sd_bus_call_method_async(
                  &bus, &slot, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "GetId",
                  [](sd_bus_message*, void*, sd_bus_error*) { return 0; }, owned.get(), nullptr),
              "sd_bus_call_method_async");
        const BusSlot owner(slot);
        check(sd_bus_slot_set_destroy_callback(slot,
                                               [](void* data) { delete static_cast<std::shared_ptr<void>*>(data); }),
              "sd_bus_slot_set_destroy_callback");
        static_cast<void>(owned.release());
        check(sd_bus_slot_set_floating(slot, 1), "sd_bus_slot_set_floating");
    });
}

void BusConnection::flush(milliseconds timeout) {
    {
        const std::lock_guard lock(mutex_);
        if (state_ != State::connected && queue_.empty()) {
            return;
        }
    }
    const auto promise = std::make_shared<std::promise<void>>();
    const auto delivered = promise->get_future();
    afterDelivery([promise] { promise->set_value(); });
    delivered.wait_for(timeout);
}

void BusConnection::attempt() {
    retryTime_ = steady_clock::now() + backoff_.next();
    retry_.fireAt(retryTime_);
    try {
        open();
    } catch (const std::system_error& error) {
        drop();
        reportMissing(error.what());
    }
}

void BusConnection::open() {
    sd_bus* bus = nullptr;
    check(sd_bus_new(&bus), "sd_bus_new");
    bus_.reset(bus);
    state_ = State::connecting;
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
    onLost_ = addLocalMatch(
        *bus, "Disconnected",
        [](sd_bus_message*, void* self, sd_bus_error*) {
            static_cast<BusConnection*>(self)->state_ = State::lost;
            return 0;
        },
        this);
    check(sd_bus_attach_event(bus, eventLoop(*loop_).get(), SD_EVENT_PRIORITY_NORMAL), "sd_bus_attach_event");
    check(sd_bus_start(bus), "sd_bus_start");
}

void BusConnection::onConnected() {
    state_ = State::connected;
    connectedAt_ = steady_clock::now();
    for (BusListener* listener : listeners()) {
        diagnostics::contain("system bus", [&] { listener->connected(*bus_); });
    }
    if (std::exchange(missingIsReported_, false)) {
        diagnostics::report("system bus: connected again");
    }
}

void BusConnection::onRetryTime() {
    if (state_ == State::connected) {
        return;
    }
    if (state_ == State::connecting) {
        drop();
        if (steady_clock::now() - startedAt_ > patience) {
            reportMissing("no answer");
        }
    }
    attempt();
}

void BusConnection::afterDispatch() {
    if (state_ == State::lost) {
        drop();
        reportMissing("connection lost");
        retry_.fireAt(retryTime_);
    }
    if (state_ == State::connected) {
        sendQueued();
    }
}

/// Frees the connection. One that has held for long lets the next attempts begin with short pauses again.
void BusConnection::drop() {
    if (connectedAt_ && steady_clock::now() - *connectedAt_ >= longestPause) {
        backoff_.reset();
    }
    connectedAt_.reset();
    state_ = State::waiting;
    frontIsSent_ = false;
    for (BusListener* listener : listeners()) {
        diagnostics::contain("system bus", [&] { listener->disconnected(); });
    }
    onConnected_.reset();
    onLost_.reset();
    bus_.reset();
}

void BusConnection::sendQueued() {
    while (removeWritten()) {
        const Work* front = nullptr;
        {
            const std::lock_guard lock(mutex_);
            if (queue_.empty()) {
                return;
            }
            front = &queue_.front(); // stays where it is: only this thread removes
        }
        frontIsSent_ = true;
        try {
            (*front)(*bus_);
        } catch (const std::system_error& error) {
            if (isConnectionError(error.code())) {
                frontIsSent_ = false; // the library signals the loss in a moment
                return;
            }
            diagnostics::report("system bus", error.what());
        }
    }
}

/// Removes work from the queue whose messages are written. False while the connection still holds some of them.
bool BusConnection::removeWritten() {
    std::uint64_t unwritten = 0;
    check(sd_bus_get_n_queued_write(bus_.get(), &unwritten), "sd_bus_get_n_queued_write");
    if (unwritten > 0) {
        return false;
    }
    if (std::exchange(frontIsSent_, false)) {
        Work written; // destroyed without the lock: what it owns may queue more
        const std::lock_guard lock(mutex_);
        written = std::move(queue_.front());
        queue_.pop_front();
    }
    return true;
}

void BusConnection::reportMissing(std::string_view reason) {
    if (!std::exchange(missingIsReported_, true)) {
        diagnostics::report("system bus: " + std::string(reason) + "; posts are kept until it is back");
    }
}

} // namespace platform
