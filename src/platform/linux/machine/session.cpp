// In production this asks the login manager's library and the user database. Below a HAVREL_ROOT the same facts are
// read from the files that stand behind them there, so that a root is a machine with users of its own.
#include "platform/session.h"

#include "foundation/deployment.h"
#include "foundation/numbers.h"
#include "foundation/text.h"
#include "platform/linux/files/system_files.h"
#include "platform/linux/machine/user_database.h"

#include <cstdlib>
#include <memory>
#include <string_view>
#include <systemd/sd-login.h>
#include <unistd.h>

namespace platform::session {

namespace {

using user_database::User;

struct ConsoleSession {
    std::string kind; // "user", or "greeter" for a login screen
    std::string type; // "wayland", "x11" or "mir"; "tty" for a text login
    uid_t user = 0;
};

bool inRoot() { return !deployment::settings().root.empty(); }

template <typename Matches>
std::optional<User> userInRoot(Matches matches) {
    for (const std::string& line : text::split(readSystemFile("/etc/passwd").value_or(""), "\n")) {
        const auto fields = text::split(line, ":");
        if (fields.size() != 7) {
            continue;
        }
        if (const auto id = text::wholeNumber<uid_t>(fields[2])) {
            if (User user{.name = fields[0], .id = *id, .home = fields[5]}; matches(user)) {
                return user;
            }
        }
    }
    return std::nullopt;
}

std::optional<User> findUser(const std::string& name) {
    if (inRoot()) {
        return userInRoot([&](const User& user) { return user.name == name; });
    }
    return user_database::find(name);
}

std::optional<User> findUser(uid_t id) {
    if (inRoot()) {
        return userInRoot([&](const User& user) { return user.id == id; });
    }
    return user_database::find(id);
}

/// The value of `key` in a file of KEY=value lines; empty when there is none.
std::string setting(const std::string& file, const std::string& key) {
    return assignedValue(readSystemFile(file).value_or(""), key).value_or("");
}

std::optional<ConsoleSession> consoleSessionInRoot() {
    const std::string session = setting("/run/systemd/seats/seat0", "ACTIVE");
    if (session.empty() || session.find('/') != std::string::npos) {
        return std::nullopt;
    }
    const std::string file = "/run/systemd/sessions/" + session;
    const auto user = text::wholeNumber<uid_t>(setting(file, "UID"));
    return user ? std::optional(ConsoleSession{setting(file, "CLASS"), setting(file, "TYPE"), *user}) : std::nullopt;
}

struct Free {
    void operator()(char* text) const { std::free(text); }
};

using OwnedText = std::unique_ptr<char, Free>;

std::optional<ConsoleSession> consoleSessionOfMachine() {
    char* text = nullptr;
    ConsoleSession console;
    if (sd_seat_get_active("seat0", &text, &console.user) < 0) {
        return std::nullopt;
    }
    const OwnedText session(text);
    if (session == nullptr || sd_session_get_class(session.get(), &text) < 0) {
        return std::nullopt;
    }
    console.kind = OwnedText(text).get();
    if (sd_session_get_type(session.get(), &text) < 0) {
        return std::nullopt;
    }
    console.type = OwnedText(text).get();
    return console;
}

bool isGraphical(std::string_view type) { return type == "wayland" || type == "x11" || type == "mir"; }

} // namespace

std::optional<std::string> consoleUser() {
    const auto session = inRoot() ? consoleSessionInRoot() : consoleSessionOfMachine();
    if (!session || session->kind != "user" || !isGraphical(session->type)) {
        return std::nullopt;
    }
    const auto user = findUser(session->user);
    return user && !user->name.empty() ? std::optional(user->name) : std::nullopt;
}

std::optional<std::string> homeFolder(const std::string& user) {
    const auto found = findUser(user);
    return found && !found->home.empty() ? std::optional(found->home) : std::nullopt;
}

std::string currentHomeFolder() {
    const auto user = findUser(::geteuid());
    return user && !user->home.empty() ? user->home : "/";
}

} // namespace platform::session
