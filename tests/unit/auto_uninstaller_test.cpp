#include "daemon/HVLAutoUninstaller.h"
#include "fakes/fake_run_loop.h"
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
        fakes::run_loop::watched({});
    }
};

TEST_F(AutoUninstaller, TellsOfANewPublicAddress) {
    const std::string service = R"({"remoteIp":"5.6.7.8"})";
    const platform::network::InterfaceAddress local{"eth0", true, "10.0.0.5"};

    const std::tuple<const char*, std::string, bool, bool, const char*, const char*, std::size_t> rows[] = {
        // the answer, an interface, configured, before, after, posts
        {"first", service, true, true, nullptr, "5.6.7.8", 1},
        {"changed", service, true, true, "1.2.3.4", "5.6.7.8", 1},
        {"changed, not configured", service, true, false, "1.2.3.4", "5.6.7.8", 0},
        {"as before", service, true, true, "5.6.7.8", "5.6.7.8", 0},
        {"no usable answer", "{}", true, true, "1.2.3.4", "10.0.0.5", 1},
        {"no answer, no interface", "", false, true, "1.2.3.4", "1.2.3.4", 0},
    };
    HVLAutoUninstaller uninstaller;
    for (const auto& [what, answer, hasInterface, isConfigured, before, after, posts] : rows) {
        fakes::notifications::reset();
        fakes::network::answerWith(answer);
        fakes::network::interfaces(std::vector(hasInterface ? 1 : 0, local));
        auto& preferences = havrel::hostPreferences();
        preferences.setUserConfigured(isConfigured);
        preferences.setExternalIp(before != nullptr ? std::optional<Value>(before) : std::nullopt);
        fakes::clock::advance();
        EXPECT_EQ(preferences.externalIp(), Value(after)) << what;
        EXPECT_EQ(fakes::notifications::countOf("UpdatePublicIP"), posts) << what;
        EXPECT_TRUE(posts == 0 || lastPost() == "UpdatePublicIP//1") << lastPost();
    }
    EXPECT_EQ(fakes::clock::now(), std::chrono::hours(std::size(rows)));
}

TEST_F(AutoUninstaller, WaitsForAUserAndWatchesEveryTrash) {
    for (const char* folder : {"ann", "bob", ".hidden", "Shared"}) {
        std::filesystem::create_directories(root.at(std::string("/Users/") + folder));
    }
    {
        HVLAutoUninstaller uninstaller;
        for (const auto& nobody : {std::optional<std::string>(), std::optional<std::string>("loginwindow")}) {
            fakes::machine::consoleUser(nobody);
            if (!nobody) {
                uninstaller.launchWather();
            }
            fakes::clock::waitForSleepers(1);
            EXPECT_TRUE(fakes::run_loop::watched().empty());
            fakes::clock::advance();
        }
        fakes::clock::waitForSleepers(1);
        fakes::machine::consoleUser("ann");
        fakes::clock::advance();
        EXPECT_TRUE(trial::eventually([] { return fakes::run_loop::watched().size() == 1; }));
        // Who was waited for is not remembered, so another user changes nothing.
        fakes::machine::consoleUser("bob");
        fakes::notifications::deliver({"desktopAppStarted", "", std::nullopt});
    }
    EXPECT_EQ(fakes::clock::sleeps(), std::vector<std::chrono::nanoseconds>(3, std::chrono::seconds(1)));
    EXPECT_THAT(fakes::run_loop::watched(),
                testing::ElementsAre(testing::ElementsAre("/Applications", "/Users/ann/.Trash", "/Users/bob/.Trash")));
    EXPECT_THAT(takeLog(generalLog),
                testing::ElementsAre("launchWather called ", "No console user name so waitAndLaunch ",
                                     "startWatcher calling from waitAndLaunch",
                                     "startWatcher called so starting startWatcherThread",
                                     "dealloc called so Stoping startWatcherThread"));
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

TEST_F(AutoUninstaller, EndsTheProcessWhenTheCountDownIsOver) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    HVLAutoUninstaller uninstaller;
    uninstaller.startTimer();
    EXPECT_EQ(uninstaller.countDown(), 86400);
    fakes::clock::advance();
    EXPECT_EQ(uninstaller.countDown(), 86399);
    EXPECT_EQ(fakes::clock::now(), std::chrono::milliseconds(100));
    uninstaller.stopTimer();
    EXPECT_EQ(fakes::clock::alarms.size(), 1);
    uninstaller.setCountDown(1);
    uninstaller.updateTimer();
    // The process that ends is another one, with a root of its own.
    EXPECT_EXIT((std::filesystem::remove_all(root.path()), uninstaller.updateTimer()), testing::ExitedWithCode(0), "");
}

} // namespace
