// A value that a test steers while other threads use it.
#pragma once

#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace fakes {

/// Called without an argument it gives the value, with one it takes a new one.
template <typename T>
class Steered {
  public:
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
