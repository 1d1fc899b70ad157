// Queues of operations.
#include "foundation/error.h"
#include "foundation/operation_queue.h"
#include "support/thread_shortage.h"
#include "trial/support/wait.h"

#include <algorithm>
#include <atomic>
#include <gmock/gmock.h>
#include <thread>

namespace {

using namespace platform;
using testing::ElementsAre;

TEST(OperationQueue, DoesOneAfterTheOtherWhateverOneThrows) {
    std::vector<int> done;
    OperationQueue queue(1);
    for (int i = 0; i < 3; ++i) {
        queue.addOperation([&done, i] {
            done.push_back(i);
            throw Exception("ends this task only");
        });
    }
    ASSERT_TRUE(trial::eventually([&] { return queue.operationCount() == 0; }));
    EXPECT_THAT(done, ElementsAre(0, 1, 2));
}

/// Runs until it is cancelled, and long enough for another thread to come and go.
struct SlowToEnd : Operation {
    std::atomic<bool> runs = false;
    std::atomic<bool> ended = false;

    void main() override {
        runs = true;
        while (!isCancelled()) {
            std::this_thread::yield();
        }
        std::thread([] {}).join();
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

} // namespace
