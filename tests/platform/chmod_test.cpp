// The chmod that the daemon's command lines reach, and the attack for which it is there.
#include "platform/processes.h"
#include "trial/support/daemon_process.h"
#include "trial/support/stand_in_tools.h"
#include "trial/support/temporary_folder.h"

#include <atomic>
#include <cstdio>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

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
    root.write("/outside/target", "");
    root.write("/outside/linked", "");
    for (const char* path : {"/tree/file", "/outside/target", "/outside/linked"}) {
        fs::permissions(root.at(path), fs::perms(0600));
    }
    fs::create_directory(root.at("/tree/below"));
    fs::permissions(root.at("/tree/below"), fs::perms(02700));
    fs::create_symlink("../outside", root.at("/tree/folder link"));
    fs::create_symlink("../outside/target", root.at("/tree/file link"));
    EXPECT_EQ(run("-R 777 tree"), 0);
    EXPECT_EQ(root.read("/err"), "");
    EXPECT_EQ(mode("/tree"), 0777U);
    EXPECT_EQ(mode("/tree/file"), 0777U);
    EXPECT_EQ(mode("/tree/below"), 02777U);
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
    EXPECT_EQ(run("-R 777 nowhere"), 1);
    EXPECT_EQ(root.read("/err"), "chmod: cannot access 'nowhere': No such file or directory\n");
}

TEST_F(Chmod, CannotBeLedOutByExchangingItsEntries) {
    std::vector<std::string> files;
    for (int i = 0; i < 100; ++i) {
        root.write("/tree/" + std::to_string(i), "");
        files.push_back(root.at("/tree/" + std::to_string(i)));
    }
    root.write("/canary", "");
    fs::permissions(root.at("/canary"), fs::perms(0600));
    const std::string link = root.at("/tree/link");
    fs::create_symlink(root.at("/canary"), link);
    std::atomic<std::size_t> exchanges = 0;
    // Puts the link in the place of one file after the other, and back.
    const std::jthread attacker([&](const std::stop_token& stop) {
        for (std::size_t i = 0; !stop.stop_requested(); ++i) {
            const std::string& file = files[i / 2 % files.size()];
            if (::renameat2(AT_FDCWD, file.c_str(), AT_FDCWD, link.c_str(), RENAME_EXCHANGE) == 0) {
                ++exchanges;
            }
        }
    });
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(1);
    while (mode("/canary") == 0600U && std::chrono::steady_clock::now() < end) {
        run("-R 777 tree");
    }
    EXPECT_EQ(mode("/canary"), 0600U);
    EXPECT_GT(exchanges, 100U);
}

} // namespace
