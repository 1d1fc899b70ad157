#include "util/PropertyListFile.h"

#include "foundation/property_list.h"
#include "platform/files.h"

namespace havrel {

namespace files = platform::files;

std::optional<platform::Value> readPropertyList(const std::string& path) {
    const auto bytes = files::read(path);
    return bytes ? platform::property_list::parse(*bytes) : std::nullopt;
}

bool writePropertyList(const std::string& path, const platform::Value& value) {
    const auto xml = platform::property_list::toXml(value);
    // A file too large to read back would count as damaged, and its content would be lost.
    return xml && xml->size() <= files::readLimit && files::replace(path, *xml, files::Durability::flushed);
}

} // namespace havrel
