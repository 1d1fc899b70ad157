// The network: one blocking HTTPS request, the machine's own addresses, its proxy settings and its name. Thread-safe;
// nullopt when absent.
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
    /// Sent as spelt, in this order. A "Content-length" is sent as given, whatever the body's length.
    std::vector<std::pair<std::string, std::string>> headers = {};
    /// nullopt: neither a body nor a length header.
    std::optional<std::string> body = {};
    /// For the whole transfer, from the name look-up to the last byte.
    std::chrono::milliseconds timeout{60'000};
};

/// The longest answer that is accepted, in bytes; a longer one is a transport failure.
inline constexpr std::size_t answerLimit = std::size_t{16} << 20;

/// Sends the request over HTTP/1.1 and verified TLS and returns the answer's body, whatever its status. nullopt, with
/// `error` filled, when the transfer fails: no connection, name or valid certificate, a time-out, a body cut short or
/// too long, a URL that isn't https. Redirects are followed to https only, and with a body only within the same server.
std::optional<std::string> sendSynchronousRequest(const Request& request, std::optional<Error>& error);

/// Ends the requests under way, and all later ones, with an error. For the end of the process.
void endRequests();

struct InterfaceAddress {
    std::string interfaceName;
    bool isUp = false;
    /// nullopt when the entry holds an address of another family.
    std::optional<std::string> ipv4;
};

/// One entry for each address of each interface, in the system's order; nullopt when they can't be read.
std::optional<std::vector<InterfaceAddress>> interfaceAddresses();
/// Whether a default route is up, so that other networks can be reached.
bool hasDefaultRoute();
/// What this system calls its loopback.
std::string loopbackInterface();
/// What this system calls its primary wired interface; empty without one.
std::string primaryInterface();

/// Whether `inet_pton` accepts the text.
bool isIPv4Address(const std::string& text);
bool isIPv6Address(const std::string& text);

/// The kind of the first proxy that the system's settings give for the URL: "kCFProxyTypeNone",
/// "kCFProxyTypeHTTP", "kCFProxyTypeHTTPS", "kCFProxyTypeSOCKS" or "kCFProxyTypeAutoConfigurationURL".
std::string proxyType(const std::string& url);

/// The computer's name as the system shows it.
std::string computerName();

} // namespace platform::network
