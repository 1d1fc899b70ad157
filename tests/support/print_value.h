// Shows values in failed expectations as "%@" prints them, not as bytes.
#pragma once

#include "foundation/value.h"

#include <ostream>

namespace platform {

inline void PrintTo(const Value& value, std::ostream* out) { *out << value.description(); }

} // namespace platform
