// A value that a test steers while other threads use it.
#pragma once

#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace fakes {

/// Called without an argument it returns a copy of the value; called with one it replaces the value. Thread-safe.
template <typename T>
class Steered {
  public:
    Steered() = default;

    explicit Steered(T initial) : value_(std::move(initial)) {}

    T operator()() const {
        const std::lock_guard lock(mutex_);
        return value_;
    }

    void operator()(T value) {
        const std::lock_guard lock(mutex_);
        value_ = std::move(value);
    }

    void add(auto element) {
        const std::lock_guard lock(mutex_);
        value_.push_back(std::move(element));
    }

  private:
    mutable std::mutex mutex_;
    T value_{};
};

} // namespace fakes
