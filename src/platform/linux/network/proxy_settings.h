// The system's proxy settings: the usual environment variables, else what /etc/environment sets. Thread-safe.
#pragma once

#include <string>
#include <string_view>

namespace platform::proxy_settings {

/// The proxy for URLs of the scheme ("https"), spelt as in the setting; empty for none.
std::string proxyFor(const std::string& scheme);

/// The hosts to connect to directly: names, domains, addresses or "*", separated by commas or blanks.
std::string exceptions();
bool isException(std::string_view host, std::string_view exceptions);

} // namespace platform::proxy_settings
