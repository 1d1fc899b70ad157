// Named messages: to every process of the machine, within this process, and from the machine's sleep and wake.
#pragma once

#include "foundation/notification.h"

#include <cstdint>
#include <optional>
#include <string>

namespace platform {

/// Bits of a post's options.
enum PostOptions : std::uint32_t { deliverImmediately = 1, postToAllSessions = 2 };

/// System-wide messages on the bus. Handlers run on the main run loop, one at a time, in the order in which the
/// messages arrived; the daemon receives its own posts like any other. A message is dropped with a line on standard
/// error when it is malformed, takes more than 64 KiB of memory, nests more than 32 variants and containers, or when
/// 16,384 messages or 16 MiB wait for the main loop already; a flood of such lines is cut short. Without a bus, posts
/// are kept in order up to the same bound, the newest beyond it are dropped, and observers are subscribed again when
/// it is back.
namespace distributed_center {

/// From any thread. The result keeps the observation alive, and the observation keeps the main run loop running. What
/// this thread posts afterwards is observed. The name is 1 to 255 printable ASCII characters without "'" and "\";
/// throws Exception for any other.
[[nodiscard]] ObservationPtr addObserver(const std::string& name, NotificationHandler handler);

/// Queues the message and returns at once. From any thread; one thread's posts keep their order. The name is 1 to 255
/// bytes long. Invalid UTF-8 is repaired; null values are left out and dates are sent as their seconds.
void post(const std::string& name, const std::string& object = {}, const std::optional<Dictionary>& userInfo = {},
          std::uint32_t options = deliverImmediately | postToAllSessions);

/// Blocks until the bus has passed on what was posted before, or for a second at the most.
void flush();

} // namespace distributed_center

/// Messages within this process; handlers run on the poster's thread before `post` returns. From any thread.
namespace local_center {

[[nodiscard]] ObservationPtr addObserver(const std::string& name, NotificationHandler handler);
void post(const std::string& name, const std::string& object = {}, const std::optional<Dictionary>& userInfo = {});

} // namespace local_center

/// "NSWorkspaceWillSleepNotification" and "NSWorkspaceDidWakeNotification"; handlers run on the main run loop. From any
/// thread. While will-sleep is observed the machine waits, for as long as the system allows, until its handlers have
/// returned and their posts are on the bus.
namespace workspace_center {

inline constexpr const char* willSleepNotification = "NSWorkspaceWillSleepNotification";
inline constexpr const char* didWakeNotification = "NSWorkspaceDidWakeNotification";

[[nodiscard]] ObservationPtr addObserver(const std::string& name, NotificationHandler handler);

} // namespace workspace_center

} // namespace platform
