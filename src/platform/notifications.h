// Notification centres: messages by name to every process of the machine, within this process, and about the machine's
// sleep. All functions are thread-safe.
#pragma once

#include "foundation/notification.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace platform {

/// Bits of a post's options.
enum PostOptions : std::uint32_t { deliverImmediately = 1, postToAllSessions = 2 };

/// Machine-wide messages over the bus. Handlers run on the main run loop, one at a time, in the order in which the
/// messages arrived; this process receives its own posts like any other.
///
/// Bounds, because every local user may be able to post: a message is dropped, with a rate-limited line on standard
/// error, when it is malformed, takes more than 64 KiB of memory, nests more than 32 variants and containers, or when
/// 16,384 messages or 16 MiB already wait for the main loop. While the bus is away, posts are kept in order up to the
/// same two bounds and the newest are dropped; observers are subscribed again when it is back.
namespace distributed_center {

/// The observer hears what is posted after this call, never what this process posted before it. It lasts as long as
/// the result, and keeps the main run loop running. The name is 1 to 255 printable ASCII characters without "'" and
/// "\"; throws platform::Exception for any other.
[[nodiscard]] ObservationPtr addObserver(const std::string& name, NotificationHandler handler);

/// Queues the message and returns at once. Posts of one thread keep their order. The name is 1 to 255 bytes long.
/// Invalid UTF-8 is repaired, null values are left out, and dates are sent as their number of seconds.
void post(const std::string& name, const std::string& object = {}, const std::optional<Dictionary>& userInfo = {},
          std::uint32_t options = deliverImmediately | postToAllSessions);

/// Blocks until the bus has passed on everything posted before and knows every observer added before, until it is lost
/// or until the time is over.
void flush(std::chrono::milliseconds timeout = std::chrono::seconds(1));

/// From now on tells the watcher, on a thread of the bus's own, that the bus is reached, also when it was before, and
/// when it is lost; the same may be told again. Called at most once.
void watchConnection(std::function<void(bool isReachable)> watcher);

} // namespace distributed_center

/// Messages within this process. `post` calls the handlers on its own thread before it returns.
namespace local_center {

[[nodiscard]] ObservationPtr addObserver(const std::string& name, NotificationHandler handler);
void post(const std::string& name, const std::string& object = {}, const std::optional<Dictionary>& userInfo = {});

} // namespace local_center

/// The machine's sleep and wake-up. Handlers run on the main run loop. While somebody observes will-sleep, the machine
/// waits, for as long as the system permits, until the handlers have returned and the bus has passed on their posts.
namespace workspace_center {

inline constexpr const char* willSleepNotification = "NSWorkspaceWillSleepNotification";
inline constexpr const char* didWakeNotification = "NSWorkspaceDidWakeNotification";

/// `name` is one of the two above.
[[nodiscard]] ObservationPtr addObserver(const std::string& name, NotificationHandler handler);

} // namespace workspace_center

} // namespace platform
