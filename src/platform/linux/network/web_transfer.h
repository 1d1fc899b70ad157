// HTTPS requests on libcurl, beneath network.h.
#pragma once

#include "platform/network.h"

#include <optional>
#include <string>

namespace platform::web_transfer {

/// network::sendSynchronousRequest.
std::optional<std::string> perform(const network::Request& request, std::optional<Error>& error);

/// Where a URL leads to.
struct Origin {
    std::string scheme;
    std::string host;
    std::string port;

    bool operator==(const Origin&) const = default;
};

/// All empty when the URL is none; the scheme in lower case.
Origin originOf(const std::string& url);

} // namespace platform::web_transfer
