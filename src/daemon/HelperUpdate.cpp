// The updater: started as root, which the applications can't do, and stopped.
#include "daemon/Helper.h"

#include "daemon/ProcessList.h"
#include "foundation/deployment.h"
#include "logging/HVLLogger.h"
#include "platform/processes.h"
#include "prefs/HVLUserPrefManager.h"
#include "util/ProductPaths.h"

namespace havrel {

namespace {
const std::string updater = paths::hostSupport + "/HVLVersionUpdate";
}

bool Helper::checkUpdateRunning() { return isListed("ps -A | grep  HVLVersionUpdate", updater); }

void Helper::startDownloadandInstallation() {
    if (checkUpdateRunning()) {
        HVLLogger::instanceHost().logString("HVLHelper :  version update already running");
        return;
    }
    hostPreferences().setAutoInstall(1);
    HVLLogger::instance().logString("HVLHelper :  Launching version update from helper");
    HVLLogger::instanceHost().logString("Download URL:https://" + platform::deployment::settings().staticHost +
                                        "/downloads/hvl/autoupdate/HavrelHost.dmg");
    platform::processes::launch(updater, {});
}

void Helper::stopDownloadandInstallation() {
    HVLLogger::instanceHost().logString("HVLHelper :  close update");
    platform::processes::system("killall -9 HVLVersionUpdate");
}

} // namespace havrel
