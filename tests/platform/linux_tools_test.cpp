// The adapters for tools that Linux lacks: what the daemon's command lines become on a machine with systemd.
#include "platform/processes.h"
#include "trial/support/stand_in_tools.h"
#include "trial/support/temporary_folder.h"

#include <gmock/gmock.h>

namespace {

/// A shell command line, run in the folder of the job files below.
struct Case {
    std::string name;
    std::string commandLine;
    std::string output = {};
    bool succeeds = true;
};

class LinuxTools : public testing::Test {
  protected:
    LinuxTools() {
        root.write("/jobs/agent",
                   "<key>Label</key>\n\t<string>com.Dravex.Agent</string><key>X</key><string>Y</string>");
        root.write("/jobs/absent", "<key>Label</key><string>absent</string>");
        root.write("/jobs/hostile", "<key>Label</key><string>a b;c</string>");
        root.write("/jobs/unlabelled", "<key>Program</key><string>/bin/true</string>");
        root.write("/sys/module/kernel/parameters/consoleblank", "90");
        tools.script("mv", R"(exec /bin/mv "$@")");
        tools.script("modprobe", R"(echo "modprobe $@")");
        tools.script("id", "echo ${ID:-0}");
        tools.script("systemctl", R"(case $* in
            *show*absent*) echo not-found ;;
            *show*) echo loaded ;;
            *) echo "systemctl $@" ;;
            esac)");
        tools.script("busctl", R"([ -n "$ACTION" ] && echo "s \"$ACTION\"" && echo "t $MICROSECONDS")");
        tools.script("loginctl", R"(case $* in
            list*) printf '1 x\n2 y\n' ;;
            *1) printf 'Name=bob\nLeader=66\nType=tty\nClass=user\n' ;;
            *2) printf 'Name=ann\nLeader=77\nType=wayland\nClass=user\n' ;;
            esac)");
    }

    void expectEach(const std::vector<Case>& cases) const {
        const std::string start = "cd '" + root.at("/jobs").string() + "' && HAVREL_ROOT='" + root.path().string() +
                                  "' PATH='" HAVREL_SOURCE_TREE "/packaging/linux-tools:" + tools.searchPath() +
                                  ":/usr/sbin:/usr/bin:/bin' && export HAVREL_ROOT PATH && ";
        for (const Case& row : cases) {
            SCOPED_TRACE(row.name);
            const int status =
                platform::processes::system("{ " + start + row.commandLine + "; } >'" + root.at("/out").string() +
                                            "' 2>'" + root.at("/err").string() + "'");
            EXPECT_EQ(status == 0, row.succeeds) << status;
            EXPECT_EQ(root.read("/out"), row.output);
            EXPECT_EQ(root.read("/err").empty(), row.succeeds) << root.read("/err");
        }
    }

    const trial::TemporaryFolder root;
    const trial::StandInTools tools{root.path()};
};

TEST_F(LinuxTools, LaunchctlSteersTheUnitThatAJobFilesLabelNames) {
    const std::string unit = " -- com.Dravex.Agent.service\n";
    expectEach({
        {.name = "load", .commandLine = "launchctl load agent", .output = "systemctl --no-block start" + unit},
        {.name = "unload for good",
         .commandLine = "launchctl unload -w agent",
         .output = "systemctl --quiet disable" + unit + "systemctl stop" + unit},
        {.name = "load for a user",
         .commandLine = "ID=501 launchctl bsexec $$ launchctl load -S Aqua  agent",
         .output = "systemctl --user --no-block start" + unit},
        {.name = "no such unit",
         .commandLine = "launchctl load absent",
         .output = "launchctl: there is no absent.service\n"},
        {.name = "label that is no unit's name", .commandLine = "launchctl load hostile", .succeeds = false},
        {.name = "no label", .commandLine = "launchctl load unlabelled", .succeeds = false},
        {.name = "no such job file", .commandLine = "launchctl load none", .succeeds = false},
        {.name = "no such process", .commandLine = "launchctl bsexec 0 true", .succeeds = false},
    });
}

TEST_F(LinuxTools, SystemsetupReadsTheTimers) {
    const std::string never = "Computer Sleep: Never\n";
    expectEach({
        {.name = "computer",
         .commandLine = "ACTION=suspend MICROSECONDS=600000000 systemsetup -getcomputersleep",
         .output = "Computer Sleep: after 10 minutes\n"},
        {.name = "an action other than sleep",
         .commandLine = "ACTION=lock MICROSECONDS=600000000 systemsetup -getcomputersleep",
         .output = never},
        {.name = "infinite",
         .commandLine = "ACTION=suspend MICROSECONDS=18446744073709551615 systemsetup -getcomputersleep",
         .output = never},
        {.name = "no login manager", .commandLine = "systemsetup -getcomputersleep", .succeeds = false},
        {.name = "a minute begun counts",
         .commandLine = "systemsetup -getdisplaysleep",
         .output = "Display Sleep: after 2 minutes\n"},
    });
}

TEST_F(LinuxTools, SystemsetupSetsTheTimers) {
    const std::string computer = "systemctl kill --kill-whom=main --signal=HUP systemd-logind.service\n";
    const std::string settings = " && tail -n 2 ../etc/systemd/logind.conf.d/60-havrel.conf";
    expectEach({
        {.name = "computer",
         .commandLine = "systemsetup -setcomputersleep 15" + settings,
         .output = computer + "setcomputersleep: 15\nIdleAction=suspend\nIdleActionSec=15min\n"},
        {.name = "computer never",
         .commandLine = "systemsetup -setcomputersleep Never" + settings,
         .output = computer + "setcomputersleep: Never\nIdleAction=ignore\nIdleActionSec=0min\n"},
        {.name = "too long", .commandLine = "systemsetup -setcomputersleep 181", .succeeds = false},
        {.name = "display",
         .commandLine = "systemsetup -setdisplaysleep 180 && systemsetup -getdisplaysleep",
         .output = "setdisplaysleep: 180\nDisplay Sleep: after 180 minutes\n"},
    });
}

TEST_F(LinuxTools, KextloadLoadsASoundModule) {
    expectEach({
        {.name = "driver without a module", .commandLine = "kextload .", .output = "modprobe snd-aloop\n"},
        {.name = "no such driver", .commandLine = "kextload none", .succeeds = false},
    });
}

TEST_F(LinuxTools, PsShowsTheProductsProgramsByTheirPathsAndOthersByTheirNames) {
    const std::string program = root.at("/Library/App Support/Updater").string();
    for (const std::string folder : {"/Library/App Support", "/elsewhere/Library/App Support"}) {
        root.write(folder + "/Updater", trial::readFile("/bin/sleep"));
        std::filesystem::permissions(root.at(folder + "/Updater"), std::filesystem::perms::all);
    }
    // Runs a command and lists it as soon as it runs what it is to run.
    const auto listing = [](const std::string& command, const std::string& runs) {
        return "{ /bin/bash -c \"exec " + command + " 60\" & until [ /proc/$!/exe -ef \"" + runs +
               "\" ]; do :; done; ps -A | sed -n \"s/^$! [^ ]* [^ ]* //p\"; kill $!; }";
    };
    const std::string other = root.at("/elsewhere/Library/App Support/Updater").string();
    expectEach({
        {.name = "the program", .commandLine = listing("'" + program + "'", program), .output = program + "\n"},
        {.name = "its name only",
         .commandLine = listing("-a '" + program + "' /bin/sleep", "/bin/sleep"),
         .output = "sleep\n"},
        {.name = "a path that ends like its own",
         .commandLine = listing("'" + other + "'", other),
         .output = "Updater\n"},
    });
}

TEST_F(LinuxTools, PsShowsGraphicalSessionsAsLoginWindows) {
    expectEach({
        {.name = "one of two sessions",
         .commandLine = "ps aux | grep loginwindow | grep -v grep | awk '{print $1, $2}'",
         .output = "ann 77\n"},
    });
}

} // namespace
