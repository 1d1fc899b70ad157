#include "e2e/daemon_test.h"

#include "foundation/json.h"
#include "trial/support/hostile_answers.h"
#include "trial/support/process_table.h"
#include "trial/support/sleep_service.h"
#include "web/HVLConnectionUtil.h"

namespace e2e {

using platform::Dictionary;
using platform::Value;

namespace {

// Tool calls.
const std::string loadHost = "launchctl load /Library/LaunchDaemons/com.Dravex.HVLDaemonHost.plist";
const std::string unloadHost = "launchctl unload /Library/LaunchDaemons/com.Dravex.HVLDaemonHost.plist";
const std::string killAgent = "killall HavrelAgent";
const std::string readComputerSleep = "systemsetup -getcomputersleep";
const std::string readDisplaySleep = "systemsetup -getdisplaysleep";
const std::string uninstaller = "sh '/Library/Application Support/HVLHostForMac/Uninstaller' ";
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
        {.name = "switched off", .notification = "DisableAction", .calls = {unloadHost}, .hostLog = {off}},
        {.name = "restarted, nobody at the console",
         .notification = "kHVLRestartServiceFromHelper",
         .tool = "ps",
         .script = "exec true",
         .calls = {unloadHost, killAgent, "ps aux", loadHost},
         .hostLog = {off, on}},
        {.name = "legacy products removed", .notification = "killAction", .calls = legacyRemoval},
        {.name = "updater runs already",
         .notification = "StartDownlad",
         .tool = "ps",
         .script = "echo '78 " + updater + "'",
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
        {.name = "a sleep state that is no text", .notification = "sleepState", .userInfo = {{"sleep", 1}}},
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
    // The start-up's last line, written in the background.
    ASSERT_TRUE(trial::eventually(
        [&] { return std::ranges::count(logged(trial::generalLog), "No console user name so waitAndLaunch ") == 1; }));
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
    const std::string deletion = "POST " + machine.service.host() + "/cgi-bin/hvl/v1/delete_havrel_account.cgi";
    const std::string deactivation = "GET " + machine.service.host() + "/cgi-bin/hvl/v1/deactivate_machine.cgi?id=";
    const Dictionary account{
        {"sessionId", "S 1"},  {"HostClientSignature", "sig+/="}, {"hostID", "H&T"},       {"viewerToken", "V"},
        {"uniqueId", "0a:1b"}, {"HavrelVersion", "7.1"},          {"ComputerSleep", "45"}, {"DisplaySleep", "15"}};
    const Dictionary devices{
        {"instant", Dictionary{{"host", Dictionary{{"client_signature", "sig+/="}, {"id", "S 1"}}}}},
        {"regular", Dictionary{{"host", Dictionary{{"token", "H&T"}}}, {"viewer", Dictionary{{"token", "V"}}}}}};
    const std::string fields = "client_id=S 1&client_signature=sig%2B%2F%3D&token=H%26T";
    startUp();
    callsUntilHandled();
    setPreferences(account);
    client.post("UNInstallAction");
    EXPECT_EQ(callsUntilHandled(), Lines{uninstaller + "1"});
    const auto requests = machine.service.requests();
    ASSERT_EQ(requests.size(), 2U);
    EXPECT_EQ(described(requests[0]), deletion);
    EXPECT_EQ(requests[0].body, fields);
    EXPECT_EQ(requests[0].header("Content-length"), std::to_string(fields.size()));
    const std::string document = platform::json::prettyPrinted(devices).value();
    EXPECT_EQ(described(requests[1]), deactivation + "0a:1b&device_list=" + havrel::percentEncoded(document));
    EXPECT_EQ(requests[1].header("User-Agent"), "Havrel Mac:7.1");
    EXPECT_EQ(preferences().at("ComputerSleep"), Value(""));
    EXPECT_EQ(preferences().at("DisplaySleep"), Value(""));

    // A flag that is no text counts as none.
    setPreferences(account);
    client.post("UNInstallAction", {}, {{"deleteConfigFiles", 0}});
    EXPECT_EQ(callsUntilHandled(), Lines{uninstaller + "1"});
    EXPECT_EQ(preferences().at("ComputerSleep"), Value(""));

    machine.service.reset();
    setPreferences(account);
    client.post("UNInstallAction", {}, {{"deleteConfigFiles", "0"}});
    EXPECT_EQ(callsUntilHandled(), Lines{uninstaller + "0"});
    EXPECT_EQ(machine.service.connections(), 0U);
    EXPECT_EQ(preferences(), account);
}

TEST_F(CommandTest, GoesOnWhateverTheServiceAnswers) {
    startUp();
    callsUntilHandled();
    for (const trial::HostileAnswer& hostile : trial::hostileAnswers()) {
        SCOPED_TRACE(hostile.name);
        const long before = trial::peakMemory(daemon->id());
        machine.service.reset();
        machine.service.answerWith([answer = hostile.answer](const trial::WebRequest&) { return answer; });
        setPreferences({{"ComputerSleep", "45"}});
        client.post("UNInstallAction");
        EXPECT_EQ(callsUntilHandled(), Lines{uninstaller + "1"});
        EXPECT_EQ(preferences().at("ComputerSleep"), Value(""));
        EXPECT_GE(machine.service.connections(), 2U);
        EXPECT_LT(trial::peakMemory(daemon->id()), before + 10'000) << "kilobytes";
    }
}

TEST_F(CommandTest, ToldBeforeTheMachineSleeps) {
    trial::SleepService logind(machine.bus.address());
    startUp();
    ASSERT_TRUE(logind.waitForLocks(1));
    logind.prepareForSleep(true);
    ASSERT_TRUE(logind.waitForLocks(0));
    ASSERT_TRUE(client.waitForCount("sleepStateChanged", 1));
    const auto heard = client.heard();
    const auto posted = std::ranges::find(heard, "sleepStateChanged", &trial::Posted::name);
    EXPECT_EQ(posted->userInfo, (Dictionary{{"type", "NSWorkspaceWillSleepNotification"}}));
    EXPECT_EQ(posted->options, 2U);
    EXPECT_TRUE(trial::eventually([&] {
        return countLogged("Helper :  SleepState notofocation got called:NSWorkspaceWillSleepNotification") == 1;
    }));
}

} // namespace e2e
