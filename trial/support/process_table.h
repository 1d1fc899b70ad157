// The processes of this machine, as /proc tells of them.
#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

namespace trial {

struct Process {
    pid_t id = 0;
    pid_t parent = 0;
    pid_t session = 0;
    /// Of the program, at most 15 bytes.
    std::string name;
    bool isZombie = false;

    /// The last of its arguments; empty when it has gone.
    std::string lastArgument() const;
};

std::vector<Process> processTable();

} // namespace trial
