#include "trial/support/sleep_service.h"

#include "platform/linux/bus_connection.h"
#include "platform/linux/descriptor.h"
#include "platform/run_loop.h"

#include <array>
#include <condition_variable>
#include <fcntl.h>
#include <list>
#include <mutex>
#include <optional>
#include <systemd/sd-bus.h>
#include <thread>

namespace trial {

using platform::check;
using platform::Descriptor;
using platform::EventSource;

namespace {

constexpr const char* managerName = "org.freedesktop.login1";
constexpr const char* managerPath = "/org/freedesktop/login1";
constexpr const char* managerInterface = "org.freedesktop.login1.Manager";

} // namespace

struct SleepService::State {
    /// Our end of a lock: readable, at its end, once the owner has closed the other one.
    struct Lock {
        Descriptor descriptor;
        EventSource released;
    };

    struct Release {
        void operator()(sd_bus* bus) const { sd_bus_flush_close_unref(bus); }
    };

    platform::RunLoop loop;
    std::optional<platform::RunLoop::Source> keepsRunning{loop};
    std::unique_ptr<sd_bus, Release> bus;
    platform::BusSlot inhibit;

    mutable std::mutex mutex;
    mutable std::condition_variable changed;
    std::list<Lock> locks;

    std::thread thread;

    explicit State(const std::string& address) {
        sd_bus* made = nullptr;
        check(sd_bus_new(&made), "sd_bus_new");
        bus.reset(made);
        check(sd_bus_set_address(made, address.c_str()), "sd_bus_set_address");
        check(sd_bus_set_bus_client(made, 1), "sd_bus_set_bus_client");
        check(sd_bus_start(made), "sd_bus_start");
        sd_bus_slot* slot = nullptr;
        check(sd_bus_add_object(made, &slot, managerPath, onCall, this), "sd_bus_add_object");
        inhibit.reset(slot);
        check(sd_bus_request_name(made, managerName, 0), "sd_bus_request_name");
        check(sd_bus_attach_event(made, eventLoop(loop).get(), SD_EVENT_PRIORITY_NORMAL), "sd_bus_attach_event");
        thread = std::thread([this] { loop.run(); });
    }

    ~State() {
        loop.perform([this] { keepsRunning.reset(); });
        thread.join();
        inhibit.reset();
        sd_bus_detach_event(bus.get());
    }

    State(const State&) = delete;
    State& operator=(const State&) = delete;

    int announce(bool begins) const {
        return sd_bus_emit_signal(bus.get(), managerPath, managerInterface, "PrepareForSleep", "b", begins ? 1 : 0);
    }

    static int onCall(sd_bus_message* call, void* data, sd_bus_error* error) {
        State& self = *static_cast<State*>(data);
        if (sd_bus_message_is_method_call(call, managerInterface, "Inhibit") > 0) {
            return self.giveLock(call, error);
        }
        int begins = 0;
        if (sd_bus_message_is_method_call(call, managerInterface, "PrepareForSleep") > 0 &&
            sd_bus_message_read(call, "b", &begins) > 0) {
            const int sent = self.announce(begins != 0);
            return sent < 0 ? sent : sd_bus_reply_method_return(call, "");
        }
        return 0;
    }

    int giveLock(sd_bus_message* call, sd_bus_error* error) {
        const char* what = nullptr;
        const char* who = nullptr;
        const char* why = nullptr;
        const char* mode = nullptr;
        if (sd_bus_message_read(call, "ssss", &what, &who, &why, &mode) < 0 || std::string(what) != "sleep" ||
            std::string(mode) != "delay") {
            return sd_bus_error_set_const(error, SD_BUS_ERROR_INVALID_ARGS, "delay locks on sleep only");
        }
        std::array<int, 2> ends{};
        if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
            return sd_bus_error_set_errno(error, errno);
        }
        add(Descriptor(ends[0]));
        const Descriptor given(ends[1]);
        return sd_bus_reply_method_return(call, "h", given.get());
    }

    void add(Descriptor descriptor) {
        const std::lock_guard lock(mutex);
        const auto entry = locks.insert(locks.end(), {std::move(descriptor), {}});
        entry->released = eventLoop(loop).onReadable(entry->descriptor.get(), [this, entry] {
            const std::lock_guard guard(mutex);
            locks.erase(entry);
            changed.notify_all();
        });
        changed.notify_all();
    }
};

SleepService::SleepService(const std::string& address) : state_(std::make_unique<State>(address)) {}

SleepService::~SleepService() = default;

void SleepService::prepareForSleep(bool begins) {
    state_->loop.perform([state = state_.get(), begins] { check(state->announce(begins), "sd_bus_emit_signal"); });
}

std::size_t SleepService::locks() const {
    const std::lock_guard lock(state_->mutex);
    return state_->locks.size();
}

bool SleepService::waitForLocks(std::size_t count, std::chrono::milliseconds deadline) const {
    std::unique_lock lock(state_->mutex);
    return state_->changed.wait_for(lock, deadline, [&] { return state_->locks.size() == count; });
}

} // namespace trial
