// Property lists in either form, as files hold them.
#include "property_list_target.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    checkPropertyList(data, size);
    return 0;
}
