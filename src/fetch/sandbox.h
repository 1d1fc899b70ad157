// What takes from this process all that a web transfer doesn't need.
#pragma once

#include <optional>
#include <sys/types.h>

namespace platform::sandbox {

struct User {
    uid_t id = 0;
    gid_t group = 0;
};

/// Called once, before anything is read and before there are other threads. From now on this process
/// - is this user's, in no other group; nullopt keeps the user that it has, which must not be root;
/// - gains no privilege by any program, leaves no core file and can't be looked into;
/// - dies with the thread that started it;
/// - has bounds on its memory and descriptors, and on its user's processes;
/// - is killed when it starts a program or a process, looks into or signals another one, changes a file, types into a
///   terminal, leaves its process group or takes memory that outlives it.
/// What stays open is a socket bound to a name in a folder that everyone may write to, such as /tmp: the C library
/// needs the call for its netlink sockets, and a filter can't see the address.
/// Throws std::system_error when anything of this can't be had.
void enter(const std::optional<User>& user);

} // namespace platform::sandbox
