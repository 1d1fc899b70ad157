// What works on other threads, or for them: run loops, timers, queues, sleeps.
#include "foundation/error.h"
#include "foundation/operation_queue.h"
#include "foundation/serial_queue.h"
#include "foundation/value.h"
#include "platform/clock.h"
#include "platform/run_loop.h"
#include "trial/support/wait.h"

#include <array>
#include <atomic>
#include <csignal>
#include <gmock/gmock.h>
#include <optional>

namespace {

using namespace platform;
using namespace std::chrono_literals;
using testing::Each;
using testing::ElementsAre;
using testing::Ge;
using Clock = std::chrono::steady_clock;
using Task = std::function<void()>;

struct TaskOperation : Operation {
    Task task;

    explicit TaskOperation(Task given) : task(std::move(given)) {}

    void main() override { task(); }
};

TEST(Threads, DoTheirTasksInOrderWhateverOneRaises) {
    std::vector<int> looped, queued, operated;
    RunLoop loop;
    SerialQueue queue("test");
    OperationQueue operations(1);
    for (int i = 0; i < 3; ++i) {
        const auto task = [i](std::vector<int>& done) {
            return [&done, i] {
                done.push_back(i);
                throw Exception("ends this task only");
            };
        };
        loop.perform(task(looped));
        queue.async(task(queued));
        operations.addOperation(task(operated));
    }
    loop.run(); // returns when there is nothing left
    queue.drain();
    EXPECT_TRUE(trial::eventually([&] { return operations.operationCount() == 0; }));
    EXPECT_THAT((std::array{looped, queued, operated}), Each(ElementsAre(0, 1, 2)));
}

TEST(OperationQueue, CancelsWhatRunsAndWaitsForItsEnd) {
    std::atomic<bool> runs = false, ended = false;
    {
        OperationQueue operations(1);
        const auto operation = std::make_shared<TaskOperation>(nullptr);
        operation->task = [&, raw = operation.get()] {
            runs = true;
            while (!raw->isCancelled()) {
                std::this_thread::yield();
            }
            clock::sleep(20ms); // an end without a wait would come first
            ended = true;
        };
        operations.addOperation(operation);
        EXPECT_TRUE(trial::eventually([&] { return runs.load(); }));
    }
    EXPECT_TRUE(ended);
}

TEST(RunLoop, StopsAfterTheCurrentCallback) {
    RunLoop& loop = RunLoop::main();
    const RunLoop::Source source(loop);
    const Task ways[] = {[&] { loop.stop(); }, [] { std::raise(SIGTERM); }, [] { std::raise(SIGINT); }};
    for (const Task& stop : ways) {
        bool isNextRun = false;
        loop.perform(stop);
        loop.perform([&] {
            EXPECT_TRUE(isNextRun);
            stop();
        });
        loop.run();
        isNextRun = true;
        loop.run();
        stop(); // before `run`, it is remembered
        loop.run();
    }
}

TEST(RepeatingTimer, KeepsItsBeatAndMayEndItself) {
    RunLoop loop;
    std::vector<Clock::duration> calls;
    std::optional<RepeatingTimer> timer;
    timer.emplace(loop, 5ms, [&, start = Clock::now()] {
        calls.push_back(Clock::now() - start);
        while (calls.size() == 2 && Clock::now() - start < 32ms) {
            std::this_thread::yield(); // a slow callback: the beats at 15 to 30 ms pass
        }
        if (calls.size() == 4) {
            timer.reset();
        }
        throw Exception("ends this call only");
    });
    loop.run(); // returns because the timer is gone
    EXPECT_THAT(calls, ElementsAre(Ge(5ms), Ge(10ms), Ge(32ms), Ge(35ms))) << "missed beats are made up for once";
}

TEST(Clock, SleepsUnlessStopped) {
    const auto start = Clock::now();
    clock::sleep(20ms);
    EXPECT_GE(Clock::now() - start, 20ms);
    const std::jthread sleeper(
        [](const std::stop_token& stop) { clock::sleep(std::chrono::nanoseconds::max(), stop); });
}

} // namespace
