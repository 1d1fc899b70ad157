// Starting other programs and ending them, beneath processes.h.
#pragma once

#include "platform/linux/files/descriptor.h"

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

namespace platform::child_process {

using Texts = std::vector<std::string>;

/// Both ends are closed in every program that is started.
struct Pipe {
    Descriptor reader;
    Descriptor writer;
};

/// Raises platform::Exception when there are no descriptors left.
Pipe makePipe();

using Buffer = std::array<char, std::size_t{16} << 10>;

/// What one read gives; empty at the end of the pipe, or when a non-blocking one has nothing now.
std::string_view readSome(int descriptor, Buffer& buffer);

/// This process's environment with the assignments ("NAME=value") in place of its own of these names.
Texts environmentWith(const Texts& assignments);

/// Where a child's output goes; -1 for where this process's own goes.
struct Outputs {
    int standardOutput = -1;
    int standardError = -1;
};

/// A running program, waited for by its owner. It leads a process group of its own, so that a terminal's interrupt
/// reaches this process only, and has nothing on standard input.
class Child {
  public:
    /// `program` is looked up on PATH when it has no "/". Raises platform::Exception when it cannot be started.
    Child(const std::string& program, const Texts& arguments, const Texts& environment, const Outputs& outputs);
    /// Kills and waits, unless it was waited for.
    ~Child();
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    pid_t pid() const { return pid_; }

    /// Signals its whole process group.
    void signal(int number) const;
    /// The raw wait status, -1 when somebody else has taken it. Once.
    int wait();

  private:
    pid_t pid_ = -1;
};

/// Whom a program runs as.
struct Account {
    uid_t user = 0;
    gid_t group = 0;
    std::vector<gid_t> groups;
    /// The assignments that a session of the user's has.
    Texts environment;
};

/// The account of that name; nothing when the user database has none.
std::optional<Account> accountOf(const std::string& name);

/// Starts the program at the path, in a session of its own and as nobody's child, as the account when one is given.
/// False when it cannot be started as asked; then it has not run at all.
bool startDetached(const std::string& path, const Texts& arguments, const std::optional<Account>& account);

} // namespace platform::child_process
