// The host product as it is installed and in use on the trial's machine, so that every command finds something to do:
// applications and somebody at the console, an account with the web service, an updater. All of it is harmless.
#pragma once

#include "trial/support/machine.h"

#include <filesystem>

namespace trial {

/// Puts it on a machine on which no daemon runs yet.
void installHostProduct(Machine& machine);

/// What the updater says of itself.
std::filesystem::path updaterLog(const Machine& machine);

} // namespace trial
