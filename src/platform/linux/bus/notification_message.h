// A distributed notification as it travels on the bus.
#pragma once

#include "platform/notifications.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <systemd/sd-bus.h>

namespace platform {

struct BusMessageRelease {
    void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};

using BusMessage = std::unique_ptr<sd_bus_message, BusMessageRelease>;

struct NotificationMessage {
    static constexpr const char* path = "/com/Dravex/DistributedNotifications";
    static constexpr const char* interface = "com.Dravex.DistributedNotifications";
    static constexpr const char* member = "Posted";
    static constexpr const char* signature = "ssa{sv}u";

    static constexpr std::size_t maxNameLength = 255;
    /// For `cost`.
    static constexpr std::size_t maxCost = std::size_t{64} << 10;
    /// Variants, arrays and dictionaries inside each other. The bus itself ends at 64 and shuts out a client that
    /// goes beyond; a dictionary in a variant is three of its levels.
    static constexpr int maxDepth = 32;

    Notification notification;
    std::uint32_t options = 0;

    /// The memory that the notification takes, roughly, in bytes.
    std::size_t cost() const;
};

/// Says why a message is not as it must be.
class MalformedMessage : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// Throws MalformedMessage when the message has no proper name, is too large or nested too deeply.
void validate(const NotificationMessage& message);

/// The signal to send, for a message that passes `validate`. Texts are made valid, null values left out, dates sent as
/// seconds. Throws std::system_error.
BusMessage encode(sd_bus& bus, const NotificationMessage& message);

/// The content of a received signal; throws MalformedMessage. No more than the permitted cost is read of it.
NotificationMessage decode(sd_bus_message& signal);

} // namespace platform
