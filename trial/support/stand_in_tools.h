// Stand-ins for the system's tools. They record their calls and do nothing, unless scripted. They are all of the
// daemon's PATH, with a few harmless real programs (ps, grep, awk and the like).
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace trial {

struct ToolCall {
    std::string name;
    std::vector<std::string> arguments;

    /// As a shell command line, quoted where necessary.
    std::string line() const;
    bool operator==(const ToolCall&) const = default;
};

/// As one word of a shell command line, in single quotes if necessary.
std::string shellQuoted(const std::string& text);

class StandInTools {
  public:
    /// Writes the tools to a new folder in `folder`. Throws std::filesystem::filesystem_error or std::runtime_error.
    explicit StandInTools(const std::filesystem::path& folder);

    /// The value for PATH.
    std::string searchPath() const { return bin_; }

    /// Sets what a tool does after it has recorded its call: lines of a POSIX shell, with its arguments in "$@". A new
    /// name adds a tool.
    void script(const std::string& name, const std::string& shellLines) const;

    /// Scripts a ping that ends at once: 127.1.X.Y replies within 256 X + Y + 0.5 ms, unless it matches `silent` (shell
    /// patterns separated by "|"). Other addresses do not reply.
    void scriptInstantPing(const std::string& silent = {}) const;

    /// The calls so far, in order: of all tools, or of one.
    std::vector<ToolCall> calls() const;
    std::vector<ToolCall> calls(const std::string& name) const;

  private:
    std::filesystem::path bin_;
    std::filesystem::path record_;
};

} // namespace trial
