// The system's ping program, beneath processes.h.
#pragma once

#include <string>

namespace platform {

/// How long ping may take, in seconds as timeout(1) reads them: until it is interrupted, and from then on until it is
/// killed.
struct PingPatience {
    std::string interrupt;
    std::string kill;
};

/// processes::ping with that patience.
std::string runPing(const std::string& address, const PingPatience& patience);

} // namespace platform
