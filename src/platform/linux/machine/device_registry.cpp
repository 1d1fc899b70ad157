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

constexpr auto interfaceClass = "IOEthernetInterface";
constexpr auto controllerClass = "IOEthernetController";
constexpr auto expertClass = "IOPlatformExpertDevice";

/// What makers leave in the field when they do not fill it, in lower case.
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

std::optional<Value> serialNumber() {
    for (const auto* path :
         {"/sys/class/dmi/id/product_serial", "/sys/class/dmi/id/board_serial", "/sys/class/dmi/id/product_uuid",
          "/sys/firmware/devicetree/base/serial-number", "/proc/device-tree/serial-number"}) {
        const auto content = readSystemFile(path);
        // The device tree ends its texts with a zero byte.
        const std::string serial =
            text::trim(text::makeValidUtf8(content.value_or("")), std::string_view(" \t\n\0", 4));
        if (isUsable(serial)) {
            return serial;
        }
    }
    return std::nullopt;
}

/// The six bytes of "0a:1b:2c:3d:4e:5f".
std::optional<Value> hardwareAddress(const std::string& interface) {
    const auto pieces = text::split(network_interfaces::attribute(interface, "address"), ":");
    Data address;
    for (const std::string& piece : pieces) {
        const auto byte = text::wholeNumber<unsigned char>(piece, 16);
        if (piece.size() != 2 || !byte) {
            return std::nullopt;
        }
        address.bytes += static_cast<char>(*byte);
    }
    return address.bytes.size() == 6 ? std::optional<Value>(address) : std::nullopt;
}

/// An interface's or its controller's path is the interface's name; the platform expert has no need of one.
std::vector<Entry> entriesOf(const std::string& className) {
    std::vector<Entry> entries;
    if (className == expertClass) {
        entries.emplace_back(expertClass, "");
    } else if (className == interfaceClass) {
        for (const std::string& name : network_interfaces::wired()) {
            entries.emplace_back(interfaceClass, name);
        }
    }
    return entries;
}

} // namespace

std::optional<Dictionary> matching(const std::string& className) { return Dictionary{{"IOProviderClass", className}}; }

Status matchingServices(const Dictionary& matching, std::vector<Entry>& entries) {
    entries.clear();
    const auto wantedClass = matching.find("IOProviderClass");
    if (wantedClass == matching.end() || wantedClass->second.text() == nullptr) {
        return failure;
    }
    entries = entriesOf(*wantedClass->second.text());
    const auto wanted = matching.find("IOPropertyMatch");
    if (wanted != matching.end() && wanted->second.dictionary() != nullptr) {
        for (const auto& one : *wanted->second.dictionary()) {
            std::erase_if(entries, [&](const Entry& entry) { return property(entry, one.first) != one.second; });
        }
    }
    return success;
}

std::optional<Entry> matchingService(const Dictionary& matching) {
    std::vector<Entry> entries;
    matchingServices(matching, entries);
    return entries.empty() ? std::nullopt : std::optional(entries.front());
}

Status parentEntry(const Entry& entry, const std::string& plane, std::optional<Entry>& parent) {
    parent.reset();
    if (entry.className() != interfaceClass || plane != "IOService") {
        return failure;
    }
    parent = Entry(controllerClass, entry.path());
    return success;
}

std::optional<Value> property(const Entry& entry, const std::string& name) {
    if (entry.className() == controllerClass && name == "IOMACAddress") {
        return hardwareAddress(entry.path());
    }
    if (entry.className() == interfaceClass && name == "IOPrimaryInterface") {
        return Value(entry.path() == network_interfaces::primary());
    }
    if (entry.className() == expertClass && name == "IOPlatformSerialNumber") {
        return serialNumber();
    }
    return std::nullopt;
}

} // namespace platform::device_registry
