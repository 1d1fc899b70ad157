// Measures the relay proxies on a schedule and keeps the file of the best ones up to date.
#pragma once

#include "foundation/operation_queue.h"
#include "platform/notifications.h"
#include "proxy/HVLPingMutableArray.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>

namespace havrel {

/// One turn of the pinger's schedule.
struct PingerCycle {
    /// A full turn measures all known best proxies before and after the top five.
    bool isFull = false;
    /// How long the top five are given to answer.
    std::chrono::seconds topFiveWait{0};
    /// The pause after this turn and, unless a turn lengthens it, after those to come.
    std::chrono::minutes pause{0};
    /// The counter of the next turn.
    unsigned next = 0;

    bool operator==(const PingerCycle&) const = default;
};

/// The turn for a counter (0 at first) and the pause so far (8 minutes at first).
PingerCycle pingerCycle(unsigned counter, std::chrono::minutes pause);

/// The most records that Proxies.plist holds.
inline constexpr std::size_t bestProxyLimit = 50;

/// Made, started, registered and destroyed on the main thread; every other operation may be called from any thread. All
/// passes of a manager share one queue of at most 50 pings at once, so that one pass's wait and its final
/// cancel also reach the other's pings. Destruction interrupts every wait and takes as long as the pings that run (ten
/// seconds at the most); a pass cut short by it writes no list and posts nothing.
class HVLPingManager {
  public:
    /// Reads both files, observes "HVLProxyStateChangedNotification" and makes the queue.
    HVLPingManager();
    /// A snapshot of both files, without queue and observer: what it is asked to ping stays as it is.
    static HVLPingManager initWithPlist();
    ~HVLPingManager();
    HVLPingManager(const HVLPingManager&) = delete;
    HVLPingManager& operator=(const HVLPingManager&) = delete;

    /// Reads the files again into `plistPingArray` and `allProxyListArray`.
    void getPingFromFile();

    void registerProxyChangeNotification();
    void unregisterProxyChangeNotification();
    /// The steps of `proxyListUpdateProcess` in the background: first the files are read, whatever passes are under
    /// way, then a pass begins, at most eight of them side by side. A call shares a step that waits for its turn.
    void updatePingFromLatestProxy();

    /// Starts a pinger thread; one that already runs goes on.
    void startPingOnNewThread();
    /// The same with a thread that runs `startPing` once.
    void startPingOnNewThreadForUpdateOnce();
    /// Cancels the pinger threads and the waiting pings; what has begun goes on to its end.
    void stop();

    void stopPingerThread() { stop(); }

    /// A measurement of 60 seconds at most, announced in the host preferences and by notification. One at a time.
    void startPing();
    /// Pings `plistPingArray` for that many seconds at most and writes those that ever answered, fastest first, at most
    /// 50, to Proxies.plist. Raises when a record can't be written.
    void doPingInTimeOut(std::int32_t seconds);
    /// Pings `allProxyListArray` for 60 seconds at most and writes it to AllProxies.plist; when at least 50 have an
    /// answer, also writes the fastest 50 to Proxies.plist, posts, and removes the install marker.
    void startPingForAllProxies();
    /// Pings the five best of Proxies.plist, gives them that many seconds, and puts their latencies into the file as it
    /// stands then. With nothing to ping the file is filled from AllProxies.plist instead, without a post.
    void pintThreeBestProxiesOnOneHr(std::int32_t seconds);
    /// Reads the files, waits for the measurement under way to be complete, and runs `startPingForAllProxies`.
    void proxyListUpdateProcess();

    /// `toJSONFormat` and `toRegisterJSONFormat` of `pingArray`.
    std::string toJSON() const;
    std::string toRegisterJSON() const;
    /// Whether no record of `pingArray` has a latency.
    bool isAllZeroPings() const;
    /// Drops the zero latencies from `pingArray`, sorts it and picks its first record (the one at the index), which
    /// becomes `bestProxyToConnect` and is named on standard output; null when there is none.
    HVLPingHostPtr bestProxyOnCurrentProxyPings();
    HVLPingHostPtr bestProxyOnCurrentProxyPingsWithPno(std::int32_t index);

    /// Drops the zero latencies of both lists. If both have records left: for each record of `list` that `source` finds
    /// by name, the sum of both; else the records of the one that has some.
    static HVLPingMutableArray generateTotalOfPings(HVLPingMutableArray& list, HVLPingMutableArray& source);
    /// The same with a copy of the record of `list` in the place of the sum.
    static HVLPingMutableArray fethProxyRechableToBoth(HVLPingMutableArray& list, HVLPingMutableArray& source);

    /// The lists are copies that share their records.
    HVLPingMutableArray pingArray() const { return copyOf(pingArray_); }

    HVLPingMutableArray plistPingArray() const { return copyOf(plistPingArray_); }

    HVLPingMutableArray allListArray() const { return copyOf(allListArray_); }

    HVLPingMutableArray allProxyListArray() const { return copyOf(allProxyListArray_); }

    /// Kept for the manager's users; no operation uses it.
    HVLPingMutableArray finalPingArray() const { return copyOf(finalPingArray_); }

    void setFinalPingArray(HVLPingMutableArray list) { assign(finalPingArray_, std::move(list)); }

    HVLPingHostPtr bestProxyToConnect() const { return copyOf(bestProxyToConnect_); }

    /// Null in a snapshot.
    const platform::OperationQueue* pingingQueue() const { return pingingQueue_ ? &*pingingQueue_ : nullptr; }

    /// Despite its name the stop request: the pinger goes on while it is false.
    bool isPinging() const { return isPinging_; }

    /// False from the start of a measurement, or of a pinger's turn, until a measurement has stored its results.
    bool isPingCompleted() const { return copyOf(isPingCompleted_); }

  private:
    struct Snapshot {};

    explicit HVLPingManager(Snapshot);

    void startThread(void (HVLPingManager::*body)(const std::stop_token&));
    void startPingerThread(const std::stop_token& cancelled);
    void startPingerThreadForUpdateOnce(const std::stop_token& cancelled);
    void runCycle(const PingerCycle& cycle);
    static void refillFrom(HVLPingMutableArray all);
    void addPings(const HVLPingMutableArray& list);
    bool pingAll(const HVLPingMutableArray& list, std::int32_t seconds);
    void setPingCompleted(bool completed);
    void measureAllOnceCompleted();

    template <typename Field>
    Field copyOf(const Field& field) const {
        const std::lock_guard lock(fields_);
        return field;
    }

    template <typename Field>
    void assign(Field& field, Field value) {
        const std::lock_guard lock(fields_);
        field = std::move(value);
    }

    /// Held only to copy or set the fields behind it.
    mutable std::mutex fields_;
    std::condition_variable_any completed_;
    HVLPingMutableArray pingArray_;
    HVLPingMutableArray plistPingArray_;
    HVLPingMutableArray finalPingArray_;
    HVLPingMutableArray allListArray_;
    HVLPingMutableArray allProxyListArray_;
    HVLPingHostPtr bestProxyToConnect_;
    bool isPingCompleted_ = false;

    std::atomic<bool> isPinging_{false};
    /// One `startPing` at a time.
    std::mutex startPing_;
    /// Cancels the pinger threads that were started since the last stop.
    std::stop_source pingerStop_;
    /// Interrupts every wait at destruction.
    std::stop_source ending_;
    platform::ObservationPtr observation_;
    /// Absent in a snapshot. Declared before what uses it, which thereby ends first.
    std::optional<platform::OperationQueue> pingingQueue_;
    platform::OperationQueue updatePasses_;
    platform::OperationQueue updateReads_;
    platform::OperationQueue pingerThreads_;
};

} // namespace havrel
