#include "e2e/daemon_test.h"

#include "foundation/json.h"
#include "trial/support/process_table.h"
#include "trial/support/sleep_service.h"
#include "web/HVLConnectionUtil.h"

namespace e2e {

using platform::Dictionary;
using platform::Value;

namespace {

// Calls of the tools, each ended by a "|".
const std::string loadHost = "launchctl load /Library/LaunchDaemons/com.Dravex.HVLDaemonHost.plist|";
const std::string unloadHost = "launchctl unload /Library/LaunchDaemons/com.Dravex.HVLDaemonHost.plist|";
const std::string loadAgentForAnn =
    "sudo launchctl bsexec 501 sudo -u ann launchctl load -S Aqua /Library/LaunchAgents/com.Dravex.HavrelAgent.plist|";
const std::string readTimers = "systemsetup -getcomputersleep|systemsetup -getdisplaysleep|";
const std::string switchSleepOff = readTimers + "systemsetup -setcomputersleep Never|";
const std::string legacyRemoval =
    "launchctl unload /Library/LaunchAgents/com.Ostrane.ambrelHC.plist|"
    "launchctl unload /Library/LaunchAgents/com.Ostrane.ambrelH.plist|killall AmbrelViewer|killall AmbrelHC|"
    "rm -rf /Applications/AmbrelViewer|rm -rf /Applications/AmbrelHost|"
    "rm -rf /Library/LaunchAgents/com.Ostrane.ambrelH.plist|rm -rf /Library/LaunchAgents/com.Ostrane.ambrelHC.plist|"
    "rm -rf /Library/Application Support/AmbrelHost|rm -rf /Library/Application Support/AmbrelViewer|";

class CommandTest : public DaemonTest {
  protected:
    /// Without proxies, so that nothing but the commands calls tools.
    CommandTest() { std::filesystem::remove(machine.root.at(havrel::paths::hostInstallMarker)); }

    /// Waits until everything posted before has been handled; the calls since the last time, without its own.
    std::string callsUntilHandled() {
        client.post("StopDownload");
        const trial::ToolCall last{"killall", {"-9", "HVLVersionUpdate"}};
        EXPECT_TRUE(trial::eventually([&] {
            const auto all = machine.tools.calls();
            return all.size() > seen && all.back() == last;
        })) << daemon->diagnostics();
        std::string made;
        const auto all = machine.tools.calls();
        for (; seen + 1 < all.size(); ++seen) {
            made += all[seen].line() + "|";
        }
        ++seen;
        return made;
    }

    /// The messages in a log, each ended by a "|", without those that the waits and the pingers leave.
    std::string logged(const std::string& log) const {
        std::string all;
        for (const std::string& line : machine.root.logged(log)) {
            const bool isOurs = line != "HVLHelper :  close update" && !line.starts_with("Five Best Proxies");
            all += isOurs ? line + "|" : "";
        }
        return all;
    }

    std::size_t seen = 0;
};

} // namespace

TEST_F(CommandTest, RunExactlyTheirToolsAndLeaveTheirTraces) {
    const std::string updater = "/Library/Application Support/HVLHostForMac/HVLVersionUpdate";
    const std::filesystem::path started = machine.root.folder() / "started";
    machine.root.write(updater, "");
    trial::writeProgram(machine.root.at(updater), "#!/bin/sh\necho once >> '" + started.string() + "'\n");
    const trial::DaemonProcess runningUpdater("/bin/sh", {}, machine.root.folder(), "running",
                                              {"-c", "sleep 600; :", updater});
    const std::string annAtTheConsole =
        "echo 'USER PID COMMAND'; echo 'ann 501 /System/loginwindow console'; echo 'root 7 grep loginwindow'";
    const std::string never = R"(echo "Computer Sleep: Never"; echo "Display Sleep: Never")";
    const std::string neverAndFailed = "case $1 in *computer*) " + never + ";; *) echo no >&2;; esac";
    const std::string timers = R"(echo "Computer Sleep: after 45 minutes"; echo "Display Sleep: after 15 minutes")";
    const std::string url = "https://" + machine.service.host() + "/downloads/hvl/autoupdate/HavrelHost.dmg";
    const std::string on = "HVLHelper : EnableAction : Called|", off = "HVLHelper : DisableAction : Called|";
    const Dictionary kept{{"ComputerSleep", "45"}, {"DisplaySleep", "15"}}, seven{{"ComputerSleep", "7"}};
    const Dictionary failed{{"ComputerSleep", "181"}, {"DisplaySleep", "18446744073709551615"}};

    const std::string disabled = "Disable sleep enabled|";

    // clang-format off
    const struct {
        std::string notification;
        Dictionary userInfo;
        std::string tool, script;
        Dictionary before;
        std::string calls, generalLog, hostLog;
        Dictionary after;
    } commands[] = {
        {"EnableActionHost", {}, "ps", annAtTheConsole, {},
         "killall HavrelAgent|ps aux|" + loadAgentForAnn + loadHost, "", on, {}},
        {"EnableActionHost", {}, "ps", "exec true", {}, "killall HavrelAgent|ps aux|" + loadHost, "", on, {}},
        {"DisableAction", {}, "", "", {}, unloadHost, "", off, {}},
        {"DisableAction", {}, "", "", {{"IsInstanstAccessEnabled", true}}, "", "", off,
         {{"IsInstanstAccessEnabled", true}}},
        {"kHVLRestartServiceFromHelper", {}, "", "", {},
         unloadHost + "killall HavrelAgent|ps aux|" + loadHost, "", off + on, {}},
        {"killAction", {}, "", "", {}, legacyRemoval, "", "", {}},
        {"StartDownlad", {}, "ps", "exec /usr/bin/ps \"$@\"", {},
         "ps -A|", "", "HVLHelper :  version update already running|", {}},
        {"StartDownlad", {}, "ps", "echo '78 grep  HVLVersionUpdate'", {}, "ps -A|",
         "HVLHelper :  Launching version update from helper|", "Download URL:" + url + "|", {{"AutoInstall", 1}}},
        {"sleepState", {{"sleep", "1"}}, "systemsetup", timers, {}, switchSleepOff, disabled, "", kept},
        {"sleepState", {{"sleep", "1"}}, "systemsetup", never, seven, switchSleepOff, disabled, "", seven},
        {"sleepState", {{"sleep", "0"}}, "", "", {}, "", "Disable sleep disabled|", "", kept},
        {"sleepState", {{"sleep", "2"}}, "", "", {}, "", "", "", {}},
        {"sleepState", {{"sleep", 1}}, "", "", {}, "", "", "", {}},
        {"sleepState", {{"x", "1"}}, "", "", {}, "", "", "", {}},
        {"sleepState", {}, "", "", {}, "", "", "", {}},
        {"Sleep_Settings_HOST", {}, "systemsetup", neverAndFailed, {}, readTimers, "", "", failed},
    };

    // clang-format on
    startUp();
    callsUntilHandled();
    std::string general = logged(trial::generalLog), host = logged(trial::hostLog);
    for (const auto& command : commands) {
        SCOPED_TRACE(command.notification + command.calls);
        if (!command.tool.empty()) {
            machine.tools.script(command.tool, command.script);
        }
        setPreferences(command.before);
        client.post(command.notification, {}, command.userInfo);
        EXPECT_EQ(callsUntilHandled(), command.calls);
        EXPECT_EQ(preferences(), command.after);
        general += command.generalLog;
        host += command.hostLog;
    }
    // The logs are written behind the handlers' backs.
    EXPECT_TRUE(trial::eventually([&] { return logged(trial::generalLog) == general; })) << logged(trial::generalLog);
    EXPECT_TRUE(trial::eventually([&] { return logged(trial::hostLog) == host; })) << logged(trial::hostLog);
    EXPECT_TRUE(client.waitForCount("Sleep_Settings_Updated_HOST", 1));
    EXPECT_TRUE(trial::eventually([&] { return trial::readFile(started) == "once\n"; }));
}

TEST_F(CommandTest, UninstallDeregistersUnlessToldToKeep) {
    const std::string uninstaller = "sh '/Library/Application Support/HVLHostForMac/Uninstaller' ";
    // clang-format off
    const Dictionary account{
        {"sessionId", "S 1"}, {"HostClientSignature", "sig+/="}, {"hostID", "H&T"}, {"viewerToken", "V"},
        {"uniqueId", "0a:1b"}, {"HavrelVersion", "7.1"}, {"ComputerSleep", "45"}, {"DisplaySleep", "15"}};
    const Dictionary instant{{"host", Dictionary{{"client_signature", "sig+/="}, {"id", "S 1"}}}};
    const Dictionary viewer{{"viewer", Dictionary{{"token", "V"}}}};
    const Dictionary regular{{"host", Dictionary{{"token", "H&T"}}}, *viewer.begin()};
    // what is said and stored; the account's fields, the machine's ID, the devices on it
    const std::tuple<Dictionary, Dictionary, std::string, std::string, Dictionary> rows[] = {
        {{}, account, "client_id=S 1&client_signature=sig%2B%2F%3D&token=H%26T", "0a:1b",
         {{"instant", instant}, {"regular", regular}}},
        {{{"deleteConfigFiles", 0}}, {}, "client_id=&client_signature=&token=", "(null)", // no text
         {{"instant", Dictionary()}, {"regular", Dictionary()}}},
        {{}, {{"viewerToken", "V"}, {"sessionId", 7}, {"hostID", ""}}, "client_id=7&client_signature=&token=", "(null)",
         {{"instant", Dictionary()}, {"regular", viewer}}}};
    // clang-format on
    startUp();
    callsUntilHandled();
    for (const auto& [userInfo, stored, fields, id, devices] : rows) {
        SCOPED_TRACE(fields);
        machine.service.reset();
        setPreferences(stored);
        client.post("UNInstallAction", {}, userInfo);
        EXPECT_EQ(callsUntilHandled(), uninstaller + "1|");
        const auto requests = machine.service.requests();
        ASSERT_EQ(requests.size(), 2U);
        EXPECT_EQ(requests[0].method + requests[0].target, "POST/cgi-bin/hvl/v1/delete_havrel_account.cgi");
        EXPECT_EQ(requests[0].body, fields);
        EXPECT_EQ(requests[0].header("Content-length"), std::to_string(fields.size()));
        const std::string document = platform::json::prettyPrinted(devices).value();
        EXPECT_EQ(requests[1].method + requests[1].target,
                  "GET/cgi-bin/hvl/v1/deactivate_machine.cgi?id=" + id + "&device_list=" +
                      havrel::HVLConnectionUtil::urlEncodeUsingEncoding(havrel::StringEncoding::utf8, document));
        EXPECT_EQ(requests[1].header("User-Agent"), id == "0a:1b" ? "Havrel Mac:7.1" : "Havrel Mac:(null)");
        EXPECT_EQ(preferences().at("ComputerSleep"), Value(""));
        EXPECT_EQ(preferences().at("DisplaySleep"), Value(""));
    }
    machine.service.reset();
    setPreferences(account);
    client.post("UNInstallAction", {}, {{"deleteConfigFiles", "0"}});
    EXPECT_EQ(callsUntilHandled(), uninstaller + "0|");
    EXPECT_TRUE(machine.service.requests().empty());
    EXPECT_EQ(preferences(), account);
    const std::string log = machine.root.read(trial::generalLog);
    for (const char* line :
         {"UnInstallAction : Called with notification: (null) \n",
          "UnInstallAction : Called with notification: {\n    deleteConfigFiles = 0;\n} \n", "uninstalling HVLHost \n",
          " HVLHost uninstaller script =\n sh /Library/Application\\ Support/HVLHostForMac/"
          "Uninstaller 1 "}) {
        EXPECT_THAT(log, testing::HasSubstr(std::string(" : objc - HVLHelper : ") + line));
    }
}

TEST_F(CommandTest, ToldOfSleepAndWakeBeforeTheMachineSleeps) {
    trial::SleepService logind(machine.bus.address());
    startUp();
    ASSERT_TRUE(logind.waitForLocks(1));
    for (const auto& [begins, type] :
         {std::pair(true, "NSWorkspaceWillSleepNotification"), std::pair(false, "NSWorkspaceDidWakeNotification")}) {
        const std::size_t count = client.countOf("sleepStateChanged");
        logind.prepareForSleep(begins);
        ASSERT_TRUE(logind.waitForLocks(begins ? 0 : 1));
        ASSERT_TRUE(client.waitForCount("sleepStateChanged", count + 1));
        const auto heard = client.heard();
        const auto last = std::ranges::find(heard.rbegin(), heard.rend(), "sleepStateChanged", &trial::Posted::name);
        EXPECT_EQ(last->userInfo, (Dictionary{{"type", type}}));
        EXPECT_EQ(last->options, 2U);
        const std::string line = std::string("Helper :  SleepState notofocation got called:") + type;
        EXPECT_TRUE(trial::eventually([&] { return countLogged(line) == 1; }));
    }
}

TEST_F(CommandTest, OutliveToolsThatMisbehave) {
    startUp();
    // Descriptors and child processes; what a tool left behind is init's.
    const auto held = [&] {
        const auto folder = "/proc/" + std::to_string(daemon->id()) + "/fd";
        return std::distance(std::filesystem::directory_iterator(folder), std::filesystem::directory_iterator()) +
               std::ranges::count(trial::processTable(), daemon->id(), &trial::Process::parent);
    };
    callsUntilHandled();
    const auto before = held();
    const auto ask = [&](const std::string& calls) {
        client.post("sleepState", {}, {{"sleep", "1"}});
        client.post("StartDownlad");
        EXPECT_EQ(callsUntilHandled(), calls);
        EXPECT_TRUE(trial::eventually([&] { return held() <= before; })) << held() << " of " << before;
    };
    for (const auto& [systemsetup, ps] :
         {std::pair("exit 3", "exit 3"),
          {"kill -KILL $$", "kill -SEGV $$"},
          {"head -c 10000000 /dev/zero; head -c 10000000 /dev/zero >&2", "head -c 10000000 /dev/zero"},
          {"exit 0", "sleep 5"}}) {
        machine.tools.script("systemsetup", systemsetup);
        machine.tools.script("ps", ps);
        ask(switchSleepOff + "ps -A|");
    }
    for (const char* tool : {"systemsetup", "ps"}) {
        std::filesystem::remove(std::filesystem::path(machine.tools.searchPath()) / tool);
    }
    ask("");
}

TEST_F(CommandTest, HandleAThousandAtOnceInOrder) {
    machine.tools.script("systemsetup", "exit 0");
    startUp();
    callsUntilHandled();
    for (int i = 0; i < 1000; ++i) {
        client.post(i % 2 == 0 ? "StopDownload" : "UNInstallAction", {}, {{"deleteConfigFiles", "0"}});
    }
    client.post("killAction");
    ASSERT_TRUE(trial::eventually([&] { return machine.tools.calls("rm").size() == 6; }, std::chrono::seconds(60)));
    const auto all = machine.tools.calls();
    ASSERT_GE(all.size(), seen + 1000);
    for (std::size_t i = 0; i < 1000; ++i) {
        EXPECT_EQ(all[seen + i].name, i % 2 == 0 ? "killall" : "sh") << i;
    }
}

} // namespace e2e
