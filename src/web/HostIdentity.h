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

/// The controller's identity operations. Each reads the hardware anew; failures show on the diagnostics channel only.
/// Main thread only; nullopt when absent.
class HostIdentity {
  public:
    using Status = platform::device_registry::Status;
    using Interfaces = std::vector<platform::device_registry::EthernetInterface>;

    /// The primary Ethernet interface's address as "0a:1b:2c:3d:4e:5f"; all zeros when it can't be found.
    std::string fetchUniqueId() const;
    /// Whether there is no primary Ethernet interface, but the system has been up for less than a minute: its driver,
    /// or a container's default route, may just be late.
    bool isInterfaceExpected() const;
    /// Replaces `matchingServices` by the Ethernet interfaces that the system marks as primary, in its order. 0 on
    /// success.
    Status FindEthernetInterfaces(Interfaces& matchingServices) const;
    /// Clears the buffer's first (size modulo 256) bytes, then copies the address of the last interface that has one
    /// to its start. The status of the last interface's controller look-up; 5 without an interface, and for a buffer
    /// below 6 bytes, which is left untouched.
    Status GetMACAddress(const Interfaces& iterator, std::span<std::uint8_t> withAddress) const;
    /// The ID itself unless it is absent, empty or nothing but zeros and separators. Such an ID is reported (preference
    /// and notification) and replaced by the serial number, if that passes the same test.
    std::optional<std::string> validateUniqueId(const std::optional<std::string>& uniqueId) const;
    /// The hardware's serial number.
    std::optional<std::string> getSerialNumber() const;
    /// The hardware's model; empty when unknown.
    std::string platformModel() const;
    /// Uniform from the minimum to the maximum, both included.
    std::int64_t randomNumberBetween(std::int64_t minimum, std::int32_t maxNumber) const;

    /// Saves the serial number of a fresh installation. A clone gets an identity of its own and, if the host service
    /// is enabled, is registered before this returns (two web requests). As there is no second try, a clone first waits
    /// for the network of a system that is just starting, with nothing stored yet.
    void validateCloneCaseWithSerialNumber();

  private:
    void takeNewIdentity(const std::string& serialNumber) const;
    void takeNewUniqueID(const std::string& serialNumber) const;
    void takeNewHostDescription() const;
    void registerNewHost();

    /// Created by a clone's registration and kept from then on.
    std::unique_ptr<HVLCloneHostRegistration> configureClient;
};

} // namespace havrel
