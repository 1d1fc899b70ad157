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

/// A child's standard descriptors; -1 for an empty input, and for an output that goes where this process's own goes.
struct Streams {
    int standardInput = -1;
    int standardOutput = -1;
    int standardError = -1;
};

/// Assignments, each "NAME=value".
using Environment = std::vector<std::string>;

/// This process's own, with the assignment if that is not empty, and without the service manager's address: what it
/// hears from there would be taken for the daemon's word.
Environment environmentWith(const std::string& assignment = {});

/// Owned by one thread, which waits for it. The child leads a process group, so that a terminal's interrupt reaches
/// this process only.
class Child {
  public:
    /// `program` is looked up on PATH when it has no "/". Throws platform::Exception when it can't be started.
    Child(const std::string& program, const std::vector<std::string>& arguments, const Streams& streams = {},
          const Environment& environment = environmentWith());
    /// Kills the child unless it was waited for.
    ~Child();
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    /// Also the number of its process group.
    pid_t pid() const { return pid_; }

    /// Ends the child and whatever is in its group. Before `wait`.
    void kill() const;

    /// The raw wait status, -1 when somebody else has taken it. To be called once at most.
    int wait();

  private:
    pid_t pid_ = -1;
};

} // namespace platform::child_process
