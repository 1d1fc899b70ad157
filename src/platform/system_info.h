// Facts about this system and this process. From any thread.
#pragma once

#include <cstdint>
#include <string>

namespace platform::system_info {

struct Version {
    std::int64_t major = 0;
    std::int64_t minor = 0;
    std::int64_t patch = 0;
};

/// The system's version; a part that cannot be read is 0.
Version systemVersion();

/// The hardware model; empty when the system does not tell.
std::string hardwareModel();

/// The path of the application bundle that runs, or of the folder of the executable where there is no bundle.
std::string bundlePath();

/// From the system's cryptographic generator.
std::uint32_t random();
/// Uniform below the bound, without bias; 0 for a bound below 2.
std::uint32_t randomBelow(std::uint32_t bound);

} // namespace platform::system_info
