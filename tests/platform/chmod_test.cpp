// The chmod that the daemon's command lines reach, and the attack for which it is there.
#include "platform/linux/files/descriptor.h"
#include "platform/processes.h"
#include "trial/support/daemon_process.h"
#include "trial/support/stand_in_tools.h"
#include "trial/support/temporary_folder.h"

#include <array>
#include <atomic>
#include <cstdio>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <unordered_map>

namespace {

namespace fs = std::filesystem;
using platform::Descriptor;

class Chmod : public testing::Test {
  protected:
    unsigned mode(const std::string& path) const {
        struct stat status {};

        EXPECT_EQ(::lstat(root.at(path).c_str(), &status), 0) << path;
        return status.st_mode & 07777;
    }

    int run(const std::string& arguments) const {
        return WEXITSTATUS(platform::processes::system("cd " + trial::shellQuoted(root.path()) +
                                                       " && exec " HAVREL_CHMOD " " + arguments + " 2>err"));
    }

    const trial::TemporaryFolder root;
};

TEST_F(Chmod, ChangesFoldersAndFilesAndNothingThatALinkLeadsTo) {
    root.write("/tree/file", "");
    root.write("/tree/below/file", "");
    root.write("/outside/target", "");
    root.write("/outside/linked", "");
    for (const char* path : {"/tree/file", "/tree/below/file", "/outside/target", "/outside/linked"}) {
        fs::permissions(root.at(path), fs::perms(0600));
    }
    fs::permissions(root.at("/tree/below"), fs::perms(02700));
    fs::create_symlink("../outside", root.at("/tree/folder link"));
    fs::create_symlink("../outside/target", root.at("/tree/file link"));
    EXPECT_EQ(run("-R 777 tree"), 0);
    EXPECT_EQ(root.read("/err"), "");
    EXPECT_EQ(mode("/tree"), 0777U);
    EXPECT_EQ(mode("/tree/file"), 0777U);
    EXPECT_EQ(mode("/tree/below"), 02777U);
    EXPECT_EQ(mode("/tree/below/file"), 0777U);
    EXPECT_EQ(mode("/outside/target"), 0600U);

    fs::create_hard_link(root.at("/outside/linked"), root.at("/tree/second name"));
    ASSERT_EQ(::mkfifo(root.at("/tree/pipe").c_str(), 0600), 0);
    EXPECT_EQ(run("-R 0755 tree"), 1);
    EXPECT_THAT(root.read("/err"),
                testing::AllOf(testing::HasSubstr("chmod: changing permissions of 'tree/second name': Operation not "),
                               testing::HasSubstr("chmod: changing permissions of 'tree/pipe': Operation not ")));
    EXPECT_EQ(mode("/tree/file"), 0755U);
    EXPECT_EQ(mode("/outside/linked"), 0600U);
    EXPECT_EQ(mode("/tree/pipe"), 0600U);
}

TEST_F(Chmod, FollowsOnTheWayOnlyWhatRootHasLinked) {
    root.write("/real/tree/file", "");
    fs::permissions(root.at("/real/tree/file"), fs::perms(0600));
    fs::create_directory(root.at("/open"));
    fs::permissions(root.at("/open"), fs::perms(0777));
    fs::create_symlink("../real", root.at("/open/link"));
    EXPECT_EQ(run("-R 777 open/link/tree"), 1);
    EXPECT_EQ(root.read("/err"), "chmod: cannot access 'open/link/tree': Too many levels of symbolic links\n");
    EXPECT_EQ(mode("/real/tree/file"), 0600U);
    if (::getuid() == 0) {
        fs::create_symlink("real", root.at("/link"));
        EXPECT_EQ(run("-R 777 link/tree"), 0);
        EXPECT_EQ(mode("/real/tree/file"), 0777U);
    }
}

TEST_F(Chmod, LeavesEveryOtherCommandLineToTheSystems) {
    root.write("/file", "");
    fs::create_symlink("file", root.at("/link"));
    EXPECT_EQ(run("640 link"), 0);
    EXPECT_EQ(mode("/file"), 0640U);
    EXPECT_EQ(run("-R u=rwx,go= file"), 0);
    EXPECT_EQ(mode("/file"), 0700U);
    EXPECT_EQ(run("-R 777"), 1);
    EXPECT_THAT(root.read("/err"), testing::HasSubstr("missing operand"));
    EXPECT_EQ(run("-R 777 nowhere"), 1);
    EXPECT_EQ(root.read("/err"), "chmod: cannot access 'nowhere': No such file or directory\n");
}

/// Follows the progress of a chmod through a folder of files, and keeps exchanging the next ones with links and back.
class Attacker {
  public:
    Attacker(const fs::path& folder, const fs::path& target) : folder_(::open(folder.c_str(), O_RDONLY | O_DIRECTORY)) {
        for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
            places_[entry.path().filename()] = names_.size();
            names_.push_back(entry.path().filename());
        }
        for (std::size_t i = 0; i < links; ++i) {
            fs::create_symlink(target, folder / linkName(i));
        }
        watch_ = Descriptor(::inotify_init1(IN_NONBLOCK));
        ::inotify_add_watch(watch_.get(), folder.c_str(), IN_ATTRIB);
        thread_ = std::jthread([this](const std::stop_token& stop) { attack(stop); });
    }

    std::size_t exchanges() const { return exchanges_; }

  private:
    static constexpr std::size_t links = 8;

    static std::string linkName(std::size_t number) { return "link" + std::to_string(number); }

    void attack(const std::stop_token& stop) {
        while (!stop.stop_requested()) {
            next_ = progress().value_or(next_);
            exchange(); // the links come in
            exchange(); // and go again
        }
    }

    void exchange() {
        for (std::size_t i = 0; i < links; ++i) {
            const std::string& file = names_[(next_ + 1 + i) % names_.size()];
            if (::renameat2(folder_.get(), file.c_str(), folder_.get(), linkName(i).c_str(), RENAME_EXCHANGE) == 0) {
                ++exchanges_;
            }
        }
    }

    /// The place of the file changed last; nullopt if none was since the last look.
    std::optional<std::size_t> progress() {
        alignas(inotify_event) std::array<char, 65536> buffer{};
        const ssize_t size = ::read(watch_.get(), buffer.data(), buffer.size());
        std::optional<std::size_t> place;
        for (ssize_t at = 0; at < size;) {
            const auto* event = reinterpret_cast<const inotify_event*>(buffer.data() + at);
            const auto found = places_.find(event->len > 0 ? event->name : "");
            place = found == places_.end() ? place : std::optional(found->second);
            at += static_cast<ssize_t>(sizeof *event + event->len);
        }
        return place;
    }

    Descriptor folder_;
    Descriptor watch_;
    /// The files in the order in which they are listed.
    std::vector<std::string> names_;
    std::unordered_map<std::string, std::size_t> places_;
    std::size_t next_ = 0;
    std::atomic<std::size_t> exchanges_ = 0;
    std::jthread thread_;
};

TEST_F(Chmod, CannotBeLedOutByExchangingItsEntries) {
    constexpr int files = 1000;
    for (int i = 0; i < files; ++i) {
        root.write("/tree/file" + std::to_string(i), "");
    }
    root.write("/canary", "");
    fs::permissions(root.at("/canary"), fs::perms(0600));
    const Attacker attacker(root.at("/tree"), root.at("/canary"));
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(1);
    int rounds = 0;
    while (mode("/canary") == 0600U && std::chrono::steady_clock::now() < end) {
        run("-R 777 tree");
        ++rounds;
    }
    EXPECT_EQ(mode("/canary"), 0600U) << "in round " << rounds;
    EXPECT_EQ(mode("/tree"), 0777U);
    EXPECT_GT(attacker.exchanges(), 100U);
}

} // namespace
