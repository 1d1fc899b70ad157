#include "platform/linux/machine/login_records.h"

#include "foundation/deployment.h"

#include <cstdlib>
#include <memory>
#include <systemd/sd-login.h>

namespace platform {

namespace {

struct Free {
    void operator()(char* text) const { std::free(text); }
};

using OwnedText = std::unique_ptr<char, Free>;

/// Asks the user database and the login manager's library.
class MachineRecords : public LoginRecords {
  public:
    std::vector<User> users() const override { return user_database::all(); }

    std::optional<User> findUser(const std::string& name) const override { return user_database::find(name); }

    std::optional<User> findUser(uid_t id) const override { return user_database::find(id); }

    std::optional<ConsoleSession> consoleSession() const override {
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
};

} // namespace

const LoginRecords& loginRecords() {
    static const MachineRecords machine;
    return deployment::settings().root.empty() ? machine : loginRecordsOfRoot();
}

} // namespace platform
