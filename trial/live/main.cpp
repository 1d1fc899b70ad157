// The trial that ./dev run starts.

#include "trial/live/live_trial.h"

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>

namespace {

std::atomic<bool> interrupted{false};
static_assert(std::atomic<bool>::is_always_lock_free);

constexpr int failed = 1;
constexpr int misused = 2;

/// True if every step was seen and the daemon ended with status 0.
bool goThrough(trial::LiveTrial& trial, bool stays) {
    if (!trial.show()) {
        return false;
    }
    if (stays) {
        trial.printResults();
        return trial.stay() && trial.end();
    }
    const bool ended = trial.end();
    trial.printResults();
    return ended;
}

int runTrial(bool stays) {
    trial::LiveTrial trial(interrupted);
    const bool succeeded = goThrough(trial, stays);
    if (!stays && !interrupted) {
        trial.keep();
    }
    return succeeded ? 0 : failed;
}

} // namespace

int main(int count, char** arguments) {
    const bool stays = count == 2 && std::strcmp(arguments[1], "--stay") == 0;
    if (count > 1 && !stays) {
        std::fputs("usage: havrel-trial [--stay]\n", stderr);
        return misused;
    }
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        std::signal(signal, [](int) { interrupted = true; });
    }
    try {
        return runTrial(stays);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "havrel-trial: %s\n", error.what());
        return failed;
    }
}
