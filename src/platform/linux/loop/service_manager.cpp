#include "platform/service_manager.h"

#include "foundation/unicode.h"

#include <algorithm>
#include <cstdlib>
#include <systemd/sd-daemon.h>

namespace platform::service_manager {

namespace {

/// The environment keeps the manager's address, since other threads may be reading it; children get one without.
bool tell(const std::string& assignments) { return ::sd_notify(0, assignments.c_str()) > 0; }

} // namespace

bool isListening() { return std::getenv("NOTIFY_SOCKET") != nullptr; }

bool tellReady() { return tell("READY=1"); }

bool tellStatus(const std::string& line) {
    std::string text = text::makeValidUtf8(line);
    // A line's end would begin another assignment.
    std::ranges::replace_if(
        text, [](unsigned char c) { return c < 0x20 || c == 0x7f; }, '?');
    return tell("STATUS=" + text);
}

bool tellStopping() { return tell("STOPPING=1"); }

} // namespace platform::service_manager
