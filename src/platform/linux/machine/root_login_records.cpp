// For trials and tests; never used in production.
#include "foundation/numbers.h"
#include "foundation/text.h"
#include "platform/linux/files/system_files.h"
#include "platform/linux/machine/login_records.h"

#include <algorithm>
#include <utility>

namespace platform {

namespace {

/// The value of `key` in a file of KEY=value lines; empty when absent.
std::string setting(const std::string& file, const std::string& key) {
    return assignedValue(readSystemFile(file).value_or(""), key).value_or("");
}

std::optional<User> userOf(const std::string& line) {
    const auto fields = text::split(line, ":");
    if (fields.size() != 7) {
        return std::nullopt;
    }
    const auto id = text::wholeNumber<uid_t>(fields[2]);
    const auto group = text::wholeNumber<gid_t>(fields[3]);
    return id && group ? std::optional(User{fields[0], *id, *group, fields[5], fields[6]}) : std::nullopt;
}

template <typename Matches>
std::optional<User> firstUser(const std::vector<User>& users, Matches matches) {
    const auto found = std::find_if(users.begin(), users.end(), matches);
    return found != users.end() ? std::optional(*found) : std::nullopt;
}

/// Reads the files in which the login manager keeps its state and the C library finds the users.
class RootRecords : public LoginRecords {
  public:
    std::vector<User> users() const override {
        std::vector<User> users;
        for (const std::string& line : text::split(readSystemFile("/etc/passwd").value_or(""), "\n")) {
            if (auto user = userOf(line)) {
                users.push_back(std::move(*user));
            }
        }
        return users;
    }

    std::optional<User> findUser(const std::string& name) const override {
        return firstUser(users(), [&](const User& user) { return user.name == name; });
    }

    std::optional<User> findUser(uid_t id) const override {
        return firstUser(users(), [&](const User& user) { return user.id == id; });
    }

    std::optional<ConsoleSession> consoleSession() const override {
        const std::string session = setting("/run/systemd/seats/seat0", "ACTIVE");
        if (session.empty() || session.find('/') != std::string::npos) {
            return std::nullopt;
        }
        const std::string file = "/run/systemd/sessions/" + session;
        const auto user = text::wholeNumber<uid_t>(setting(file, "UID"));
        return user ? std::optional(ConsoleSession{setting(file, "CLASS"), setting(file, "TYPE"), *user})
                    : std::nullopt;
    }
};

} // namespace

const LoginRecords& loginRecordsOfRoot() {
    static const RootRecords records;
    return records;
}

} // namespace platform
