// Who has an account on the machine and whose session is at its console: the records behind session.h.
#pragma once

#include "platform/linux/machine/user_database.h"

#include <optional>
#include <string>
#include <vector>

namespace platform {

/// The session that is active on the first seat.
struct ConsoleSession {
    std::string kind; ///< "user", or "greeter" for a login screen
    std::string type; ///< "wayland", "x11" or "mir"; "tty" for a text login
    uid_t user = 0;
};

/// Read anew by each call; nullopt when absent.
class LoginRecords {
  public:
    virtual ~LoginRecords() = default;

    virtual std::vector<User> users() const = 0;
    virtual std::optional<User> findUser(const std::string& name) const = 0;
    virtual std::optional<User> findUser(uid_t id) const = 0;
    virtual std::optional<ConsoleSession> consoleSession() const = 0;
};

/// Those of this machine or, with a HAVREL_ROOT, those of the machine that its files describe.
const LoginRecords& loginRecords();

/// For `loginRecords` only: the records as files below HAVREL_ROOT, which trials and tests write.
const LoginRecords& loginRecordsOfRoot();

} // namespace platform
