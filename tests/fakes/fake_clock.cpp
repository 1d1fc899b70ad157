#include "fakes/fake_clock.h"

#include "platform/clock.h"

#include <algorithm>
#include <condition_variable>
#include <set>

using std::chrono::nanoseconds;

namespace {

std::mutex mutex;
std::condition_variable_any changed;
nanoseconds passed{0};
/// The ends of the sleeps in progress.
std::multiset<nanoseconds> ends;

} // namespace

void fakes::clock::reset() {
    timestamp("2001-01-01 00:00:00");
    sleeps({});
    onSleep({});
    alarms.clear();
    setStepped(false);
    const std::lock_guard lock(mutex);
    passed = nanoseconds(0);
}

void fakes::clock::setStepped(bool stepped) {
    const std::lock_guard lock(mutex);
    blockFrom(stepped ? nanoseconds::zero() : nanoseconds::max());
    ends.clear();
    changed.notify_all();
}

nanoseconds fakes::clock::now() {
    const std::lock_guard lock(mutex);
    return passed;
}

std::size_t fakes::clock::sleepers() {
    const std::lock_guard lock(mutex);
    return ends.size();
}

void fakes::clock::waitForSleepers(std::size_t count) {
    std::unique_lock lock(mutex);
    changed.wait(lock, [count] { return ends.size() >= count; });
}

void fakes::clock::advance() {
    const auto alarm = std::ranges::min_element(alarms, {}, &Alarm::next);
    std::unique_lock lock(mutex);
    const nanoseconds sleepEnd = ends.empty() ? nanoseconds::max() : *ends.begin();
    const bool isAlarm = alarm != alarms.end() && alarm->next <= sleepEnd;
    passed = std::max(passed, isAlarm ? alarm->next : sleepEnd);
    ends.erase(ends.begin(),
               ends.upper_bound(passed)); // here, not by the sleepers, so that `sleepers` is right at once
    changed.notify_all();
    lock.unlock();
    if (isAlarm) {
        alarm->next += alarm->interval;
        const auto ring = alarm->ring; // may remove the alarm
        try {
            ring();
        } catch (const std::exception&) { // NOLINT(bugprone-empty-catch): ends this call only
        }
    }
}

std::string platform::clock::timestamp() { return fakes::clock::timestamp(); }

void platform::clock::sleep(nanoseconds duration, const std::stop_token& stop) {
    fakes::clock::sleeps.add(duration);
    if (const auto hook = fakes::clock::onSleep()) {
        hook(duration);
    }
    std::unique_lock lock(mutex);
    if (duration >= fakes::clock::blockFrom()) {
        const nanoseconds end = passed + duration;
        ends.insert(end);
        changed.notify_all();
        if (!changed.wait(lock, stop, [end] { return !ends.contains(end); })) {
            ends.erase(ends.find(end));
        }
    }
}

void platform::clock::yield() {}
