#include "trial/support/sleep_service.h"

#include "platform/linux/files/descriptor.h"
#include "trial/support/bus_thread.h"

#include <array>
#include <condition_variable>
#include <fcntl.h>
#include <list>
#include <mutex>
#include <systemd/sd-bus.h>

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
    /// Our end of a lock: it becomes readable once the owner has closed the other end.
    struct Lock {
        Descriptor descriptor;
        EventSource released;
    };

    mutable std::mutex mutex;
    mutable std::condition_variable changed;
    std::list<Lock> locks;

    /// Declared last: it must have ended before what it fills is gone. Its loop watches the locks' descriptors.
    BusThread thread;

    explicit State(const std::string& address) : thread(address, [this](sd_bus& bus) { return manage(bus); }) {}

    platform::BusSlot manage(sd_bus& bus) {
        sd_bus_slot* slot = nullptr;
        check(sd_bus_add_object(&bus, &slot, managerPath, onCall, this), "sd_bus_add_object");
        platform::BusSlot inhibit(slot);
        check(sd_bus_request_name(&bus, managerName, 0), "sd_bus_request_name");
        return inhibit;
    }

    static int announce(sd_bus& bus, bool begins) {
        return sd_bus_emit_signal(&bus, managerPath, managerInterface, "PrepareForSleep", "b", begins ? 1 : 0);
    }

    static int onCall(sd_bus_message* call, void* data, sd_bus_error* error) {
        State& self = *static_cast<State*>(data);
        if (sd_bus_message_is_method_call(call, managerInterface, "Inhibit") > 0) {
            return self.giveLock(call, error);
        }
        int begins = 0;
        if (sd_bus_message_is_method_call(call, managerInterface, "PrepareForSleep") > 0 &&
            sd_bus_message_read(call, "b", &begins) > 0) {
            const int sent = announce(*sd_bus_message_get_bus(call), begins != 0);
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
        entry->released = eventLoop(thread.loop()).onReadable(entry->descriptor.get(), [this, entry] {
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
    state_->thread.perform([begins](sd_bus& bus) { check(State::announce(bus, begins), "sd_bus_emit_signal"); });
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
