#include "fetch/sandbox.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <grp.h>
#include <linux/sockios.h>
#include <memory>
#include <poll.h>
#include <sched.h>
#include <seccomp.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <system_error>
#include <unistd.h>

namespace platform::sandbox {

namespace {

/// The kernel's name for nobody in particular, whose processes may be anybody's.
constexpr uid_t nobody = 65534;

void require(bool isDone, const char* what, int error = errno) {
    if (!isDone) {
        throw std::system_error(error, std::generic_category(), what);
    }
}

void become(const User& user) {
    require(user.id != 0 && user.group != 0, "user", EPERM);
    require(::setgroups(0, nullptr) == 0, "setgroups");
    require(::setresgid(user.group, user.group, user.group) == 0, "setresgid");
    require(::setresuid(user.id, user.id, user.id) == 0, "setresuid");
    require(::setuid(0) != 0 && ::getuid() == user.id && ::geteuid() == user.id, "setuid", EPERM);
    require(::setgid(0) != 0 && ::getgid() == user.group && ::getegid() == user.group, "setgid", EPERM);
}

/// After the change of user, which would undo it.
void dieWithParent() {
    require(::prctl(PR_SET_PDEATHSIG, SIGKILL) == 0, "parent's death");
    pollfd output{STDOUT_FILENO, 0, 0};
    require(::poll(&output, 1, 0) >= 0 && output.revents == 0, "standard output", EPIPE); // it is gone already
}

void limit(__rlimit_resource resource, rlim_t most) {
    rlimit limits{};
    require(::getrlimit(resource, &limits) == 0, "getrlimit");
    limits.rlim_max = std::min(limits.rlim_max, most);
    limits.rlim_cur = limits.rlim_max;
    require(::setrlimit(resource, &limits) == 0, "setrlimit");
}

void limitResources(const std::optional<User>& user) {
    limit(RLIMIT_CORE, 0);
    limit(RLIMIT_FSIZE, 0);
    limit(RLIMIT_NOFILE, 64);
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) // whose shadow memory is larger
    limit(RLIMIT_AS, rlim_t{256} << 20);
#endif
    // It counts all that the user runs, so it makes sense only for one who runs nothing else.
    if (user && user->id != nobody) {
        limit(RLIMIT_NPROC, 64);
    }
}

/// What no transfer does, but somebody who has taken it over might.
constexpr int forbiddenCalls[] = {
    // programs
    SCMP_SYS(execve), SCMP_SYS(execveat),
    // processes, this user's others included
    SCMP_SYS(fork), SCMP_SYS(vfork), SCMP_SYS(ptrace), SCMP_SYS(process_vm_readv), SCMP_SYS(process_vm_writev),
    SCMP_SYS(pidfd_open), SCMP_SYS(pidfd_getfd), SCMP_SYS(pidfd_send_signal), SCMP_SYS(kill), SCMP_SYS(tkill),
    SCMP_SYS(rt_sigqueueinfo), SCMP_SYS(rt_tgsigqueueinfo), SCMP_SYS(setpgid), SCMP_SYS(setsid),
    // files
    SCMP_SYS(creat), SCMP_SYS(truncate), SCMP_SYS(mkdir), SCMP_SYS(mkdirat), SCMP_SYS(rmdir), SCMP_SYS(mknod),
    SCMP_SYS(mknodat), SCMP_SYS(link), SCMP_SYS(linkat), SCMP_SYS(symlink), SCMP_SYS(symlinkat), SCMP_SYS(unlink),
    SCMP_SYS(unlinkat), SCMP_SYS(rename), SCMP_SYS(renameat), SCMP_SYS(renameat2), SCMP_SYS(chmod), SCMP_SYS(fchmod),
    SCMP_SYS(fchmodat), SCMP_SYS(chown), SCMP_SYS(lchown), SCMP_SYS(fchown), SCMP_SYS(fchownat), SCMP_SYS(setxattr),
    SCMP_SYS(lsetxattr), SCMP_SYS(fsetxattr), SCMP_SYS(removexattr), SCMP_SYS(lremovexattr), SCMP_SYS(fremovexattr),
    SCMP_SYS(utime), SCMP_SYS(utimes), SCMP_SYS(futimesat), SCMP_SYS(utimensat), SCMP_SYS(open_by_handle_at),
    SCMP_SYS(openat2),
    // memory that no bound counts and that stays
    SCMP_SYS(shmget), SCMP_SYS(msgget), SCMP_SYS(semget), SCMP_SYS(mq_open),
    // the kernel's wide doors
    SCMP_SYS(io_uring_setup), SCMP_SYS(bpf), SCMP_SYS(userfaultfd), SCMP_SYS(perf_event_open), SCMP_SYS(unshare),
    SCMP_SYS(setns), SCMP_SYS(mount), SCMP_SYS(fsopen), SCMP_SYS(open_tree), SCMP_SYS(add_key), SCMP_SYS(request_key),
    SCMP_SYS(keyctl)};

class Filter {
  public:
    Filter() { require(rules_ != nullptr, "filter", ENOMEM); }

    /// Kills a process that makes the call with such arguments.
    template <typename... Conditions>
    void forbid(int call, Conditions... conditions) {
        add(SCMP_ACT_KILL_PROCESS, call, conditions...);
    }

    /// The call fails as if the kernel were older than it.
    void hide(int call) { add(SCMP_ACT_ERRNO(ENOSYS), call); }

    void load() { check(seccomp_load(rules_.get())); }

  private:
    template <typename... Conditions>
    void add(std::uint32_t action, int call, Conditions... conditions) {
        check(seccomp_rule_add(rules_.get(), action, call, sizeof...(conditions), conditions...));
    }

    static void check(int result) { require(result == 0, "filter", -result); }

    std::unique_ptr<void, decltype(&seccomp_release)> rules_{seccomp_init(SCMP_ACT_ALLOW), &seccomp_release};
};

/// The bits of an argument have this value.
scmp_arg_cmp has(unsigned argument, scmp_datum_t bits, scmp_datum_t value) {
    return {argument, SCMP_CMP_MASKED_EQ, bits, value};
}

/// Of an argument that is an int the kernel looks at the lower half only.
constexpr scmp_datum_t anyInt = 0xffff'ffff;

void filterSystemCalls() {
    Filter filter;
    for (const int call : forbiddenCalls) {
        filter.forbid(call);
    }
    for (const int flag : {O_WRONLY, O_RDWR, O_CREAT, O_TRUNC}) {
        const auto bit = static_cast<scmp_datum_t>(flag);
        filter.forbid(SCMP_SYS(open), has(1, bit, bit));
        filter.forbid(SCMP_SYS(openat), has(2, bit, bit));
    }
    // Threads are fine: names are looked up on one. clone3 keeps its flags where no filter can read them; without it
    // the C library calls clone.
    filter.forbid(SCMP_SYS(clone), has(0, CLONE_THREAD, 0));
    filter.hide(SCMP_SYS(clone3));
    filter.forbid(SCMP_SYS(prctl), has(0, anyInt, PR_SET_PDEATHSIG));
    filter.forbid(SCMP_SYS(prlimit64), scmp_arg_cmp{0, SCMP_CMP_NE, 0, 0});
    // Whose process gets a signal when a descriptor is ready.
    filter.forbid(SCMP_SYS(fcntl), has(1, anyInt, F_SETOWN));
    filter.forbid(SCMP_SYS(fcntl), has(1, anyInt, F_SETOWN_EX));
    filter.forbid(SCMP_SYS(ioctl), has(1, anyInt, FIOSETOWN));
    filter.forbid(SCMP_SYS(ioctl), has(1, anyInt, SIOCSPGRP));
    // A terminal's input may be a shell's of root.
    filter.forbid(SCMP_SYS(ioctl), has(1, anyInt, TIOCSTI));
    filter.forbid(SCMP_SYS(ioctl), has(1, anyInt, TIOCLINUX));
    filter.forbid(SCMP_SYS(tgkill), scmp_arg_cmp{0, SCMP_CMP_NE, static_cast<scmp_datum_t>(::getpid()), 0});
    filter.load();
}

} // namespace

void enter(const std::optional<User>& user) {
    if (user) {
        become(*user);
    }
    require(::geteuid() != 0, "user", EPERM);
    require(::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0, "no new privileges");
    require(::prctl(PR_SET_DUMPABLE, 0) == 0, "dumpable");
    dieWithParent();
    require(::chdir("/") == 0, "chdir");
    limitResources(user);
    filterSystemCalls();
}

} // namespace platform::sandbox
