// sd-event as a C++ object: what run loops are made of, and what other Linux sources hang their descriptors on.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <sys/types.h>
#include <systemd/sd-event.h>

namespace platform {

class RunLoop;

/// Throws std::system_error when a call of libsystemd failed, that is, returned a negated error number.
void check(int result, const char* call);

/// Something that an event loop watches; no callback comes after its end. Its own callback may end it: the
/// function stays alive until it has returned.
class EventSource {
  public:
    EventSource() = default;

    explicit EventSource(sd_event_source* source) : source_(source) {}

    /// For a timer: calls back once at that time, or at once when it has passed.
    void fireAt(std::chrono::steady_clock::time_point time);

    void fireAfter(std::chrono::microseconds delay) { fireAt(std::chrono::steady_clock::now() + delay); }

  private:
    struct Release {
        void operator()(sd_event_source* source) const { sd_event_source_disable_unref(source); }
    };

    std::unique_ptr<sd_event_source, Release> source_;
};

/// Belongs to one thread. What a callback throws is reported and ends that call only.
class EventLoop {
  public:
    using Callback = std::function<void()>;

    EventLoop();

    /// Sleeps until something is to be done, and calls back for one source.
    void dispatch();

    /// Calls back as long as there is something to read. End it before the descriptor is closed.
    [[nodiscard]] EventSource onReadable(int descriptor, Callback callback);
    /// Comes before what else is due. The signal must be blocked in every thread.
    [[nodiscard]] EventSource onSignal(int signal, Callback callback);
    /// Calls back each time another source has been served.
    [[nodiscard]] EventSource afterDispatch(Callback callback);
    /// Does nothing until it is told when to fire; may be late by `accuracy`, so that wake-ups can be shared.
    [[nodiscard]] EventSource timer(std::chrono::microseconds accuracy, Callback callback);

    /// Borrowed.
    sd_event* get() const { return event_.get(); }

  private:
    struct Release {
        void operator()(sd_event* event) const { sd_event_unref(event); }
    };

    std::unique_ptr<sd_event, Release> event_;
};

/// The event loop inside a run loop, for sources of the same thread. A source that is to keep `run` from returning
/// holds a RunLoop::Source beside it.
EventLoop& eventLoop(RunLoop& loop);

} // namespace platform
