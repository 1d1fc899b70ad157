// Other programs. A child gets this process's environment, an empty signal mask, default signal handlers and no
// descriptors but the standard ones, with nothing on standard input; no call leaves a descriptor or a zombie behind.
// Thread-safe.
#pragma once

#include <string>
#include <vector>

namespace platform::processes {

/// Runs the line with `/bin/sh -c` and waits for the shell. Returns its raw wait status, as the C function does; -1
/// when it can't be started.
int system(const std::string& commandLine);

/// What a task wrote; of each, everything beyond 16 MiB is dropped.
struct TaskOutput {
    std::string standardOutput;
    std::string standardError;
};

/// Which outputs of a task are captured; the other one stays this process's own.
enum class Capture { standardOutput, standardError, both };

/// Runs a program until its captured outputs have ended, then waits for it. `program` is looked up on PATH when it has
/// no "/". To a task, "ps -A" shows the paths of programs. Throws platform::Exception when it can't be started.
TaskOutput runTask(const std::string& program, const std::vector<std::string>& arguments, Capture capture);

/// Starts a program whose path lies below HAVREL_ROOT and returns while it runs. It outlives this process; init reaps
/// it. A program that can't be started is reported on standard error.
void launch(const std::string& program, const std::vector<std::string>& arguments);

/// The same for an application bundle: the executable that its Info.plist names, run as the user at the console.
void launchApplication(const std::string& bundlePath);

/// Pings the address for six seconds and returns what the ping program wrote to standard output (the last 64 KiB), its
/// summary in the form "min/avg/max/stddev = a/b/c/d ms"; there is none when no reply came. Blocks all the while, two
/// seconds longer at most. The address is never read as an option. Throws platform::Exception when the address is empty
/// or nothing can be started.
std::string ping(const std::string& address);

/// Kills the pings under way and waits until they are gone, for half a second at most; later ones throw. For the end of
/// the process.
void endPings();

} // namespace platform::processes
