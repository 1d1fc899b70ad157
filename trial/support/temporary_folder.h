// Files of a trial or a test.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace trial {

/// A fresh temporary folder, removed with its contents at the end. Operations take the absolute paths that a daemon
/// uses whose HAVREL_ROOT it is.
class TemporaryFolder {
  public:
    /// Throws std::runtime_error if it can't be made.
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    /// Leaves the folder in place at the end.
    void keep() { kept_ = true; }

    const std::filesystem::path& path() const { return path_; }

    /// The real path of one of the daemon's.
    std::filesystem::path at(std::string_view absolute) const { return path_ / absolute.substr(1); }

    bool has(std::string_view absolute) const;
    /// The content; empty if there is no such file.
    std::string read(std::string_view absolute) const;
    /// Writes a file, making the folders above it. Throws std::runtime_error or std::filesystem::filesystem_error.
    void write(std::string_view absolute, std::string_view content) const;

  private:
    std::filesystem::path path_;
    bool kept_ = false;
};

/// The whole file; empty if it can't be read.
std::string readFile(const std::filesystem::path& file);
/// Makes or overwrites the file. Throws std::runtime_error if that fails.
void writeFile(const std::filesystem::path& file, std::string_view content);
/// The same for a program that everybody may run.
void writeProgram(const std::filesystem::path& file, std::string_view content);

} // namespace trial
