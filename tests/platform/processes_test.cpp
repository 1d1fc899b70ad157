#include "platform/processes.h"

#include "foundation/error.h"
#include "foundation/value.h"
#include "platform/linux/processes/child_process.h"
#include "platform/linux/processes/ping_program.h"
#include "support/root_test.h"
#include "trial/support/temporary_folder.h"

#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <tuple>

namespace {

using namespace platform;
using namespace std::chrono_literals;
using platform::processes::Capture;
using namespace testing;

class Processes : public Test {
  protected:
    Processes() { mkfifo(fifo.c_str(), 0666); }

    /// Whatever a test did, nothing of it is left.
    ~Processes() override {
        EXPECT_EQ(support::openDescriptors(), descriptors);
        EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), children) << "a child is left";
        setenv("PATH", path.c_str(), 1);
    }

    trial::TemporaryFolder folder;
    const std::string fifo = folder.at("/fifo");
    const std::string path = std::getenv("PATH");
    const std::ptrdiff_t descriptors = support::openDescriptors();
    /// Another test's server may run beside, then it is 0.
    const pid_t children = waitpid(-1, nullptr, WNOHANG);
};

TEST_F(Processes, SystemReturnsTheRawWaitStatus) {
    const std::pair<std::string, int> rows[] = {{"test 'b  c' = \"b  c\"", 0},
                                                {"exit 3", 3 << 8},
                                                {"/nowhere/at/all 2>/dev/null", 127 << 8},
                                                {"kill -9 $$", SIGKILL},
                                                {std::string("true\0false", 10), -1}};
    for (const auto& [line, status] : rows) {
        EXPECT_EQ(processes::system(line), status) << line;
    }
}

TEST_F(Processes, TasksAreReadToTheEndOfBothOutputs) {
    const std::tuple<const char*, Capture, std::size_t, std::size_t> rows[] = {
        {"head -c 10000000 /dev/zero & head -c 10000000 /dev/zero >&2; wait", Capture::both, 10'000'000, 10'000'000},
        {"head -c 10000000 /dev/zero >&2; head -c 10000000 /dev/zero", Capture::both, 10'000'000, 10'000'000},
        {"head -c 30000000 /dev/zero; echo done >&2", Capture::both, 16 << 20, 5},
        {"exec >/dev/null; echo hidden; echo seen >&2", Capture::standardError, 0, 5},
        {"exec 2>/dev/null; echo seen; (sleep 0.1; echo late) &", Capture::standardOutput, 10, 0},
        {"echo last words; kill -9 $$", Capture::standardOutput, 11, 0},
    };
    for (const auto& [line, capture, outputSize, errorSize] : rows) {
        const auto written = processes::runTask("/bin/sh", {"-c", line}, capture);
        EXPECT_EQ(written.standardOutput.size(), outputSize) << line;
        EXPECT_EQ(written.standardError.size(), errorSize) << line;
    }
    EXPECT_THROW(processes::runTask("/nowhere/at/all", {}, Capture::both), Exception);
}

TEST_F(Processes, ChildrenInheritNeitherSignalsNorDescriptors) {
    const Descriptor leak(fcntl(STDERR_FILENO, F_DUPFD, 100));
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    sigprocmask(SIG_BLOCK, &all, &before);
    std::signal(SIGPIPE, SIG_IGN);
    const std::string facts = "sed -n 's/^Sig[BI][lg][kn]:.*\\(.......\\)$/\\1/p' /proc/self/status;"
                              "readlink /proc/self/fd/0; test -e /proc/self/fd/100 && echo leak;"
                              "[ $(cut -d' ' -f5 /proc/$$/stat) = " +
                              std::to_string(getpgrp()) + " ] && echo same group";
    const std::string clean = "0000000\n0000000\n/dev/null\n";
    EXPECT_EQ(processes::runTask("/bin/sh", {"-c", facts}, Capture::standardOutput).standardOutput, clean);
    processes::system("{ " + facts + "; } > " + folder.at("/facts").string());
    EXPECT_EQ(folder.read("/facts"), clean);
    // The child waits for the fifo's reader, who comes only after the launch has returned.
    EXPECT_TRUE(processes::launch("/bin/sh", {"-c", "{ " + facts + "; echo $1 $PPID; } > " + fifo, "sh", "a b"}));
    EXPECT_THAT(trial::readFile(fifo),
                AllOf(StartsWith(clean + "a b "), Not(EndsWith(" " + std::to_string(getpid()) + "\n"))));
    std::signal(SIGPIPE, SIG_DFL);
    sigprocmask(SIG_SETMASK, &before, nullptr);
}

TEST_F(Processes, ProgramsStartAsTheUserOrNotAtAll) {
    auto account = child_process::accountOf("nobody");
    ASSERT_TRUE(account);
    std::filesystem::permissions(folder.path(), std::filesystem::perms::all);
    std::filesystem::permissions(fifo, std::filesystem::perms::all);
    const std::vector<std::string> arguments{"-c", "echo $(id -u) $(id -g) $(id -G) $HOME $USER $LOGNAME > " + fifo};
    const bool started = child_process::startDetached("/bin/sh", arguments, account);
    EXPECT_EQ(started, geteuid() == 0);
    EXPECT_EQ(started ? trial::readFile(fifo) : "", started ? "65534 65534 65534 /nonexistent nobody nobody\n" : "");
    account->user = static_cast<uid_t>(-1);
    EXPECT_FALSE(child_process::startDetached("/bin/sh", arguments, account));
    EXPECT_FALSE(child_process::accountOf("no such user"));
    EXPECT_FALSE(processes::launchApplication("/Applications/Nowhere.app"));
    for (const std::string& program : {std::string("/nowhere/at/all"), fifo, std::string("/bin/true\0", 10)}) {
        EXPECT_FALSE(processes::launch(program, {})) << program;
    }
}

TEST_F(Processes, PingHasADeadlineAndItsSummaryIsTranslated) {
    const std::string summary = "echo 'rtt min/avg/max/mdev = 1.5/2/3/0 ms'\n";
    const std::string translated = "rtt min/avg/max/stddev = 1.5/2/3/0 ms\n";
    const std::pair<std::string, std::string> rows[] = {
        {"echo $# $1 $2 $3 $4 $5 $LC_ALL", "5 -n -w 6 -- -f C\n"},
        {"yes | head -c 500000\n" + summary, translated},
        {"exec yes", "y\n"},
        {"trap \"" + summary + "exit\" INT; while :; do sleep 100; done", translated},
        {"trap '' INT; echo killed; sleep 100", "killed\n"},
        {"echo gone; exec >/dev/null; sleep 100", "gone\n"},
        {"echo left; sleep 9 & exit 1", "left\n"},
    };
    for (const auto& [script, end] : rows) {
        folder.write("/ping", "#!/bin/sh\n" + script);
        std::filesystem::permissions(folder.at("/ping"), std::filesystem::perms::all);
        setenv("PATH", (folder.path().string() + ":" + path).c_str(), 1);
        const auto start = std::chrono::steady_clock::now();
        EXPECT_THAT(runPing("-f", {300ms, 300ms}), EndsWith(end)) << script;
        EXPECT_LT(std::chrono::steady_clock::now() - start, 5s) << script;
    }
    setenv("PATH", path.c_str(), 1);
    EXPECT_THAT(runPing("127.0.0.1", {1200ms, 2s}), HasSubstr("min/avg/max/stddev = 0."));
    EXPECT_EQ(runPing("not a host", {5s, 2s}), "");
    EXPECT_THROW(processes::ping(""), Exception);
    EXPECT_THROW(processes::ping(std::string("127.0.0.1\0", 10)), Exception);
    setenv("PATH", fifo.c_str(), 1);
    EXPECT_THROW(processes::ping("127.0.0.1"), Exception);
}

} // namespace
