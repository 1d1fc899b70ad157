#include "daemon/HVLAutoUninstaller.h"
#include "fakes/fake_file_system_events.h"
#include "prefs/HVLUserPrefManager.h"
#include "support/core_test.h"
#include "trial/support/wait.h"

namespace {

using havrel::HVLAutoUninstaller;
using platform::Value;

class AutoUninstaller : public support::CoreTest {
  protected:
    AutoUninstaller() {
        fakes::clock::setStepped(true);
        fakes::file_system::watched({});
    }

    static void waitForWatches(std::size_t count) {
        EXPECT_TRUE(trial::eventually([&] { return fakes::file_system::watched().size() == count; }));
    }

    static void changeConsoleUser(const std::string& user) {
        fakes::machine::consoleUser(user);
        fakes::notifications::deliver({"desktopAppStarted", "", std::nullopt});
    }
};

struct PublicAddress {
    std::string name;
    std::string answer;
    std::vector<platform::network::InterfaceAddress> interfaces;
    bool isConfigured = true;
    std::optional<Value> before;
    Value after;
    std::size_t posts = 0;
};

TEST_F(AutoUninstaller, TellsOfANewPublicAddressOnceAnHour) {
    const std::string known = R"({"remoteIp":"5.6.7.8"})";
    const std::vector<platform::network::InterfaceAddress> local{{"eth0", true, "10.0.0.5"}};
    const PublicAddress rows[] = {
        {"first", known, local, true, {}, "5.6.7.8", 1},
        {"changed", known, local, true, "1.2.3.4", "5.6.7.8", 1},
        {"changed, not configured", known, local, false, "1.2.3.4", "5.6.7.8", 0},
        {"as before", known, local, true, "5.6.7.8", "5.6.7.8", 0},
        {"as before, as far as it is stored", R"({"remoteIp":"5.6.7.8\u0001"})", local, true, "5.6.7.8", "5.6.7.8", 0},
        {"no usable answer", "{}", local, true, "1.2.3.4", "10.0.0.5", 1},
        {"no answer, no interface", "", {}, true, "1.2.3.4", "1.2.3.4", 0},
    };
    HVLAutoUninstaller uninstaller;
    auto& preferences = havrel::hostPreferences();
    auto passed = std::chrono::hours(0);
    for (const PublicAddress& row : rows) {
        SCOPED_TRACE(row.name);
        fakes::notifications::reset();
        fakes::network::answerWith(row.answer);
        fakes::network::interfaces(row.interfaces);
        preferences.setUserConfigured(row.isConfigured);
        preferences.setExternalIp(row.before);
        fakes::clock::advance();
        EXPECT_EQ(fakes::clock::now(), ++passed);
        EXPECT_EQ(preferences.externalIp(), row.after);
        EXPECT_EQ(fakes::notifications::countOf("UpdatePublicIP"), row.posts);
        if (row.posts > 0) {
            EXPECT_EQ(lastPost(), "UpdatePublicIP//1");
        }
    }
}

TEST_F(AutoUninstaller, WaitsForAUserAndWatchesEveryTrash) {
    fakes::machine::users({"ann", "bob", ".hidden", "Shared"});
    {
        HVLAutoUninstaller uninstaller;
        uninstaller.launchWather();
        for (const auto& nobody : {std::optional<std::string>(), std::optional<std::string>("loginwindow")}) {
            fakes::machine::consoleUser(nobody);
            fakes::clock::waitForSleepers(1);
            EXPECT_TRUE(fakes::file_system::watched().empty());
            fakes::clock::advance();
        }
        fakes::clock::waitForSleepers(1);
        fakes::machine::consoleUser("ann");
        fakes::clock::advance();
        waitForWatches(1);
        // Who was waited for is not remembered, so another user changes nothing.
        fakes::machine::consoleUser("bob");
        fakes::notifications::deliver({"desktopAppStarted", "", std::nullopt});
    }
    EXPECT_EQ(fakes::clock::sleeps(), std::vector<std::chrono::nanoseconds>(3, std::chrono::seconds(1)));
    const auto watched = fakes::file_system::watched();
    ASSERT_EQ(watched.size(), 1U);
    EXPECT_THAT(watched[0].paths, testing::ElementsAre("/Applications", "/Users/ann/.Trash", "/Users/bob/.Trash"));
    EXPECT_EQ(watched[0].latency, std::chrono::seconds(1));
    EXPECT_THAT(takeLog(generalLog),
                testing::ElementsAre("launchWather called ", "No console user name so waitAndLaunch ",
                                     "startWatcher calling from waitAndLaunch",
                                     "startWatcher called so starting startWatcherThread",
                                     "dealloc called so Stoping startWatcherThread"));
}

TEST_F(AutoUninstaller, FollowsTheConsoleUntilAnUninstallIsAskedFor) {
    fakes::machine::users({"ann"});
    fakes::machine::consoleUser("ann");
    HVLAutoUninstaller uninstaller;
    uninstaller.launchWather();
    waitForWatches(1);
    changeConsoleUser("ann");
    changeConsoleUser("bob");
    waitForWatches(2);
    fakes::file_system::rename("/Applications/HavrelHost.app", "/Users/ann/.Trash/HavrelHost.app", true);
    fakes::notifications::waitFor("UNInstallAction", 1);
    changeConsoleUser("eve");
    EXPECT_THAT(takeLog(generalLog), testing::Contains("stopWatcher called so Stoping startWatcherThread").Times(1));
}

TEST_F(AutoUninstaller, OnlyTheFirstObjectObserves) {
    HVLAutoUninstaller first;
    HVLAutoUninstaller second;
    EXPECT_EQ(&HVLAutoUninstaller::sharedController(), &second);
    EXPECT_EQ(fakes::clock::alarms.size(), 2) << "each checks the public address";
    platform::local_center::post("UninstallViewer");
    EXPECT_THAT(fakes::processes::calls(),
                testing::ElementsAre(R"(sh /Library/Application\ Support/HVLViewForMac/Uninstaller)"));
}

} // namespace
