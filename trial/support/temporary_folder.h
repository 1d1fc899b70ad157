// Files of a trial's or a test's own.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace trial {

/// A fresh temporary folder, removed with everything in it at the end. Its operations take absolute paths as the daemon
/// does for which the folder is HAVREL_ROOT.
class TemporaryFolder {
  public:
    /// Throws std::runtime_error when it cannot be made.
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    /// It is not to be removed after all.
    void keep() { kept_ = true; }

    const std::filesystem::path& path() const { return path_; }

    /// Where an absolute path of the daemon's lies.
    std::filesystem::path at(std::string_view absolute) const { return path_ / absolute.substr(1); }

    bool has(std::string_view absolute) const;
    /// The content; empty when there is no such file.
    std::string read(std::string_view absolute) const;
    /// Writes a file and makes the folders above it.
    void write(std::string_view absolute, std::string_view content) const;

  private:
    std::filesystem::path path_;
    bool kept_ = false;
};

/// The whole file; empty when it cannot be read.
std::string readFile(const std::filesystem::path& file);
/// Replaces or makes the file. Throws std::runtime_error when it cannot.
void writeFile(const std::filesystem::path& file, std::string_view content);
/// The same for a script that everybody may run.
void writeProgram(const std::filesystem::path& file, std::string_view content);

} // namespace trial
