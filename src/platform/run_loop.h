// A thread's run loop: it sleeps until one of its sources has something to do.
#pragma once

#include <chrono>
#include <functional>
#include <memory>

namespace platform {

class EventLoop;

/// `stop`, `perform` and sources are thread-safe; the rest belongs to the thread that runs the loop.
class RunLoop {
  public:
    /// The main thread's loop, never destroyed. From the first call on, SIGPIPE is ignored. Throws when the loop can't
    /// be made; the next call then tries again.
    static RunLoop& main();

    /// A loop for another thread.
    RunLoop();
    ~RunLoop();
    RunLoop(const RunLoop&) = delete;
    RunLoop& operator=(const RunLoop&) = delete;

    /// Serves tasks, timers and sources on the calling thread until it is stopped, or until none are left.
    void run();
    /// Makes `run` return after the callback in progress; without a `run` in progress, the next one returns at once.
    void stop();
    /// Queues a task and returns at once. Tasks run in order. An exception is reported and ends that task only.
    void perform(std::function<void()> task);

    /// Keeps `run` from returning while it lives. For event sources outside the loop that reach it by `perform`, such
    /// as notification observers.
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

/// Calls back on the loop's thread at a fixed beat, first after one interval; beats missed while the thread was busy
/// are made up for by one call. An exception is reported and ends that call only. Made and destroyed on the loop's
/// thread.
class RepeatingTimer {
  public:
    RepeatingTimer(RunLoop& loop, std::chrono::milliseconds interval, std::function<void()> callback);
    /// There are no calls afterwards. May be called from the callback.
    ~RepeatingTimer();
    RepeatingTimer(const RepeatingTimer&) = delete;
    RepeatingTimer& operator=(const RepeatingTimer&) = delete;

  private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace platform
