// A clock that the test steers. Free running (the default), a sleep is recorded and over at once. Stepped, time stands
// still until the test advances it.
#pragma once

#include "fakes/steered.h"

#include <chrono>
#include <list>

namespace fakes::clock {

inline Steered<std::string> timestamp{"2001-01-01 00:00:00"};
/// The sleeps so far, in the order they began.
inline Steered<std::vector<std::chrono::nanoseconds>> sleeps;
/// Called on the sleeping thread before each sleep.
inline Steered<std::function<void(std::chrono::nanoseconds)>> onSleep;
/// Sleeps of at least this duration last until they are stopped even when the clock runs freely: for threads that would
/// spin otherwise.
inline Steered<std::chrono::nanoseconds> blockFrom;

/// Free running at "2001-01-01 00:00:00", with nothing recorded, no hook and no time passed.
void reset();
/// Also wakes every sleeper.
void setStepped(bool stepped);
/// The time that has passed since the last reset.
std::chrono::nanoseconds now();
/// How many threads sleep.
std::size_t sleepers();
/// Blocks until that many threads sleep.
void waitForSleepers(std::size_t count);
/// Lets time pass until the next sleep is over or the next alarm is due; rings that alarm on this thread. There must be
/// a sleeper or an alarm.
void advance();

/// Rings at every interval. Set, rung and removed on the test's thread. An exception ends that ring only.
struct Alarm {
    std::chrono::nanoseconds next;
    std::chrono::nanoseconds interval;
    std::function<void()> ring;
};

inline std::list<Alarm> alarms;

} // namespace fakes::clock
