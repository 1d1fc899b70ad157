// The real file code against what a local user can put into a folder that everyone may write to.
#include "platform/files.h"

#include "platform/linux/files/descriptor.h"
#include "support/core_test.h"
#include "util/HVLFileManager.h"

#include <csignal>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

namespace files = platform::files;
namespace fs = std::filesystem;
using namespace havrel;
using files::Durability;
using testing::ElementsAre;

/// What this thread has flushed to the disk, by the names that it had at that moment, and whether it can.
static thread_local std::vector<std::string> flushed;
static thread_local bool canFlush = true;

/// In place of the C library's.
extern "C" int fsync(int descriptor) {
    flushed.push_back(fs::read_symlink("/proc/self/fd/" + std::to_string(descriptor)));
    return canFlush ? static_cast<int>(syscall(SYS_fsync, descriptor)) : -1;
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
    const std::string folder = paths::hostSupport, item = folder + "/item";
};

TEST_F(Files, OnlyRegularOnesAreReadAndOnlyFoldersAreNotReplaced) {
    const fs::path path = root.at(item);
    const auto makeFile = [&](std::size_t size) { root.write(item, std::string(size, 'x')); };
    const auto makeSocket = [&] {
        sockaddr_un address{AF_UNIX, {}};
        path.string().copy(address.sun_path, sizeof address.sun_path);
        const platform::Descriptor socket(::socket(AF_UNIX, SOCK_STREAM, 0));
        ASSERT_EQ(bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    };

    const struct {
        const char* name;
        std::function<void()> make;
        bool isThere, isReadable, takesPermissions, isReplaceable;
    } rows[] = {
        {"nothing", [] {}, false, false, false, true},
        {"16 MiB", [&] { makeFile(16 << 20); }, true, true, true, true},
        {"longer", [&] { makeFile((16 << 20) + 1); }, true, false, true, true},
        {"second name", [&] { fs::create_hard_link(secret, path); }, true, true, false, true},
        {"link", [&] { fs::create_symlink(secret, path); }, true, false, false, true},
        {"dangling link", [&] { fs::create_symlink("/nowhere", path); }, true, false, false, true},
        {"pipe", [&] { mkfifo(path.c_str(), 0666); }, true, false, false, true},
        {"socket", makeSocket, true, false, false, true},
        {"folder", [&] { fs::create_directory(path); }, true, false, true, false},
    };

    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        row.make();
        EXPECT_EQ(files::exists(item), row.isThere);
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

TEST_F(Files, DevicesAreNotRead) {
    fakes::deployment::setRoot("");
    EXPECT_EQ(files::read("/dev/zero"), std::nullopt);
}

TEST_F(Files, AFolderInAFilesPlaceIsToldOfOnce) {
    const std::string place = folder + "/folder";
    files::createFolders(place);
    testing::internal::CaptureStderr();
    files::replace(place, "", Durability::cached);
    files::replace(place, "", Durability::cached);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "files: " + place + ": a folder is in the file's place\n");
}

TEST_F(Files, AreNotReachedThroughALinkOrUpwards) {
    fs::create_directory_symlink(outside.path(), root.at(folder + "/linked"));
    root.write("/top", "");
    for (const std::string& path :
         {folder + "/linked/secret", folder + "/linked/sub/item", folder + "/../../../top", std::string("top"),
          std::string(), std::string("/top\0", 5), "/" + std::string(256, 'x'), std::string("/top/below")}) {
        SCOPED_TRACE(path);
        EXPECT_FALSE(files::exists(path));
        EXPECT_EQ(files::read(path), std::nullopt);
        EXPECT_FALSE(files::replace(path, "", Durability::cached));
        EXPECT_FALSE(files::createEmpty(path));
        EXPECT_FALSE(files::createFolders(path));
        EXPECT_FALSE(files::setPermissions(path, 0777));
        EXPECT_FALSE(files::remove(path));
        EXPECT_THAT(files::list(path), testing::IsEmpty());
    }
    EXPECT_THAT(files::list(folder + "/linked"), testing::IsEmpty());
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
        {"absolute", "/disk/there", fs::perms(0755), fs::perms(0700), true},
        {"relative", "../disk/./there", fs::perms(0755), fs::perms(0700), true},
        {"to another link", "/disk/link", fs::perms(0755), fs::perms(0700), true},
        {"to another link in a folder of everyone's", "/disk/link", fs::perms(0755), fs::perms(01777), false},
        {"to a folder of everyone's", "/disk/there", fs::perms(0755), fs::perms(0777), true},
        {"in a group's folder", "/disk/there", fs::perms(0775), fs::perms(0700), false},
        {"in everyone's folder", "/disk/there", fs::perms(01777), fs::perms(0700), false},
        {"somebody else's", "/disk/there", fs::perms(0755), fs::perms(0700), geteuid() != 0, false},
        {"to itself", "/Users/ann", fs::perms(0755), fs::perms(0700), false},
        {"to a file", "/disk/there/file", fs::perms(0755), fs::perms(0700), false},
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
        const auto followed = [&](auto text) { return row.isFollowed ? std::optional(text) : std::nullopt; };
        EXPECT_EQ(files::read("/Users/ann/file"), followed(std::string("content")));
        EXPECT_EQ(files::list("/Users/ann").size(), row.isFollowed ? 1U : 0U);
        EXPECT_EQ(files::createFolders("/Users/ann/new"), row.isFollowed);
        EXPECT_EQ(files::setPermissions("/Users/ann", 0755), row.isFollowed);
        EXPECT_FALSE(files::createFolders("/Users/ann/file/new"));
        fs::remove(root.at("/disk/there/new"));
        fs::remove(root.at("/Users/ann"));
    }
}

TEST_F(Files, ThatCannotBeReachedAreToldOfOnce) {
    fs::create_directory_symlink(outside.path(), root.at(folder + "/elsewhere"));
    testing::internal::CaptureStderr();
    files::replace(folder + "/elsewhere/a", "", Durability::cached);
    files::replace(folder + "/elsewhere/b", "", Durability::cached);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "files: " + folder +
                  "/elsewhere can't be reached (Not a directory); a link on the way must be root's, in a "
                  "folder that root alone may write\n");
}

TEST_F(Files, OfKilledWritersAreRemoved) {
    fs::create_directory(root.at(folder + "/ann"));
    const std::string left = "/.havrel-0123456789abcdef0123456789abcdef";
    root.write(folder + left, "left");
    root.write(folder + "/ann" + left, "left");
    root.write(folder + left + "1", "being written");
    root.write(item, "item");
    outside.write(left, "outside");
    fs::create_directory_symlink(outside.path(), root.at(folder + "/linked"));
    const platform::Descriptor writer(open(root.at(folder + left + "1").c_str(), O_WRONLY));
    EXPECT_EQ(flock(writer.get(), LOCK_EX), 0);
    files::removeTemporaries(folder);
    EXPECT_THAT(files::list(folder), ElementsAre(left.substr(1) + "1", "ann", "item", "linked"));
    EXPECT_THAT(files::list(folder + "/ann"), testing::IsEmpty());
    EXPECT_TRUE(outside.has(left));
}

TEST_F(Files, AreReachedThroughALinkAboveTheRootAndOnLongPaths) {
    fs::create_directory_symlink(root.path(), outside.at("/root"));
    fakes::deployment::setRoot(outside.at("/root").string());
    const std::string deep = "/.//top level/" + support::repeated(std::string(100, 'x') + "/", 100);
    EXPECT_TRUE(files::createFolders(deep));
    EXPECT_TRUE(files::createEmpty(deep + "file"));
    EXPECT_EQ(files::read(deep + "file"), "");
}

TEST_F(Files, TakeFixedModesWhateverTheMaskSays) {
    const mode_t mask = umask(077);
    files::replace(item, "new", Durability::cached);
    files::createEmpty(folder + "/empty");
    files::createFolders(folder + "/a/b");
    umask(mask);
    EXPECT_EQ(modeOf(item), 0644U);
    EXPECT_EQ(modeOf(folder + "/empty"), 0644U);
    EXPECT_EQ(modeOf(folder + "/a"), 0755U);
    EXPECT_EQ(modeOf(folder + "/a/b"), 0755U);
    EXPECT_TRUE(files::setPermissions(folder + "/a", 777)); // decimal, as the product sets it
    EXPECT_EQ(modeOf(folder + "/a"), 01411U);
}

TEST_F(Files, KeepTheirModeAndOwner) {
    root.write(item, "old");
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
    EXPECT_THAT(flushed, ElementsAre(testing::StartsWith(root.at(folder + "/.havrel-").string()), root.at(folder)));
    canFlush = false;
    EXPECT_FALSE(files::replace(item, "lost", Durability::flushed));
    canFlush = true;
    EXPECT_EQ(root.read(item), "flushed");
    EXPECT_THAT(files::list(folder), ElementsAre("item"));
}

TEST_F(Files, StayAsTheyWereWhenTheDiskIsFull) {
    root.write(item, "old");
    const auto previous = std::signal(SIGXFSZ, SIG_IGN);
    rlimit usual{};
    getrlimit(RLIMIT_FSIZE, &usual);
    const rlimit full{1000, usual.rlim_max};
    setrlimit(RLIMIT_FSIZE, &full);
    EXPECT_FALSE(files::replace(item, std::string(2000, 'x'), Durability::flushed));
    setrlimit(RLIMIT_FSIZE, &usual);
    std::signal(SIGXFSZ, previous);
    EXPECT_EQ(root.read(item), "old");
    EXPECT_THAT(files::list(folder), ElementsAre("item"));
}

TEST_F(Files, OfPreferencesDependOnKindAndApplication) {
    EXPECT_EQ(HVLFileManager::pathForApplicationFile(3), std::nullopt);
    fakes::machine::bundlePath(paths::viewerSupport + "/HavrelView.app");
    EXPECT_EQ(HVLFileManager::pathForApplicationFile(1), paths::viewerSupport + "/.ViewerPref.plist");
    root.write("/tree/.hidden/one", std::string(2'000'000, 'x'));
    root.write("/tree/visible/two", std::string(2'900'000, 'x'));
    std::optional<platform::Error> error;
    EXPECT_EQ(HVLFileManager::sizeForFolderAtPath("/tree", error), 2); // in whole megabytes
}
