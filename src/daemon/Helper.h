// The central controller: brings every service up, hears the applications' commands and does for them what needs root.
#pragma once

#include "foundation/value.h"
#include "platform/notifications.h"
#include "proxy/HVLPingManager.h"
#include "proxy/HVLPlistManager.h"
#include "web/HostIdentity.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace havrel {

/// Lives on the main thread for the life of the process. Every operation blocks until its commands and requests have
/// ended; none reports a failure to whoever asked for it.
class Helper : public HostIdentity {
  public:
    /// `init`: the whole start-up sequence, the observers included.
    Helper();

    void called();

    // Service control

    /// Switches the host service on.
    void enableAction();
    /// Switches the host service off; with instant access on, the daemon job stays loaded.
    void disableAction();
    /// `disableAction`, then `enableAction`.
    void restartService();
    /// Loads the current suite agent.
    void resgisterCTLForEntHostSuite();
    /// Loads the older suite agent; launches the application when that fails.
    void resgisterCTLForSuite();
    /// The same, after a running suite was ended where the preference asks for it.
    void resgisterCTLForSuiteOld();
    /// Whether a process started from "/Applications/" plus the name is running.
    bool CheckIfSuiteAppIsRunning(const std::string& name);
    /// Unloads, stops and deletes the maker's legacy products.
    void killAndRemoveOldProcessAction();

    // Uninstall

    /// Deregisters the host, unless "deleteConfigFiles" is "0", and runs the uninstaller script.
    void uninstallHavrelAction(const platform::Notification& notification);
    /// Pretty-printed JSON; nothing when the dictionary holds what JSON cannot.
    static std::optional<std::string> getJsonStringByDictionary(const platform::Dictionary& dictionary);

    // Updater

    /// Starts the updater unless it runs already.
    void startDownloadandInstallation();
    bool checkUpdateRunning();
    void stopDownloadandInstallation();

    // Sleep

    /// The machine is about to sleep, or has woken: tells the applications.
    void sleepSateChangeNotifiction(const platform::Notification& notification);
    /// "sleep" = "1" switches system sleep off and remembers the timers; "0" remembers them again.
    void recevedSleepState(const platform::Notification& notification);
    /// Reads both timers anew and tells the applications.
    void updateSleepDetails(const platform::Notification& notification);
    /// Switches system sleep off as `recevedSleepState` does. No trigger calls it.
    void setSleepMode();

    // Sound driver: entry points without a trigger

    void installHostSoundDriver();
    void loadHostSoundDrivers();
    void installSoundDriver();
    void LoadsoundDrivers();
    void LoadsoundDriversOld();

  private:
    // The start-up sequence, in this order

    void openSupportFolder();
    void startPlistManager();
    void startPingManager();
    void observeCommands();
    void queryPrinter();
    void settleUniqueId();
    void settleComputerSleep();
    void settleDisplaySleep();
    void settleHostService();

    void observe(const std::string& name, void (Helper::*action)());
    void observe(const std::string& name, void (Helper::*action)(const platform::Notification&));
    void replaceProxyManagers();
    void deregister();

    std::unique_ptr<HVLPlistManager> plistManagerForSystem_;
    std::unique_ptr<HVLPingManager> pingManager_;
    /// Replaced during start-up but neither stopped nor released: they go on measuring beside their successors.
    std::vector<std::unique_ptr<HVLPingManager>> replacedPingManagers_;
    /// The timers last settled, in minutes as decimal text.
    std::optional<std::string> computerSleep_;
    std::optional<std::string> displaySleep_;
    std::vector<platform::ObservationPtr> observations_;
};

} // namespace havrel
