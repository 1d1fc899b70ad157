// What can be seen of a daemon from outside: the pings that it runs and the lines that its files gain.
#pragma once

#include <cstddef>
#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <sys/types.h>
#include <vector>

namespace trial {

/// Which addresses a daemon has measured: those whose ping was seen to run and has ended.
class PingWatch {
  public:
    explicit PingWatch(pid_t daemon) : daemon_(daemon) {}

    /// Looks at the daemon's children; to be called much more often than a ping lasts.
    void look();

    /// What was measured before no longer counts.
    void beginPass() { measured_.clear(); }

    std::size_t measured() const { return measured_.size(); }

  private:
    pid_t daemon_;
    std::map<pid_t, std::string> running_;
    std::set<std::string> measured_;
};

/// The lines that a file gains, also when it is replaced and its beginning cut.
class FileTail {
  public:
    explicit FileTail(std::filesystem::path file) : file_(std::move(file)) {}

    /// The lines since the last call that are not empty.
    std::vector<std::string> newLines();

  private:
    std::filesystem::path file_;
    std::string seen_;
};

} // namespace trial
