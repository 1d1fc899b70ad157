// sd-event as C++ objects: run loops are made of it, and other sources of this platform add their descriptors to it.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <sys/types.h>
#include <systemd/sd-event.h>

namespace platform {

class RunLoop;

/// Throws std::system_error when a call to libsystemd has failed, that is, returned a negative errno.
void check(int result, const char* call);

/// Something that an event loop watches. There are no callbacks after its destruction. Its own callback may destroy it:
/// the function object lives on until it has returned.
class EventSource {
  public:
    EventSource() = default;

    explicit EventSource(sd_event_source* source) : source_(source) {}

    /// For a timer: calls back once, at that time, or at once when it has passed.
    void fireAt(std::chrono::steady_clock::time_point time);

    void fireAfter(std::chrono::microseconds delay) { fireAt(std::chrono::steady_clock::now() + delay); }

  private:
    struct Release {
        void operator()(sd_event_source* source) const { sd_event_source_disable_unref(source); }
    };

    std::unique_ptr<sd_event_source, Release> source_;
};

/// Belongs to one thread. An exception from a callback is reported and ends that call only.
class EventLoop {
  public:
    using Callback = std::function<void()>;

    EventLoop();

    /// Waits until a source is ready and calls back for that one.
    void dispatch();

    /// Calls back while there is something to read. Must be destroyed before the descriptor is closed.
    [[nodiscard]] EventSource onReadable(int descriptor, Callback callback);
    /// Calls back when the descriptor has something out of the ordinary to say (EPOLLPRI), such as a new mount table.
    [[nodiscard]] EventSource onPriority(int descriptor, Callback callback);
    /// Calls back after every callback of another source.
    [[nodiscard]] EventSource afterDispatch(Callback callback);
    /// Set by `fireAt`. May be late by `accuracy`, so that the system can join wake-ups.
    [[nodiscard]] EventSource timer(std::chrono::microseconds accuracy, Callback callback);

    /// Borrowed.
    sd_event* get() const { return event_.get(); }

  private:
    EventSource onDescriptorEvents(int descriptor, std::uint32_t events, Callback callback);

    struct Release {
        void operator()(sd_event* event) const { sd_event_unref(event); }
    };

    std::unique_ptr<sd_event, Release> event_;
};

/// The event loop inside a run loop, for the run loop's own thread. A source that is to keep `run` from returning needs
/// a RunLoop::Source besides.
EventLoop& eventLoop(RunLoop& loop);

} // namespace platform
