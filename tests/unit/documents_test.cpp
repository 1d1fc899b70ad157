// What other programs write and read: property lists and JSON.
#include "foundation/json.h"
#include "foundation/property_list.h"
#include "foundation/unicode.h"
#include "platform/files.h"
#include "support/core_test.h"

#include <cmath>

using namespace platform;
using namespace platform::property_list;
using namespace std::string_literals;
using support::repeated;
using Documents = std::vector<std::string>;

static std::string xml(const std::string& content) { return "<plist version=\"1.0\">" + content + "</plist>"; }

static Array nested(std::size_t depth) { return depth < 2 ? Array{} : Array{nested(depth - 1)}; }

static std::string bigEndian(std::size_t number, std::size_t width) {
    return width == 0 ? "" : bigEndian(number >> 8, width - 1) + static_cast<char>(number & 0xff);
}

/// A binary list of the objects ("Qk" is the text "k"), the first its root. References take two bytes, offsets four.
static std::string binary(const Documents& objects) {
    std::string bytes = "bplist00", table;
    for (const std::string& object : objects) {
        table += bigEndian(bytes.size(), 4);
        bytes += object;
    }
    return bytes + table + bigEndian(0x402, 8) + bigEndian(objects.size(), 8) + bigEndian(bytes.size(), 16);
}

TEST(PropertyList, AgreesWithPythonsPlistlib) {
    const auto written = [](const std::string& form) { // by plistlib
        return trial::readFile(HAVREL_SOURCE_TREE "/fuzz/corpus/" + form + "_property_list/preferences.plist");
    };
    EXPECT_EQ(toXml(parse(written("xml")).value()), written("xml"));
    // It has lost the carriage return that the binary form holds.
    EXPECT_EQ(text::replaceAll(*toXml(parse(written("binary")).value()), "&#13;", ""), written("xml"));
}

TEST(PropertyList, ReadsBackWhatItWroteAndWritesNothingElse) {
    using Real = std::numeric_limits<double>;
    // clang-format off
    std::vector<std::pair<Value, std::optional<Value>>> rows = { // and what is read back
        {"a\x01\0\x1f\uFFFE\uFFFF\ufffdz"s, "a\ufffdz"}, {"\xed\xa0\x80|\xff", "\ufffd\ufffd\ufffd|\ufffd"},
        {Date{1e300}, Date{252423993599}}, {Date{-1e300}, Date{-63145526400}}, {Date{std::nan("")}, Date{0}},
        {Array{1, nullptr}, {}}, {nested(129), {}}, {Array(600000, true), {}}, {Data{std::string(13 << 20, 'x')}, {}}};
    for (const Value& kept : Array{
             "", " \r\n\tkept \r", "<&>\"']]> \u00e9\xf0\x9f\x98\x80\u0085\u2028\x7f", -1, UINT64_MAX, INT64_MIN, true,
             0.1, -0.0, Real::denorm_min(), Real::max(), Real::infinity(), -Real::infinity(), nested(128), Data{},
             Data{"\xff\xfe"}, Date{-63114076800}, Dictionary{{"", Dictionary{}}, {"<\r>", Array{Data{"x"}}}}}) {
        rows.emplace_back(kept, kept);
    }
    // clang-format on
    for (const auto& [value, expected] : rows) {
        const auto written = toXml(value);
        EXPECT_EQ(written.has_value(), expected.has_value());
        EXPECT_EQ(written ? parse(*written) : std::nullopt, expected);
    }
}

TEST(PropertyList, TakesWhatOtherWritersWrite) {
    // clang-format off
    const std::pair<std::string, Value> rows[] = {
        {xml("<string>a<!-- c -->b<![CDATA[<&]]>&#x20AC;</string>"), "ab<&\u20ac"}, {xml("<integer> +7 </integer>"), 7},
        {xml("<dict><key>k</key><true/><key>k</key><integer>-0x1f</integer></dict>"), Dictionary{{"k", -31}}},
        {xml("<array><real> -1e3 </real><data> Z m9\n\tv </data></array>"), Array{-1000.0, Data{"foo"}}},
        {binary({"\x10\xff"}), 255}, {binary({"\x08"}), false}, {binary({"\x22\x3f\xc0\0\0"s}), 1.5},
        {binary({"\x5f\x10\x10"s + repeated("a", 16)}), repeated("a", 16)}, {binary({"\x61\xde\0"s}), "\ufffd"},
        {binary({"\xd2\0\1\0\2\0\3\0\3"s, "Qk", "Ql", "\x09"}), Dictionary{{"k", true}, {"l", true}}}};
    // clang-format on
    for (const auto& [document, expected] : rows) {
        EXPECT_EQ(parse(document), expected) << document;
    }
}

TEST(PropertyList, RefusesWhatIsDamaged) {
    const std::string good = xml("<dict><key>k</key><string>v</string></dict>"), one = binary({"\xa1\0\1"s, "Qx"});
    Documents bomb, deep; // a bomb's level refers to the next sixteen times
    for (int i = 1; i <= 128; ++i) {
        deep.push_back("\xa1" + bigEndian(i, 2));
        bomb.push_back(i <= 20 ? "\xaf\x10\x10"s + repeated(bigEndian(i, 2), 16) : "\xa0");
    }
    deep.emplace_back("\xa0");
    // clang-format off
    Documents documents = {
        good + "<x/>", good + "\0"s, good + std::string(16 << 20, ' '), "<string>bare</string>", std::string(100, '\0'),
        R"(<!DOCTYPE plist [<!ENTITY a "aaaa"><!ENTITY b "&a;&a;&a;">]><plist><string>&b;</string></plist>)",
        xml(repeated("<array>", 129) + repeated("</array>", 129)), xml(repeated("<array>", 500'000)),
        xml(repeated("<dict><key>k</key>", 500'000)), xml("<array>" + repeated("<true/>", 600'000) + "</array>"),
        binary(bomb), binary(deep), binary({"\xc1\0\1"s, "\x09"}), binary({"\xa2\0\1\0\0"s, "\x09"}),
        binary({"\xa1\0\2"s, "\x09"}), binary({"\xd1\0\1\0\1"s, "\x09"}), binary({"\xd1\0\1"s, "Qk"}),
        binary({"\xaf\x11\xff\xff"s + repeated("\0\1"s, 65535), "\x5f\x11\x10\0"s + std::string(4096, 'x')})};
    for (const std::string& content : text::split(
             "|text|<true/><true/>|<true/>x|<true>x</true>|<null/>|<string><string/></string>|<plist/>|<key>k</key>|"
             "<array>x</array>|<dict><string/></dict>|<dict><key>a</key></dict>|<dict><key>a</key><key>b</key></dict>|"
             "<array><key>a</key></array>|<integer/>|<integer>1 2</integer>|<integer>+-1</integer>|<real>1,5</real>|"
             "<real/>|<integer>0x</integer>|<integer>18446744073709551616</integer>|<string>&lol;</string>|<date/>|"
             "<integer>-9223372036854775809</integer>|<date>2023-02-29T00:00:00Z</date>|<data>Zg=</data>|"
             "<date>2023-01-01T24:00:00Z</date>|<date>2023-01-01 00:00:00Z</date>|<date>99999-01-01T00:00:00Z</date>|"
             "<data>Zh==</data>|<data>-_-_</data>|<string>\x01</string>|<string>\xff</string>", "|")) {
        documents.push_back(xml(content));
    }
    for (const std::string& object : text::split(
             "~\0~\x0f~\x13~\x21\0\0~\x33\x7f\xf0\0\0\0\0\0\0~\x51\xe9~\x52x~\x5f\x51\x01~\x5f~\x80\x01~\xa1\0\0~"
             "\x6f\x13\x80\0\0\0\0\0\0\0~\xaf\x13\x40\0\0\0\0\0\0\0~"s + "\x15" + std::string(32, '\0') +
             "~\x14" + repeated("\xff", 16) + "~\x5f\x13" + repeated("\xff", 8), "~")) {
        documents.push_back(binary({object}));
    }
    // Counted from the end: sizes of an offset and of a reference, the objects, the root, the place of the table.
    for (const auto& [place, byte] : {std::pair(26, 0), {26, 9}, {25, 0}, {25, 1}, {25, 9}, {24, 64}, {17, 1}, {17, 3},
                                      {16, 127}, {9, 2}, {8, 127}, {1, 7}}) {
        documents.push_back(one);
        documents.back().end()[-place] = static_cast<char>(byte);
    }
    // clang-format on
    for (const std::string& whole : {good, one}) {
        ASSERT_TRUE(parse(whole));
        for (std::size_t size = 0; size < whole.size(); ++size) {
            documents.push_back(whole.substr(0, size)); // what a transfer that broke off leaves
        }
    }
    for (const std::string& document : documents) {
        EXPECT_EQ(parse(document), std::nullopt) << testing::PrintToString(document.substr(0, 300));
    }
}

TEST(Json, IsReadAsOneWholeDocumentWithinBounds) {
    // clang-format off
    std::vector<std::pair<std::string, std::optional<Value>>> rows = {
        {R"({"a":{"b":[null,true]},"a":2})", Dictionary{{"a", 2}}}, {R"(["\u00e9\ud83d\ude00"])", Array{"é😀"}},
        {"[-1,18446744073709551615,-9223372036854775808]", Array{-1, UINT64_MAX, INT64_MIN}},
        {"[18446744073709551616,-9223372036854775809,1.5e3]", Array{0x1p64, -0x1p63, 1500.0}},
        {repeated("[", 129) + repeated("]", 129), {}}, {repeated("[", 500'000), {}},
        {"[" + repeated("1,", 600'000) + "1]", {}}, {"[\"" + repeated("x", files::readLimit) + "\"]", {}},
        {"{\"" + repeated("x", 5000), {}}};
    // clang-format on
    for (const auto& damaged :
         text::split("~  ~\"text\"~null~[1~{\"a\":}~[1]]~[01]~[1e999]~[\"\xff\"]~[\"\\ud800\"]~<html>", "~")) {
        rows.emplace_back(damaged, std::nullopt);
    }
    for (const auto& [bytes, expected] : rows) {
        std::optional<Error> error;
        EXPECT_EQ(json::parse(bytes, error), expected) << bytes.substr(0, 20);
        const Error made = error.value_or(Error{"none", 0, "none"});
        EXPECT_EQ(made.domain + std::to_string(made.code), expected ? "none0" : "NSCocoaErrorDomain3840");
        EXPECT_TRUE(!made.localizedDescription.empty() && text::length(made.localizedDescription) <= 200);
    }
}

TEST(Json, IsWrittenAsThePlatformWritesIt) {
    const Value value = Dictionary{{"a", Array{1, -2.5, "q/\"\\\x01\n\u00e9\xff", nullptr}}, {"b", Dictionary{}}};
    EXPECT_EQ(json::prettyPrinted(value),
              "{\n  \"a\" : [\n    1,\n    -2.5,\n    \"q\\/\\\"\\\\\\u0001\\n\u00e9\uFFFD\",\n"
              "    null\n  ],\n  \"b\" : {\n\n  }\n}");
    EXPECT_FALSE(json::prettyPrinted("text") || json::prettyPrinted(Array{Data{"x"}}) ||
                 json::prettyPrinted(nested(129)));
}
