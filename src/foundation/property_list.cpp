#include "foundation/property_list.h"

#include "foundation/binary_property_list.h"
#include "foundation/limits.h"
#include "foundation/xml_property_list.h"

namespace platform::property_list {

std::optional<Value> parse(std::string_view bytes) {
    if (bytes.size() > propertyListLimit) {
        return std::nullopt;
    }
    return isBinary(bytes) ? parseBinary(bytes) : parseXml(bytes);
}

} // namespace platform::property_list
