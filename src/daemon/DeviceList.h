// What the web service is sent when a machine leaves its account.
#pragma once

#include "foundation/value.h"

#include <optional>

namespace havrel {

/// The devices to take off the account. "regular" holds the host and the viewer, each only if it has a token; "instant"
/// holds the instant-access host if both its ID and its signature are known. The values are as stored.
platform::Dictionary deviceList(const std::optional<platform::Value>& hostToken,
                                const std::optional<platform::Value>& viewerToken,
                                const std::optional<platform::Value>& clientId,
                                const std::optional<platform::Value>& clientSignature);

} // namespace havrel
