// A clock that the test steers. Free running (the default), a sleep is recorded and over at once. Stepped, time stands
// still until the test advances it.
#pragma once

#include "fakes/steered.h"

#include <chrono>
#include <list>

namespace fakes::clock {

inline Steered<std::string> timestamp;
/// The sleeps so far, in the order they began.
inline Steered<std::vector<std::chrono::nanoseconds>> sleeps;
/// Called on the sleeping thread before each sleep.
inline Steered<std::function<void(std::chrono::nanoseconds)>> onSleep;
/// Sleeps of at least this long last until they are stopped, also in free-running time: for threads that would spin.
inline Steered<std::chrono::nanoseconds> blockFrom;

/// Free running, nothing recorded, "2001-01-01 00:00:00", no hook, no time passed.
void reset();
/// Whoever sleeps wakes up.
void setStepped(bool stepped);
/// What has passed since the start.
std::chrono::nanoseconds now();
/// How many threads sleep.
std::size_t sleepers();
/// Blocks until that many threads sleep.
void waitForSleepers(std::size_t count);
/// Lets time pass until the next sleep is over or the next alarm is due, and calls that one on this thread.
void advance();

/// Rings again and again. Set, rung and removed on the test's thread.
struct Alarm {
    std::chrono::nanoseconds next;
    std::chrono::nanoseconds interval;
    std::function<void()> ring;
};

inline std::list<Alarm> alarms;

} // namespace fakes::clock
