// Whether the installation was copied from another machine, and how a copy is told apart from it.
#pragma once

#include "foundation/value.h"

#include <cstdint>
#include <optional>
#include <string>

namespace havrel {

enum class Installation {
    unidentified, ///< the machine has no serial number
    fresh,        ///< no serial number has been saved yet
    unchanged,
    cloned,
};

/// What the machine's serial number and the saved one tell. The comparison is exact: case counts, and a saved value
/// that is no text equals no serial number.
Installation installationOf(const std::optional<std::string>& serialNumber,
                            const std::optional<platform::Value>& saved);

/// Whether the clone has to use its serial number as unique ID: its own candidate is the ID that came with the copy (a
/// network adapter moved along, say).
bool sharesUniqueId(const std::optional<std::string>& candidate, const std::optional<platform::Value>& saved);

/// The description with "_" and the number appended. One of 46 or more characters is cut to 44 first; one of 45 stays
/// whole.
std::string describeClone(const std::string& description, std::int64_t number);

} // namespace havrel
