// Bounds on what is read from outside.
#pragma once

#include <cstddef>

namespace platform {

/// The longest property list, JSON text or log file that is read or written, in bytes.
inline constexpr std::size_t documentLimit = std::size_t{16} << 20;

} // namespace platform
