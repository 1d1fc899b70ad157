// HavrelFetch: what the daemon makes of one that somebody has taken over, and what such a one can do.
#include "fetch/sandbox.h"
#include "platform/linux/network/fetcher.h"
#include "support/root_test.h"
#include "trial/support/process_table.h"
#include "trial/support/wait.h"
#include "trial/support/web_service.h"

#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <future>
#include <grp.h>
#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/shm.h>
#include <sys/wait.h>
#include <tuple>

using namespace platform;
using namespace std::literals;

namespace {

using Fetcher = support::RootTest;

TEST_F(Fetcher, IsBelievedNothingButAnOutcome) {
    const std::string answer = fetch::encode("answer");
    const fetch::Outcome failed = fetch::transportError(-1, "The transfer failed.");
    const fetch::Outcome late = fetch::transportError(-1001, "The request timed out.");

    struct {
        const char* name;
        std::string said, then;
        fetch::Outcome outcome;
    } const cases[] = {
        {"an answer", answer, "", "answer"},
        {"nothing", "", "", failed},
        {"death in an answer", answer.substr(0, answer.size() - 1), "kill -9 $$", failed},
        {"two answers", answer + answer, "", failed},
        {"another version", "HVF0" + answer.substr(4), "", failed},
        {"a length beyond all memory", answer.substr(0, 8) + "\xff\xff\xff\xff", "", failed},
        {"a flood", answer, "exec cat /dev/zero", failed},
        {"a stall", answer, "exec sleep 60", late},
        {"a child that keeps the stream", answer, "sleep 60 &", late},
        {"a life in another group", "", "exec perl -e 'setpgrp 0, getpgrp getppid; sleep 60'", late},
        {"a life after the answer", answer, "exec sleep 60 <&- >&-", "answer"},
    };

    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        root.write("/said", row.said);
        trial::writeProgram(root.at("/program"), "#!/bin/sh\ncat " + root.at("/said").string() + "\n" + row.then);
        const fetch::Request request{.url = "", .body = std::string(1'000'000, 'x'), .timeout = 100ms};
        EXPECT_EQ(fetcher::perform(root.at("/program"), request), row.outcome);
        EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1) << "left a child";
    }
}

TEST_F(Fetcher, RunsWithoutRightsAndWithBounds) {
    const trial::CertificateAuthority authority(root.at("/ca.pem"));
    std::optional<trial::WebService> service(authority);
    service->receive(trial::WebManner::stallBeforeTls);
    const gid_t group = 4;
    const bool hasGroup = ::setgroups(1, &group) == 0; // only root's child can lose it again
    const auto request = std::async([url = "https://" + service->host()] {
        fetcher::perform(fetcher::program(), {.url = url, .proxyExceptions = "*"});
    });
    ASSERT_TRUE(trial::eventually([&] { return service->connections() > 0; }));
    const auto table = trial::processTable();
    const auto child = std::ranges::find(table, ::getpid(), &trial::Process::parent);
    ASSERT_NE(child, table.end());
    const std::string process = "/proc/" + std::to_string(child->id);
    const std::string facts = trial::readFile(process + "/status") + trial::readFile(process + "/limits");
    EXPECT_THAT(facts, testing::ContainsRegex("\nUid:\t[1-9][0-9]*\t[1-9][0-9]*\t[1-9][0-9]*\t[1-9]"));
    for (const char* line : {hasGroup ? "\nGroups:\t \n" : "\nGroups:", "\nCapPrm:\t0000000000000000\n",
                             "\nNoNewPrivs:\t1\n", "\nSeccomp:\t2\n", "\nMax core file size        0 ",
                             "\nMax file size             0 ", "\nMax open files            64 "}) {
        EXPECT_THAT(facts, testing::HasSubstr(line));
    }
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    EXPECT_THAT(facts, testing::HasSubstr("\nMax address space         268435456 "));
#endif
    if (::geteuid() == 0) { // nobody else may look into it
        EXPECT_EQ(trial::readFile(process + "/environ"), "");
    }
    service.reset();
}

TEST_F(Fetcher, DoesNotKeepAProcessThatEnds) {
    GTEST_FLAG_SET(death_test_style, "threadsafe"); // requests have ended for good
    const auto endARequest = [this] {
        trial::writeProgram(root.at("/program"), "#!/bin/sh\nexec sleep 60");
        const auto request = std::async([&] { fetcher::perform(root.at("/program"), {.url = "", .timeout = 60s}); });
        fetcher::endAll();
        const bool hasEnded = request.wait_for(20s) == std::future_status::ready;
        std::filesystem::remove_all(root.path());
        std::_Exit(hasEnded ? 0 : 1);
    };
    EXPECT_EXIT(endARequest(), testing::ExitedWithCode(0), "");
}

/// Ends with status 0 if the attempt succeeds.
void tryInSandbox(void (*attempt)()) {
    std::fflush(nullptr); // what is left could no longer go to a file
    sandbox::enter(::geteuid() == 0 ? std::optional(sandbox::User{65534, 65534}) : std::nullopt);
    attempt();
    ::_exit(0);
}

TEST(Sandbox, KillsWhatDoesMoreThanATransfer) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");

    struct {
        const char* name;
        void (*attempt)();
    } const cases[] = {
        {"a program", [] { ::execl("/bin/true", "true", nullptr); }},
        {"a process", [] { ::_exit(::fork() < 0); }},
        {"a look into another process", [] { ::ptrace(PTRACE_ATTACH, ::getppid(), nullptr, nullptr); }},
        {"a signal", [] { ::kill(::getppid(), 0); }},
        {"another group", [] { ::setpgid(0, ::getpgid(::getppid())); }},
        {"a longer life", [] { ::prctl(PR_SET_PDEATHSIG, 0); }},
        {"a signal about a descriptor", [] { ::ioctl(0, FIOSETOWN, nullptr); }},
        {"a terminal's input", [] { ::ioctl(0, TIOCSTI, ""); }},
        {"memory that stays", [] { std::ignore = ::shmget(IPC_PRIVATE, 4096, 0600); }},
        {"a file to write", [] { ::open("/dev/null", O_WRONLY | O_CLOEXEC); }},
        {"a new file", [] { ::open("/dev/null", O_RDONLY | O_CREAT | O_CLOEXEC, 0600); }},
    };

    for (const auto& row : cases) {
        EXPECT_EXIT(tryInSandbox(row.attempt), testing::KilledBySignal(SIGSYS), "") << row.name;
    }
    const auto aThread = [] { std::thread([] {}).join(); };
    EXPECT_EXIT(tryInSandbox(aThread), testing::ExitedWithCode(0), "");
}

} // namespace
