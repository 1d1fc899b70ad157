// Fetches the list of relay proxies after an installation and tells every process of the product that it is new.
#pragma once

#include "proxy/HVLPingMutableArray.h"

#include <optional>
#include <string>

namespace havrel {

/// Everything runs on the caller's thread and may block for a request's time-out.
class HVLPlistManager {
  public:
    HVLPlistManager() = default;
    /// Keeps the path; no operation uses it.
    static HVLPlistManager initWithPlist(std::string path);

    /// While the install marker is there, logs and runs `checkProxyIsChanged`; what the platform raises is dropped.
    void startPlistUpdateManager() const;

    /// Fetches the list, writes it in random order to AllProxies.plist and posts the notification. The comparison
    /// with the stored list is only logged. Raises when a proxy has no address: nothing is written or posted then.
    void checkProxyIsChanged() const;

    /// The raw answer, whatever its status; nothing on a transport failure.
    std::optional<std::string> fetchProxyListFromServer() const;
    std::optional<std::string> getUpdatedProxyOnGetRequest() const;
    /// Another way to fetch the same list, as a POST. Not used.
    std::optional<std::string> getUpdatedProxyList() const;

    /// The records of an answer, "P1" first, whether the answer lists it or not; nothing when the answer is no JSON
    /// object. A proxy without a "domain" text has no address.
    std::optional<HVLPingMutableArray> mapProxyStringToProxyList(const std::string& body) const;

    /// Whether the lists differ in names or addresses; order and latencies play no part. An empty fresh list counts
    /// as unchanged.
    bool isProxyListChanged(const HVLPingMutableArray& fresh, const HVLPingMutableArray& stored) const;

    /// Writes the list, if there is one, and logs whether that worked.
    void writeProxyOnFile(const std::string& path, const std::optional<HVLPingMutableArray>& content) const;

    void generateNotificationForChange() const;

    const std::string& hostPlistPath() const { return hostPlistPath_; }

  private:
    std::string hostPlistPath_;
};

} // namespace havrel
