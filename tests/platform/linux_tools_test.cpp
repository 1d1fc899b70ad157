// The adapters that stand for tools Linux lacks: what the daemon's command lines come to on a systemd machine.
#include "platform/processes.h"
#include "trial/support/stand_in_tools.h"
#include "trial/support/temporary_folder.h"

#include <gmock/gmock.h>

TEST(LinuxTools, TurnTheFixedCommandLinesIntoSystemdsOwn) {
    const trial::TemporaryFolder root;
    const trial::StandInTools tools(root.path());
    root.write("/jobs/agent", "<key>Label</key>\n\t<string>com.Dravex.Agent</string><key>X</key><string>Y</string>");
    root.write("/jobs/absent", "<key>Label</key><string>absent</string>");
    root.write("/jobs/hostile", "<key>Label</key><string>a b;c</string>");
    root.write("/sys/module/kernel/parameters/consoleblank", "90");
    tools.script("mv", R"(exec /bin/mv "$@")");
    tools.script("modprobe", R"(echo "$@")");
    tools.script("id", "echo ${ID:-0}");
    tools.script("systemctl",
                 R"(case $* in *show*absent*) echo not-found ;; *show*) echo loaded ;; *) echo "$@" ;; esac)");
    tools.script("busctl", R"([ -n "$TIMER" ] && echo "s \"${TIMER% *}\"" && echo "t ${TIMER#* }")");
    tools.script("loginctl", "case $* in list*) printf '1 x\\n2 y\\n' ;; *1) kind=tty ;; *2) kind=wayland ;; esac; "
                             "printf 'Name=ann\\nLeader=77\\nType=%s\\nClass=user\\n' $kind");
    const std::string unit = " -- com.Dravex.Agent.service\n";
    const std::string reload = "kill --kill-whom=main --signal=HUP systemd-logind.service\n";
    const std::pair<std::string, std::string> rows[] = {
        {"launchctl load agent", "--no-block start" + unit},
        {"launchctl unload -w agent", "--quiet disable" + unit + "stop" + unit},
        {"ID=501 launchctl bsexec $$ launchctl load -S Aqua  agent", "--user --no-block start" + unit},
        {"launchctl load absent", "launchctl: there is no absent.service\n"},
        {"launchctl load hostile || launchctl load none || launchctl bsexec 0 true", "failed\n"},
        {"for TIMER in 'suspend 600000000' 'ignore 600000000' 'suspend 18446744073709551615'; do export TIMER; "
         "systemsetup -getcomputersleep; done",
         "Computer Sleep: after 10 minutes\nComputer Sleep: Never\nComputer Sleep: Never\n"},
        {"systemsetup -getdisplaysleep && systemsetup -setdisplaysleep 180 && systemsetup -getdisplaysleep",
         "Display Sleep: after 2 minutes\nsetdisplaysleep: 180\nDisplay Sleep: after 180 minutes\n"},
        {"for t in 15 Never; do systemsetup -setcomputersleep $t && tail -n 2 ../etc/systemd/logind.conf.d/*; done",
         reload + "setcomputersleep: 15\nIdleAction=suspend\nIdleActionSec=15min\n" + reload +
             "setcomputersleep: Never\nIdleAction=ignore\nIdleActionSec=0min\n"},
        {"systemsetup -setcomputersleep 181 || systemsetup -getcomputersleep", "failed\n"},
        {"kextload . && kextload none", "snd-aloop\nfailed\n"},
        {"ps aux | grep loginwindow | awk '{print $1, $2}'", "ann 77\n"},
    };
    const std::string environment = "export HAVREL_ROOT='" + root.path().string() +
                                    "' PATH='" HAVREL_SOURCE_TREE "/packaging/linux-tools:" + tools.searchPath() +
                                    ":/usr/sbin:/usr/bin:/bin'; cd \"$HAVREL_ROOT/jobs\"; ";
    for (const auto& [line, said] : rows) {
        const auto result = platform::processes::runTask("/bin/sh", {"-c", environment + line + " || echo failed"},
                                                         platform::processes::Capture::both);
        EXPECT_EQ(result.standardOutput, said) << line;
        EXPECT_EQ(result.standardError.empty(), !said.ends_with("failed\n")) << line << ": " << result.standardError;
    }
}
