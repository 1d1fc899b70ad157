// A value that threads share by copying it in and out.
#pragma once

#include <mutex>
#include <utility>

namespace platform {

/// A value behind a mutex of its own, which is held only while the value is copied, moved or worked on. Thread-safe.
template <typename T>
class Guarded {
  public:
    Guarded() = default;

    Guarded(const Guarded&) = delete;
    Guarded& operator=(const Guarded&) = delete;

    T get() const {
        const std::lock_guard lock(mutex_);
        return value_;
    }

    /// The old value is destroyed after the mutex has been released.
    void set(T value) {
        const std::lock_guard lock(mutex_);
        std::swap(value_, value);
    }

    /// Calls `work` with the value, to read and change it in one step, and returns a copy of what `work` returns.
    /// `work` must neither use this object otherwise nor block.
    template <typename Work>
    auto with(Work&& work) {
        const std::lock_guard lock(mutex_);
        return std::forward<Work>(work)(value_);
    }

  private:
    mutable std::mutex mutex_;
    T value_{};
};

} // namespace platform
