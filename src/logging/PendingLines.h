// Messages that wait to be written to a log file.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace havrel {

/// Keeps every message that the file can still show and never more than a few megabytes, however many and however long
/// they are: what is let go, later ones would push out of the file anyway. For one thread at a time.
class PendingLines {
  public:
    /// Takes a message; invalid UTF-8 is repaired.
    void add(std::string message);
    /// Hands the messages over, oldest first, and begins anew.
    std::vector<std::string> take();

    std::size_t count() const { return messages_.size(); }

  private:
    void dropWhatTheFileCannotHold();

    std::vector<std::string> messages_;
    std::size_t bytes_ = 0;
};

} // namespace havrel
