// Run loops whose timers follow the steered clock, and a file system on which nothing happens of itself.
#pragma once

#include "fakes/steered.h"

#include <string>
#include <vector>

namespace fakes::run_loop {

/// The folders that each event stream was made for, in the order they were made.
inline Steered<std::vector<std::vector<std::string>>> watched;

} // namespace fakes::run_loop
