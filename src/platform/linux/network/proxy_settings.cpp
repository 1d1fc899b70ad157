#include "platform/linux/network/proxy_settings.h"

#include "foundation/text.h"
#include "platform/linux/files/system_files.h"

#include <algorithm>
#include <cstdlib>

namespace platform::proxy_settings {

namespace {

std::string setting(const std::string& name) {
    std::string upperCase = name;
    std::transform(name.begin(), name.end(), upperCase.begin(), text::upper);
    for (const std::string& variable : {name, upperCase}) {
        const char* value = std::getenv(variable.c_str());
        if (value != nullptr && *value != '\0') {
            return value;
        }
    }
    const std::string file = readSystemFile("/etc/environment").value_or("");
    const std::string value = assignedValue(file, name).value_or("");
    return value.empty() ? assignedValue(file, upperCase).value_or("") : value;
}

} // namespace

std::string proxyFor(const std::string& scheme) {
    const std::string proxy = setting(scheme + "_proxy");
    return proxy.empty() ? setting("all_proxy") : proxy;
}

std::string exceptions() { return setting("no_proxy"); }

bool isException(std::string_view host, std::string_view exceptions) {
    const auto endsWith = [&](std::string_view domain) {
        return host.size() >= domain.size() &&
               std::equal(domain.rbegin(), domain.rend(), host.rbegin(),
                          [](char a, char b) { return text::lower(a) == text::lower(b); });
    };
    while (!exceptions.empty()) {
        std::string_view entry = exceptions.substr(0, exceptions.find_first_of(", \t"));
        exceptions.remove_prefix(std::min(entry.size() + 1, exceptions.size()));
        entry.remove_prefix(entry.starts_with('.') ? 1 : 0);
        const bool matches = !entry.empty() && endsWith(entry) &&
                             (host.size() == entry.size() || host[host.size() - entry.size() - 1] == '.');
        if (entry == "*" || matches) {
            return true;
        }
    }
    return false;
}

} // namespace platform::proxy_settings
