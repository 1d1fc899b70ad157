#include "platform/run_loop.h"

#include "foundation/diagnostics.h"
#include "platform/linux/files/descriptor.h"
#include "platform/linux/loop/event_loop.h"

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <deque>
#include <mutex>
#include <sys/eventfd.h>
#include <utility>

namespace platform {

using std::chrono::microseconds;
using std::chrono::milliseconds;

struct RunLoop::State {
    EventLoop loop;
    Descriptor wakeUp{::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
    EventSource onWakeUp = loop.onReadable(wakeUp.get(), [this] { runTask(); });

    std::mutex mutex;
    /// While there are any, `wakeUp` is readable.
    std::deque<std::function<void()>> tasks;
    std::size_t sources = 0;
    bool stopped = false;

    void wake() const { static_cast<void>(::eventfd_write(wakeUp.get(), 1)); }

    bool done() {
        const std::lock_guard lock(mutex);
        return std::exchange(stopped, false) || (tasks.empty() && sources == 0);
    }

    void stop() {
        const std::lock_guard lock(mutex);
        stopped = true;
        wake();
    }

    /// Only one, so that timers get their turn in between.
    void runTask() {
        if (const auto task = nextTask()) {
            diagnostics::contain("run loop", task);
        }
    }

    std::function<void()> nextTask() {
        const std::lock_guard lock(mutex);
        std::function<void()> task;
        if (!tasks.empty()) {
            task = std::move(tasks.front());
            tasks.pop_front();
        }
        if (tasks.empty()) {
            eventfd_t ignored = 0;
            static_cast<void>(::eventfd_read(wakeUp.get(), &ignored));
        }
        return task;
    }
};

RunLoop::RunLoop() : state_(std::make_unique<State>()) {}

RunLoop::~RunLoop() = default;

RunLoop& RunLoop::main() {
    // Other threads may hand over work until the process has ended.
    static RunLoop& loop = *[] {
        std::signal(SIGPIPE, SIG_IGN); // a write to a closed pipe fails instead
        std::signal(SIGCHLD, SIG_DFL); // may be inherited as ignored, and then no child can be waited for
        return new RunLoop;
    }();
    return loop;
}

void RunLoop::run() {
    while (!state_->done()) {
        state_->loop.dispatch();
    }
}

void RunLoop::stop() { state_->stop(); }

void RunLoop::perform(std::function<void()> task) {
    const std::lock_guard lock(state_->mutex);
    state_->tasks.push_back(std::move(task));
    if (state_->tasks.size() == 1) {
        state_->wake();
    }
}

RunLoop::Source::Source(RunLoop& loop) : loop_(loop) {
    const std::lock_guard lock(loop_.state_->mutex);
    ++loop_.state_->sources;
}

RunLoop::Source::~Source() {
    const std::lock_guard lock(loop_.state_->mutex);
    if (--loop_.state_->sources == 0) {
        loop_.state_->wake();
    }
}

EventLoop& eventLoop(RunLoop& loop) { return loop.state_->loop; }

struct RepeatingTimer::State {
    RunLoop::Source keepsRunning;
    milliseconds interval;
    std::chrono::steady_clock::time_point next = std::chrono::steady_clock::now() + interval;
    EventSource source;

    State(RunLoop& loop, milliseconds period) : keepsRunning(loop), interval(std::max(period, milliseconds{1})) {}

    /// The first time on the beat that is still to come.
    void scheduleNext() {
        const auto late = std::chrono::steady_clock::now() - next;
        next += interval * (1 + std::max<std::int64_t>(late / interval, 0));
        source.fireAt(next);
    }
};

RepeatingTimer::RepeatingTimer(RunLoop& loop, milliseconds interval, std::function<void()> callback)
    : state_(std::make_unique<State>(loop, interval)) {
    const microseconds accuracy = std::min<microseconds>(state_->interval / 1000, milliseconds{1});
    // The callback comes last: it may destroy this timer.
    state_->source = eventLoop(loop).timer(accuracy, [state = state_.get(), call = std::move(callback)] {
        state->scheduleNext();
        call();
    });
    state_->source.fireAt(state_->next);
}

RepeatingTimer::~RepeatingTimer() = default;

} // namespace platform
