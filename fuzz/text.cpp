// Bytes from anywhere as texts: what is cut, encoded, filtered or filled in stays valid and whole.
#include "foundation/text.h"
#include "foundation/base64.h"
#include "foundation/format.h"
#include "foundation/numbers.h"
#include "foundation/unicode.h"
#include "foundation/value.h"
#include "fuzz/require.h"

#include <cstdint>

namespace text = platform::text;
namespace base64 = platform::base64;

namespace {

void checkEncodings(const std::string& bytes, const std::string& words) {
    require(text::isValidUtf8(words));
    require(text::isValidUtf8(bytes) == (words == bytes));
    require(text::utf16(words).size() == text::length(words));
    require(text::utf8(text::utf16(words)) == words);
    require(base64::decode(base64::encode(bytes)) == bytes);
    base64::decode(bytes);
}

void checkCuts(const std::string& words, std::size_t cut) {
    const std::string head = text::prefix(words, cut);
    const std::string tail = text::dropPrefix(words, cut);
    require(words.starts_with(head));
    require(words.ends_with(tail));
    // A pair that the cut would split is in neither.
    const std::size_t split = head.size() + tail.size() < words.size() ? 2 : 0;
    require(text::length(head) + split + text::length(tail) == text::length(words));
    require(text::length(text::suffix(words, cut)) <= cut);
}

void checkCharacters(const std::string& words) {
    std::string joined;
    text::forEachComposedCharacter(words, [&](std::string_view character) { joined += character; });
    require(joined == words);
    require(text::isValidUtf8(text::trimWhiteSpace(words)));
    require(text::isValidUtf8(text::keepAlphanumerics(words)));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    const std::string words = text::makeValidUtf8(bytes);
    const std::size_t cut = size == 0 ? 0 : data[0];
    checkEncodings(bytes, words);
    checkCuts(words, cut);
    checkCharacters(words);
    // Bytes that are no text may be cut anywhere.
    require(text::suffix(bytes, cut).size() <= size);
    require(text::prefix(bytes, cut).size() <= size);
    require(platform::Value(bytes).boolValue() || text::integerValue(bytes) == 0);
    text::floatValue(bytes);
    text::format(bytes, words, cut);
    return 0;
}
