// The real file code against what a local user can put into a folder that everyone may write to.
#include "platform/files.h"

#include "support/core_test.h"
#include "util/HVLFileManager.h"

#include <csignal>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace files = platform::files;
namespace fs = std::filesystem;
using namespace havrel;
using files::Durability;
using testing::ElementsAre;

class Files : public support::CoreTest {
  protected:
    Files() { outside.write("/secret", "secret"); }

    unsigned modeOf(const std::string& path) const { return unsigned(fs::status(root.at(path)).permissions()); }

    trial::TemporaryFolder outside;
    const std::string folder = paths::hostSupport, item = folder + "/item";
};

TEST_F(Files, AreReadAndReplacedOnlyIfRegular) {
    const fs::path path = root.at(item), secret = outside.at("/secret");
    fs::permissions(secret, fs::perms(0600));
    const auto makeFile = [&](std::size_t size) { root.write(item, std::string(size, 'x')); };
    // clang-format off
    const std::tuple<const char*, std::function<void()>, bool, bool, bool, bool> rows[] = {
        // what, how it is made; is it there? can it be read, given permissions, replaced?
        {"nothing",       [] {},                                                false, false, false, true},
        {"16 MiB",        [&] { makeFile(16 << 20); },                          true,  true,  true,  true},
        {"longer",        [&] { makeFile((16 << 20) + 1); },                    true,  false, true,  true},
        {"second name",   [&] { fs::create_hard_link(secret, path); },          true,  true,  false, true},
        {"link",          [&] { fs::create_symlink(secret, path); },            true,  false, false, false},
        {"dangling link", [&] { fs::create_symlink("/nowhere", path); },        true,  false, false, false},
        {"pipe",          [&] { mkfifo(path.c_str(), 0666); },                  true,  false, false, false},
        {"folder",        [&] { fs::create_directory(path); },                  true,  false, true,  false}};
    // clang-format on
    for (const auto& [what, make, isThere, isReadable, isPermissible, isReplaceable] : rows) {
        SCOPED_TRACE(what);
        make();
        EXPECT_EQ(files::exists(item), isThere);
        EXPECT_EQ(files::read(item).has_value(), isReadable);
        EXPECT_EQ(files::setPermissions(item, 0600), isPermissible);
        EXPECT_EQ(files::replace(item, "new", Durability::flushed), isReplaceable);
        EXPECT_EQ(files::createEmpty(item), isReplaceable);
        EXPECT_EQ(files::read(item) == "new", isReplaceable);
        EXPECT_THAT(files::list(folder), ElementsAre("item")) << "a temporary was left";
        EXPECT_TRUE(outside.read("/secret") == "secret" && fs::status(secret).permissions() == fs::perms(0600));
        EXPECT_EQ(files::remove(item), !fs::is_directory(fs::symlink_status(path)));
        fs::remove(path);
    }
    fakes::deployment::setRoot("");
    EXPECT_FALSE(files::read("/dev/zero") || files::replace("/dev/null", "", Durability::cached));
}

TEST_F(Files, AreNotReachedThroughALinkOrUpwards) {
    fs::create_directory_symlink(outside.path(), root.at(folder + "/linked"));
    root.write("/top", "");
    for (const std::string& path :
         {folder + "/linked/secret", folder + "/linked/sub/item", folder + "/../../../top", std::string("top"),
          std::string(), std::string("/top\0", 5), "/" + std::string(256, 'x'), std::string("/top/below")}) {
        SCOPED_TRACE(path);
        EXPECT_FALSE(files::exists(path) || files::read(path) || files::replace(path, "", Durability::cached));
        EXPECT_FALSE(files::createEmpty(path) || files::createFolders(path) || files::setPermissions(path, 0777));
        EXPECT_FALSE(files::remove(path) || !files::list(path).empty());
    }
    EXPECT_TRUE(files::list(folder + "/linked").empty());
    EXPECT_EQ(std::distance(fs::directory_iterator(outside.path()), {}), 1);
    // A link above the root is the administrator's own, and no path is too long if its names are not.
    fs::create_directory_symlink(root.path(), outside.at("/root"));
    fakes::deployment::setRoot(outside.at("/root").string());
    const std::string deep = "/.//top level/" + support::repeated(std::string(100, 'x') + "/", 100);
    EXPECT_TRUE(files::createFolders(deep) && files::createEmpty(deep + "file") && files::read(deep + "file"));
}

TEST_F(Files, KeepTheirModeAndOwner) {
    const mode_t mask = umask(077);
    EXPECT_TRUE(files::replace(item, "new", Durability::cached) && files::createFolders(folder + "/a/b"));
    umask(mask);
    EXPECT_THAT((std::vector{modeOf(item), modeOf(folder + "/a/b")}), ElementsAre(0644, 0755));
    const uid_t owner = geteuid() == 0 ? 12345 : geteuid(); // only root can give a file away
    EXPECT_EQ(chown(root.at(item).c_str(), owner, getegid()), 0);
    EXPECT_TRUE(files::setPermissions(item, 06660) && files::setPermissions(folder + "/a", 777));
    EXPECT_TRUE(files::replace(item, "newer", Durability::cached));
    EXPECT_THAT((std::vector{modeOf(item), modeOf(folder + "/a")}), ElementsAre(0660, 01411));

    struct stat facts {};

    EXPECT_EQ(stat(root.at(item).c_str(), &facts), 0);
    EXPECT_EQ(facts.st_uid, owner);
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
