#include "platform/linux/machine/user_database.h"

#include <cerrno>
#include <mutex>
#include <pwd.h>
#include <vector>

namespace platform::user_database {

namespace {

User userOf(const passwd& entry) { return {entry.pw_name, entry.pw_uid, entry.pw_gid, entry.pw_dir, entry.pw_shell}; }

/// `lookUp` is getpwnam_r or getpwuid_r, with everything bound but the buffer.
template <typename LookUp>
std::optional<User> found(LookUp lookUp) {
    constexpr std::size_t largestEntry = std::size_t{1} << 20;
    std::vector<char> buffer(1024);
    passwd entry{};
    passwd* result = nullptr;
    int error = 0;
    while ((error = lookUp(&entry, buffer.data(), buffer.size(), &result)) == ERANGE && buffer.size() < largestEntry) {
        buffer.resize(2 * buffer.size());
    }
    if (error != 0 || result == nullptr) {
        return std::nullopt;
    }
    return userOf(entry);
}

} // namespace

std::vector<User> all() {
    static std::mutex listing; // the library has one position in the list for all threads
    const std::lock_guard lock(listing);
    std::vector<User> users;
    ::setpwent();
    while (const auto user = found([](auto... buffer) { return ::getpwent_r(buffer...); })) {
        users.push_back(*user);
    }
    ::endpwent();
    return users;
}

std::optional<User> find(const std::string& name) {
    return found([&](auto... buffer) { return ::getpwnam_r(name.c_str(), buffer...); });
}

std::optional<User> find(uid_t id) {
    return found([&](auto... buffer) { return ::getpwuid_r(id, buffer...); });
}

} // namespace platform::user_database
