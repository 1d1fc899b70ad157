#include "trial/support/stand_in_tools.h"

#include "trial/support/daemon_process.h"
#include "trial/support/temporary_folder.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <string_view>

namespace trial {

namespace fs = std::filesystem;

namespace {

constexpr const char* replaced[] = {"sudo", "launchctl", "killall", "lpstat", "systemsetup", "kextload", "rm",
                                    "cp",   "mv",        "chmod",   "chown",  "sh",          "bash",     "open"};
constexpr const char* real[] = {"ps", "grep", "awk", "ping", "cat", "head", "sleep"};

} // namespace

std::string shellQuoted(const std::string& text) {
    constexpr std::string_view plain = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_-+=@%:,./";
    if (!text.empty() && text.find_first_not_of(plain) == std::string::npos) {
        return text;
    }
    std::string quoted = "'";
    for (const char c : text) {
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return quoted + "'";
}

std::string ToolCall::line() const {
    std::string text = name;
    for (const std::string& argument : arguments) {
        text += ' ' + shellQuoted(argument);
    }
    return text;
}

StandInTools::StandInTools(const fs::path& folder) : bin_(folder / "tools"), record_(folder / "tool calls") {
    fs::create_directory(bin_);
    writeFile(record_, "");
    for (const char* name : replaced) {
        script(name, "");
    }
    for (const char* name : real) {
        fs::create_symlink(findProgram(name), bin_ / name);
    }
}

void StandInTools::script(const std::string& name, const std::string& shellLines) const {
    // Replaced by a rename, as the old one may just be starting. One printf is one write, so simultaneous calls do not
    // mix.
    const fs::path fresh = bin_ / ("." + name);
    writeProgram(fresh, "#!/bin/sh\nprintf '%s\\0' $# " + shellQuoted(name) + " \"$@\" >> " +
                            shellQuoted(record_.string()) + "\n" + shellLines + "\n");
    fs::rename(fresh, bin_ / name);
}

void StandInTools::scriptInstantPing(const std::string& silent) const {
    script("ping", "[ \"$1 $2\" = '-n --' ] && [ $# = 3 ] || { echo 'ping: usage' >&2; exit 2; }\n"
                   "case $3 in\n" +
                       (silent.empty() ? "" : silent + ") exit 1 ;;\n") +
                       "127.1.*) rest=${3#127.1.}; time=$((${rest%.*} * 256 + ${rest#*.})) ;;\n"
                       "*) exit 1 ;;\n"
                       "esac\n"
                       "echo \"PING $3 56(84) bytes of data.\"\n"
                       "echo \"rtt min/avg/max/mdev = $time.500/$time.600/$time.700/0.100 ms\"");
}

std::vector<ToolCall> StandInTools::calls() const {
    const std::string record = readFile(record_);
    std::vector<std::string> fields;
    // The last call may not be complete yet.
    for (std::size_t at = 0, end = 0; (end = record.find('\0', at)) != std::string::npos; at = end + 1) {
        fields.push_back(record.substr(at, end - at));
    }
    std::vector<ToolCall> calls;
    for (std::size_t at = 0; at + 1 < fields.size();) {
        const std::size_t count = std::strtoull(fields[at].c_str(), nullptr, 10);
        if (count > fields.size() - at - 2) {
            break;
        }
        const auto first = fields.begin() + static_cast<std::ptrdiff_t>(at) + 2;
        const auto last = first + static_cast<std::ptrdiff_t>(count);
        calls.push_back({fields[at + 1], {first, last}});
        at += 2 + count;
    }
    return calls;
}

std::vector<ToolCall> StandInTools::calls(const std::string& name) const {
    std::vector<ToolCall> all = calls();
    std::erase_if(all, [&](const ToolCall& call) { return call.name != name; });
    return all;
}

} // namespace trial
