// Who this host is: its unique ID, serial number and model, and whether its disk was cloned from another machine.
#pragma once

#include "platform/device_registry.h"
#include "web/HVLCloneHostRegistration.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace havrel {

/// The controller's identity operations. Each reads the hardware afresh; failures show only on the diagnostics
/// channel. Main thread only.
class HostIdentity {
  public:
    using Status = platform::device_registry::Status;
    using Interfaces = std::vector<platform::device_registry::Entry>;

    /// The primary Ethernet interface's address as "0a:1b:2c:3d:4e:5f"; all zeros when there is none.
    std::string fetchUniqueId() const;
    /// The Ethernet interfaces that the system marks as primary, in its order. 0 is success.
    Status FindEthernetInterfaces(Interfaces& matchingServices) const;
    /// Fills the buffer's first 6 bytes with the address of the last interface that has one, after clearing its
    /// first (size modulo 256). 5 when the buffer is below 6 bytes (and is left untouched) or there is no interface;
    /// else the status of the last interface's parent lookup.
    Status GetMACAddress(const Interfaces& iterator, std::span<std::uint8_t> withAddress) const;
    /// The ID itself unless it is absent, empty or made of nothing but zeros and separators. Such a one is reported
    /// (preference and notification), and the serial number replaces it under the same test.
    std::optional<std::string> validateUniqueId(const std::optional<std::string>& uniqueId) const;
    /// The hardware's serial number; nothing when there is none.
    std::optional<std::string> getSerialNumber() const;
    /// The hardware's model; empty when the system does not tell.
    std::string platformModel() const;
    /// Uniform from the minimum to the maximum, both included.
    std::int64_t randomNumberBetween(std::int64_t minimum, std::int32_t maxNumber) const;

    /// Compares the saved serial number with the hardware's. A clone gets an identity of its own and, with the host
    /// service enabled, registers anew before this returns (two web requests).
    void validateCloneCaseWithSerialNumber();

  private:
    void takeNewIdentity(const std::string& serialNumber) const;
    void takeNewUniqueID(const std::string& serialNumber) const;
    void takeNewHostDescription() const;
    void registerNewHost();

    /// Made by the first registration of a clone and kept from then on.
    std::unique_ptr<HVLCloneHostRegistration> configureClient;
};

} // namespace havrel
