#include "daemon/HVLAutoUninstaller.h"

#include "daemon/ProcessEnd.h"
#include "foundation/diagnostics.h"
#include "foundation/format.h"
#include "foundation/limited_report.h"
#include "foundation/property_list.h"
#include "logging/HVLLogger.h"
#include "platform/clock.h"
#include "platform/processes.h"
#include "platform/session.h"
#include "prefs/HVLUserPrefManager.h"
#include "util/ServiceStatus.h"
#include "web/HVLIPAddressUtil.h"

#include <algorithm>
#include <cstdlib>
#include <optional>

namespace havrel {

namespace {

using namespace std::chrono_literals;

constexpr std::uint32_t countDownTicks = 86400;
/// Batches are independent of one another; a few at once keep a slow uninstaller from holding the next ones up.
constexpr std::size_t concurrentBatches = 4;

std::atomic<HVLAutoUninstaller*> sharedInstance{nullptr};
/// Who receives the file-system callbacks.
std::atomic<HVLAutoUninstaller*> callbackReceiver{nullptr};

void fileSystemCallback(const std::vector<platform::FileSystemEvent>& batch) {
    std::vector<std::string> paths;
    std::vector<std::uint32_t> flags;
    for (const platform::FileSystemEvent& event : batch) {
        paths.push_back(event.path);
        flags.push_back(event.flags);
    }
    if (HVLAutoUninstaller* receiver = callbackReceiver) {
        receiver->processData(batch.size(), std::move(paths), std::move(flags));
    }
}

/// On the watcher's own thread: a user database on another machine may take its time to list everyone.
std::set<std::string> withTrashFolders(std::set<std::string> paths) {
    for (const std::string& user : platform::session::users()) {
        if (!user.starts_with('.') && user != "Shared") {
            paths.insert(platform::text::format("/Users/%@/.Trash", user));
        }
    }
    return paths;
}

std::optional<std::string> userAtConsole() {
    auto user = platform::session::consoleUser();
    return user && (user->empty() || *user == "loginwindow") ? std::nullopt : user;
}

} // namespace

HVLAutoUninstaller::HVLAutoUninstaller() {
    if (sharedInstance == nullptr) {
        operationQueue_ = std::make_unique<platform::OperationQueue>(concurrentBatches);
        callbackReceiver = this;
        observations_.push_back(platform::distributed_center::addObserver(
            "desktopAppStarted", [this](const platform::Notification&) { CheckLogedInUserChanged(); }));
        observations_.push_back(platform::local_center::addObserver(
            "UninstallViewer", [this](const platform::Notification&) { viewerUninstallAction(); }));
    }
    sharedInstance = this;
    platform::diagnostics::contain("public address", [this] { startTimerForPublicIPCheck(); });
}

HVLAutoUninstaller::~HVLAutoUninstaller() {
    waitingThread_ = {};
    endWatcher("dealloc called so Stoping startWatcherThread");
    stoppedThreads_.clear();
    HVLAutoUninstaller* self = this;
    callbackReceiver.compare_exchange_strong(self, nullptr);
    self = this;
    sharedInstance.compare_exchange_strong(self, nullptr);
}

HVLAutoUninstaller& HVLAutoUninstaller::sharedController() {
    if (sharedInstance == nullptr) {
        // It takes itself for the shared instance and lives as long as the process.
        static_cast<void>(new HVLAutoUninstaller());
    }
    return *sharedInstance;
}

void HVLAutoUninstaller::launchWather() {
    HVLLogger::instance().logString("launchWather called ");
    if (const auto user = userAtConsole()) {
        consoleUser_.set(*user);
        setWatchList({"/Applications"});
        HVLLogger::instance().logString("startWatcher calling from launchWather");
        startWatcher();
        return;
    }
    HVLLogger::instance().logString("No console user name so waitAndLaunch ");
    try {
        waitingThread_ = std::jthread([this](const std::stop_token& stop) {
            platform::diagnostics::contain("waiting for a console user", [&] { waitAndLaunch(stop); });
        });
    } catch (const std::exception& error) {
        launchLater(error);
    }
}

void HVLAutoUninstaller::launchLater(const std::exception& error) {
    static platform::LimitedReport report(1);
    report(std::string("trash watcher, tried again in a minute: ") + error.what());
    platform::RunLoop::main().perform([this] {
        launchRetry_ = std::make_unique<platform::RepeatingTimer>(platform::RunLoop::main(), 60s, [this] {
            launchRetry_.reset();
            launchWather();
        });
    });
}

void HVLAutoUninstaller::waitAndLaunch(const std::stop_token& stop) {
    while (!userAtConsole()) {
        platform::clock::sleep(1s, stop);
        if (stop.stop_requested()) {
            return;
        }
    }
    setWatchList({"/Applications"});
    HVLLogger::instance().logString("startWatcher calling from waitAndLaunch");
    startWatcher();
}

void HVLAutoUninstaller::setWatchList(const std::vector<std::string>& paths) {
    watchList_.set({paths.begin(), paths.end()});
}

void HVLAutoUninstaller::startWatcher() {
    const std::lock_guard lock(mutex_);
    if (startWatcherThread_ && !startWatcherThread_->isOver) {
        HVLLogger::instance().logString(" startWatcher else part startWatcherThread already running");
        return;
    }
    HVLLogger::instance().logString("startWatcher called so starting startWatcherThread");
    try {
        auto watcher = std::make_unique<WatcherThread>();
        watcher->thread = std::thread([this, &started = *watcher] {
            try {
                startWatching(started.loop);
            } catch (const std::exception& error) {
                launchLater(error);
            }
            started.isOver = true;
        });
        startWatcherThread_ = std::move(watcher);
    } catch (const std::exception& error) {
        launchLater(error);
    }
}

void HVLAutoUninstaller::startWatching(platform::RunLoop& loop) {
    const std::set<std::string> paths = withTrashFolders(watchList_.get());
    const platform::FileSystemEventStream stream(loop, {paths.begin(), paths.end()}, 1000ms, fileSystemCallback);
    loop.run();
}

void HVLAutoUninstaller::stopWatcher() { endWatcher("stopWatcher called so Stoping startWatcherThread"); }

void HVLAutoUninstaller::endWatcher(const std::string& logLine) {
    const std::lock_guard lock(mutex_);
    if (startWatcherThread_) {
        HVLLogger::instance().logString(logLine);
        // The stream ends with its loop, on its own thread. A file system that doesn't answer may hold that thread up
        // for any time, so nobody waits for it here.
        startWatcherThread_->loop.stop();
        stoppedThreads_.push_back(std::move(startWatcherThread_));
    }
    std::erase_if(stoppedThreads_, [](const auto& stopped) { return stopped->isOver.load(); });
}

HVLAutoUninstaller::WatcherThread::~WatcherThread() {
    if (thread.joinable()) {
        thread.join();
    }
}

void HVLAutoUninstaller::processData(std::size_t count, std::vector<std::string> eventPaths,
                                     std::vector<std::uint32_t> eventFlages) {
    std::vector<platform::FileSystemEvent> batch;
    for (std::size_t i = 0; i < std::min({count, eventPaths.size(), eventFlages.size()}); ++i) {
        batch.push_back({std::move(eventPaths[i]), eventFlages[i]});
    }
    // Users may rename in their Trash without pause, so a batch that holds no move for the rule is not queued.
    if (operationQueue_ && !folderMoves(batch).empty()) {
        operationQueue_->addOperation([this, moved = std::move(batch)] { handleFsData(moved); });
    }
}

void HVLAutoUninstaller::handleFsData(const std::vector<platform::FileSystemEvent>& batch) {
    for (const FolderMove& move : folderMoves(batch)) {
        HVLLogger::instance().logString("objc - Auto uninstaller ");
        const TrashedProduct product = trashedProduct(move);
        if (product == TrashedProduct::host) {
            isUninstalCalled_ = true;
            platform::distributed_center::post("UNInstallAction");
        } else if (product == TrashedProduct::viewer) {
            viewerUninstallAction();
        }
    }
}

void HVLAutoUninstaller::viewerUninstallAction() {
    HVLLogger::instanceViewer().logString("Viewer unintall called from helper on move to trash command");
    platform::processes::system(R"(sh /Library/Application\ Support/HVLViewForMac/Uninstaller)");
}

void HVLAutoUninstaller::CheckLogedInUserChanged() {
    const auto user = userAtConsole();
    const std::string watchedFor = consoleUser_.get();
    if (watchedFor.empty() || !user || *user == watchedFor || isUninstalCalled_) {
        return;
    }
    stopWatcher();
    launchWather();
}

void HVLAutoUninstaller::startTimerForPublicIPCheck() {
    publicIpTimer_ = std::make_unique<platform::RepeatingTimer>(platform::RunLoop::main(), 3600s,
                                                                [this] { checkHostPublicIpEveryHour(); });
}

void HVLAutoUninstaller::checkHostPublicIpEveryHour() {
    const service_status::Activity activity("checking the public address");
    // As it will be read back: an answer that is stored with less in it would count as a new address every hour.
    const std::string address = platform::property_list::storable(HVLIPAddressUtil::externalIPAddress());
    if (address == HVLIPAddressUtil::fallbackAddress) {
        return;
    }
    const bool isKnown = platform::textOf(hostPreferences().externalIp()) == address;
    hostPreferences().setExternalIp(address);
    if (!isKnown && hostPreferences().isUserConfigured()) {
        platform::distributed_center::post("UpdatePublicIP", "", {}, platform::deliverImmediately);
    }
}

void HVLAutoUninstaller::startTimer() {
    stopTimer();
    countDown_ = countDownTicks;
    stopWatchTimer_ =
        std::make_unique<platform::RepeatingTimer>(platform::RunLoop::main(), 100ms, [this] { updateTimer(); });
}

void HVLAutoUninstaller::stopTimer() { stopWatchTimer_.reset(); }

void HVLAutoUninstaller::updateTimer() {
    if (countDown_ == 0) {
        stopTimer();
        endProcess(EXIT_SUCCESS);
    }
    --countDown_;
}

} // namespace havrel
