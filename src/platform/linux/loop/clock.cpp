#include "platform/clock.h"

#include <algorithm>
#include <array>
#include <condition_variable>
#include <ctime>
#include <mutex>
#include <thread>

namespace platform::clock {

std::string timestamp() {
    // localtime_r reads the time zone only once, but the administrator may change it while the process runs. tzset is
    // not thread-safe.
    static std::mutex zone;
    const std::lock_guard lock(zone);
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
    // The end of the sleep must not overflow the steady clock.
    constexpr std::chrono::nanoseconds longest = std::chrono::hours(24 * 365 * 100);
    std::mutex mutex;
    std::condition_variable_any over;
    std::unique_lock lock(mutex);
    over.wait_for(lock, stop, std::min(duration, longest), [] { return false; });
}

void yield() { std::this_thread::yield(); }

} // namespace platform::clock
