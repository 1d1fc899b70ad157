// The system's proxy settings: the usual environment variables, else what /etc/environment sets.
#pragma once

#include <string>
#include <string_view>

namespace platform::proxy_settings {

/// The proxy set for URLs of the scheme ("https"), as the setting has it; empty for none.
std::string proxyFor(const std::string& scheme);

/// The hosts that are reached without one: names, domains, addresses or "*", set apart by commas or blanks.
std::string exceptions();
bool isException(std::string_view host, std::string_view exceptions);

} // namespace platform::proxy_settings
