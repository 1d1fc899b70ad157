#include "trial/live/observers.h"

#include "foundation/text.h"
#include "trial/support/process_table.h"
#include "trial/support/temporary_folder.h"

namespace trial {

namespace {

/// Where in `content` the part after `seen` begins. The beginning of `seen` may have been cut off there.
std::size_t endOfSeen(const std::string& content, const std::string& seen) {
    if (content.compare(0, seen.size(), seen) == 0) {
        return seen.size();
    }
    const std::string lastLine = seen.substr(seen.rfind('\n') + 1);
    const std::size_t found = content.rfind(lastLine);
    return found == std::string::npos ? 0 : found + lastLine.size();
}

} // namespace

void PingWatch::look() {
    std::map<pid_t, std::string> now;
    for (const Process& process : processTable()) {
        if (process.parent == daemon_ && process.name == "timeout" && !process.isZombie) {
            const auto known = running_.find(process.id);
            now[process.id] = known != running_.end() ? known->second : process.lastArgument();
        }
    }
    for (const auto& [id, address] : running_) {
        if (now.count(id) == 0 && !address.empty()) {
            measured_.insert(address);
        }
    }
    running_ = std::move(now);
}

std::vector<std::string> FileTail::newLines() {
    std::string content = readFile(file_);
    std::vector<std::string> lines = platform::text::split(content.substr(endOfSeen(content, seen_)), "\n");
    std::erase(lines, "");
    seen_ = std::move(content);
    return lines;
}

} // namespace trial
