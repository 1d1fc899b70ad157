#include "platform/clock.h"

#include <algorithm>
#include <array>
#include <condition_variable>
#include <ctime>
#include <mutex>
#include <thread>

namespace platform::clock {

std::string timestamp() {
    // localtime_r reads the zone only once, but it may change while the process runs. Each tzset swaps the
    // library's record of it, so one thread at a time.
    static std::mutex zone;
    const std::scoped_lock lock(zone);
    ::tzset();
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    std::array<char, 64> text{};
    if (::localtime_r(&now, &local) == nullptr) {
        return {};
    }
    return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &local)};
}

void sleep(std::chrono::nanoseconds duration, const std::stop_token& stop) {
    // Beyond this the end of the sleep is no longer a moment that the steady clock can name.
    constexpr std::chrono::nanoseconds longest = std::chrono::hours(24 * 365 * 100);
    std::mutex mutex;
    std::condition_variable_any over;
    std::unique_lock lock(mutex);
    over.wait_for(lock, stop, std::min(duration, longest), [] { return false; });
}

void yield() { std::this_thread::yield(); }

} // namespace platform::clock
