#include "platform/linux/network/network_interfaces.h"

#include "foundation/text.h"
#include "platform/files.h"
#include "platform/linux/files/system_files.h"

#include <algorithm>
#include <array>
#include <climits>
#include <filesystem>
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

/// Whether the address was set by software, which a bit of its first byte tells, and not by the maker.
bool hasSoftwareAddress(const std::string& name) {
    const std::string address = attribute(name, "address");
    return address.size() < 2 || std::string_view("2367abefABEF").find(address[1]) != std::string_view::npos;
}

/// Whether it is a USB adapter or part of a dock, which may be plugged into another machine tomorrow.
bool isExternal(const std::string& name) {
    std::error_code error;
    const auto bus = std::filesystem::read_symlink(underRoot(folder + name + "/device/subsystem"), error);
    return bus.filename() == "usb" || attribute(name, "device/removable") == "removable";
}

/// A wired interface that may be the primary one: the one that ranks first is.
struct Candidate {
    bool isVirtual = false;
    bool isExternal = false;
    bool hasSoftwareAddress = false;
    /// Of the default route.
    unsigned long metric = 0;
    std::string name;

    auto rank() const { return std::tie(isVirtual, isExternal, hasSoftwareAddress, metric, name); }
};

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

bool hasDefaultRoute() { return !defaultRoutes().empty(); }

std::string primary() {
    const auto routes = defaultRoutes();
    std::vector<Candidate> candidates;
    for (const std::string& name : wired()) {
        const auto route = routes.find(name);
        const bool holdsDefaultRoute = route != routes.end();
        const bool isVirtual = !has(name, "device");
        // A virtual interface counts only if it holds the default route, as a container's does.
        if (!isVirtual || holdsDefaultRoute) {
            candidates.push_back({.isVirtual = isVirtual,
                                  .isExternal = isExternal(name),
                                  .hasSoftwareAddress = hasSoftwareAddress(name),
                                  .metric = holdsDefaultRoute ? route->second : ULONG_MAX,
                                  .name = name});
        }
    }
    return candidates.empty() ? "" : std::ranges::min(candidates, {}, &Candidate::rank).name;
}

} // namespace platform::network_interfaces
