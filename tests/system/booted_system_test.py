#!/usr/bin/python3
"""Boots a copy of this machine, installs the package there, and uses it as users and administrators do."""

import pathlib
import sys

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "trial"))

from booted.checks import check, expect, expect_within, main
from booted.helper_machine import *
from booted.machine import eventually

HANDLED = "HVLHelper :  close update"  # StopDownload was; a command that does no harm


@check("a Debian boots", 60)
def _(machine):
    machine.add_interface()
    machine.boot()
    machine.remove_product()
    for user in (MEMBER, OTHER):
        machine.run("useradd", "--create-home", "--shell", "/bin/sh", user)
    machine.write("/etc/systemd/logind.conf.d/10-site.conf", "[Login]\nIdleAction=hibernate\nIdleActionSec=30min\n")
    machine.run("systemctl", "kill", "--signal=HUP", "systemd-logind.service")
    machine.put_product()
    machine.files_before = machine.files()
    machine.failed_before = machine.failed_units()


@check("the package installs and is active", 30)
def _(machine):
    machine.install()
    expect(machine.is_active(UNIT), True, "active")
    expect(machine.failed_units(), machine.failed_before, "failed units")
    machine.run("systemd-analyze", "security", "--threshold=60", UNIT)
    eventually(lambda: "host service" in machine.property(UNIT, "StatusText"), "the status line is complete")


@check("the journal says once which settings are missing", 10)
def _(machine):
    journal = machine.run("journalctl", f"--unit={UNIT}", "--output=cat")
    expect(journal.count("not set: HAVREL_WEB_SERVICE_HOST, HAVREL_API_HOST"), 1, f"times in {journal}")


@check("a unit that posts right after the start is heard, 5 of 5", 30)
def _(machine):
    for start in range(1, 6):
        machine.run("systemctl", "restart", UNIT, "poster.service")
        machine.await_logged(HOST_LOG, HANDLED, start)


@check("a member of the group posts, another user can't, everybody hears", 30)
def _(machine):
    machine.run("usermod", "--append", "--groups", "havrel", MEMBER)
    machine.run("systemd-run", "--unit=listener", f"--property=User={OTHER}",
                "--property=StandardOutput=file:/run/heard", "dbus-monitor", "--system", f"interface='{INTERFACE}'")
    eventually(lambda: "NameAcquired" in machine.read("/run/heard"), "the other user listens")
    handled = machine.read(HOST_LOG).count(HANDLED)
    machine.post("StartDownlad", user=OTHER)
    machine.post("StopDownload", user=MEMBER)
    eventually(lambda: '"StopDownload"' in machine.read("/run/heard"), "the other user hears the member")
    machine.await_logged(HOST_LOG, HANDLED, handled + 1)
    expect('"StartDownlad"' in machine.read("/run/heard"), False, "the other user is heard")
    expect("Launching version update" in machine.read(LOG), False, "the other user starts the updater")


@check("another user can't enter the support folder", 10)
def _(machine):
    refused = machine.refusal("ls", SUPPORT, user=OTHER)
    expect("Permission denied" in refused, True, f"it is refused by its mode ({refused})")


@check("an agent is loaded into a user's own manager, ended, and loaded again", 30)
def _(machine):
    machine.log_in(MEMBER)
    machine.post("EnableActionHost", user=MEMBER)
    first = eventually(lambda: machine.processes("HavrelAgent"), "the agent runs")
    expect(list(first.values()), [MEMBER], "users of the agent")
    group = machine.read(f"/proc/{min(first)}/cgroup")
    expect("/user@" in group, True, f"it belongs to the user's manager ({group.strip()})")
    machine.post("EnableActionHost", user=MEMBER)
    eventually(lambda: machine.processes("HavrelAgent").keys() - first.keys(), "another agent runs")
    expect(len(machine.processes("HavrelAgent")), 1, "agents")


@check("the host daemon's job is loaded and unloaded", 30)
def _(machine):
    eventually(lambda: machine.is_active("com.Dravex.HVLDaemonHost.service"), "it is loaded")
    machine.post("DisableAction", user=MEMBER)
    eventually(lambda: not machine.is_active("com.Dravex.HVLDaemonHost.service"), "it is unloaded")


@check("the sleep timers are the login manager's", 30)
def _(machine):
    machine.post("Sleep_Settings_HOST", user=MEMBER)
    eventually(lambda: machine.property_list(PREFERENCES).get("ComputerSleep") == "30", "30 minutes are stored")
    machine.post("sleepState", {"sleep": "1"}, user=MEMBER)
    eventually(lambda: machine.idle_action()[0] == "ignore", "the machine stays awake")
    machine.run(SYSTEMSETUP, "-setcomputersleep", "500")
    expect(machine.idle_action(), ("hibernate", 180), "the site's idle action, after the longest time")


@check("a site's own timer is not set, which systemsetup says", 10)
def _(machine):
    machine.write("/etc/systemd/logind.conf.d/90-site.conf", "[Login]\nIdleActionSec=1h\n")
    refused = machine.refusal(SYSTEMSETUP, "-setcomputersleep", "20")
    expect("something overrides" in refused, True, f"it says why ({refused})")
    machine.path("/etc/systemd/logind.conf.d/90-site.conf").unlink()


@check("an updater writes anywhere, installs set-user-ID files, and outlives a restart", 30)
def _(machine):
    work = "cp /bin/true /usr/bin/updated && chmod 4755 /usr/bin/updated && rm /usr/bin/updated"
    machine.write(f"{HOST}/HVLVersionUpdate", f"#!/bin/sh\n{work} && mkfifo /run/done && read _ </run/done\n", 0o755)
    machine.post("StartDownlad", user=MEMBER)
    eventually(lambda: machine.exists("/run/done"), "the updater has done its work")
    machine.run("systemctl", "restart", UNIT)
    expect(len(machine.processes("HVLVersionUpdate")), 1, "updaters")
    machine.post("StopDownload", user=MEMBER)
    eventually(lambda: not machine.processes("HVLVersionUpdate"), "the updater is stopped")


@check("proxies are fetched over TLS, measured by the real ping, and written", 90)
def _(machine):
    answering = {f"P{number}": f"127.1.0.{number}" for number in range(1, 51)}
    machine.list_proxies(answering | {"Unreachable": "192.0.2.1"})
    machine.configure("127.0.0.1")
    machine.start_pass()
    machine.await_end_of_pass()
    expect({proxy["hostName"] for proxy in machine.property_list(BEST_PROXIES)}, set(answering), "best proxies")
    expect(len(machine.property_list(ALL_PROXIES)), 51, "number of all proxies")
    eventually(lambda: "50 of 51 proxies answered" in machine.property(UNIT, "StatusText"), "the status line tells")


@check("another host in the configuration is asked after a restart", 30)
def _(machine):
    machine.configure("localhost")
    machine.start_pass()
    eventually(lambda: machine.service.asked(f"localhost:{machine.service.port}{PROXY_LIST}"), "a request")


@check("a fetch runs as a user of its own, and the start waits for it 5 s at most", 30)
def _(machine):
    machine.service.stall()
    machine.start_pass()
    eventually(lambda: machine.service.asked(PROXY_LIST), "a request")
    expect(list(machine.processes("HavrelFetch").values()), ["havrel-fetch"], "users of the fetches")
    expect_within(6, lambda: machine.run("systemctl", "start", UNIT))


@check("a stop during a stalled request takes less than 3 s", 30)
def _(machine):
    machine.service.stall()
    machine.start_pass()
    eventually(lambda: machine.service.asked(PROXY_LIST), "a request")
    expect_within(3, lambda: machine.run("systemctl", "stop", UNIT))
    expect(machine.property(UNIT, "Result"), "success", "result")
    eventually(lambda: not machine.processes("HavrelFetch"), "the fetch has ended", 1)
    expect(machine.read(LOG).rstrip().endswith("HavrelHelper : Called : Down"), True, "its last line is written")


@check("an upgrade during a pass leaves no ping and no warning, and a helper that measures", 90)
def _(machine):
    newer = machine.newer_package()
    machine.service.go_on()
    machine.start_pass()
    pings = eventually(lambda: machine.processes("ping"), "a pass")
    helper = machine.property(UNIT, "MainPID")
    cursor = machine.run("journalctl", "--show-cursor", "--lines=0").split("cursor: ")[1].strip()
    machine.install(newer)
    eventually(lambda: not machine.processes("ping").keys() & pings.keys(), "the pings have ended", 5)
    expect(machine.is_active(UNIT), True, "active")
    expect(machine.property(UNIT, "MainPID") == helper, False, "the same process")
    machine.await_end_of_pass()
    warnings = machine.run("journalctl", f"--unit={UNIT}", "--priority=warning", "--output=cat",
                           f"--after-cursor={cursor}")
    expect(warnings, "", "warnings")


@check("an application in the Trash is uninstalled by a script that purges the package", 60)
def _(machine):
    known = {"sessionId": "7", "hostID": "token"}
    machine.write(PREFERENCES, machine.property_list(PREFERENCES) | known)
    machine.write(f"{HOST}/Uninstaller", "echo $1 >/root/uninstalled; exec apt-get --yes purge havrel-helper\n", 0o755)
    machine.write("/Applications/HavrelHost.app/Contents/Info.plist", {})
    machine.run("chown", "--recursive", MEMBER, "/Applications")
    machine.run("gio", "trash", "/Applications/HavrelHost.app", user=MEMBER)
    eventually(lambda: machine.read("/root/uninstalled") == "1\n", "the uninstaller deletes the configuration")
    eventually(lambda: not machine.exists("/var/lib/dpkg/info/havrel-helper.list"), "the package is gone")
    eventually(lambda: not machine.processes("apt-get"), "the uninstaller has ended")
    expect(machine.service.asked("delete_havrel_account.cgi client_id=7"), True, "the account is deleted")
    expect(machine.service.asked("deactivate_machine.cgi"), True, "the machine is deactivated")
    expect(machine.failed_units(), machine.failed_before, "failed units")


@check("a purged package leaves nothing", 20)
def _(machine):
    expect(sorted(machine.files() - machine.files_before), [], "files")


@check("an aborted upgrade leaves the helper active", 30)
def _(machine):
    machine.install()
    machine.refusal("dpkg", "--install", machine.newer_package(preinst="#!/bin/sh\nexit 1\n"))
    eventually(lambda: machine.is_active(UNIT), "it is active")
    expect(machine.run("dpkg", "--audit"), "", "packages to be mended")


@check("an aborted removal brings the helper back", 30)
def _(machine):
    machine.run("sh", "-c", "echo exit 1 >>/var/lib/dpkg/info/havrel-helper.prerm")
    machine.refusal("dpkg", "--remove", "havrel-helper")
    eventually(lambda: machine.is_active(UNIT), "it is active again")


@check("a removed package leaves conffiles, and a machine that can sleep", 30)
def _(machine):
    machine.install()
    machine.post("sleepState", {"sleep": "1"})
    eventually(lambda: machine.idle_action()[0] == "ignore", "the machine stays awake")
    conffiles = set(machine.read("/var/lib/dpkg/info/havrel-helper.conffiles").split())
    machine.run("dpkg", "--remove", "havrel-helper")
    # But for the records of which services were enabled.
    left = {file for file in machine.files("-type", "f") - machine.files_before if "deb-systemd-helper" not in file}
    expect(left, conffiles, "files")
    expect(machine.idle_action(), ("hibernate", 30), "idle action")
    machine.run("dpkg", "--purge", "havrel-helper")
    expect(sorted(machine.files() - machine.files_before), [], "files after a purge")


@check("the machine shuts down with the helper", 40)
def _(machine):
    machine.install()
    machine.shut_down()


@check("booted without a network, the helper is active; with the network come unique ID and proxies", 60)
def _(machine):
    machine.remove_interface()
    machine.boot()
    expect(machine.is_active(UNIT), True, "active")
    machine.configure(ADDRESS)
    machine.run("systemctl", "stop", UNIT)
    machine.path(PREFERENCES).unlink()
    machine.start_pass()
    machine.run("systemctl", "start", UNIT)
    expect(machine.service.asked(PROXY_LIST), False, "a request without a network")
    expect(machine.property_list(PREFERENCES).get("uniqueId"), None, "unique ID without an interface")
    machine.add_interface()
    machine.await_end_of_pass()
    expect(machine.property_list(PREFERENCES)["uniqueId"], MAC, "unique ID")


if __name__ == "__main__":
    sys.exit(main(HelperMachine))
