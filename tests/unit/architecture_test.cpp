#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <set>

namespace {

namespace fs = std::filesystem;

const fs::path sources = fs::path(HAVREL_SOURCE_TREE) / "src";

/// A folder includes what stands below it, and itself.
const std::map<std::string, int> heights = {{"foundation", 0}, {"fetch", 1},   {"platform", 2},
                                            {"util", 3},       {"logging", 4}, {"prefs", 4},
                                            {"web", 5},        {"proxy", 6},   {"daemon", 7}};

/// The implementation of the platform that a path below src/ lies in ("linux"); empty for the headers.
std::string platformOf(const fs::path& path) {
    const auto second = std::next(path.begin());
    return *path.begin() == "platform" && std::next(second) != path.end() ? second->string() : "";
}

TEST(Architecture, IncludesPointOneWayAndLibrariesStayWhereTheyBelong) {
    const std::regex ours("#include \"(.*)\""), others("#include <(.*)>");
    for (const auto& entry : fs::recursive_directory_iterator(sources)) {
        const fs::path file = entry.path().lexically_relative(sources);
        const bool isSystems = !platformOf(file).empty() || *file.begin() == "fetch";
        const bool readsDocuments = *file.begin() == "foundation" && file.extension() == ".cpp";
        const std::regex allowed(readsDocuments ? R"([a-z0-9_]+|expat\.h|nlohmann/json\.hpp|utf8proc\.h)"
                                                : "[a-z0-9_]+");
        std::ifstream lines(entry.path());
        for (std::string line; std::getline(lines, line);) {
            SCOPED_TRACE(file.string() + ": " + line);
            std::smatch match;
            if (std::regex_match(line, match, ours)) {
                const fs::path included = match[1].str();
                const std::string from = file.begin()->string(), to = included.begin()->string();
                EXPECT_TRUE(from == to || heights.at(to) < heights.at(from));
                EXPECT_TRUE(platformOf(included).empty() || platformOf(included) == platformOf(file));
                EXPECT_TRUE(to != "fetch" || from == to || included == "fetch/message.h") << "of another program";
            } else if (std::regex_match(line, match, others)) {
                EXPECT_TRUE(isSystems || std::regex_match(match[1].str(), allowed));
            }
        }
    }
}

TEST(Architecture, EveryPlatformImplementsEveryService) {
    std::map<std::string, std::set<std::string>> names; // of services under "", of their sources under the platform
    for (const auto& entry : fs::recursive_directory_iterator(sources / "platform")) {
        const std::string platform = platformOf(entry.path().lexically_relative(sources));
        if (entry.path().extension() == (platform.empty() ? ".h" : ".cpp")) {
            names[platform].insert(entry.path().stem());
        }
    }
    for (const auto& [platform, written] : names) {
        EXPECT_THAT(written, testing::IsSupersetOf(names.at(""))) << platform;
    }
}

} // namespace
