// Run loops, timers and queues, as far as their contracts don't cover them.
#include "foundation/error.h"
#include "foundation/operation_queue.h"
#include "foundation/serial_queue.h"
#include "platform/clock.h"
#include "platform/run_loop.h"
#include "platform/termination.h"
#include "support/thread_shortage.h"
#include "trial/support/wait.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <gmock/gmock.h>
#include <thread>
#include <unistd.h>

namespace {

using namespace platform;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::Ge;
using Task = std::function<void()>;

/// Hands three tasks to `add` that throw after they have noted their number in `done`.
void addThrowingTasks(std::vector<int>& done, const std::function<void(Task)>& add) {
    for (int i = 0; i < 3; ++i) {
        add([&done, i] {
            done.push_back(i);
            throw Exception("ends this task only");
        });
    }
}

TEST(RunLoop, DoesTasksInOrderWhateverOneThrows) {
    std::vector<int> done;
    RunLoop loop;
    addThrowingTasks(done, [&](Task task) { loop.perform(std::move(task)); });
    loop.run(); // returns when there is nothing left
    EXPECT_THAT(done, ElementsAre(0, 1, 2));
}

TEST(SerialQueue, DoesTasksInOrderWhateverOneThrows) {
    std::vector<int> done;
    SerialQueue queue("test");
    addThrowingTasks(done, [&](Task task) { queue.async(std::move(task)); });
    queue.drain();
    EXPECT_THAT(done, ElementsAre(0, 1, 2));
}

TEST(OperationQueue, DoesOneAfterTheOtherWhateverOneThrows) {
    std::vector<int> done;
    OperationQueue queue(1);
    addThrowingTasks(done, [&](Task task) { queue.addOperation(std::move(task)); });
    ASSERT_TRUE(trial::eventually([&] { return queue.operationCount() == 0; }));
    EXPECT_THAT(done, ElementsAre(0, 1, 2));
}

/// Runs until it is cancelled, and a little longer.
struct SlowToEnd : Operation {
    std::atomic<bool> runs = false;
    std::atomic<bool> ended = false;

    void main() override {
        runs = true;
        while (!isCancelled()) {
            std::this_thread::yield();
        }
        clock::sleep(20ms);
        ended = true;
    }
};

TEST(OperationQueue, CancelsWhatRunsAndWaitsForItsEnd) {
    const auto operation = std::make_shared<SlowToEnd>();
    {
        OperationQueue queue(1);
        queue.addOperation(operation);
        ASSERT_TRUE(trial::eventually([&] { return operation->runs.load(); }));
    }
    EXPECT_TRUE(operation->ended);
}

TEST(OperationQueue, MakesLaterTheThreadsThatItCannotMakeNow) {
    constexpr std::size_t count = 100;
    std::atomic<std::size_t> done = 0;
    OperationQueue operations(2);
    testing::internal::CaptureStderr();
    {
        const support::ThreadShortage shortage;
        for (std::size_t i = 0; i < count; ++i) {
            operations.addOperation([&] { ++done; });
        }
        EXPECT_EQ(operations.operationCount(), count);
    }
    EXPECT_LE(std::ranges::count(testing::internal::GetCapturedStderr(), '\n'), 1);
    EXPECT_TRUE(trial::eventually([&] { return operations.operationCount() == 0; }));
    EXPECT_EQ(done, count);
}

TEST(RunLoop, StopsAfterTheCurrentCallback) {
    RunLoop loop;
    const RunLoop::Source source(loop);
    int done = 0;
    for (int i = 0; i < 2; ++i) {
        loop.perform([&] {
            ++done;
            loop.stop();
        });
    }
    loop.run();
    EXPECT_EQ(done, 1);
    loop.run();
    EXPECT_EQ(done, 2);
}

TEST(Termination, IsHandledOnAThreadOfItsOwnWhileTheMainThreadIsBusy) {
    GTEST_FLAG_SET(death_test_style, "threadsafe"); // the child begins anew, with no threads of this process's
    for (const int signal : {SIGTERM, SIGINT}) {
        const auto handleInAChild = [signal] {
            const auto mainThread = std::this_thread::get_id();
            termination::onRequest([mainThread] { std::_Exit(std::this_thread::get_id() == mainThread ? 1 : 0); });
            ::kill(::getpid(), signal);
            for (;;) {
                std::this_thread::yield();
            }
        };
        EXPECT_EXIT(handleInAChild(), testing::ExitedWithCode(0), "") << signal;
    }
}

TEST(RepeatingTimer, MakesUpForMissedBeatsOnce) {
    using Clock = std::chrono::steady_clock;
    RunLoop loop;
    std::vector<Clock::duration> calls;
    const auto start = Clock::now();
    const RepeatingTimer timer(loop, 5ms, [&] {
        calls.push_back(Clock::now() - start);
        while (calls.size() == 2 && Clock::now() - start < 32ms) {
            std::this_thread::yield(); // the beats from 15 to 30 ms pass
        }
        if (calls.size() == 4) {
            loop.stop();
        }
    });
    loop.run();
    EXPECT_THAT(calls, ElementsAre(Ge(5ms), Ge(10ms), Ge(32ms), Ge(35ms)));
}

} // namespace
