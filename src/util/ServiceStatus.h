// What the service manager hears: when the daemon is ready, and one line on how it fares ("systemctl status"). The
// parts of the daemon only note facts; a thread tells them, so that a slow manager holds nobody up. Thread-safe unless
// said otherwise. Without a service manager nothing is noted.
#pragma once

#include "foundation/error.h"

#include <cstddef>
#include <map>
#include <optional>
#include <set>
#include <string>

namespace havrel {

/// What the line is made of; nullopt when not known yet, unless said otherwise. Moments are timestamps.
struct ServiceFacts {
    /// What it is doing; the same may be done twice at a time.
    std::multiset<std::string> activities = {};
    /// Absent while the bus is reachable.
    std::optional<std::string> busAwaySince = {};

    struct Silence {
        std::string since;
        std::string reason;
    };

    /// The servers, as URLs name them, that left the last request unanswered.
    std::map<std::string, Silence> silentServers = {};
    /// Whether any server has answered.
    bool hasWebAnswered = false;

    struct Measurement {
        std::size_t answered = 0;
        std::size_t asked = 0;
        std::string at;
    };

    std::optional<Measurement> proxies = {};
    std::optional<bool> isHostServiceOn = {};
};

std::string statusLine(const ServiceFacts& facts);

namespace service_status {

/// Starts telling. Ready is told once the bus has taken every observer that was added before `startUpEnded`, after five
/// seconds at the latest. Called once, by the main thread, before the first post and observer.
void begin();
/// Called once.
void startUpEnded();

/// Something the daemon does, for as long as this lives.
class Activity {
  public:
    explicit Activity(std::string name);
    ~Activity();
    Activity(const Activity&) = delete;
    Activity& operator=(const Activity&) = delete;

  private:
    std::string name_;
};

/// The outcome of a request; `failure` is nullopt when the server has answered, whatever the answer.
void noteRequest(const std::string& url, const std::optional<platform::Error>& failure);
/// A measurement is over. One of no proxies is not noted.
void noteProxies(std::size_t answered, std::size_t asked);
void noteHostService(bool isOn);

} // namespace service_status

} // namespace havrel
