// Waiting for what another process does: no event tells, so a condition is asked again and again.
#pragma once

#include <chrono>
#include <thread>

namespace trial {

/// Asks until the condition holds; false when it has not within the time.
template <typename Condition>
bool eventually(Condition&& condition, std::chrono::milliseconds within = std::chrono::seconds(20)) {
    const auto end = std::chrono::steady_clock::now() + within;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

} // namespace trial
