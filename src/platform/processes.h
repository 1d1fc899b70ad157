// Other programs. Children get a clean signal mask, default signal handlers, and no descriptors but the standard
// ones. Each call may come from any thread and leaves no descriptor and no zombie behind.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace platform::processes {

/// Runs the line with `/bin/sh -c` and waits; returns the raw wait status as the C function does (-1 when no shell
/// could be started).
int system(const std::string& commandLine);

/// What a task wrote. Beyond 16 MiB each, output is read and thrown away.
struct TaskOutput {
    std::string standardOutput;
    std::string standardError;
};

/// Which of a task's outputs go to pipes; the other one is inherited.
enum class Capture { standardOutput, standardError, both };

/// Runs a program and reads its piped outputs to their end, both at once, however they are interleaved; then waits for
/// it. Raises platform::Exception when it cannot be started.
TaskOutput runTask(const std::string& program, const std::vector<std::string>& arguments, Capture capture);

/// Starts a program of the product, whose path lies below HAVREL_ROOT, and returns at once; it is not waited for and
/// leaves no zombie. False when it cannot be started.
bool launch(const std::string& program, const std::vector<std::string>& arguments);

/// Opens an application bundle: the executable that its Info.plist names, as the user at the console. Not waited for.
bool launchApplication(const std::string& bundlePath);

/// Pings the address for six seconds and returns what the ping program wrote, its summary in the form
/// "min/avg/max/stddev = a/b/c/d ms" (absent when no reply came). The address is never read as an option. Blocks
/// for about six seconds, a stalled lookup included. Raises platform::Exception when ping cannot be started.
std::string ping(const std::string& address);

} // namespace platform::processes
