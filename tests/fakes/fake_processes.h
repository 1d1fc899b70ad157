// Programs that are not run: what was asked is recorded, what they answer is the test's to say.
#pragma once

#include "fakes/steered.h"
#include "platform/processes.h"

namespace fakes::processes {

/// What is called on the caller's thread, in place of a program; it may throw platform::Exception.
template <typename Result>
using Program = Steered<std::function<Result(const std::string&)>>;

/// Given the command line, "program argument …" of a task, the address. Unset, they answer 0 or nothing.
inline Program<int> onSystem;
inline Program<platform::processes::TaskOutput> onTask;
inline Program<std::string> onPing;

/// Every call so far: a command line, "program argument …" of a task or launch, "ping ADDRESS".
inline Steered<std::vector<std::string>> calls;

/// Forgets the calls and the programs.
inline void reset() {
    calls({});
    onSystem({});
    onTask({});
    onPing({});
}

/// The ping program's words for a minimum of that many milliseconds ("12.345").
inline std::string pingSummary(const std::string& minimum) {
    return "round-trip min/avg/max/stddev = " + minimum + "/90.5/99.5/1.5 ms\n";
}

} // namespace fakes::processes
