#include "web/SystemStart.h"

#include "platform/system_info.h"
#include "web/HVLIPAddressUtil.h"

#include <chrono>
#include <utility>

namespace havrel {

using namespace std::chrono_literals;

bool isSystemStarting() {
    constexpr auto startOfSystem = 60s;
    return platform::system_info::uptime().value_or(startOfSystem) < startOfSystem;
}

bool isNetworkExpected() { return isSystemStarting() && HVLIPAddressUtil::getIP4Add().empty(); }

DeferredWork::DeferredWork(std::function<bool()> isExpected, std::function<void()> work)
    : isExpected_(std::move(isExpected))
    , work_(std::move(work))
    , timer_(std::make_unique<platform::RepeatingTimer>(platform::RunLoop::main(), 1s, [this] { look(); })) {}

void DeferredWork::look() {
    if (isExpected_()) {
        return;
    }
    if (!isDue_) {
        isDue_ = true;
        return;
    }
    const auto ended = std::move(timer_); // outlives this call, which is the timer's own
    work_();
}

} // namespace havrel
