#include "foundation/operation_queue.h"

#include "foundation/diagnostics.h"
#include "foundation/limited_report.h"

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace platform {

using OperationPtr = std::shared_ptr<Operation>;

namespace {

class FunctionOperation : public Operation {
  public:
    explicit FunctionOperation(std::function<void()> work) : work_(std::move(work)) {}

    void main() override { work_(); }

  private:
    std::function<void()> work_;
};

} // namespace

/// Shared with the workers, which may outlive the queue by a moment.
struct OperationQueue::State {
    const std::size_t maxWorkers;
    mutable std::mutex mutex;
    std::condition_variable idle;
    std::deque<OperationPtr> waiting;
    std::vector<OperationPtr> running;
    std::size_t workers = 0;

    explicit State(std::size_t maximum) : maxWorkers(std::max<std::size_t>(maximum, 1)) {}

    /// The next operation to run, or null, which ends the calling worker.
    OperationPtr next() {
        const std::lock_guard lock(mutex);
        if (waiting.empty()) {
            --workers;
            idle.notify_all();
            return nullptr;
        }
        running.push_back(std::move(waiting.front()));
        waiting.pop_front();
        return running.back();
    }

    /// With the mutex held.
    std::size_t operationCount() const { return waiting.size() + running.size(); }

    void ended(const OperationPtr& operation) {
        const std::lock_guard lock(mutex);
        running.erase(std::find(running.begin(), running.end(), operation));
    }

    void work() {
        while (const OperationPtr operation = next()) {
            diagnostics::contain("operation", [&] { operation->main(); });
            ended(operation);
        }
    }

    void cancelAll() {
        std::deque<OperationPtr> dropped; // destroyed after the lock has been released
        const std::lock_guard lock(mutex);
        dropped.swap(waiting);
        for (const auto& operation : dropped) {
            operation->cancel();
        }
        for (const auto& operation : running) {
            operation->cancel();
        }
    }
};

void OperationQueue::startWorkers(const std::shared_ptr<State>& state) {
    const std::size_t wanted = std::min(state->maxWorkers, state->operationCount());
    try {
        while (state->workers < wanted) {
            std::thread([state] { state->work(); }).detach();
            ++state->workers;
        }
    } catch (const std::system_error& error) {
        static LimitedReport report(1);
        report(std::string("operation queue: no thread, tried again later: ") + error.what());
    }
}

OperationQueue::OperationQueue(std::size_t maxConcurrentOperationCount)
    : state_(std::make_shared<State>(maxConcurrentOperationCount)) {}

OperationQueue::~OperationQueue() {
    state_->cancelAll();
    std::unique_lock lock(state_->mutex);
    state_->idle.wait(lock, [this] { return state_->workers == 0; });
}

void OperationQueue::addOperation(std::shared_ptr<Operation> operation) {
    const std::lock_guard lock(state_->mutex);
    state_->waiting.push_back(std::move(operation));
    startWorkers(state_);
}

void OperationQueue::addOperation(std::function<void()> work) {
    addOperation(std::make_shared<FunctionOperation>(std::move(work)));
}

std::size_t OperationQueue::operationCount() const {
    const std::lock_guard lock(state_->mutex);
    startWorkers(state_);
    return state_->operationCount();
}

void OperationQueue::cancelAllOperations() { state_->cancelAll(); }

} // namespace platform
