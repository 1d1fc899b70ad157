// A file root of the trial's own, for HAVREL_ROOT: the product's folders as the installation leaves them, and a made-up
// machine around them. What the daemon leaves in it is read from here too.
#pragma once

#include "platform/value.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace trial {

/// One element of a proxy-list file.
struct ProxyEntry {
    std::string hostName;
    std::string ipAddr;
    std::string mappedHostName;
    std::int64_t pingTime = 0;
};

class TrialRoot {
  public:
    /// Makes a fresh temporary folder with the product's folders and the install marker in it. Throws
    /// std::runtime_error or std::filesystem::filesystem_error when it cannot.
    TrialRoot();
    /// Removes the folder and everything in it, unless it is to be kept.
    ~TrialRoot();
    TrialRoot(const TrialRoot&) = delete;
    TrialRoot& operator=(const TrialRoot&) = delete;

    void keep() { kept_ = true; }

    /// Everything that belongs to the trial lies here; the file root is one folder in it.
    const std::filesystem::path& folder() const { return folder_; }

    std::filesystem::path root() const { return folder_ / "root"; }

    /// Where an absolute path of the daemon's lies.
    std::filesystem::path at(std::string_view absolute) const;
    bool has(std::string_view absolute) const;
    /// The content; empty when there is no such file.
    std::string read(std::string_view absolute) const;
    /// Writes a file and makes the folders above it.
    void write(std::string_view absolute, std::string_view content) const;

    /// Puts a user at the graphical console, "ann" or "bob", who has a home folder and a Trash from then on.
    void logIn(const std::string& user) const;
    /// Puts the bundle NAME.app into /Applications.
    void installApplication(const std::string& name) const;

    /// The property list in a file; nothing when it is missing or damaged.
    std::optional<platform::Value> propertyList(std::string_view absolute) const;
    /// The records of a proxy-list file, in its order; nothing when it is missing or damaged.
    std::optional<std::vector<ProxyEntry>> proxies(std::string_view absolute) const;
    /// The messages in a log file, without their timestamps.
    std::vector<std::string> logged(std::string_view absolute) const;

  private:
    std::filesystem::path folder_;
    bool kept_ = false;
};

/// The whole file; empty when it cannot be read.
std::string readFile(const std::filesystem::path& file);
/// Replaces or makes the file.
void writeFile(const std::filesystem::path& file, std::string_view content);
/// The same for a script that everybody may run.
void writeProgram(const std::filesystem::path& file, std::string_view content);

} // namespace trial
