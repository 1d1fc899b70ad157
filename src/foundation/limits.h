#pragma once

#include <cstddef>

namespace platform {

/// The longest document that is read or written, in bytes.
inline constexpr std::size_t documentLimit = std::size_t{16} << 20;

} // namespace platform
