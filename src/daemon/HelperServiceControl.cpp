// Switching the host service on and off, starting the suite, removing the legacy products. The command lines are fixed:
// double blanks and missing escapes are part of them.
#include "daemon/Helper.h"

#include "daemon/ProcessList.h"

#include "foundation/format.h"
#include "logging/HVLLogger.h"
#include "platform/clock.h"
#include "platform/processes.h"
#include "prefs/HVLUserPrefManager.h"
#include "util/ServiceStatus.h"

namespace havrel {

namespace {

using platform::processes::system;
using namespace std::chrono_literals;

/// Loads the launch agent for every logged-in user, as that user: each has a login window process.
void loadForEveryUser(const std::string& agent) {
    system(R"(ps aux | grep loginwindow | grep -v grep | awk '{system("sudo launchctl bsexec "$2" sudo -u "$1" )"
           R"(launchctl load -S Aqua  /Library/LaunchAgents/)" +
           agent + R"(.plist")}')");
}

constexpr const char* legacyRemoval[] = {
    "launchctl unload /Library/LaunchAgents/com.Ostrane.ambrelHC.plist",
    "launchctl unload /Library/LaunchAgents/com.Ostrane.ambrelH.plist",
    "killall AmbrelViewer",
    "killall AmbrelHC",
    "rm -rf /Applications/AmbrelViewer",
    "rm -rf /Applications/AmbrelHost",
    "rm -rf /Library/LaunchAgents/com.Ostrane.ambrelH.plist",
    "rm -rf /Library/LaunchAgents/com.Ostrane.ambrelHC.plist",
    "rm -rf /Library/Application Support/AmbrelHost",
    "rm -rf /Library/Application Support/AmbrelViewer",
};

} // namespace

void Helper::enableAction() {
    HVLLogger::instanceHost().logString("HVLHelper : EnableAction : Called");
    system("killall HavrelAgent");
    loadForEveryUser("com.Dravex.HavrelAgent");
    system("launchctl load /Library/LaunchDaemons/com.Dravex.HVLDaemonHost.plist");
    service_status::noteHostService(true);
}

void Helper::disableAction() {
    HVLLogger::instanceHost().logString("HVLHelper : DisableAction : Called");
    platform::clock::sleep(1s);
    if (!hostPreferences().isInstanstAccessEnabled()) {
        system("launchctl unload /Library/LaunchDaemons/com.Dravex.HVLDaemonHost.plist");
        service_status::noteHostService(false);
    }
}

void Helper::restartService() {
    disableAction();
    enableAction();
}

void Helper::resgisterCTLForEntHostSuite() {
    loadForEveryUser("com.Dravex.HVLSuiteHost");
    system("launchctl load /Library/LaunchAgents/com.Dravex.HVLSuiteHost.plist");
}

void Helper::resgisterCTLForSuite() {
    loadForEveryUser("com.Dravex.HVLSuite");
    const int status = system("launchctl load -w /Library/LaunchAgents/com.Dravex.HVLSuite.plist");
    HVLLogger::instance().logString(platform::text::format("Suite launch called from helper : %d", status));
    if (status == 0 || system("launchctl load /Library/LaunchAgents/com.Dravex.HVLSuite.plist") == 0) {
        return;
    }
    system("killall -9 HavrelSuite");
    platform::processes::launchApplication("/Applications/HavrelSuite.app");
    HVLLogger::instance().logString("Launch Havrel After launchctl failed");
}

void Helper::resgisterCTLForSuiteOld() {
    if (CheckIfSuiteAppIsRunning("HavrelSuite") || CheckIfSuiteAppIsRunning("Havrel")) {
        const auto startSuite = hostPreferences().startSuiteWithSystem();
        if (!startSuite) {
            HVLLogger::instance().logString("Helper : Suite Re-launch When Permission is reset");
            hostPreferences().setStartSuiteWithSystem(1);
            system("killall -9 HavrelSuite");
        } else if (startSuite->integerValue() == 1) {
            HVLLogger::instance().logString("Helper : Suite running");
            system("killall -9 HavrelSuite");
        }
    }
    resgisterCTLForSuite();
}

bool Helper::CheckIfSuiteAppIsRunning(const std::string& name) {
    return isListed(platform::text::format("ps -A | grep %@", name), "/Applications/" + name);
}

void Helper::killAndRemoveOldProcessAction() {
    for (const char* command : legacyRemoval) {
        system(command);
    }
}

} // namespace havrel
