// Another process's view of the bus.
#pragma once

#include "foundation/value.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

struct sd_bus;

namespace trial {

/// A `Posted` signal.
struct Posted {
    std::string name;
    std::string object;
    platform::Dictionary userInfo;
    std::uint32_t options = 0;
    /// The sending connection.
    std::string sender;
};

/// A connection of its own that hears every distributed notification and says what it is told to. From any thread.
class BusClient {
  public:
    /// Throws std::system_error when there is no bus at that address.
    explicit BusClient(const std::string& address);
    /// What was posted before is sent.
    ~BusClient();
    BusClient(const BusClient&) = delete;
    BusClient& operator=(const BusClient&) = delete;

    void post(const std::string& name, const std::string& object = {}, const platform::Dictionary& userInfo = {},
              std::uint32_t options = 3);
    /// Lends the connection for whatever else is to be sent.
    void perform(std::function<void(sd_bus& bus)> work);
    /// Blocks until the bus has passed on what was posted before.
    void sync();

    /// All that was heard so far, in order; malformed signals are not.
    std::vector<Posted> heard() const;
    std::size_t countOf(const std::string& name) const;

    using Condition = std::function<bool(const std::vector<Posted>& heard)>;
    /// Blocks until the condition holds or the deadline has passed; returns whether it holds.
    bool waitFor(const Condition& condition, std::chrono::milliseconds deadline = std::chrono::seconds{10}) const;
    bool waitForCount(const std::string& name, std::size_t count,
                      std::chrono::milliseconds deadline = std::chrono::seconds{10}) const;

  private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace trial
