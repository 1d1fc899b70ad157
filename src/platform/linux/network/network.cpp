#include "platform/network.h"

#include "foundation/deployment.h"
#include "foundation/diagnostics.h"
#include "foundation/format.h"
#include "foundation/property_list.h"
#include "foundation/text.h"
#include "platform/linux/files/descriptor.h"
#include "platform/linux/files/system_files.h"
#include "platform/linux/machine/system_fact.h"
#include "platform/linux/network/fetcher.h"
#include "platform/linux/network/network_interfaces.h"
#include "platform/linux/network/proxy_settings.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <climits>
#include <fcntl.h>
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

/// nullopt for a file that can't be read or is too long.
std::optional<std::string> readTrustAnchors(const std::string& path) {
    constexpr std::size_t longest = std::size_t{4} << 20;
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    return file ? readAll(file.get(), longest) : std::nullopt;
}

fetch::Outcome send(const Request& request) {
    fetch::Request transfer{.url = request.url,
                            .method = request.method,
                            .headers = request.headers,
                            .body = request.body,
                            .timeout = request.timeout,
                            .longestAnswer = answerLimit,
                            .proxy = proxy_settings::proxyFor("https"),
                            .proxyExceptions = proxy_settings::exceptions()};
    // Only root may be able to read the file.
    if (const std::string& file = deployment::settings().trustAnchorFile; !file.empty()) {
        transfer.trustAnchors = readTrustAnchors(file);
        if (!transfer.trustAnchors) {
            return fetch::transportError(-1200, "The trust anchors can't be read.");
        }
    }
    return fetcher::perform(fetcher::program(), transfer);
}

/// Of a URL; both are empty for what is none.
struct Server {
    std::string scheme;
    std::string host;
};

Server serverOf(std::string_view url) {
    const std::size_t colon = url.find("://");
    if (colon == std::string_view::npos) {
        return {};
    }
    std::string_view authority = url.substr(colon + 3);
    authority = authority.substr(0, authority.find_first_of("/?#"));
    authority.remove_prefix(authority.rfind('@') + 1); // from the start without a user
    const bool isBracketed = authority.starts_with('[');
    const std::string_view host = authority.substr(isBracketed ? 1 : 0);
    Server server{std::string(url.substr(0, colon)), std::string(host.substr(0, host.find(isBracketed ? ']' : ':')))};
    std::ranges::transform(server.scheme, server.scheme.begin(), text::lower);
    return server.scheme.empty() || server.host.empty() ? Server{} : server;
}

bool isAddress(int family, const std::string& text) {
    in6_addr address{};
    return text.find('\0') == std::string::npos && ::inet_pton(family, text.c_str(), &address) == 1;
}

} // namespace

std::optional<std::string> sendSynchronousRequest(const Request& request, std::optional<Error>& error) {
    try {
        fetch::Outcome outcome = send(request);
        if (auto* answer = std::get_if<std::string>(&outcome)) {
            return std::move(*answer);
        }
        error = std::get<Error>(std::move(outcome));
    } catch (const std::exception& failure) { // no descriptor, no memory, no HavrelFetch
        error = fetch::transportError(-1, failure.what());
    }
    return std::nullopt;
}

void endRequests() { fetcher::endAll(); }

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

bool hasDefaultRoute() { return network_interfaces::hasDefaultRoute(); }

std::string loopbackInterface() { return "lo"; }

std::string primaryInterface() { return network_interfaces::primary(); }

bool isIPv4Address(const std::string& text) { return isAddress(AF_INET, text); }

bool isIPv6Address(const std::string& text) { return isAddress(AF_INET6, text); }

std::string proxyType(const std::string& url) {
    const auto [scheme, host] = serverOf(url);
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
