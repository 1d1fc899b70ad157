#include "foundation/property_list.h"
#include "prefs/HVLUserPrefManager.h"
#include "support/core_test.h"
#include "support/ping_lists.h"
#include "util/PropertyListFile.h"

#include <random>
#include <sys/stat.h>
#include <thread>

namespace fs = std::filesystem;
using namespace havrel;
using namespace platform;
using namespace std::string_literals;
using Text = std::optional<std::string>;

class Preferences : public support::CoreTest {
  protected:
    static Value content(const std::string& path) { return havrel::readPropertyList(path).value_or(nullptr); }

    /// What was announced since the last call, to all sessions at once.
    static std::string posted() {
        std::string text;
        for (const auto& post : fakes::notifications::posts()) {
            text += post.name + "(" + post.object + ")" + (post.options == 3 && !post.userInfo ? "" : "otherwise");
        }
        fakes::notifications::reset();
        return text;
    }

    HVLUserPrefManager& prefs = HVLUserPrefManager::sharedHVLUserPrefManager().hostPref();
    const std::string changed = "ListHasBeenUpdated()", file = paths::hostSupport + "/.HostPref.plist";
};

TEST_F(Preferences, KeepEveryKindOfSettingUnderItsKey) {
    prefs.setIsServiceEnabled(true);
    prefs.setIsEntHostThroughLogin(true);
    prefs.setSessionRecordingAllowed(-7);
    prefs.setPassword("abc");
    prefs.setLoggedInUserName(Array{"any"});
    prefs.setLoggedInUsername("field"); // the twin of the last one, and below of another, reach no file
    prefs.setforgetpasswordchanged("b");
    prefs.setForgetpasswordchanged("field");
    prefs.setHftProcessID("field");
    // clang-format off
    EXPECT_EQ(content(file), Value(Dictionary{
        {"isServiceEnabled", true}, {"entHostWithUserLogin", true}, {"sessionRecordingAllowed", -7},
        {"Password", "YWJj"}, {"LoggedInUsername", Array{"any"}}, {"forgetpasswordchangedState", "b"}}));
    // clang-format on
    EXPECT_TRUE(prefs.isServiceEnabled() && prefs.entHostWithUserLogin() && !prefs.isUserLoggedIn());
    EXPECT_EQ(prefs.sessionRecordingAllowed() * 10 + prefs.hostAllowDenyPermissionOption(), -70);
    EXPECT_TRUE(prefs.loggedInuserName() == Array{"any"} && prefs.loggedInUsername() == "field" &&
                !prefs.hftProcessID());
    prefs.setHostKey("\xff");
    prefs.setHostKey({}); // neither can be stored
    EXPECT_EQ(std::pair(prefs.password(), prefs.hostKey()), std::pair(Text("abc"), Text()));
    for (const char* broken : {"/w==", "plain!"}) {
        prefs.setObject(broken, "Password");
        prefs.setObject(broken, "hostKey");
        EXPECT_EQ(std::pair(prefs.password(), prefs.hostKey()), std::pair(Text(), Text(broken)));
    }
    prefs.viewerPref().setUniqueID("viewer");
    EXPECT_EQ(prefs.uniqueID(), "viewer") << "the file selected last is served";
    prefs.hostBackupPref().setUniqueID("backup");
    EXPECT_EQ(content(paths::hostSupport + "/.ViewerPref.plist"), Value(Dictionary{{"uniqueId", "viewer"}}));
    EXPECT_EQ(content(paths::viewerSupport + "/.HostPref1.plist"), Value(Dictionary{{"uniqueId", "backup"}}));
}

TEST_F(Preferences, ResetADamagedFileOnceAndLeaveAloneWhatIsNoFile) {
    const fs::path path = root.at(file);
    const std::string good = property_list::toXml(Dictionary{{"isServiceEnabled", true}}).value();
    std::string noise(100'000, '\0');
    std::generate(noise.begin(), noise.end(), std::minstd_rand());
    const std::tuple<const char*, std::function<void()>, bool> rows[] = {
        // what, how it is made, whether it is reset
        {"nothing", [] {}, true},
        {"an array", [&] { root.write(file, "<plist><array/></plist>"); }, true},
        {"cut short", [&] { root.write(file, good.substr(0, good.size() - 9)); }, true},
        {"random bytes", [&] { root.write(file, noise); }, true},
        {"deep nesting", [&] { root.write(file, "<plist>" + support::repeated("<array>", 500'000)); }, true},
        {"3 GB of zeros", [&] { root.write(file, ""), fs::resize_file(path, 3'000'000'000); }, true},
        {"a link", [&] { fs::create_symlink(root.at("/good"), path); }, false},
        {"a pipe", [&] { mkfifo(path.c_str(), 0666); }, false},
        {"a device", [&] { mknod(path.c_str(), S_IFCHR | 0666, 0x105); }, false},
        {"a folder", [&] { fs::create_directory(path); }, false},
    };
    root.write("/good", good);
    for (const auto& [what, make, isReset] : rows) {
        SCOPED_TRACE(what);
        fs::remove(path);
        make();
        EXPECT_EQ(support::storedPings(file), "") << "a proxy list is read in the same way";
        EXPECT_EQ((prefs.isServiceEnabled(), posted()), changed);
        EXPECT_EQ((prefs.isServiceEnabled(), posted()), isReset ? "" : changed);
        EXPECT_EQ((prefs.setHostID("x"), content(file)), isReset ? Value(Dictionary{{"hostID", "x"}}) : nullptr);
        EXPECT_EQ(root.read("/good"), good);
        posted();
    }
}

TEST_F(Preferences, AnnounceEveryChangeButARemoval) {
    const fs::path suite = root.at(paths::suiteSupport);
    EXPECT_EQ((prefs.setObject("old", "key"), posted()), changed + changed) << "the missing file was reset";
    EXPECT_EQ((prefs.setObject("new", "key"), posted()), changed);
    EXPECT_EQ(fs::status(suite).permissions(), fs::perms(0755));
    EXPECT_EQ((prefs.setObject(Array{nullptr}, "key"), posted()), changed + changed) << "not to be written";
    EXPECT_EQ(fs::status(suite).permissions(), fs::perms(01411));
    prefs.setUrlForPrefFile(std::nullopt);
    EXPECT_EQ((prefs.setObject("lost", "key"), posted()), changed + changed + changed) << "no file selected";
    EXPECT_EQ(prefs.hostPref().objectForKey("key"), "new");
    EXPECT_EQ((prefs.setObject(std::nullopt, "key"), posted()), "");
    EXPECT_EQ((prefs.setHostDecription("mine"), posted()), "RefreshHostDescription(mine)" + changed);
    EXPECT_EQ(content(file), Value(Dictionary{{"HostDescription", "mine"}}));
}

TEST_F(Preferences, LoseNoThreadsKeyNotEvenToAReset) {
    for (int round = 0; round < 20; ++round) {
        root.write(file, "damaged");
        std::vector<std::jthread> threads(12);
        for (auto& thread : threads) {
            const std::string key = std::to_string(&thread - threads.data());
            thread = std::jthread([&, key] { prefs.isServiceEnabled(), prefs.setObject(1, key); });
        }
        threads.clear();
        ASSERT_EQ(content(file).dictionary()->size(), 12U);
    }
}

TEST_F(Preferences, TellOfTheSystemAndKeepTheWakeOnLanStatus) {
    for (const auto& [version, details] : {std::pair(system_info::Version{10, 15, 7}, "macOS Catalina 10.15.7"),
                                           {{10, 10, 0}, "OS X Yosemite 10.10.0"},
                                           {{10, 16, 1}, "macOS Big Sur 10.16.1"},
                                           {{11, 15, 2}, "macOS Big Sur 11.15.2"},
                                           {{6, 12, 0}, "macOS 6.12.0"}}) {
        EXPECT_EQ((fakes::machine::version(version), prefs.oSDetails()), details);
    }
    for (const auto& [http, https, isSetUp] : {std::tuple("None", "HTTPS", true),
                                               {"HTTP", "SOCKS", false},
                                               {"HTTP", "None", true},
                                               {"SOCKS", "None", false}}) {
        fakes::network::proxyTypes({"kCFProxyType"s + http, "kCFProxyType"s + https});
        EXPECT_EQ(prefs.isMacProxySetUp(), isSetUp) << http << https;
    }
    for (const auto& [version, number] : {std::pair("7.6.73", 7673), {"v1.2 (3)", 123}, {"", 0}, {"٣.1", 1}}) {
        EXPECT_EQ((prefs.setHavrelVersion(version), prefs.currentVersionInIntegerFormat()), number);
    }
    EXPECT_LE(prefs.getPortNumber() - 10000, 55535);
    EXPECT_THAT(prefs.getRandomString(), testing::MatchesRegex("[a-zA-Z0-9]{10}"));
    for (const auto& [user, file] : {std::pair("ann@b.c", "/ann@b.c/wol"), {"..", "/wol"}, {"../../etc", "/wol"}}) {
        prefs.setLoggedInUserName(user);
        EXPECT_EQ((prefs.setwolStatus(user), root.read(paths::hostSupport + file)), user);
        EXPECT_EQ(prefs.wolStatus(), user);
    }
}
