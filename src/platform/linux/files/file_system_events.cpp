#include "platform/file_system_events.h"

#include "platform/linux/files/watch_tree.h"
#include "platform/linux/loop/event_loop.h"

#include <algorithm>

namespace platform {

namespace {

/// Whoever can make the system lose events can do so again and again, and a scan of all folders is dear.
constexpr std::chrono::seconds recoveryPause{5};

} // namespace

struct FileSystemEventStream::State {
    State(RunLoop& loop, const std::vector<std::string>& paths, std::chrono::milliseconds batchLatency,
          Callback whenDue)
        : source(loop)
        , tree(paths)
        , latency(batchLatency)
        , callback(std::move(whenDue))
        , delivery(eventLoop(loop).timer(std::chrono::milliseconds(1), [this] { deliver(); }))
        , recovery(eventLoop(loop).timer(std::chrono::milliseconds(1), [this] { recover(); }))
        , events(eventLoop(loop).onReadable(tree.descriptor(), [this] { read(&WatchTree::readEvents); }))
        , ancestors(
              eventLoop(loop).onReadable(tree.ancestorDescriptor(), [this] { read(&WatchTree::readAncestors); })) {}

    void read(void (WatchTree::*what)()) {
        (tree.*what)();
        if (tree.hasLostEvents() && !isRecoveryDue) {
            isRecoveryDue = true;
            recovery.fireAt(std::max(nextRecovery, Clock::now()));
        }
        if (tree.isFull()) {
            deliver(); // before more is read
        } else if (tree.hasChanges() && !isDeliveryDue) {
            isDeliveryDue = true;
            delivery.fireAfter(latency);
        }
    }

    void recover() {
        isRecoveryDue = false;
        nextRecovery = Clock::now() + recoveryPause;
        read(&WatchTree::recover);
    }

    /// Waits once for the second half of a rename: there may always be another rename.
    void deliver() {
        if (!tree.isFull() && !isPostponed && tree.isHalfwayThroughARename()) {
            isPostponed = true;
            delivery.fireAfter(WatchTree::renameGrace);
            return;
        }
        isPostponed = false;
        isDeliveryDue = false;
        if (const auto batch = tree.takeEvents(); !batch.empty()) {
            callback(batch);
        }
        if (tree.hasChanges()) {
            isDeliveryDue = true;
            delivery.fireAfter(WatchTree::renameGrace);
        }
    }

    using Clock = std::chrono::steady_clock;

    RunLoop::Source source;
    WatchTree tree;
    std::chrono::milliseconds latency;
    Callback callback;
    Clock::time_point nextRecovery;
    bool isDeliveryDue = false;
    bool isPostponed = false;
    bool isRecoveryDue = false;
    EventSource delivery;
    EventSource recovery;
    EventSource events;
    EventSource ancestors;
};

FileSystemEventStream::FileSystemEventStream(RunLoop& loop, const std::vector<std::string>& paths,
                                             std::chrono::milliseconds latency, Callback callback)
    : state_(std::make_unique<State>(loop, paths, latency, std::move(callback))) {}

FileSystemEventStream::~FileSystemEventStream() = default;

} // namespace platform
