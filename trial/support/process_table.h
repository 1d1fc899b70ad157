// The processes of this machine, as /proc lists them.
#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

namespace trial {

struct Process {
    pid_t id = 0;
    pid_t parent = 0;
    pid_t session = 0;
    /// The program's, cut to 15 bytes.
    std::string name;
    bool isZombie = false;

    /// Empty if the process has gone.
    std::string lastArgument() const;
};

std::vector<Process> processTable();

/// The most memory that a process has held so far, in kilobytes; 0 if it has gone.
long peakMemory(pid_t process);
/// The same of the calling process, or of its largest child so far if that is more.
long peakMemory();

} // namespace trial
