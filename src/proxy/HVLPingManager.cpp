#include "proxy/HVLPingManager.h"

#include "foundation/diagnostics.h"
#include "foundation/format.h"
#include "logging/HVLLogger.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "prefs/HVLUserPrefManager.h"
#include "proxy/HVLPingOperation.h"
#include "util/ProductPaths.h"

#include <functional>
#include <utility>

namespace havrel {

namespace text = platform::text;

namespace {

constexpr std::size_t concurrentPings = 50;
/// All-proxies passes side by side; whoever posts notifications at will must not fill the machine with threads.
constexpr std::size_t concurrentUpdates = 8;
constexpr std::size_t concurrentReads = 1;
/// More than anybody starts: none waits for another.
constexpr std::size_t concurrentPingers = 64;
constexpr std::size_t topFive = 5;

// Seconds that the passes wait for their pings.
constexpr std::int32_t firstMeasurement = 10;
constexpr std::int32_t fullMeasurement = 60;

void log(const std::string& line) { HVLLogger::instanceHost().logString(line); }

void setPingToProxyDone(bool done) { hostPreferences().setIsPingToProxyDone(done); }

void postBestProxiesFound() { platform::distributed_center::post("BestThreeProxyFoundNotification"); }

void keepAnsweredFastestFirst(HVLPingMutableArray& list) {
    list.removeAllZeroPings();
    list.sortPingArrayByMinimumPingTime();
}

void keepAtMost(HVLPingMutableArray& list, std::size_t limit) {
    if (list.count() > limit) {
        list.removeObjectsInRange(limit, list.count() - limit);
    }
}

/// What two measurements of the same proxies have in common, `combine` making the record from both sides'.
template <typename Combine>
HVLPingMutableArray combined(HVLPingMutableArray& list, HVLPingMutableArray& source, const Combine& combine) {
    list.removeAllZeroPings();
    source.removeAllZeroPings();
    if (list.count() == 0 || source.count() == 0) {
        return list.count() != 0 ? list.copyArray() : source.copyArray();
    }
    HVLPingMutableArray result;
    for (const HVLPingHostPtr& host : list) {
        const HVLPingHostPtr found = source.findHost(host->hostName());
        if (const HVLPingHostPtr record = found ? combine(*host, *found) : nullptr) {
            result.addObject(record);
        }
    }
    return result;
}

class Task : public platform::Operation {
  public:
    explicit Task(std::function<void()> work) : work_(std::move(work)) {}

    void main() override { work_(); }

  private:
    std::function<void()> work_;
};

/// Queues the work, unless the queue holds more than it runs at once and so some that has not begun: that will do for
/// this one as well.
void addUnlessCovered(platform::OperationQueue& queue, std::size_t concurrent, std::function<void()> work) {
    if (queue.operationCount() <= concurrent) {
        queue.addOperation(std::make_shared<Task>(std::move(work)));
    }
}

} // namespace

PingerCycle pingerCycle(unsigned counter, std::chrono::minutes pause) {
    constexpr unsigned cyclesPerRound = 23;
    constexpr unsigned quickCycles = 3;
    if (counter % cyclesPerRound == 0) {
        return {true, std::chrono::seconds(1), pause, 1};
    }
    if (counter >= quickCycles) {
        return {false, std::chrono::seconds(15), std::chrono::minutes(60), counter + 1};
    }
    return {false, std::chrono::seconds(1), pause, counter + 1};
}

HVLPingManager::HVLPingManager(Snapshot /*tag*/)
    : updatePasses_(concurrentUpdates)
    , updateReads_(concurrentReads)
    , pingerThreads_(concurrentPingers) {
    getPingFromFile();
    pingArray_ = plistPingArray_.copyArray();
    allListArray_ = allProxyListArray_.copyArray();
}

HVLPingManager::HVLPingManager() : HVLPingManager(Snapshot{}) {
    pingingQueue_.emplace(concurrentPings);
    registerProxyChangeNotification();
}

HVLPingManager HVLPingManager::initWithPlist() { return HVLPingManager(Snapshot{}); }

HVLPingManager::~HVLPingManager() {
    unregisterProxyChangeNotification();
    ending_.request_stop();
    stop();
}

void HVLPingManager::getPingFromFile() {
    assign(plistPingArray_, HVLPingMutableArray::initWithPlistWithPath(paths::proxies));
    assign(allProxyListArray_, HVLPingMutableArray::initWithPlistWithPath(paths::allProxies));
}

void HVLPingManager::registerProxyChangeNotification() {
    observation_ = platform::distributed_center::addObserver(
        "HVLProxyStateChangedNotification", [this](const platform::Notification&) { updatePingFromLatestProxy(); });
}

void HVLPingManager::unregisterProxyChangeNotification() { observation_.reset(); }

void HVLPingManager::updatePingFromLatestProxy() {
    // The files are read now, whatever passes are under way: those write down their own, older lists when they end.
    addUnlessCovered(updateReads_, concurrentReads, [this] {
        getPingFromFile();
        addUnlessCovered(updatePasses_, concurrentUpdates, [this] { measureAllOnceCompleted(); });
    });
}

void HVLPingManager::startPingOnNewThread() { startThread(&HVLPingManager::startPingerThread); }

void HVLPingManager::startPingOnNewThreadForUpdateOnce() {
    startThread(&HVLPingManager::startPingerThreadForUpdateOnce);
}

void HVLPingManager::startThread(void (HVLPingManager::*body)(const std::stop_token&)) {
    setPingCompleted(false);
    pingerThreads_.addOperation(std::make_shared<Task>(
        [this, body, cancelled = copyOf(pingerStop_).get_token()] { (this->*body)(cancelled); }));
}

void HVLPingManager::stop() {
    isPinging_ = true;
    {
        const std::lock_guard lock(fields_);
        // A new one for the threads to come.
        std::exchange(pingerStop_, std::stop_source()).request_stop();
    }
    if (pingingQueue_) {
        pingingQueue_->cancelAllOperations();
    }
}

void HVLPingManager::startPingerThread(const std::stop_token& cancelled) {
    isPinging_ = false;
    PingerCycle cycle{.pause = std::chrono::minutes(8)};
    do {
        if (cancelled.stop_requested()) {
            return;
        }
        setPingCompleted(false);
        cycle = pingerCycle(cycle.next, cycle.pause);
        // A turn that fails, say on a proxy file that someone has spoilt, must not end those to come.
        platform::diagnostics::contain("pinger", [&] { runCycle(cycle); });
        platform::clock::sleep(cycle.pause, cancelled);
    } while (!isPinging_);
}

void HVLPingManager::startPingerThreadForUpdateOnce(const std::stop_token& /*cancelled*/) { startPing(); }

void HVLPingManager::runCycle(const PingerCycle& cycle) {
    if (cycle.isFull) {
        doPingInTimeOut(firstMeasurement);
    }
    pintThreeBestProxiesOnOneHr(static_cast<std::int32_t>(cycle.topFiveWait.count()));
    if (cycle.isFull) {
        startPing();
    }
}

void HVLPingManager::startPing() {
    const std::lock_guard oneAtATime(startPing_);
    if (ending_.stop_requested()) {
        return;
    }
    setPingToProxyDone(false);
    doPingInTimeOut(fullMeasurement);
    if (!ending_.stop_requested()) {
        setPingToProxyDone(true);
        postBestProxiesFound();
    }
}

void HVLPingManager::doPingInTimeOut(std::int32_t seconds) {
    setPingCompleted(false);
    HVLPingMutableArray best = plistPingArray();
    if (!pingAll(best, seconds)) {
        return;
    }
    keepAnsweredFastestFirst(best);
    keepAtMost(best, bestProxyLimit);
    assign(pingArray_, best);
    setPingCompleted(true);
    best.writeProxyOnFile(paths::proxies);
}

void HVLPingManager::startPingForAllProxies() {
    if (ending_.stop_requested()) {
        return;
    }
    setPingCompleted(false);
    HVLPingMutableArray all = allProxyListArray();
    if (!pingAll(all, fullMeasurement)) {
        return;
    }
    assign(allListArray_, all);
    setPingCompleted(true);
    all.writeProxyOnFile(paths::allProxies);
    keepAnsweredFastestFirst(all);
    assign(allListArray_, all);
    // What answered is what the best are measured among from now on.
    assign(plistPingArray_, all);
    // Fewer are no choice yet: the marker stays, so that the next start measures again.
    if (all.count() < bestProxyLimit) {
        return;
    }
    keepAtMost(all, bestProxyLimit);
    assign(plistPingArray_, all);
    all.writeProxyOnFile(paths::proxies);
    postBestProxiesFound();
    platform::files::remove(paths::hostInstallMarker);
}

void HVLPingManager::pintThreeBestProxiesOnOneHr(std::int32_t seconds) {
    if (ending_.stop_requested()) {
        return;
    }
    const HVLPingManager snapshot = initWithPlist();
    HVLPingMutableArray pinged = snapshot.pingArray();
    keepAnsweredFastestFirst(pinged);
    log(text::format("Five Best Proxies On OneHr Count - %lu", pinged.count()));
    if (pinged.count() == 0) {
        refillFrom(snapshot.allListArray());
        return;
    }
    keepAtMost(pinged, topFive);
    addPings(pinged);
    // Not a wait for the pings: those that take longer show in the file a cycle later.
    platform::clock::sleep(std::chrono::seconds(seconds), ending_.get_token());
    if (ending_.stop_requested()) {
        return;
    }
    const HVLPingMutableArray stored = initWithPlist().pingArray();
    for (const HVLPingHostPtr& host : pinged) {
        if (const HVLPingHostPtr found = stored.findHost(host->hostName())) {
            found->setPingTime(host->pingTime());
        }
    }
    stored.writeProxyOnFile(paths::proxies);
    postBestProxiesFound();
}

void HVLPingManager::proxyListUpdateProcess() {
    getPingFromFile();
    measureAllOnceCompleted();
}

void HVLPingManager::measureAllOnceCompleted() {
    {
        std::unique_lock lock(fields_);
        completed_.wait(lock, ending_.get_token(), [this] { return isPingCompleted_; });
    }
    startPingForAllProxies();
}

void HVLPingManager::refillFrom(HVLPingMutableArray all) {
    if (all.count() == 0) {
        return;
    }
    keepAnsweredFastestFirst(all);
    keepAtMost(all, bestProxyLimit);
    log("Top proxies list is empty. Helper Reupdate");
    all.writeProxyOnFile(paths::proxies);
}

void HVLPingManager::addPings(const HVLPingMutableArray& list) {
    if (!pingingQueue_) {
        return;
    }
    for (const HVLPingHostPtr& host : list) {
        pingingQueue_->addOperation(HVLPingOperation::initWithPingHost(host));
    }
}

bool HVLPingManager::pingAll(const HVLPingMutableArray& list, std::int32_t seconds) {
    if (ending_.stop_requested()) {
        return false;
    }
    addPings(list);
    if (pingingQueue_) {
        for (std::int32_t i = 0; i < seconds && pingingQueue_->operationCount() > 0; ++i) {
            platform::clock::sleep(std::chrono::seconds(1), ending_.get_token());
        }
        pingingQueue_->cancelAllOperations();
    }
    return !ending_.stop_requested();
}

void HVLPingManager::setPingCompleted(bool completed) {
    assign(isPingCompleted_, completed);
    completed_.notify_all();
}

std::string HVLPingManager::toJSON() const { return pingArray().toJSONFormat(); }

std::string HVLPingManager::toRegisterJSON() const { return pingArray().toRegisterJSONFormat(); }

bool HVLPingManager::isAllZeroPings() const { return pingArray().countNoZeroPingTimeProxies() == 0; }

HVLPingHostPtr HVLPingManager::bestProxyOnCurrentProxyPings() { return bestProxyOnCurrentProxyPingsWithPno(0); }

HVLPingHostPtr HVLPingManager::bestProxyOnCurrentProxyPingsWithPno(std::int32_t index) {
    HVLPingHostPtr best;
    {
        const std::lock_guard lock(fields_);
        keepAnsweredFastestFirst(pingArray_);
        // A negative index becomes one beyond every list.
        if (pingArray_.count() <= static_cast<std::size_t>(index)) {
            return nullptr;
        }
        best = pingArray_.objectAtIndex(static_cast<std::size_t>(index));
        bestProxyToConnect_ = best;
    }
    platform::diagnostics::print(text::format("--******* mimimum latency host app inializer=%@ and time= %ld ",
                                              best->ipAddr(), static_cast<std::int64_t>(best->pingTime())));
    return best;
}

HVLPingMutableArray HVLPingManager::generateTotalOfPings(HVLPingMutableArray& list, HVLPingMutableArray& source) {
    return combined(list, source,
                    [](const HVLPingHost& host, const HVLPingHost& other) { return host.addHostForSummetion(other); });
}

HVLPingMutableArray HVLPingManager::fethProxyRechableToBoth(HVLPingMutableArray& list, HVLPingMutableArray& source) {
    return combined(list, source, [](const HVLPingHost& host, const HVLPingHost& /*other*/) {
        auto copy = HVLPingHost::initWithHostName(host.hostName(), host.ipAddr(), host.mappHostName());
        copy->setPingTime(host.pingTime());
        return copy;
    });
}

} // namespace havrel
