// A thread's run loop: it sleeps until one of its sources has something to do.
#pragma once

#include <chrono>
#include <functional>
#include <memory>

namespace platform {

class EventLoop;

class RunLoop {
  public:
    /// The main thread's loop. First called by the main thread, which also is the one to run it. SIGTERM and SIGINT
    /// stop it; they are blocked from the first call on, in threads started later too. From then on SIGPIPE is
    /// ignored and SIGCHLD is not.
    static RunLoop& main();

    /// A loop for another thread; run it there.
    RunLoop();
    ~RunLoop();
    RunLoop(const RunLoop&) = delete;
    RunLoop& operator=(const RunLoop&) = delete;

    /// Dispatches on the calling thread until stopped, or until there are no timers and no sources left.
    void run();
    /// Makes `run` return after the current callback. From any thread.
    void stop();
    /// Queues a task for this loop and returns at once. From any thread. Tasks run in order; a task's exception is
    /// reported and ends that task only.
    void perform(std::function<void()> task);

    /// Keeps `run` from returning for want of sources while it lives: for event sources outside the loop, such as
    /// notification observers, that hand their work over with `perform`. From any thread.
    class Source {
      public:
        explicit Source(RunLoop& loop);
        ~Source();
        Source(const Source&) = delete;
        Source& operator=(const Source&) = delete;

      private:
        RunLoop& loop_;
    };

  private:
    friend class RepeatingTimer;
    friend class Source;
    friend EventLoop& eventLoop(RunLoop& loop);
    struct State;
    std::unique_ptr<State> state_;
};

/// Calls back on a loop's thread again and again, first after one interval; it costs no wake-up in between. Made and
/// destroyed on that thread.
class RepeatingTimer {
  public:
    RepeatingTimer(RunLoop& loop, std::chrono::milliseconds interval, std::function<void()> callback);
    /// Invalidates it: no call comes after. May be called from the callback.
    ~RepeatingTimer();
    RepeatingTimer(const RepeatingTimer&) = delete;
    RepeatingTimer& operator=(const RepeatingTimer&) = delete;

  private:
    struct State;
    std::shared_ptr<State> state_;
};

} // namespace platform
