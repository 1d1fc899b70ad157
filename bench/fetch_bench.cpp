// One web request over TLS on loopback, as the daemon makes it: in a process of its own. For comparison: the same
// transfer in this process. The two alternate.
#include "fetch/web_transfer.h"
#include "platform/network.h"
#include "trial/support/machine.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <chrono>
#include <cstdlib>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

constexpr int requests = 200;

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

template <typename Call>
double milliseconds(const Call& call) {
    const auto start = Clock::now();
    call();
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

void requestOverTls(benchmark::State& state) {
    trial::Machine machine;
    machine.service.answer("/bench", {.body = "{}"});
    setenv("HAVREL_CA_FILE", machine.authority.file().c_str(), 1);
    const std::string url = "https://" + machine.service.host() + "/bench";
    const std::string anchors = trial::readFile(machine.authority.file());
    const auto isRefused = [&] {
        std::optional<platform::Error> error;
        return !platform::network::sendSynchronousRequest({.url = url}, error);
    };
    const auto isRefusedHere = [&] {
        const auto outcome = platform::web_transfer::perform({.url = url, .trustAnchors = anchors});
        return std::holds_alternative<platform::Error>(outcome);
    };
    std::vector<double> own;
    std::vector<double> here;
    for ([[maybe_unused]] const auto once : state) {
        const auto expectAnswer = [&](bool refused) {
            if (refused) {
                state.SkipWithError("no answer");
            }
        };
        own.push_back(milliseconds([&] { expectAnswer(isRefused()); }));
        here.push_back(milliseconds([&] { expectAnswer(isRefusedHere()); }));
    }
    state.counters["median_ms"] = median(own);
    state.counters["in_process_ms"] = median(here);
    state.counters["more_ms"] = median(own) - median(here);
}

BENCHMARK(requestOverTls)->Iterations(requests)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

BENCHMARK_MAIN();
