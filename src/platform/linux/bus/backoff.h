// The pauses between attempts at something that may be away for long.
#pragma once

#include <algorithm>
#include <chrono>

namespace platform {

/// Each pause is twice the one before, up to a longest.
class Backoff {
  public:
    using Pause = std::chrono::milliseconds;

    Backoff(Pause first, Pause longest) : first_(first), longest_(longest) {}

    /// The pause to make now.
    Pause next() {
        const Pause pause = next_;
        next_ = std::min(2 * pause, longest_);
        return pause;
    }

    /// The next pause is the first one again.
    void reset() { next_ = first_; }

  private:
    Pause first_;
    Pause longest_;
    Pause next_ = first_;
};

} // namespace platform
