// Which of the machine's network interfaces are wired, and which of these is the primary one.
#pragma once

#include <string>
#include <vector>

namespace platform::network_interfaces {

/// The names of the Ethernet interfaces with a cable, in order.
std::vector<std::string> wired();

/// The one whose hardware address stands for the machine; empty when there is none.
std::string primary();

/// What sysfs says about an interface ("address"), without the line's end; empty when it says nothing.
std::string attribute(const std::string& name, const std::string& attribute);

} // namespace platform::network_interfaces
