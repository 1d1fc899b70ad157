// A file root of the test's own.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

namespace support {

/// A fresh temporary folder, removed with everything in it at the end.
class TemporaryFolder {
  public:
    TemporaryFolder() {
        std::string name = (std::filesystem::temp_directory_path() / "havrel-test-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) {
            throw std::runtime_error("no temporary folder");
        }
        path_ = name;
    }

    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::filesystem::path& path() const { return path_; }

    /// Where an absolute path of the daemon's lies below this folder.
    std::filesystem::path at(const std::string& absolute) const { return path_ / absolute.substr(1); }

    std::string read(const std::string& absolute) const {
        std::ifstream file(at(absolute), std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    /// Writes a file and makes the folders above it.
    void write(const std::string& absolute, const std::string& content) const {
        std::filesystem::create_directories(at(absolute).parent_path());
        std::ofstream(at(absolute), std::ios::binary) << content;
    }

  private:
    std::filesystem::path path_;
};

} // namespace support
