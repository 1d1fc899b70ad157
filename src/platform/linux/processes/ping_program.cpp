#include "platform/linux/processes/ping_program.h"

#include "foundation/error.h"
#include "foundation/text.h"
#include "platform/linux/processes/child_process.h"
#include "platform/processes.h"

#include <algorithm>
#include <condition_variable>
#include <csignal>
#include <mutex>
#include <optional>
#include <set>

namespace platform {

namespace {

using namespace std::chrono_literals;

/// What is kept of the output: its end, because the summary comes last, however much a hostile host replies.
constexpr std::size_t outputLimit = std::size_t{64} << 10;

/// The process groups of the pings under way.
struct UnderWay {
    std::mutex mutex;
    std::condition_variable oneLess;
    std::set<pid_t> groups;
    bool isOver = false;
};

UnderWay underWay;

/// A ping that runs, killed at the latest with this object.
class Ping {
  public:
    Ping(const std::string& address, const PingPatience& patience, int output) {
        const std::lock_guard lock(underWay.mutex);
        if (underWay.isOver) {
            throw Exception("ping: this process is about to end");
        }
        // Given a deadline, ping would end at the first ICMP error, which may come while a link is still coming up. So
        // timeout ends it, also when this process is gone by then; interrupted, ping still writes its summary.
        child_.emplace("/usr/bin/timeout",
                       std::vector<std::string>{"--signal=INT", "--kill-after=" + patience.kill, patience.interrupt,
                                                "ping", "-n", "--", address},
                       child_process::Streams{.standardOutput = output});
        underWay.groups.insert(child_->pid());
    }

    ~Ping() {
        // Only then may the child be reaped, after which its number may become another program's.
        const std::lock_guard lock(underWay.mutex);
        underWay.groups.erase(child_->pid());
        underWay.oneLess.notify_all();
    }

    Ping(const Ping&) = delete;
    Ping& operator=(const Ping&) = delete;

  private:
    std::optional<child_process::Child> child_;
};

std::string readEnd(const Descriptor& source) {
    child_process::Buffer buffer; // NOLINT(*-member-init): only what a read has filled is looked at
    std::string text;
    const auto cut = [&] { text.erase(0, text.size() - std::min(text.size(), outputLimit)); };
    for (;;) {
        const std::string_view some = child_process::readSome(source.get(), buffer);
        if (some.empty()) {
            cut();
            return text;
        }
        text += some;
        if (text.size() > 2 * outputLimit) {
            cut();
        }
    }
}

} // namespace

std::string runPing(const std::string& address, const PingPatience& patience) {
    if (address.empty()) {
        throw Exception("ping: no address");
    }
    child_process::Pipe pipe = child_process::makePipe();
    const Ping ping(address, patience, pipe.writer.get());
    pipe.writer.reset();
    return text::replaceAll(readEnd(pipe.reader), "min/avg/max/mdev", "min/avg/max/stddev");
}

std::string processes::ping(const std::string& address) { return runPing(address, {.interrupt = "6", .kill = "2"}); }

void processes::endPings() {
    std::unique_lock lock(underWay.mutex);
    underWay.isOver = true;
    for (const pid_t group : underWay.groups) {
        ::kill(-group, SIGKILL);
    }
    // Killed is not gone: the service manager reports each that this process leaves behind.
    underWay.oneLess.wait_for(lock, 500ms, [] { return underWay.groups.empty(); });
}

} // namespace platform
