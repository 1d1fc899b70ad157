// The sleep timers, settled at start-up and on request, and the machine's sleep and wake.
#include "daemon/Helper.h"

#include "daemon/SystemSetingsClass.h"
#include "foundation/format.h"
#include "logging/HVLLogger.h"
#include "prefs/HVLUserPrefManager.h"

namespace havrel {

namespace text = platform::text;

void Helper::settleComputerSleep() {
    if (const auto stored = hostPreferences().computerSleep()) {
        computerSleep_ = stored->description();
    } else {
        keepComputerSleep(SystemSetingsClass::getComputerSleep());
    }
}

void Helper::settleDisplaySleep() {
    if (const auto stored = hostPreferences().displaySleep()) {
        displaySleep_ = stored->description();
    } else {
        keepDisplaySleep(SystemSetingsClass::getDisplaySleep());
    }
}

void Helper::keepComputerSleep(std::uint64_t minutes) {
    computerSleep_ = text::format("%llu", minutes);
    hostPreferences().setComputerSleep(computerSleep_);
}

void Helper::keepDisplaySleep(std::uint64_t minutes) {
    displaySleep_ = text::format("%llu", minutes);
    hostPreferences().setDisplaySleep(displaySleep_);
}

void Helper::storeSleepTimers() const {
    hostPreferences().setComputerSleep(computerSleep_);
    hostPreferences().setDisplaySleep(displaySleep_);
}

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
        storeSleepTimers();
    }
}

void Helper::setSleepMode() {
    HVLLogger::instance().logString("Disable sleep enabled");
    // A timer that is off or can't be read does not replace the user's last real one.
    const std::uint64_t computer = SystemSetingsClass::getComputerSleep();
    if (computer <= SystemSetingsClass::longestTimer) {
        keepComputerSleep(computer);
    }
    const std::uint64_t display = SystemSetingsClass::getDisplaySleep();
    if (display <= SystemSetingsClass::longestTimer) {
        keepDisplaySleep(display);
    }
    SystemSetingsClass::setDisableComputerSleep(SystemSetingsClass::never);
}

void Helper::updateSleepDetails(const platform::Notification& /*notification*/) {
    keepComputerSleep(SystemSetingsClass::getComputerSleep());
    keepDisplaySleep(SystemSetingsClass::getDisplaySleep());
    platform::distributed_center::post("Sleep_Settings_Updated_HOST");
}

} // namespace havrel
