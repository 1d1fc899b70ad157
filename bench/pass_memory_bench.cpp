// The memory of a pinger that has measured many proxies, right after the pass and an hour later by the stand-in clock.
// The proxies answer at once.
#include "fakes/fake_clock.h"
#include "platform/memory.h"
#include "platform/processes.h"
#include "proxy/HVLPingManager.h"
#include "trial/support/temporary_folder.h"
#include "trial/support/wait.h"
#include "util/ProductPaths.h"

#include <benchmark/benchmark.h>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>
#include <thread>

std::string platform::processes::ping(const std::string& /*address*/) {
    return "round-trip min/avg/max/stddev = 12.5/90.5/99.5/1.5 ms\n";
}

void platform::processes::endPings() {}

namespace {

using namespace std::chrono_literals;
using havrel::HVLPingHost;
using havrel::HVLPingManager;
using havrel::HVLPingMutableArray;

constexpr int proxyCount = 10'000;

double privateMegabytes() {
    std::istringstream lines(trial::readFile("/proc/self/smaps_rollup"));
    double kilobytes = 0;
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with("Private_")) {
            kilobytes += std::strtod(line.c_str() + line.find(':') + 1, nullptr);
        }
    }
    return kilobytes / 1024;
}

void writeProxies() {
    HVLPingMutableArray list;
    for (int proxy = 0; proxy < proxyCount; ++proxy) {
        list.addObject(HVLPingHost::initWithHostName(
            "P" + std::to_string(proxy), "127.0." + std::to_string(proxy / 250) + "." + std::to_string(proxy % 250),
            "P" + std::to_string(proxy)));
    }
    list.writeProxyOnFile(havrel::paths::allProxies);
}

void pass(benchmark::State& state) {
    const trial::TemporaryFolder root;
    setenv("HAVREL_ROOT", root.path().c_str(), 1);
    std::filesystem::create_directories(root.at(havrel::paths::hostSupport));
    // Only the pause between the turns lasts; the seconds of a measurement leave the workers time to run.
    fakes::clock::blockFrom(2min);
    fakes::clock::onSleep([](std::chrono::nanoseconds) { std::this_thread::sleep_for(10ms); });
    HVLPingManager manager;
    manager.startPingOnNewThread();
    fakes::clock::waitForSleepers(1);
    writeProxies();
    platform::memory::giveBack();
    state.counters["before_MB"] = privateMegabytes();
    for ([[maybe_unused]] const auto once : state) {
        std::jthread([&] { manager.proxyListUpdateProcess(); }).join();
    }
    state.counters["answered"] = static_cast<double>(manager.allListArray().countNoZeroPingTimeProxies());
    state.counters["after_MB"] = privateMegabytes();
    while (fakes::clock::now() < 1h + 8min) {
        fakes::clock::advance();
        fakes::clock::waitForSleepers(1);
    }
    state.counters["hour_later_MB"] = privateMegabytes();
    manager.stop();
}

BENCHMARK(pass)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();

} // namespace

int main(int argc, char** argv) {
    platform::memory::shareHeap(); // as in the daemon
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
