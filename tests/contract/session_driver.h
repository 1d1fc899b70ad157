// How the session cases are driven. The unit tests define this for the stand-in, the platform tests for the real
// service.
#pragma once

#include <functional>
#include <optional>
#include <string>

namespace contract::session {

/// Does the work while the services under test see a machine with the users "ann" and "bob" and that one, if any, at
/// its console.
void onMachine(const std::optional<std::string>& consoleUser, const std::function<void()>& work);

} // namespace contract::session
