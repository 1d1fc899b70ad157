#include "platform/linux/machine/serial_number.h"

#include "foundation/text.h"
#include "foundation/unicode.h"

#include <algorithm>
#include <functional>

namespace platform {

namespace {

/// Equal on every machine of a series, so that one machine's disk would not be known as a clone on another. In lower
/// case and without blanks.
constexpr std::string_view placeholders[] = {
    // The firmware's maker leaves the field to the board's maker, who doesn't fill it either.
    "tobefilledbyo.e.m.",
    "tobefilledbyo.e.m",
    "tobefilledbyoem",
    "o.e.m.",
    "oem",
    "default",
    "defaultstring",
    "standard",
    "eval",
    "tbd",
    // There is no number, in words.
    "none",
    "(none)",
    "<none>",
    "null",
    "empty",
    "invalid",
    "unknown",
    "undefined",
    "notspecified",
    "notavailable",
    "notapplicable",
    "n/a",
    "na",
    // The field's own name.
    "serialnumber",
    "systemserialnumber",
    "baseboardserialnumber",
    "chassisserialnumber",
    // Somebody counted.
    "123456",
    "1234567",
    "12345678",
    "123456789",
    "1234567890",
    "0123456789",
    "0123456789abcdef",
    "mb-1234567890",
    "bss-0123456789",
    // UUIDs in the samples that firmware is made from.
    "00020003-0004-0005-0006-000700080009",
    "03000200-0400-0500-0006-000700080009",
    "12345678-1234-5678-90ab-cddeefaabbcc",
    "fefefefe-fefe-fefe-fefe-fefefefefefe",
};

/// "00000000-0000-…", "xx:xx", or the U+FFFD of a memory that was never written (0xFF).
bool isOneCharacterRepeated(std::string_view text) {
    std::u16string characters = text::utf16(text);
    std::erase_if(characters,
                  [](char16_t c) { return std::u16string_view(u"-_.:/").find(c) != std::u16string_view::npos; });
    return std::ranges::adjacent_find(characters, std::ranges::not_equal_to()) == characters.end();
}

} // namespace

bool isSerialNumber(std::string_view text) {
    std::string key(text);
    std::ranges::transform(key, key.begin(), text::lower);
    std::erase_if(key, [](char c) { return c == ' ' || c == '\t'; });
    return !isOneCharacterRepeated(key) && std::ranges::find(placeholders, key) == std::ranges::end(placeholders);
}

} // namespace platform
