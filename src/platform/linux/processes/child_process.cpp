#include "platform/linux/processes/child_process.h"

#include "foundation/error.h"
#include "foundation/value.h"
#include "platform/linux/machine/user_database.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <grp.h>
#include <linux/close_range.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <system_error>

namespace platform::child_process {

namespace {

[[noreturn]] void raise(const std::string& what, int error) {
    throw Exception(what + ": " + std::generic_category().message(error));
}

/// What exec takes: pointers into the texts, ended by a null.
class ExecVector {
  public:
    explicit ExecVector(const Texts& texts, const std::string* first = nullptr) {
        if (first != nullptr) {
            add(*first);
        }
        for (const std::string& text : texts) {
            add(text);
        }
        pointers_.push_back(nullptr);
    }

    char* const* data() const { return pointers_.data(); }

  private:
    void add(const std::string& text) {
        // Cut short at a zero byte, the line would be another than the one that was meant.
        if (text.find('\0') != std::string::npos) {
            throw Exception("argument with a zero byte");
        }
        pointers_.push_back(const_cast<char*>(text.c_str())); // NOLINT(*-const-cast): exec's signature, not its deed
    }

    std::vector<char*> pointers_;
};

/// What posix_spawn is to do besides: clean signals, a process group, nothing on standard input, the outputs.
class SpawnPlan {
  public:
    explicit SpawnPlan(const Outputs& outputs) {
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
        connect(outputs.standardOutput, STDOUT_FILENO);
        connect(outputs.standardError, STDERR_FILENO);
        check(posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0));
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
            throw std::bad_alloc(); // nothing else can happen to these
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

/// Keeps every signal away from this thread, so that no handler of ours runs in a forked child.
class SignalsBlocked {
  public:
    SignalsBlocked() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before_);
    }

    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

  private:
    sigset_t before_{};
};

int waitFor(pid_t pid) {
    int status = 0;
    pid_t waited = -1;
    do {
        waited = ::waitpid(pid, &status, 0);
    } while (waited < 0 && errno == EINTR);
    return waited == pid ? status : -1;
}

/// The kernel's calls, not the C library's: those ask every thread to follow, and wait for one that the fork has left
/// behind in the parent.
bool become(const Account& account) {
    static_assert(sizeof(long) == 8, "elsewhere these calls take ids of 16 bits");
    constexpr auto unchanged = static_cast<id_t>(-1); // to the calls below it means: stay who you are
    return account.user != unchanged && account.group != unchanged &&
           ::syscall(SYS_setgroups, account.groups.size(), account.groups.data()) == 0 &&
           ::syscall(SYS_setresgid, account.group, account.group, account.group) == 0 &&
           ::syscall(SYS_setresuid, account.user, account.user, account.user) == 0;
}

/// The forked child's road to the other program: system calls only. Returns when one failed.
void replaceProcess(const char* path, char* const* arguments, char* const* environment, const Account* account) {
    for (int signal = 1; signal < NSIG; ++signal) {
        std::signal(signal, SIG_DFL);
    }
    const int nothing = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    if (nothing < 0 || ::dup2(nothing, STDIN_FILENO) < 0 ||
        ::close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC) != 0) {
        return;
    }
    if (account != nullptr && !become(*account)) {
        return;
    }
    sigset_t none;
    sigemptyset(&none);
    pthread_sigmask(SIG_SETMASK, &none, nullptr);
    ::execve(path, arguments, environment);
}

/// Whether the program runs now, as init's child.
bool forkTwice(const std::string& path, const ExecVector& arguments, const ExecVector& environment,
               const Account* account) {
    // Closed by a successful exec; else the child says through it that something went wrong.
    Pipe failure = makePipe();
    pid_t middle = -1;
    {
        const SignalsBlocked blocked;
        middle = ::fork();
        if (middle == 0) {
            // The child in the middle ends at once and leaves its own to init, which waits for it in our place.
            ::setsid();
            const pid_t last = ::_Fork();
            if (last == 0) {
                replaceProcess(path.c_str(), arguments.data(), environment.data(), account);
            }
            if (last <= 0) {
                [[maybe_unused]] const auto told = ::write(failure.writer.get(), "!", 1);
            }
            ::_exit(0);
        }
    }
    failure.writer.reset();
    if (middle < 0) {
        return false;
    }
    waitFor(middle);
    Buffer told; // NOLINT(*-member-init): only what a read has filled counts
    return readSome(failure.reader.get(), told).empty();
}

} // namespace

Pipe makePipe() {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
        raise("pipe", errno);
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

Texts environmentWith(const Texts& assignments) {
    Texts environment = assignments;
    const auto replaced = [&](std::string_view own) {
        const std::string_view name = own.substr(0, own.find('=') + 1);
        return std::any_of(assignments.begin(), assignments.end(),
                           [&](const std::string& assignment) { return assignment.starts_with(name); });
    };
    for (char** own = environ; own != nullptr && *own != nullptr; ++own) {
        if (!replaced(*own)) {
            environment.emplace_back(*own);
        }
    }
    return environment;
}

Child::Child(const std::string& program, const Texts& arguments, const Texts& environment, const Outputs& outputs) {
    const ExecVector argumentVector(arguments, &program);
    const ExecVector environmentVector(environment);
    const SpawnPlan plan(outputs);
    const int error = ::posix_spawnp(&pid_, program.c_str(), plan.actions(), plan.attributes(), argumentVector.data(),
                                     environmentVector.data());
    if (error != 0) {
        pid_ = -1;
        raise(program, error);
    }
}

Child::~Child() {
    if (pid_ > 0) {
        signal(SIGKILL);
        wait();
    }
}

void Child::signal(int number) const { ::kill(-pid_, number); }

int Child::wait() { return waitFor(std::exchange(pid_, -1)); }

std::optional<Account> accountOf(const std::string& name) {
    const auto found = user_database::find(name);
    if (!found) {
        return std::nullopt;
    }
    int count = 64;
    std::vector<gid_t> groups(static_cast<std::size_t>(count));
    const auto fill = [&] { return ::getgrouplist(found->name.c_str(), found->group, groups.data(), &count); };
    if (fill() < 0) {
        groups.resize(static_cast<std::size_t>(count)); // now the count that is needed
        fill();
    }
    groups.resize(std::min(groups.size(), static_cast<std::size_t>(count)));
    return Account{found->id, found->group, std::move(groups),
                   Texts{"HOME=" + found->home, "USER=" + found->name, "LOGNAME=" + found->name,
                         "XDG_RUNTIME_DIR=/run/user/" + std::to_string(found->id)}};
}

bool startDetached(const std::string& path, const Texts& arguments, const std::optional<Account>& account) {
    try {
        const Texts environment = environmentWith(account ? account->environment : Texts{});
        return forkTwice(path, ExecVector(arguments, &path), ExecVector(environment), account ? &*account : nullptr);
    } catch (const Exception&) {
        return false;
    }
}

} // namespace platform::child_process
