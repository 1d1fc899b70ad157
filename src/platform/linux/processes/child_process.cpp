#include "platform/linux/processes/child_process.h"

#include "foundation/error.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <system_error>
#include <utility>

namespace platform::child_process {

namespace {

[[noreturn]] void fail(const std::string& what, int error) {
    throw Exception(what + ": " + std::generic_category().message(error));
}

/// What exec takes: pointers into the words, ended by a null.
std::vector<char*> execVector(const std::vector<std::string>& words) {
    std::vector<char*> pointers;
    for (const std::string& word : words) {
        // exec would cut it short there and run another command than the one that was meant.
        if (word.find('\0') != std::string::npos) {
            throw Exception("argument with a zero byte");
        }
        pointers.push_back(const_cast<char*>(word.c_str())); // NOLINT(*-const-cast): exec doesn't write to it
    }
    pointers.push_back(nullptr);
    return pointers;
}

/// What posix_spawn sets up in the child before the program runs.
class SpawnPlan {
  public:
    explicit SpawnPlan(const Streams& streams) {
        sigset_t none;
        sigset_t all;
        sigemptyset(&none);
        sigfillset(&all);
        check(posix_spawnattr_init(&attributes_));
        check(posix_spawn_file_actions_init(&actions_));
        check(posix_spawnattr_setflags(&attributes_,
                                       POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP));
        check(posix_spawnattr_setsigmask(&attributes_, &none));
        check(posix_spawnattr_setsigdefault(&attributes_, &all));
        connect(streams.standardOutput, STDOUT_FILENO);
        connect(streams.standardError, STDERR_FILENO);
        if (streams.standardInput >= 0) {
            connect(streams.standardInput, STDIN_FILENO);
        } else {
            check(posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0));
        }
        check(posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1));
    }

    ~SpawnPlan() {
        posix_spawn_file_actions_destroy(&actions_);
        posix_spawnattr_destroy(&attributes_);
    }

    SpawnPlan(const SpawnPlan&) = delete;
    SpawnPlan& operator=(const SpawnPlan&) = delete;

    const posix_spawnattr_t* attributes() const { return &attributes_; }

    const posix_spawn_file_actions_t* actions() const { return &actions_; }

  private:
    static void check(int error) {
        if (error != 0) {
            throw std::bad_alloc(); // with these arguments the calls fail for no other reason
        }
    }

    void connect(int source, int target) {
        if (source >= 0) {
            check(posix_spawn_file_actions_adddup2(&actions_, source, target));
        }
    }

    posix_spawnattr_t attributes_{};
    posix_spawn_file_actions_t actions_{};
};

} // namespace

Environment environmentWith(const std::string& assignment) {
    const std::string_view name = std::string_view(assignment).substr(0, assignment.find('=') + 1);
    Environment environment;
    for (char** own = environ; own != nullptr && *own != nullptr; ++own) {
        const std::string_view variable = *own;
        if (!variable.starts_with("NOTIFY_SOCKET=") && (name.empty() || !variable.starts_with(name))) {
            environment.emplace_back(variable);
        }
    }
    if (!name.empty()) {
        environment.push_back(assignment);
    }
    return environment;
}

Pipe makePipe() {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
        fail("pipe", errno);
    }
    return {Descriptor(ends[0]), Descriptor(ends[1])};
}

std::string_view readSome(int descriptor, Buffer& buffer) {
    ssize_t got = -1;
    do {
        got = ::read(descriptor, buffer.data(), buffer.size());
    } while (got < 0 && errno == EINTR);
    return {buffer.data(), static_cast<std::size_t>(std::max<ssize_t>(got, 0))};
}

Child::Child(const std::string& program, const std::vector<std::string>& arguments, const Streams& streams,
             const Environment& environment) {
    std::vector<std::string> words{program};
    words.insert(words.end(), arguments.begin(), arguments.end());
    const auto line = execVector(words);
    const auto assignments = execVector(environment);
    const SpawnPlan plan(streams);
    const int error =
        ::posix_spawnp(&pid_, program.c_str(), plan.actions(), plan.attributes(), line.data(), assignments.data());
    if (error != 0) {
        pid_ = -1;
        fail(program, error);
    }
}

Child::~Child() {
    if (pid_ > 0) {
        kill();
        wait();
    }
}

void Child::kill() const {
    ::kill(-pid_, SIGKILL);
    ::kill(pid_, SIGKILL); // it may have left its group
}

int Child::wait() {
    const pid_t pid = std::exchange(pid_, -1);
    int status = 0;
    pid_t waited = -1;
    do {
        waited = ::waitpid(pid, &status, 0);
    } while (waited < 0 && errno == EINTR);
    return waited == pid ? status : -1;
}

} // namespace platform::child_process
