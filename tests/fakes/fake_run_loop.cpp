#include "fakes/fake_clock.h"
#include "platform/run_loop.h"

#include <atomic>

namespace platform {

struct RunLoop::State {
    std::atomic<bool> stopped = false;
};

RunLoop::RunLoop() : state_(std::make_unique<State>()) {}

RunLoop::~RunLoop() = default;

RunLoop& RunLoop::main() {
    static RunLoop loop;
    return loop;
}

void RunLoop::run() {
    state_->stopped.wait(false);
    state_->stopped = false;
}

void RunLoop::stop() {
    state_->stopped = true;
    state_->stopped.notify_all();
}

void RunLoop::perform(std::function<void()> task) { task(); } // NOLINT(performance-unnecessary-value-param)

RunLoop::Source::Source(RunLoop& loop) : loop_(loop) {}

RunLoop::Source::~Source() { static_cast<void>(loop_); }

struct RepeatingTimer::State {
    explicit State(std::list<fakes::clock::Alarm>::iterator made) : alarm(made) {}

    std::list<fakes::clock::Alarm>::iterator alarm;

    ~State() { fakes::clock::alarms.erase(alarm); }
};

RepeatingTimer::RepeatingTimer(RunLoop& /*loop*/, std::chrono::milliseconds interval, std::function<void()> callback)
    : state_(std::make_unique<State>(fakes::clock::alarms.insert(
          fakes::clock::alarms.end(), {fakes::clock::now() + interval, interval, std::move(callback)}))) {}

RepeatingTimer::~RepeatingTimer() = default;

} // namespace platform
