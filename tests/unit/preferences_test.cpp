#include "foundation/property_list.h"
#include "prefs/HVLUserPrefManager.h"
#include "support/core_test.h"
#include "util/HVLLocalizableString.h"
#include "util/PropertyListFile.h"

#include <sys/stat.h>
#include <thread>

namespace fs = std::filesystem;
using namespace havrel;
using namespace platform;
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

    HVLUserPrefManager& prefs = HVLUserPrefManager::sharedHVLUserPrefManager().hostPref();
    const std::string changed = "ListHasBeenUpdated()", file = paths::hostSupport + "/.HostPref.plist";
};

TEST_F(Preferences, KeepTwinNamesApart) {
    prefs.setLoggedInUserName(Array{"any"});
    prefs.setLoggedInUsername("field"); // a field with a name like a stored setting's reaches no file
    EXPECT_EQ(content(file), Value(Dictionary{{"LoggedInUsername", Array{"any"}}}));
    EXPECT_EQ(prefs.loggedInUsername(), "field");
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
    // Called through the member, g++ 12 instruments a wrong address.
    Prefs& store = prefs;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.key);
        (store.*row.set)("abc");
        (store.*row.set)("\xff"); // stores nothing, as nullopt does
        (store.*row.set)(std::nullopt);
        EXPECT_EQ(store.objectForKey(row.key), "YWJj");
        EXPECT_EQ((store.*row.get)(), "abc");
        store.setObject("plain!", row.key);
        EXPECT_EQ((store.*row.get)(), row.isUndecodableGivenAsStored ? OptionalText("plain!") : std::nullopt);
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
    const auto makeHuge = [&] {
        root.write(file, "");
        fs::resize_file(path, 3'000'000'000);
    };
    const Row rows[] = {
        {"nothing", [] {}, true},
        {"cut short", [&] { root.write(file, good.substr(0, good.size() - 9)); }, true},
        {"deep nesting", [&] { root.write(file, "<plist>" + support::repeated("<array>", 500'000)); }, true},
        {"3 GB of zeros", makeHuge, true},
        {"a link", [&] { fs::create_symlink(root.at("/good"), path); }, true},
        {"a device", [&] { mknod(path.c_str(), S_IFCHR | 0666, 0x105); }, true},
        {"a folder", [&] { fs::create_directory(path); }, false},
    };
    root.write("/good", good);
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        fs::remove(path);
        row.make();
        prefs.isServiceEnabled();
        prefs.isServiceEnabled();
        EXPECT_EQ(posted(), row.isReset ? changed : changed + changed);
        prefs.setHostID("x");
        EXPECT_EQ(content(file), row.isReset ? Value(Dictionary{{"hostID", "x"}}) : nullptr);
        EXPECT_EQ(root.read("/good"), good);
        posted();
    }
}

TEST_F(Preferences, AnnounceEveryChangeButARemoval) {
    EXPECT_EQ(postedBySetting("old"), changed + changed) << "the missing file was reset";
    EXPECT_EQ(postedBySetting("new"), changed);
    EXPECT_EQ(postedBySetting(Array{nullptr}), changed + changed) << "not to be written";
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
        std::vector<std::jthread> threads;
        threads.reserve(12);
        for (int thread = 0; thread < 12; ++thread) {
            threads.emplace_back([this, thread] {
                prefs.isServiceEnabled();
                prefs.setObject(1, std::to_string(thread));
            });
        }
        threads.clear();
        ASSERT_EQ(content(file).dictionary()->size(), 12U);
    }
}

TEST_F(Preferences, KeepTheWakeOnLanStatusInAFileOfItsOwn) {
    for (const char* user : {"ann@b.c", "../../etc"}) {
        prefs.setLoggedInUserName(user);
        prefs.setwolStatus(user);
        EXPECT_EQ(prefs.wolStatus(), user);
    }
    EXPECT_EQ(root.read(paths::hostSupport + "/ann@b.c/wol"), "ann@b.c");
    EXPECT_EQ(root.read(paths::hostSupport + "/wol"), "../../etc");
}

TEST_F(Preferences, LocalizeTextsByTheApplicationsTable) {
    const std::string table = "/Applications/HavrelSuite.app/Contents/Resources/HVLLocalizable.plist";
    const auto localized = [](const OptionalText& text) { return HVLLocalizableString::doLocalizeString(text, {}); };
    const auto look = [&] {
        fs::create_directories(fs::path(root.at(table)).parent_path());
        root.write(table, "damaged");
        EXPECT_EQ(localized("Yes"), "Yes");
        ASSERT_TRUE(writePropertyList(table, Dictionary{{"Yes", "Ja"}}));
        EXPECT_EQ(localized("Yes"), "Ja") << "tried again";
        fs::remove(root.at(table));
        EXPECT_EQ(localized("Yes"), "Ja") << "kept";
        std::_Exit(HasFailure() ? 1 : 0);
    };
    // In a process of its own, as a table is kept until the process ends.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(look(), testing::ExitedWithCode(0), "");
}
