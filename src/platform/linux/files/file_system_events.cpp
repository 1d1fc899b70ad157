#include "platform/file_system_events.h"

#include "foundation/diagnostics.h"
#include "platform/linux/files/trash_folders.h"
#include "platform/linux/files/watched_folders.h"
#include "platform/linux/loop/event_loop.h"

#include <algorithm>
#include <fcntl.h>

namespace platform {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

/// Between two looks for the folders: whoever may rename one on the way to them can do so without pause.
constexpr milliseconds lookPause{100};

/// Users can make the system lose events without pause, too, so recoveries take a tenth of the time at most.
constexpr int recoveryShare = 10;
constexpr milliseconds leastRecoveryPause{20};

/// Until what the system had no means for is tried again.
constexpr std::chrono::seconds retryPause{10};

/// When this many moves wait, the older half of them is handed on early.
constexpr std::size_t mostMoves = std::size_t{1} << 14;

} // namespace

struct FileSystemEventStream::State {
    State(RunLoop& runLoop, const std::vector<std::string>& paths, milliseconds batchLatency, Callback whenDue)
        : source(runLoop)
        , loop(eventLoop(runLoop))
        , folders(withDesktopTrashes(paths))
        , latency(batchLatency)
        , callback(std::move(whenDue)) {
        watchWays();
        retryMissed();
    }

    /// What ends early, most likely for want of memory, is made up for by a look and a recovery.
    template <typename Work>
    void attempt(Work work) {
        try {
            work();
        } catch (const std::exception&) {
            nextLook = nextRecovery = Clock::now() + retryPause;
            scheduleLook(true);
            scheduleRecovery();
            scheduleDelivery();
            throw;
        }
    }

    void read() {
        folders.readMoves();
        if (folders.isAnyGone()) {
            scheduleLook(false);
        }
        if (folders.hasLostEvents()) {
            scheduleRecovery();
        }
        if (folders.queue().size() >= mostMoves) {
            handOn(mostMoves / 2);
        }
        scheduleDelivery();
    }

    void scheduleRecovery() {
        if (!std::exchange(isRecoveryDue, true)) {
            recovery.fireAt(std::max(nextRecovery, Clock::now()));
        }
    }

    void watchWays() {
        onWays = loop.onReadable(folders.ways(), [this] { scheduleLook(false); });
    }

    /// Until the look nothing is read from the ways, so that a flood of events there costs no more than the looks do.
    void scheduleLook(bool always) {
        lookAlways = lookAlways || always;
        onWays = {};
        if (!std::exchange(isLookDue, true)) {
            look.fireAt(std::max(nextLook, Clock::now()));
        }
    }

    void lookForFolders() {
        const auto begin = Clock::now();
        isLookDue = false;
        watchWays();
        folders.find(std::exchange(lookAlways, false));
        const auto end = Clock::now();
        nextLook = end + std::max<Clock::duration>(lookPause, end - begin);
        retryMissed();
    }

    void retryMissed() {
        if (folders.isAnyMissed()) {
            retry.fireAfter(retryPause);
        }
    }

    void recover() {
        const auto begin = Clock::now();
        isRecoveryDue = false;
        folders.recover();
        const auto end = Clock::now();
        nextRecovery = end + std::max<Clock::duration>(leastRecoveryPause, recoveryShare * (end - begin));
        retryMissed();
        scheduleDelivery();
    }

    void scheduleDelivery() {
        if (!folders.queue().empty() && !isDeliveryDue) {
            isDeliveryDue = true;
            delivery.fireAt(folders.queue().oldest() + latency);
        }
    }

    void deliver() {
        isDeliveryDue = false;
        const auto due = Clock::now() - latency;
        while (!folders.queue().empty() && folders.queue().oldest() <= due) {
            handOn(1);
        }
        scheduleDelivery();
    }

    void handOn(std::size_t moves) {
        for (; moves > 0 && !folders.queue().empty(); --moves) {
            callback(folders.take());
        }
    }

    RunLoop::Source source;
    EventLoop& loop;
    WatchedFolders folders;
    const milliseconds latency;
    const Callback callback;
    Clock::time_point nextLook;
    Clock::time_point nextRecovery;
    bool lookAlways = false;
    bool isLookDue = false;
    bool isDeliveryDue = false;
    bool isRecoveryDue = false;
    /// The mount table: a file system that comes or goes may bring, cover or take a folder.
    Descriptor mounts{::open("/proc/self/mountinfo", O_RDONLY | O_CLOEXEC)};
    EventSource delivery = loop.timer(milliseconds(1), [this] { attempt([this] { deliver(); }); });
    EventSource recovery = loop.timer(milliseconds(1), [this] { attempt([this] { recover(); }); });
    EventSource look = loop.timer(milliseconds(1), [this] { attempt([this] { lookForFolders(); }); });
    EventSource retry = loop.timer(milliseconds(1), [this] { scheduleLook(true); });
    EventSource onMoves = loop.onReadable(folders.moves(), [this] { attempt([this] { read(); }); });
    EventSource onMounts = loop.onPriority(mounts.get(), [this] { scheduleLook(true); });
    EventSource onWays;
};

FileSystemEventStream::FileSystemEventStream(RunLoop& loop, const std::vector<std::string>& paths, milliseconds latency,
                                             Callback callback)
    : state_(std::make_unique<State>(loop, paths, latency, std::move(callback))) {}

FileSystemEventStream::~FileSystemEventStream() {
    diagnostics::contain("file-system events", [this] {
        state_->folders.readMoves();
        state_->handOn(mostMoves);
    });
}

} // namespace platform
