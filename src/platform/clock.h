// Time. Everything that waits for time to pass waits here, so that a stand-in can steer it.
#pragma once

#include <chrono>
#include <stop_token>
#include <string>

namespace platform::clock {

/// The current date and time in the system's time zone as "yyyy-MM-dd HH:mm:ss", Western digits, 24 hours.
std::string timestamp();

/// Blocks the calling thread for the duration; returns early when a stop is requested on `stop`.
void sleep(std::chrono::nanoseconds duration, const std::stop_token& stop = {});

/// Lets other threads run.
void yield();

} // namespace platform::clock
