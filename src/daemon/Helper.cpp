#include "daemon/Helper.h"

#include "foundation/diagnostics.h"
#include "foundation/format.h"
#include "foundation/json.h"
#include "foundation/unicode.h"
#include "logging/HVLLogger.h"
#include "platform/files.h"
#include "platform/processes.h"
#include "prefs/HVLUserPrefManager.h"
#include "util/ProductPaths.h"
#include "util/ServiceStatus.h"
#include "util/SystemStart.h"

namespace havrel {

namespace {

using platform::processes::system;
namespace text = platform::text;

/// White space alone counts as no ID.
bool isMissing(const std::optional<std::string>& id) { return !id || text::trimWhiteSpace(*id).empty(); }

void removeTemporaries() {
    for (const std::string& folder : {paths::hostSupport, paths::viewerSupport, paths::suiteSupport}) {
        platform::files::removeTemporaries(folder);
    }
}

} // namespace

Helper::Helper() {
    platform::diagnostics::contain("start-up", removeTemporaries);
    const auto take = [this](void (Helper::*step)()) {
        platform::diagnostics::contain("start-up", [this, step] { (this->*step)(); });
    };
    take(&Helper::makeSupportFolderWritable);
    take(&Helper::startPlistManager);
    take(&Helper::startPingManager);
    take(&Helper::observeCommands);
    take(&Helper::queryPrinter);
    take(&Helper::settleUniqueId);
    take(&Helper::validateCloneCaseWithSerialNumber);
    take(&Helper::settleComputerSleep);
    take(&Helper::settleDisplaySleep);
    take(&Helper::settleHostService);
    take(&Helper::resgisterCTLForEntHostSuite);
}

void Helper::called() { HVLLogger::instanceHost().logString("HVLHelper :  Called"); }

void Helper::makeSupportFolderWritable() {
    const int status = system(R"(sudo chmod -R 777 /Library/Application\ Support/HVLHostForMac)");
    HVLLogger::instance().logString(text::format("Write permission status : %d", status));
}

void Helper::startPlistManager() {
    const bool isTooEarly = isNetworkExpected();
    plistManagerForSystem_ = std::make_unique<HVLPlistManager>();
    plistManagerForSystem_->startPlistUpdateManager();
    if (isTooEarly) {
        defer(isNetworkExpected, [this] { plistManagerForSystem_->startPlistUpdateManager(); });
    }
}

void Helper::startPingManager() {
    pingManager_ = std::make_unique<HVLPingManager>();
    startPinging(*pingManager_);
}

void Helper::startPinging(HVLPingManager& manager) {
    // Its first turn measures all; without a network that would be in vain, and the next such turn is a day away.
    if (isNetworkExpected()) {
        defer(isNetworkExpected, [&manager] { manager.startPingOnNewThread(); });
    } else {
        manager.startPingOnNewThread();
    }
}

void Helper::replaceProxyManagers() {
    // The product starts its managers twice, before and after identity and sleep timers are settled.
    replacedPingManager_ = std::move(pingManager_);
    plistManagerForSystem_ = std::make_unique<HVLPlistManager>();
    pingManager_ = std::make_unique<HVLPingManager>();
    platform::diagnostics::contain("proxy list", [this] { plistManagerForSystem_->startPlistUpdateManager(); });
    startPinging(*pingManager_);
}

void Helper::defer(std::function<bool()> isExpected, std::function<void()> work) {
    deferredWork_.push_back(std::make_unique<DeferredWork>(std::move(isExpected), std::move(work)));
}

void Helper::queryPrinter() { system("lpstat -d"); }

void Helper::observe(const std::string& name, void (Helper::*action)()) {
    observations_.push_back(
        platform::distributed_center::addObserver(name, [this, name, action](const platform::Notification&) {
            const service_status::Activity activity(name);
            (this->*action)();
        }));
}

void Helper::observe(const std::string& name, void (Helper::*action)(const platform::Notification&)) {
    observations_.push_back(platform::distributed_center::addObserver(
        name, [this, name, action](const platform::Notification& notification) {
            const service_status::Activity activity(name);
            (this->*action)(notification);
        }));
}

void Helper::observeCommands() {
    observe("EnableActionHost", &Helper::enableAction);
    observe("DisableAction", &Helper::disableAction);
    observe("UNInstallAction", &Helper::uninstallHavrelAction);
    observe("killAction", &Helper::killAndRemoveOldProcessAction);
    observe("StartDownlad", &Helper::startDownloadandInstallation);
    observe("sleepState", &Helper::recevedSleepState);
    observe("kHVLRestartServiceFromHelper", &Helper::restartService);
    observe("StopDownload", &Helper::stopDownloadandInstallation);
    HVLLogger::instanceHost().logString("Helper :  SleepState notofocation observer added");
    for (const char* name :
         {platform::workspace_center::didWakeNotification, platform::workspace_center::willSleepNotification}) {
        observations_.push_back(platform::workspace_center::addObserver(
            name, [this](const platform::Notification& notification) { sleepSateChangeNotifiction(notification); }));
    }
    observe("Sleep_Settings_HOST", &Helper::updateSleepDetails);
}

void Helper::settleUniqueId() {
    std::optional<std::string> uniqueId = platform::textOf(hostPreferences().uniqueID());
    if (isMissing(uniqueId)) {
        if (isInterfaceExpected()) {
            defer([this] { return isInterfaceExpected(); }, [this] { settleUniqueId(); });
            return;
        }
        uniqueId = fetchUniqueId();
    }
    if (hostPreferences().eUsername()) {
        uniqueId = validateUniqueId(uniqueId);
    }
    hostPreferences().setUniqueID(uniqueId);
    HVLUserPrefManager::sharedHVLUserPrefManager().viewerPref().setUniqueID(uniqueId);
}

void Helper::settleHostService() {
    const bool isServiceEnabled = hostPreferences().isServiceEnabled();
    platform::diagnostics::contain("second proxy managers", [this] { replaceProxyManagers(); });
    if (isServiceEnabled) {
        enableAction();
    } else {
        disableAction();
    }
}

std::optional<std::string> Helper::getJsonStringByDictionary(const platform::Dictionary& dictionary) {
    return platform::json::prettyPrinted(dictionary);
}

} // namespace havrel
