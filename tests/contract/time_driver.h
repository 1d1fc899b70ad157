// How the cases about time are driven. The unit tests define these for the stand-ins, the platform tests for the real
// clock and loops.
#pragma once

#include "platform/run_loop.h"

#include <chrono>
#include <functional>

namespace contract::time {

/// On the clock that the services under test follow.
std::chrono::nanoseconds now();

/// Serves the loop and lets time pass until the condition holds; false when it does not come to that.
bool passUntil(platform::RunLoop& loop, const std::function<bool()>& condition);

} // namespace contract::time
