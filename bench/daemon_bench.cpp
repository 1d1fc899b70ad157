// What the built daemon costs its host.
//
// Start-up: from its exec to its run loop's first answer, as at every boot, with tools that do nothing. For comparison:
// start-up's command lines alone, run by a shell, and the start of the smallest program.
//
// Idle: half a minute, after it has measured all proxies. For comparison: a process that only listens for
// notifications, and the bus daemon.
#include "foundation/property_list.h"
#include "trial/support/bus_client.h"
#include "trial/support/machine.h"
#include "trial/support/sleep_service.h"
#include "trial/support/wait.h"
#include "util/ProductPaths.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <sys/wait.h>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using trial::DaemonProcess;
namespace fs = std::filesystem;
using namespace std::chrono_literals;

constexpr int starts = 50;
constexpr auto idleWindow = 30s;
constexpr auto quietWindow = 2s;
constexpr double kilobytes = 1024;

/// The start-up's command lines if the host service is enabled and the sleep timers are stored.
constexpr const char* startUpCommands[] = {
    R"(sudo chmod -R 777 /Library/Application\ Support/HVLHostForMac)",
    "lpstat -d",
    "killall HavrelAgent",
    R"(ps aux | grep loginwindow | grep -v grep | awk '{system("true")}')",
    "launchctl load /Library/LaunchDaemons/com.Dravex.HVLDaemonHost.plist",
    R"(ps aux | grep loginwindow | grep -v grep | awk '{system("true")}')",
    "launchctl load /Library/LaunchAgents/com.Dravex.HVLSuiteHost.plist",
};

double milliseconds(Clock::duration duration) { return std::chrono::duration<double, std::milli>(duration).count(); }

/// The processor time of the process, its ended threads included.
double processorMilliseconds(pid_t process) {
    clockid_t clock = 0;
    timespec used{};
    if (::clock_getcpuclockid(process, &clock) != 0 || ::clock_gettime(clock, &used) != 0) {
        return 0;
    }
    return static_cast<double>(used.tv_sec) * 1e3 + static_cast<double>(used.tv_nsec) / 1e6;
}

/// The sum of the numbers after "KEY:" in the lines of a file in /proc.
double sumOf(const fs::path& file, const std::string& key) {
    const std::string content = "\n" + trial::readFile(file);
    double sum = 0;
    for (std::size_t at = 0; (at = content.find("\n" + key + ":", at)) != std::string::npos; ++at) {
        sum += std::strtod(content.c_str() + at + key.size() + 2, nullptr);
    }
    return sum;
}

fs::path ofProcess(pid_t process, const std::string& file) { return "/proc/" + std::to_string(process) + "/" + file; }

/// How often its present threads have been switched out so far: each wake-up ends with that.
double wakeUps(pid_t process) {
    double sum = 0;
    for (const auto& thread : fs::directory_iterator(ofProcess(process, "task"))) {
        sum += sumOf(thread.path() / "status", "voluntary_ctxt_switches") +
               sumOf(thread.path() / "status", "nonvoluntary_ctxt_switches");
    }
    return sum;
}

/// A machine whose tools all do nothing and end at once.
struct IdleMachine : trial::Machine {
    IdleMachine() {
        std::vector<fs::path> names;
        for (const auto& tool : fs::directory_iterator(tools.searchPath())) {
            names.push_back(tool.path());
        }
        for (const fs::path& name : names) {
            fs::remove(name);
            fs::create_symlink(trial::findProgram("true"), name);
        }
        root.logIn("ann");
    }
};

/// Starts processes one after the other and times each until `ready` returns.
template <typename Start, typename Ready>
void timeStarts(benchmark::State& state, const Start& start, const Ready& ready) {
    std::vector<double> times;
    double processor = 0;
    for ([[maybe_unused]] const auto once : state) {
        const auto before = Clock::now();
        const std::unique_ptr<DaemonProcess> process = start();
        ready(*process);
        const auto time = Clock::now() - before;
        processor += processorMilliseconds(process->id());
        times.push_back(milliseconds(time));
        state.SetIterationTime(times.back() / 1e3);
        process->terminate();
    }
    std::sort(times.begin(), times.end());
    state.counters["median_ms"] = times[times.size() / 2];
    state.counters["max_ms"] = times.back();
    state.counters["own_cpu_ms"] = processor / static_cast<double>(times.size());
}

/// Waits without reaping: that is left to its owner.
void awaitEnd(const DaemonProcess& process) {
    siginfo_t ignored{};
    ::waitid(P_PID, static_cast<id_t>(process.id()), &ignored, WEXITED | WNOWAIT);
}

void startUp(benchmark::State& state) {
    const IdleMachine machine;
    fs::remove(machine.root.at(havrel::paths::hostInstallMarker));
    machine.root.write(trial::hostPreferences,
                       platform::property_list::toXml(platform::Dictionary{{"isServiceEnabled", true},
                                                                           {"uniqueId", "02:00:5e:10:00:01"},
                                                                           {"serialNumber", "TRIAL-0001"},
                                                                           {"ComputerSleep", "10"},
                                                                           {"DisplaySleep", "5"}})
                           .value());
    trial::SleepService loginManager(machine.bus.address());
    const trial::BusClient client(machine.bus.address());
    std::size_t answers = 0;
    timeStarts(
        state,
        [&] {
            loginManager.waitForLocks(0); // the last one's
            return std::make_unique<DaemonProcess>(HAVREL_DAEMON, machine.environment(), machine.root.folder());
        },
        [&](const DaemonProcess&) {
            // The daemon takes the lock early. The announcement then waits for its run loop, and answering needs no
            // tool.
            loginManager.waitForLocks(1);
            loginManager.prepareForSleep(false);
            if (!client.waitForCount("sleepStateChanged", ++answers)) {
                state.SkipWithError("the daemon does not answer");
            }
        });
}

void startUpCommandsAlone(benchmark::State& state) {
    const IdleMachine machine;
    std::string script;
    for (const char* command : startUpCommands) {
        script += "/bin/sh -c " + trial::shellQuoted(command) + "\n";
    }
    timeStarts(
        state,
        [&] {
            return std::make_unique<DaemonProcess>("/bin/sh", machine.environment(), machine.root.folder(), "commands",
                                                   std::vector<std::string>{"-c", script});
        },
        awaitEnd);
}

void startOfTrue(benchmark::State& state) {
    const trial::TrialRoot root;
    timeStarts(
        state,
        [&] {
            return std::make_unique<DaemonProcess>(trial::findProgram("true"), trial::Environment(), root.folder());
        },
        awaitEnd);
}

void showIdle(benchmark::State& state, pid_t process) {
    double last = -1;
    trial::eventually(
        [&] {
            const double known = std::exchange(last, wakeUps(process));
            std::this_thread::sleep_for(quietWindow);
            return last == known;
        },
        60s);
    // Read at once, before the system reclaims what an idle process does not touch.
    state.counters["pss_MB"] = sumOf(ofProcess(process, "smaps_rollup"), "Pss") / kilobytes;
    state.counters["rss_MB"] = sumOf(ofProcess(process, "smaps_rollup"), "Rss") / kilobytes;
    state.counters["threads"] = sumOf(ofProcess(process, "status"), "Threads");
    const double wakeUpsBefore = wakeUps(process);
    const double processorBefore = processorMilliseconds(process);
    for ([[maybe_unused]] const auto once : state) {
        std::this_thread::sleep_for(idleWindow);
        state.SetIterationTime(std::chrono::duration<double>(idleWindow).count());
    }
    constexpr double perMinute = 60s / idleWindow;
    state.counters["wakeups_per_min"] = (wakeUps(process) - wakeUpsBefore) * perMinute;
    state.counters["cpu_ms_per_min"] = (processorMilliseconds(process) - processorBefore) * perMinute;
}

void idle(benchmark::State& state) {
    trial::Machine machine;
    machine.root.logIn("ann");
    machine.tools.scriptInstantPing();
    machine.service.answer(trial::proxyListPath, trial::listing(trial::numberedProxies(64, "127.1.0")));
    const DaemonProcess daemon(HAVREL_DAEMON, machine.environment(), machine.root.folder());
    if (!trial::eventually([&] { return !machine.root.has(havrel::paths::hostInstallMarker); })) {
        state.SkipWithError("the proxies are not measured");
    }
    showIdle(state, daemon.id());
}

void idlePlainListener(benchmark::State& state) {
    const trial::Machine machine;
    DaemonProcess listener(PLAIN_LISTENER, machine.environment(), machine.root.folder());
    showIdle(state, listener.id());
    if (!listener.isRunning()) {
        state.SkipWithError("it has ended");
    }
}

void idleBusDaemon(benchmark::State& state) {
    const trial::Machine machine;
    showIdle(state, machine.bus.pid());
}

BENCHMARK(startUp)->Iterations(starts)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(startUpCommandsAlone)->Iterations(starts)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(startOfTrue)->Iterations(starts)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(idle)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);
BENCHMARK(idlePlainListener)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);
BENCHMARK(idleBusDaemon)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);

} // namespace

BENCHMARK_MAIN();
