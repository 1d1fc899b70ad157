#include "trial/support/bus_client.h"

#include "platform/linux/bus_connection.h"
#include "platform/linux/notification_message.h"
#include "platform/run_loop.h"

#include <algorithm>
#include <condition_variable>
#include <future>
#include <mutex>
#include <optional>
#include <systemd/sd-bus.h>
#include <thread>

namespace trial {

using platform::check;
using platform::NotificationMessage;

struct BusClient::State {
    struct Release {
        void operator()(sd_bus* bus) const { sd_bus_flush_close_unref(bus); }
    };

    platform::RunLoop loop;
    std::optional<platform::RunLoop::Source> keepsRunning{loop};
    std::unique_ptr<sd_bus, Release> bus;
    platform::BusSlot match;

    mutable std::mutex mutex;
    mutable std::condition_variable changed;
    std::vector<Posted> heard;

    std::thread thread;

    explicit State(const std::string& address) {
        sd_bus* made = nullptr;
        check(sd_bus_new(&made), "sd_bus_new");
        bus.reset(made);
        check(sd_bus_set_address(made, address.c_str()), "sd_bus_set_address");
        check(sd_bus_set_bus_client(made, 1), "sd_bus_set_bus_client");
        check(sd_bus_start(made), "sd_bus_start");
        sd_bus_slot* slot = nullptr;
        // Waits for the bus, so that nothing posted from now on is missed.
        check(sd_bus_match_signal(made, &slot, nullptr, NotificationMessage::path, NotificationMessage::interface,
                                  NotificationMessage::member, onPosted, this),
              "sd_bus_match_signal");
        match.reset(slot);
        check(sd_bus_attach_event(made, eventLoop(loop).get(), SD_EVENT_PRIORITY_NORMAL), "sd_bus_attach_event");
        thread = std::thread([this] { loop.run(); });
    }

    ~State() {
        loop.perform([this] { keepsRunning.reset(); });
        thread.join();
        match.reset();
        sd_bus_detach_event(bus.get());
    }

    State(const State&) = delete;
    State& operator=(const State&) = delete;

    static int onPosted(sd_bus_message* signal, void* self, sd_bus_error* /*error*/) {
        try {
            static_cast<State*>(self)->hear(platform::decode(*signal), sd_bus_message_get_sender(signal));
        } catch (const platform::MalformedMessage&) {
            // Of no concern to a listener.
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

void BusClient::perform(std::function<void(sd_bus& bus)> work) {
    state_->loop.perform([state = state_.get(), work = std::move(work)] { work(*state->bus); });
}

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

std::size_t BusClient::countOf(const std::string& name) const {
    const auto all = heard();
    return static_cast<std::size_t>(
        std::count_if(all.begin(), all.end(), [&](const Posted& posted) { return posted.name == name; }));
}

bool BusClient::waitFor(const Condition& condition, std::chrono::milliseconds deadline) const {
    std::unique_lock lock(state_->mutex);
    return state_->changed.wait_for(lock, deadline, [&] { return condition(state_->heard); });
}

bool BusClient::waitForCount(const std::string& name, std::size_t count, std::chrono::milliseconds deadline) const {
    return waitFor(
        [&](const std::vector<Posted>& heard) {
            return static_cast<std::size_t>(std::count_if(
                       heard.begin(), heard.end(), [&](const Posted& posted) { return posted.name == name; })) >= count;
        },
        deadline);
}

} // namespace trial
