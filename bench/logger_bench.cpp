// What a log line costs its caller and how soon a burst is in the file. For comparison: spdlog's asynchronous logger,
// and rewriting the file for each line.
#include "foundation/unicode.h"
#include "logging/HVLLogger.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "trial/support/temporary_folder.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <spdlog/async.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <string>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

namespace files = platform::files;

constexpr int burst = 10'000;
constexpr auto line = "HOST : PListManager : proxy list has been fetched and compared with the one on the disk";
constexpr auto logFile = "/bench.log";

/// This run's root, set before anything reads the environment.
const trial::TemporaryFolder root;
const int rooted = setenv("HAVREL_ROOT", root.path().c_str(), 1);

double nanoseconds(Clock::duration duration) { return std::chrono::duration<double, std::nano>(duration).count(); }

struct Ours {
    std::unique_ptr<havrel::HVLLogger> logger = havrel::HVLLogger::initWithLogFile(logFile);

    Ours() { logger->setLogFilePath(logFile); }

    void log() const { logger->logString(line); }

    void drain() const { logger->drain(); }
};

struct SpdlogAsynchronous {
    std::shared_ptr<spdlog::details::thread_pool> pool = std::make_shared<spdlog::details::thread_pool>(2 * burst, 1);
    std::shared_ptr<spdlog::async_logger> logger = std::make_shared<spdlog::async_logger>(
        "bench", std::make_shared<spdlog::sinks::basic_file_sink_mt>(root.at("/spdlog.log").string(), true), pool);

    void log() { logger->info(line); }

    void drain() {
        pool.reset(); // joins the worker: the only way to know that everything has been written
        logger.reset();
    }
};

/// Reads and replaces the file for each line, on the caller's thread.
struct RewritePerLine {
    void log() {
        const std::string content =
            files::read(logFile).value_or("") + "\n" + platform::clock::timestamp() + " : " + line + " ";
        files::replace(logFile, platform::text::suffix(content, havrel::HVLLogger::maximumLength),
                       files::Durability::cached);
    }

    void drain() {}
};

/// Logs bursts and times each call; a burst is over when all of it has been written.
template <typename Logger>
void timeBursts(benchmark::State& state) {
    std::vector<double> calls;
    for ([[maybe_unused]] const auto once : state) {
        Logger logger;
        const auto start = Clock::now();
        for (int i = 0; i < burst; ++i) {
            const auto before = Clock::now();
            logger.log();
            calls.push_back(nanoseconds(Clock::now() - before));
        }
        logger.drain();
        state.SetIterationTime(nanoseconds(Clock::now() - start) / 1e9);
    }
    std::sort(calls.begin(), calls.end());
    state.counters["caller_median_ns"] = calls[calls.size() / 2];
    state.counters["caller_p99_ns"] = calls[calls.size() / 100 * 99];
    state.counters["caller_max_us"] = calls.back() / 1000;
}

BENCHMARK(timeBursts<Ours>)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(timeBursts<SpdlogAsynchronous>)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(timeBursts<RewritePerLine>)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(1);

} // namespace

BENCHMARK_MAIN();
