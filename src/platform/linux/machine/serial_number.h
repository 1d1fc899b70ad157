// Which texts pass for the serial number of one machine.
#pragma once

#include <string_view>

namespace platform {

/// Whether the text can tell this machine from others: none of the placeholders that makers leave in the field. Takes
/// valid UTF-8. Thread-safe.
bool isSerialNumber(std::string_view text);

} // namespace platform
