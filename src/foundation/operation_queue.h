// A concurrent operation queue: operations start in the order added, at most so many at once, on worker threads that
// end when there is nothing left to run.
#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>

namespace platform {

/// A unit of work. Cancelling is a request: `main` looks for it.
class Operation {
  public:
    virtual ~Operation() = default;
    /// Runs on a worker thread, once. An exception is reported and ends this operation only.
    virtual void main() = 0;

    void cancel() { cancelled_ = true; }

    bool isCancelled() const { return cancelled_; }

  private:
    std::atomic<bool> cancelled_{false};
};

class OperationQueue {
  public:
    explicit OperationQueue(std::size_t maxConcurrentOperationCount);
    /// Cancels what waits and waits for what runs.
    ~OperationQueue();
    OperationQueue(const OperationQueue&) = delete;
    OperationQueue& operator=(const OperationQueue&) = delete;

    /// From any thread. The queue shares ownership of the operation until it has ended.
    void addOperation(std::shared_ptr<Operation> operation);
    /// The same for work that takes no notice of being cancelled once it runs.
    void addOperation(std::function<void()> work);
    /// How many are waiting or running.
    std::size_t operationCount() const;
    /// Cancels every operation; those that wait leave the queue unrun, those that run go on to their end.
    void cancelAllOperations();

  private:
    struct State;
    std::shared_ptr<State> state_;
};

} // namespace platform
