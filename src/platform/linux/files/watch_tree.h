// What inotify tells about one folder each, put together to renames in whole trees.
#pragma once

#include "foundation/limited_report.h"
#include "platform/file_system_events.h"
#include "platform/linux/files/descriptor.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

struct inotify_event;

namespace platform {

/// For one thread. It owns its descriptors and watches.
class WatchTree {
  public:
    /// How long the second half of a rename may take: the kernel queues both in one go, and only a reader between the
    /// two sees one alone.
    static constexpr std::chrono::milliseconds renameGrace{20};

    /// Absolute paths, HAVREL_ROOT not included.
    explicit WatchTree(const std::vector<std::string>& roots);

    /// Readable when there is something for `readEvents` to do.
    int descriptor() const { return inotify_.get(); }

    /// The same for `readAncestors`: the folders on the way to the roots, in which a missing one may come into being
    /// and which may be renamed.
    int ancestorDescriptor() const { return ancestors_.get(); }

    /// Reads a bounded number of events; the descriptor stays readable while there are more.
    void readEvents();
    /// Finds the roots anew, unless nothing has happened but that names of no interest came up beside the ways to them.
    void readAncestors();

    /// Whether the system dropped events that `recover` makes up for.
    bool hasLostEvents() const { return lostEvents_; }

    /// Scans the whole tree again: folders found elsewhere than before are changes.
    void recover();

    bool hasChanges() const { return !changes_.empty(); }

    /// Whether the changes should not wait any longer.
    bool isFull() const;
    /// Whether the other half of a rename may still be on its way.
    bool isHalfwayThroughARename() const;
    /// The renames since the last call, as events. A folder that has not turned up again was moved out of sight. When
    /// there are many, one may be kept for the next call, of which only the first half has been read.
    std::vector<FileSystemEvent> takeEvents();

  private:
    /// A watched folder. A root has no parent and its whole path for a name.
    struct Node {
        int parent = -1;
        std::string name;
        /// Whose share of the watches it takes: the root's under which it was found.
        std::size_t root = 0;
        std::map<std::string, int, std::less<>> children;
    };

    using Nodes = std::unordered_map<int, Node>;
    /// A watched folder and a name in it.
    using Place = std::pair<int, std::string>;

    struct Change {
        std::string source;
        std::string destination;
        bool isFolder = false;
        std::chrono::steady_clock::time_point seen;
    };

    /// A move whose second half may follow. It has no change when that has been told already, and no folder (-1) when
    /// that is unknown.
    struct Move {
        std::optional<std::size_t> change;
        int folder = -1;
    };

    struct Root {
        std::string path;
        int watch = -1;
        /// Those that take its share; it does not count itself.
        std::size_t folders = 0;
    };

    void verifyRoots();
    void findRoot(std::size_t index);
    bool watchWaysToRoots();
    void handle(const inotify_event& event);
    void handleMoveFrom(const inotify_event& event);
    void handleMoveTo(const inotify_event& event);
    std::size_t tell(std::string source, std::string destination, bool isFolder);
    void complete(std::size_t change, std::string destination);
    void tellForeseen(const Nodes& before);

    static std::string pathOf(const Nodes& nodes, int watch);
    static std::string pathIn(const Nodes& nodes, const Place& place);

    std::string pathOf(int watch) const { return pathOf(nodes_, watch); }

    std::string pathIn(const Place& place) const { return pathIn(nodes_, place); }

    int takeFrom(int parent, const std::string& name);
    std::size_t depthOf(int watch) const;
    bool isInside(int watch, int folder) const;
    bool isWithinBounds(const Place& place) const;
    int watchFolder(const Descriptor& folder, std::uint32_t events, bool mayGrow);
    void add(int watch, int parent, const std::string& name, std::size_t root);
    void relocate(int watch, int parent, const std::string& name);
    void settleFolder(const Descriptor& parentFolder, int parent, const std::string& name, int expected);
    void scanNewFolders();
    void detach(int watch);
    void forget(int watch);

    Descriptor inotify_;
    Descriptor ancestors_;
    std::set<int> ancestorWatches_;
    /// Those whose coming into being may bring a missing root.
    std::set<std::string, std::less<>> awaitedNames_;
    std::vector<Root> roots_;
    /// How many folders each root may have watched.
    std::size_t share_ = 0;
    Nodes nodes_;
    /// Added and not looked into yet, the shallowest first.
    std::deque<int> newFolders_;
    std::vector<Change> changes_;
    std::size_t changeBytes_ = 0;
    /// By the kernel's cookie.
    std::map<std::uint32_t, Move> moves_;
    /// Folders moved away and not seen again yet, with the index of the change that lacks a destination, or none.
    std::unordered_map<int, std::optional<std::size_t>> unplaced_;
    /// Folders found elsewhere before their move was read, by the place that they will be said to have left.
    std::map<Place, int> foreseen_;
    /// Places whose folders a recovery has told to have left: should the system still say so, that is no news.
    std::set<Place> told_;
    bool lostEvents_ = false;
    LimitedReport reportLoss_{1};
    bool reportedLimit_ = false;
};

} // namespace platform
