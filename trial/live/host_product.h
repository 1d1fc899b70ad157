// The host product, installed and in use on the trial's machine: applications, a user at the console, an account with
// the web service, an updater. So every command finds something to do; nothing that it finds is real.
#pragma once

#include "trial/support/machine.h"

#include <filesystem>

namespace trial {

/// To be called before the daemon is started.
void installHostProduct(Machine& machine);

/// Where the updater logs.
std::filesystem::path updaterLog(const Machine& machine);

} // namespace trial
