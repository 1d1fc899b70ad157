#include "trial/support/process_table.h"

#include "trial/support/temporary_folder.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <sys/resource.h>
#include <unistd.h>

namespace trial {

namespace fs = std::filesystem;

namespace {

/// "id (name) state parent group session …"; the name may hold blanks and brackets.
bool parse(const std::string& line, Process& process) {
    const std::size_t open = line.find('(');
    const std::size_t close = line.rfind(')');
    if (open == std::string::npos || close == std::string::npos) {
        return false;
    }
    process.name = line.substr(open + 1, close - open - 1);
    char state = 0;
    pid_t group = 0;
    // NOLINTNEXTLINE(cert-err34-c): the kernel's own numbers
    const int read =
        std::sscanf(line.c_str() + close + 1, " %c %d %d %d", &state, &process.parent, &group, &process.session);
    process.isZombie = state == 'Z';
    return read == 4;
}

} // namespace

std::string Process::lastArgument() const {
    std::string line = readFile("/proc/" + std::to_string(id) + "/cmdline");
    if (!line.empty()) {
        line.pop_back();
    }
    const std::size_t end = line.rfind('\0');
    return end == std::string::npos ? line : line.substr(end + 1);
}

std::vector<Process> processTable() {
    std::vector<Process> processes;
    std::error_code error;
    for (fs::directory_iterator entry("/proc", error); !error && entry != fs::directory_iterator();
         entry.increment(error)) {
        const std::string name = entry->path().filename();
        Process process;
        const auto [end, problem] = std::from_chars(name.data(), name.data() + name.size(), process.id);
        if (problem == std::errc() && end == name.data() + name.size() &&
            parse(readFile(entry->path() / "stat"), process)) {
            processes.push_back(process);
        }
    }
    return processes;
}

long peakMemory(pid_t process) {
    const std::string status = readFile("/proc/" + std::to_string(process) + "/status");
    const std::string label = "\nVmHWM:";
    const std::size_t at = status.find(label);
    return at == std::string::npos ? 0 : std::strtol(status.c_str() + at + label.size(), nullptr, 10);
}

long peakMemory() {
    rusage children{};
    ::getrusage(RUSAGE_CHILDREN, &children);
    return std::max(peakMemory(::getpid()), children.ru_maxrss);
}

} // namespace trial
