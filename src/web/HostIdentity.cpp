#include "web/HostIdentity.h"

#include "foundation/diagnostics.h"
#include "foundation/format.h"
#include "foundation/unicode.h"
#include "logging/HVLLogger.h"
#include "platform/network.h"
#include "platform/notifications.h"
#include "platform/system_info.h"
#include "prefs/HVLUserPrefManager.h"
#include "web/NSStringHVL.h"

#include <algorithm>
#include <array>

namespace havrel {

namespace {

namespace registry = platform::device_registry;
namespace diagnostics = platform::diagnostics;
namespace text = platform::text;
using platform::Value;

using registry::failure;
using registry::success;

constexpr std::size_t addressSize = 6;
using MacAddress = std::array<std::uint8_t, addressSize>;

/// A longer description leaves no room for the suffix and is cut; one in between, of 45, is left whole.
constexpr std::size_t longestDescription = 45;
constexpr std::size_t cutDescription = 44;

template <typename... Arguments>
void log(std::string_view pattern, const Arguments&... arguments) {
    HVLLogger::instanceHost().logString(text::format(pattern, arguments...));
}

/// `pattern` with the six bytes filled in.
std::string formatAddress(std::string_view pattern, const MacAddress& address) {
    return text::format(pattern, address[0], address[1], address[2], address[3], address[4], address[5]);
}

/// Copies the controller's address when it tells one. A property of another type than data has no bytes to copy.
void readControllerAddress(const registry::Entry& controller, std::span<std::uint8_t> address) {
    const auto property = registry::property(controller, "IOMACAddress");
    if (!property) {
        return;
    }
    diagnostics::report(property->description());
    if (const auto* data = property->as<platform::Data>()) {
        std::copy_n(data->bytes.begin(), std::min(data->bytes.size(), addressSize), address.begin());
    }
}

/// Whether an ID is absent, empty or nothing but zeros and separators. Loose on purpose: any other text is an ID.
bool isBlankId(const std::optional<std::string>& uniqueId) {
    return !uniqueId || uniqueId->empty() || NSStringHVL::alphaNumericUnique(*uniqueId) == "0";
}

} // namespace

std::string HostIdentity::fetchUniqueId() const {
    Interfaces interfaces;
    MacAddress address{};
    if (const Status status = FindEthernetInterfaces(interfaces); status != success) {
        diagnostics::print(text::format("FindEthernetInterfaces returned 0x%08x\n", status));
    } else if (const Status lookup = GetMACAddress(interfaces, address); lookup != success) {
        diagnostics::print(text::format("GetMACAddress returned 0x%08x\n", lookup));
    } else {
        diagnostics::print(
            formatAddress("This system's built-in MAC address is %02x:%02x:%02x:%02x:%02x:%02x.\n", address));
    }
    return formatAddress("%02x:%02x:%02x:%02x:%02x:%02x", address);
}

HostIdentity::Status HostIdentity::FindEthernetInterfaces(Interfaces& matchingServices) const {
    auto matching = registry::matching("IOEthernetInterface");
    if (matching) {
        matching->insert_or_assign("IOPropertyMatch", platform::Dictionary{{"IOPrimaryInterface", true}});
    } else {
        diagnostics::print("IOServiceMatching returned a NULL dictionary.");
    }
    const Status status = registry::matchingServices(matching.value_or(platform::Dictionary{}), matchingServices);
    if (status != success) {
        diagnostics::print(text::format("IOServiceGetMatchingServices returned 0x%08x\n", status));
    }
    return status;
}

HostIdentity::Status HostIdentity::GetMACAddress(const Interfaces& iterator,
                                                 std::span<std::uint8_t> withAddress) const {
    if (withAddress.size() < addressSize) {
        return failure;
    }
    std::ranges::fill(withAddress.first(withAddress.size() % 256), std::uint8_t{0});
    Status status = failure;
    for (const registry::Entry& interface : iterator) {
        std::optional<registry::Entry> controller;
        status = registry::parentEntry(interface, "IOService", controller);
        if (status != success) {
            diagnostics::print(text::format("IORegistryEntryGetParentEntry returned 0x%08x\n", status));
        } else if (controller) {
            readControllerAddress(*controller, withAddress);
        }
    }
    return status;
}

std::optional<std::string> HostIdentity::validateUniqueId(const std::optional<std::string>& uniqueId) const {
    if (!isBlankId(uniqueId)) {
        return uniqueId;
    }
    hostPreferences().setIsUniqueIdChanged(true);
    platform::distributed_center::post("uniqueIdChanged");
    auto serialNumber = getSerialNumber();
    return isBlankId(serialNumber) ? std::nullopt : serialNumber;
}

std::optional<std::string> HostIdentity::getSerialNumber() const {
    const auto expert =
        registry::matchingService(registry::matching("IOPlatformExpertDevice").value_or(platform::Dictionary{}));
    return expert ? platform::textOf(registry::property(*expert, "IOPlatformSerialNumber")) : std::nullopt;
}

std::string HostIdentity::platformModel() const { return platform::system_info::hardwareModel(); }

std::int64_t HostIdentity::randomNumberBetween(std::int64_t minimum, std::int32_t maxNumber) const {
    const std::uint32_t width = static_cast<std::uint32_t>(maxNumber) - static_cast<std::uint32_t>(minimum) + 1;
    return minimum + std::int64_t{platform::system_info::randomBelow(width)};
}

void HostIdentity::validateCloneCaseWithSerialNumber() {
    const auto serialNumber = getSerialNumber();
    if (!serialNumber || serialNumber->empty()) {
        log("Helper : Unable to get system serial number");
        return;
    }
    log("Helper : System Serial Number %@", *serialNumber);
    const auto saved = hostPreferences().serialNumber();
    if (!saved || *saved == Value("")) {
        log("Helper : No Saved serial number exists: New installation");
        hostPreferences().setSerialNumber(*serialNumber);
        return;
    }
    log("Helper : Saved Serial Number %@", *saved);
    // A saved value that is no text was not saved by this machine: it equals no serial number.
    if (*saved == Value(*serialNumber)) {
        log("Helper : Saved serial number matches with System serial number");
        return;
    }
    log("Helper : Saved serial number doesnt match with System serial number");
    takeNewIdentity(*serialNumber);
    if (hostPreferences().isServiceEnabled()) {
        registerNewHost();
    }
}

void HostIdentity::takeNewIdentity(const std::string& serialNumber) const {
    hostPreferences().setUpdateFlag12AfterConfigure(true);
    hostPreferences().setHostID("");
    hostPreferences().setLoggedinhostIDS(platform::Array{});
    hostPreferences().setMacSystemModel(platformModel());
    hostPreferences().setSerialNumber(serialNumber);
    takeNewUniqueID(serialNumber);
    takeNewHostDescription();
}

void HostIdentity::takeNewUniqueID(const std::string& serialNumber) const {
    const auto candidate = validateUniqueId(fetchUniqueId());
    const auto saved = hostPreferences().uniqueID();
    if (saved && candidate && *saved == Value(*candidate)) {
        // The copy came with the same address (a moved adapter): only the serial number tells the machines apart.
        hostPreferences().setUniqueID(serialNumber);
        log("Helper : Cloned case - update machineId with System Serial number : %@", serialNumber);
    } else {
        hostPreferences().setUniqueID(candidate);
        log("Helper : Cloned case - update machineId with System MAC Address : %@", candidate);
    }
}

void HostIdentity::takeNewHostDescription() const {
    auto description = platform::textOf(hostPreferences().hostDecription());
    if (!description) {
        hostPreferences().setHostDecription(platform::network::computerName());
        return;
    }
    if (text::length(*description) > longestDescription) {
        description = text::prefix(*description, cutDescription);
    }
    const auto distinct = text::format("%@_%ld", *description, randomNumberBetween(10000, 99999));
    hostPreferences().setHostDecription(distinct);
    log("Helper : Cloned case - update Host Description : %@", distinct);
}

void HostIdentity::registerNewHost() {
    log("Helper : Cloned case - update Host New");
    if (!configureClient) {
        configureClient = std::make_unique<HVLCloneHostRegistration>();
    }
    configureClient->registerNewHostForClone();
}

} // namespace havrel
