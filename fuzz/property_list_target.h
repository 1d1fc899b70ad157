// What holds for every property list that is read: it can be written and read back, and from then on stays as it is.
#pragma once

#include "foundation/property_list.h"
#include "fuzz/require.h"

#include <cstdint>

inline void checkPropertyList(const std::uint8_t* data, std::size_t size) {
    using namespace platform::property_list;
    auto value = parse({reinterpret_cast<const char*>(data), size});
    std::optional<std::string> previous;
    for (int round = 0; value && round < 3; ++round) {
        const auto written = toXml(*value);
        value = written ? parse(*written) : std::nullopt;
        // Whatever was read can be written and read again.
        require(value.has_value());
        // The first time, characters that XML can't hold are dropped, and keys change their order with them. Texts are
        // compared, not values: not-a-number is never equal to itself.
        require(round < 2 || written == previous);
        previous = written;
    }
}
