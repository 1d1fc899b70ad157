// Some of the folders belong to users, who may fill them with anything, at any pace, and put anything in their place.
// So nothing below a watched folder is ever looked into, what is remembered is bounded, and a file system that may not
// answer is not asked.
#include "platform/linux/files/watched_folders.h"

#include "foundation/error.h"
#include "platform/linux/files/folders.h"
#include "platform/linux/files/system_files.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace platform {

namespace {

constexpr std::uint32_t renames = IN_MOVED_FROM | IN_MOVED_TO;
constexpr std::uint32_t selfEvents = IN_DELETE_SELF | IN_MOVE_SELF;
constexpr std::uint32_t folderEvents = renames | IN_CREATE | IN_DELETE | selfEvents | IN_ONLYDIR;
constexpr std::uint32_t goneEvents = selfEvents | IN_UNMOUNT | IN_IGNORED;
constexpr std::uint32_t wayEvents = selfEvents | IN_ONLYDIR;
constexpr std::uint32_t arrivalEvents = IN_CREATE | IN_MOVED_TO;

/// How often to look again for a missing folder because its path grew while the watch for that was being set.
constexpr int mostLooks = 16;

/// One event with the longest name must fit; more save system calls in a storm.
constexpr std::size_t eventBuffer = std::size_t{64} << 10;

/// How often to read from the ways for one look, during which users may go on renaming.
constexpr int mostReads = 64;

Descriptor newInotify() { return Descriptor(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)); }

/// Watches the folder behind the descriptor, whatever its path leads to by now.
int addWatch(int inotify, const Descriptor& folder, std::uint32_t events) {
    const std::string path = "/proc/self/fd/" + std::to_string(folder.get());
    return ::inotify_add_watch(inotify, path.c_str(), events);
}

/// Nullopt when nothing of that name is there. An empty name stands for the folder itself.
std::optional<Item> itemAt(const Descriptor& folder, const char* name) {
    constexpr int flags = AT_EMPTY_PATH | AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT | AT_STATX_DONT_SYNC;

    struct statx facts {};

    if (::statx(folder.get(), name, flags, STATX_TYPE | STATX_INO | STATX_BTIME, &facts) != 0) {
        return std::nullopt;
    }
    const bool hasBirth = (facts.stx_mask & STATX_BTIME) != 0;
    return Item{.device = std::uint64_t{facts.stx_dev_major} << 32 | facts.stx_dev_minor,
                .inode = facts.stx_ino,
                .born = hasBirth ? facts.stx_btime.tv_sec * 1'000'000'000 + facts.stx_btime.tv_nsec : 0,
                .isFolder = S_ISDIR(facts.stx_mode)};
}

/// For reading the names in a folder that is open for its place alone.
FolderStream listed(const Descriptor& folder) {
    return streamOf(Descriptor(::openat(folder.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC)));
}

/// Calls `use` with each event of one read, which does not block. Returns how many bytes were read.
template <typename Use>
std::size_t readOnce(int inotify, Use use) {
    alignas(inotify_event) std::array<char, eventBuffer> buffer{};
    const ssize_t size = ::read(inotify, buffer.data(), buffer.size());
    for (ssize_t offset = 0; offset < size;) {
        const auto* event = reinterpret_cast<const inotify_event*>(buffer.data() + offset);
        use(*event);
        offset += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
    }
    return static_cast<std::size_t>(std::max<ssize_t>(size, 0));
}

} // namespace

WatchedFolders::WatchedFolders(const std::vector<WatchedFolder>& folders) : moves_(newInotify()), ways_(newInotify()) {
    if (!moves_ || !ways_) {
        throw Exception("file-system events: the system grants no more inotify instances");
    }
    for (const WatchedFolder& folder : folders) {
        folders_.push_back({folder});
    }
    find(true);
}

void WatchedFolders::find(bool always) {
    bool isConcerned = always || isAnyGone_;
    const auto look = [&](const inotify_event& event) {
        const bool isArrival = (event.mask & arrivalEvents) != 0;
        isConcerned = isConcerned || !isArrival || awaitedNames_.contains(event.name);
    };
    for (int reads = 0; reads < mostReads && readOnce(ways_.get(), look) > 0; ++reads) {
    }
    if (!isConcerned) {
        return;
    }
    isAnyGone_ = false;
    isAnyMissed_ = false;
    try {
        mounts_ = Mounts();
    } catch (const Exception& error) {
        reportLimit_(error.what()); // the mounts of the last look are better than none
        isAnyMissed_ = true;
    }
    for (int looks = 0; looks < mostLooks; ++looks) {
        for (std::size_t index = 0; index < folders_.size(); ++index) {
            findFolder(index);
        }
        if (!watchWays()) {
            break;
        }
    }
}

void WatchedFolders::findFolder(std::size_t index) {
    Folder& folder = folders_[index];
    errno = 0;
    const Descriptor found = isWanted(folder) ? mounts_.reach(folder.place) : Descriptor();
    const bool isShort = !found && isShortage(errno);
    const int watch = found ? addWatch(moves_.get(), found, folderEvents) : -1;
    if (isShort || (found && watch < 0)) {
        isAnyMissed_ = true;
        reportLimit_("file-system events: a folder may go unwatched, the system grants no more watches or descriptors");
    }
    if (isShort || watch == folder.watch) {
        return;
    }
    release(index);
    if (watch >= 0 && watches_.emplace(watch, index).second) {
        folder.watch = watch;
        folder.self = itemAt(found, "");
        list(index, found);
    }
}

bool WatchedFolders::isWanted(const Folder& folder) const {
    return !folder.standsInFor || folders_[*folder.standsInFor].watch < 0;
}

void WatchedFolders::release(std::size_t index) {
    Folder& folder = folders_[index];
    if (folder.watch >= 0) {
        watches_.erase(folder.watch);
        ::inotify_rm_watch(moves_.get(), folder.watch);
        folder.watch = -1;
        listing_.clear(index);
    }
}

/// Watches the folders above the watched ones for being moved, and the nearest existing one above a missing one for new
/// entries. True if the next folder on a way has appeared meanwhile.
bool WatchedFolders::watchWays() {
    std::set<std::string> ways;
    std::set<std::string> arrivals;
    std::vector<std::string> awaited;
    for (const Folder& folder : folders_) {
        bool isMissing = isWanted(folder) && folder.watch < 0;
        for (std::string path = folder.place; path.size() > 1;) {
            std::string next = path;
            path.resize(std::max<std::size_t>(path.rfind('/'), 1));
            ways.insert(path);
            if (isMissing && mounts_.reach(path)) {
                arrivals.insert(path);
                awaited.push_back(std::move(next));
                isMissing = false;
            }
        }
    }
    awaitedNames_.clear();
    for (const std::string& path : awaited) {
        awaitedNames_.insert(path.substr(path.rfind('/') + 1));
    }
    const std::set<int> outdated = std::exchange(wayWatches_, {});
    // The first pass resets what a folder was watched for, the second adds to it: two paths may lead to one folder.
    for (const std::string& path : ways) {
        watchWay(path, wayEvents);
    }
    for (const std::string& path : arrivals) {
        watchWay(path, arrivalEvents | IN_ONLYDIR | IN_MASK_ADD);
    }
    for (const int watch : outdated) {
        if (!wayWatches_.contains(watch)) {
            ::inotify_rm_watch(ways_.get(), watch);
        }
    }
    return std::any_of(awaited.begin(), awaited.end(),
                       [this](const std::string& path) { return static_cast<bool>(mounts_.reach(path)); });
}

void WatchedFolders::watchWay(const std::string& path, std::uint32_t events) {
    const Descriptor folder = mounts_.reach(path);
    const int watch = folder ? addWatch(ways_.get(), folder, events) : -1;
    if (watch >= 0) {
        wayWatches_.insert(watch);
    }
    isAnyMissed_ = isAnyMissed_ || (folder && watch < 0);
}

void WatchedFolders::readMoves() {
    const std::size_t size = readOnce(moves_.get(), [this](const inotify_event& event) { handle(event); });
    lookAtTouched();
    unreadBytes_ -= static_cast<std::int64_t>(size);
    if (unreadBytes_ <= 0) {
        told_.clear();
        toldCookies_.clear();
    }
}

void WatchedFolders::handle(const inotify_event& event) {
    if ((event.mask & IN_Q_OVERFLOW) != 0) {
        hasLostEvents_ = true;
        return;
    }
    const auto watch = watches_.find(event.wd);
    if (watch == watches_.end()) {
        return; // of a watch that has been given up
    }
    if ((event.mask & goneEvents) != 0) {
        release(watch->second);
        isAnyGone_ = true;
        return;
    }
    const Place place{watch->second, event.name};
    if ((event.mask & renames) != 0) {
        handleRename(event, place);
    } else if ((event.mask & IN_CREATE) != 0) {
        told_.erase(place);
    }
    touched_.insert(place);
}

void WatchedFolders::handleRename(const inotify_event& event, const Place& place) {
    const bool isFolder = (event.mask & IN_ISDIR) != 0;
    if ((event.mask & IN_MOVED_FROM) == 0) {
        told_.erase(place);
        if (toldCookies_.erase(event.cookie) == 0) {
            queue_.addDestination(event.cookie, place, isFolder);
        }
    } else if (told_.erase(place) > 0) {
        toldCookies_.insert(event.cookie);
    } else {
        queue_.addSource(event.cookie, place, isFolder, listing_.at(place));
    }
}

/// The events tell of the past, the file system shows the present: whatever stands at a place now is what is
/// remembered.
void WatchedFolders::lookAtTouched() {
    Descriptor folder;
    std::optional<std::size_t> opened;
    for (const Place& place : std::exchange(touched_, {})) {
        if (opened != place.folder) {
            opened = place.folder;
            folder = mounts_.reach(folders_[place.folder].place);
            if (folder && itemAt(folder, "") != folders_[place.folder].self) {
                folder.reset();
            }
        }
        listing_.set(place, folder ? itemAt(folder, place.name.c_str()) : std::nullopt);
    }
}

void WatchedFolders::list(std::size_t index, const Descriptor& folder) {
    const FolderStream names = listed(folder);
    while (const auto name = nextName(names)) {
        listing_.set({index, *name}, itemAt(folder, name->c_str()));
    }
}

void WatchedFolders::recover() {
    reportLoss_("file-system events: the system lost some, the watched folders are compared with what they held");
    const Listing before = std::exchange(listing_, {});
    find(true);
    for (std::size_t index = 0; index < folders_.size(); ++index) {
        if (const Descriptor folder =
                folders_[index].watch >= 0 ? mounts_.reach(folders_[index].place) : Descriptor()) {
            const FolderStream names = listed(folder);
            while (const auto name = nextName(names)) {
                const auto item = itemAt(folder, name->c_str());
                if (item && before.find(*item)) {
                    listing_.set({index, *name}, item);
                }
            }
            list(index, folder);
        }
    }
    told_.clear();
    for (const ItemMove& move : movesBetween(before, listing_)) {
        told_.insert(move.source);
        queue_.addWhole(move);
    }
    int unread = 0;
    ::ioctl(moves_.get(), FIONREAD, &unread);
    unreadBytes_ = unread;
    hasLostEvents_ = false;
}

std::vector<FileSystemEvent> WatchedFolders::take() {
    Move move = queue_.take();
    // A folder that moved to where nothing was watched yet, or whose arrival the system lost, may be in the listing.
    if (move.source && !move.destination && move.item) {
        const auto found = listing_.find(*move.item);
        if (found && found != move.source) {
            move.destination = found;
        } else if (hasLostEvents_) {
            listing_.set(*move.source, move.item);
        }
    }
    const std::uint32_t flags = itemRenamed | (move.isFolder ? itemIsDir : itemIsFile);
    std::vector<FileSystemEvent> batch;
    for (const auto& place : {move.source, move.destination}) {
        if (place) {
            batch.push_back({pathOf(*place), flags});
        }
    }
    return batch;
}

std::string WatchedFolders::pathOf(const Place& place) const { return folders_[place.folder].path + "/" + place.name; }

} // namespace platform
