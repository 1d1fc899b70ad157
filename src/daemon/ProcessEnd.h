// How the process ends.
#pragma once

namespace havrel {

/// From now on, when the system asks the process to end, the main run loop is stopped. Should the main thread be too
/// busy to end the process within half a second, another one does; two seconds after the request it has ended. Called
/// once, by the main thread before it starts others.
void endProcessOnRequest();

/// Writes the last log line and ends the process with status 0, as `endProcess` does.
[[noreturn]] void shutDown();

/// Writes the queued log lines, sends the queued posts, waits for files being replaced and ends the pings, then ends
/// the process, all within one and a half seconds. The other threads still run: nothing they use is destroyed.
/// Thread-safe; only the first call counts.
[[noreturn]] void endProcess(int status);

} // namespace havrel
