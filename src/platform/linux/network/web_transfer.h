// HTTPS requests by libcurl, for network.h. Thread-safe.
#pragma once

#include "platform/network.h"

#include <optional>
#include <string>

namespace platform::web_transfer {

/// network::sendSynchronousRequest.
std::optional<std::string> perform(const network::Request& request, std::optional<Error>& error);

/// The server that a URL names.
struct Origin {
    std::string scheme;
    std::string host;
    std::string port;

    bool operator==(const Origin&) const = default;
};

/// Scheme and host in lower case. All empty for what is no URL.
Origin originOf(const std::string& url);

} // namespace platform::web_transfer
