// Fetches the list of relay proxies once after an installation and announces it to the product's applications.
#pragma once

#include "proxy/HVLPingMutableArray.h"

#include <optional>
#include <string>

namespace havrel {

/// Every operation runs on the caller's thread; one that fetches blocks for up to the request's time-out. Optional
/// results are nullopt on any failure. Thread-safe, except that runs at the same time overwrite each other's file.
class HVLPlistManager {
  public:
    HVLPlistManager() = default;
    /// Stores `hostPlistPath`, which no operation uses.
    static HVLPlistManager initWithPlist(std::string path);

    /// Runs `checkProxyIsChanged` if the install marker exists; a platform::Exception from it is dropped.
    void startPlistUpdateManager() const;

    /// Fetches the list, writes it in random order and with latencies of 0 to AllProxies.plist, and posts the
    /// notification. Whether it differs from the stored list is only logged. Throws platform::Exception when a proxy
    /// has no address; nothing is written or posted then.
    void checkProxyIsChanged() const;

    /// The body of the answer, whatever its HTTP status; nullopt on a transport error.
    std::optional<std::string> fetchProxyListFromServer() const;
    std::optional<std::string> getUpdatedProxyOnGetRequest() const;
    /// Fetches the same list by a POST; unused.
    std::optional<std::string> getUpdatedProxyList() const;

    /// The records of an answer, "P1" first even if the answer doesn't list it; nullopt if it isn't a JSON object.
    /// A proxy without a "domain" text gets no address.
    std::optional<HVLPingMutableArray> mapProxyStringToProxyList(const std::string& body) const;

    /// Whether the lists differ in names or addresses; order and latencies don't matter. An empty fresh list counts
    /// as unchanged.
    bool isProxyListChanged(const HVLPingMutableArray& fresh, const HVLPingMutableArray& stored) const;

    /// Writes the list, if any, and logs whether it was written.
    void writeProxyOnFile(const std::string& path, const std::optional<HVLPingMutableArray>& content) const;

    /// Posts "HVLProxyStateChangedNotification".
    void generateNotificationForChange() const;

    const std::string& hostPlistPath() const { return hostPlistPath_; }

  private:
    std::string hostPlistPath_;
};

} // namespace havrel
