#include "util/SystemStart.h"

#include "platform/clock.h"
#include "platform/network.h"
#include "platform/system_info.h"
#include "util/ServiceStatus.h"

#include <chrono>
#include <utility>

namespace havrel {

using namespace std::chrono_literals;

bool isSystemStarting() {
    constexpr auto startOfSystem = 60s;
    return platform::system_info::uptime().value_or(startOfSystem) < startOfSystem;
}

bool isNetworkExpected() { return isSystemStarting() && !platform::network::hasDefaultRoute(); }

void awaitNetwork() {
    const service_status::Activity activity("waiting for the network");
    for (bool wasExpected = isNetworkExpected(); wasExpected;) {
        wasExpected = isNetworkExpected();
        platform::clock::sleep(1s);
    }
}

DeferredWork::DeferredWork(std::function<bool()> isExpected, std::function<void()> work)
    : isExpected_(std::move(isExpected))
    , work_(std::move(work))
    , timer_(std::make_unique<platform::RepeatingTimer>(platform::RunLoop::main(), 1s, [this] { look(); })) {}

void DeferredWork::look() {
    const bool wasDue = std::exchange(isDue_, !isExpected_());
    if (wasDue && isDue_) {
        timer_.reset();
        const service_status::Activity activity("catching up after the boot");
        work_();
    }
}

} // namespace havrel
