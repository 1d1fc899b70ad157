#include "platform/device_registry.h"

#include "foundation/numbers.h"
#include "foundation/text.h"
#include "foundation/unicode.h"
#include "platform/linux/files/system_files.h"
#include "platform/linux/network/network_interfaces.h"

#include <algorithm>
#include <array>
#include <functional>

namespace platform::device_registry {

namespace {

/// What makers leave in the field when they don't fill it, in lower case.
constexpr std::array<std::string_view, 19> placeholders{"to be filled by o.e.m.",
                                                        "to be filled by oem",
                                                        "default string",
                                                        "none",
                                                        "system serial number",
                                                        "base board serial number",
                                                        "chassis serial number",
                                                        "not specified",
                                                        "not applicable",
                                                        "not available",
                                                        "n/a",
                                                        "na",
                                                        "unknown",
                                                        "empty",
                                                        "oem",
                                                        "0123456789",
                                                        "1234567890",
                                                        "123456789",
                                                        "03000200-0400-0500-0006-000700080009"};

/// Neither a placeholder nor one character over and over ("00000000-0000-…", "ffff…", "xxxxxx").
bool isUsable(const std::string& serial) {
    std::string text = serial;
    std::transform(text.begin(), text.end(), text.begin(), text::lower);
    if (std::find(placeholders.begin(), placeholders.end(), text) != placeholders.end()) {
        return false;
    }
    std::erase_if(text, [](char c) { return std::string_view(" -_.:/").find(c) != std::string_view::npos; });
    return std::adjacent_find(text.begin(), text.end(), std::not_equal_to<>()) != text.end();
}

/// The six bytes of "0a:1b:2c:3d:4e:5f"; nullopt for any other text.
std::optional<Data> parseAddress(const std::string& text) {
    constexpr std::size_t addressSize = 6;
    Data address;
    for (const std::string& piece : text::split(text, ":")) {
        const auto byte = text::wholeNumber<unsigned char>(piece, 16);
        if (piece.size() != 2 || !byte) {
            return std::nullopt;
        }
        address.bytes += static_cast<char>(*byte);
    }
    return address.bytes.size() == addressSize ? std::optional(address) : std::nullopt;
}

} // namespace

Status findPrimaryInterfaces(std::vector<EthernetInterface>& interfaces) {
    interfaces.clear();
    if (const std::string name = network_interfaces::primary(); !name.empty()) {
        interfaces.push_back({success, parseAddress(network_interfaces::attribute(name, "address"))});
    }
    return success;
}

std::optional<std::string> serialNumber() {
    for (const auto* path :
         {"/sys/class/dmi/id/product_serial", "/sys/class/dmi/id/board_serial", "/sys/class/dmi/id/product_uuid",
          "/sys/firmware/devicetree/base/serial-number", "/proc/device-tree/serial-number"}) {
        const auto content = readSystemFile(path);
        // The device tree ends its texts with a zero byte.
        std::string serial = text::trim(text::makeValidUtf8(content.value_or("")), std::string_view(" \t\n\0", 4));
        if (isUsable(serial)) {
            return serial;
        }
    }
    return std::nullopt;
}

} // namespace platform::device_registry
