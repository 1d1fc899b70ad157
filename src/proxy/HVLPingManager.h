// Measures the relay proxies on a schedule and keeps the file of the best ones up to date.
#pragma once

#include "foundation/guarded.h"
#include "foundation/operation_queue.h"
#include "platform/notifications.h"
#include "platform/run_loop.h"
#include "proxy/HVLPingMutableArray.h"
#include "proxy/HVLPingOperation.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace havrel {

/// One turn of the pinger's schedule.
struct PingerCycle {
    /// A full turn also measures all known best proxies, before and after the top five.
    bool isFull = false;
    /// How long the top five get to answer.
    std::chrono::seconds topFiveWait{0};
    /// The pause after this turn.
    std::chrono::minutes pause{0};
    /// The counter of the next turn.
    unsigned next = 0;
};

/// The turn for a counter and the pause of the turn before; the first turn has counter 0 and is given 8 minutes.
PingerCycle pingerCycle(unsigned counter, std::chrono::minutes pause);

/// Constructed, started, registered and destroyed on the main thread; otherwise thread-safe. All passes of a manager
/// share one queue of at most 50 pings at once, so the wait of one pass also waits for the pings of the other, and its
/// final cancel also cancels them. Where a list is written, a record that lacks a text is left out. The destructor
/// interrupts every wait but not the running pings, so it may take ten seconds; a pass that it interrupts writes and
/// posts nothing.
class HVLPingManager {
  public:
    /// Reads both files and observes "HVLProxyStateChangedNotification".
    HVLPingManager();
    /// A snapshot of both files, without a queue or an observer; it pings nothing.
    static HVLPingManager initWithPlist();
    ~HVLPingManager();
    HVLPingManager(const HVLPingManager&) = delete;
    HVLPingManager& operator=(const HVLPingManager&) = delete;

    /// Rereads the files into `plistPingArray` and `allProxyListArray`. Throws as platform::files::read does, as do the
    /// measurements, which read the files, too; nothing is written then.
    void getPingFromFile();

    void registerProxyChangeNotification();
    void unregisterProxyChangeNotification();
    /// Runs `proxyListUpdateProcess` in the background. At most eight passes run at once, so that a flood of
    /// notifications can't exhaust the machine; a call that finds a pass still waiting to begin shares it.
    void updatePingFromLatestProxy();

    /// Starts another pinger thread. If no thread can be made, the main run loop tries again every minute.
    void startPingOnNewThread();
    /// Starts a thread that runs `startPing` once.
    void startPingOnNewThreadForUpdateOnce();
    /// Asks the pinger threads to end after their current turn and cancels the waiting pings.
    void stop();

    void stopPingerThread() { stop(); }

    /// `doPingInTimeOut` of 60 seconds; sets the preference `isPingToProxyDone` to false before and to true after it,
    /// then posts "BestThreeProxyFoundNotification". One call at a time.
    void startPing();
    /// Pings `plistPingArray` for at most that many seconds and writes the at most 50 fastest with a latency to
    /// Proxies.plist, unless `plistPingArray` was replaced or any manager's all-proxies pass wrote the file meanwhile:
    /// the file then has, or will get, a newer list. If such a pass did before, rereads the file first.
    void doPingInTimeOut(std::int32_t seconds);
    /// Pings `allProxyListArray` for at most 60 seconds and writes it to AllProxies.plist. If at least 50 proxies have
    /// a latency, also writes the fastest 50 to Proxies.plist, posts, and removes the install marker. Those with a
    /// latency become the `plistPingArray`, unless there are none.
    void startPingForAllProxies();
    /// Pings the five fastest of Proxies.plist, sleeps that many seconds, then stores their latencies in the file as it
    /// is by then and posts. If no proxy in the file has a latency, fills it from AllProxies.plist without a post.
    void pintThreeBestProxiesOnOneHr(std::int32_t seconds);
    /// Rereads the files, waits until `isPingCompleted`, and runs `startPingForAllProxies`.
    void proxyListUpdateProcess();

    /// `toJSONFormat` and `toRegisterJSONFormat` of `pingArray`.
    std::string toJSON() const;
    std::string toRegisterJSON() const;
    /// Whether no record of `pingArray` has a latency other than 0.
    bool isAllZeroPings() const;
    /// Drops the zero latencies from `pingArray`, sorts it and picks its first record (or the one at the index), which
    /// becomes `bestProxyToConnect` and is printed on standard output; null if there is none.
    HVLPingHostPtr bestProxyOnCurrentProxyPings();
    HVLPingHostPtr bestProxyOnCurrentProxyPingsWithPno(std::int32_t index);

    /// Drops the zero latencies from both lists. If both have records left, returns a sum record for each record of
    /// `list` that `source` finds by name; else the records of the list that isn't empty.
    static HVLPingMutableArray generateTotalOfPings(HVLPingMutableArray& list, HVLPingMutableArray& source);
    /// The same with a copy of the record of `list` instead of the sum.
    static HVLPingMutableArray fethProxyRechableToBoth(HVLPingMutableArray& list, HVLPingMutableArray& source);

    // The lists are copies that share their records.

    /// The result of the last measurement of the best proxies.
    HVLPingMutableArray pingArray() const { return pingArray_.get(); }

    /// What a measurement of the best proxies pings.
    HVLPingMutableArray plistPingArray() const;

    /// The result of the last all-proxies pass.
    HVLPingMutableArray allListArray() const { return allListArray_.get(); }

    /// What an all-proxies pass pings.
    HVLPingMutableArray allProxyListArray() const { return allProxyListArray_.get(); }

    /// Not used by any operation.
    HVLPingMutableArray finalPingArray() const { return finalPingArray_.get(); }

    void setFinalPingArray(HVLPingMutableArray list) { finalPingArray_.set(std::move(list)); }

    HVLPingHostPtr bestProxyToConnect() const { return bestProxyToConnect_.get(); }

    /// Null in a snapshot.
    const platform::OperationQueue* pingingQueue() const { return pingingQueue_ ? &*pingingQueue_ : nullptr; }

    /// Despite its name the stop request: the pinger runs while it is false.
    bool isPinging() const { return isPinging_; }

    /// False from the start of a measurement or a pinger's turn until its results are stored.
    bool isPingCompleted() const { return isPingCompleted_; }

  private:
    struct Snapshot {};

    /// What was in Proxies.plist, and which of the lists that were ever put there it is.
    struct BestProxies {
        HVLPingMutableArray list;
        unsigned generation = 0;
    };

    /// Never changed, so its address tells whether a list has been replaced.
    using BestProxiesPtr = std::shared_ptr<const BestProxies>;

    explicit HVLPingManager(Snapshot);

    using ThreadBody = void (HVLPingManager::*)(const std::stop_token&);
    void startThread(ThreadBody body);
    void startPingerThread(const std::stop_token& cancelled);
    void startPingerThreadForUpdateOnce(const std::stop_token& cancelled);
    void runTurn(const PingerCycle& cycle);
    void readBestProxies();
    BestProxiesPtr newestBestProxies();
    static void refillBestProxies();
    std::vector<std::shared_ptr<HVLPingOperation>> addPings(const HVLPingMutableArray& list);
    bool pingAll(const HVLPingMutableArray& list, std::int32_t seconds);
    void measureAllOnceCompleted();

    platform::Guarded<HVLPingMutableArray> pingArray_;
    /// Null until the file could be read.
    platform::Guarded<BestProxiesPtr> plistPingArray_;
    platform::Guarded<HVLPingMutableArray> finalPingArray_;
    platform::Guarded<HVLPingMutableArray> allListArray_;
    platform::Guarded<HVLPingMutableArray> allProxyListArray_;
    platform::Guarded<HVLPingHostPtr> bestProxyToConnect_;
    std::atomic<bool> isPinging_{false};
    std::atomic<bool> isPingCompleted_{false};

    /// Held by `startPing` for its whole run.
    std::mutex oneStartPing_;
    /// Interrupts every wait in the destructor.
    std::stop_source ending_;
    platform::ObservationPtr observation_;
    /// Starts the pinger thread that couldn't be made; null when there is none to start.
    std::unique_ptr<platform::RepeatingTimer> startRetry_;
    /// Nullopt in a snapshot.
    std::optional<platform::OperationQueue> pingingQueue_;
    // Last, so that their threads end before the fields above are destroyed.
    platform::OperationQueue updatePasses_;
    platform::OperationQueue updateReads_;
    platform::Guarded<std::vector<std::jthread>> pingerThreads_;
};

} // namespace havrel
