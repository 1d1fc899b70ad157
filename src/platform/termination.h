// How the system asks this process to end.
#pragma once

#include <functional>

namespace platform::termination {

/// From now on SIGTERM and SIGINT no longer end the process: the first of them calls `handler`, once, on a thread of
/// its own that has nothing else to do, however busy the others are. Called once, by the main thread before it starts
/// others. Throws std::system_error when the thread can't be started; the signals then still end the process.
void onRequest(std::function<void()> handler);

} // namespace platform::termination
