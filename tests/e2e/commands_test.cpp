#include "e2e/daemon_test.h"

#include "trial/support/process_table.h"
#include "trial/support/sleep_service.h"
#include "web/NSStringHVL.h"

#include <regex>

namespace e2e {

using platform::Dictionary;
using platform::Value;

namespace {

using Lines = std::vector<std::string>;

const std::string support = "/Library/Application Support/HVLHostForMac";
const std::string updater = support + "/HVLVersionUpdate";
const std::string loadHost = "launchctl load /Library/LaunchDaemons/com.Dravex.HVLDaemonHost.plist";
const std::string unloadHost = "launchctl unload /Library/LaunchDaemons/com.Dravex.HVLDaemonHost.plist";
const std::string loadAgentForAnn =
    "sudo launchctl bsexec 501 sudo -u ann launchctl load -S Aqua /Library/LaunchAgents/com.Dravex.HavrelAgent.plist";
// clang-format off
const Lines readTimers{"systemsetup -getcomputersleep", "systemsetup -getdisplaysleep"};
const Lines switchSleepOff{readTimers[0], readTimers[1], "systemsetup -setcomputersleep Never"};
const Lines legacyRemoval{
    "launchctl unload /Library/LaunchAgents/com.Ostrane.ambrelHC.plist",
    "launchctl unload /Library/LaunchAgents/com.Ostrane.ambrelH.plist", "killall AmbrelViewer", "killall AmbrelHC",
    "rm -rf /Applications/AmbrelViewer", "rm -rf /Applications/AmbrelHost",
    "rm -rf /Library/LaunchAgents/com.Ostrane.ambrelH.plist", "rm -rf /Library/LaunchAgents/com.Ostrane.ambrelHC.plist",
    "rm -rf /Library/Application Support/AmbrelHost", "rm -rf /Library/Application Support/AmbrelViewer"};

// clang-format on

/// A command, what it finds and what it leaves.
struct Command {
    const char* what;
    std::string notification;
    Dictionary userInfo;
    Dictionary before;
    Lines calls;
    Lines general;
    Lines host;
    Dictionary after;
    /// Lines for the shell that the tools get first: name and script.
    std::map<std::string, std::string> tools;
};

class CommandTest : public DaemonTest {
  protected:
    /// Without proxies, so that nothing but the commands calls tools.
    CommandTest() { std::filesystem::remove(machine.root.at(havrel::paths::hostInstallMarker)); }

    /// Waits until everything posted before has been handled; the calls since the last time, without its own.
    Lines callsUntilHandled() {
        client.post("StopDownload");
        const trial::ToolCall last{"killall", {"-9", "HVLVersionUpdate"}};
        EXPECT_TRUE(trial::eventually([&] {
            const auto all = machine.tools.calls();
            return all.size() > seen && all.back() == last;
        })) << daemon->diagnostics();
        Lines lines;
        const auto all = machine.tools.calls();
        for (; seen + 1 < all.size(); ++seen) {
            lines.push_back(all[seen].line());
        }
        ++seen;
        return lines;
    }

    Lines newLines(const std::string& log, std::size_t& known) const {
        Lines lines = machine.root.logged(log);
        std::erase(lines, "HVLHelper :  close update");
        std::erase_if(lines, [](const auto& line) { return line.starts_with("Five Best Proxies"); });
        const std::size_t start = std::min(known, lines.size());
        known = lines.size();
        return {lines.begin() + static_cast<std::ptrdiff_t>(start), lines.end()};
    }

    std::size_t seen = 0;
    std::size_t generalSeen = 0;
    std::size_t hostSeen = 0;
};

} // namespace

TEST_F(CommandTest, RunExactlyTheirToolsAndLeaveTheirTraces) {
    machine.root.write(updater, "#!/bin/sh\necho started >> '" + (machine.root.folder() / "updater").string() + "'\n");
    std::filesystem::permissions(machine.root.at(updater), std::filesystem::perms::owner_all);
    const trial::DaemonProcess runningUpdater("/bin/sh", {}, machine.root.folder(), "running",
                                              {"-c", "sleep 600; :", updater});
    const std::string nobody = "exec true";
    const std::string annAtTheConsole =
        "echo 'USER PID COMMAND'; echo 'ann 501 /System/loginwindow console'; echo 'root 7 grep loginwindow'";
    const std::string never = R"(echo "Computer Sleep: Never"; echo "Display Sleep: Never")";
    const std::string neverAndFailed = "case $1 in *computer*) " + never + ";; *) echo no >&2;; esac";
    const std::string timers = R"(echo "Computer Sleep: after 45 minutes"; echo "Display Sleep: after 15 minutes")";
    // clang-format off
    const Command commands[] = {
        {"on", "EnableActionHost", {}, {}, {"killall HavrelAgent", "ps aux", loadAgentForAnn, loadHost}, {},
         {"HVLHelper : EnableAction : Called"}, {}, {{"ps", annAtTheConsole}}},
        {"on, nobody at the console", "EnableActionHost", {}, {}, {"killall HavrelAgent", "ps aux", loadHost}, {},
         {"HVLHelper : EnableAction : Called"}, {}, {{"ps", nobody}}},
        {"off", "DisableAction", {}, {}, {unloadHost}, {}, {"HVLHelper : DisableAction : Called"}, {}, {}},
        {"off with instant access", "DisableAction", {}, {{"IsInstanstAccessEnabled", true}}, {}, {},
         {"HVLHelper : DisableAction : Called"}, {{"IsInstanstAccessEnabled", true}}, {}},
        {"restart", "kHVLRestartServiceFromHelper", {}, {}, {unloadHost, "killall HavrelAgent", "ps aux", loadHost}, {},
         {"HVLHelper : DisableAction : Called", "HVLHelper : EnableAction : Called"}, {}, {}},
        {"legacy products", "killAction", {}, {}, legacyRemoval, {}, {}, {}, {}},
        {"updater runs already", "StartDownlad", {}, {}, {"ps -A"}, {},
         {"HVLHelper :  version update already running"}, {}, {{"ps", "exec /usr/bin/ps \"$@\""}}},
        {"updater", "StartDownlad", {}, {}, {"ps -A"}, {"HVLHelper :  Launching version update from helper"},
         {"Download URL:https://" + machine.service.host() + "/downloads/hvl/autoupdate/HavrelHost.dmg"},
         {{"AutoInstall", 1}}, {{"ps", "echo '78 grep  HVLVersionUpdate'"}}},
        {"sleep off", "sleepState", {{"sleep", "1"}}, {}, switchSleepOff, {"Disable sleep enabled"}, {},
         {{"ComputerSleep", "45"}, {"DisplaySleep", "15"}}, {{"systemsetup", timers}}},
        {"sleep off, timers off already", "sleepState", {{"sleep", "1"}}, {{"ComputerSleep", "7"}}, switchSleepOff,
         {"Disable sleep enabled"}, {}, {{"ComputerSleep", "7"}}, {{"systemsetup", never}}},
        {"sleep on", "sleepState", {{"sleep", "0"}}, {}, {}, {"Disable sleep disabled"}, {},
         {{"ComputerSleep", "45"}, {"DisplaySleep", "15"}}, {}},
        {"sleep, another value", "sleepState", {{"sleep", "2"}}, {}, {}, {}, {}, {}, {}},
        {"sleep, no text", "sleepState", {{"sleep", 1}}, {}, {}, {}, {}, {}, {}},
        {"sleep, no key", "sleepState", {{"x", "1"}}, {}, {}, {}, {}, {}, {}},
        {"sleep, nothing said", "sleepState", {}, {}, {}, {}, {}, {}, {}},
        {"timers, as they are", "Sleep_Settings_HOST", {}, {}, readTimers, {}, {},
         {{"ComputerSleep", "181"}, {"DisplaySleep", "18446744073709551615"}}, {{"systemsetup", neverAndFailed}}},
    };
    // clang-format on
    startUp();
    callsUntilHandled();
    newLines(trial::generalLog, generalSeen);
    newLines(trial::hostLog, hostSeen);
    for (const Command& command : commands) {
        SCOPED_TRACE(command.what);
        for (const auto& [name, script] : command.tools) {
            machine.tools.script(name, script);
        }
        setPreferences(command.before);
        client.post(command.notification, {}, command.userInfo);
        EXPECT_EQ(callsUntilHandled(), command.calls);
        // The log is written behind the handlers' backs.
        Lines general;
        Lines host;
        EXPECT_TRUE(trial::eventually([&] {
            std::ranges::move(newLines(trial::generalLog, generalSeen), std::back_inserter(general));
            std::ranges::move(newLines(trial::hostLog, hostSeen), std::back_inserter(host));
            return general.size() >= command.general.size() && host.size() >= command.host.size();
        }));
        EXPECT_EQ(general, command.general);
        EXPECT_EQ(host, command.host);
        EXPECT_EQ(machine.root.propertyList(trial::hostPreferences), std::optional(Value(command.after)));
    }
    EXPECT_TRUE(client.waitForCount("Sleep_Settings_Updated_HOST", 1));
    EXPECT_TRUE(trial::eventually([&] { return trial::readFile(machine.root.folder() / "updater") == "started\n"; }));
}

TEST_F(CommandTest, UninstallDeregistersUnlessToldToKeep) {
    // clang-format off
    const Dictionary account{
        {"sessionId", "S 1"}, {"HostClientSignature", "sig+/="}, {"hostID", "H&T"}, {"viewerToken", "V"},
        {"uniqueId", "0a:1b"}, {"HavrelVersion", "7.1"}, {"ComputerSleep", "45"}, {"DisplaySleep", "15"}};
    // clang-format on
    const std::string everything = R"({"instant": {"host": {"client_signature": "sig+\/=","id": "S 1"}},)"
                                   R"("regular": {"host": {"token": "H&T"},"viewer": {"token": "V"}}})";

    const std::string fields = "client_id=S 1&client_signature=sig%2B%2F%3D&token=H%26T";
    const std::string deactivate = "/cgi-bin/hvl/v1/deactivate_machine.cgi?id=";
    // clang-format off
    // the flag, and what the web service gets: the account, the machine, the devices
    const std::tuple<const char*, Dictionary, Dictionary, const char*, std::string, std::string, std::string> rows[] = {
        {"nothing said", {}, account, "1", fields, deactivate + "0a:1b", everything},
        {"zero, but no text", {{"deleteConfigFiles", 0}}, {}, "1", "client_id=&client_signature=&token=",
         deactivate + "(null)", R"({"instant": {},"regular": {}})"},
        {"only a viewer", {}, {{"viewerToken", "V"}, {"sessionId", 7}, {"hostID", ""}}, "1",
         "client_id=7&client_signature=&token=", deactivate + "(null)",
         R"({"instant": {},"regular": {"viewer": {"token": "V"}}})"},
        {"asked to keep", {{"deleteConfigFiles", "0"}}, account, "0", "", "", ""},
    };
    // clang-format on
    startUp();
    callsUntilHandled();
    for (const auto& [what, userInfo, stored, flag, body, target, devices] : rows) {
        SCOPED_TRACE(what);
        machine.service.reset();
        setPreferences(stored);
        client.post("UNInstallAction", {}, userInfo);
        EXPECT_EQ(callsUntilHandled(),
                  Lines{std::string("sh '/Library/Application Support/HVLHostForMac/Uninstaller' ") + flag});
        const auto requests = machine.service.requests();
        const auto after = machine.root.propertyList(trial::hostPreferences);
        ASSERT_TRUE(after && after->dictionary() != nullptr);
        if (*flag == '0') {
            EXPECT_TRUE(requests.empty());
            EXPECT_EQ(*after, Value(stored));
            continue;
        }
        ASSERT_EQ(requests.size(), 2U);
        EXPECT_EQ(requests[0].method + " " + requests[0].target, "POST /cgi-bin/hvl/v1/delete_havrel_account.cgi");
        EXPECT_EQ(requests[0].body, body);
        EXPECT_EQ(requests[0].header("Content-length"), std::to_string(body.size()));
        const std::string list = "&device_list=";
        const auto split = requests[1].target.find(list);
        ASSERT_NE(split, std::string::npos);
        EXPECT_EQ(requests[1].method + " " + requests[1].target.substr(0, split), "GET " + target);
        const std::string document =
            havrel::NSStringHVL::decodeURLEncoding(requests[1].target.substr(split + list.size()));
        EXPECT_EQ(std::regex_replace(document, std::regex("\n *| (?=:)"), ""), devices);
        const std::string version = stored.contains("HavrelVersion") ? "7.1" : "(null)";
        EXPECT_EQ(requests[1].header("User-Agent"), "Havrel Mac:" + version);
        EXPECT_EQ(*after->member("ComputerSleep"), Value(""));
        EXPECT_EQ(*after->member("DisplaySleep"), Value(""));
    }
    const std::string log = machine.root.read(trial::generalLog);
    EXPECT_THAT(log, testing::HasSubstr(" : objc - HVLHelper : UnInstallAction : Called with notification: (null) \n"));
    EXPECT_THAT(log, testing::HasSubstr("Called with notification: {\n    deleteConfigFiles = 0;\n} \n"));
    EXPECT_THAT(log, testing::HasSubstr(" : objc - HVLHelper : uninstalling HVLHost \n"));
    EXPECT_THAT(log, testing::HasSubstr(R"( : objc - HVLHelper :  HVLHost uninstaller script =
 sh /Library/Application\ Support/HVLHostForMac/Uninstaller 1 )"));
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
    const auto tool = [&](const char* name) { return std::filesystem::path(machine.tools.searchPath()) / name; };
    const Lines asked{switchSleepOff[0], switchSleepOff[1], switchSleepOff[2], "ps -A"};
    const std::tuple<const char*, const char*, Lines> rows[] = {
        {"exit 3", "exit 3", asked},
        {"kill -KILL $$", "kill -SEGV $$", asked},
        {"head -c 10000000 /dev/zero; head -c 10000000 /dev/zero >&2", "head -c 10000000 /dev/zero", asked},
        {"exit 0", "sleep 5", asked},
        {nullptr, nullptr, {}},
    };
    for (const auto& [systemsetup, ps, calls] : rows) {
        for (const auto& [name, script] : {std::pair("systemsetup", systemsetup), std::pair("ps", ps)}) {
            if (script != nullptr) {
                machine.tools.script(name, script);
            } else {
                std::filesystem::remove(tool(name));
            }
        }
        client.post("sleepState", {}, {{"sleep", "1"}});
        client.post("StartDownlad");
        EXPECT_EQ(callsUntilHandled(), calls);
        EXPECT_TRUE(trial::eventually([&] { return held() <= before; })) << held() << " of " << before;
    }
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
