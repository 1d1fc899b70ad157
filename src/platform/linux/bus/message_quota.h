// A bound on the messages that wait somewhere.
#pragma once

#include <cstddef>
#include <memory>
#include <mutex>

namespace platform {

/// Thread-safe. Outlives its tickets.
class MessageQuota {
  public:
    static constexpr std::size_t maxMessages = 16384;
    static constexpr std::size_t maxBytes = std::size_t{16} << 20;

    /// Counts a message until the last copy of the ticket is destroyed; nullptr when it would exceed a bound.
    using Ticket = std::shared_ptr<void>;

    Ticket take(std::size_t bytes) {
        const std::lock_guard lock(mutex_);
        if (messages_ == maxMessages || bytes_ + bytes > maxBytes) {
            return nullptr;
        }
        ++messages_;
        bytes_ += bytes;
        return Ticket(this, [bytes](MessageQuota* quota) { quota->giveBack(bytes); });
    }

  private:
    void giveBack(std::size_t bytes) {
        const std::lock_guard lock(mutex_);
        --messages_;
        bytes_ -= bytes;
    }

    std::mutex mutex_;
    std::size_t messages_ = 0;
    std::size_t bytes_ = 0;
};

} // namespace platform
