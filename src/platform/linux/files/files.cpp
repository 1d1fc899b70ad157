// Between any two system calls a local user may exchange whatever lies in the product's folders for a link, a pipe or
// somebody else's file. So a path is walked once, name by name through descriptors, and links are followed only where
// nobody but the administrator can have made them. All work is then done on the folder that was reached and one name in
// it, and what was opened is judged by its descriptor.
#include "platform/files.h"

#include "foundation/deployment.h"
#include "foundation/diagnostics.h"
#include "foundation/error.h"
#include "foundation/format.h"
#include "foundation/text.h"
#include "platform/linux/files/descriptor.h"
#include "platform/linux/files/folders.h"
#include "platform/linux/files/system_files.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <dirent.h>
#include <fcntl.h>
#include <linux/openat2.h>
#include <memory>
#include <mutex>
#include <set>
#include <shared_mutex>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <system_error>
#include <unistd.h>

namespace platform::files {

namespace {

constexpr mode_t fileMode = 0644;
constexpr mode_t folderMode = 0755;
constexpr mode_t permissionBits = 0777;
constexpr mode_t othersMayWrite = S_IWGRP | S_IWOTH;

/// How many links a path may lead through, as for the kernel.
constexpr int mostLinks = 40;

/// What the names of temporary files begin with.
constexpr std::string_view temporaryPrefix = ".havrel-";

/// How many folders a walk holds open at once.
constexpr std::size_t deepestWalk = 128;

/// Held shared by each replacement, and exclusively from the end of the process on.
std::shared_mutex writes;

using Facts = struct stat;

/// Reports each line once on standard error. Paths may come from outside, so there are not many.
void reportOnce(const std::string& line) {
    constexpr std::size_t most = 64;
    static std::mutex mutex;
    static std::set<std::string> reported;
    const std::lock_guard lock(mutex);
    if (reported.size() < most && reported.insert(line).second) {
        diagnostics::report("files", line);
    }
}

/// Whether an error says nothing about the file itself.
bool isPassing(int error) { return isShortage(error) || error == EIO; }

/// What could not be read just now must not be taken for damaged: its reader would replace it.
void throwIfPassing(const std::string& path, int error) {
    if (isPassing(error)) {
        throw Exception(path + " can't be read at the moment: " + std::generic_category().message(error));
    }
}

template <typename Call>
auto retried(Call call) {
    auto result = call();
    while (result < 0 && errno == EINTR) {
        result = call();
    }
    return result;
}

Descriptor openAt(int folder, const std::string& name, int flags, mode_t mode = 0) {
    return Descriptor(
        retried([&] { return ::openat(folder, name.c_str(), flags | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY, mode); }));
}

/// Within the limits that `resolve` (RESOLVE_…) sets to the way there.
Descriptor openWithin(int folder, const std::string& path, int flags, std::uint64_t resolve) {
    open_how how{};
    how.flags = static_cast<std::uint64_t>(flags | O_CLOEXEC);
    how.resolve = resolve;
    return Descriptor(
        static_cast<int>(retried([&] { return ::syscall(SYS_openat2, folder, path.c_str(), &how, sizeof how); })));
}

Descriptor openRoot() {
    const std::string& root = deployment::settings().root;
    return Descriptor(::open(root.empty() ? "/" : root.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
}

Descriptor enter(const Descriptor& folder, const std::string& name) {
    return openAt(folder.get(), name, O_PATH | O_DIRECTORY);
}

/// The names on a path, without "." and empty ones.
std::vector<std::string> split(std::string_view path) {
    std::vector<std::string> names = text::split(path, "/");
    std::erase_if(names, [](const std::string& name) { return name.empty() || name == "."; });
    return names;
}

/// The same; nullopt when it is not absolute, has a ".." or a zero byte, where system calls would cut it.
std::optional<std::vector<std::string>> namesOn(std::string_view path) {
    auto names = split(path);
    const bool goesUp = std::find(names.begin(), names.end(), "..") != names.end();
    if (!path.starts_with('/') || goesUp || path.find('\0') != std::string_view::npos) {
        return std::nullopt;
    }
    return names;
}

bool belongsToRoot(const Facts& facts) { return facts.st_uid == 0 || facts.st_uid == ::geteuid(); }

bool onlyRootMayWrite(const Descriptor& folder) {
    Facts facts{};
    return ::fstat(folder.get(), &facts) == 0 && belongsToRoot(facts) && (facts.st_mode & othersMayWrite) == 0;
}

/// Where a link of root's leads; nullopt when it is something else.
std::optional<std::string> targetOf(const Descriptor& folder, const std::string& name) {
    const Descriptor link = openAt(folder.get(), name, O_PATH);
    Facts facts{};
    if (!link || ::fstat(link.get(), &facts) != 0 || !S_ISLNK(facts.st_mode) || !belongsToRoot(facts)) {
        return std::nullopt;
    }
    std::string target(PATH_MAX, '\0');
    const ssize_t length = ::readlinkat(link.get(), "", target.data(), target.size());
    target.resize(static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
    return target;
}

enum class Missing { fails, created };

/// A folder that is not there yet. The process's umask does not apply.
Descriptor create(const Descriptor& folder, const std::string& name) {
    if (::mkdirat(folder.get(), name.c_str(), folderMode) == 0) {
        if (const Descriptor created = openAt(folder.get(), name, O_RDONLY | O_DIRECTORY)) {
            ::fchmod(created.get(), folderMode);
        }
    }
    return enter(folder, name);
}

/// The folder at the end of the names in a single call, as long as no link is on the way; empty with `errno` set.
Descriptor enterStraight(const std::vector<std::string>& names) {
    const Descriptor root = openRoot();
    return openWithin(root.get(), "./" + text::join(names, "/"), O_PATH | O_DIRECTORY, RESOLVE_NO_SYMLINKS);
}

/// The folder at the end of the names; empty with `errno` set when one of them can't be entered. Links are followed as
/// long as root alone may write in every folder on the way. Nothing is asked of a folder before `mayEnter` allows it.
Descriptor walk(std::vector<std::string> names, Missing missing = Missing::fails, const MayEnter& mayEnter = {}) {
    if (!mayEnter) {
        Descriptor straight = enterStraight(names);
        if (straight || (errno == ENOENT && missing == Missing::fails)) {
            return straight;
        }
    }
    const auto isRefused = [&](const Descriptor& folder) { return folder && mayEnter && !mayEnter(folder); };
    std::reverse(names.begin(), names.end());
    Descriptor folder = openRoot();
    bool isGuarded = true;
    int links = 0;
    while (folder && !names.empty()) {
        if (isRefused(folder)) {
            return {};
        }
        const std::string name = std::move(names.back());
        names.pop_back();
        isGuarded = isGuarded && onlyRootMayWrite(folder);
        Descriptor next = enter(folder, name);
        if (!next && errno == ENOENT && missing == Missing::created) {
            next = create(folder, name);
        }
        const int error = errno;
        if (const auto target = !next && isGuarded ? targetOf(folder, name) : std::nullopt) {
            const auto onward = split(*target);
            names.insert(names.end(), onward.rbegin(), onward.rend());
            if (++links <= mostLinks) {
                next = target->starts_with('/') ? openRoot() : std::move(folder);
            }
        }
        errno = isPassing(errno) ? errno : error;
        folder = std::move(next);
    }
    return isRefused(folder) ? Descriptor() : std::move(folder);
}

/// Opened for reading; empty when it can't be.
Descriptor openFolder(const std::string& path) {
    auto names = namesOn(path);
    const Descriptor folder = names ? walk(*std::move(names)) : Descriptor();
    return folder ? openAt(folder.get(), ".", O_RDONLY | O_DIRECTORY) : Descriptor();
}

/// An open folder and a name in it, which need not exist.
struct Place {
    Descriptor folder;
    std::string name;
};

std::optional<Place> locate(const std::string& path) {
    auto names = namesOn(path);
    if (!names) {
        return std::nullopt;
    }
    std::string last = ".";
    if (!names->empty()) {
        last = std::move(names->back());
        names->pop_back();
    }
    Descriptor folder = walk(*std::move(names));
    return folder ? std::optional(Place{std::move(folder), std::move(last)}) : std::nullopt;
}

/// Of a link itself, not of its target; nullopt with `errno` set when there is nothing.
std::optional<Facts> factsOf(const Place& place) {
    Facts facts{};
    if (::fstatat(place.folder.get(), place.name.c_str(), &facts, AT_SYMLINK_NOFOLLOW) != 0) {
        return std::nullopt;
    }
    return facts;
}

std::optional<Facts> factsOf(const std::string& path) {
    const auto place = locate(path);
    return place ? factsOf(*place) : std::nullopt;
}

/// A name that nobody can have taken in advance; empty when the system has no random numbers.
std::string unguessableName() {
    std::array<unsigned char, 16> bytes{};
    if (retried([&] { return ::getrandom(bytes.data(), bytes.size(), 0); }) != static_cast<ssize_t>(bytes.size())) {
        return {};
    }
    std::string name(temporaryPrefix);
    for (const unsigned char byte : bytes) {
        name += text::format("%02x", byte);
    }
    return name;
}

/// A new file in the same folder as the one that it is to replace; removed unless it did. Locked as long as it lives.
class Temporary {
  public:
    explicit Temporary(const Place& place) : place_(place) {
        // Until it is locked, a process that starts may take it for a killed one's; then another one is made.
        do {
            name_ = unguessableName();
            file_ = openAt(place.folder.get(), name_, O_WRONLY | O_CREAT | O_EXCL, S_IRUSR | S_IWUSR);
        } while (file_ && isTakenAway());
    }

    ~Temporary() {
        if (file_) {
            ::unlinkat(place_.folder.get(), name_.c_str(), 0);
        }
    }

    Temporary(const Temporary&) = delete;
    Temporary& operator=(const Temporary&) = delete;

    bool write(std::string_view content) { return file_ && writeAll(file_.get(), content); }

    /// Takes over the mode and owner; the owner only as root, since nobody else can give files away.
    bool resemble(const Facts& old) {
        Facts own{};
        if (::fstat(file_.get(), &own) != 0) {
            return false;
        }
        // The mode first: it can't be set any more once the file is somebody else's.
        const bool ownerDiffers = own.st_uid != old.st_uid || own.st_gid != old.st_gid;
        return setMode(old.st_mode & permissionBits) &&
               (!ownerDiffers || ::fchown(file_.get(), old.st_uid, old.st_gid) == 0 || ::geteuid() != 0);
    }

    bool setMode(mode_t mode) { return ::fchmod(file_.get(), mode) == 0; }

    bool flush() {
        return retried([&] { return ::fsync(file_.get()); }) == 0;
    }

    bool takePlace() {
        const int folder = place_.folder.get();
        if (::renameat(folder, name_.c_str(), folder, place_.name.c_str()) != 0) {
            return false;
        }
        file_.reset();
        return true;
    }

  private:
    bool isTakenAway() {
        const bool isLockedByOther = ::flock(file_.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
        Facts facts{};
        return isLockedByOther || (::fstat(file_.get(), &facts) == 0 && facts.st_nlink == 0);
    }

    const Place& place_;
    std::string name_;
    Descriptor file_;
};

/// Puts the folder's entries on the disk now, if it can be opened for that.
void flushFolder(const Place& place) {
    const Descriptor folder = openAt(place.folder.get(), ".", O_RDONLY | O_DIRECTORY);
    if (folder) {
        retried([&] { return ::fsync(folder.get()); });
    }
}

struct OpenFile {
    Descriptor descriptor;
    std::uint64_t size = 0;
};

/// Opened for reading; nullopt unless it is a regular file.
std::optional<OpenFile> openRegularFile(const std::string& path) {
    errno = 0;
    const auto place = locate(path);
    Descriptor file = place ? openAt(place->folder.get(), place->name, O_RDONLY | O_NONBLOCK) : Descriptor();
    Facts facts{};
    if (!file || ::fstat(file.get(), &facts) != 0) {
        throwIfPassing(path, errno);
        return std::nullopt;
    }
    return S_ISREG(facts.st_mode) ? std::optional(OpenFile{std::move(file), static_cast<std::uint64_t>(facts.st_size)})
                                  : std::nullopt;
}

std::optional<std::string> contentOf(const OpenFile& file, const std::string& path, std::size_t limit) {
    auto content = readAll(file.descriptor.get(), limit);
    if (!content) {
        throwIfPassing(path, errno);
    }
    return content;
}

/// The folder of that name, for reading; empty when something is mounted on it, of which nothing is asked.
Descriptor openFolderHere(int parent, const std::string& name) {
    return openWithin(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW, RESOLVE_NO_XDEV);
}

/// Whether a regular file is there that holds just that.
bool holds(const Place& place, std::string_view content) {
    const Descriptor file = openAt(place.folder.get(), place.name, O_RDONLY | O_NONBLOCK);
    Facts facts{};
    return file && ::fstat(file.get(), &facts) == 0 && S_ISREG(facts.st_mode) &&
           static_cast<std::uint64_t>(facts.st_size) == content.size() &&
           readAll(file.get(), content.size()) == content;
}

enum class Below { left, searched };

/// Removes the temporary files that nobody has locked, in a folder and, if asked for, in the folders in it.
void removeTemporaries(Descriptor descriptor, Below below) {
    const FolderStream folder = streamOf(std::move(descriptor));
    while (const auto name = nextName(folder)) {
        const int parent = ::dirfd(folder.get());
        if (!name->starts_with(temporaryPrefix)) {
            if (below == Below::searched) {
                removeTemporaries(openFolderHere(parent, *name), Below::left);
            }
            continue;
        }
        const Descriptor file = openAt(parent, *name, O_RDONLY | O_NONBLOCK);
        if (file && ::flock(file.get(), LOCK_EX | LOCK_NB) == 0) {
            ::unlinkat(parent, name->c_str(), 0);
        }
    }
}

} // namespace

bool exists(const std::string& path) { return factsOf(path).has_value(); }

std::optional<std::string> read(const std::string& path, std::size_t limit) {
    const auto file = openRegularFile(path);
    return file && file->size <= limit ? contentOf(*file, path, limit) : std::nullopt;
}

std::optional<std::string> readEnd(const std::string& path, std::size_t limit) {
    const auto file = openRegularFile(path);
    const std::uint64_t excess = file && file->size > limit ? file->size - limit : 0;
    if (!file || ::lseek(file->descriptor.get(), static_cast<off_t>(excess), SEEK_SET) < 0) {
        return std::nullopt;
    }
    return contentOf(*file, path, limit);
}

bool replace(const std::string& path, std::string_view content, Durability durability) {
    const std::shared_lock writing(writes);
    const auto place = locate(path);
    if (!place) {
        reportOnce(path.substr(0, path.rfind('/')) + " can't be reached (" + std::generic_category().message(errno) +
                   "); a link on the way must be root's, in a folder that root alone may write");
        return false;
    }
    const auto old = factsOf(*place);
    if (!old && isPassing(errno)) {
        return false;
    }
    if (old && S_ISDIR(old->st_mode)) {
        reportOnce(path + ": a folder is in the file's place");
        return false;
    }
    const bool resembles = old && S_ISREG(old->st_mode);
    if (durability == Durability::flushed && holds(*place, content)) {
        return true; // at a start most settings are written as they are
    }
    Temporary temporary(*place);
    const bool ready = temporary.write(content) &&
                       (resembles ? temporary.resemble(*old) : temporary.setMode(fileMode)) &&
                       (durability == Durability::cached || temporary.flush()) && temporary.takePlace();
    if (ready && durability == Durability::flushed) {
        flushFolder(*place);
    }
    return ready;
}

void endWrites() { writes.lock(); }

bool createEmpty(const std::string& path) {
    const auto place = locate(path);
    if (!place) {
        return false;
    }
    const Descriptor file = openAt(place->folder.get(), place->name, O_WRONLY | O_CREAT | O_EXCL, fileMode);
    if (file) {
        return ::fchmod(file.get(), fileMode) == 0;
    }
    const auto facts = factsOf(*place);
    return facts && S_ISREG(facts->st_mode);
}

bool createFolders(const std::string& path) {
    auto names = namesOn(path);
    return names && walk(*std::move(names), Missing::created);
}

bool setPermissions(const std::string& path, unsigned mode) {
    Descriptor item = openFolder(path);
    if (const auto place = item ? std::nullopt : locate(path)) {
        item = openAt(place->folder.get(), place->name, O_RDONLY | O_NONBLOCK);
    }
    Facts facts{};
    if (!item || ::fstat(item.get(), &facts) != 0) {
        return false;
    }
    // A file with a second name may be a hard link to any file of the machine.
    const bool ours = S_ISDIR(facts.st_mode) || (S_ISREG(facts.st_mode) && facts.st_nlink == 1);
    return ours && ::fchmod(item.get(), mode) == 0;
}

void removeTemporaries(const std::string& path) { removeTemporaries(openFolder(path), Below::searched); }

bool remove(const std::string& path) {
    const auto place = locate(path);
    return place && ::unlinkat(place->folder.get(), place->name.c_str(), 0) == 0;
}

std::vector<std::string> list(const std::string& path) {
    std::vector<std::string> names;
    errno = 0;
    const FolderStream folder = streamOf(openFolder(path));
    if (!folder) {
        throwIfPassing(path, errno);
    }
    while (auto name = nextName(folder)) {
        names.push_back(*std::move(name));
    }
    std::sort(names.begin(), names.end());
    return names;
}

void walkVisible(const std::string& path, const std::function<void(std::uint64_t bytes)>& visit) {
    std::vector<FolderStream> open;
    if (auto outermost = streamOf(openFolder(path))) {
        open.push_back(std::move(outermost));
    }
    while (!open.empty()) {
        const auto name = nextName(open.back());
        if (!name) {
            open.pop_back();
            continue;
        }
        if (name->starts_with('.')) {
            continue;
        }
        const int folder = ::dirfd(open.back().get());
        Facts facts{};
        const bool known = ::fstatat(folder, name->c_str(), &facts, AT_SYMLINK_NOFOLLOW) == 0;
        visit(known ? static_cast<std::uint64_t>(facts.st_size) : 0);
        if (known && S_ISDIR(facts.st_mode) && open.size() < deepestWalk) {
            if (auto inner = streamOf(openAt(folder, *name, O_RDONLY | O_DIRECTORY))) {
                open.push_back(std::move(inner));
            }
        }
    }
}

} // namespace platform::files

namespace platform {

FolderStream streamOf(Descriptor folder) {
    FolderStream stream(folder ? ::fdopendir(folder.get()) : nullptr);
    if (stream) {
        folder.release();
    }
    return stream;
}

std::optional<std::string> nextName(const FolderStream& folder) {
    while (const dirent* entry = folder ? ::readdir(folder.get()) : nullptr) {
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..") {
            return std::string(name);
        }
    }
    return std::nullopt;
}

Descriptor reachFolder(const std::string& path, const MayEnter& mayEnter) {
    auto names = files::namesOn(path);
    return names ? files::walk(*std::move(names), files::Missing::fails, mayEnter) : Descriptor();
}

} // namespace platform
