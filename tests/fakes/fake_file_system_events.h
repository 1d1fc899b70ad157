// A file system on which only what the test says happens.
#pragma once

#include "fakes/steered.h"

#include <chrono>
#include <string>
#include <vector>

namespace fakes::file_system {

struct Watch {
    std::vector<std::string> paths;
    std::chrono::milliseconds latency;
};

/// What each event stream was made for, in the order they were made.
inline Steered<std::vector<Watch>> watched;

/// Tells every stream of the rename, on this thread.
void rename(const std::string& source, const std::string& destination, bool isFolder);

} // namespace fakes::file_system
