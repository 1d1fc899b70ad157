// Texts about the machine that are stored and later compared.
#pragma once

#include <string>
#include <string_view>

namespace platform {

/// The text in a file that the system keeps, without blanks around it; empty when absent. A text that changed by being
/// stored would never equal itself again, so what a property list can't hold is left out. Thread-safe.
std::string systemFact(std::string_view path);

} // namespace platform
