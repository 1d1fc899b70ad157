// The process's one connection to the system bus. It belongs to a thread of its own, so that neither a slow handler
// nor a slow bus ever holds up a post.
#pragma once

#include "foundation/limited_report.h"
#include "platform/linux/bus/backoff.h"
#include "platform/linux/loop/event_loop.h"
#include "platform/run_loop.h"

#include <atomic>
#include <chrono>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <systemd/sd-bus.h>
#include <vector>

namespace platform {

struct BusSlotRelease {
    void operator()(sd_bus_slot* slot) const { sd_bus_slot_unref(slot); }
};

/// A match, or a call that waits for its reply. Destroying it removes the match or drops the reply.
using BusSlot = std::unique_ptr<sd_bus_slot, BusSlotRelease>;

/// Subscribes to what fits the match rule. Does not wait for the bus; a refusal is reported.
BusSlot addMatch(sd_bus& bus, const std::string& rule, sd_bus_message_handler_t handler, void* data);

/// The message of an error that was received, or its name: many come without a message.
std::string errorMessage(const sd_bus_error& error);

/// Told about connections, on the bus thread.
class BusListener {
  public:
    BusListener() = default;
    virtual ~BusListener() = default;
    BusListener(const BusListener&) = delete;
    BusListener& operator=(const BusListener&) = delete;

    /// There is a new connection; nothing queued has been sent on it yet.
    virtual void connected(sd_bus& bus) = 0;
    /// The connection is about to be freed: slots on it must be destroyed now.
    virtual void disconnected() = 0;
};

/// Thread-safe.
class BusConnection {
  public:
    /// Sends messages. May be called once more, on a new connection.
    using Work = std::function<void(sd_bus& bus)>;

    /// Never destroyed: other threads may post until the process has ended. What its thread and loop need is tried
    /// again until it can be had; until then all work waits.
    static BusConnection& shared();

    /// For connections made from now on; on the present one, the listener sends what it needs by itself. It must live
    /// as long as the process.
    void addListener(BusListener& listener);

    /// Queues work for the bus thread and returns at once. It is done in the order of the calls, when there is a
    /// connection and everything before is written to it; again, on the next connection, when the present one is lost
    /// before all of it is written. Then the work is destroyed.
    void send(Work work);

    /// Calls `done`, on the bus thread, once the bus has dealt with everything sent before, or has been lost since.
    void afterDelivery(std::function<void()> done);

    /// Blocks until the bus has dealt with everything sent before, at most until `timeout` has passed.
    void flush(std::chrono::milliseconds timeout);

  private:
    enum class State {
        waiting,    // for the time of the next attempt
        connecting, // at most until then
        connected,
        lost, // the connection is still to be dropped: that can't be done in its own callback
    };

    struct BusRelease {
        void operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }
    };

    BusConnection();
    void startThread();
    void serve();
    bool prepareLoop();
    void attempt();
    void open();
    void onConnected();
    void onRetryTime();
    void afterDispatch();
    void drop();
    void sendQueued();
    bool removeWritten();
    void reportMissing(std::string_view reason);
    std::vector<BusListener*> listeners();

    const std::string address_;
    const std::chrono::steady_clock::time_point startedAt_ = std::chrono::steady_clock::now();

    std::mutex mutex_;
    std::deque<Work> queue_;
    std::vector<BusListener*> listeners_;
    /// nullptr until the bus thread has one.
    std::unique_ptr<RunLoop> loop_;
    std::atomic<State> state_{State::waiting};

    LimitedReport startFailed_{1};
    /// The main loop's own; only while the bus thread can't be started.
    std::unique_ptr<RepeatingTimer> startTimer_;

    // The bus thread's own.
    std::unique_ptr<RunLoop::Source> keepsRunning_;
    std::unique_ptr<sd_bus, BusRelease> bus_;
    BusSlot onConnected_;
    BusSlot onLost_;
    EventSource retry_;
    EventSource afterDispatch_;
    Backoff backoff_;
    std::chrono::steady_clock::time_point retryTime_;
    std::optional<std::chrono::steady_clock::time_point> connectedAt_;
    bool frontIsSent_ = false;
    bool missingIsReported_ = false;
};

} // namespace platform
