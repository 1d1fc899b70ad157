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

} // namespace trial
