#include "proxy/HVLPingManager.h"

#include "foundation/diagnostics.h"
#include "foundation/format.h"
#include "foundation/limited_report.h"
#include "logging/HVLLogger.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/memory.h"
#include "prefs/HVLUserPrefManager.h"
#include "util/ProductPaths.h"
#include "util/ServiceStatus.h"

#include <algorithm>
#include <functional>
#include <system_error>
#include <utility>

namespace havrel {

namespace text = platform::text;

namespace {

constexpr std::size_t concurrentPings = 50;
constexpr std::size_t concurrentUpdates = 8;
constexpr std::size_t concurrentReads = 1;

/// The most records in Proxies.plist, and the fewest that an all-proxies pass writes there.
constexpr std::size_t bestProxyLimit = 50;
constexpr std::size_t topFive = 5;

// How many seconds a measurement lasts at most.
constexpr std::int32_t firstMeasurement = 10;
constexpr std::int32_t fullMeasurement = 60;

void log(const std::string& line) { HVLLogger::instanceHost().logString(line); }

void setPingToProxyDone(bool done) { hostPreferences().setIsPingToProxyDone(done); }

void postBestProxiesFound() { platform::distributed_center::post("BestThreeProxyFoundNotification"); }

/// Proxies.plist, which all managers share. Locked by whoever changes it, from finding out what to write until it is
/// written.
struct BestProxiesFile {
    std::mutex mutex;
    /// How many lists all-proxies passes have put there.
    std::atomic<unsigned> generation{0};
};

BestProxiesFile& bestProxiesFile() {
    static BestProxiesFile file;
    return file;
}

void keepAnsweredFastestFirst(HVLPingMutableArray& list) {
    list.removeAllZeroPings();
    list.sortPingArrayByMinimumPingTime();
}

void keepAtMost(HVLPingMutableArray& list, std::size_t limit) {
    if (list.count() > limit) {
        list.removeObjectsInRange(limit, list.count() - limit);
    }
}

/// Leaves out the records that lack a text; a single one that somebody has put into a file would prevent every write.
void writeComplete(const HVLPingMutableArray& list, const std::string& path) {
    HVLPingMutableArray complete;
    for (const HVLPingHostPtr& host : list) {
        if (host->hostName() && host->ipAddr() && host->mappHostName()) {
            complete.addObject(host);
        }
    }
    complete.writeProxyOnFile(path);
}

/// `combine` makes a record from each record of `list` and the one that `source` finds by its name.
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

/// For all managers.
void reportNoThread(const std::system_error& error) {
    static platform::LimitedReport report(1);
    report(std::string("pinger: no thread, tried again in a minute: ") + error.what());
}

/// Asking a queue for its count also starts what waits in it because no thread could be made.
void retryThreads(const platform::OperationQueue& queue) { static_cast<void>(queue.operationCount()); }

/// If more operations are queued than run at once, one of them hasn't begun and does for this one, too.
void addUnlessOneWaits(platform::OperationQueue& queue, std::size_t concurrent, std::function<void()> work) {
    if (queue.operationCount() <= concurrent) {
        queue.addOperation(std::move(work));
    }
}

} // namespace

PingerCycle pingerCycle(unsigned counter, std::chrono::minutes pause) {
    constexpr unsigned turnsPerRound = 23;
    constexpr unsigned firstSlowTurn = 3;
    if (counter % turnsPerRound == 0) {
        return {.isFull = true, .topFiveWait = std::chrono::seconds(1), .pause = pause, .next = 1};
    }
    if (counter < firstSlowTurn) {
        return {.topFiveWait = std::chrono::seconds(1), .pause = pause, .next = counter + 1};
    }
    return {.topFiveWait = std::chrono::seconds(15), .pause = std::chrono::minutes(60), .next = counter + 1};
}

HVLPingManager::HVLPingManager(Snapshot /*tag*/) : updatePasses_(concurrentUpdates), updateReads_(concurrentReads) {
    platform::diagnostics::contain("proxy lists", [this] { getPingFromFile(); });
    pingArray_.set(plistPingArray());
    allListArray_.set(allProxyListArray());
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
    readBestProxies();
    allProxyListArray_.set(HVLPingMutableArray::initWithPlistWithPath(paths::allProxies));
}

void HVLPingManager::readBestProxies() {
    const std::lock_guard lock(bestProxiesFile().mutex);
    plistPingArray_.set(std::make_shared<BestProxies>(
        BestProxies{HVLPingMutableArray::initWithPlistWithPath(paths::proxies), bestProxiesFile().generation}));
}

/// Read anew where another manager's pass has put a newer list into the file, or where it couldn't be read.
HVLPingManager::BestProxiesPtr HVLPingManager::newestBestProxies() {
    const auto known = plistPingArray_.get();
    if (!known || known->generation != bestProxiesFile().generation) {
        readBestProxies();
    }
    return plistPingArray_.get();
}

HVLPingMutableArray HVLPingManager::plistPingArray() const {
    const auto known = plistPingArray_.get();
    return known ? known->list : HVLPingMutableArray();
}

void HVLPingManager::registerProxyChangeNotification() {
    observation_ = platform::distributed_center::addObserver(
        "HVLProxyStateChangedNotification", [this](const platform::Notification&) { updatePingFromLatestProxy(); });
}

void HVLPingManager::unregisterProxyChangeNotification() { observation_.reset(); }

void HVLPingManager::updatePingFromLatestProxy() {
    // The files are read at once, even if eight passes are running: those overwrite them with older lists at their end.
    addUnlessOneWaits(updateReads_, concurrentReads, [this] {
        getPingFromFile();
        addUnlessOneWaits(updatePasses_, concurrentUpdates, [this] { measureAllOnceCompleted(); });
    });
}

void HVLPingManager::startPingOnNewThread() { startThread(&HVLPingManager::startPingerThread); }

void HVLPingManager::startPingOnNewThreadForUpdateOnce() {
    startThread(&HVLPingManager::startPingerThreadForUpdateOnce);
}

void HVLPingManager::startThread(ThreadBody body) {
    isPingCompleted_ = false;
    try {
        pingerThreads_.with([this, body](std::vector<std::jthread>& threads) {
            threads.emplace_back([this, body](const std::stop_token& cancelled) {
                platform::diagnostics::contain("pinger", [&] { (this->*body)(cancelled); });
            });
        });
    } catch (const std::system_error& error) {
        reportNoThread(error);
        startRetry_ = std::make_unique<platform::RepeatingTimer>(platform::RunLoop::main(), std::chrono::minutes(1),
                                                                 [this, body] {
                                                                     startRetry_.reset();
                                                                     startThread(body);
                                                                 });
    }
}

void HVLPingManager::stop() {
    isPinging_ = true;
    pingerThreads_.with([](std::vector<std::jthread>& threads) {
        for (std::jthread& thread : threads) {
            thread.request_stop();
        }
    });
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
        retryThreads(updateReads_);
        retryThreads(updatePasses_);
        isPingCompleted_ = false;
        cycle = pingerCycle(cycle.next, cycle.pause);
        runTurn(cycle);
        platform::memory::giveBack();
        isPingCompleted_ = true;
        platform::clock::sleep(cycle.pause, cancelled);
    } while (!isPinging_);
}

void HVLPingManager::startPingerThreadForUpdateOnce(const std::stop_token& /*cancelled*/) { startPing(); }

void HVLPingManager::runTurn(const PingerCycle& cycle) {
    // A step that fails must stop neither the other ones nor the turns to come.
    const auto runStep = [](const auto& step) { platform::diagnostics::contain("pinger", step); };
    if (cycle.isFull) {
        runStep([this] { doPingInTimeOut(firstMeasurement); });
    }
    runStep([&] { pintThreeBestProxiesOnOneHr(static_cast<std::int32_t>(cycle.topFiveWait.count())); });
    if (cycle.isFull) {
        runStep([this] { startPing(); });
    }
}

void HVLPingManager::startPing() {
    const std::lock_guard oneAtATime(oneStartPing_);
    if (ending_.stop_requested()) {
        return;
    }
    setPingToProxyDone(false);
    // Also when it fails, since applications take it to go on until they are told.
    platform::diagnostics::contain("pinger", [this] { doPingInTimeOut(fullMeasurement); });
    if (!ending_.stop_requested()) {
        setPingToProxyDone(true);
        postBestProxiesFound();
    }
}

void HVLPingManager::doPingInTimeOut(std::int32_t seconds) {
    isPingCompleted_ = false;
    const BestProxiesPtr measured = newestBestProxies();
    if (!pingAll(measured->list, seconds)) {
        return;
    }
    HVLPingMutableArray best = measured->list.copyArray();
    keepAnsweredFastestFirst(best);
    keepAtMost(best, bestProxyLimit);
    pingArray_.set(best);
    isPingCompleted_ = true;
    const std::lock_guard lock(bestProxiesFile().mutex);
    if (plistPingArray_.get() == measured && bestProxiesFile().generation == measured->generation) {
        writeComplete(best, paths::proxies);
    }
}

void HVLPingManager::startPingForAllProxies() {
    isPingCompleted_ = false;
    HVLPingMutableArray all = allProxyListArray();
    if (!pingAll(all, fullMeasurement)) {
        return;
    }
    allListArray_.set(all);
    isPingCompleted_ = true;
    writeComplete(all, paths::allProxies);
    keepAnsweredFastestFirst(all);
    allListArray_.set(all);
    if (all.count() == 0) {
        // More likely this machine is offline than all proxies; the known best ones are still worth measuring.
        return;
    }
    const bool isEnough = all.count() >= bestProxyLimit;
    keepAtMost(all, bestProxyLimit);
    {
        const std::lock_guard lock(bestProxiesFile().mutex);
        if (isEnough) {
            ++bestProxiesFile().generation;
            writeComplete(all, paths::proxies);
        }
        plistPingArray_.set(std::make_shared<BestProxies>(BestProxies{all, bestProxiesFile().generation}));
    }
    // With too few the marker stays, so that the next start of the daemon fetches and measures again.
    if (isEnough) {
        postBestProxiesFound();
        platform::files::remove(paths::hostInstallMarker);
    }
}

void HVLPingManager::pintThreeBestProxiesOnOneHr(std::int32_t seconds) {
    if (ending_.stop_requested()) {
        return;
    }
    auto pinged = HVLPingMutableArray::initWithPlistWithPath(paths::proxies);
    keepAnsweredFastestFirst(pinged);
    log(text::format("Five Best Proxies On OneHr Count - %lu", pinged.count()));
    if (pinged.count() == 0) {
        refillBestProxies();
        return;
    }
    keepAtMost(pinged, topFive);
    addPings(pinged);
    // Not a wait for the pings: a result that comes later is lost.
    platform::clock::sleep(std::chrono::seconds(seconds), ending_.get_token());
    if (ending_.stop_requested()) {
        return;
    }
    {
        const std::lock_guard lock(bestProxiesFile().mutex);
        const auto stored = HVLPingMutableArray::initWithPlistWithPath(paths::proxies);
        for (const HVLPingHostPtr& host : pinged) {
            if (const HVLPingHostPtr found = stored.findHost(host->hostName())) {
                found->setPingTime(host->pingTime());
            }
        }
        writeComplete(stored, paths::proxies);
    }
    postBestProxiesFound();
}

void HVLPingManager::proxyListUpdateProcess() {
    getPingFromFile();
    measureAllOnceCompleted();
}

void HVLPingManager::measureAllOnceCompleted() {
    while (!isPingCompleted_ && !ending_.stop_requested()) {
        platform::clock::sleep(std::chrono::seconds(1), ending_.get_token());
    }
    startPingForAllProxies();
    platform::memory::giveBack();
}

void HVLPingManager::refillBestProxies() {
    const std::lock_guard lock(bestProxiesFile().mutex);
    auto all = HVLPingMutableArray::initWithPlistWithPath(paths::allProxies);
    if (all.count() == 0) {
        return;
    }
    keepAnsweredFastestFirst(all);
    keepAtMost(all, bestProxyLimit);
    log("Top proxies list is empty. Helper Reupdate");
    writeComplete(all, paths::proxies);
}

std::vector<std::shared_ptr<HVLPingOperation>> HVLPingManager::addPings(const HVLPingMutableArray& list) {
    std::vector<std::shared_ptr<HVLPingOperation>> pings;
    if (pingingQueue_) {
        for (const HVLPingHostPtr& host : list) {
            pings.push_back(HVLPingOperation::initWithPingHost(host));
            pingingQueue_->addOperation(pings.back());
        }
    }
    return pings;
}

/// False if the destructor has interrupted it.
bool HVLPingManager::pingAll(const HVLPingMutableArray& list, std::int32_t seconds) {
    if (ending_.stop_requested()) {
        return false;
    }
    const service_status::Activity activity("measuring proxies");
    const auto pings = addPings(list);
    if (pingingQueue_) {
        for (std::int32_t i = 0; i < seconds && pingingQueue_->operationCount() > 0; ++i) {
            platform::clock::sleep(std::chrono::seconds(1), ending_.get_token());
        }
        pingingQueue_->cancelAllOperations();
    }
    service_status::noteProxies(static_cast<std::size_t>(std::ranges::count_if(pings, &HVLPingOperation::hasAnswered)),
                                pings.size());
    return !ending_.stop_requested();
}

std::string HVLPingManager::toJSON() const { return pingArray().toJSONFormat(); }

std::string HVLPingManager::toRegisterJSON() const { return pingArray().toRegisterJSONFormat(); }

bool HVLPingManager::isAllZeroPings() const { return pingArray().countNoZeroPingTimeProxies() == 0; }

HVLPingHostPtr HVLPingManager::bestProxyOnCurrentProxyPings() { return bestProxyOnCurrentProxyPingsWithPno(0); }

HVLPingHostPtr HVLPingManager::bestProxyOnCurrentProxyPingsWithPno(std::int32_t index) {
    HVLPingHostPtr best = pingArray_.with([index](HVLPingMutableArray& list) -> HVLPingHostPtr {
        keepAnsweredFastestFirst(list);
        const bool isInRange = index >= 0 && static_cast<std::size_t>(index) < list.count();
        return isInRange ? list.objectAtIndex(static_cast<std::size_t>(index)) : nullptr;
    });
    if (!best) {
        return nullptr;
    }
    bestProxyToConnect_.set(best);
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
