#include "contract/file_system.h"
#include "platform/files.h"
#include "platform/linux/files/listing.h"
#include "support/root_test.h"
#include "support/serve.h"

#include <atomic>
#include <fcntl.h>
#include <fstream>
#include <optional>
#include <sched.h>
#include <sys/mount.h>
#include <thread>
#include <unistd.h>

using namespace std::chrono_literals;
using support::serveUntil;
namespace fs = std::filesystem;

namespace {

/// A file root with one stream over some of its folders.
class WatchedRoot : public contract::FileSystem {
  public:
    WatchedRoot() { fakes::deployment::setRoot(root.path().string()); }

    ~WatchedRoot() override {
        stream.reset();
        fakes::deployment::setRoot("");
    }

    void makeFolder(const std::string& path) override { fs::create_directories(root.at(path)); }

    void makeFile(const std::string& path) override { root.write(path, ""); }

    void rename(const std::string& source, const std::string& destination) override {
        fs::rename(root.at(source), root.at(destination));
    }

    void watch(const std::vector<std::string>& paths) override { watchFor(paths, 50ms); }

    std::vector<std::string> told() override {
        EXPECT_TRUE(settle());
        return lines;
    }

    void exchange(const std::string& one, const std::string& other) const {
        ASSERT_EQ(::renameat2(AT_FDCWD, root.at(one).c_str(), AT_FDCWD, root.at(other).c_str(), RENAME_EXCHANGE), 0);
    }

    void watchFor(const std::vector<std::string>& paths, std::chrono::milliseconds latency) {
        stream.emplace(loop, paths, latency, [this](const auto& batch) { lines.push_back(contract::lineOf(batch)); });
    }

    std::ptrdiff_t count(const std::string& line) const { return std::ranges::count(lines, line); }

    bool waitFor(const std::string& line) {
        return serveUntil(loop, [&] { return count(line) > 0; });
    }

    /// Serves the stream until the folder is seen to be watched, and all that was done before is told.
    bool settle(const std::string& folder = "/Apps") {
        const std::string mark = folder + "/mark" + std::to_string(++marks);
        makeFolder(mark);
        const bool isTold = serveUntil(loop, [&] {
            rename(mark, mark + "!");
            rename(mark + "!", mark);
            return !lines.empty() && lines.back().find(mark) != std::string::npos;
        });
        std::erase_if(lines, [](const std::string& line) { return line.find("/mark") != std::string::npos; });
        return isTold;
    }

    trial::TemporaryFolder root;
    platform::RunLoop loop;
    std::vector<std::string> lines;
    int marks = 0;
    std::optional<platform::FileSystemEventStream> stream;
};

class FileSystemEvents : public testing::Test, protected WatchedRoot {
  protected:
    FileSystemEvents() {
        for (const char* folder : {"/Apps/Host.app/in", "/ann/Trash", "/bob/Trash", "/Else"}) {
            makeFolder(folder);
        }
    }

    void watchAll(std::chrono::milliseconds latency = 50ms) {
        watchFor({"/Apps", "/ann/Trash", "/bob/Trash"}, latency);
    }

    const std::string trashed = "/Apps/Host.app/ > /ann/Trash/Host.app/";
    const std::string restored = "/ann/Trash/Host.app/ > /Apps/Host.app/";
};

TEST_F(FileSystemEvents, TellBothMovesOfAnExchange) {
    makeFolder("/ann/Trash/X");
    watchAll();
    exchange("/Apps/Host.app", "/ann/Trash/X");
    ASSERT_TRUE(settle());
    EXPECT_THAT(lines,
                testing::UnorderedElementsAre("/Apps/Host.app/ > /ann/Trash/X/", "/ann/Trash/X/ > /Apps/Host.app/"));
}

struct Way {
    std::string name;
    std::function<void(WatchedRoot&)> change;
};

/// What may become of a watched folder, after which it must be watched again.
class WayToAFolder : public FileSystemEvents, public testing::WithParamInterface<Way> {};

TEST_P(WayToAFolder, IsFoundAgain) {
    watchAll();
    GetParam().change(*this);
    ASSERT_TRUE(settle("/ann/Trash"));
    rename("/Apps/Host.app", "/ann/Trash/Host.app");
    ASSERT_TRUE(settle());
    EXPECT_THAT(lines, testing::ElementsAre(trashed));
}

INSTANTIATE_TEST_SUITE_P(
    Changes, WayToAFolder,
    testing::Values(Way{"Removed", [](WatchedRoot& root) { fs::remove_all(root.root.at("/ann/Trash")); }},
                    Way{"RemovedWithItsParent", [](WatchedRoot& root) { fs::remove_all(root.root.at("/ann")); }},
                    Way{"Renamed", [](WatchedRoot& root) { root.rename("/ann/Trash", "/ann/Old"); }},
                    Way{"Exchanged", [](WatchedRoot& root) { root.exchange("/ann", "/Else"); }},
                    Way{"ReplacedByALinkForAWhile",
                        [](WatchedRoot& root) {
                            root.rename("/ann/Trash", "/ann/Old");
                            fs::create_directory_symlink(root.root.at("/Else"), root.root.at("/ann/Trash"));
                            fs::remove(root.root.at("/ann/Trash"));
                        }}),
    [](const auto& row) { return row.param.name; });

TEST_F(FileSystemEvents, TellAMoveIntoAFolderThatCameIntoBeingJustBefore) {
    fs::remove_all(root.at("/ann"));
    watchAll(300ms);
    ASSERT_TRUE(settle("/Apps"));
    makeFolder("/ann/Trash");
    rename("/Apps/Host.app", "/ann/Trash/Host.app"); // nobody can be watching there yet
    EXPECT_TRUE(waitFor(trashed));
}

TEST_F(FileSystemEvents, MissNoMoveOfTheProductAmongAUsersRenames) {
    constexpr int moves = 20;
    watchAll();
    makeFolder("/bob/Trash/a");
    {
        const std::jthread storm([this](const std::stop_token& end) {
            while (!end.stop_requested()) {
                rename("/bob/Trash/a", "/Else/a");
                rename("/Else/a", "/bob/Trash/a");
            }
        });
        for (int i = 1; i <= moves; ++i) {
            rename("/Apps/Host.app", "/ann/Trash/Host.app");
            ASSERT_TRUE(serveUntil(loop, [&] { return count(trashed) == i; })) << i;
            rename("/ann/Trash/Host.app", "/Apps/Host.app");
            ASSERT_TRUE(serveUntil(loop, [&] { return count(restored) == i; })) << i;
        }
    }
    ASSERT_TRUE(settle());
    EXPECT_EQ(count(trashed), moves) << "none twice";
}

/// More renames than the system queues, which nobody reads meanwhile.
void loseEvents(WatchedRoot& root) {
    root.makeFolder("/bob/Trash/0");
    for (int i = 0; i < 20000; ++i) {
        root.rename("/bob/Trash/" + std::to_string(i), "/bob/Trash/" + std::to_string(i + 1));
    }
}

TEST_F(FileSystemEvents, FindWhatMovedWhenTheSystemLosesEvents) {
    watchAll();
    ASSERT_TRUE(settle("/Apps"));
    loseEvents(*this);
    rename("/Apps/Host.app", "/ann/Trash/Host.app");
    testing::internal::CaptureStderr();
    EXPECT_TRUE(waitFor(trashed));
    EXPECT_THAT(testing::internal::GetCapturedStderr(), testing::HasSubstr("the system lost some"));
    ASSERT_TRUE(settle());
    EXPECT_EQ(count(trashed), 1);
}

TEST_F(FileSystemEvents, TellAMoveOnceThatWasBothReadAndFound) {
    watchAll();
    ASSERT_TRUE(settle("/Apps"));
    rename("/Apps/Host.app", "/ann/Trash/Host.app");
    loseEvents(*this);
    ASSERT_TRUE(settle());
    EXPECT_EQ(count(trashed), 1);
}

TEST_F(FileSystemEvents, TellOfNoMoveThatNeverWasAfterAnExchange) {
    makeFolder("/ann/Trash/X");
    watchAll();
    ASSERT_TRUE(settle("/Apps"));
    exchange("/Apps/Host.app", "/ann/Trash/X");
    exchange("/Apps/Host.app", "/ann/Trash/X");
    ASSERT_TRUE(settle());
    lines.clear();
    loseEvents(*this);
    ASSERT_TRUE(settle());
    EXPECT_EQ(std::ranges::count_if(lines, [](const auto& line) { return line.find("Host.app") != line.npos; }), 0);
}

TEST_F(FileSystemEvents, HandOnWhatWaitsAtTheEndAndLeaveNoDescriptor) {
    watchAll();
    stream.reset(); // the loop has its own descriptors from now on
    const auto before = support::openDescriptors();
    watchAll(1h);
    rename("/Apps/Host.app", "/ann/Trash/Host.app");
    stream.reset();
    EXPECT_THAT(lines, testing::ElementsAre(trashed));
    EXPECT_EQ(support::openDescriptors(), before);
}

/// In a mount namespace of its own, as its root: nobody else sees what is mounted. For the process of a death test.
void leaveForAnotherNamespace() {
    const auto user = ::geteuid();
    const auto group = ::getegid();
    ASSERT_EQ(::unshare(user == 0 ? CLONE_NEWNS : CLONE_NEWNS | CLONE_NEWUSER), 0);
    if (user != 0) {
        std::ofstream("/proc/self/setgroups") << "deny";
        std::ofstream("/proc/self/uid_map") << 0 << ' ' << user << ' ' << 1;
        std::ofstream("/proc/self/gid_map") << 0 << ' ' << group << ' ' << 1;
    }
    ASSERT_EQ(::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr), 0);
}

TEST_F(FileSystemEvents, FindAFolderThatIsMountedLaterOrTakenAway) {
    const auto scenario = [&] {
        leaveForAnotherNamespace();
        watchAll();
        ASSERT_EQ(::mount("none", root.at("/ann").c_str(), "tmpfs", 0, nullptr), 0);
        ASSERT_TRUE(settle("/ann/Trash"));
        ASSERT_EQ(::umount2(root.at("/ann").c_str(), 0), 0) << "nothing keeps it busy";
        ASSERT_TRUE(settle("/ann/Trash"));
        rename("/Apps/Host.app", "/ann/Trash/Host.app");
        ASSERT_TRUE(waitFor(trashed));
    };
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT((scenario(), fs::remove_all(root.path()), std::_Exit(HasFailure() ? 1 : 0)), testing::ExitedWithCode(0),
                "");
}

/// A file system in user space of which nobody ever takes a request.
void mountUnanswered(const fs::path& folder) {
    const int requests = ::open("/dev/fuse", O_RDWR | O_CLOEXEC);
    const std::string data = "fd=" + std::to_string(requests) + ",rootmode=40000,user_id=0,group_id=0,allow_other";
    ASSERT_EQ(::mount("none", folder.c_str(), "fuse", 0, data.c_str()), 0);
}

TEST_F(FileSystemEvents, AskNothingOfAFileSystemThatDoesNotAnswer) {
    const auto scenario = [&] {
        leaveForAnotherNamespace();
        makeFolder("/bob/Trash/mount");
        mountUnanswered(root.at("/ann/Trash"));
        mountUnanswered(root.at("/bob/Trash/mount"));
        alarm(20); // ends a process that hangs there
        platform::files::removeTemporaries("/bob/Trash");
        watchAll();
        rename("/Apps/Host.app", "/bob/Trash/Host.app");
        ASSERT_TRUE(waitFor("/Apps/Host.app/ > /bob/Trash/Host.app/"));
        loseEvents(*this);
        ASSERT_TRUE(settle());
    };
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT((scenario(), std::_Exit(HasFailure() ? 1 : 0)), testing::ExitedWithCode(0), "");
}

TEST_F(FileSystemEvents, StandInTheDesktopsTrashForAMissingOne) {
    root.write("/etc/passwd", "ann:x:1000:1000::/home/ann:/bin/sh\n");
    makeFolder("/home/ann/.local/share/Trash/files");
    watch({"/Apps", "/Users/ann/.Trash"});
    rename("/Apps/Host.app", "/home/ann/.local/share/Trash/files/Host.app");
    EXPECT_TRUE(waitFor("/Apps/Host.app/ > /Users/ann/.Trash/Host.app/"));

    ASSERT_TRUE(settle("/Users/ann/.Trash"));
    makeFolder("/home/ann/.local/share/Trash/files/B");
    rename("/home/ann/.local/share/Trash/files/B", "/Apps/B");
    ASSERT_TRUE(settle());
    EXPECT_EQ(lines.back(), "/Apps/B/") << "the desktop's is not watched any more";
}

struct Comparison {
    std::string name;
    std::vector<std::pair<platform::Place, std::uint64_t>> before;
    std::vector<std::pair<platform::Place, std::uint64_t>> after;
    std::vector<platform::ItemMove> moves;
};

class ListingComparison : public testing::TestWithParam<Comparison> {};

TEST_P(ListingComparison, TellsWhatMovedBetweenFolders) {
    const auto listingOf = [](const auto& items) {
        platform::Listing listing;
        for (const auto& [place, inode] : items) {
            listing.set(place, platform::Item{.inode = inode, .isFolder = true});
        }
        return listing;
    };
    EXPECT_EQ(platform::movesBetween(listingOf(GetParam().before), listingOf(GetParam().after)), GetParam().moves);
}

INSTANTIATE_TEST_SUITE_P(
    Listings, ListingComparison,
    testing::Values(
        Comparison{
            "Moved", {{{0, "a"}, 1}, {{1, "b"}, 2}}, {{{1, "c"}, 1}, {{1, "b"}, 2}}, {{{0, "a"}, {1, "c"}, true}}},
        Comparison{"RenamedInItsFolder", {{{0, "a"}, 1}}, {{{0, "b"}, 1}}, {}},
        Comparison{"ReplacedWhenMoved", {{{0, "a"}, 1}}, {{{0, "a"}, 2}, {{1, "a"}, 1}}, {{{0, "a"}, {1, "a"}, true}}},
        Comparison{"SecondName", {{{0, "a"}, 1}}, {{{0, "a"}, 1}, {{1, "a"}, 1}}, {}}),
    [](const auto& row) { return row.param.name; });

} // namespace

std::unique_ptr<contract::FileSystem> contract::makeFileSystem() { return std::make_unique<WatchedRoot>(); }
