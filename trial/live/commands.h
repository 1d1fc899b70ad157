// Shell lines to try on a running trial, one for everything that the daemon reacts to.
#pragma once

#include "trial/support/machine.h"

#include <string>
#include <sys/types.h>

namespace trial {

/// Writes the scripts that the lines call to the machine's folder.
void writeCommandScripts(const Machine& machine);

/// The lines, each with what it does, and what the scripts do in turn.
std::string commandLines(const Machine& machine, pid_t daemon);

} // namespace trial
