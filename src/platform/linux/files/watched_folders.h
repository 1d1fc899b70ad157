// Watches a few folders by inotify, finds them again when they are replaced, and puts the renames of their direct
// entries together as moves.
#pragma once

#include "foundation/limited_report.h"
#include "platform/file_system_events.h"
#include "platform/linux/files/descriptor.h"
#include "platform/linux/files/listing.h"
#include "platform/linux/files/mounts.h"
#include "platform/linux/files/move_queue.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

struct inotify_event;

namespace platform {

/// A folder to watch, and the path under which its entries are told.
struct WatchedFolder {
    std::string path;
    std::string place;
    /// Watched only as long as the folder with that number is missing.
    std::optional<std::size_t> standsInFor = {};
};

/// For one thread. It owns its descriptors and watches.
class WatchedFolders {
  public:
    /// Absolute paths, HAVREL_ROOT not included. Throws Exception when the system grants no more inotify instances.
    explicit WatchedFolders(const std::vector<WatchedFolder>& folders);

    /// Readable when there is something for `readMoves` to do.
    int moves() const { return moves_.get(); }

    /// Readable when a folder on the way to a watched one changed: `find` is due.
    int ways() const { return ways_.get(); }

    /// Reads a bounded number of events; the descriptor stays readable while there are more.
    void readMoves();
    /// Looks the folders up by their paths again; unless `always`, only if something on the ways to them concerns them.
    /// `ways` stays readable if it holds more than a bounded number of events.
    void find(bool always);

    /// Whether a watched folder is gone, so that `find` is due.
    bool isAnyGone() const { return isAnyGone_; }

    /// Whether the system dropped events that `recover` makes up for.
    bool hasLostEvents() const { return hasLostEvents_; }

    /// Compares what is in the folders now with what was there. Looks them up, too.
    void recover();

    /// Whether a folder may go unwatched for want of watches or descriptors, so that `find` is worth another try later.
    bool isAnyMissed() const { return isAnyMissed_; }

    MoveQueue& queue() { return queue_; }

    /// The oldest move of the queue, as the events of one batch.
    std::vector<FileSystemEvent> take();

  private:
    struct Folder : WatchedFolder {
        int watch = -1;
        /// The folder itself, to tell it from another one that took its place.
        std::optional<Item> self = {};
    };

    void findFolder(std::size_t index);
    bool isWanted(const Folder& folder) const;
    bool watchWays();
    void watchWay(const std::string& path, std::uint32_t events);
    void release(std::size_t index);
    void handle(const inotify_event& event);
    void handleRename(const inotify_event& event, const Place& place);
    void lookAtTouched();
    void list(std::size_t index, const Descriptor& folder);
    std::string pathOf(const Place& place) const;

    Descriptor moves_;
    Descriptor ways_;
    Mounts mounts_;
    std::vector<Folder> folders_;
    std::map<int, std::size_t> watches_;
    std::set<int> wayWatches_;
    /// The next names on the ways to missing folders.
    std::set<std::string, std::less<>> awaitedNames_;

    MoveQueue queue_;
    Listing listing_;
    /// Places named by the events just read; what stands there is asked once for all of them.
    std::set<Place> touched_;

    // A recovery may find moves whose events are still in the queue, unread; read later, they would tell the same moves
    // again. So these moves are skipped until the events from before the recovery have all been read.

    /// Where the moves that the recovery found began.
    std::set<Place> told_;
    /// The cookies of the sources skipped so far; their destinations have to be skipped, too.
    std::set<std::uint32_t> toldCookies_;
    /// How much of the events from before the recovery is left to read.
    std::int64_t unreadBytes_ = 0;

    bool isAnyGone_ = false;
    bool isAnyMissed_ = false;
    bool hasLostEvents_ = false;
    LimitedReport reportLoss_{1};
    LimitedReport reportLimit_{1};
};

} // namespace platform
