// What other programs write and read: property lists and JSON.
#include "foundation/json.h"
#include "foundation/limits.h"
#include "foundation/property_list.h"
#include "foundation/unicode.h"
#include "support/core_test.h"

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
    EXPECT_EQ(writtenAndRead(" \r\n\tkept \r"), " \r\n\tkept \r");
    EXPECT_EQ(writtenAndRead("a\x01\0\x1fz"s), "az") << "control characters";
    EXPECT_EQ(writtenAndRead("a\uFFFE\uFFFF\uFFFDz"), "a\uFFFDz") << "non-characters";
    EXPECT_EQ(writtenAndRead("\xed\xa0\x80|\xff"), "\uFFFD\uFFFD\uFFFD|\uFFFD") << "invalid UTF-8";
    EXPECT_EQ(storable("a\x01\uFFFEz\xff"), "az\uFFFD");
}

TEST(PropertyList, ReadsBackWhatItWrote) {
    for (const Value& value :
         Array{-1, UINT64_MAX, INT64_MIN, true, 0.1, -0.0, Real::denorm_min(), Real::max(), Real::infinity(),
               nested(128), Data{}, Date{-63114076800}, Dictionary{{"<\r>]]>", Dictionary{{"", false}}}}}) {
        EXPECT_EQ(writtenAndRead(value), value) << value.description();
    }
    // A year has four digits.
    EXPECT_EQ(writtenAndRead(Date{1e300}), Value(Date{252423993599}));
}

TEST(PropertyList, WritesNothingThatCouldNotBeReadBack) {
    EXPECT_EQ(toXml(Array{1, nullptr}), std::nullopt);
    EXPECT_EQ(toXml(Array(110'000, true)), std::nullopt) << "too many";
    EXPECT_EQ(toXml(Data{std::string(propertyListLimit, 'x')}), std::nullopt) << "too long";
}

TEST(PropertyList, TakesWhatOtherWritersWrite) {
    const std::string zeros(400, '0');

    const struct {
        const char* name;
        std::string document;
        Value value;
    } rows[] = {
        {"pieces of a text", xml("<string>a<!-- c -->b<![CDATA[<&]]>&#x20AC;</string>"), "ab<&\u20ac"},
        {"short real", binary({"\x22\x3f\xc0\0\0"s}), 1.5},
        {"half of a pair", binary({"\x61\xde\0"s}), "\uFFFD"},
        {"shared object", binary({"\xd2\0\1\0\2\0\3\0\3"s, "Qk", "Ql", "\x09"}), Dictionary{{"k", true}, {"l", true}}},
        // A scalar that can't be held does not cost the rest of the file.
        {"large real", xml("<real>1e400</real>"), Real::infinity()},
        {"small real", xml("<real>-0." + zeros + "1</real>"), -0.0},
        {"long real", xml("<real>0." + zeros + "1e+401</real>"), 1.0},
        {"large number", xml("<integer>18446744073709551616</integer>"), UINT64_MAX},
        {"large number of 128 bits", binary({"\x14" + bigEndian(1, 8) + bigEndian(0, 8)}), UINT64_MAX},
        {"second 60", xml("<date>2000-12-31T23:59:60Z</date>"), Date{0}},
        {"unused bits in base64", xml("<data>Zh==</data>"), Data{"f"}},
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
    for (const char* content : {"<true/>x", R"(<true a=""/>)", "<array>x</array>", "<dict><key>a</key></dict>",
                                "<string>&lol;</string>", "<integer>+-1</integer>", "<real>1,5</real>"}) {
        expectRefused(xml(content));
    }
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
    expectRefused(xml("<array>" + repeated("<true/>", 110'000) + "</array>"));
    expectRefused(xml("<true/>") + std::string(propertyListLimit, ' '));
    expectRefused("<plist version=\"" + std::string(3'000'000, 'x') + "\"><true/></plist>");
}

TEST(PropertyList, RefusesADamagedBinaryObject) {
    const struct {
        const char* name;
        Documents objects;
    } rows[] = {
        {"size of all bits", {"\x5f\x13" + repeated("\xff", 8)}},
        {"size that doubles to 0", {"\x6f\x13\x80\0\0\0\0\0\0\0"s}},
        {"size that quadruples to 0", {"\xaf\x13\x40\0\0\0\0\0\0\0"s}},
        {"array of what is not there", {"\xa1\0\2"s, "\x09"}},
        {"key that is no text", {"\xd1\0\1\0\1"s, "\x09"}},
    };

    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        expectRefused(binary(row.objects));
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
        EXPECT_LE(text::length(error->localizedDescription), 200U);
    }
}

TEST(Json, IsWrittenAsThePlatformWritesIt) {
    const Value value = Dictionary{{"a", Array{1, -2.5, true, "q/\"\\\x01\n\u00e9\xff", nullptr}}, {"b", Dictionary{}}};
    EXPECT_EQ(json::prettyPrinted(value),
              "{\n  \"a\" : [\n    1,\n    -2.5,\n    true,\n    \"q\\/\\\"\\\\\\u0001\\n\u00e9\uFFFD\",\n"
              "    null\n  ],\n  \"b\" : {\n\n  }\n}");
    EXPECT_EQ(json::prettyPrinted(Array{Data{"x"}}), std::nullopt);
    EXPECT_EQ(json::prettyPrinted(nested(129)), std::nullopt);
}
