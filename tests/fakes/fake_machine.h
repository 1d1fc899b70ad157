// A machine and its users as the test says.
#pragma once

#include "fakes/steered.h"
#include "platform/system_info.h"

namespace fakes::machine {

inline Steered<platform::system_info::Version> version;
inline Steered<std::string> bundlePath;
inline Steered<std::optional<std::string>> consoleUser;

/// Version 10.15.7, the daemon's own folder as bundle path, nobody at the console.
inline void reset() {
    version({10, 15, 7});
    bundlePath("/usr/libexec/havrel");
    consoleUser({});
}

} // namespace fakes::machine
