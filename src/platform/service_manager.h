// The service manager that started this process, if one did and wants to hear from it. Thread-safe. A call may block
// while the manager is busy, and returns whether the manager was told.
#pragma once

#include <string>

namespace platform::service_manager {

/// Whether there is one to tell.
bool isListening();

/// Start-up is over: what was ordered after this service may start.
bool tellReady();
/// One line on how the process fares, which replaces the one before. Control characters and invalid UTF-8 are replaced.
bool tellStatus(const std::string& line);
/// The process has begun to end.
bool tellStopping();

} // namespace platform::service_manager
