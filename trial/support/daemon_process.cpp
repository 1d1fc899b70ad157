#include "trial/support/daemon_process.h"

#include "trial/support/process_table.h"
#include "trial/support/temporary_folder.h"
#include "trial/support/wait.h"

#include <algorithm>
#include <csignal>
#include <fcntl.h>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace trial {

namespace fs = std::filesystem;

namespace {

/// Runs in the child: only async-signal-safe calls, since other threads may have held locks at the fork.
[[noreturn]] void become(char* const* arguments, char* const* environment, const char* output,
                         const char* diagnostics) {
    ::setsid();
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    sigset_t none;
    ::sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
    constexpr int flags = O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC;
    ::dup2(::open("/dev/null", O_RDONLY | O_CLOEXEC), STDIN_FILENO);
    ::dup2(::open(output, flags, 0644), STDOUT_FILENO);
    ::dup2(::open(diagnostics, flags, 0644), STDERR_FILENO);
    ::execve(*arguments, arguments, environment);
    ::_exit(127);
}

/// The null-ended array that exec takes, borrowed from `texts`.
std::vector<char*> pointers(std::vector<std::string>& texts) {
    std::vector<char*> pointers(texts.size() + 1);
    std::transform(texts.begin(), texts.end(), pointers.begin(), [](std::string& text) { return text.data(); });
    return pointers;
}

} // namespace

DaemonProcess::DaemonProcess(const fs::path& program, const Environment& environment, const fs::path& folder,
                             const std::string& name, const std::vector<std::string>& arguments)
    : output_(folder / (name + ".out"))
    , diagnostics_(folder / (name + ".err")) {
    std::vector<std::string> words{program};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<std::string> settings;
    for (const auto& [variable, value] : environment) {
        settings.emplace_back(variable).append("=").append(value);
    }
    const std::vector<char*> wordPointers = pointers(words);
    const std::vector<char*> settingPointers = pointers(settings);
    id_ = ::fork();
    if (id_ == 0) {
        become(wordPointers.data(), settingPointers.data(), output_.c_str(), diagnostics_.c_str());
    }
    if (id_ < 0) {
        throw std::system_error(errno, std::generic_category(), "fork");
    }
}

DaemonProcess::~DaemonProcess() {
    signal(SIGKILL);
    waitForEnd();
    for (const Process& left : processTable()) {
        if (left.session == id_) {
            ::kill(left.id, SIGKILL);
        }
    }
}

bool DaemonProcess::isRunning() { return !waitForEnd(std::chrono::milliseconds(0)); }

void DaemonProcess::signal(int number) {
    if (isRunning()) {
        ::kill(id_, number);
    }
}

std::optional<int> DaemonProcess::waitForEnd(std::chrono::milliseconds within) {
    eventually(
        [this] {
            int status = 0;
            if (!status_ && ::waitpid(id_, &status, WNOHANG) == id_) {
                status_ = status;
            }
            return status_.has_value();
        },
        within);
    return status_;
}

std::optional<int> DaemonProcess::terminate(std::chrono::milliseconds within) {
    signal(SIGTERM);
    return waitForEnd(within);
}

std::string DaemonProcess::output() const { return readFile(output_); }

std::string DaemonProcess::diagnostics() const { return readFile(diagnostics_); }

fs::path findProgram(const std::string& name) {
    for (const char* folder : {"/usr/bin", "/bin", "/usr/sbin", "/sbin"}) {
        if (fs::exists(fs::path(folder) / name)) {
            return fs::path(folder) / name;
        }
    }
    throw std::runtime_error("this machine has no " + name);
}

std::string describeEnd(int waitStatus) {
    return WIFSIGNALED(waitStatus) ? "signal " + std::to_string(WTERMSIG(waitStatus))
                                   : "status " + std::to_string(WEXITSTATUS(waitStatus));
}

} // namespace trial
