// The bus as another process sees it.
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

/// Hears every distributed notification and posts some, over a connection of its own. Thread-safe.
class BusClient {
  public:
    /// Throws std::system_error if there is no bus at that address.
    explicit BusClient(const std::string& address);
    /// Sends what is still to be posted.
    ~BusClient();
    BusClient(const BusClient&) = delete;
    BusClient& operator=(const BusClient&) = delete;

    void post(const std::string& name, const std::string& object = {}, const platform::Dictionary& userInfo = {},
              std::uint32_t options = 3);
    /// Calls `work` with the connection, on its thread and later.
    void perform(std::function<void(sd_bus& bus)> work);
    /// Blocks until the bus has received what was posted so far.
    void sync();

    /// All that was heard so far, in order. Malformed signals are left out.
    std::vector<Posted> heard() const;
    std::size_t countOf(const std::string& name) const;

    using Condition = std::function<bool(const std::vector<Posted>& heard)>;
    /// Blocks until the condition holds; false if it does not within `deadline`.
    bool waitFor(const Condition& condition, std::chrono::milliseconds deadline = std::chrono::seconds{10}) const;
    bool waitForCount(const std::string& name, std::size_t count,
                      std::chrono::milliseconds deadline = std::chrono::seconds{10}) const;

  private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace trial
