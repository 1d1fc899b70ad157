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
const std::map<std::string, int> heights = {{"foundation", 0}, {"platform", 1}, {"util", 2},  {"logging", 3},
                                            {"prefs", 3},      {"web", 4},      {"proxy", 5}, {"daemon", 6}};

/// The implementation of the platform that a path below src/ lies in ("linux"); empty for the headers.
std::string platformOf(const fs::path& path) {
    const auto second = std::next(path.begin());
    return *path.begin() == "platform" && std::next(second) != path.end() ? second->string() : "";
}

bool mayIncludeLibrary(const fs::path& file, const std::string& library) {
    static const std::set<std::string> documentReaders = {"expat.h", "nlohmann/json.hpp", "utf8proc.h"};
    const bool reads = *file.begin() == "foundation" && file.extension() == ".cpp";
    return !platformOf(file).empty() || (reads && documentReaders.contains(library));
}

void expectIncludesInOrder(const fs::path& file) {
    const std::regex ours("#include \"(.*)\""), others("#include <(.*)>"), standard("[a-z0-9_]+");
    std::ifstream lines(sources / file);
    for (std::string line; std::getline(lines, line);) {
        std::smatch match;
        if (std::regex_match(line, match, ours)) {
            const fs::path included = match[1].str();
            const std::string from = file.begin()->string(), to = included.begin()->string();
            EXPECT_TRUE(from == to || heights.at(to) < heights.at(from)) << file << ": " << line;
            EXPECT_TRUE(platformOf(included).empty() || platformOf(included) == platformOf(file))
                << file << ": " << line;
        } else if (std::regex_match(line, match, others)) {
            const bool isStandard = std::regex_match(match[1].str(), standard);
            EXPECT_TRUE(isStandard || mayIncludeLibrary(file, match[1])) << file << ": " << line;
        }
    }
}

TEST(Architecture, IncludesPointOneWayAndLibrariesStayWhereTheyBelong) {
    for (const auto& entry : fs::recursive_directory_iterator(sources)) {
        if (entry.is_regular_file()) {
            expectIncludesInOrder(entry.path().lexically_relative(sources));
        }
    }
}

TEST(Architecture, EveryPlatformImplementsEveryService) {
    std::set<std::string> services;
    for (const auto& entry : fs::directory_iterator(sources / "platform")) {
        if (entry.is_regular_file()) {
            services.insert(entry.path().stem());
        }
    }
    for (const auto& platform : fs::directory_iterator(sources / "platform")) {
        if (!platform.is_directory()) {
            continue;
        }
        std::set<std::string> missing = services;
        for (const auto& entry : fs::recursive_directory_iterator(platform)) {
            if (entry.path().extension() == ".cpp") {
                missing.erase(entry.path().stem());
            }
        }
        EXPECT_TRUE(missing.empty()) << platform.path() << " has no source for " << *missing.begin();
    }
}

} // namespace
