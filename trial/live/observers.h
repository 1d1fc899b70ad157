// A daemon seen from outside: the pings that it runs and the lines that its files gain.
#pragma once

#include <cstddef>
#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <sys/types.h>
#include <vector>

namespace trial {

/// Which addresses a daemon has measured: those whose ping was seen running and has ended.
class PingWatch {
  public:
    explicit PingWatch(pid_t daemon) : daemon_(daemon) {}

    /// Looks at the daemon's children. To be called several times while a ping lasts.
    void look();

    /// Forgets what was measured so far.
    void beginPass() { measured_.clear(); }

    std::size_t measured() const { return measured_.size(); }

  private:
    pid_t daemon_;
    std::map<pid_t, std::string> running_;
    std::set<std::string> measured_;
};

/// The lines that a file gains, even if it is replaced and its beginning cut off.
class FileTail {
  public:
    explicit FileTail(std::filesystem::path file) : file_(std::move(file)) {}

    /// The non-empty lines since the last call.
    std::vector<std::string> newLines();

  private:
    std::filesystem::path file_;
    std::string seen_;
};

} // namespace trial
