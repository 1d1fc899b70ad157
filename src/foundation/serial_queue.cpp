#include "foundation/serial_queue.h"

#include "foundation/diagnostics.h"

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <thread>

namespace platform {

struct SerialQueue::State {
    std::string label;
    std::chrono::milliseconds delay{};
    std::mutex mutex;
    std::condition_variable queued;
    std::condition_variable hurried;
    std::condition_variable finished;
    std::deque<std::function<void()>> tasks;
    std::uint64_t submitted = 0;
    std::uint64_t completed = 0;
    std::size_t draining = 0;
    bool ending = false;
    std::thread thread;

    void run();
};

void SerialQueue::State::run() {
    std::unique_lock lock(mutex);
    while (true) {
        queued.wait(lock, [this] { return ending || !tasks.empty(); });
        if (tasks.empty()) {
            return;
        }
        hurried.wait_for(lock, delay, [this] { return ending || draining > 0; });
        auto task = std::move(tasks.front());
        tasks.pop_front();
        lock.unlock();
        diagnostics::contain(label, task);
        task = nullptr; // destroyed while the lock is released
        lock.lock();
        ++completed;
        finished.notify_all();
    }
}

SerialQueue::SerialQueue(std::string label, std::chrono::milliseconds delay) : state_(std::make_unique<State>()) {
    state_->label = std::move(label);
    state_->delay = delay;
}

SerialQueue::~SerialQueue() {
    {
        const std::lock_guard lock(state_->mutex);
        state_->ending = true;
    }
    state_->queued.notify_one();
    state_->hurried.notify_one();
    if (state_->thread.joinable()) {
        state_->thread.join();
    }
}

void SerialQueue::async(std::function<void()> task) {
    const std::lock_guard lock(state_->mutex);
    if (!state_->thread.joinable()) {
        state_->thread = std::thread([state = state_.get()] { state->run(); });
    }
    state_->tasks.push_back(std::move(task));
    ++state_->submitted;
    state_->queued.notify_one();
}

void SerialQueue::drain() {
    std::unique_lock lock(state_->mutex);
    ++state_->draining;
    state_->hurried.notify_one();
    state_->finished.wait(lock, [this, last = state_->submitted] { return state_->completed >= last; });
    --state_->draining;
}

} // namespace platform
