#include "util/PropertyListFile.h"

#include "foundation/limits.h"
#include "foundation/property_list.h"
#include "platform/files.h"

namespace havrel {

namespace files = platform::files;

std::optional<platform::Value> readPropertyList(const std::string& path) {
    const auto bytes = files::read(path, platform::propertyListLimit);
    return bytes ? platform::property_list::parse(*bytes) : std::nullopt;
}

bool writePropertyList(const std::string& path, const platform::Value& value) {
    const auto xml = platform::property_list::toXml(value);
    return xml && files::replace(path, *xml, files::Durability::flushed);
}

} // namespace havrel
