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
        root.write("/jobs/agent", "<key>Label</key>\n\t<string>com.Dravex.Agent</string>");
        root.write("/jobs/hostile", "<key>Label</key><string>a b;c</string>");
        tools.script("mv", R"(exec /bin/mv "$@")");
        tools.script("id", "echo ${ID:-0}");
        tools.script("systemctl", R"(case $* in
            *show*) echo loaded ;;
            *is-active*) [ -n "${RUNNING-}" ] ;;
            *) echo "systemctl $@" ;;
            esac)");
        tools.script("systemd-run", R"(shift 4; exec "$@")");
        // A login manager, which ACTION and MICROSECONDS set where the file does not.
        tools.script("busctl", R"sh(file=$HAVREL_ROOT/etc/systemd/logind.conf.d/60-havrel.conf
            [ -n "${OVERRIDDEN-}" ] || [ ! -f "$file" ] || eval "$(grep ^Idle "$file")"
            [ -z "${IdleActionSec-}" ] || MICROSECONDS=$((${IdleActionSec%min} * 60000000))
            echo "s \"${IdleAction-$ACTION}\" t ${MICROSECONDS-1}")sh");
        tools.script("loginctl", R"(case $* in
            list*) printf '1 x\n2 y\n' ;;
            *1) printf 'Name=bob\nLeader=66\nType=tty\nClass=user\n' ;;
            *2) printf 'Name=ann\nLeader=77\nType=wayland\nClass=user\n' ;;
            esac)");
    }

    void expectEach(const std::vector<Case>& cases) const {
        const std::string start = "cd '" + root.at("/jobs").string() + "' && HAVREL_ROOT='" + root.path().string() +
                                  "' PATH='" + folder + ":" + tools.searchPath() +
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

    const std::string folder = HAVREL_SOURCE_TREE "/packaging/linux-tools";
    const trial::TemporaryFolder root;
    const trial::StandInTools tools{root.path()};
};

TEST_F(LinuxTools, LaunchctlSteersTheUnitThatAJobFilesLabelNames) {
    const std::string unit = " -- com.Dravex.Agent.service\n";
    expectEach({
        {.name = "unload for good",
         .commandLine = "launchctl unload -w agent",
         .output = "systemctl --quiet disable" + unit + "systemctl stop" + unit},
        {.name = "load for a user, whose agent is just ending",
         .commandLine = "ID=501 RUNNING=yes launchctl bsexec $$ launchctl load -S Aqua  agent",
         .output = "systemctl --user start --wait" + unit + "systemctl --user start" + unit +
                   "systemctl --user --no-block start" + unit},
        {.name = "label that is no unit's name", .commandLine = "launchctl load hostile", .succeeds = false},
    });
}

TEST_F(LinuxTools, SudoHandsOnWhatIsNoneOfItsTwoForms) {
    expectEach({{.name = "option behind the user",
                 .commandLine = "sed 's:exec :exec echo :' " + folder + "/sudo | /bin/sh -s -- -u ann -i",
                 .output = "/usr/bin/sudo -u ann -i\n"}});
}

TEST_F(LinuxTools, SystemsetupReadsAndSetsTheTimers) {
    const std::string reread = "systemctl kill --kill-whom=main --signal=HUP systemd-logind.service\n";
    expectEach({
        {.name = "computer's reading",
         .commandLine = "ACTION=suspend MICROSECONDS=14400000000 systemsetup -getcomputersleep",
         .output = "Computer Sleep: after 180 minutes\n"},
        {.name = "off, and on again with the action that was there",
         .commandLine = "export ACTION=hibernate; systemsetup -setcomputersleep Never && "
                        "systemsetup -setcomputersleep 15 && tail -n 2 ../etc/systemd/logind.conf.d/60-havrel.conf",
         .output = reread + "setcomputersleep: Never\n" + reread +
                   "setcomputersleep: 15\nIdleAction=hibernate\nIdleActionSec=15min\n"},
        {.name = "another's setting in force",
         .commandLine = "OVERRIDDEN=yes ACTION=suspend systemsetup -setcomputersleep Never",
         .output = reread,
         .succeeds = false},
        {.name = "display",
         .commandLine = "systemsetup -setdisplaysleep 500 && systemsetup -getdisplaysleep",
         .output = "setdisplaysleep: 180\nDisplay Sleep: after 180 minutes\n"},
    });
}

TEST_F(LinuxTools, PsShowsProgramsAndGraphicalSessionsNotTheNamesThatProcessesTake) {
    const std::string program = root.at("/Library/App Support/Updater").string();
    root.write("/Library/App Support/Updater", trial::readFile("/bin/sleep"));
    std::filesystem::permissions(program, std::filesystem::perms::all);
    const auto listing = [](const std::string& command, const std::string& runs) {
        return "{ /bin/bash -c \"exec " + command + " 60\" & until [ /proc/$!/exe -ef \"" + runs +
               R"(" ]; do :; done; ps -A | sed -n "s/^$! [^ ]* [^ ]* //p"; kill $!; })";
    };
    expectEach({
        {.name = "the program", .commandLine = listing("'" + program + "'", program), .output = program + "\n"},
        {.name = "another that takes its name",
         .commandLine = listing("-a '" + program + "' /bin/sleep", "/bin/sleep"),
         .output = "sleep\n"},
        {.name = "the graphical one of two sessions",
         .commandLine = "ps aux | grep loginwindow | grep -v grep | awk '{print $1, $2}'",
         .output = "ann 77\n"},
    });
}

} // namespace
