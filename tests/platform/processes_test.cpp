#include "platform/processes.h"

#include "foundation/error.h"
#include "platform/linux/files/descriptor.h"
#include "platform/linux/processes/ping_program.h"
#include "support/root_test.h"

#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>

namespace {

using namespace platform;
using namespace std::chrono_literals;
using platform::processes::Capture;
using namespace testing;

class Processes : public support::RootTest {
  protected:
    Processes() { mkfifo(fifo.c_str(), 0666); }

    /// Whatever a test did, nothing of it is left.
    ~Processes() override {
        EXPECT_EQ(support::openDescriptors(), descriptors);
        EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), children) << "a child is left";
        setenv("PATH", path.c_str(), 1);
    }

    /// What programs that are not waited for write to standard error, until the last of them has ended.
    template <typename Work>
    std::string standardErrorDuring(Work work) const {
        int ends[2];
        EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
        const int usual = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3);
        dup2(ends[1], STDERR_FILENO);
        close(ends[1]);
        work();
        dup2(usual, STDERR_FILENO);
        close(usual);
        std::string written = trial::readFile("/dev/fd/" + std::to_string(ends[0]));
        close(ends[0]);
        return written;
    }

    void writeScript(const std::string& file, const std::string& lines) const {
        root.write(file, "");
        trial::writeProgram(root.at(file), "#!/bin/sh\n" + lines);
    }

    /// From now on "ping" is a script with these lines.
    void replacePing(const std::string& lines) const {
        writeScript("/bin/ping", lines);
        setenv("PATH", (root.at("/bin").string() + ":" + path).c_str(), 1);
    }

    const std::string fifo = root.at("/fifo");
    const std::string path = std::getenv("PATH");
    const std::ptrdiff_t descriptors = support::openDescriptors();
    /// Another test's server may run beside, then it is 0.
    const pid_t children = waitpid(-1, nullptr, WNOHANG);
};

TEST_F(Processes, SystemReturnsTheRawWaitStatus) {
    EXPECT_EQ(processes::system("exit 3"), 3 << 8);
    EXPECT_EQ(processes::system("kill -9 $$"), SIGKILL);
    EXPECT_EQ(processes::system(std::string("true\0false", 10)), -1);
}

TEST_F(Processes, TasksAreReadToTheEndOfBothOutputs) {
    const std::string line = "head -c 10000000 /dev/zero & head -c 30000000 /dev/zero >&2; wait";
    const auto written = processes::runTask("/bin/sh", {"-c", line}, Capture::both);
    EXPECT_EQ(written.standardOutput.size(), 10'000'000U);
    EXPECT_EQ(written.standardError.size(), 16U << 20U) << "more is not kept";
    EXPECT_THROW(processes::runTask("/nowhere/at/all", {}, Capture::both), Exception);
}

TEST_F(Processes, TasksListProgramsNotTheNamesThatProcessesTake) {
    setenv("PS_FORMAT", "pid,args", 1);
    const auto listed = processes::runTask("/bin/bash",
                                           {"-c", "(exec -a /impostor sleep 60) & "
                                                  "until grep -q /impostor /proc/$!/cmdline; do :; done; "
                                                  "ps -A | grep \"^ *$! \"; kill -9 $!"},
                                           Capture::standardOutput);
    unsetenv("PS_FORMAT");
    EXPECT_THAT(listed.standardOutput, EndsWith("/sleep\n"));
}

TEST_F(Processes, ChildrenInheritNeitherSignalsNorDescriptors) {
    const Descriptor leak(fcntl(STDERR_FILENO, F_DUPFD, 100));
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    sigprocmask(SIG_BLOCK, &all, &before);
    std::signal(SIGPIPE, SIG_IGN);
    const std::string facts = "sed -n 's/^Sig[BI][lg][kn]:.*\\(.......\\)$/\\1/p' /proc/self/status;"
                              "readlink /proc/self/fd/0; test -e /proc/self/fd/100 && echo leak";
    const auto written = processes::runTask("/bin/sh", {"-c", facts}, Capture::standardOutput);
    EXPECT_EQ(written.standardOutput, "0000000\n0000000\n/dev/null\n");
    std::signal(SIGPIPE, SIG_DFL);
    sigprocmask(SIG_SETMASK, &before, nullptr);
}

TEST_F(Processes, LaunchedProgramsRunOnAsInitsChildren) {
    writeScript("/program", "echo $1 $(cat " + fifo + ") >&2\n");
    const std::string written = standardErrorDuring([&] {
        processes::launch("/program", {"a b"});
        trial::writeFile(fifo, "after the launch"); // blocks until the program reads
    });
    EXPECT_EQ(written, "a b after the launch\n");
}

TEST_F(Processes, ApplicationsRunAsTheUserAtTheConsoleOrNotAtAll) {
    std::filesystem::permissions(root.path(), std::filesystem::perms::all);
    root.write("/etc/passwd", "nobody:x:65534:65534::/:/bin/sh\n");
    root.write("/run/systemd/seats/seat0", "ACTIVE=1\n");
    root.write("/run/systemd/sessions/1", "UID=65534\nCLASS=user\nTYPE=x11\n");
    root.write("/A.app/Contents/Info.plist",
               "<plist><dict><key>CFBundleExecutable</key><string>Program</string></dict></plist>");
    writeScript("/A.app/Contents/MacOS/Program", "echo $(id -u) $(id -g) $(id -G) $HOME $USER $LOGNAME "
                                                 "$XDG_RUNTIME_DIR >&2\ngrep CapEff /proc/self/status >&2\n");
    const Matcher<std::string> asNobody = "65534 65534 65534 /nonexistent nobody nobody /run/user/65534\n"
                                          "CapEff:\t0000000000000000\n";
    const Matcher<std::string> notAtAll = StartsWith("setpriv: "); // only root can become somebody else
    EXPECT_THAT(standardErrorDuring([] { processes::launchApplication("/A.app"); }),
                geteuid() == 0 ? asNobody : notAtAll);
}

TEST_F(Processes, PingHasADeadlineAndItsSummaryIsTranslated) {
    const std::string summary = "echo 'rtt min/avg/max/mdev = 1.5/2/3/0 ms'\n";
    const std::string translated = "rtt min/avg/max/stddev = 1.5/2/3/0 ms\n";

    const struct {
        const char* name;
        std::string script, end;
    } rows[] = {
        {"an address like an option", "echo $# $1 $2 $3", "3 -n -- -f\n"},
        {"a flood without an end", "exec yes", "y\n"},
        {"interrupted", "trap \"" + summary + "exit\" INT; while :; do sleep 100; done", translated},
        {"killed", "trap '' INT; echo killed; sleep 100", "killed\n"},
    };

    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        replacePing(row.script);
        const auto start = std::chrono::steady_clock::now();
        EXPECT_THAT(runPing("-f", {.interrupt = "1.5", .kill = "1.5"}), EndsWith(row.end));
        EXPECT_LT(std::chrono::steady_clock::now() - start, 20s);
    }
}

TEST_F(Processes, PingOfTheSystemHasASummaryWhenAReplyCame) {
    EXPECT_THAT(runPing("127.0.0.1", {.interrupt = "1.2", .kill = "2"}), HasSubstr("min/avg/max/stddev = 0."));
    EXPECT_EQ(runPing("not a host", {.interrupt = "5", .kill = "2"}), "");
}

TEST_F(Processes, PingMeasuresALinkThatComesUpWhileItRuns) {
    // The real ping, in a network namespace whose router calls the address unreachable for a second and a half.
    replacePing(R"sh([ -n "${APART:-}" ] || APART=1 exec unshare --map-root-user --net -- "$0" "$@"
unshare --net sleep 20 >/dev/null 2>&1 &
router=$!
at_router() { nsenter --net=/proc/$router/ns/net -- "$@"; }
until [ "$(readlink /proc/$router/ns/net)" != "$(readlink /proc/self/ns/net)" ]; do :; done
ip link add near type veth peer name far netns $router
ip address add 10.0.0.1/24 dev near
ip link set near up
ip route add default via 10.0.0.2
at_router ip address add 10.0.0.2/24 dev far
at_router ip link set far up
at_router sh -c 'echo 1 >/proc/sys/net/ipv4/ip_forward'
at_router ip route add unreachable 10.9.9.9
{
    sleep 1.5
    at_router ip route delete unreachable 10.9.9.9
    at_router ip address add 10.9.9.9/32 dev far
} >/dev/null 2>&1 &
exec /usr/bin/ping "$@")sh");
    const std::string output = processes::ping("10.9.9.9");
    EXPECT_THAT(output, HasSubstr("Unreachable"));
    EXPECT_THAT(output, HasSubstr("min/avg/max/stddev = 0."));
}

} // namespace
