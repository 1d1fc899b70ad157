#include "foundation/text.h"
#include "foundation/base64.h"
#include "foundation/format.h"
#include "foundation/numbers.h"
#include "foundation/unicode.h"
#include "foundation/value.h"

#include <cstdint>
#include <cstdlib>

namespace text = platform::text;

namespace {

void require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    const std::string words = text::makeValidUtf8(bytes);
    require(text::isValidUtf8(words) && text::isValidUtf8(bytes) == (words == bytes));
    const std::size_t length = text::length(words);
    require(text::utf16(words).size() == length);
    require(text::join(text::composedCharacters(words), "") == words);
    require(base64::decode(base64::encode(bytes)) == bytes);
    require(text::isValidUtf8(text::trimWhiteSpace(words)) && text::isValidUtf8(text::keepAlphanumerics(words)));
    require(platform::Value(bytes).boolValue() || text::integerValue(bytes) == 0);
    const std::size_t cut = size == 0 ? 0 : data[0];
    const std::string head = text::prefix(words, cut);
    const std::string tail = text::dropPrefix(words, cut);
    const std::size_t split = head.size() + tail.size() < words.size() ? 2 : 0;
    require(words.starts_with(head) && words.ends_with(tail));
    require(text::length(head) + split + text::length(tail) == length);
    require(text::length(text::suffix(words, cut)) <= cut);
    // Bytes that are no text may cut oddly, but within bounds.
    require(text::suffix(bytes, cut).size() <= size && text::prefix(bytes, cut).size() <= size);
    text::floatValue(bytes);
    text::format(bytes, words, cut);
    base64::decode(bytes);
    return 0;
}
