// What the built daemon costs its host, a line for each measure. Other daemons may be given as arguments, say the one
// before a change: each gets a column of its own, and the starts of all alternate.
//
// Start-up: from its exec to its run loop's first answer, as at every boot, with tools that do nothing. For comparison:
// start-up's command lines alone, run by a shell.
//
// Idle: after it has measured all proxies. For comparison: a process that only listens for notifications.
#include "foundation/property_list.h"
#include "trial/support/bus_client.h"
#include "trial/support/machine.h"
#include "trial/support/sleep_service.h"
#include "trial/support/wait.h"
#include "util/ProductPaths.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <optional>
#include <set>
#include <sstream>
#include <sys/wait.h>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using trial::DaemonProcess;
namespace fs = std::filesystem;
using namespace std::chrono_literals;

constexpr int starts = 50;
constexpr std::size_t manyProxies = 10'000;
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

/// A line of the table: what was measured, of each daemon and of what it is compared with.
void show(const std::string& measure, const std::vector<double>& daemons, std::optional<double> yardstick = {}) {
    std::printf("%-52s", measure.c_str());
    for (const double value : daemons) {
        std::printf(" %10.2f", value);
    }
    if (yardstick) {
        std::printf("   beside %10.2f", *yardstick);
    }
    std::printf("\n");
    std::fflush(stdout);
}

[[noreturn]] void fail(const std::string& reason) {
    std::fprintf(stderr, "daemon_bench: %s\n", reason.c_str());
    std::exit(EXIT_FAILURE);
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

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

/// How many shared objects are mapped, the loader included.
std::size_t libraries(pid_t process) {
    std::set<std::string> found;
    std::istringstream words(trial::readFile(ofProcess(process, "maps")));
    for (std::string word; words >> word;) {
        if (word.starts_with('/') && word.find(".so") != std::string::npos) {
            found.insert(word);
        }
    }
    return found.size();
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
        fs::remove(root.at(havrel::paths::hostInstallMarker));
        root.write(trial::hostPreferences,
                   platform::property_list::toXml(platform::Dictionary{{"isServiceEnabled", true},
                                                                       {"uniqueId", "02:00:5e:10:00:01"},
                                                                       {"serialNumber", "TRIAL-0001"},
                                                                       {"ComputerSleep", "10"},
                                                                       {"DisplaySleep", "5"}})
                       .value());
    }
};

/// Waits without reaping: that is left to its owner.
void awaitEnd(const DaemonProcess& process) {
    siginfo_t ignored{};
    ::waitid(P_PID, static_cast<id_t>(process.id()), &ignored, WEXITED | WNOWAIT);
}

/// The starts of one program.
struct Starts {
    std::vector<double> time;
    std::vector<double> processorTime;

    template <typename Start, typename Ready>
    void measure(const Start& start, const Ready& ready) {
        const auto before = Clock::now();
        DaemonProcess process = start();
        ready(process);
        time.push_back(milliseconds(Clock::now() - before));
        processorTime.push_back(processorMilliseconds(process.id()));
        process.terminate();
    }
};

void startUp(const std::vector<fs::path>& daemons) {
    const IdleMachine machine;
    trial::SleepService loginManager(machine.bus.address());
    const trial::BusClient client(machine.bus.address());
    std::size_t answers = 0;
    const auto answer = [&](const DaemonProcess& /*daemon*/) {
        // The daemon takes the lock early. The announcement then waits for its run loop, and answering needs no tool.
        loginManager.waitForLocks(1);
        loginManager.prepareForSleep(false);
        if (!client.waitForCount("sleepStateChanged", ++answers)) {
            fail("the daemon does not answer");
        }
    };
    std::string script;
    for (const char* command : startUpCommands) {
        script += "/bin/sh -c " + trial::shellQuoted(command) + "\n";
    }
    std::vector<Starts> ofDaemons(daemons.size());
    Starts ofCommands;
    for (int start = 0; start < starts; ++start) {
        for (std::size_t i = 0; i < daemons.size(); ++i) {
            loginManager.waitForLocks(0); // the last one's
            ofDaemons[i].measure(
                [&] { return DaemonProcess(daemons[i], machine.environment(), machine.root.folder()); }, answer);
        }
        ofCommands.measure(
            [&] {
                return DaemonProcess("/bin/sh", machine.environment(), machine.root.folder(), "commands",
                                     {"-c", script});
            },
            awaitEnd);
    }
    const double commands = median(ofCommands.time);
    std::vector<double> times;
    std::vector<double> timesOfCommands;
    std::vector<double> processorTimes;
    for (const Starts& daemon : ofDaemons) {
        times.push_back(median(daemon.time));
        timesOfCommands.push_back(times.back() / commands);
        processorTimes.push_back(median(daemon.processorTime));
    }
    show("exec to run loop, ms; its command lines alone", times, commands);
    show("  as a multiple of the command lines' time", timesOfCommands);
    show("  own processor time, ms", processorTimes);
}

/// What a process costs that has nothing to do.
struct Idle {
    std::size_t libraries;
    double residentMegabytes;
    double proportionalMegabytes;
    double privateMegabytes;
    double threads;
    double wakeUpsPerMinute = 0;
    double processorMillisecondsPerMinute = 0;
};

void awaitQuiet(pid_t process) {
    double last = -1;
    trial::eventually(
        [&] {
            const double known = std::exchange(last, wakeUps(process));
            std::this_thread::sleep_for(quietWindow);
            return last == known;
        },
        60s);
}

Idle atRest(pid_t process) {
    awaitQuiet(process);
    // Read at once, before the system reclaims what an idle process does not touch.
    const fs::path memory = ofProcess(process, "smaps_rollup");
    return {.libraries = libraries(process),
            .residentMegabytes = sumOf(memory, "Rss") / kilobytes,
            .proportionalMegabytes = sumOf(memory, "Pss") / kilobytes,
            .privateMegabytes = (sumOf(memory, "Private_Clean") + sumOf(memory, "Private_Dirty")) / kilobytes,
            .threads = sumOf(ofProcess(process, "status"), "Threads")};
}

Idle idle(pid_t process) {
    Idle result = atRest(process);
    const double wakeUpsBefore = wakeUps(process);
    const double processorBefore = processorMilliseconds(process);
    std::this_thread::sleep_for(idleWindow);
    constexpr double perMinute = 60s / idleWindow;
    result.wakeUpsPerMinute = (wakeUps(process) - wakeUpsBefore) * perMinute;
    result.processorMillisecondsPerMinute = (processorMilliseconds(process) - processorBefore) * perMinute;
    return result;
}

/// Starts the daemon and lets it measure that many proxies, which all answer at once.
template <typename Look>
Idle afterPass(const fs::path& program, std::size_t proxies, const Look& look) {
    trial::Machine machine;
    machine.root.logIn("ann");
    machine.tools.scriptInstantPing();
    trial::Proxies listed;
    for (std::size_t number = 1; number <= proxies; ++number) {
        listed.emplace_back("P" + std::to_string(number),
                            "127.1." + std::to_string(number / 250) + "." + std::to_string(1 + number % 250));
    }
    machine.service.answer(trial::proxyListPath, trial::listing(listed));
    const DaemonProcess daemon(program, machine.environment(), machine.root.folder());
    if (!trial::eventually([&] { return !machine.root.has(havrel::paths::hostInstallMarker); }, 3min)) {
        fail("the proxies are not measured");
    }
    return look(daemon.id());
}

Idle idleListener() {
    const trial::Machine machine;
    DaemonProcess listener(PLAIN_LISTENER, machine.environment(), machine.root.folder());
    const Idle result = idle(listener.id());
    if (!listener.isRunning()) {
        fail("the plain listener has ended");
    }
    return result;
}

void idleCosts(const std::vector<fs::path>& daemons) {
    std::vector<Idle> idles;
    idles.reserve(daemons.size());
    for (const fs::path& daemon : daemons) {
        idles.push_back(afterPass(daemon, 64, idle));
    }
    const Idle listener = idleListener();
    const auto line = [&](const char* measure, auto Idle::*value) {
        std::vector<double> values;
        values.reserve(idles.size());
        for (const Idle& each : idles) {
            values.push_back(static_cast<double>(each.*value));
        }
        show(measure, values, static_cast<double>(listener.*value));
    };
    line("libraries mapped; in a process that only listens", &Idle::libraries);
    line("idle: resident, MB", &Idle::residentMegabytes);
    line("  its share of it (PSS), MB", &Idle::proportionalMegabytes);
    line("  private, MB", &Idle::privateMegabytes);
    line("  threads", &Idle::threads);
    line("  wake-ups per minute", &Idle::wakeUpsPerMinute);
    line("  processor time per minute, ms", &Idle::processorMillisecondsPerMinute);
}

void costsOfManyProxies(const std::vector<fs::path>& daemons) {
    std::vector<double> values;
    values.reserve(daemons.size());
    for (const fs::path& daemon : daemons) {
        values.push_back(afterPass(daemon, manyProxies, atRest).privateMegabytes);
    }
    show("private after a pass over " + std::to_string(manyProxies) + " proxies, MB", values);
}

} // namespace

int main(int argc, char** argv) {
    std::vector<fs::path> daemons{HAVREL_DAEMON};
    daemons.insert(daemons.end(), argv + 1, argv + argc);
    for (const fs::path& daemon : daemons) {
        std::printf("%s\n", daemon.c_str());
    }
    startUp(daemons);
    idleCosts(daemons);
    costsOfManyProxies(daemons);
}
