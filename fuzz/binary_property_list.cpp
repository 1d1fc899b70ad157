// Property lists in the binary form.
#include "property_list_target.h"

#include <cstring>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // Every input is a binary list, so that no time goes to the XML form.
    std::vector<std::uint8_t> list(data, data + size);
    list.resize(std::max<std::size_t>(size, 8));
    std::memcpy(list.data(), "bplist00", 8);
    checkPropertyList(list.data(), list.size());
    return 0;
}
