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
    /// A bound on `cost`.
    static constexpr std::size_t maxCost = std::size_t{64} << 10;
    /// Levels of variants, arrays and dictionaries. The bus disconnects a client that exceeds 64 levels; a dictionary
    /// in a variant counts as three of those.
    static constexpr int maxDepth = 32;

    Notification notification;
    std::uint32_t options = 0;

    /// Roughly the memory that the notification takes, in bytes. Throws MalformedMessage when it is nested too deeply.
    std::size_t cost() const;
};

/// Its text says what is wrong with the message.
class MalformedMessage : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// Throws MalformedMessage when the name is empty or too long, or the message too large or nested too deeply.
void validate(const NotificationMessage& message);

/// The signal for a message that passes `validate`. Invalid UTF-8 is repaired, null values are left out, and dates are
/// sent as their number of seconds. Throws std::system_error.
BusMessage encode(sd_bus& bus, const NotificationMessage& message);

/// The content of a received signal. Reads no more than `maxCost` of it. Throws MalformedMessage.
NotificationMessage decode(sd_bus_message& signal);

} // namespace platform
