// IPv4 addresses: the public one, as the web service sees it, and those of this machine's interfaces.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace havrel {

/// Stateless and thread-safe.
class HVLIPAddressUtil {
  public:
    /// What `externalIPAddress` returns if there is no address at all; callers ignore it.
    static constexpr const char* fallbackAddress = "192.168.1.1";

    /// The public address as the service reports it, of which only the length is checked; failing that the first of
    /// `getIP4Add`, failing that `fallbackAddress`. Sends at most two requests, each with a time-out of 5 seconds.
    static std::string externalIPAddress();
    /// The IPv4 addresses of all interfaces that are up, except the loopback's, in the system's order; nullopt if the
    /// interfaces can't be read.
    static std::optional<std::vector<std::string>> getIPAddress();
    /// Those of `getIPAddress` that pass `filterIpV4Address`.
    static std::vector<std::string> getIP4Add();
    /// Keeps the texts that consist of digits and three dots, whatever the numbers; drops "127.0.0.1".
    static std::vector<std::string> filterIpV4Address(const std::vector<std::string>& addresses);
    static bool isValidIP4Address(const std::string& address);
    static bool isValidIP6Address(const std::string& address);
    /// The last IPv4 address of the primary wired interface, or "error".
    static std::string getSystemIPAddress();
};

} // namespace havrel
