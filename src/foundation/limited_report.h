// Rate-limited reports, for what an outsider can cause as often as he likes.
#pragma once

#include "foundation/diagnostics.h"

#include <chrono>
#include <cstddef>
#include <mutex>
#include <string>
#include <string_view>

namespace platform {

/// Reports at most `linesPerWindow` lines in ten seconds. The next line after that says how many were dropped.
/// Thread-safe.
class LimitedReport {
  public:
    using Clock = std::chrono::steady_clock;

    explicit LimitedReport(std::size_t linesPerWindow) : limit_(linesPerWindow) {}

    void operator()(std::string_view line, Clock::time_point now = Clock::now()) {
        const std::lock_guard lock(mutex_);
        if (now >= windowEnd_) {
            windowEnd_ = now + std::chrono::seconds{10};
            lines_ = 0;
        }
        if (lines_ == limit_) {
            ++left_;
            return;
        }
        ++lines_;
        const std::string more = left_ > 0 ? " (and " + std::to_string(left_) + " more before)" : "";
        left_ = 0;
        diagnostics::report(std::string(line) + more);
    }

  private:
    const std::size_t limit_;
    std::mutex mutex_;
    Clock::time_point windowEnd_;
    std::size_t lines_ = 0;
    std::size_t left_ = 0;
};

} // namespace platform
