// A serial dispatch queue: tasks run one at a time, in the order submitted, on a thread of the queue's own.
// Thread-safe.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>

namespace platform {

class SerialQueue {
  public:
    /// `label` names the queue in diagnostics. A task begins no sooner than `delay` after it could, so that it can take
    /// along what comes meanwhile; at once when `drain` or the destructor waits for it.
    explicit SerialQueue(std::string label, std::chrono::milliseconds delay = {});
    /// Blocks until every queued task has run.
    ~SerialQueue();
    SerialQueue(const SerialQueue&) = delete;
    SerialQueue& operator=(const SerialQueue&) = delete;

    /// Queues a task and returns at once. A task's exception is reported and ends that task only. Throws
    /// std::system_error, with nothing queued, when the queue's thread can't be started.
    void async(std::function<void()> task);
    /// Blocks until everything queued before the call has run. Not from a task of this queue.
    void drain();

  private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace platform
