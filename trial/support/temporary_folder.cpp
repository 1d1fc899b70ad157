#include "trial/support/temporary_folder.h"

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace trial {

namespace fs = std::filesystem;

TemporaryFolder::TemporaryFolder() {
    std::string name = (fs::temp_directory_path() / "havrel-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) {
        throw std::runtime_error("cannot make a folder " + name);
    }
    path_ = name;
}

TemporaryFolder::~TemporaryFolder() {
    if (!kept_) {
        std::error_code ignored;
        fs::remove_all(path_, ignored);
    }
}

bool TemporaryFolder::has(std::string_view absolute) const {
    std::error_code ignored;
    return fs::exists(fs::symlink_status(at(absolute), ignored));
}

std::string TemporaryFolder::read(std::string_view absolute) const { return readFile(at(absolute)); }

void TemporaryFolder::write(std::string_view absolute, std::string_view content) const {
    fs::create_directories(at(absolute).parent_path());
    writeFile(at(absolute), content);
}

std::string readFile(const fs::path& file) {
    const std::ifstream stream(file, std::ios::binary);
    std::ostringstream content;
    // A failed read, as of a /proc file whose process has just ended, counts as the end of the file here.
    content << stream.rdbuf();
    return std::move(content).str();
}

void writeFile(const fs::path& file, std::string_view content) {
    std::ofstream stream(file, std::ios::binary);
    stream << content;
    if (!stream.flush()) {
        throw std::runtime_error("cannot write " + file.string());
    }
}

void writeProgram(const fs::path& file, std::string_view content) {
    writeFile(file, content);
    fs::permissions(file, fs::perms::owner_all | fs::perms::group_exec | fs::perms::group_read |
                              fs::perms::others_exec | fs::perms::others_read);
}

} // namespace trial
