#include "platform/linux/network/fetcher.h"

#include "foundation/diagnostics.h"
#include "foundation/error.h"
#include "foundation/limited_report.h"
#include "platform/linux/files/descriptor.h"
#include "platform/linux/machine/user_database.h"
#include "platform/linux/processes/child_process.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <mutex>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

namespace platform::fetcher {

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

/// How much longer than the request's time-out the program may take, which keeps the time-out by itself.
constexpr auto grace = 1s;

[[noreturn]] void fail(const char* what) { throw Exception(std::string(what) + ": " + std::strerror(errno)); }

/// Readable once all transfers have to end. Without a descriptor for it they end by themselves.
const Descriptor& endEvent() {
    static const Descriptor event(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    return event;
}

/// Whom the program has to run as; empty for this process's own user, who isn't root.
std::vector<std::string> userArguments() {
    if (::geteuid() != 0) {
        return {};
    }
    if (const auto user = user_database::find("havrel-fetch")) {
        return {std::to_string(user->id), std::to_string(user->group)};
    }
    static std::once_flag reported;
    std::call_once(reported,
                   [] { diagnostics::report("web requests", "there is no user havrel-fetch: they run as nobody"); });
    return {"65534", "65534"}; // the kernel's own numbers for nobody and his group
}

enum class End { whole, late, tooLong, over };

/// The program, and this process's end of the socket that is its standard input and output.
class Conversation {
  public:
    explicit Conversation(const std::string& program) {
        std::array<int, 2> ends{};
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) {
            fail("socket");
        }
        socket_.reset(ends[0]);
        const Descriptor childs(ends[1]);
        const Descriptor nowhere(::open("/dev/null", O_WRONLY | O_CLOEXEC));
        if (!nowhere) {
            fail("/dev/null");
        }
        child_.emplace(program, userArguments(), child_process::Streams{childs.get(), childs.get(), nowhere.get()},
                       child_process::Environment{});
    }

    /// Sends the request and collects what the program says until it ends or has to be ended.
    End hold(std::string_view request, std::size_t longest, Clock::time_point deadline) {
        while (true) {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
            if (left <= 0ms) {
                return End::late;
            }
            std::array waiting{
                pollfd{socket_.get(), static_cast<short>(request.empty() ? POLLIN : POLLIN | POLLOUT), 0},
                pollfd{endEvent().get(), POLLIN, 0}};
            ::poll(waiting.data(), waiting.size(), static_cast<int>(std::min(left, 1'000'000ms).count()));
            if (waiting[1].revents != 0) {
                return End::over;
            }
            if ((waiting[0].revents & POLLOUT) != 0) {
                send(request);
            }
            if ((waiting[0].revents & ~POLLOUT) != 0 && !receive()) {
                return End::whole;
            }
            if (said_.size() > longest) {
                return End::tooLong;
            }
        }
    }

    /// What the program has said.
    std::string take() { return std::move(said_); }

    /// Ends the program. Returns its wait status.
    int kill() {
        child_->kill(); // changes nothing when it has ended by itself
        return child_->wait();
    }

  private:
    /// As much of the request as there is room for, and after it the end of the stream.
    void send(std::string_view& request) const {
        const ssize_t count = ::send(socket_.get(), request.data(), request.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (count < 0 && errno != EAGAIN && errno != EINTR) {
            request = {}; // nobody reads it; what has been said still counts
        }
        request.remove_prefix(count > 0 ? static_cast<std::size_t>(count) : 0);
        if (request.empty()) {
            ::shutdown(socket_.get(), SHUT_WR);
        }
    }

    /// False at the end of the stream.
    bool receive() {
        const ssize_t count = ::recv(socket_.get(), buffer_.data(), buffer_.size(), MSG_DONTWAIT);
        if (count < 0) {
            return errno == EAGAIN || errno == EINTR;
        }
        said_.append(buffer_.data(), static_cast<std::size_t>(count));
        return count > 0;
    }

    Descriptor socket_;
    std::optional<child_process::Child> child_;
    child_process::Buffer buffer_{};
    std::string said_;
};

fetch::Outcome converse(const std::string& program, std::string_view message, const fetch::Request& request) {
    static LimitedReport report(1);
    const auto deadline = Clock::now() + request.timeout + grace;
    Conversation conversation(program);
    const End end = conversation.hold(message, request.longestAnswer + fetch::longestOutcomeFrame, deadline);
    const int status = conversation.kill();
    if (end == End::over) {
        return fetch::transportError(-999, "The request was cancelled.");
    }
    if (end == End::late) {
        return fetch::transportError(-1001, "The request timed out.");
    }
    auto outcome = fetch::decodeOutcome(end == End::whole ? conversation.take() : "");
    if (!outcome) {
        report("web request: " + program + " gave no outcome, wait status " + std::to_string(status));
        return fetch::transportError(-1, "The transfer failed.");
    }
    return std::move(*outcome);
}

} // namespace

std::string program() {
    return std::filesystem::read_symlink("/proc/self/exe").replace_filename("HavrelFetch").string();
}

fetch::Outcome perform(const std::string& program, const fetch::Request& request) {
    const auto message = fetch::encode(request);
    return message ? converse(program, *message, request) : fetch::transportError(-1, "The request is too long.");
}

void endAll() { ::eventfd_write(endEvent().get(), 1); }

} // namespace platform::fetcher
