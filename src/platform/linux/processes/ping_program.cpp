#include "platform/linux/processes/ping_program.h"

#include "foundation/error.h"
#include "foundation/text.h"
#include "foundation/value.h"
#include "platform/linux/processes/child_process.h"

#include <algorithm>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <sys/syscall.h>

namespace platform {

namespace {

using Clock = std::chrono::steady_clock;

/// What of the output is kept, the end of it: there stands the summary, whatever a flood of replies came before.
constexpr std::size_t outputLimit = std::size_t{64} << 10;

/// What ping writes, while it runs.
class PingOutput {
  public:
    PingOutput(Descriptor source, Descriptor process) : source_(std::move(source)), process_(std::move(process)) {}

    /// Reads until the program has ended (true) or the time has come (false).
    bool readUntil(Clock::time_point deadline) {
        for (;;) {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
            std::array<pollfd, 2> waiting{pollfd{source_.get(), POLLIN, 0}, pollfd{process_.get(), POLLIN, 0}};
            if (left <= 0 || ::poll(waiting.data(), waiting.size(), static_cast<int>(left)) == 0) {
                return false;
            }
            if (waiting[0].revents != 0 && !readOnce()) {
                source_.reset();
            }
            if (waiting[1].revents != 0) {
                return true;
            }
        }
    }

    /// What is left in the pipe; whoever else may hold its other end is not waited for.
    std::string takeRest() {
        if (source_) {
            ::fcntl(source_.get(), F_SETFL, O_NONBLOCK);
            std::size_t reads = 0;
            while (readOnce() && ++reads < outputLimit / buffer_.size()) {
            }
        }
        keepEnd();
        return std::move(text_);
    }

  private:
    bool readOnce() {
        const std::string_view some = child_process::readSome(source_.get(), buffer_);
        text_ += some;
        if (text_.size() > 2 * outputLimit) {
            keepEnd();
        }
        return !some.empty();
    }

    void keepEnd() { text_.erase(0, text_.size() - std::min(text_.size(), outputLimit)); }

    Descriptor source_;
    Descriptor process_;
    std::string text_;
    child_process::Buffer buffer_; // NOLINT(*-member-init)
};

} // namespace

std::string runPing(const std::string& address, const PingPatience& patience) {
    if (address.empty()) {
        throw Exception("ping: no address");
    }
    // Every proxy that cannot be looked up would be a line in the daemon's journal.
    const Descriptor nothing(::open("/dev/null", O_WRONLY | O_CLOEXEC));
    child_process::Pipe pipe = child_process::makePipe();
    child_process::Child program("ping", {"-n", "-w", "6", "--", address}, child_process::environmentWith({"LC_ALL=C"}),
                                 {pipe.writer.get(), nothing.get()});
    pipe.writer.reset();
    // The C library's own pidfd_open is declared without C linkage on the oldest system we support.
    Descriptor process(static_cast<int>(::syscall(SYS_pidfd_open, program.pid(), 0)));
    if (!process) {
        throw Exception("ping: cannot be watched");
    }
    PingOutput output(std::move(pipe.reader), std::move(process));
    const auto interruptTime = Clock::now() + patience.interrupt;
    if (!output.readUntil(interruptTime)) {
        program.signal(SIGINT); // it still writes its summary
        if (!output.readUntil(interruptTime + patience.kill)) {
            program.signal(SIGKILL);
        }
    }
    program.wait();
    return text::replaceAll(output.takeRest(), "min/avg/max/mdev", "min/avg/max/stddev");
}

} // namespace platform
