// The real file code against what a local user can put into a folder that everyone may write to.
#include "platform/files.h"

#include "foundation/error.h"
#include "platform/linux/files/descriptor.h"
#include "prefs/HVLUserPrefManager.h"
#include "proxy/HVLPingManager.h"
#include "support/core_test.h"
#include "support/ping_lists.h"

#include <csignal>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace files = platform::files;
namespace fs = std::filesystem;
using files::Durability;
using testing::ElementsAre;

/// What this thread has flushed to the disk, by the names that it had at that moment.
static thread_local std::vector<std::string> flushed;

static std::atomic<bool> isDiskBad{false};

// In place of the C library's, whose headers have a body of their own for read.
extern "C" ssize_t readFromDisk(int descriptor, void* buffer, std::size_t size) __asm__("read");

extern "C" ssize_t readFromDisk(int descriptor, void* buffer, std::size_t size) {
    return isDiskBad ? (errno = EIO, -1) : syscall(SYS_read, descriptor, buffer, size);
}

extern "C" int fsync(int descriptor) {
    flushed.push_back(fs::read_symlink("/proc/self/fd/" + std::to_string(descriptor)));
    return static_cast<int>(syscall(SYS_fsync, descriptor));
}

class Files : public support::CoreTest {
  protected:
    Files() {
        fs::permissions(root.at(folder), fs::perms::all); // as the daemon itself makes it
        outside.write("/secret", "secret");
        fs::permissions(secret, fs::perms(0600));
    }

    unsigned modeOf(const std::string& path) const { return unsigned(fs::status(root.at(path)).permissions()); }

    trial::TemporaryFolder outside;
    const fs::path secret = outside.at("/secret");
    const std::string folder = havrel::paths::hostSupport, item = folder + "/item";
};

TEST_F(Files, OnlyRegularOnesAreReadAndOnlyFoldersAreNotReplaced) {
    const fs::path path = root.at(item);

    const struct {
        const char* name;
        std::function<void()> make;
        bool isReadable, takesPermissions, isReplaceable;
    } rows[] = {
        {"nothing", [] {}, false, false, true},
        {"regular", [&] { root.write(item, "content"); }, true, true, true},
        {"second name", [&] { fs::create_hard_link(secret, path); }, true, false, true},
        {"link", [&] { fs::create_symlink(secret, path); }, false, false, true},
        {"dangling link", [&] { fs::create_symlink("/nowhere", path); }, false, false, true},
        {"pipe", [&] { mkfifo(path.c_str(), 0666); }, false, false, true},
        {"folder", [&] { fs::create_directory(path); }, false, true, false},
    };

    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        row.make();
        EXPECT_EQ(files::read(item).has_value(), row.isReadable);
        EXPECT_EQ(files::setPermissions(item, 0600), row.takesPermissions);
        const bool isCreated = files::createEmpty(item);
        EXPECT_EQ(isCreated, fs::is_regular_file(fs::symlink_status(path)));
        EXPECT_EQ(files::replace(item, "new", Durability::flushed), row.isReplaceable);
        EXPECT_EQ(files::read(item), row.isReplaceable ? std::optional("new") : std::nullopt);
        EXPECT_THAT(files::list(folder), ElementsAre("item")) << "a temporary was left";
        EXPECT_EQ(outside.read("/secret"), "secret");
        EXPECT_EQ(fs::status(secret).permissions(), fs::perms(0600));
        EXPECT_EQ(files::remove(item), row.isReplaceable);
        fs::remove(path);
    }
}

TEST_F(Files, AreNotReachedThroughALinkOrUpwards) {
    fs::create_directory_symlink(outside.path(), root.at(folder + "/linked"));
    root.write("/top", "");
    for (const std::string& path : {folder + "/linked/secret", folder + "/linked/sub/item", folder + "/../../../top",
                                    std::string("/top\0", 5), std::string("/top/below")}) {
        SCOPED_TRACE(path);
        EXPECT_FALSE(files::exists(path));
        EXPECT_EQ(files::read(path), std::nullopt);
        EXPECT_FALSE(files::replace(path, "", Durability::cached));
        EXPECT_FALSE(files::createEmpty(path));
        EXPECT_FALSE(files::createFolders(path));
        EXPECT_FALSE(files::setPermissions(path, 0777));
        EXPECT_FALSE(files::remove(path));
    }
    EXPECT_EQ(std::distance(fs::directory_iterator(outside.path()), {}), 1);
}

TEST_F(Files, AreReachedThroughLinksThatOnlyTheAdministratorCanHaveMade) {
    const struct {
        const char* name;
        std::string target;
        fs::perms folder, targetFolder;
        bool isFollowed;
        bool isRoots = true;
    } rows[] = {
        {"relative", "../disk/./there", fs::perms(0755), fs::perms(0700), true},
        {"to another link", "/disk/link", fs::perms(0755), fs::perms(0700), true},
        {"to another link in a folder of everyone's", "/disk/link", fs::perms(0755), fs::perms(01777), false},
        {"to a folder of everyone's", "/disk/there", fs::perms(0755), fs::perms(0777), true},
        {"in everyone's folder", "/disk/there", fs::perms(01777), fs::perms(0700), false},
        {"somebody else's", "/disk/there", fs::perms(0755), fs::perms(0700), geteuid() != 0, false},
        {"to itself", "/Users/ann", fs::perms(0755), fs::perms(0700), false},
    };

    fs::create_directories(root.at("/Users"));
    root.write("/disk/there/file", "content");
    fs::create_directory_symlink("there", root.at("/disk/link"));
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        fs::create_directory_symlink(row.target, root.at("/Users/ann"));
        if (!row.isRoots) {
            EXPECT_EQ(lchown(root.at("/Users/ann").c_str(), 12345, 12345) == 0, geteuid() == 0);
        }
        fs::permissions(root.at("/Users"), row.folder);
        fs::permissions(root.at("/disk"), row.targetFolder);
        EXPECT_EQ(files::read("/Users/ann/file").has_value(), row.isFollowed);
        fs::remove(root.at("/Users/ann"));
    }
}

TEST_F(Files, ThatCannotBeWrittenAreToldOfOnce) {
    files::createFolders(folder + "/folder");
    fs::create_directory_symlink(outside.path(), root.at(folder + "/elsewhere"));
    testing::internal::CaptureStderr();
    for (const char* name : {"/folder", "/folder", "/elsewhere/a", "/elsewhere/b"}) {
        files::replace(folder + name, "", Durability::cached);
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "files: " + folder + "/folder: a folder is in the file's place\nfiles: " + folder +
                  "/elsewhere can't be reached (Not a directory); a link on the way must be root's, in a "
                  "folder that root alone may write\n");
}

TEST_F(Files, OfKilledWritersAreRemoved) {
    fs::create_directory(root.at(folder + "/ann"));
    const std::string left = "/.havrel-0123456789abcdef0123456789abcdef";
    root.write(folder + left, "left");
    root.write(folder + "/ann" + left, "left");
    root.write(folder + left + "1", "being written");
    const platform::Descriptor writer(open(root.at(folder + left + "1").c_str(), O_WRONLY));
    EXPECT_EQ(flock(writer.get(), LOCK_EX), 0);
    files::removeTemporaries(folder);
    EXPECT_THAT(files::list(folder), ElementsAre(left.substr(1) + "1", "ann"));
    EXPECT_THAT(files::list(folder + "/ann"), testing::IsEmpty());
}

TEST_F(Files, AreMadeWithAFixedModeAndKeepALaterOneAndTheirOwner) {
    const mode_t mask = umask(077);
    files::replace(item, "made", Durability::cached);
    umask(mask);
    EXPECT_EQ(modeOf(item), 0644U);
    const uid_t owner = geteuid() == 0 ? 12345 : geteuid(); // only root can give a file away
    EXPECT_EQ(chown(root.at(item).c_str(), owner, getegid()), 0);
    EXPECT_TRUE(files::setPermissions(item, 06660));
    EXPECT_TRUE(files::replace(item, "new", Durability::cached));
    EXPECT_EQ(modeOf(item), 0660U) << "rights beyond the usual ones are not handed on";

    struct stat facts {};

    EXPECT_EQ(stat(root.at(item).c_str(), &facts), 0);
    EXPECT_EQ(facts.st_uid, owner);
}

TEST_F(Files, AreOnTheDiskBeforeTheyReplaceTheOldOnes) {
    flushed.clear();
    EXPECT_TRUE(files::replace(item, "cached", Durability::cached));
    EXPECT_THAT(flushed, testing::IsEmpty());
    EXPECT_TRUE(files::replace(item, "flushed", Durability::flushed));
    EXPECT_TRUE(files::replace(item, "flushed", Durability::flushed)); // holds that already
    EXPECT_THAT(flushed, ElementsAre(testing::StartsWith(root.at(folder + "/.havrel-").string()), root.at(folder)));
}

TEST_F(Files, ThatCannotBeReadForTheMomentStayAsTheyAre) {
    havrel::HVLLogger& log = havrel::HVLLogger::instanceHost();
    log.logString("kept");
    havrel::HVLLogger::drainAll();
    support::pings("a1:1").writeProxyOnFile(havrel::paths::proxies);
    havrel::hostPreferences().setHostID("kept");
    const auto contents = [this] {
        return root.read(folder + hostLog) + root.read(havrel::paths::proxies) + root.read(folder + "/.HostPref.plist");
    };
    const std::string before = contents();
    isDiskBad = true;
    EXPECT_THROW(havrel::hostPreferences().hostID(), platform::Exception);
    EXPECT_THROW(havrel::hostPreferences().setUserName("lost"), platform::Exception);
    EXPECT_THROW(havrel::HVLPingManager().doPingInTimeOut(1), platform::Exception);
    log.logString("waits");
    havrel::HVLLogger::drainAll();
    isDiskBad = false;
    EXPECT_EQ(contents(), before);
    log.logString("next");
    EXPECT_THAT(takeLog(hostLog), ElementsAre("kept", "waits", "next"));
}

TEST_F(Files, StayAsTheyWereWhenTheDiskIsFull) {
    root.write(item, "old");
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit usual{};
    getrlimit(RLIMIT_FSIZE, &usual);
    const rlimit full{1000, usual.rlim_max};
    setrlimit(RLIMIT_FSIZE, &full);
    EXPECT_FALSE(files::replace(item, std::string(2000, 'x'), Durability::flushed));
    setrlimit(RLIMIT_FSIZE, &usual);
    std::signal(SIGXFSZ, SIG_DFL);
    EXPECT_EQ(root.read(item), "old");
    EXPECT_THAT(files::list(folder), ElementsAre("item"));
}
