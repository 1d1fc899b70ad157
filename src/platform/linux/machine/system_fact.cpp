#include "platform/linux/machine/system_fact.h"

#include "foundation/property_list.h"
#include "foundation/text.h"
#include "platform/linux/files/system_files.h"

namespace platform {

std::string systemFact(std::string_view path) {
    return text::trim(property_list::storable(readSystemFile(path).value_or("")), " \t\r\n");
}

} // namespace platform
