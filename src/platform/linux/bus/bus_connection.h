// The process's one connection to the system bus. It belongs to a thread of its own, so that neither a slow handler
// nor a slow bus ever holds up a post.
#pragma once

#include "platform/linux/loop/event_loop.h"
#include "platform/run_loop.h"

#include <chrono>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <systemd/sd-bus.h>
#include <thread>
#include <vector>

namespace platform {

struct BusSlotRelease {
    void operator()(sd_bus_slot* slot) const { sd_bus_slot_unref(slot); }
};

/// A match or a call that waits for its reply; ends with this object.
using BusSlot = std::unique_ptr<sd_bus_slot, BusSlotRelease>;

/// A subscription by a match rule. The bus is not waited for; its refusal is reported.
BusSlot addMatch(sd_bus& bus, const std::string& rule, sd_bus_message_handler_t handler, void* data);

/// What an error that has been received says; many come without a message.
std::string textOf(const sd_bus_error& error);

/// Who has something to set up on every new connection. Called on the bus thread.
class BusUser {
  public:
    BusUser() = default;
    virtual ~BusUser() = default;
    BusUser(const BusUser&) = delete;
    BusUser& operator=(const BusUser&) = delete;

    /// Comes before everything that is queued.
    virtual void connected(sd_bus& bus) = 0;
    /// Slots must be let go of.
    virtual void lost() = 0;
};

class BusConnection {
  public:
    /// What waits for the bus, in `cost` of `send`; what comes beyond is refused.
    static constexpr std::size_t maxQueuedMessages = 16384;
    static constexpr std::size_t maxQueuedCost = std::size_t{16} << 20;

    using Work = std::function<void(sd_bus& bus)>;

    /// Never destroyed: other threads may post until the process has ended. First called by a thread that may be the
    /// first one to call RunLoop::main.
    static BusConnection& shared();

    /// Users live as long as the process. For connections made from now on; what the present one needs is sent.
    void addUser(BusUser& user);

    /// Queues work that sends messages, to be done on the bus thread in the order of the calls, once there is a
    /// connection and what came before is written to it. Done again on the next connection when this one is lost before
    /// all is written. From any thread. False when the queue is full; work without a cost is never refused.
    bool send(std::size_t cost, Work work);

    /// Lets go of `kept` on the bus thread when the bus has dealt with everything sent before, or is lost then.
    void releaseAfterDelivery(std::shared_ptr<void> kept);

    /// Blocks until the bus has dealt with everything sent before, or for `deadline` at the most.
    void flush(std::chrono::milliseconds deadline);

  private:
    struct BusRelease {
        void operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }
    };

    struct Queued {
        std::size_t cost;
        Work work;
    };

    BusConnection();
    void attempt();
    void open();
    void onConnected();
    void onRetryTime();
    void afterDispatch();
    void dropConnection();
    void sendQueued();
    bool popWritten();
    void reportMissing(std::string_view reason);

    const std::string address_;

    std::mutex mutex_;
    std::deque<Queued> queue_;
    std::size_t queuedMessages_ = 0;
    std::size_t queuedCost_ = 0;
    std::vector<BusUser*> users_;
    bool connected_ = false;

    // The bus thread's own.
    RunLoop loop_;
    RunLoop::Source keepsRunning_{loop_};
    std::unique_ptr<sd_bus, BusRelease> bus_;
    BusSlot onConnected_;
    BusSlot onDisconnected_;
    EventSource retry_;
    EventSource afterDispatch_;
    std::chrono::milliseconds pause_;
    std::chrono::steady_clock::time_point connectedAt_;
    bool retryDue_ = false;
    bool disconnected_ = false;
    bool frontIsSent_ = false;
    bool reportedMissing_ = false;

    std::thread thread_;
};

} // namespace platform
