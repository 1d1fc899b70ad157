// How a target says that something must hold.
#pragma once

#include <cstdlib>

/// Ends the process, which libFuzzer takes for a finding, unless it holds.
inline void require(bool holds) {
    if (!holds) {
        std::abort();
    }
}
