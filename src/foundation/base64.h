// Base64 as RFC 4648 defines it. Thread-safe.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace platform::base64 {

std::string encode(std::string_view bytes);
/// Nullopt unless the text is wholly base64, with its padding and without line breaks.
std::optional<std::string> decode(std::string_view text);
/// The bytes of the base64 digits up to the first "=", whatever stands between them; bits that fill no byte are
/// dropped.
std::string decodeLoosely(std::string_view text);

} // namespace platform::base64
