#include "platform/property_list.h"

#include "platform/linux/binary_property_list.h"
#include "platform/linux/xml_property_list.h"

namespace platform::property_list {

std::optional<Value> parse(std::string_view bytes) {
    if (bytes.size() > files::readLimit) {
        return std::nullopt;
    }
    return isBinary(bytes) ? parseBinary(bytes) : parseXml(bytes);
}

std::optional<Value> readFile(const std::string& path) {
    const auto bytes = files::read(path);
    return bytes ? parse(*bytes) : std::nullopt;
}

bool writeFile(const std::string& path, const Value& value) {
    const auto xml = toXml(value);
    // What could not be read again would count as damaged and be lost.
    return xml && xml->size() <= files::readLimit && files::replace(path, *xml, files::Durability::flushed);
}

} // namespace platform::property_list
