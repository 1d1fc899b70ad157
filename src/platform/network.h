// The network: one blocking HTTPS request, the machine's own addresses, its proxy settings and its name.
// Every operation may be called from any thread.
#pragma once

#include "foundation/error.h"

#include <chrono>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace platform::network {

struct Request {
    std::string url;
    std::string method = "GET";
    /// Set exactly as spelt, in this order. A "Content-length" here is sent as it is, whatever the body's length.
    std::vector<std::pair<std::string, std::string>> headers = {};
    /// Absent: no body and no length header.
    std::optional<std::string> body = {};
    std::chrono::milliseconds timeout{60'000};
};

/// The most that is accepted of an answer, in bytes; a longer one is a transport failure.
inline constexpr std::size_t answerLimit = std::size_t{16} << 20;

/// Sends one HTTP/1.1 request over verified TLS and returns the answer's body whatever its status, or nothing with
/// `error` filled: no connection, lookup or certificate failure, time-out (whatever stalls), a body cut short, an
/// answer too long, a URL that is none or not https. Redirects are followed to https only.
std::optional<std::string> sendSynchronousRequest(const Request& request, std::optional<Error>& error);

struct InterfaceAddress {
    std::string interfaceName;
    bool isUp = false;
    /// Absent when the entry has no IPv4 address.
    std::optional<std::string> ipv4;
};

/// One entry for each address of each interface, in the system's order; nothing when it cannot be read.
std::optional<std::vector<InterfaceAddress>> interfaceAddresses();
/// The names that this system gives to its loopback and its primary wired interface; the latter empty when
/// there is none.
std::string loopbackInterface();
std::string primaryInterface();

/// Whether `inet_pton` takes the text for an address of the family.
bool isIPv4Address(const std::string& text);
bool isIPv6Address(const std::string& text);

/// The kind of the first proxy that the system's settings give for the URL: "kCFProxyTypeNone",
/// "kCFProxyTypeHTTP", "kCFProxyTypeHTTPS", "kCFProxyTypeSOCKS" or "kCFProxyTypeAutoConfigurationURL".
std::string proxyType(const std::string& url);

/// The computer's name as the system shows it.
std::string computerName();

} // namespace platform::network
