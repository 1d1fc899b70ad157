// Watches the Applications folder and every user's Trash, and uninstalls what was trashed; checks the public address.
#pragma once

#include "daemon/TrashRule.h"
#include "foundation/guarded.h"
#include "foundation/operation_queue.h"
#include "platform/file_system_events.h"
#include "platform/notifications.h"
#include "platform/run_loop.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace havrel {

class HVLAutoUninstaller {
  public:
    /// On the main thread, whose run loop carries its notifications and timers. The first object sets everything up; a
    /// later one only takes over as the shared instance and starts its own public-address timer.
    HVLAutoUninstaller();
    /// Stops the watcher and waits for what it still handles. Not called in the daemon, whose process ends first.
    ~HVLAutoUninstaller();
    HVLAutoUninstaller(const HVLAutoUninstaller&) = delete;
    HVLAutoUninstaller& operator=(const HVLAutoUninstaller&) = delete;

    /// The object initialised last; made on first use when there is none.
    static HVLAutoUninstaller& sharedController();

    // Watcher

    /// Starts the watcher, now or, on a thread of its own, once a user is logged in at the console.
    void launchWather();
    /// Polls the console once a second until a user is there or a stop is requested, then starts the watcher.
    void waitAndLaunch(const std::stop_token& stop);
    /// What to watch from the next start of the watcher on, besides every user's Trash.
    void setWatchList(const std::vector<std::string>& paths);
    void startWatcher();
    void stopWatcher();
    /// Runs the event stream on the calling thread until the watcher is stopped.
    void startWatching(platform::RunLoop& loop);

    /// Queues one batch of events for `handleFsData`.
    void processData(std::size_t count, std::vector<std::string> eventPaths, std::vector<std::uint32_t> eventFlages);
    /// Carries the trigger rule out on one batch. On a worker thread.
    void handleFsData(const std::vector<platform::FileSystemEvent>& batch);
    /// Runs the viewer's own uninstaller.
    void viewerUninstallAction();
    /// Follows the console to another user, unless an uninstall has been requested.
    void CheckLogedInUserChanged();

    // Timers

    void startTimerForPublicIPCheck();
    /// Asks for the public address and tells the applications of a configured host when it has changed.
    void checkHostPublicIpEveryHour();

    /// Ends the process after 86400 ticks of a tenth of a second. No trigger calls it.
    void startTimer();
    void stopTimer();
    void updateTimer();

    std::uint32_t countDown() const { return countDown_; }

    void setCountDown(std::uint32_t ticks) { countDown_ = ticks; }

  private:
    /// The thread that runs the event stream, with the loop that it runs in.
    struct WatcherThread {
        platform::RunLoop loop;
        std::thread thread;
        std::atomic<bool> isOver{false};

        ~WatcherThread();
    };

    /// Without a thread or a descriptor to watch with: launches again in a minute. From any thread.
    void launchLater(const std::exception& error);
    /// Stops the watcher thread, if there is one, with that line in the log, and does not wait for it.
    void endWatcher(const std::string& logLine);

    platform::Guarded<std::set<std::string>> watchList_;
    platform::Guarded<std::string> consoleUser_;
    std::mutex mutex_;
    std::unique_ptr<WatcherThread> startWatcherThread_;
    std::vector<std::unique_ptr<WatcherThread>> stoppedThreads_;
    std::jthread waitingThread_;
    std::atomic<bool> isUninstalCalled_{false};
    std::atomic<std::uint32_t> countDown_{0};
    std::unique_ptr<platform::RepeatingTimer> stopWatchTimer_;
    std::unique_ptr<platform::RepeatingTimer> publicIpTimer_;
    std::unique_ptr<platform::RepeatingTimer> launchRetry_;
    std::vector<platform::ObservationPtr> observations_;
    /// Last, so that its workers are gone before what they use.
    std::unique_ptr<platform::OperationQueue> operationQueue_;
};

} // namespace havrel
