// What one can try on a running trial: lines for a shell, one for everything that the daemon reacts to.
#pragma once

#include "trial/support/machine.h"

#include <string>
#include <sys/types.h>

namespace trial {

/// Writes the scripts that the lines call into the machine's folder.
void writeCommandScripts(const Machine& machine);

/// The lines, each with what it does, and what the scripts stand for.
std::string commandLines(const Machine& machine, pid_t daemon);

} // namespace trial
