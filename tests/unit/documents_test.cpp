// What other programs write and read: property lists and JSON.
#include "foundation/json.h"
#include "foundation/limits.h"
#include "foundation/property_list.h"
#include "foundation/unicode.h"
#include "support/core_test.h"

#include <cmath>

using namespace platform;
using namespace platform::property_list;
using namespace std::string_literals;
using support::repeated;
using Documents = std::vector<std::string>;
using Real = std::numeric_limits<double>;

namespace {

std::string xml(const std::string& content) { return "<plist version=\"1.0\">" + content + "</plist>"; }

Array nested(std::size_t depth) { return depth < 2 ? Array{} : Array{nested(depth - 1)}; }

std::string bigEndian(std::size_t number, std::size_t width) {
    return width == 0 ? "" : bigEndian(number >> 8, width - 1) + static_cast<char>(number & 0xff);
}

/// A binary list of the objects ("Qk" is the text "k"), the first its root. References take two bytes, offsets four.
std::string binary(const Documents& objects) {
    std::string bytes = "bplist00";
    std::string table;
    for (const std::string& object : objects) {
        table += bigEndian(bytes.size(), 4);
        bytes += object;
    }
    return bytes + table + bigEndian(0x402, 8) + bigEndian(objects.size(), 8) + bigEndian(bytes.size(), 16);
}

std::optional<Value> writtenAndRead(const Value& value) {
    const auto written = toXml(value);
    return written ? parse(*written) : std::nullopt;
}

void expectRefused(const std::string& document) {
    EXPECT_EQ(parse(document), std::nullopt) << testing::PrintToString(document.substr(0, 300));
}

} // namespace

TEST(PropertyList, AgreesWithPythonsPlistlib) {
    const auto written = [](const std::string& form) { // by plistlib
        return trial::readFile(HAVREL_SOURCE_TREE "/fuzz/corpus/" + form + "_property_list/preferences.plist");
    };
    EXPECT_EQ(toXml(parse(written("xml")).value()), written("xml"));
    // It has lost the carriage return that the binary form holds.
    EXPECT_EQ(text::replaceAll(*toXml(parse(written("binary")).value()), "&#13;", ""), written("xml"));
}

TEST(PropertyList, KeepsOfATextWhatXmlCanHold) {
    const struct {
        const char* name;
        std::string text;
        std::string kept;
    } rows[] = {
        {"empty", "", ""},
        {"white space", " \r\n\tkept \r", " \r\n\tkept \r"},
        {"markup", "<&>\"']]>", "<&>\"']]>"},
        {"beyond ASCII", "\u00e9\xf0\x9f\x98\x80\u0085\u2028\x7f", "\u00e9\xf0\x9f\x98\x80\u0085\u2028\x7f"},
        {"control characters", "a\x01\0\x1fz"s, "az"},
        {"non-characters", "a\uFFFE\uFFFF\uFFFDz", "a\uFFFDz"},
        {"invalid UTF-8", "\xed\xa0\x80|\xff", "\uFFFD\uFFFD\uFFFD|\uFFFD"},
    };

    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(writtenAndRead(row.text), row.kept);
        EXPECT_EQ(writtenAndRead(Dictionary{{row.text, true}}), Value(Dictionary{{row.kept, true}}));
        EXPECT_EQ(storable(row.text), row.kept);
    }
}

TEST(PropertyList, ReadsBackWhatItWrote) {
    for (const Value& value :
         Array{-1, UINT64_MAX, INT64_MIN, true, 0.1, -0.0, Real::denorm_min(), Real::max(), Real::infinity(),
               -Real::infinity(), nested(128), Data{}, Data{"\xff\xfe"}, Date{-63114076800}, Dictionary{},
               Dictionary{{"<\r>", Array{Data{"x"}, Dictionary{{"", false}}}}}}) {
        EXPECT_EQ(writtenAndRead(value), value) << value.description();
    }
    const Value large = Array(100'000, "<&>");
    EXPECT_TRUE(writtenAndRead(large) == large);
    // A year has four digits.
    EXPECT_EQ(writtenAndRead(Date{1e300}), Value(Date{252423993599}));
    EXPECT_EQ(writtenAndRead(Date{-1e300}), Value(Date{-63145526400}));
    EXPECT_EQ(writtenAndRead(Date{std::nan("")}), Value(Date{0}));
}

TEST(PropertyList, WritesNothingThatCouldNotBeReadBack) {
    EXPECT_EQ(toXml(Array{1, nullptr}), std::nullopt);
    EXPECT_EQ(toXml(nested(129)), std::nullopt);
    EXPECT_EQ(toXml(Array(110'000, true)), std::nullopt) << "too many";
    EXPECT_EQ(toXml(Data{std::string(propertyListLimit, 'x')}), std::nullopt) << "too long";
}

TEST(PropertyList, ReadsEveryNumberThatAWriterMayWrite) {
    const std::string zeros(400, '0');

    const struct {
        std::string element;
        Value value;
    } rows[] = {{"<integer> +7 </integer>", 7},
                {"<integer>-0x1f</integer>", -31},
                {"<real> -1e3 </real>", -1000.0},
                {"<real>1e400</real>", Real::infinity()},
                {"<real>-1" + zeros + "</real>", -Real::infinity()},
                {"<real>1e-400</real>", 0.0},
                {"<real>-0." + zeros + "1</real>", -0.0},
                {"<real>0." + zeros + "1e+401</real>", 1.0},
                {"<real>1" + zeros + "e-400</real>", 1.0}};

    for (const auto& row : rows) {
        const auto value = parse(xml(row.element));
        EXPECT_EQ(value, row.value) << row.element;
    }
}

TEST(PropertyList, TakesWhatOtherWritersWrite) {
    const struct {
        const char* name;
        std::string document;
        Value value;
    } rows[] = {
        {"pieces of a text", xml("<string>a<!-- c -->b<![CDATA[<&]]>&#x20AC;</string>"), "ab<&\u20ac"},
        {"a key twice", xml("<dict><key>k</key><true/><key>k</key><false/></dict>"), Dictionary{{"k", false}}},
        {"broken lines of data", xml("<data> Z m9\n\tv </data>"), Data{"foo"}},
        {"short integer", binary({"\x10\xff"}), 255},
        {"false", binary({"\x08"}), false},
        {"short real", binary({"\x22\x3f\xc0\0\0"s}), 1.5},
        {"long size", binary({"\x5f\x10\x10"s + repeated("a", 16)}), repeated("a", 16)},
        {"half of a pair", binary({"\x61\xde\0"s}), "\uFFFD"},
        {"shared object", binary({"\xd2\0\1\0\2\0\3\0\3"s, "Qk", "Ql", "\x09"}), Dictionary{{"k", true}, {"l", true}}},
    };

    for (const auto& row : rows) {
        EXPECT_EQ(parse(row.document), row.value) << row.name;
    }
}

TEST(PropertyList, KeepsAFileInWhichOneScalarCannotBeHeld) {
    const struct {
        const char* name;
        std::string document;
        Value value;
    } rows[] = {
        {"large number", xml("<integer>18446744073709551616</integer>"), UINT64_MAX},
        {"small number", xml("<integer>-9223372036854775809</integer>"), INT64_MIN},
        {"large number of 128 bits", binary({"\x14" + bigEndian(1, 8) + bigEndian(0, 8)}), UINT64_MAX},
        {"small number of 128 bits", binary({"\x14" + repeated("\xff", 8) + bigEndian(0, 8)}), INT64_MIN},
        {"negative number of 128 bits", binary({"\x14" + repeated("\xff", 16)}), -1},
        {"second 60", xml("<date>2000-12-31T23:59:60Z</date>"), Date{0}},
        {"30th of February", xml("<date>2001-02-30T00:00:00Z</date>"), Date{60 * 86400}},
        {"month 0", xml("<date>2001-00-01T00:00:00Z</date>"), Date{-31 * 86400}},
        {"infinite date", binary({"\x33\x7f\xf0\0\0\0\0\0\0"s}), Date{Real::infinity()}},
        {"unused bits in base64", xml("<data>Zh==</data>"), Data{"f"}},
        {"base64 without its end", xml("<data>Zm9vY</data>"), Data{"foo"}},
        {"no base64", xml("<data>Z-m9v?</data>"), Data{"foo"}},
        {"text that is not ASCII", binary({"\x52k\xe9"}), "k\uFFFD"},
        {"windows-1252", "<?xml version='1.0' encoding='windows-1252'?>" + xml("<string>\x80 \xe9</string>"),
         "\u20ac é"},
        {"unknown encoding", "<?xml version='1.0' encoding='utf8'?>" + xml("<string>é</string>"), "é"},
    };

    for (const auto& row : rows) {
        EXPECT_EQ(parse(row.document), row.value) << row.name;
    }
}

TEST(PropertyList, RefusesDamagedXml) {
    for (const char* content : {"",
                                "text",
                                "<true/>x",
                                "<true>x</true>",
                                "<null/>",
                                "<string><string/></string>",
                                "<plist/>",
                                "<true a=\"\"/>",
                                "<array>x</array>",
                                "<dict><string/></dict>",
                                "<dict><key>a</key></dict>",
                                "<array><key>a</key></array>",
                                "<string>&lol;</string>",
                                "<integer/>",
                                "<integer>+-1</integer>",
                                "<integer>0x</integer>",
                                "<real/>",
                                "<real>1,5</real>",
                                "<date/>",
                                "<date>2023-01-01 00:00:00Z</date>",
                                "<date>99999-01-01T00:00:00Z</date>",
                                "<string>\x01</string>",
                                "<string>\xff</string>"}) {
        expectRefused(xml(content));
    }
    expectRefused("<string>bare</string>");
    expectRefused(R"(<plist version="1.0" a=""><true/></plist>)");
    expectRefused(R"(<!DOCTYPE plist [<!ENTITY a "aaaa"><!ENTITY b "&a;&a;">]><plist><string>&b;</string></plist>)");
}

TEST(PropertyList, RefusesWhatIsTooDeepOrTooLarge) {
    Documents bomb; // each level refers to the next sixteen times
    Documents deep;
    for (int i = 1; i <= 128; ++i) {
        deep.push_back("\xa1" + bigEndian(i, 2));
        bomb.push_back(i <= 20 ? "\xaf\x10\x10"s + repeated(bigEndian(i, 2), 16) : "\xa0");
    }
    deep.emplace_back("\xa0");
    expectRefused(binary(bomb));
    expectRefused(binary(deep));
    expectRefused(binary({"\xaf\x11\x10\0"s + repeated("\0\1"s, 4096), "\x5f\x11\x10\0"s + std::string(4096, 'x')}));
    expectRefused(xml(repeated("<array>", 129) + repeated("</array>", 129)));
    expectRefused(xml(repeated("<dict><key>k</key>", 500'000)));
    expectRefused(xml("<array>" + repeated("<true/>", 110'000) + "</array>"));
    expectRefused(xml("<true/><!--" + std::string(propertyListLimit / 2, ' ') + "-->"));
    expectRefused(xml("<true/>") + std::string(propertyListLimit, ' '));
}

TEST(PropertyList, RefusesADamagedBinaryObject) {
    const std::vector<Documents> lists = {
        {"\0"s},
        {"\x80\x01"},
        {"\x13"},
        {"\x5f\x13" + repeated("\xff", 8)},
        {"\x6f\x13\x80\0\0\0\0\0\0\0"s},
        {"\xaf\x13\x40\0\0\0\0\0\0\0"s},
        // A set, an array of itself, of too few, of what is not there; keys that are no text and without a value.
        {"\xc1\0\1"s, "\x09"},
        {"\xa1\0\0"s},
        {"\xa2\0\1\0\0"s, "\x09"},
        {"\xa1\0\2"s, "\x09"},
        {"\xd1\0\1\0\1"s, "\x09"},
        {"\xd1\0\1"s, "Qk"}};
    for (const Documents& objects : lists) {
        expectRefused(binary(objects));
    }
}

TEST(PropertyList, RefusesADamagedBinaryTrailer) {
    const struct {
        int fromEnd;
        int byte;
    } rows[] = {{26, 0}, {26, 9}, {25, 0}, {25, 1}, {25, 9}, {24, 64}, {17, 1}, {17, 3}, {16, 127}, {9, 2}, {8, 127}};

    for (const auto& row : rows) {
        SCOPED_TRACE(row.fromEnd);
        std::string document = binary({"\xa1\0\1"s, "Qx"});
        ASSERT_TRUE(parse(document));
        document.end()[-row.fromEnd] = static_cast<char>(row.byte);
        expectRefused(document);
    }
}

TEST(PropertyList, RefusesWhatATransferThatBrokeOffLeaves) {
    for (const std::string& whole : {xml("<dict><key>k</key><string>v</string></dict>"), binary({"\xa1\0\1"s, "Qx"})}) {
        EXPECT_TRUE(parse(whole));
        for (std::size_t size = 0; size < whole.size(); ++size) {
            expectRefused(whole.substr(0, size));
        }
    }
}

TEST(Json, IsReadAsOneWholeDocument) {
    const struct {
        const char* name;
        const char* document;
        Value value;
    } rows[] = {
        {"a key twice", R"({"a":{"b":[null,true]},"a":2})", Dictionary{{"a", 2}}},
        {"escapes", R"(["\u00e9\ud83d\ude00"])", Array{"é😀"}},
        {"whole numbers", "[-1,18446744073709551615,-9223372036854775808]", Array{-1, UINT64_MAX, INT64_MIN}},
        {"reals", "[18446744073709551616,-9223372036854775809,1.5e3]", Array{0x1p64, -0x1p63, 1500.0}},
    };

    for (const auto& row : rows) {
        std::optional<Error> error;
        EXPECT_EQ(json::parse(row.document, error), row.value) << row.name;
        EXPECT_EQ(error, std::nullopt) << row.name;
    }
}

TEST(Json, SaysInAShortLineWhyItIsRefused) {
    for (const std::string& document :
         {""s, "  "s, R"("text")"s, "null"s, "[1"s, R"({"a":})"s, "[1]]"s, "[01]"s, "[1e999]"s, "[\"\xff\"]"s,
          R"(["\ud800"])"s, "<html>"s, "{\"" + repeated("x", 5000), repeated("[", 129) + repeated("]", 129),
          repeated("[", 500'000), "[" + repeated("1,", 600'000) + "1]", "[\"" + repeated("x", documentLimit) + "\"]"}) {
        SCOPED_TRACE(document.substr(0, 20));
        std::optional<Error> error;
        EXPECT_EQ(json::parse(document, error), std::nullopt);
        ASSERT_TRUE(error);
        EXPECT_EQ(error->domain, "NSCocoaErrorDomain");
        EXPECT_EQ(error->code, 3840);
        EXPECT_NE(error->localizedDescription, "");
        EXPECT_LE(text::length(error->localizedDescription), 200U);
    }
}

TEST(Json, IsWrittenAsThePlatformWritesIt) {
    const Value value = Dictionary{{"a", Array{1, -2.5, true, "q/\"\\\x01\n\u00e9\xff", nullptr}}, {"b", Dictionary{}}};
    EXPECT_EQ(json::prettyPrinted(value),
              "{\n  \"a\" : [\n    1,\n    -2.5,\n    true,\n    \"q\\/\\\"\\\\\\u0001\\n\u00e9\uFFFD\",\n"
              "    null\n  ],\n  \"b\" : {\n\n  }\n}");
    for (const Value& unwritable : {Value("text"), Value(Array{Data{"x"}}), Value(Array{Date{}}),
                                    Value(Array{Real::infinity()}), Value(nested(129))}) {
        EXPECT_EQ(json::prettyPrinted(unwritable), std::nullopt) << unwritable.description().substr(0, 50);
    }
}
