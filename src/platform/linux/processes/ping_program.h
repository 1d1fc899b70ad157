// The system's ping program, beneath processes.h.
#pragma once

#include <chrono>
#include <string>

namespace platform {

/// How long ping may take, from its start: until it is interrupted, and from then on until it is killed.
struct PingPatience {
    std::chrono::milliseconds interrupt;
    std::chrono::milliseconds kill;
};

/// processes::ping with that patience.
std::string runPing(const std::string& address, const PingPatience& patience);

} // namespace platform
