#include "trial/live/commands.h"

#include "foundation/format.h"

#include <algorithm>
#include <filesystem>
#include <vector>

namespace trial {

namespace {

using platform::text::format;

struct Line {
    std::string what;
    std::string command;
};

struct Group {
    const char* what;
    std::vector<Line> lines;
};

std::filesystem::path postScript(const Machine& machine) { return machine.root.folder() / "post"; }

std::filesystem::path sleepScript(const Machine& machine) { return machine.root.folder() / "prepare-for-sleep"; }

std::vector<Group> groups(const Machine& machine, pid_t daemon) {
    const auto at = [&](const char* path) { return shellQuoted(machine.root.at(path)); };
    const auto post = [&](const std::string& words) { return shellQuoted(postScript(machine)) + ' ' + words; };
    const auto move = [](const std::string& from, const std::string& to) { return "mv " + from + ' ' + to; };
    const std::string applications = at("/Applications/");
    const std::string trash = at("/Users/ann/.Trash/");
    const std::string host = at("/Applications/HavrelHost.app");
    const std::string hostInTrash = at("/Users/ann/.Trash/HavrelHost.app");
    const std::string viewer = at("/Applications/HavrelViewer.app");
    const std::string sleeps = shellQuoted(sleepScript(machine));
    return {
        {"An application asks",
         {{"to switch the host service on", post("EnableActionHost")},
          {"to switch it off", post("DisableAction")},
          {"to switch it off and on", post("kHVLRestartServiceFromHelper")},
          {"to remove the legacy products", post("killAction")},
          {"to start the updater", post("StartDownlad")},
          {"to stop the updater", post("StopDownload")},
          {"to keep the machine awake", post("sleepState sleep 1")},
          {"to let it sleep again", post("sleepState sleep 0")},
          {"to read the sleep timers", post("Sleep_Settings_HOST")},
          {"to measure the proxies", post("HVLProxyStateChangedNotification")},
          {"to uninstall, keeping the account", post("UNInstallAction deleteConfigFiles 0")},
          {"to uninstall", post("UNInstallAction")}}},
        {"Something happens to the machine",
         {{"it is about to sleep", sleeps + " true"},
          {"it has woken", sleeps + " false"},
          {"another user comes to the console",
           "sed -i s/501/502/ " + at("/run/systemd/sessions/c1") + " && " + post("desktopAppStarted")},
          {"its disk is cloned to another one",
           "echo TRIAL-0002 > " + at("/sys/class/dmi/id/product_serial") + " && kill " + std::to_string(daemon)}}},
        {"A user moves an application to the Trash",
         {{"the host", move(host, trash)},
          {"and back", move(hostInTrash, applications)},
          {"the viewer", move(viewer, trash)}}},
    };
}

} // namespace

void writeCommandScripts(const Machine& machine) {
    const std::string address = shellQuoted(machine.bus.address());
    writeProgram(postScript(machine), format(R"(#!/bin/sh
# post NAME [KEY TEXT]: posts a notification, with one text in its user information.
export DBUS_SYSTEM_BUS_ADDRESS=%@
path=/com/Dravex/DistributedNotifications
interface=com.Dravex.DistributedNotifications
if command -v busctl > /dev/null; then
    if [ $# -gt 1 ]; then set -- "$1" '' 1 "$2" s "$3" 3; else set -- "$1" '' 0 3; fi
    exec busctl --system emit $path $interface Posted 'ssa{sv}u' "$@"
fi
if [ $# -gt 1 ]; then information="{'$2': <'$3'>}"; else information='@a{sv} {}'; fi
exec gdbus emit --system --object-path $path --signal $interface.Posted "'$1'" "''" "$information" 'uint32 3'
)",
                                             address));
    writeProgram(sleepScript(machine), format(R"(#!/bin/sh
# prepare-for-sleep true|false: has the login manager announce that the machine goes to sleep, or has woken.
export DBUS_SYSTEM_BUS_ADDRESS=%@
name=org.freedesktop.login1
path=/org/freedesktop/login1
if command -v busctl > /dev/null; then
    exec busctl --system call $name $path $name.Manager PrepareForSleep b "$1"
fi
exec gdbus call --system --dest $name --object-path $path --method $name.Manager.PrepareForSleep "$1"
)",
                                              address));
}

std::string commandLines(const Machine& machine, pid_t daemon) {
    const auto all = groups(machine, daemon);
    std::size_t width = 0;
    for (const Group& group : all) {
        for (const Line& line : group.lines) {
            width = std::max(width, line.what.size());
        }
    }
    std::string text;
    for (const Group& group : all) {
        text.append(group.what).append("\n\n");
        for (const Line& line : group.lines) {
            text += "  " + line.what + std::string(width - line.what.size() + 2, ' ') + line.command + '\n';
        }
        text += '\n';
    }
    return text +
           "\"post\" is short for such a line, the user information being \"0\" or \"1 KEY s TEXT\":\n\n"
           "  busctl --address=" +
           machine.bus.address() +
           " emit /com/Dravex/DistributedNotifications com.Dravex.DistributedNotifications Posted 'ssa{sv}u'"
           " sleepState '' 1 sleep s 1 3\n\n";
}

} // namespace trial
