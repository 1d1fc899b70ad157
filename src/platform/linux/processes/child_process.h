// A program that this process starts and waits for, beneath processes.h.
#pragma once

#include "platform/linux/files/descriptor.h"

#include <array>
#include <cstddef>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

namespace platform::child_process {

/// Both ends are closed in every program that is started.
struct Pipe {
    Descriptor reader;
    Descriptor writer;
};

/// Throws platform::Exception when there are no descriptors left.
Pipe makePipe();

using Buffer = std::array<char, std::size_t{16} << 10>;

/// What one read gives; empty at the end of the pipe.
std::string_view readSome(int descriptor, Buffer& buffer);

/// Where a child's output goes; -1 for where this process's own goes.
struct Outputs {
    int standardOutput = -1;
    int standardError = -1;
};

/// Owned by one thread, which waits for it. The child leads a process group, so that a terminal's interrupt reaches
/// this process only.
class Child {
  public:
    /// `program` is looked up on PATH when it has no "/". Its environment is this process's own with one more
    /// assignment ("NAME=value") if that is not empty. Throws platform::Exception when it can't be started.
    Child(const std::string& program, const std::vector<std::string>& arguments, const Outputs& outputs = {},
          const std::string& assignment = {});
    /// Kills the child unless it was waited for.
    ~Child();
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    /// Also the number of its process group.
    pid_t pid() const { return pid_; }

    /// The raw wait status, -1 when somebody else has taken it. To be called once at most.
    int wait();

  private:
    pid_t pid_ = -1;
};

} // namespace platform::child_process
