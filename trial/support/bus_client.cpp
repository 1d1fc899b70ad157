#include "trial/support/bus_client.h"

#include "platform/linux/bus/notification_message.h"
#include "trial/support/bus_thread.h"

#include <algorithm>
#include <condition_variable>
#include <future>
#include <mutex>
#include <utility>

namespace trial {

using platform::check;
using platform::NotificationMessage;

namespace {

std::size_t count(const std::vector<Posted>& heard, const std::string& name) {
    return static_cast<std::size_t>(std::ranges::count(heard, name, &Posted::name));
}

} // namespace

struct BusClient::State {
    mutable std::mutex mutex;
    mutable std::condition_variable changed;
    std::vector<Posted> heard;

    /// Declared last: it must have ended before what it fills is gone.
    BusThread thread;

    explicit State(const std::string& address) : thread(address, [this](sd_bus& bus) { return listen(bus); }) {}

    platform::BusSlot listen(sd_bus& bus) {
        sd_bus_slot* slot = nullptr;
        // Synchronous, so that nothing posted from now on is missed.
        check(sd_bus_match_signal(&bus, &slot, nullptr, NotificationMessage::path, NotificationMessage::interface,
                                  NotificationMessage::member, onPosted, this),
              "sd_bus_match_signal");
        return platform::BusSlot(slot);
    }

    static int onPosted(sd_bus_message* signal, void* self, sd_bus_error* /*error*/) {
        try {
            static_cast<State*>(self)->hear(platform::decode(*signal), sd_bus_message_get_sender(signal));
        } catch (const platform::MalformedMessage&) {
            // As any observer would, it ignores what it can't read.
        }
        return 0;
    }

    void hear(const NotificationMessage& message, const char* sender) {
        const auto& [name, object, userInfo] = message.notification;
        const std::lock_guard lock(mutex);
        heard.push_back({name, object, userInfo.value_or(platform::Dictionary{}), message.options, sender});
        changed.notify_all();
    }
};

BusClient::BusClient(const std::string& address) : state_(std::make_unique<State>(address)) {}

BusClient::~BusClient() = default;

void BusClient::post(const std::string& name, const std::string& object, const platform::Dictionary& userInfo,
                     std::uint32_t options) {
    perform([message = NotificationMessage{{name, object, userInfo}, options}](sd_bus& bus) {
        const auto signal = platform::encode(bus, message);
        check(sd_bus_send(&bus, signal.get(), nullptr), "sd_bus_send");
    });
}

void BusClient::perform(std::function<void(sd_bus& bus)> work) { state_->thread.perform(std::move(work)); }

void BusClient::sync() {
    std::promise<void> done;
    perform([&](sd_bus& bus) {
        sd_bus_call_method(&bus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "GetId",
                           nullptr, nullptr, nullptr);
        done.set_value();
    });
    done.get_future().wait();
}

std::vector<Posted> BusClient::heard() const {
    const std::lock_guard lock(state_->mutex);
    return state_->heard;
}

std::size_t BusClient::countOf(const std::string& name) const { return trial::count(heard(), name); }

bool BusClient::waitFor(const Condition& condition, std::chrono::milliseconds deadline) const {
    std::unique_lock lock(state_->mutex);
    return state_->changed.wait_for(lock, deadline, [&] { return condition(state_->heard); });
}

bool BusClient::waitForCount(const std::string& name, std::size_t wanted, std::chrono::milliseconds deadline) const {
    return waitFor([&](const std::vector<Posted>& heard) { return trial::count(heard, name) >= wanted; }, deadline);
}

} // namespace trial
