#include "fakes/fake_processes.h"

#include "foundation/text.h"

using namespace platform;
using namespace fakes::processes;

template <typename Result>
static Result call(const Program<Result>& program, const std::string& argument, const std::string& prefix = {}) {
    calls.add(prefix + argument);
    const auto chosen = program();
    return chosen ? chosen(argument) : Result{};
}

static std::string lineOf(std::vector<std::string> words, const std::string& program) {
    words.insert(words.begin(), program);
    return text::join(words, " ");
}

int platform::processes::system(const std::string& commandLine) { return call(onSystem, commandLine); }

platform::processes::TaskOutput platform::processes::runTask(const std::string& program,
                                                             const std::vector<std::string>& arguments, Capture) {
    return call(onTask, lineOf(arguments, program));
}

void platform::processes::launch(const std::string& program, const std::vector<std::string>& arguments) {
    calls.add(lineOf(arguments, program));
}

void platform::processes::launchApplication(const std::string& bundlePath) { calls.add("open " + bundlePath); }

std::string platform::processes::ping(const std::string& address) { return call(onPing, address, "ping "); }

void platform::processes::endPings() { calls.add("end pings"); }
