#include "platform/linux/network/network_interfaces.h"

#include "foundation/text.h"
#include "platform/files.h"
#include "platform/linux/files/system_files.h"

#include <algorithm>
#include <array>
#include <climits>
#include <map>
#include <net/if_arp.h>
#include <net/route.h>
#include <sstream>
#include <tuple>
#include <unistd.h>

namespace platform::network_interfaces {

namespace {

const std::string folder = "/sys/class/net/";

/// Whether sysfs has the attribute for the interface. Many are links, and any kind of file counts.
bool has(const std::string& name, const char* attribute) {
    return ::access(underRoot(folder + name + "/" + attribute).c_str(), F_OK) == 0;
}

bool isWired(const std::string& name) {
    constexpr std::array others{"wireless", "phy80211", "bridge", "bonding", "tun_flags"};
    return attribute(name, "type") == std::to_string(ARPHRD_ETHER) &&
           std::none_of(others.begin(), others.end(), [&](const char* other) { return has(name, other); });
}

/// Whether the address was set by software (a bit of its first byte says so) instead of by the maker.
bool isLocallyAdministered(const std::string& name) {
    const std::string address = attribute(name, "address");
    return address.size() < 2 || std::string_view("2367abefABEF").find(address[1]) != std::string_view::npos;
}

/// The lowest metric of each interface that holds a default route.
using Metrics = std::map<std::string, unsigned long>;

void addRoute(Metrics& metrics, const std::string& name, unsigned long metric, unsigned long flags) {
    if ((flags & (RTF_UP | RTF_REJECT)) == RTF_UP) {
        const auto known = metrics.try_emplace(name, metric).first;
        known->second = std::min(known->second, metric);
    }
}

/// Calls `read` with each line of the routing table, to take the columns from.
template <typename Read>
void forEachRoute(const char* table, const Read& read) {
    constexpr std::size_t tableLimit = std::size_t{16} << 20;
    std::istringstream lines(readSystemFile(table, tableLimit).value_or(""));
    for (std::string line; std::getline(lines, line);) {
        std::istringstream columns(line);
        read(columns);
    }
}

Metrics defaultRoutes() {
    Metrics metrics;
    forEachRoute("/proc/net/route", [&](std::istream& columns) {
        std::string name;
        std::string skipped;
        unsigned long destination = 0;
        unsigned long flags = 0;
        unsigned long metric = 0;
        unsigned long mask = 0;
        columns >> name >> std::hex >> destination >> skipped >> flags >> skipped >> skipped >> std::dec >> metric >>
            std::hex >> mask;
        if (columns && destination == 0 && mask == 0) {
            addRoute(metrics, name, metric, flags);
        }
    });
    forEachRoute("/proc/net/ipv6_route", [&](std::istream& columns) {
        std::string destination;
        std::string prefix;
        std::string skipped;
        unsigned long metric = 0;
        unsigned long flags = 0;
        std::string name;
        columns >> destination >> prefix >> skipped >> skipped >> skipped >> std::hex >> metric >> skipped >> skipped >>
            flags >> name;
        if (columns && prefix == "00" && destination.find_first_not_of('0') == std::string::npos) {
            addRoute(metrics, name, metric, flags);
        }
    });
    return metrics;
}

std::vector<std::string> wired() {
    std::vector<std::string> names = files::list(folder);
    std::erase_if(names, [](const std::string& name) { return !isWired(name); });
    return names;
}

} // namespace

std::string attribute(const std::string& name, const std::string& attribute) {
    return text::trim(readSystemFile(folder + name + "/" + attribute).value_or(""), " \t\n");
}

// Ranked by, in this order: a real device before one the kernel made (which counts only if it holds a default route), a
// maker's address before one set by software, the metric of the default route, the name.
std::string primary() {
    const auto routes = defaultRoutes();
    using Rank = std::tuple<bool, bool, unsigned long, std::string>;
    std::vector<Rank> candidates;
    for (const std::string& name : wired()) {
        const bool isDevice = has(name, "device");
        const auto route = routes.find(name);
        if (isDevice || route != routes.end()) {
            candidates.emplace_back(!isDevice, isLocallyAdministered(name),
                                    route == routes.end() ? ULONG_MAX : route->second, name);
        }
    }
    return candidates.empty() ? "" : std::get<std::string>(*std::min_element(candidates.begin(), candidates.end()));
}

} // namespace platform::network_interfaces
