// Sleep timers at the applications' request, and word of the machine's sleep and wake.
#include "daemon/Helper.h"

#include "daemon/SystemSetingsClass.h"
#include "foundation/format.h"
#include "logging/HVLLogger.h"
#include "prefs/HVLUserPrefManager.h"

namespace havrel {

namespace text = platform::text;

void Helper::sleepSateChangeNotifiction(const platform::Notification& notification) {
    HVLLogger::instanceHost().logString(
        text::format("Helper :  SleepState notofocation got called:%@", notification.name));
    platform::distributed_center::post("sleepStateChanged", "", platform::Dictionary{{"type", notification.name}},
                                       platform::postToAllSessions);
}

void Helper::recevedSleepState(const platform::Notification& notification) {
    if (!notification.userInfo) {
        return;
    }
    const platform::Value request(*notification.userInfo);
    const platform::Value* sleep = request.member("sleep");
    if (sleep == nullptr) {
        return;
    }
    if (*sleep == platform::Value("1")) {
        setSleepMode();
    } else if (*sleep == platform::Value("0")) {
        HVLLogger::instance().logString("Disable sleep disabled");
        hostPreferences().setComputerSleep(computerSleep_);
        hostPreferences().setDisplaySleep(displaySleep_);
    }
}

void Helper::setSleepMode() {
    HVLLogger::instance().logString("Disable sleep enabled");
    // A timer that is off already, or could not be read, must not replace the user's last real one.
    const std::uint64_t computer = SystemSetingsClass::getComputerSleep();
    if (computer <= SystemSetingsClass::longestTimer) {
        computerSleep_ = text::format("%llu", computer);
        hostPreferences().setComputerSleep(computerSleep_);
    }
    const std::uint64_t display = SystemSetingsClass::getDisplaySleep();
    if (display <= SystemSetingsClass::longestTimer) {
        displaySleep_ = text::format("%llu", display);
        hostPreferences().setDisplaySleep(displaySleep_);
    }
    SystemSetingsClass::setDisableComputerSleep(SystemSetingsClass::never);
}

void Helper::updateSleepDetails(const platform::Notification& /*notification*/) {
    computerSleep_ = text::format("%llu", SystemSetingsClass::getComputerSleep());
    hostPreferences().setComputerSleep(computerSleep_);
    displaySleep_ = text::format("%llu", SystemSetingsClass::getDisplaySleep());
    hostPreferences().setDisplaySleep(displaySleep_);
    platform::distributed_center::post("Sleep_Settings_Updated_HOST");
}

} // namespace havrel
