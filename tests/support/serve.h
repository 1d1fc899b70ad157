// Serving a run loop of the test's own thread until something has happened.
#pragma once

#include "platform/run_loop.h"

namespace support {

/// Serves the loop until the condition holds; false when it hasn't within 20 s.
template <typename Condition>
bool serveUntil(platform::RunLoop& loop, Condition condition) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    bool holds = false;
    const platform::RepeatingTimer look(loop, std::chrono::milliseconds(1), [&] {
        holds = condition();
        if (holds || std::chrono::steady_clock::now() > end) {
            loop.stop();
        }
    });
    loop.run();
    return holds;
}

} // namespace support
