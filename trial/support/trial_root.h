// A folder for HAVREL_ROOT: the product's folders as after an installation, and a made-up machine around them. Also
// reads what the daemon writes to it.
#pragma once

#include "foundation/value.h"
#include "trial/support/temporary_folder.h"

#include <cstdint>
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

class TrialRoot : public TemporaryFolder {
  public:
    /// With the product's folders and the install marker. Throws std::runtime_error or
    /// std::filesystem::filesystem_error if it can't be made.
    TrialRoot();

    /// A folder in it for the trial's own files, which the daemon does not use.
    std::filesystem::path folder() const { return at("/trial"); }

    /// Puts a user at the graphical console, "ann" or "bob", who has a home folder and a Trash from then on.
    void logIn(const std::string& user) const;
    /// Puts the bundle NAME.app into /Applications.
    void installApplication(const std::string& name) const;

    /// The property list in a file; nullopt if it is missing or damaged.
    std::optional<platform::Value> propertyList(std::string_view absolute) const;
    /// The records of a proxy-list file, in its order; nullopt if it is missing or damaged.
    std::optional<std::vector<ProxyEntry>> proxies(std::string_view absolute) const;
    /// The messages in a log file, without timestamps.
    std::vector<std::string> logged(std::string_view absolute) const;
};

} // namespace trial
