// Stand-ins for the system's tools, alone on the daemon's PATH: they keep exactly what they were asked and do nothing,
// unless told otherwise. Only harmless real programs (ps, grep, awk and the like) can be reached beside them.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace trial {

struct ToolCall {
    std::string name;
    std::vector<std::string> arguments;

    /// As a shell command line.
    std::string line() const;
    bool operator==(const ToolCall&) const = default;
};

/// As one word of a shell command line: in single quotes where it has to be.
std::string shellQuoted(const std::string& text);

class StandInTools {
  public:
    /// Writes the tools into a new folder in `folder`. Throws std::filesystem::filesystem_error or
    /// std::runtime_error when it cannot.
    explicit StandInTools(const std::filesystem::path& folder);

    /// What PATH has to be.
    std::string searchPath() const { return bin_; }

    /// What a tool does from now on, after it has kept its call: lines for a POSIX shell, in which "$@" are its
    /// arguments. "exit 1", "echo text >&2", "exec sleep 60", "kill -KILL $$", "head -c 10000000 /dev/zero". Names that
    /// are not among the tools become one.
    void script(const std::string& name, const std::string& shellLines) const;

    /// A ping that is over at once: 127.1.X.Y replies in 256 X + Y milliseconds and a half, unless it matches `silent`
    /// (patterns of the shell's `case`, separated by "|"); no other address replies.
    void scriptInstantPing(const std::string& silent = {}) const;

    /// Every call so far, in the order made; of all tools, or of one.
    std::vector<ToolCall> calls() const;
    std::vector<ToolCall> calls(const std::string& name) const;

  private:
    std::filesystem::path bin_;
    std::filesystem::path record_;
};

} // namespace trial
