// A machine and its users as the test says.
#pragma once

#include "fakes/steered.h"
#include "platform/device_registry.h"
#include "platform/system_info.h"

#include <set>

namespace fakes::machine {

inline Steered<platform::system_info::Version> version;
inline Steered<std::optional<std::chrono::seconds>> uptime;
inline Steered<std::string> bundlePath;
inline Steered<std::optional<std::string>> consoleUser;
inline Steered<std::set<std::string>> users;
/// The status of the search for primary interfaces, and what it finds.
inline Steered<platform::device_registry::Status> searchStatus;
inline Steered<std::vector<platform::device_registry::EthernetInterface>> interfaces;
inline Steered<std::optional<std::string>> serialNumber;
/// Takes the bound; unset, any number below it may come.
inline Steered<std::function<std::uint32_t(std::uint32_t)>> randomBelow;

/// Version 10.15.7, the daemon's own folder as bundle path, nobody at the console, no users, neither interface nor
/// serial number.
inline void reset() {
    version({10, 15, 7});
    uptime({});
    bundlePath("/usr/libexec/havrel");
    consoleUser({});
    searchStatus(platform::device_registry::success);
    interfaces({});
    serialNumber({});
    randomBelow({});
    users({});
}

} // namespace fakes::machine
