// IPv4 addresses: the one that the web service sees and those of this machine's interfaces.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace havrel {

/// Nothing is kept between calls. From any thread.
class HVLIPAddressUtil {
  public:
    /// What `externalIPAddress` answers when nothing better is known; callers ignore it.
    static constexpr const char* fallbackAddress = "192.168.1.1";

    /// The public address as the service reports it, unchecked; else the first local one, else `fallbackAddress`.
    /// Blocks for at most two requests of 5 seconds.
    static std::string externalIPAddress();
    /// The IPv4 addresses of all interfaces that are up, except the loopback's, in the system's order; nothing when
    /// the interfaces cannot be read.
    static std::optional<std::vector<std::string>> getIPAddress();
    /// Those that pass `filterIpV4Address`.
    static std::vector<std::string> getIP4Add();
    /// The texts of three dots and otherwise digits (whatever their values), without "127.0.0.1".
    static std::vector<std::string> filterIpV4Address(const std::vector<std::string>& addresses);
    static bool isValidIP4Address(const std::string& address);
    static bool isValidIP6Address(const std::string& address);
    /// The last IPv4 address of the primary wired interface, or "error".
    static std::string getSystemIPAddress();
};

} // namespace havrel
