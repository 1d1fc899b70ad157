// What a pass over all proxies costs: 200 loopback addresses, fifty at a time. With a ping of one second, to see the
// time lost between pings, and with the system's own of six seconds. For comparison: fping over the same addresses.
#include "foundation/error.h"
#include "platform/processes.h"
#include "proxy/HVLPingManager.h"
#include "trial/support/temporary_folder.h"
#include "trial/support/wait.h"
#include "util/ProductPaths.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdlib>
#include <sys/resource.h>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;
using havrel::HVLPingHost;
using havrel::HVLPingMutableArray;

constexpr int proxyCount = 200;

std::string address(int proxy) { return "127.0.1." + std::to_string(proxy); }

/// A root with a stand-in for ping, removed at the end.
struct Setting {
    trial::TemporaryFolder root;
    const std::string systemPath = std::getenv("PATH");

    Setting() {
        root.write("/bin/ping", "#!/bin/sh\nsleep 1\necho 'rtt min/avg/max/mdev = 0.1/0.2/0.3/0.1 ms'\n");
        std::filesystem::permissions(root.at("/bin/ping"), std::filesystem::perms::owner_all);
        std::filesystem::create_directories(root.at(havrel::paths::hostSupport));
        setenv("HAVREL_ROOT", root.path().c_str(), 1);
    }
};

Setting& setting() {
    static Setting instance;
    return instance;
}

double processorSeconds(int who) {
    rusage usage{};
    getrusage(who, &usage);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

double peakMegabytes() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_maxrss) / 1024;
}

double since(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

/// Runs the work once and records its time and the processor time of this process and of its children.
template <typename Work>
void measure(benchmark::State& state, const Work& work) {
    for ([[maybe_unused]] const auto once : state) {
        const double own = processorSeconds(RUSAGE_SELF);
        const double children = processorSeconds(RUSAGE_CHILDREN);
        const auto start = Clock::now();
        work();
        state.SetIterationTime(since(start));
        state.counters["own_cpu_s"] = processorSeconds(RUSAGE_SELF) - own;
        state.counters["children_cpu_s"] = processorSeconds(RUSAGE_CHILDREN) - children;
        state.counters["own_peak_MB"] = peakMegabytes();
    }
}

void pass(benchmark::State& state, const std::string& path) {
    HVLPingMutableArray list;
    for (int proxy = 1; proxy <= proxyCount; ++proxy) {
        list.addObject(HVLPingHost::initWithHostName("P" + std::to_string(proxy), address(proxy), "P"));
    }
    list.writeProxyOnFile(havrel::paths::allProxies);
    setenv("PATH", path.c_str(), 1);
    havrel::HVLPingManager manager;
    double drained = 0;
    measure(state, [&] {
        const auto start = Clock::now();
        std::jthread pass([&] { manager.startPingForAllProxies(); });
        const auto isPinging = [&] { return manager.pingingQueue()->operationCount() > 0; };
        trial::eventually(isPinging, std::chrono::minutes(2));
        trial::eventually([&] { return !isPinging(); }, std::chrono::minutes(2));
        drained = since(start);
    });
    state.counters["queue_drained_s"] = drained;
    state.counters["answered"] = static_cast<double>(manager.allListArray().countNoZeroPingTimeProxies());
}

void passWithPingsOfOneSecond(benchmark::State& state) {
    pass(state, setting().root.at("/bin").string() + ":" + setting().systemPath);
}

void passWithTheSystemsPing(benchmark::State& state) { pass(state, setting().systemPath); }

/// As many packets to each proxy as ping sends, one a second.
void fping(benchmark::State& state) {
    std::vector<std::string> arguments{"-q", "-C", "6", "-p", "1000", "-i", "1"};
    for (int proxy = 1; proxy <= proxyCount; ++proxy) {
        arguments.push_back(address(proxy));
    }
    measure(state, [&] {
        try {
            platform::processes::runTask("fping", arguments, platform::processes::Capture::both);
        } catch (const platform::Exception&) {
            state.SkipWithError("fping is not installed");
        }
    });
}

BENCHMARK(passWithPingsOfOneSecond)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);
BENCHMARK(passWithTheSystemsPing)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);
BENCHMARK(fping)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);

} // namespace

int main(int argc, char** argv) {
    setting(); // sets HAVREL_ROOT, which must come before anything reads it
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
