#include "e2e/daemon_test.h"

#include "foundation/json.h"
#include "trial/support/process_table.h"
#include "trial/support/sleep_service.h"
#include "web/HVLConnectionUtil.h"

namespace e2e {

using platform::Dictionary;
using platform::Value;
using trial::WebManner;

namespace {

// Tool calls.
const std::string loadHost = "launchctl load /Library/LaunchDaemons/com.Dravex.HVLDaemonHost.plist";
const std::string unloadHost = "launchctl unload /Library/LaunchDaemons/com.Dravex.HVLDaemonHost.plist";
const std::string killAgent = "killall HavrelAgent";
const std::string readComputerSleep = "systemsetup -getcomputersleep";
const std::string readDisplaySleep = "systemsetup -getdisplaysleep";
const std::string neverSleep = "systemsetup -setcomputersleep Never";
const Lines legacyRemoval{"launchctl unload /Library/LaunchAgents/com.Ostrane.ambrelHC.plist",
                          "launchctl unload /Library/LaunchAgents/com.Ostrane.ambrelH.plist",
                          "killall AmbrelViewer",
                          "killall AmbrelHC",
                          "rm -rf /Applications/AmbrelViewer",
                          "rm -rf /Applications/AmbrelHost",
                          "rm -rf /Library/LaunchAgents/com.Ostrane.ambrelH.plist",
                          "rm -rf /Library/LaunchAgents/com.Ostrane.ambrelHC.plist",
                          "rm -rf /Library/Application Support/AmbrelHost",
                          "rm -rf /Library/Application Support/AmbrelViewer"};

class CommandTest : public DaemonTest {
  protected:
    /// Without proxies, so that only the commands call tools.
    CommandTest() {
        std::filesystem::remove(machine.root.at(havrel::paths::hostInstallMarker));
        setPreferences({{"isServiceEnabled", true}}); // else start-up pauses a second
    }

    /// Waits until everything posted so far has been handled; the calls since the last time, without those of the wait.
    Lines callsUntilHandled() {
        client.post("StopDownload");
        const trial::ToolCall last{"killall", {"-9", "HVLVersionUpdate"}};
        EXPECT_TRUE(trial::eventually([&] {
            const auto all = machine.tools.calls();
            return all.size() > seen && all.back() == last;
        })) << daemon->diagnostics();
        Lines made;
        const auto all = machine.tools.calls();
        for (; seen + 1 < all.size(); ++seen) {
            made.push_back(all[seen].line());
        }
        ++seen;
        return made;
    }

    /// The messages in a log, without those of `callsUntilHandled` and of the pingers.
    Lines logged(const std::string& log) const {
        Lines lines = machine.root.logged(log);
        std::erase_if(lines, [](const std::string& line) {
            return line == "HVLHelper :  close update" || line.starts_with("Five Best Proxies");
        });
        return lines;
    }

    std::size_t seen = 0;
};

struct Command {
    const char* name;
    std::string notification;
    Dictionary userInfo = {};
    /// A tool and what it does.
    std::string tool = {};
    std::string script = {};
    Dictionary before = {};
    Lines calls = {};
    Lines generalLog = {};
    Lines hostLog = {};
    Dictionary after = {};
};

void append(Lines& lines, const Lines& more) { lines.insert(lines.end(), more.begin(), more.end()); }

} // namespace

TEST_F(CommandTest, RunExactlyTheirToolsAndLeaveTheirTraces) {
    const std::string updater = "/Library/Application Support/HVLHostForMac/HVLVersionUpdate";
    const std::filesystem::path started = machine.root.folder() / "started";
    machine.root.write(updater, "");
    // It runs until the test's folder is removed: nobody may wait for it.
    trial::writeProgram(machine.root.at(updater), "#!/bin/sh\necho once >> '" + started.string() +
                                                      "'\nwhile [ -e \"$0\" ]; do sleep 0.1; done\n");
    const std::string running = "/running" + updater;
    machine.root.write(running, trial::readFile("/bin/sleep"));
    std::filesystem::permissions(machine.root.at(running), std::filesystem::perms::all);
    const trial::DaemonProcess runningUpdater(machine.root.at(running), {}, machine.root.folder(), "running", {"600"});
    const std::string never = R"(echo "Computer Sleep: Never"; echo "Display Sleep: Never")";
    const std::string on = "HVLHelper : EnableAction : Called";
    const std::string off = "HVLHelper : DisableAction : Called";

    const Command commands[] = {
        {.name = "switched on, a user at the console",
         .notification = "EnableActionHost",
         .tool = "ps",
         .script =
             "echo 'USER PID COMMAND'; echo 'ann 501 /System/loginwindow console'; echo 'root 7 grep loginwindow'",
         .calls = {killAgent, "ps aux",
                   "sudo launchctl bsexec 501 sudo -u ann launchctl load -S Aqua "
                   "/Library/LaunchAgents/com.Dravex.HavrelAgent.plist",
                   loadHost},
         .hostLog = {on}},
        {.name = "switched on, nobody there",
         .notification = "EnableActionHost",
         .tool = "ps",
         .script = "exec true",
         .calls = {killAgent, "ps aux", loadHost},
         .hostLog = {on}},
        {.name = "switched off", .notification = "DisableAction", .calls = {unloadHost}, .hostLog = {off}},
        {.name = "switched off, instant access on",
         .notification = "DisableAction",
         .before = {{"IsInstanstAccessEnabled", true}},
         .hostLog = {off},
         .after = {{"IsInstanstAccessEnabled", true}}},
        {.name = "restarted",
         .notification = "kHVLRestartServiceFromHelper",
         .calls = {unloadHost, killAgent, "ps aux", loadHost},
         .hostLog = {off, on}},
        {.name = "legacy products removed", .notification = "killAction", .calls = legacyRemoval},
        {.name = "updater runs already",
         .notification = "StartDownlad",
         .tool = "ps",
         .script = "exec /usr/bin/ps \"$@\"",
         .calls = {"ps -A"},
         .hostLog = {"HVLHelper :  version update already running"}},
        {.name = "updater started",
         .notification = "StartDownlad",
         .tool = "ps",
         .script = "echo '78 grep  HVLVersionUpdate'",
         .calls = {"ps -A"},
         .generalLog = {"HVLHelper :  Launching version update from helper"},
         .hostLog = {"Download URL:https://static.invalid/downloads/hvl/autoupdate/HavrelHost.dmg"},
         .after = {{"AutoInstall", 1}}},
        {.name = "kept awake",
         .notification = "sleepState",
         .userInfo = {{"sleep", "1"}},
         .tool = "systemsetup",
         .script = R"(echo "Computer Sleep: after 45 minutes"; echo "Display Sleep: after 15 minutes")",
         .calls = {readComputerSleep, readDisplaySleep, neverSleep},
         .generalLog = {"Disable sleep enabled"},
         .after = {{"ComputerSleep", "45"}, {"DisplaySleep", "15"}}},
        {.name = "kept awake, the timers off already",
         .notification = "sleepState",
         .userInfo = {{"sleep", "1"}},
         .tool = "systemsetup",
         .script = never,
         .before = {{"ComputerSleep", "7"}},
         .calls = {readComputerSleep, readDisplaySleep, neverSleep},
         .generalLog = {"Disable sleep enabled"},
         .after = {{"ComputerSleep", "7"}}},
        {.name = "let sleep",
         .notification = "sleepState",
         .userInfo = {{"sleep", "0"}},
         .generalLog = {"Disable sleep disabled"},
         .after = {{"ComputerSleep", "45"}, {"DisplaySleep", "15"}}},
        {.name = "another sleep state", .notification = "sleepState", .userInfo = {{"sleep", "2"}}},
        {.name = "a sleep state that is no text", .notification = "sleepState", .userInfo = {{"sleep", 1}}},
        {.name = "another key than the sleep state", .notification = "sleepState", .userInfo = {{"x", "1"}}},
        {.name = "no sleep state", .notification = "sleepState"},
        {.name = "timers read, one off, one unreadable",
         .notification = "Sleep_Settings_HOST",
         .tool = "systemsetup",
         .script = "case $1 in *computer*) " + never + ";; *) echo no >&2;; esac",
         .calls = {readComputerSleep, readDisplaySleep},
         .after = {{"ComputerSleep", "181"}, {"DisplaySleep", "18446744073709551615"}}},
    };
    startUp();
    callsUntilHandled();
    Lines general = logged(trial::generalLog);
    Lines host = logged(trial::hostLog);
    for (const Command& command : commands) {
        SCOPED_TRACE(command.name);
        if (!command.tool.empty()) {
            machine.tools.script(command.tool, command.script);
        }
        setPreferences(command.before);
        client.post(command.notification, {}, command.userInfo);
        EXPECT_EQ(callsUntilHandled(), command.calls);
        EXPECT_EQ(preferences(), command.after);
        append(general, command.generalLog);
        append(host, command.hostLog);
    }
    // The loggers write in the background.
    EXPECT_TRUE(trial::eventually([&] { return logged(trial::generalLog) == general; }))
        << testing::PrintToString(logged(trial::generalLog));
    EXPECT_TRUE(trial::eventually([&] { return logged(trial::hostLog) == host; }))
        << testing::PrintToString(logged(trial::hostLog));
    EXPECT_TRUE(client.waitForCount("Sleep_Settings_Updated_HOST", 1));
    EXPECT_TRUE(trial::eventually([&] { return trial::readFile(started) == "once\n"; }));
}

TEST_F(CommandTest, UninstallDeregistersUnlessToldToKeep) {
    const std::string uninstaller = "sh '/Library/Application Support/HVLHostForMac/Uninstaller' ";
    const std::string deletion = "POST " + machine.service.host() + "/cgi-bin/hvl/v1/delete_havrel_account.cgi";
    const std::string deactivation = "GET " + machine.service.host() + "/cgi-bin/hvl/v1/deactivate_machine.cgi?id=";
    const Dictionary account{
        {"sessionId", "S 1"},  {"HostClientSignature", "sig+/="}, {"hostID", "H&T"},       {"viewerToken", "V"},
        {"uniqueId", "0a:1b"}, {"HavrelVersion", "7.1"},          {"ComputerSleep", "45"}, {"DisplaySleep", "15"}};
    const Dictionary accountsDevices{
        {"instant", Dictionary{{"host", Dictionary{{"client_signature", "sig+/="}, {"id", "S 1"}}}}},
        {"regular", Dictionary{{"host", Dictionary{{"token", "H&T"}}}, {"viewer", Dictionary{{"token", "V"}}}}}};

    const struct {
        const char* name;
        Dictionary userInfo, stored;
        std::string fields, id, version;
        Dictionary devices;
    } cases[] = {
        {.name = "an account",
         .userInfo = {},
         .stored = account,
         .fields = "client_id=S 1&client_signature=sig%2B%2F%3D&token=H%26T",
         .id = "0a:1b",
         .version = "7.1",
         .devices = accountsDevices},
        {.name = "nothing stored, a flag that is no text",
         .userInfo = {{"deleteConfigFiles", 0}},
         .stored = {},
         .fields = "client_id=&client_signature=&token=",
         .id = "(null)",
         .version = "(null)",
         .devices = {{"instant", Dictionary()}, {"regular", Dictionary()}}},
    };

    startUp();
    callsUntilHandled();
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        machine.service.reset();
        setPreferences(row.stored);
        client.post("UNInstallAction", {}, row.userInfo);
        EXPECT_EQ(callsUntilHandled(), Lines{uninstaller + "1"});
        const auto requests = machine.service.requests();
        ASSERT_EQ(requests.size(), 2U);
        EXPECT_EQ(described(requests[0]), deletion);
        EXPECT_EQ(requests[0].body, row.fields);
        EXPECT_EQ(requests[0].header("Content-length"), std::to_string(row.fields.size()));
        const std::string document = platform::json::prettyPrinted(row.devices).value();
        EXPECT_EQ(described(requests[1]), deactivation + row.id + "&device_list=" + havrel::percentEncoded(document));
        EXPECT_EQ(requests[1].header("User-Agent"), "Havrel Mac:" + row.version);
        EXPECT_EQ(preferences().at("ComputerSleep"), Value(""));
        EXPECT_EQ(preferences().at("DisplaySleep"), Value(""));
    }
    EXPECT_THAT(machine.root.logged(trial::generalLog),
                testing::IsSupersetOf({"objc - HVLHelper : UnInstallAction : Called with notification: (null)",
                                       "objc - HVLHelper : uninstalling HVLHost"}));
    EXPECT_THAT(machine.root.read(trial::generalLog),
                testing::HasSubstr("objc - HVLHelper :  HVLHost uninstaller script =\n sh "
                                   "/Library/Application\\ Support/HVLHostForMac/Uninstaller 1 "));

    // A service that hangs up stops nothing.
    machine.service.reset();
    machine.service.receive(WebManner::closeAtOnce);
    setPreferences(account);
    client.post("UNInstallAction");
    EXPECT_EQ(callsUntilHandled(), Lines{uninstaller + "1"});
    EXPECT_EQ(machine.service.connections(), 2U);
    EXPECT_EQ(preferences().at("ComputerSleep"), Value(""));
    EXPECT_EQ(preferences().at("DisplaySleep"), Value(""));

    machine.service.reset();
    setPreferences(account);
    client.post("UNInstallAction", {}, {{"deleteConfigFiles", "0"}});
    EXPECT_EQ(callsUntilHandled(), Lines{uninstaller + "0"});
    EXPECT_EQ(machine.service.connections(), 0U);
    EXPECT_EQ(preferences(), account);
    EXPECT_THAT(machine.root.read(trial::generalLog),
                testing::HasSubstr("Called with notification: {\n    deleteConfigFiles = 0;\n} "));
}

TEST_F(CommandTest, ToldOfSleepAndWakeBeforeTheMachineSleeps) {
    const struct {
        const char* type;
        bool begins;
        /// How many the daemon still holds once it has passed the news on.
        std::size_t locks;
    } changes[] = {
        {"NSWorkspaceWillSleepNotification", true, 0},
        {"NSWorkspaceDidWakeNotification", false, 1},
    };

    trial::SleepService logind(machine.bus.address());
    startUp();
    ASSERT_TRUE(logind.waitForLocks(1));
    for (const auto& change : changes) {
        SCOPED_TRACE(change.type);
        const std::size_t count = client.countOf("sleepStateChanged");
        logind.prepareForSleep(change.begins);
        ASSERT_TRUE(logind.waitForLocks(change.locks));
        ASSERT_TRUE(client.waitForCount("sleepStateChanged", count + 1));
        const auto heard = client.heard();
        const auto last = std::ranges::find(heard.rbegin(), heard.rend(), "sleepStateChanged", &trial::Posted::name);
        EXPECT_EQ(last->userInfo, (Dictionary{{"type", change.type}}));
        EXPECT_EQ(last->options, 2U);
        const std::string line = std::string("Helper :  SleepState notofocation got called:") + change.type;
        EXPECT_TRUE(trial::eventually([&] { return countLogged(line) == 1; }));
    }
}

TEST_F(CommandTest, OutliveToolsThatMisbehave) {
    const struct {
        const char* name;
        std::string systemsetup, ps;
    } cases[] = {
        {"failing", "exit 3", "exit 3"},
        {"killed", "kill -KILL $$", "kill -SEGV $$"},
        {"talkative", "head -c 10000000 /dev/zero; head -c 10000000 /dev/zero >&2", "head -c 10000000 /dev/zero"},
        {"slow", "exit 0", "sleep 2"},
    };

    startUp();
    // What a tool leaves behind becomes a child of init.
    const auto descriptorsAndChildren = [&] {
        const auto folder = "/proc/" + std::to_string(daemon->id()) + "/fd";
        return std::distance(std::filesystem::directory_iterator(folder), std::filesystem::directory_iterator()) +
               std::ranges::count(trial::processTable(), daemon->id(), &trial::Process::parent);
    };
    callsUntilHandled();
    const auto before = descriptorsAndChildren();
    const auto ask = [&](const Lines& calls) {
        client.post("sleepState", {}, {{"sleep", "1"}});
        client.post("StartDownlad");
        EXPECT_EQ(callsUntilHandled(), calls);
        EXPECT_TRUE(trial::eventually([&] { return descriptorsAndChildren() <= before; }))
            << descriptorsAndChildren() << " instead of " << before;
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        machine.tools.script("systemsetup", row.systemsetup);
        machine.tools.script("ps", row.ps);
        ask({readComputerSleep, readDisplaySleep, neverSleep, "ps -A"});
    }
    SCOPED_TRACE("missing");
    for (const char* tool : {"systemsetup", "ps"}) {
        std::filesystem::remove(std::filesystem::path(machine.tools.searchPath()) / tool);
    }
    ask({});
}

TEST_F(CommandTest, HandleABurstInOrder) {
    constexpr std::size_t burst = 250;
    startUp();
    callsUntilHandled();
    for (std::size_t i = 0; i < burst; ++i) {
        client.post(i % 2 == 0 ? "StopDownload" : "UNInstallAction", {}, {{"deleteConfigFiles", "0"}});
    }
    client.post("killAction");
    ASSERT_TRUE(trial::eventually([&] { return machine.tools.calls("rm").size() == 6; }, std::chrono::seconds(60)));
    const auto all = machine.tools.calls();
    ASSERT_GE(all.size(), seen + burst);
    for (std::size_t i = 0; i < burst; ++i) {
        EXPECT_EQ(all[seen + i].name, i % 2 == 0 ? "killall" : "sh") << i;
    }
}

} // namespace e2e
