// The contracts' drivers for the real services.
#include "contract/notification_driver.h"
#include "contract/session_driver.h"
#include "contract/time_driver.h"
#include "fakes/fake_deployment.h"
#include "platform/own_bus.h"
#include "support/serve.h"
#include "trial/support/bus_client.h"
#include "trial/support/sleep_service.h"
#include "trial/support/trial_root.h"

using namespace platform;

namespace contract::notifications {

struct Outside::State {
    trial::BusClient client{support::ownBus().address()};
    trial::SleepService loginManager{support::ownBus().address()};
};

Outside::Outside() : state_(std::make_unique<State>()) {}

Outside::~Outside() = default;

void Outside::post(const Notification& notification) {
    bool isOver = false;
    const auto end = distributed_center::addObserver("end", [&](const auto&) { isOver = true; });
    distributed_center::flush(); // the bus knows the observers now
    state_->client.post(notification.name, notification.object, notification.userInfo.value_or(Dictionary{}));
    state_->client.post("end");
    support::serveUntil(RunLoop::main(), [&] { return isOver; });
}

void Outside::changeSleep(const Notification& notification) {
    const std::string willSleep = workspace_center::willSleepNotification;
    bool isOver = false;
    const auto end = workspace_center::addObserver(notification.name, [&](const auto&) { isOver = true; });
    const auto lockHolder = workspace_center::addObserver(willSleep, [](const auto&) {});
    state_->loginManager.waitForLocks(1); // from here on the monitor knows the login manager
    state_->loginManager.prepareForSleep(notification.name == willSleep);
    support::serveUntil(RunLoop::main(), [&] { return isOver; });
}

} // namespace contract::notifications

std::chrono::nanoseconds contract::time::now() { return std::chrono::steady_clock::now().time_since_epoch(); }

bool contract::time::passUntil(RunLoop& loop, const std::function<bool()>& condition) {
    return support::serveUntil(loop, condition);
}

void contract::session::onMachine(const std::optional<std::string>& consoleUser, const std::function<void()>& work) {
    const trial::TrialRoot root;
    fakes::deployment::setRoot(root.path().string());
    root.logIn(consoleUser.value_or("ann"));
    if (!consoleUser) {
        root.write("/run/systemd/seats/seat0", "IS_SEAT0=1\n");
    }
    work();
    fakes::deployment::setRoot("");
}
