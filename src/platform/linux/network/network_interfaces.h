// Which of the machine's network interfaces is the primary wired one. Thread-safe.
#pragma once

#include <string>

namespace platform::network_interfaces {

/// The wired interface whose hardware address identifies the machine; empty when there is none.
std::string primary();

/// Whether any interface holds a default route, IPv4 or IPv6, that is up.
bool hasDefaultRoute();

/// An attribute of the interface in sysfs ("address"), without the line's end; empty when absent.
std::string attribute(const std::string& name, const std::string& attribute);

} // namespace platform::network_interfaces
