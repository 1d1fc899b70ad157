// Facts about the system and this process. Thread-safe.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace platform::system_info {

struct Version {
    std::int64_t major = 0;
    std::int64_t minor = 0;
    std::int64_t patch = 0;
};

/// A part that can't be read is 0.
Version systemVersion();

/// How long ago the system's first process was started; in a container, that is the container's. Nullopt when unknown.
std::optional<std::chrono::seconds> uptime();

/// Empty when unknown.
std::string hardwareModel();

/// The application bundle that this process was started from; the executable's folder when it is in no bundle.
std::string bundlePath();

/// Uniform over all 32 bits, from the system's cryptographic generator.
std::uint32_t random();
/// Uniform from 0 to `bound` - 1, without bias; 0 for a bound below 2.
std::uint32_t randomBelow(std::uint32_t bound);

} // namespace platform::system_info
