#include "platform/device_registry.h"

#include "foundation/numbers.h"
#include "foundation/text.h"
#include "platform/linux/machine/serial_number.h"
#include "platform/linux/machine/system_fact.h"
#include "platform/linux/network/network_interfaces.h"

namespace platform::device_registry {

namespace {

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
        if (std::string text = systemFact(path); isSerialNumber(text)) {
            return text;
        }
    }
    return std::nullopt;
}

} // namespace platform::device_registry
