#include "foundation/property_list.h"
#include "prefs/HVLUserPrefManager.h"
#include "support/core_test.h"
#include "support/ping_lists.h"
#include "util/HVLLocalizableString.h"
#include "util/PropertyListFile.h"

#include <random>
#include <sys/stat.h>
#include <thread>

namespace fs = std::filesystem;
using namespace havrel;
using namespace platform;
using namespace std::string_literals;
using OptionalText = std::optional<std::string>;

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

    /// What is announced when the value is stored.
    std::string postedBySetting(const std::optional<Value>& value) {
        prefs.setObject(value, "key");
        return posted();
    }

    /// What is announced when a value is read.
    std::string postedByReading() {
        prefs.isServiceEnabled();
        return posted();
    }

    HVLUserPrefManager& prefs = HVLUserPrefManager::sharedHVLUserPrefManager().hostPref();
    const std::string changed = "ListHasBeenUpdated()", file = paths::hostSupport + "/.HostPref.plist";
};

TEST_F(Preferences, KeepEveryKindOfSettingUnderItsKey) {
    prefs.setIsServiceEnabled(true);
    prefs.setIsEntHostThroughLogin(true);
    prefs.setSessionRecordingAllowed(-7);
    prefs.setLoggedInUserName(Array{"any"});
    prefs.setforgetpasswordchanged("b");
    prefs.setLoggedInUsername("field"); // fields with names like those of stored settings reach no file
    prefs.setForgetpasswordchanged("field");
    prefs.setHftProcessID("field");
    EXPECT_EQ(content(file), Value(Dictionary{{"isServiceEnabled", true},
                                              {"entHostWithUserLogin", true},
                                              {"sessionRecordingAllowed", -7},
                                              {"LoggedInUsername", Array{"any"}},
                                              {"forgetpasswordchangedState", "b"}}));
    EXPECT_TRUE(prefs.isServiceEnabled());
    EXPECT_TRUE(prefs.entHostWithUserLogin());
    EXPECT_FALSE(prefs.isUserLoggedIn());
    EXPECT_EQ(prefs.sessionRecordingAllowed(), -7);
    EXPECT_EQ(prefs.hostAllowDenyPermissionOption(), 0);
    EXPECT_EQ(prefs.loggedInuserName(), Array{"any"});
    EXPECT_EQ(prefs.loggedInUsername(), "field");
    EXPECT_EQ(prefs.hftProcessID(), std::nullopt);
}

TEST_F(Preferences, EncodeSecrets) {
    struct Row {
        const char* key;
        OptionalText (HVLUserPrefManager::*get)() const;
        void (HVLUserPrefManager::*set)(const OptionalText&);
        bool isUndecodableGivenAsStored;
    };

    using Prefs = HVLUserPrefManager;
    const Row rows[] = {
        {"Password", &Prefs::password, &Prefs::setPassword, false},
        {"hostKey", &Prefs::hostKey, &Prefs::setHostKey, true},
        {"confirmhostKey", &Prefs::confirmhostKey, &Prefs::setConfirmhostKey, true},
        {"LoggedInPassword", &Prefs::loggedInpassword, &Prefs::setLoggedInPassword, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.key);
        EXPECT_EQ((prefs.*row.get)(), std::nullopt);
        (prefs.*row.set)("abc");
        (prefs.*row.set)("\xff"); // stores nothing, as nullopt does
        (prefs.*row.set)(std::nullopt);
        EXPECT_EQ(prefs.objectForKey(row.key), "YWJj");
        EXPECT_EQ((prefs.*row.get)(), "abc");
        for (const char* undecodable : {"/w==", "plain!"}) {
            prefs.setObject(undecodable, row.key);
            EXPECT_EQ((prefs.*row.get)(), row.isUndecodableGivenAsStored ? OptionalText(undecodable) : std::nullopt);
        }
    }
}

TEST_F(Preferences, ServeTheFileSelectedLast) {
    prefs.viewerPref().setUniqueID("viewer");
    EXPECT_EQ(prefs.uniqueID(), "viewer");
    prefs.hostBackupPref().setUniqueID("backup");
    EXPECT_EQ(content(paths::hostSupport + "/.ViewerPref.plist"), Value(Dictionary{{"uniqueId", "viewer"}}));
    EXPECT_EQ(content(paths::viewerSupport + "/.HostPref1.plist"), Value(Dictionary{{"uniqueId", "backup"}}));
}

TEST_F(Preferences, ResetADamagedFileOnceAndLeaveAFolderAlone) {
    struct Row {
        const char* name;
        std::function<void()> make;
        bool isReset;
    };

    const fs::path path = root.at(file);
    const std::string good = property_list::toXml(Dictionary{{"isServiceEnabled", true}}).value();
    std::string noise(100'000, '\0');
    std::generate(noise.begin(), noise.end(), std::minstd_rand());
    const auto makeHuge = [&] {
        root.write(file, "");
        fs::resize_file(path, 3'000'000'000);
    };
    const Row rows[] = {
        {"nothing", [] {}, true},
        {"an array", [&] { root.write(file, "<plist><array/></plist>"); }, true},
        {"cut short", [&] { root.write(file, good.substr(0, good.size() - 9)); }, true},
        {"random bytes", [&] { root.write(file, noise); }, true},
        {"deep nesting", [&] { root.write(file, "<plist>" + support::repeated("<array>", 500'000)); }, true},
        {"3 GB of zeros", makeHuge, true},
        {"a link", [&] { fs::create_symlink(root.at("/good"), path); }, true},
        {"a pipe", [&] { mkfifo(path.c_str(), 0666); }, true},
        {"a device", [&] { mknod(path.c_str(), S_IFCHR | 0666, 0x105); }, true},
        {"a folder", [&] { fs::create_directory(path); }, false},
    };
    root.write("/good", good);
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        fs::remove(path);
        row.make();
        EXPECT_EQ(support::storedPings(file), "") << "a proxy list is read in the same way";
        EXPECT_EQ(postedByReading(), changed);
        EXPECT_EQ(postedByReading(), row.isReset ? "" : changed);
        prefs.setHostID("x");
        EXPECT_EQ(content(file), row.isReset ? Value(Dictionary{{"hostID", "x"}}) : nullptr);
        EXPECT_EQ(root.read("/good"), good);
        posted();
    }
}

TEST_F(Preferences, AnnounceEveryChangeButARemoval) {
    const fs::path suite = root.at(paths::suiteSupport);
    EXPECT_EQ(postedBySetting("old"), changed + changed) << "the missing file was reset";
    EXPECT_EQ(postedBySetting("new"), changed);
    EXPECT_EQ(fs::status(suite).permissions(), fs::perms(0755));
    EXPECT_EQ(postedBySetting(Array{nullptr}), changed + changed) << "not to be written";
    EXPECT_EQ(fs::status(suite).permissions(), fs::perms(01411));
    prefs.setUrlForPrefFile(std::nullopt);
    EXPECT_EQ(postedBySetting("lost"), changed + changed + changed) << "no file selected";
    prefs.hostPref();
    EXPECT_EQ(content(file), Value(Dictionary{{"key", "new"}}));
    EXPECT_EQ(postedBySetting(std::nullopt), "");
    prefs.setHostDecription("mine");
    EXPECT_EQ(posted(), "RefreshHostDescription(mine)" + changed);
    EXPECT_EQ(content(file), Value(Dictionary{{"HostDescription", "mine"}}));
}

TEST_F(Preferences, AnnounceWhatIsInTheFileAlready) {
    std::vector<Value> announced;
    fakes::notifications::onPost([&](const auto& /*post*/) { announced.push_back(content(file)); });
    prefs.setObject("stored", "key");
    EXPECT_THAT(announced, testing::ElementsAre(Dictionary(), Dictionary{{"key", "stored"}})) << "reset, then stored";
}

TEST_F(Preferences, LoseNoThreadsKeyNotEvenToAReset) {
    for (int round = 0; round < 20; ++round) {
        root.write(file, "damaged");
        std::vector<std::jthread> threads(12);
        for (auto& thread : threads) {
            const std::string key = std::to_string(&thread - threads.data());
            thread = std::jthread([&, key] {
                prefs.isServiceEnabled();
                prefs.setObject(1, key);
            });
        }
        threads.clear();
        ASSERT_EQ(content(file).dictionary()->size(), 12U);
    }
}

TEST_F(Preferences, TellOfTheSystem) {
    fakes::machine::version({10, 15, 7});
    EXPECT_EQ(prefs.oSDetails(), "macOS Catalina 10.15.7");
    fakes::machine::version({11, 15, 2});
    EXPECT_EQ(prefs.oSDetails(), "macOS Big Sur 11.15.2");
    fakes::machine::version({6, 12, 0});
    EXPECT_EQ(prefs.oSDetails(), "macOS 6.12.0");
    EXPECT_EQ(prefs.integerFormatOfVersion("v7.6 (73)"), 7673);
    EXPECT_LE(prefs.getPortNumber() - 10000, 55535);
    EXPECT_THAT(prefs.getRandomString(), testing::MatchesRegex("[a-zA-Z0-9]{10}"));

    struct Proxies {
        std::string http, https;
        bool isSetUp;
    };

    for (const auto& [http, https, isSetUp] : {Proxies{"None", "HTTPS", true}, Proxies{"HTTP", "SOCKS", false},
                                               Proxies{"HTTP", "None", true}, Proxies{"SOCKS", "None", false}}) {
        fakes::network::proxyTypes({"kCFProxyType" + http, "kCFProxyType" + https});
        EXPECT_EQ(prefs.isMacProxySetUp(), isSetUp) << http << https;
    }
}

TEST_F(Preferences, KeepTheWakeOnLanStatusInAFileOfItsOwn) {
    struct Row {
        std::string user;
        std::string file;
    };

    for (const auto& [user, statusFile] :
         {Row{"ann@b.c", "/ann@b.c/wol"}, Row{"..", "/wol"}, Row{"../../etc", "/wol"}}) {
        prefs.setLoggedInUserName(user);
        prefs.setwolStatus(user);
        EXPECT_EQ(root.read(paths::hostSupport + statusFile), user);
        EXPECT_EQ(prefs.wolStatus(), user);
    }
}

TEST_F(Preferences, LocalizeTextsByTheApplicationsTable) {
    const std::string table = "/Applications/HavrelSuite.app/Contents/Resources/HVLLocalizable.plist";
    const auto localized = [](const OptionalText& text) { return HVLLocalizableString::doLocalizeString(text, {}); };
    const auto look = [&] {
        EXPECT_EQ(localized("Yes"), "Yes") << "no table";
        fs::create_directories(fs::path(root.at(table)).parent_path());
        root.write(table, "damaged");
        EXPECT_EQ(localized("Yes"), "Yes");
        ASSERT_TRUE(writePropertyList(table, Dictionary{{"Yes", "Ja"}, {"Number", 1}}));
        EXPECT_EQ(localized("Yes"), "Ja") << "tried again";
        EXPECT_EQ(localized("Number"), "Number");
        EXPECT_EQ(localized("No"), "No");
        EXPECT_EQ(localized(std::nullopt), "");
        fs::remove(root.at(table));
        EXPECT_EQ(localized("Yes"), "Ja") << "kept";
    };
    // In a process of its own, as a table is kept until the process ends.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            look();
            std::_Exit(HasFailure() ? 1 : 0);
        },
        testing::ExitedWithCode(0), "");
}
