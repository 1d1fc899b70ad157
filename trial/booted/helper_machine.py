"""A booted machine with the helper's package, a web service, and what stands for the product around it."""

import json
import pathlib

from booted.machine import SCRATCH, Machine, eventually, run
from booted.web_service import ADDRESS, WebService

UNIT = "havrel-helper.service"
SUPPORT = "/Library/Application Support"
HOST = f"{SUPPORT}/HVLHostForMac"
MARKER = f"{HOST}/LoadSoundDrivers.txt"
PREFERENCES = f"{HOST}/.HostPref.plist"
BEST_PROXIES = f"{HOST}/Proxies.plist"
ALL_PROXIES = f"{HOST}/AllProxies.plist"
LOG = f"{HOST}/Havrel.log"
HOST_LOG = f"{HOST}/HavrelHost7.log"
PROXY_LIST = "/cgi-bin/hvl/v4/get_proxy_list.cgi"
SYSTEMSETUP = "/usr/libexec/havrel/tools/systemsetup"
INTERFACE = "com.Dravex.DistributedNotifications"
MAC = "02:00:5e:10:00:01"
# In and outside of group havrel.
MEMBER = "havrel-ann"
OTHER = "havrel-bob"


class HelperMachine(Machine):
    def __init__(self, package):
        super().__init__()
        self.package = "/root/helper.deb"
        (SCRATCH / "root/root/helper.deb").write_bytes(pathlib.Path(package).read_bytes())
        self.service = WebService(SCRATCH)

    def remove_product(self):
        """What the copied machine had of it."""
        self.run("dpkg", "--purge", "havrel-helper")
        self.run("rm", "-rf", "/Library", "/Applications", "/Users")

    def put_product(self):
        """An agent, a host daemon, and a unit that posts as soon as the helper is started."""
        for kind, folder, job in (("user", "LaunchAgents", "HavrelAgent"),
                                  ("system", "LaunchDaemons", "HVLDaemonHost")):
            self.run("install", "-D", "/usr/bin/sleep", f"/opt/havrel/{job}")
            self.write(f"/etc/systemd/{kind}/com.Dravex.{job}.service",
                       f"[Service]\nExecStart=/opt/havrel/{job} infinity\n")
            self.write(f"/Library/{folder}/com.Dravex.{job}.plist", {"Label": f"com.Dravex.{job}"})
        words = " ".join(word or '""' for word in post_words("StopDownload"))
        self.write("/etc/systemd/system/poster.service",
                   f"[Unit]\nAfter={UNIT}\n[Service]\nType=oneshot\nExecStart={words}\n")

    def add_interface(self):
        """One with an address and a default route, at whose other end nobody answers."""
        for words in (f"link add lan address {MAC} type veth peer name away", "link set away up", "link set lan up",
                      f"address add {ADDRESS}/24 dev lan", "route add default via 198.51.100.1"):
            run("ip", *words.split())

    def remove_interface(self):
        run("ip", "link", "delete", "lan")

    def log_in(self, user):
        """A graphical session at the console."""
        self.run("systemd-run", "--unit=desktop", f"--property=User={user}", "--property=PAMName=login",
                 "--property=Environment=XDG_SESSION_TYPE=wayland XDG_SESSION_CLASS=user XDG_SEAT=seat0",
                 "sleep", "infinity")
        # It starts when the session is complete, the user's own manager included.
        eventually(lambda: user in self.processes("sleep").values(), f"{user} is logged in")

    def install(self, package=None):
        self.run("dpkg", "--install", package or self.package)

    def newer_package(self, preinst="#!/bin/sh\n"):
        """The same files in a package of a higher version, with this script that is run first."""
        self.run("rm", "-rf", "/root/newer")
        self.run("dpkg-deb", "--raw-extract", self.package, "/root/newer")
        self.write("/root/newer/DEBIAN/preinst", preinst, 0o755)
        self.run("sed", "-i", "/^Version: /s/$/+newer/", "/root/newer/DEBIAN/control")
        self.run("dpkg-deb", "--build", "/root/newer", "/root/newer.deb")
        return "/root/newer.deb"

    def configure(self, host):
        """Points the helper to the web service under this name; only root may read the trust anchor."""
        self.write("/root/anchor.pem", self.service.anchor.read_text(), 0o600)
        self.write("/etc/havrel/helper.conf", f"HAVREL_WEB_SERVICE_HOST={host}:{self.service.port}\n"
                   f"HAVREL_API_HOST={host}:{self.service.port}\nHAVREL_CA_FILE=/root/anchor.pem\n")

    def list_proxies(self, names_and_addresses):
        proxies = {name: {"domain": address} for name, address in names_and_addresses.items()}
        self.service.answers[PROXY_LIST] = json.dumps({"proxy_list": proxies})

    def start_pass(self):
        """Starts the helper anew and has it fetch the proxies and measure all."""
        # The end of an earlier pass would take the marker away.
        self.run("systemctl", "stop", UNIT)
        self.service.requests.clear()
        self.write(MARKER, "")
        self.path(BEST_PROXIES).unlink(missing_ok=True)
        self.run("systemctl", "start", "--no-block", UNIT)

    def await_end_of_pass(self):
        eventually(lambda: not self.exists(MARKER) and self.exists(BEST_PROXIES), "all proxies are measured", 60)

    def post(self, name, information=None, user="root"):
        self.run(*post_words(name, information or {}), user=user)

    def await_logged(self, log, text, count):
        eventually(lambda: self.read(log).count(text) >= count, f"{count} times {text!r} in {log}")

    def idle_action(self):
        """The login manager's, and its minutes."""
        answer = self.run("busctl", "get-property", "org.freedesktop.login1", "/org/freedesktop/login1",
                          "org.freedesktop.login1.Manager", "IdleAction", "IdleActionUSec").split()
        return answer[1].strip('"'), int(answer[3]) // 60_000_000

    def files(self, *kind):
        """All, or of this kind, that a package or the helper could leave behind; not the package managers' records."""
        return set(self.run("find", "/etc", "/opt", "/usr", "/var/lib", "-path", "/var/lib/dpkg", "-prune", "-o",
                            "-path", "/var/lib/PackageKit", "-prune", "-o", *kind, "-print").splitlines())


def post_words(name, information={}):
    """The command line that posts a notification with this user information, all texts."""
    members = [word for key, text in information.items() for word in (key, "s", text)]
    return ["busctl", "--system", "emit", "/" + INTERFACE.replace(".", "/"), INTERFACE, "Posted", "ssa{sv}u",
            name, "", str(len(information)), *members, "3"]
