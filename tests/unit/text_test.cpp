// Texts and values as the platform's own types see them, and the product's operations on texts.
#include "foundation/text.h"
#include "foundation/unicode.h"
#include "web/HVLConnectionUtil.h"
#include "web/NSStringHVL.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace havrel;
using namespace havrel::NSStringHVL;
using namespace platform;

TEST(Text, RepairsEveryMalformedSequence) {
    EXPECT_EQ(text::makeValidUtf8("a\x80z\xe2\x82z\xf0\x9f\x98"), "a\uFFFDz\uFFFDz\uFFFD") << "alone, cut short";
    EXPECT_EQ(text::makeValidUtf8("\xc0\xaf"), "\uFFFD\uFFFD") << "overlong";
    EXPECT_EQ(text::makeValidUtf8("\xf4\x90\x80\x80"), "\uFFFD\uFFFD\uFFFD\uFFFD") << "beyond U+10FFFF";
    EXPECT_EQ(text::decodeUtf8("\xed\xa0\x80"), std::nullopt) << "a surrogate";
}

TEST(Text, IsCutInUtf16) {
    EXPECT_EQ(text::prefix("a😀", 2), "a") << "through a pair";
    EXPECT_EQ(text::suffix("😀z", 2), "z") << "through a pair";
}

TEST(Value, ReadsAsBooleanAndAsWholeNumber) {
    const struct {
        const char* name;
        Value value;
        bool boolean;
        std::int64_t integer;
        std::int32_t low;
    } rows[] = {
        {"beyond the signed range", UINT64_MAX, true, INT64_MAX, -1},
        {"a real beyond the range", 1e300, true, INT64_MAX, INT32_MAX},
        {"not a number", std::nan(""), true, 0, 0},
        {"a word", "yes", true, 0, 0},
        {"a number with text around it", " \v-007x", true, -7, -7},
        {"a text beyond 32 bits", "99999999999", true, 99999999999, INT32_MAX},
    };

    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(row.value.boolValue(), row.boolean);
        EXPECT_EQ(row.value.integerValue(), row.integer);
        EXPECT_EQ(row.value.intValue(), row.low);
    }
}

TEST(Value, IsDescribedAsThePlatformPrintsIt) {
    const Array list = {1, nullptr, Data{"\x01\xab\xff\x10\x02"}, "a b", "", "é\n", Dictionary{{"ann", "T"}}};
    EXPECT_EQ(
        Value(Dictionary{{"list", list}, {"a.b", true}}).description(),
        "{\n    \"a.b\" = 1;\n    list =     (\n        1,\n        \"<null>\",\n        <01abff10 02>,\n        "
        "\"a b\",\n        \"\",\n        \"\\U00e9\\n\",\n        {\n            ann = T;\n        }\n    );\n}");
    EXPECT_EQ(Value("as \"é\"").description(), "as \"é\"");
}

TEST(Value, IsDescribedWithinBounds) {
    Value wide = Array(50'000, true);
    for (int i = 1; i < 127; ++i) { // each element stands behind hundreds of blanks
        wide = Value(Array(1, wide));
    }
    EXPECT_LT(wide.description().size(), std::size_t{2} << 20);
}

TEST(StringOperations, EscapeUrls) {
    const std::string text = "aZ09-_.~!*'();:@&=+$,/?%#[] <>\"{}|\\^`\n\x7fé😀";
    const std::string escaped = "aZ09-_.~%21%2A%27%28%29%3B%3A%40%26%3D%2B%24%2C%2F%3F%25%23%5B%5D%20"
                                "%3C%3E%22%7B%7D%7C%5C%5E%60%0A%7F%C3%A9%F0%9F%98%80";
    EXPECT_EQ(URLEncoding(text), escaped);
    EXPECT_EQ(URLEncoding("100%25"), "100%25") << "decoded first";
    EXPECT_EQ(URLEncodingPath(text), text::replaceAll(escaped, "%2F", "/"));
    EXPECT_EQ(HVLConnectionUtil::urlEncodeUsingEncoding(StringEncoding::utf8, text + "%2F"),
              text::replaceAll(escaped, "%3A", ":") + "%252F");
    EXPECT_EQ(decodeURLEncoding("%41%G1"), "%41%G1") << "malformed";
    EXPECT_EQ(decodeURLEncoding("%41%C3"), "%41%C3") << "no text";
}

TEST(StringOperations, FilterCharacters) {
    EXPECT_EQ(removeSpecialCharacters("00:1a-ée\u0301\u0663\u216b\u20ac\u4e2d_ \xf0\x9d\x92\x9c😀\xff"),
              "001aée\u0301\u0663\u216b\u4e2d\xf0\x9d\x92\x9c");
    EXPECT_EQ(removeDuplicateCharacters("\u0301aAbe\u0301e😀é\u0301e\u0301😀\r\n\r"), "\u0301aAbe\u0301e😀é\u0301\r\n");
    EXPECT_EQ(HVLConnectionUtil::extractInfoFromSucessStr("Hello Success: World"), "cess: World");
}
