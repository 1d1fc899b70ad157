#include "platform/network.h"

#include "foundation/diagnostics.h"
#include "foundation/format.h"
#include "foundation/property_list.h"
#include "platform/linux/files/system_files.h"
#include "platform/linux/machine/system_fact.h"
#include "platform/linux/network/network_interfaces.h"
#include "platform/linux/network/proxy_settings.h"
#include "platform/linux/network/web_transfer.h"

#include <arpa/inet.h>
#include <array>
#include <climits>
#include <ifaddrs.h>
#include <memory>
#include <net/if.h>
#include <netinet/in.h>
#include <unistd.h>

namespace platform::network {

namespace {

std::optional<std::string> ipv4Of(const char* name, const sockaddr* address) {
    if (address == nullptr || address->sa_family != AF_INET) {
        return std::nullopt;
    }
    const auto& number = reinterpret_cast<const sockaddr_in*>(address)->sin_addr; // NOLINT(*-reinterpret-cast)
    std::array<char, INET_ADDRSTRLEN> dotted{};
    if (::inet_ntop(AF_INET, &number, dotted.data(), dotted.size()) == nullptr) {
        diagnostics::print(text::format("%s: inet_ntop failed!\n", name));
        return std::nullopt;
    }
    return dotted.data();
}

bool isAddress(int family, const std::string& text) {
    in6_addr address{};
    return text.find('\0') == std::string::npos && ::inet_pton(family, text.c_str(), &address) == 1;
}

} // namespace

std::optional<std::string> sendSynchronousRequest(const Request& request, std::optional<Error>& error) {
    return web_transfer::perform(request, error);
}

std::optional<std::vector<InterfaceAddress>> interfaceAddresses() {
    ifaddrs* list = nullptr;
    if (::getifaddrs(&list) != 0) {
        return std::nullopt;
    }
    const std::unique_ptr<ifaddrs, decltype(&::freeifaddrs)> owner(list, &::freeifaddrs);
    std::vector<InterfaceAddress> addresses;
    for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
        // An address may have a label, "lo:1", which comes in place of the interface's name.
        const std::string_view name = entry->ifa_name;
        addresses.push_back({std::string(name.substr(0, name.find(':'))), (entry->ifa_flags & IFF_UP) != 0,
                             ipv4Of(entry->ifa_name, entry->ifa_addr)});
    }
    return addresses;
}

std::string loopbackInterface() { return "lo"; }

std::string primaryInterface() { return network_interfaces::primary(); }

bool isIPv4Address(const std::string& text) { return isAddress(AF_INET, text); }

bool isIPv6Address(const std::string& text) { return isAddress(AF_INET6, text); }

std::string proxyType(const std::string& url) {
    const auto [scheme, host, port] = web_transfer::originOf(url);
    const std::string proxy = proxy_settings::proxyFor(scheme);
    if (scheme.empty() || proxy.empty() || proxy_settings::isException(host, proxy_settings::exceptions())) {
        return "kCFProxyTypeNone";
    }
    if (proxy.starts_with("socks")) {
        return "kCFProxyTypeSOCKS";
    }
    return scheme == "https" ? "kCFProxyTypeHTTPS" : "kCFProxyTypeHTTP";
}

std::string computerName() {
    const auto information = readSystemFile("/etc/machine-info").value_or("");
    std::string name = assignedValue(information, "PRETTY_HOSTNAME").value_or("");
    if (name.empty()) {
        name = systemFact("/etc/hostname");
    }
    if (name.empty()) {
        std::array<char, HOST_NAME_MAX + 1> buffer{};
        name = ::gethostname(buffer.data(), HOST_NAME_MAX) == 0 ? buffer.data() : "";
    }
    return property_list::storable(name);
}

} // namespace platform::network
