#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <regex>

namespace fs = std::filesystem;

TEST(Architecture, IncludesPointOneWayAndLibrariesStayInThePlatformLayer) {
    const std::map<std::string, int> heights = {// a folder includes what stands below it, and itself
                                                {"platform", 0}, {"util", 1},  {"logging", 2}, {"prefs", 2},
                                                {"web", 3},      {"proxy", 4}, {"daemon", 5}};
    const std::regex own("#include \"([^\"/]+)/(linux/)?.*"), standard("#include <[a-z0-9_]*>|(?!#if|#include).*");
    const fs::path sources = fs::path(HAVREL_SOURCE_TREE) / "src";
    for (const auto& entry : fs::recursive_directory_iterator(sources)) {
        const fs::path file = entry.path().lexically_relative(sources);
        const bool isLinux = file.string().starts_with("platform/linux/"), isTable = file.extension() == ".def";
        std::ifstream lines(entry.path());
        for (std::string line; std::getline(lines, line);) {
            std::smatch match;
            if (std::regex_match(line, match, own)) {
                const std::string from = file.begin()->string(), to = match[1];
                EXPECT_TRUE(from == to || heights.at(to) < heights.at(from)) << file << ": " << line;
                EXPECT_TRUE(isLinux || !match[2].matched) << file << ": " << line;
            } else {
                EXPECT_TRUE(isLinux || isTable || std::regex_match(line, standard)) << file << ": " << line;
            }
        }
        const bool isService = file.parent_path() == "platform" && file.extension() == ".h";
        EXPECT_TRUE(!isService || fs::exists(sources / "platform/linux" / file.stem().concat(".cpp"))) << file;
    }
}
