// The chmod that the fixed command lines reach. The system's looks at a name and then changes whatever has that name by
// now, through a link too: where others may write the folder, they can make it change any file of the machine. This one
// opens an entry first, looks at what it has opened, and changes just that.
//
//   chmod -R OCTAL-MODE PATH...
//
// Any other command line goes to the system's chmod. Messages and exit statuses are the same, with these differences:
// it changes only folders and regular files that have no other name, follows only root's own links on the way to PATH,
// and stays within PATH's mount. That a file with one name is not somebody else's whose second name has just been
// removed is left to the kernel (fs.protected_hardlinks, on by default).
#include "platform/linux/files/descriptor.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <linux/openat2.h>
#include <memory>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <vector>

namespace {

using platform::Descriptor;

constexpr int mostLinks = 40;
/// Each level holds two descriptors.
constexpr int deepest = 128;

class Change {
  public:
    explicit Change(mode_t mode) : mode_(mode) {}

    /// Changes the folder or file and all that is below it.
    void apply(const std::string& path) {
        if (const Descriptor entry = openOperand(path)) {
            change(entry, path, 0);
        } else {
            complain("cannot access", path);
        }
    }

    bool isComplete() const { return complete_; }

  private:
    static Descriptor openOperand(const std::string& path);

    void change(const Descriptor& entry, const std::string& path, int depth);
    void changeEntries(const Descriptor& folder, const std::string& path, int depth);

    /// `errno` says why.
    void complain(const char* what, const std::string& path) {
        const int error = errno;
        std::string shown = path;
        for (char& c : shown) {
            c = static_cast<unsigned char>(c) < 0x20 || c == 0x7f ? '?' : c;
        }
        std::fprintf(stderr, "chmod: %s '%s': %s\n", what, shown.c_str(), std::strerror(error));
        complete_ = false;
    }

    mode_t mode_;
    bool complete_ = true;
};

/// Whether only root can have put the link into the folder.
bool isRootsOwn(const Descriptor& folder, const struct stat& link) {
    struct stat status {};

    return link.st_uid == 0 && ::fstat(folder.get(), &status) == 0 && status.st_uid == 0 &&
           (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

Descriptor openFolder(const char* path) { return Descriptor(::open(path, O_PATH | O_DIRECTORY | O_CLOEXEC)); }

/// None, with `errno` set, if the path leads nowhere or over somebody else's link.
Descriptor Change::openOperand(const std::string& path) {
    if (path.empty()) {
        errno = ENOENT;
        return {};
    }
    Descriptor at = openFolder(path.front() == '/' ? "/" : ".");
    std::string left = path;
    for (int links = 0; at && !left.empty();) {
        const std::string name = left.substr(0, left.find('/'));
        left.erase(0, name.size() + 1);
        if (name.empty()) {
            continue;
        }
        Descriptor next(::openat(at.get(), name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));

        struct stat status {};

        if (!next || ::fstat(next.get(), &status) != 0) {
            return {};
        }
        if (!S_ISLNK(status.st_mode)) {
            at = std::move(next);
            continue;
        }
        std::string target(PATH_MAX, '\0');
        const ssize_t length = ::readlinkat(next.get(), "", target.data(), target.size());
        if (length <= 0 || !isRootsOwn(at, status) || ++links > mostLinks) {
            errno = ELOOP;
            return {};
        }
        target.resize(static_cast<std::size_t>(length));
        left.insert(0, target + "/");
        if (target.front() == '/') {
            at = openFolder("/");
        }
    }
    return at;
}

void Change::change(const Descriptor& entry, const std::string& path, int depth) {
    struct stat status {};

    if (::fstat(entry.get(), &status) != 0) {
        return complain("cannot access", path);
    }
    if (S_ISLNK(status.st_mode)) {
        return; // the system's chmod leaves them out as well
    }
    const bool isFolder = S_ISDIR(status.st_mode);
    if (!isFolder && (!S_ISREG(status.st_mode) || status.st_nlink != 1)) {
        errno = EPERM;
        return complain("changing permissions of", path);
    }
    // An octal mode keeps these bits of a folder.
    const mode_t kept = isFolder ? status.st_mode & (S_ISUID | S_ISGID) : 0;
    // There is no fchmod for a descriptor that was not opened for reading. Its link in /proc is no name: it leads to
    // what was opened.
    if (::chmod(("/proc/self/fd/" + std::to_string(entry.get())).c_str(), mode_ | kept) != 0) {
        complain("changing permissions of", path);
    }
    if (isFolder) {
        changeEntries(entry, path, depth);
    }
}

/// None if the name is that of a mount point.
Descriptor openEntry(int folder, const char* name) {
    open_how how{};
    how.flags = O_PATH | O_NOFOLLOW | O_CLOEXEC;
    how.resolve = RESOLVE_NO_XDEV | RESOLVE_NO_SYMLINKS;
    return Descriptor(static_cast<int>(::syscall(SYS_openat2, folder, name, &how, sizeof how)));
}

void Change::changeEntries(const Descriptor& folder, const std::string& path, int depth) {
    if (depth == deepest) {
        errno = ENAMETOOLONG;
        return complain("cannot read directory", path);
    }
    Descriptor readable(::openat(folder.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const std::unique_ptr<DIR, int (*)(DIR*)> listing(readable ? ::fdopendir(readable.get()) : nullptr, ::closedir);
    if (!listing) {
        return complain("cannot read directory", path);
    }
    readable.release(); // the listing closes it
    while (const dirent* entry = ::readdir(listing.get())) {
        const std::string name = entry->d_name;
        if (name == "." || name == "..") {
            continue;
        }
        const std::string below = std::string(path).append(path.back() == '/' ? "" : "/").append(name);
        if (const Descriptor child = openEntry(folder.get(), name.c_str())) {
            change(child, below, depth + 1);
        } else if (errno != ENOENT) { // removed meanwhile
            complain("cannot access", below);
        }
    }
}

/// "-R", one to four octal digits, and paths.
bool isOurs(const std::vector<std::string_view>& arguments) {
    if (arguments.size() < 3 || arguments[0] != "-R" || arguments[1].empty() || arguments[1].size() > 4 ||
        arguments[1].find_first_not_of("01234567") != std::string_view::npos) {
        return false;
    }
    for (std::size_t i = 2; i < arguments.size(); ++i) {
        if (arguments[i].starts_with("-")) {
            return false;
        }
    }
    return true;
}

} // namespace

int main(int count, char** words) {
    const std::vector<std::string_view> arguments(words + 1, words + count);
    if (!isOurs(arguments)) {
        for (const char* system : {"/usr/bin/chmod", "/bin/chmod"}) {
            ::execv(system, words);
        }
        std::perror("chmod");
        return 127;
    }
    Change change(static_cast<mode_t>(std::strtoul(words[2], nullptr, 8)));
    for (std::size_t i = 2; i < arguments.size(); ++i) {
        change.apply(std::string(arguments[i]));
    }
    return change.isComplete() ? EXIT_SUCCESS : EXIT_FAILURE;
}
