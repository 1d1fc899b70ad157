// The document by which a machine leaves its account.
#pragma once

#include "foundation/value.h"

#include <optional>

namespace havrel {

/// What the account's device list is to lose: "regular" holds the registered host and viewer that have a token,
/// "instant" the instant-access host when both its ID and its signature are known. Values go in as they are stored.
platform::Dictionary deviceList(const std::optional<platform::Value>& hostToken,
                                const std::optional<platform::Value>& viewerToken,
                                const std::optional<platform::Value>& clientId,
                                const std::optional<platform::Value>& clientSignature);

} // namespace havrel
