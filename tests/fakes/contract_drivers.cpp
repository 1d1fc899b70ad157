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

std::vector<Post> Outside::posts(std::size_t /*count*/) const {
    std::vector<Post> posts;
    for (const auto& post : fakes::notifications::posts()) {
        posts.push_back({post.name, post.object, post.userInfo.value_or(platform::Dictionary{}), post.options});
    }
    return posts;
}

} // namespace contract::notifications

std::chrono::nanoseconds contract::time::now() {
    fakes::clock::setStepped(true);
    return fakes::clock::now();
}

bool contract::time::passUntil(platform::RunLoop& /*loop*/, const std::function<bool()>& condition) {
    fakes::clock::setStepped(true);
    while (!condition()) {
        if (fakes::clock::sleepers() > 0 || !fakes::clock::alarms.empty()) {
            fakes::clock::advance();
        }
        std::this_thread::yield();
    }
    return true;
}

struct contract::session::Machine::State {};

contract::session::Machine::Machine() { fakes::machine::reset(); }

contract::session::Machine::~Machine() { fakes::machine::reset(); }

void contract::session::Machine::logIn(const std::string& user) { fakes::machine::consoleUser(user); }

void contract::session::Machine::logOut() { fakes::machine::consoleUser(std::nullopt); }
