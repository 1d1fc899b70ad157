#include "web/HostIdentity.h"

#include "foundation/diagnostics.h"
#include "foundation/format.h"
#include "logging/HVLLogger.h"
#include "platform/network.h"
#include "platform/notifications.h"
#include "platform/system_info.h"
#include "prefs/HVLUserPrefManager.h"
#include "util/SystemStart.h"
#include "web/CloneRule.h"
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

template <typename... Arguments>
void log(std::string_view pattern, const Arguments&... arguments) {
    HVLLogger::instanceHost().logString(text::format(pattern, arguments...));
}

/// Fills the six bytes into the pattern.
std::string formatAddress(std::string_view pattern, const MacAddress& address) {
    return text::format(pattern, address[0], address[1], address[2], address[3], address[4], address[5]);
}

/// Whether the ID can tell this machine from others. Loose on purpose: every text passes but an empty one and one of
/// nothing but zeros and separators.
bool isUsableId(const std::optional<std::string>& id) {
    return id && !id->empty() && NSStringHVL::alphaNumericUnique(*id) != "0";
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

bool HostIdentity::isInterfaceExpected() const {
    Interfaces interfaces;
    return isSystemStarting() && FindEthernetInterfaces(interfaces) == success && interfaces.empty();
}

HostIdentity::Status HostIdentity::FindEthernetInterfaces(Interfaces& matchingServices) const {
    const Status status = registry::findPrimaryInterfaces(matchingServices);
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
    for (const auto& [controllerStatus, address] : iterator) {
        status = controllerStatus;
        if (status != success) {
            diagnostics::print(text::format("IORegistryEntryGetParentEntry returned 0x%08x\n", status));
        } else if (address) {
            diagnostics::report(Value(*address).description());
            std::copy_n(address->bytes.begin(), std::min(address->bytes.size(), addressSize), withAddress.begin());
        }
    }
    return status;
}

std::optional<std::string> HostIdentity::validateUniqueId(const std::optional<std::string>& uniqueId) const {
    if (isUsableId(uniqueId)) {
        return uniqueId;
    }
    hostPreferences().setIsUniqueIdChanged(true);
    platform::distributed_center::post("uniqueIdChanged");
    auto serialNumber = getSerialNumber();
    return isUsableId(serialNumber) ? serialNumber : std::nullopt;
}

std::optional<std::string> HostIdentity::getSerialNumber() const { return registry::serialNumber(); }

std::string HostIdentity::platformModel() const { return platform::system_info::hardwareModel(); }

std::int64_t HostIdentity::randomNumberBetween(std::int64_t minimum, std::int32_t maxNumber) const {
    const std::uint32_t width = static_cast<std::uint32_t>(maxNumber) - static_cast<std::uint32_t>(minimum) + 1;
    return minimum + std::int64_t{platform::system_info::randomBelow(width)};
}

void HostIdentity::validateCloneCaseWithSerialNumber() {
    const auto serialNumber = getSerialNumber();
    const bool isIdentified = serialNumber && !serialNumber->empty();
    const auto saved = isIdentified ? hostPreferences().serialNumber() : std::nullopt;
    const Installation installation = installationOf(serialNumber, saved);
    if (installation == Installation::unidentified) {
        log("Helper : Unable to get system serial number");
        return;
    }
    log("Helper : System Serial Number %@", *serialNumber);
    if (installation == Installation::fresh) {
        log("Helper : No Saved serial number exists: New installation");
        hostPreferences().setSerialNumber(*serialNumber);
        return;
    }
    log("Helper : Saved Serial Number %@", *saved);
    if (installation == Installation::unchanged) {
        log("Helper : Saved serial number matches with System serial number");
        return;
    }
    log("Helper : Saved serial number doesnt match with System serial number");
    awaitNetwork();
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
    if (sharesUniqueId(candidate, hostPreferences().uniqueID())) {
        hostPreferences().setUniqueID(serialNumber);
        log("Helper : Cloned case - update machineId with System Serial number : %@", serialNumber);
    } else {
        hostPreferences().setUniqueID(candidate);
        log("Helper : Cloned case - update machineId with System MAC Address : %@", candidate);
    }
}

void HostIdentity::takeNewHostDescription() const {
    const auto description = platform::textOf(hostPreferences().hostDecription());
    if (!description) {
        hostPreferences().setHostDecription(platform::network::computerName());
        return;
    }
    const std::string distinct = describeClone(*description, randomNumberBetween(10000, 99999));
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
