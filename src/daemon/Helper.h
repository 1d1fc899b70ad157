// The central controller: starts every service, observes the applications' commands and does for them what needs root.
#pragma once

#include "foundation/value.h"
#include "platform/notifications.h"
#include "proxy/HVLPingManager.h"
#include "proxy/HVLPlistManager.h"
#include "util/SystemStart.h"
#include "web/HostIdentity.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace havrel {

/// Main thread only; lives as long as the process. Operations block until their commands and requests have ended.
/// Failures show in the logs at most: whoever posted a command gets no answer.
class Helper : public HostIdentity {
  public:
    /// `init`: runs the whole start-up sequence. A step that throws is reported, and the next one follows.
    Helper();

    /// Logs that the start-up sequence is over.
    void called();

    // Service control

    /// Switches the host service on.
    void enableAction();
    /// Switches the host service off, after a pause of one second. With instant access on, the daemon job stays loaded.
    void disableAction();
    /// `disableAction`, then `enableAction`.
    void restartService();
    /// Loads the current suite agent.
    void resgisterCTLForEntHostSuite();
    /// Loads the older suite agent; launches the application if that fails. No trigger calls it.
    void resgisterCTLForSuite();
    /// The same, after killing a running suite if the preferences ask for a restart. No trigger calls it.
    void resgisterCTLForSuiteOld();
    /// Whether the process list shows "/Applications/" followed by the name.
    bool CheckIfSuiteAppIsRunning(const std::string& name);
    /// Unloads, stops and deletes the maker's legacy products.
    void killAndRemoveOldProcessAction();

    // Uninstall

    /// Runs the uninstaller script, after deregistering the host unless "deleteConfigFiles" is "0".
    void uninstallHavrelAction(const platform::Notification& notification);
    /// Pretty-printed JSON; nullopt if the dictionary holds what JSON can't.
    static std::optional<std::string> getJsonStringByDictionary(const platform::Dictionary& dictionary);

    // Updater

    /// Starts the updater unless it runs already.
    void startDownloadandInstallation();
    /// Whether the process list shows the updater's full path.
    bool checkUpdateRunning();
    /// Kills every process of the updater's name.
    void stopDownloadandInstallation();

    // Sleep

    /// The machine is about to sleep or has woken up: passes it on to the applications.
    void sleepSateChangeNotifiction(const platform::Notification& notification);
    /// "sleep" = "1" stores the system's timers and switches system sleep off; "0" stores the timers last settled, and
    /// leaves it to the application to set them.
    void recevedSleepState(const platform::Notification& notification);
    /// Reads both timers, stores them, be they off or unreadable, and tells the applications.
    void updateSleepDetails(const platform::Notification& notification);
    /// What `recevedSleepState` does for "1". No trigger calls it.
    void setSleepMode();

    // Sound driver: entry points that no trigger calls yet. The marker file is removed once the driver has been loaded.

    /// Loads the host application's driver if its marker file is there.
    void installHostSoundDriver();
    /// Copies the driver out of the host application and runs its loader script.
    void loadHostSoundDrivers();
    /// The same two for the full application.
    void installSoundDriver();
    void LoadsoundDrivers();
    /// Copies the full application's driver and loads it without the script.
    void LoadsoundDriversOld();

  private:
    // The start-up sequence, in this order

    void makeSupportFolderWritable();
    /// Once more when the network is there, if it is still expected.
    void startPlistManager();
    void startPingManager();
    void observeCommands();
    void queryPrinter();
    /// Once there is an interface to take it from, or none is expected any more; start-up goes on meanwhile.
    void settleUniqueId();
    void settleComputerSleep();
    void settleDisplaySleep();
    void settleHostService();

    void observe(const std::string& name, void (Helper::*action)());
    void observe(const std::string& name, void (Helper::*action)(const platform::Notification&));
    void replaceProxyManagers();
    /// When the network is there, if it is still expected.
    void startPinging(HVLPingManager& manager);
    /// Leaves work to the main loop until what it needs is there or no longer expected.
    void defer(std::function<bool()> isExpected, std::function<void()> work);
    /// Tells the web service that host and viewer are gone, and forgets the sleep timers.
    void deregister();
    /// Settle a timer, in minutes, and store it.
    void keepComputerSleep(std::uint64_t minutes);
    void keepDisplaySleep(std::uint64_t minutes);
    /// Store both timers as last settled.
    void storeSleepTimers() const;

    std::unique_ptr<HVLPlistManager> plistManagerForSystem_;
    std::unique_ptr<HVLPingManager> pingManager_;
    /// The first manager, replaced during start-up: it keeps measuring beside its successor.
    std::unique_ptr<HVLPingManager> replacedPingManager_;
    /// The timers last settled: minutes as decimal text, or whatever an application has stored.
    std::string computerSleep_;
    std::string displaySleep_;
    std::vector<platform::ObservationPtr> observations_;
    std::vector<std::unique_ptr<DeferredWork>> deferredWork_;
};

} // namespace havrel
