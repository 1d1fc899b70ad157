// URLs on the service's hosts. The hosts are deployment settings.
#pragma once

#include <string>

namespace havrel {

/// A URL as a type of its own, distinct from its text.
struct URL {
    std::string absoluteString;
    bool operator==(const URL&) const = default;
};

/// Operations take a path that begins with "/" and return "https://", the host and the path; nothing is escaped.
/// Thread-safe.
class HVLUrl {
  public:
    /// Web-service host; the three return the same URL.
    static std::string getStringUrl(const std::string& path);
    static std::string getStringUrlBaseNET(const std::string& path);
    static URL getUrl(const std::string& path);
    /// Public web-site host.
    static std::string getStringUrlBaseCOM(const std::string& path);
    /// Web-application host.
    static std::string getStringUrlBaseWeb(const std::string& path);
    /// Test server; the two return the same URL.
    static std::string getStringTestUrl(const std::string& path);
    static std::string getStringUrlBaseTest(const std::string& path);
};

} // namespace havrel
