// Addresses on the service's hosts, which are deployment settings.
#pragma once

#include <string>

namespace havrel {

/// An address as an object of its own, told apart from the text that it was made from.
struct URL {
    std::string absoluteString;
    bool operator==(const URL&) const = default;
};

/// Each operation takes a path that begins with "/" and returns it behind "https://" and the host, nothing added
/// and nothing escaped. From any thread.
class HVLUrl {
  public:
    /// Web-service base host; the three are the same address.
    static std::string getStringUrl(const std::string& path);
    static std::string getStringUrlBaseNET(const std::string& path);
    static URL getUrl(const std::string& path);
    /// Public web-site host.
    static std::string getStringUrlBaseCOM(const std::string& path);
    /// Web-application host.
    static std::string getStringUrlBaseWeb(const std::string& path);
    /// Test server; the two are the same address.
    static std::string getStringTestUrl(const std::string& path);
    static std::string getStringUrlBaseTest(const std::string& path);
};

} // namespace havrel
