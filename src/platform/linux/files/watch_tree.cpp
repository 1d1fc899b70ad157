// inotify watches single folders and names what happens in them; what this adds is the tree. A folder is known by
// its watch, which follows the folder wherever it is moved, and its path is put together from its parents' names.
//
// Events tell of the past while the file system shows the present. Therefore, whenever an event says that a folder
// came to a place, that place is opened and whatever folder is really there is put there in the tree: however many
// moves are still to be read, the last one leaves the tree as it is on disk. A folder that moved into a folder not yet
// watched is found by the scan of that folder, and its move is completed then.
//
// Some of the trees belong to users who may fill them with anything, at any pace. So the depth of the tree, the length
// of its paths and what waits to be told are bounded, and each root has a share of the watches that nobody else can use
// up. What lies beyond the bounds counts as outside the watched folders.
#include "platform/linux/files/watch_tree.h"

#include "foundation/diagnostics.h"
#include "foundation/error.h"
#include "foundation/value.h"
#include "platform/linux/files/folders.h"
#include "platform/linux/files/system_files.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <climits>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <sys/inotify.h>

namespace platform {

namespace {

// Added to what a folder is watched for already: a root may lie inside another one.
constexpr std::uint32_t treeEvents =
    IN_CREATE | IN_MOVED_FROM | IN_MOVED_TO | IN_ONLYDIR | IN_EXCL_UNLINK | IN_MASK_ADD;
constexpr std::uint32_t rootEvents = treeEvents | IN_DELETE_SELF | IN_MOVE_SELF;
constexpr std::uint32_t goneEvents = IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT | IN_IGNORED;
constexpr std::uint32_t wayEvents = IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;
constexpr std::uint32_t arrivalEvents = IN_CREATE | IN_MOVED_TO;

/// Deeper folders, those with a longer path, and more of them go unwatched.
constexpr std::size_t deepestFolder = 128;
constexpr std::size_t longestPath = PATH_MAX;
constexpr std::size_t mostFolders = std::size_t{1} << 16;

/// A storm of renames is handed over before it fills the memory.
constexpr std::size_t mostChanges = std::size_t{1} << 14;
constexpr std::size_t mostChangeBytes = std::size_t{4} << 20;

/// How often a missing root is looked for anew because its path grew while the watch for that was being set.
constexpr int mostLooks = 16;

/// One event with the longest name must fit; more save system calls in a storm.
constexpr std::size_t eventBuffer = std::size_t{64} << 10;

Descriptor newInotify() { return Descriptor(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)); }

Descriptor openFolderAt(int parent, const char* name) {
    return Descriptor(::openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
}

/// The descriptor's folder itself is watched, whatever its path leads to by now.
int addWatch(int inotify, const Descriptor& folder, std::uint32_t events) {
    const std::string path = "/proc/self/fd/" + std::to_string(folder.get());
    return ::inotify_add_watch(inotify, path.c_str(), events);
}

/// Calls `visit` with the name of each folder in the folder, until it returns false.
template <typename Visit>
void forEachFolderIn(const Descriptor& folder, Visit visit) {
    Descriptor listed = openFolderAt(folder.get(), ".");
    const std::unique_ptr<DIR, int (*)(DIR*)> stream(::fdopendir(listed.get()), ::closedir);
    if (!stream) {
        return;
    }
    listed.release();
    bool goesOn = true;
    for (const dirent* entry = nullptr; goesOn && (entry = ::readdir(stream.get())) != nullptr;) {
        const std::string_view name = entry->d_name;
        const bool mayBeFolder = entry->d_type == DT_DIR || entry->d_type == DT_UNKNOWN;
        goesOn = !mayBeFolder || name == "." || name == ".." || visit(std::string(name));
    }
}

/// Calls `use` with each event of one read, which does not block. Whether there was room for more events.
template <typename Use>
bool readOnce(int inotify, Use use) {
    alignas(inotify_event) std::array<char, eventBuffer> buffer{};
    const ssize_t size = ::read(inotify, buffer.data(), buffer.size());
    for (ssize_t offset = 0; offset < size;) {
        const auto* event = reinterpret_cast<const inotify_event*>(buffer.data() + offset);
        use(*event);
        offset += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
    }
    return size < static_cast<ssize_t>(eventBuffer - sizeof(inotify_event) - NAME_MAX - 1);
}

/// A quarter of what the system grants is enough for one daemon.
std::size_t watchesForAll() {
    const std::string text = readSystemFile("/proc/sys/fs/inotify/max_user_watches").value_or("");
    std::size_t granted = 4 * mostFolders;
    std::from_chars(text.data(), text.data() + text.size(), granted);
    return std::min(mostFolders, granted / 4);
}

} // namespace

WatchTree::WatchTree(const std::vector<std::string>& roots) : inotify_(newInotify()), ancestors_(newInotify()) {
    if (!inotify_ || !ancestors_) {
        throw Exception("file-system events: the system grants no more inotify instances");
    }
    for (const std::string& path : roots) {
        roots_.push_back({path});
    }
    share_ = watchesForAll() / std::max<std::size_t>(roots_.size(), 1);
    verifyRoots();
}

void WatchTree::verifyRoots() {
    readOnce(ancestors_.get(), [](const inotify_event&) {});
    for (int looks = 0; looks < mostLooks; ++looks) {
        for (std::size_t index = 0; index < roots_.size(); ++index) {
            findRoot(index);
        }
        if (!watchWaysToRoots()) {
            break;
        }
    }
    scanNewFolders();
}

/// Watches the folder that is the root now; the one that was it may have left with a folder above it.
void WatchTree::findRoot(std::size_t index) {
    Root& root = roots_[index];
    const Descriptor folder = openFolder(root.path);
    int watch = folder ? watchFolder(folder, rootEvents, true) : -1;
    if (watch == root.watch) {
        return;
    }
    forget(root.watch);
    if (const auto known = nodes_.find(watch); known != nodes_.end()) {
        if (known->second.parent < 0) {
            return; // another root's until that has been looked for
        }
        forget(watch);
        watch = watchFolder(folder, rootEvents, true);
    }
    root.watch = watch;
    if (watch >= 0) {
        add(watch, -1, root.path, index);
    }
}

/// Watches the folders above the roots for being moved, and the nearest one above a missing root for what comes into
/// being there. Whether the next one has appeared meanwhile.
bool WatchTree::watchWaysToRoots() {
    std::map<std::string, std::uint32_t> wanted;
    std::vector<std::string> awaited;
    for (const Root& root : roots_) {
        bool isMissing = root.watch < 0;
        for (std::string path = root.path; path.size() > 1;) {
            std::string next = path;
            path.resize(std::max<std::size_t>(path.rfind('/'), 1));
            wanted[path] |= wayEvents;
            if (isMissing && openFolder(path)) {
                wanted[path] |= arrivalEvents;
                awaited.push_back(std::move(next));
                isMissing = false;
            }
        }
    }
    awaitedNames_.clear();
    for (const std::string& path : awaited) {
        awaitedNames_.insert(path.substr(path.rfind('/') + 1));
    }
    const std::set<int> outdated = std::exchange(ancestorWatches_, {});
    for (const auto& [path, events] : wanted) {
        if (const Descriptor folder = openFolder(path)) {
            ancestorWatches_.insert(addWatch(ancestors_.get(), folder, events));
        }
    }
    for (const int watch : outdated) {
        if (!ancestorWatches_.contains(watch)) {
            ::inotify_rm_watch(ancestors_.get(), watch);
        }
    }
    return std::any_of(awaited.begin(), awaited.end(),
                       [](const auto& path) { return static_cast<bool>(openFolder(path)); });
}

void WatchTree::readAncestors() {
    bool concernsRoots = false;
    readOnce(ancestors_.get(), [&](const inotify_event& event) {
        const bool isArrival = (event.mask & arrivalEvents) != 0;
        concernsRoots = concernsRoots || !isArrival || awaitedNames_.contains(event.name);
    });
    if (concernsRoots) {
        verifyRoots();
    }
}

void WatchTree::readEvents() {
    const bool readAll = readOnce(inotify_.get(), [&](const inotify_event& event) {
        if ((event.mask & IN_Q_OVERFLOW) != 0) {
            lostEvents_ = true;
        } else if (nodes_.contains(event.wd)) {
            handle(event);
            scanNewFolders();
        }
    });
    if (readAll) {
        told_.clear();
    }
}

void WatchTree::handle(const inotify_event& event) {
    if ((event.mask & goneEvents) != 0) {
        const bool isRoot = nodes_.at(event.wd).parent < 0;
        forget(event.wd);
        if (isRoot) {
            verifyRoots();
        }
    } else if ((event.mask & IN_MOVED_FROM) != 0) {
        handleMoveFrom(event);
    } else if ((event.mask & IN_MOVED_TO) != 0) {
        handleMoveTo(event);
    } else if ((event.mask & IN_CREATE) != 0 && (event.mask & IN_ISDIR) != 0) {
        told_.erase({event.wd, event.name});
        settleFolder(openFolder(pathOf(event.wd)), event.wd, event.name, -1);
    }
}

std::size_t WatchTree::tell(std::string source, std::string destination, bool isFolder) {
    changeBytes_ += source.size() + destination.size();
    changes_.push_back({std::move(source), std::move(destination), isFolder, std::chrono::steady_clock::now()});
    return changes_.size() - 1;
}

void WatchTree::complete(std::size_t change, std::string destination) {
    changeBytes_ += destination.size();
    changes_[change].destination = std::move(destination);
}

void WatchTree::handleMoveFrom(const inotify_event& event) {
    const bool isFolder = (event.mask & IN_ISDIR) != 0;
    const Place place{event.wd, event.name};
    if (isFolder && told_.erase(place) > 0) {
        moves_[event.cookie] = {};
        return;
    }
    Move move{tell(pathIn(place), "", isFolder)};
    if (const auto early = foreseen_.find(place); early != foreseen_.end()) {
        move.folder = early->second;
        foreseen_.erase(early);
        complete(*move.change, pathOf(move.folder));
    } else if (isFolder) {
        move.folder = takeFrom(event.wd, event.name);
        if (move.folder >= 0) {
            unplaced_[move.folder] = move.change;
        }
    }
    moves_[event.cookie] = move;
}

void WatchTree::handleMoveTo(const inotify_event& event) {
    const bool isFolder = (event.mask & IN_ISDIR) != 0;
    const Place place{event.wd, event.name};
    Move move;
    if (const auto begun = moves_.find(event.cookie); begun != moves_.end()) {
        move = begun->second;
        moves_.erase(begun);
        if (move.change) {
            complete(*move.change, pathIn(place));
        }
        if (const auto unplaced = unplaced_.find(move.folder); unplaced != unplaced_.end()) {
            unplaced->second.reset();
        }
    } else {
        tell("", pathIn(place), isFolder);
    }
    if (isFolder) {
        told_.erase(place);
        settleFolder(openFolder(pathOf(event.wd)), event.wd, event.name, move.folder);
    }
}

/// Puts the folder that stands at the place into the tree; `expected`, when it is gone from there already or there are
/// no watches left to tell.
void WatchTree::settleFolder(const Descriptor& parentFolder, int parent, const std::string& name, int expected) {
    if (!isWithinBounds({parent, name})) {
        if (unplaced_.contains(expected)) {
            forget(expected);
        }
        return;
    }
    const std::size_t root = nodes_.at(parent).root;
    const Descriptor folder = parentFolder ? openFolderAt(parentFolder.get(), name.c_str()) : Descriptor();
    const int watch = folder ? watchFolder(folder, treeEvents, roots_[root].folders < share_) : -1;
    const int found = watch >= 0 ? watch : expected;
    if (nodes_.contains(found)) {
        relocate(found, parent, name);
    } else if (watch >= 0) {
        add(watch, parent, name, root);
    }
}

bool WatchTree::isWithinBounds(const Place& place) const {
    return !pathIn(place).empty() && depthOf(place.first) < deepestFolder;
}

int WatchTree::watchFolder(const Descriptor& folder, std::uint32_t events, bool mayGrow) {
    const int watch = mayGrow ? addWatch(inotify_.get(), folder, events) : -1;
    if (!reportedLimit_ && (!mayGrow || (watch < 0 && errno == ENOSPC))) {
        reportedLimit_ = true;
        diagnostics::report("file-system events: there are no more watches, some folders go unwatched");
    }
    return watch;
}

void WatchTree::add(int watch, int parent, const std::string& name, std::size_t root) {
    Node& node = nodes_[watch];
    node.parent = parent;
    node.name = name;
    node.root = root;
    if (parent >= 0) {
        nodes_.at(parent).children[name] = watch;
        ++roots_[root].folders;
    }
    newFolders_.push_back(watch);
}

/// A known folder turned up at a place. A root stays where it is, even when another root contains it.
void WatchTree::relocate(int watch, int parent, const std::string& name) {
    if (nodes_.at(watch).parent < 0 || isInside(parent, watch)) {
        return;
    }
    Node& node = nodes_.at(watch);
    const bool isKnownElsewhere = !unplaced_.contains(watch) && (node.parent != parent || node.name != name);
    if (isKnownElsewhere) {
        foreseen_[{node.parent, node.name}] = watch;
    }
    detach(watch);
    node.parent = parent;
    node.name = name;
    nodes_.at(parent).children[name] = watch;
    if (const auto unplaced = unplaced_.find(watch); unplaced != unplaced_.end()) {
        if (unplaced->second) {
            complete(*unplaced->second, pathOf(watch));
        }
        unplaced_.erase(unplaced);
    }
}

void WatchTree::scanNewFolders() {
    while (!newFolders_.empty()) {
        const int watch = newFolders_.front();
        newFolders_.pop_front();
        const Descriptor folder = openFolder(pathOf(watch));
        forEachFolderIn(folder, [&](const std::string& name) {
            const Root& root = roots_[nodes_.at(watch).root];
            const bool hasRoom = root.folders < share_;
            settleFolder(folder, watch, name, -1); // without room it says so, once
            return hasRoom;
        });
    }
}

void WatchTree::detach(int watch) {
    const Node& node = nodes_.at(watch);
    const auto parent = nodes_.find(node.parent);
    if (parent == nodes_.end()) {
        return;
    }
    const auto entry = parent->second.children.find(node.name);
    if (entry != parent->second.children.end() && entry->second == watch) {
        parent->second.children.erase(entry);
    }
}

void WatchTree::forget(int watch) {
    std::vector<int> doomed{watch};
    while (!doomed.empty()) {
        const int next = doomed.back();
        doomed.pop_back();
        const auto node = nodes_.find(next);
        if (node == nodes_.end()) {
            continue;
        }
        for (const auto& [name, child] : node->second.children) {
            doomed.push_back(child);
        }
        if (node->second.parent >= 0) {
            --roots_[node->second.root].folders;
        }
        detach(next);
        ::inotify_rm_watch(inotify_.get(), next);
        unplaced_.erase(next);
        nodes_.erase(node);
    }
    for (Root& root : roots_) {
        if (!nodes_.contains(root.watch)) {
            root.watch = -1;
        }
    }
}

bool WatchTree::isFull() const { return changes_.size() >= mostChanges || changeBytes_ >= mostChangeBytes; }

bool WatchTree::isHalfwayThroughARename() const {
    const auto recent = std::chrono::steady_clock::now() - renameGrace;
    for (auto change = changes_.rbegin(); change != changes_.rend() && change->seen > recent; ++change) {
        if (change->destination.empty()) {
            return true;
        }
    }
    return false;
}

std::vector<FileSystemEvent> WatchTree::takeEvents() {
    // In a storm the reading stops anywhere: a move cut in two there waits for its other half.
    std::vector<Change> kept;
    if (isFull() && isHalfwayThroughARename() && changes_.back().destination.empty()) {
        kept.push_back(std::move(changes_.back()));
        changes_.pop_back();
    }
    std::vector<FileSystemEvent> events;
    for (Change& change : changes_) {
        const std::uint32_t flags = itemRenamed | (change.isFolder ? itemIsDir : itemIsFile);
        for (std::string* path : {&change.source, &change.destination}) {
            if (!path->empty()) {
                events.push_back({std::move(*path), flags});
            }
        }
    }
    // The kept change comes first from now on; what else waits for a second half has been told.
    const std::size_t told = std::exchange(changes_, std::move(kept)).size();
    const auto isKept = [&](std::optional<std::size_t> change) { return change == told && !changes_.empty(); };
    changeBytes_ = changes_.empty() ? 0 : changes_.front().source.size();
    std::erase_if(moves_, [&](const auto& move) { return !isKept(move.second.change); });
    for (auto& [cookie, move] : moves_) {
        move.change = 0;
    }
    foreseen_.clear();
    for (const auto& [watch, change] : std::exchange(unplaced_, {})) {
        if (isKept(change)) {
            unplaced_[watch] = 0;
        } else {
            forget(watch);
        }
    }
    return events;
}

/// A folder keeps its watch wherever it is moved, so the new tree can be compared with the old one. Moves of which one
/// half has been read are completed.
void WatchTree::recover() {
    reportLoss_("file-system events: the system lost some, scanning the watched folders again");
    const Nodes before = std::exchange(nodes_, {});
    const auto unplaced = std::exchange(unplaced_, {});
    for (Root& root : roots_) {
        root.watch = -1;
        root.folders = 0;
    }
    verifyRoots();
    for (const auto& [watch, old] : before) {
        const auto node = nodes_.find(watch);
        if (node == nodes_.end()) {
            ::inotify_rm_watch(inotify_.get(), watch);
        } else if (const auto moved = unplaced.find(watch); moved != unplaced.end()) {
            if (moved->second) {
                complete(*moved->second, pathOf(watch));
            }
        } else if (old.parent >= 0 && node->second.parent >= 0 &&
                   (old.parent != node->second.parent || old.name != node->second.name)) {
            foreseen_[{old.parent, old.name}] = watch;
        }
    }
    tellForeseen(before);
    lostEvents_ = false;
}

/// In the order in which their folders came to be watched, which is from the roots down, until there is enough to tell.
void WatchTree::tellForeseen(const Nodes& before) {
    told_.clear();
    for (const auto& [place, watch] : std::exchange(foreseen_, {})) {
        if (nodes_.contains(watch) && !isFull()) {
            tell(pathIn(before, place), pathOf(watch), true);
            told_.insert(place);
        }
    }
}

std::size_t WatchTree::depthOf(int watch) const {
    std::size_t depth = 0;
    for (auto node = nodes_.find(watch); node != nodes_.end(); node = nodes_.find(node->second.parent)) {
        ++depth;
    }
    return depth;
}

bool WatchTree::isInside(int watch, int folder) const {
    for (auto node = nodes_.find(watch); node != nodes_.end(); node = nodes_.find(node->second.parent)) {
        if (node->first == folder) {
            return true;
        }
    }
    return false;
}

/// Empty when it is too long.
std::string WatchTree::pathOf(const Nodes& nodes, int watch) {
    std::vector<const std::string*> names;
    std::size_t length = 0;
    for (auto node = nodes.find(watch); node != nodes.end(); node = nodes.find(node->second.parent)) {
        names.push_back(&node->second.name);
        length += node->second.name.size() + 1;
        if (length > longestPath) {
            return {};
        }
    }
    std::string path;
    std::reverse(names.begin(), names.end());
    for (const std::string* name : names) {
        path += path.empty() ? *name : "/" + *name;
    }
    return path;
}

/// Empty when it is too long.
std::string WatchTree::pathIn(const Nodes& nodes, const Place& place) {
    const std::string folder = pathOf(nodes, place.first);
    const bool fits = !folder.empty() && folder.size() + 1 + place.second.size() < longestPath;
    return fits ? folder + "/" + place.second : std::string();
}

/// The folder known at that place, which it has left; -1 when there is none.
int WatchTree::takeFrom(int parent, const std::string& name) {
    auto& children = nodes_.at(parent).children;
    const auto child = children.find(name);
    if (child == children.end()) {
        return -1;
    }
    const int watch = child->second;
    children.erase(child);
    return watch;
}

} // namespace platform
