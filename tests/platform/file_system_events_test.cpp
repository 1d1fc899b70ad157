#include "platform/file_system_events.h"

#include "foundation/format.h"
#include "platform/linux/files/watch_tree.h"
#include "support/root_test.h"
#include "support/serve.h"

#include <algorithm>
#include <optional>
#include <sstream>
#include <thread>

using namespace std::chrono_literals;
using platform::FileSystemEvent;
using platform::text::format;
using support::serveUntil;
namespace fs = std::filesystem;

namespace {

/// A stream over the folders "Apps" and "ann/Trash".
class EventStream : public support::RootTest {
  protected:
    EventStream() { perform("Apps ann/Trash"); }

    void start(std::chrono::milliseconds latency = 20ms) {
        const auto tell = [this](const std::vector<FileSystemEvent>& batch) {
            ++batches;
            for (const auto& [path, flags] : batch) {
                EXPECT_TRUE(flags & platform::itemRenamed);
                told += path.substr(1) + ((flags & platform::itemIsDir) != 0 ? "/ " : " ");
            }
        };
        stream.emplace(loop, std::vector<std::string>{"/Apps", "/ann/Trash"}, latency, tell);
    }

    /// At once: "Apps/a/b" makes these folders, "Apps/a>Apps/b" renames.
    void perform(const std::string& steps) const {
        std::istringstream words(steps);
        for (std::string step; words >> step;) {
            if (const auto arrow = step.find('>'); arrow != std::string::npos) {
                fs::rename(root.path() / step.substr(0, arrow), root.path() / step.substr(arrow + 1));
            } else {
                fs::create_directories(root.path() / step);
            }
        }
    }

    /// What is told while another thread performs the steps, up to a move that comes last: "Apps/a/ Apps/b/ ".
    std::string toldOf(const std::string& steps) {
        const std::string last = "Apps/last" + std::to_string(++marks);
        const std::string end = last + "/ " + last + "!/ ";
        const std::jthread other([&] { perform(steps + " " + last + " " + last + ">" + last + "!"); });
        EXPECT_TRUE(serveUntil(loop, [&] { return told.ends_with(end); })) << told;
        told.resize(told.size() - std::min(told.size(), end.size()));
        return std::exchange(told, {});
    }

    platform::RunLoop loop;
    std::optional<platform::FileSystemEventStream> stream;
    std::string told;
    int batches = 0;
    int marks = 0;
};

TEST_F(EventStream, TellsRenamesWithKindSourceBeforeDestination) {
    const std::pair<const char*, const char*> rows[] = {
        {"Apps/A.app/Contents", ""},
        {"Apps/A.app>Apps/B.app", "Apps/A.app/ Apps/B.app/ "},
        {"Apps/B.app/Contents>Apps/B.app/C", "Apps/B.app/Contents/ Apps/B.app/C/ "},
        {"Apps/B.app>ann/Trash/B.app", "Apps/B.app/ ann/Trash/B.app/ "},
        {"ann/Trash/B.app/C>ann/Trash/C", "ann/Trash/B.app/C/ ann/Trash/C/ "},
        {"ann/Trash/C>C", "ann/Trash/C/ "}, // out of sight
        {"C/D C/D>C/E", ""},
        {"C>Apps/C", "Apps/C/ "},
        {"Apps/C/E>Apps/F", "Apps/C/E/ Apps/F/ "},
        {"Apps/file>ann/Trash/file", "Apps/file ann/Trash/file "},
        {"Apps/n/m Apps/n>Apps/o Apps/o>Apps/p", "Apps/n/ Apps/o/ Apps/o/ Apps/p/ "}, // before it is watched
        {"Apps/p/m>ann/Trash/m", "Apps/p/m/ ann/Trash/m/ "},
        {"Apps/x Apps/y Apps/x>Apps/t Apps/y>Apps/x Apps/t>Apps/y", // names that change hands
         "Apps/x/ Apps/t/ Apps/y/ Apps/x/ Apps/t/ Apps/y/ "},
        {"ann/q ann/q>ann/r", ""}, // behind a link
    };
    root.write("/Apps/file", "1");
    fs::create_directory_symlink(root.at("/ann"), root.at("/Apps/link"));
    start();
    for (const auto& [steps, events] : rows) {
        EXPECT_EQ(toldOf(steps), events) << steps;
    }
}

TEST_F(EventStream, NoticesEachOfAThousandMovesOnceAmongTenThousandFolders) {
    const auto expectMoves = [&](const char* from, const char* to) {
        std::string steps, events;
        for (int i = 0; i < 1000; ++i) {
            const std::string source = format(from, i, i), destination = format(to, i);
            steps += format("%@>%@ ", source, destination);
            events += format("%@/ %@/ ", source, destination);
        }
        EXPECT_EQ(toldOf(steps), events);
    };
    for (int i = 0; i < 10000; ++i) {
        perform(format("Apps/%d.app/%d", i % 1000, i));
    }
    start();
    expectMoves("Apps/%d.app", "ann/Trash/%d.app");
    expectMoves("ann/Trash/%d.app", "Apps/%d.app");
    expectMoves("Apps/%d.app/%d", "ann/Trash/%d");
}

TEST_F(EventStream, WatchesAMissingFolderOnceItAppears) {
    fs::remove_all(root.at("/ann"));
    start();
    for (int round = 0; round < 20; ++round) {
        EXPECT_EQ(toldOf("Apps/Host.app"), "");
        // At once: the watch on the new Trash cannot be there yet.
        EXPECT_EQ(toldOf("ann/Trash Apps/Host.app>ann/Trash/Host.app"), "Apps/Host.app/ ann/Trash/Host.app/ ") << round;
        fs::remove_all(root.at("/ann"));
    }
}

TEST_F(EventStream, NoticesThatAFolderAboveWasRenamed) {
    perform("ann/Trash/a");
    start();
    EXPECT_EQ(toldOf("ann>eve"), "");
    EXPECT_EQ(toldOf("eve/Trash/a>eve/Trash/b ann/Trash/c"), "");
    EXPECT_EQ(toldOf("ann/Trash/c>ann/Trash/d"), "ann/Trash/c/ ann/Trash/d/ ");
}

TEST_F(EventStream, ScansAgainWhenTheSystemLosesEvents) {
    const std::string moved = "Apps/Host.app/ ann/Trash/Host.app/ ";
    perform("Apps/Host.app/Contents Apps/0");
    start();
    for (int i = 0; i < 20000; ++i) { // nobody reads meanwhile
        perform(format("Apps/%d>Apps/%d", i, i + 1));
    }
    perform("Apps/Host.app>ann/Trash/Host.app");
    testing::internal::CaptureStderr();
    EXPECT_TRUE(serveUntil(loop, [&] { return told.ends_with(moved); }));
    EXPECT_THAT(testing::internal::GetCapturedStderr(), testing::HasSubstr("scanning the watched folders again"));
    EXPECT_EQ(told.find(moved), told.size() - moved.size()) << "once";
    told.clear();
    EXPECT_EQ(toldOf("ann/Trash/Host.app/Contents>ann/Trash/Contents"),
              "ann/Trash/Host.app/Contents/ ann/Trash/Contents/ ");
}

TEST_F(EventStream, KeepsTheHalvesOfAMoveTogetherInAStorm) {
    platform::WatchTree tree({"/Apps"});
    // With names of these lengths what is read at once ends within a move.
    const std::string paths[] = {"/Apps/a", "/Apps/" + std::string(40, 'b')};
    root.write(paths[0], "");
    tree.readEvents();
    std::size_t seen = 0;
    bool wasCut = false;
    const auto take = [&] {
        for (const FileSystemEvent& event : tree.takeEvents()) {
            EXPECT_EQ(event.path, paths[++seen / 2 % 2]);
        }
        EXPECT_EQ(seen % 2, 0U);
        wasCut |= tree.hasChanges();
    };
    for (std::size_t moves = 0; moves < 24000; ++moves) {
        fs::rename(root.at(paths[moves % 2]), root.at(paths[(moves + 1) % 2]));
        for (int reads = 0; moves % 8000 == 7999 && reads < 20; ++reads) { // the kernel keeps no more
            tree.readEvents();
            if (tree.isFull()) {
                take();
            }
        }
    }
    take();
    EXPECT_TRUE(wasCut);
    EXPECT_EQ(seen, 2U * 24000U);
}

TEST_F(EventStream, NoticesAMoveAndEndsWhileAnotherUserRenamesWithoutPause) {
    perform("Apps/Host.app");
    root.write("/ann/Trash/storm", "x");
    start();
    const std::jthread storm([&](const std::stop_token& end) {
        while (!end.stop_requested()) {
            perform("ann/Trash/storm>storm storm>ann/Trash/storm");
        }
    });
    perform("Apps/Host.app>ann/Trash/Host.app");
    EXPECT_TRUE(
        serveUntil(loop, [&] { return told.find("Apps/Host.app/ ann/Trash/Host.app/ ") != std::string::npos; }));
    stream.reset();
}

TEST_F(EventStream, GivesEachFolderItsShareOfTheWatches) {
    root.write("/proc/sys/fs/inotify/max_user_watches", "80\n"); // a quarter of them, for two
    std::string moves;
    for (int i = 0; i < 30; ++i) {
        perform(format("Apps/A.app/Contents ann/Trash/%d/in", i));
        moves += format("ann/Trash/%d/in>ann/Trash/%d/out ", i, i);
    }
    testing::internal::CaptureStderr();
    start();
    EXPECT_THAT(testing::internal::GetCapturedStderr(), testing::HasSubstr("some folders go unwatched"));
    const std::string seen = toldOf(moves);
    EXPECT_EQ(std::ranges::count(seen, ' '), 20);
    EXPECT_EQ(toldOf("Apps/A.app/Contents>ann/Trash/Contents"), "Apps/A.app/Contents/ ann/Trash/Contents/ ");
}

TEST_F(EventStream, DeliversOneBatchAndLeavesNoDescriptor) {
    start();
    stream.reset();
    const auto before = support::openDescriptors();
    start(300ms);
    for (int i = 0; i < 10; ++i) {
        perform("Apps/a Apps/a>Apps/b Apps/b>gone" + std::to_string(i));
    }
    EXPECT_TRUE(serveUntil(loop, [&] { return std::ranges::count(told, ' ') == 30; }));
    EXPECT_EQ(batches, 1);
    stream.reset();
    EXPECT_EQ(support::openDescriptors(), before);
}

} // namespace
