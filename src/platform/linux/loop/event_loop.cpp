#include "platform/linux/loop/event_loop.h"

#include "foundation/diagnostics.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <sys/epoll.h>
#include <system_error>

namespace platform {

namespace {

using Callback = EventLoop::Callback;

int call(void* callback) {
    diagnostics::contain("event loop", *static_cast<Callback*>(callback));
    return 0;
}

int onEvent(sd_event_source* /*source*/, void* callback) { return call(callback); }

int onDescriptor(sd_event_source* /*source*/, int /*descriptor*/, std::uint32_t /*events*/, void* callback) {
    return call(callback);
}

int onTime(sd_event_source* /*source*/, std::uint64_t /*time*/, void* callback) { return call(callback); }

/// Ties the function's life to the source's: sd-event frees a source only after its callback has returned.
EventSource owning(sd_event_source* source, std::unique_ptr<Callback> callback) {
    EventSource result(source);
    check(sd_event_source_set_destroy_callback(source, [](void* data) { delete static_cast<Callback*>(data); }),
          "sd_event_source_set_destroy_callback");
    static_cast<void>(callback.release());
    return result;
}

std::uint64_t microseconds(std::chrono::nanoseconds time) {
    const auto count = std::chrono::duration_cast<std::chrono::microseconds>(time).count();
    return static_cast<std::uint64_t>(std::max<std::int64_t>(count, 0));
}

} // namespace

void check(int result, const char* call) {
    if (result < 0) {
        throw std::system_error(-result, std::generic_category(), call);
    }
}

void EventSource::fireAt(std::chrono::steady_clock::time_point time) {
    check(sd_event_source_set_time(source_.get(), microseconds(time.time_since_epoch())), "sd_event_source_set_time");
    check(sd_event_source_set_enabled(source_.get(), SD_EVENT_ONESHOT), "sd_event_source_set_enabled");
}

EventLoop::EventLoop() {
    sd_event* event = nullptr;
    check(sd_event_new(&event), "sd_event_new");
    event_.reset(event);
}

void EventLoop::dispatch() {
    check(sd_event_run(event_.get(), std::numeric_limits<std::uint64_t>::max()), "sd_event_run");
}

EventSource EventLoop::onReadable(int descriptor, Callback callback) {
    return onDescriptorEvents(descriptor, EPOLLIN, std::move(callback));
}

EventSource EventLoop::onPriority(int descriptor, Callback callback) {
    return onDescriptorEvents(descriptor, EPOLLPRI, std::move(callback));
}

EventSource EventLoop::onDescriptorEvents(int descriptor, std::uint32_t events, Callback callback) {
    auto owned = std::make_unique<Callback>(std::move(callback));
    sd_event_source* source = nullptr;
    check(sd_event_add_io(event_.get(), &source, descriptor, events, onDescriptor, owned.get()), "sd_event_add_io");
    return owning(source, std::move(owned));
}

EventSource EventLoop::afterDispatch(Callback callback) {
    auto owned = std::make_unique<Callback>(std::move(callback));
    sd_event_source* source = nullptr;
    check(sd_event_add_post(event_.get(), &source, onEvent, owned.get()), "sd_event_add_post");
    return owning(source, std::move(owned));
}

EventSource EventLoop::timer(std::chrono::microseconds accuracy, Callback callback) {
    auto owned = std::make_unique<Callback>(std::move(callback));
    sd_event_source* source = nullptr;
    // An accuracy of 0 would mean the library's own default of a quarter of a second.
    check(sd_event_add_time(event_.get(), &source, CLOCK_MONOTONIC, std::numeric_limits<std::uint64_t>::max(),
                            std::max<std::uint64_t>(microseconds(accuracy), 1), onTime, owned.get()),
          "sd_event_add_time");
    EventSource result = owning(source, std::move(owned));
    check(sd_event_source_set_enabled(source, SD_EVENT_OFF), "sd_event_source_set_enabled");
    return result;
}

} // namespace platform
