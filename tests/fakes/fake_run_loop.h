// Run loops whose timers follow the steered clock, and event streams that tell nothing.
#pragma once

#include "fakes/steered.h"

#include <string>
#include <vector>

namespace fakes::run_loop {

/// The folders of each event stream, in the order in which the streams were made.
inline Steered<std::vector<std::vector<std::string>>> watched;

} // namespace fakes::run_loop
