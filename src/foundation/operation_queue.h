// A concurrent operation queue: operations start in the order added, a limited number at once, on worker threads that
// end when there is nothing left to run. Thread-safe.
#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>

namespace platform {

/// A unit of work. Cancelling only sets a flag, which `main` may look at.
class Operation {
  public:
    virtual ~Operation() = default;
    /// Called once, on a worker thread. An exception is reported and ends this operation only.
    virtual void main() = 0;

    void cancel() { cancelled_ = true; }

    bool isCancelled() const { return cancelled_; }

  private:
    std::atomic<bool> cancelled_{false};
};

class OperationQueue {
  public:
    explicit OperationQueue(std::size_t maxConcurrentOperationCount);
    /// Drops the operations that wait, cancels those that run and blocks until they have ended.
    ~OperationQueue();
    OperationQueue(const OperationQueue&) = delete;
    OperationQueue& operator=(const OperationQueue&) = delete;

    /// The queue shares ownership of the operation until it has ended. If no thread can be made, the operation waits,
    /// and each call of this and of `operationCount` tries again.
    void addOperation(std::shared_ptr<Operation> operation);
    /// The same for work that runs to its end once it has begun.
    void addOperation(std::function<void()> work);
    /// How many are waiting or running.
    std::size_t operationCount() const;
    /// Cancels every operation and drops those that wait; those that run go on until they return.
    void cancelAllOperations();

  private:
    struct State;

    /// Starts the workers that are missing, with the mutex held.
    static void startWorkers(const std::shared_ptr<State>& state);

    std::shared_ptr<State> state_;
};

} // namespace platform
