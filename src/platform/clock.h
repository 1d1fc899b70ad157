// Time. Whoever waits for time to pass calls `sleep`, which a stand-in can steer. All functions are thread-safe.
#pragma once

#include <chrono>
#include <stop_token>
#include <string>

namespace platform::clock {

/// The present date and time in the system's time zone as "yyyy-MM-dd HH:mm:ss", Western digits, 24 hours.
std::string timestamp();

/// Blocks the calling thread for the duration, or until a stop is requested.
void sleep(std::chrono::nanoseconds duration, const std::stop_token& stop = {});

/// Lets other threads run.
void yield();

} // namespace platform::clock
