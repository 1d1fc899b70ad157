// Waiting for what another process does. There is no event for that, so a condition is polled.
#pragma once

#include <chrono>
#include <thread>

namespace trial {

/// Polls until the condition holds; false if it does not within the time.
template <typename Condition>
bool eventually(Condition&& condition, std::chrono::milliseconds within = std::chrono::seconds(20),
                std::chrono::milliseconds interval = std::chrono::milliseconds(5)) {
    const auto end = std::chrono::steady_clock::now() + within;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(interval);
    }
    return true;
}

} // namespace trial
