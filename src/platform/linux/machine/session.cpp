#include "platform/session.h"

#include "platform/files.h"
#include "platform/linux/machine/login_records.h"

#include <unistd.h>

namespace platform::session {

namespace {

bool isDesktop(const ConsoleSession& session) {
    return session.kind == "user" && (session.type == "wayland" || session.type == "x11" || session.type == "mir");
}

/// Accounts of services have no home of their own or can't log in.
bool isPerson(const User& user) {
    constexpr uid_t firstPerson = 1000;
    const std::string shell = user.shell.substr(user.shell.rfind('/') + 1);
    return (user.id == 0 || user.id >= firstPerson) && shell != "nologin" && shell != "false" &&
           user.home.starts_with('/') && user.home.size() > 1;
}

} // namespace

std::set<std::string> users() {
    std::set<std::string> names;
    for (std::string& entry : files::list("/Users")) {
        names.insert(std::move(entry));
    }
    for (const User& user : loginRecords().users()) {
        if (isPerson(user)) {
            names.insert(user.name);
        }
    }
    return names;
}

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
