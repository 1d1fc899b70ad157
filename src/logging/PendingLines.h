// The messages that wait to be written to a log file.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace havrel {

/// Bounded to a few megabytes: once they exceed that, the oldest messages that the later ones would push out of the
/// file anyway are dropped. Not thread-safe.
class PendingLines {
  public:
    /// Invalid UTF-8 is repaired.
    void add(std::string message);
    /// Returns the messages, oldest first, and removes them.
    std::vector<std::string> take();

    std::size_t count() const { return messages_.size(); }

  private:
    void dropWhatTheFileCannotHold();

    std::vector<std::string> messages_;
    std::size_t bytes_ = 0;
};

} // namespace havrel
