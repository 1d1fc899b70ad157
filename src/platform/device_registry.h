// Hardware facts from the system's device registry, read anew by each call. Thread-safe; nullopt when absent.
#pragma once

#include "foundation/value.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace platform::device_registry {

/// As the registry's own calls number them.
using Status = std::int32_t;

inline constexpr Status success = 0;
inline constexpr Status failure = 5;

/// An Ethernet interface ("IOEthernetInterface") with what the registry knows of its network controller.
struct EthernetInterface {
    /// Of the look-up of the controller.
    Status controllerStatus = success;
    /// The controller's "IOMACAddress"; nullopt also when the look-up failed.
    std::optional<Data> address = {};
};

/// Replaces `interfaces` by those that the system marks as primary ("IOPrimaryInterface"), in its order. A system that
/// has to make a matching dictionary first, and can't, prints "IOServiceMatching returned a NULL dictionary."
Status findPrimaryInterfaces(std::vector<EthernetInterface>& interfaces);

/// "IOPlatformSerialNumber" of the platform expert.
std::optional<std::string> serialNumber();

} // namespace platform::device_registry
