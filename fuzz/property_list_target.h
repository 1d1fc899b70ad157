// What holds for every property list that is read: it can be written and read back, and from then on stays as it is.
#pragma once

#include "foundation/property_list.h"

#include <cstdint>
#include <cstdlib>

inline void checkPropertyList(const std::uint8_t* data, std::size_t size) {
    using namespace platform::property_list;
    auto value = parse({reinterpret_cast<const char*>(data), size});
    std::optional<std::string> previous;
    for (int round = 0; value && round < 3; ++round) {
        const auto written = toXml(*value);
        value = written ? parse(*written) : std::nullopt;
        // The first time, characters that XML cannot hold may go, and keys change their order with them. Texts are
        // compared, not values: not-a-number is never equal to itself.
        if (!value || (round == 2 && written != previous)) {
            std::abort();
        }
        previous = written;
    }
}
