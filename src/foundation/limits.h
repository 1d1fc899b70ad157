// Bounds on what is read from outside.
#pragma once

#include <cstddef>

namespace platform {

/// The longest JSON text or log file that is read or written, in bytes.
inline constexpr std::size_t documentLimit = std::size_t{16} << 20;

/// The longest property list that is read or written. The most expensive file of this size takes less than 50 MB and a
/// tenth of a second.
inline constexpr std::size_t propertyListLimit = std::size_t{4} << 20;

} // namespace platform
