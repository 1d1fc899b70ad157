// The contracts' drivers for the stand-ins.
#include "contract/notification_driver.h"
#include "contract/session_driver.h"
#include "contract/time_driver.h"
#include "fakes/fake_clock.h"
#include "fakes/fake_machine.h"
#include "fakes/fake_notifications.h"

namespace contract::notifications {

struct Outside::State {};

Outside::Outside() { fakes::notifications::reset(); }

Outside::~Outside() = default;

void Outside::post(const platform::Notification& notification) { fakes::notifications::deliver(notification); }

void Outside::changeSleep(const platform::Notification& notification) { fakes::notifications::deliver(notification); }

} // namespace contract::notifications

std::chrono::nanoseconds contract::time::now() {
    fakes::clock::setStepped(true);
    return fakes::clock::now();
}

bool contract::time::passUntil(platform::RunLoop& /*loop*/, const std::function<bool()>& condition) {
    while (!condition()) {
        if (fakes::clock::sleepers() > 0 || !fakes::clock::alarms.empty()) {
            fakes::clock::advance();
        }
        std::this_thread::yield();
    }
    return true;
}

void contract::session::onMachine(const std::optional<std::string>& consoleUser, const std::function<void()>& work) {
    fakes::machine::consoleUser(consoleUser);
    work();
    fakes::machine::reset();
}
