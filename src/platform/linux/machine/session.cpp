#include "platform/session.h"

#include "platform/linux/machine/login_records.h"

#include <unistd.h>

namespace platform::session {

namespace {

bool isDesktop(const ConsoleSession& session) {
    return session.kind == "user" && (session.type == "wayland" || session.type == "x11" || session.type == "mir");
}

} // namespace

std::optional<std::string> consoleUser() {
    const auto session = loginRecords().consoleSession();
    if (!session || !isDesktop(*session)) {
        return std::nullopt;
    }
    const auto user = loginRecords().findUser(session->user);
    return user && !user->name.empty() ? std::optional(user->name) : std::nullopt;
}

std::optional<std::string> homeFolder(const std::string& user) {
    const auto found = loginRecords().findUser(user);
    return found && !found->home.empty() ? std::optional(found->home) : std::nullopt;
}

std::string currentHomeFolder() {
    const auto user = loginRecords().findUser(::geteuid());
    return user && !user->home.empty() ? user->home : "/";
}

} // namespace platform::session
