// Base64 as RFC 4648 defines it. Thread-safe.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace platform::base64 {

std::string encode(std::string_view bytes);
/// Strict RFC 4648 with padding; nothing when the text is anything else.
std::optional<std::string> decode(std::string_view text);

} // namespace platform::base64
