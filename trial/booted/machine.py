"""A throw-away Debian, booted from a copy-on-write view of this machine's own files.

Its mounts, processes and network are in namespaces that end with the first process in them, and of this machine nothing
changes. Only its control group lies outside; `close` removes it.
"""

import os
import pathlib
import plistlib
import shutil
import subprocess
import time
import uuid

ENVIRONMENT = {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "LANG": "C.UTF-8", "HOME": "/root"}
NAMESPACES = ("unshare", "--mount", "--propagation", "private", "--net", "--pid", "--fork", "--kill-child=TERM",
              "--mount-proc")
TOOLS = ("unshare", "nsenter", "systemd-nspawn", "ip", "openssl", "gio", "dbus-monitor", "dpkg-deb")
# In a mount namespace of its own, whatever lies there is out of sight but not gone.
SCRATCH = pathlib.Path("/mnt")
MOUNTS = f"""mount -t tmpfs tmpfs {SCRATCH}
mkdir {SCRATCH}/upper {SCRATCH}/work {SCRATCH}/root
mount -t overlay overlay -o lowerdir=/,upperdir={SCRATCH}/upper,workdir={SCRATCH}/work {SCRATCH}/root
mount -t tmpfs tmpfs /run
mount -t cgroup2 cgroup2 /sys/fs/cgroup
rmdir "$(mktemp --directory /sys/fs/cgroup/havrel-booted-XXXXXX)"
ip link set lo up"""


class Failure(Exception):
    """What was seen instead of what has to be."""


def run(*command):
    """Runs a command and returns its standard output. Throws Failure if it fails."""
    ended = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                           text=True, env=ENVIRONMENT)
    if ended.returncode != 0:
        raise Failure(f"{command} ended with status {ended.returncode}\n{ended.stdout}{ended.stderr}")
    return ended.stdout


def eventually(condition, what, within=20.0):
    """Waits until the condition holds and returns its result. Throws Failure if it never does."""
    end = time.monotonic() + within
    while not (result := condition()):
        if time.monotonic() > end:
            raise Failure(f"not within {within:g} s: {what}")
        time.sleep(0.02)
    return result


def what_is_missing():
    """What this machine lacks for a container; None if it can run one."""
    if os.geteuid() != 0:
        return "root"
    for tool in TOOLS:
        if shutil.which(tool, path=ENVIRONMENT["PATH"]) is None:
            return tool
    for folder in ("/etc", "/usr", "/var"):
        if os.path.ismount(folder):
            return f"{folder} on the root file system"
    try:
        run(*NAMESPACES, "sh", "-ec", MOUNTS)
    except Failure as failure:
        return f"namespaces, overlays and version 2 control groups: {failure}"
    return None


class Machine:
    """Is made in NAMESPACES, and shares their network with the container: a server here is on its loopback."""

    def __init__(self):
        run("sh", "-ec", MOUNTS)
        self.nspawn = None
        self.group = pathlib.Path("/sys/fs/cgroup", f"havrel-booted-{uuid.uuid4()}")
        etc = SCRATCH / "root/etc"
        # This machine's own services, disks, and refusal to start the services of packages.
        unwanted = [*etc.glob("systemd/system/*.wants/*"), etc / "fstab", SCRATCH / "root/usr/sbin/policy-rc.d"]
        for file in unwanted:
            file.unlink(missing_ok=True)
        # Two machines need two; with none it would be a first boot, which asks questions.
        (etc / "machine-id").unlink(missing_ok=True)
        (etc / "machine-id").write_text(uuid.uuid4().hex + "\n")

    def boot(self):
        self.group.mkdir(exist_ok=True)
        with open(SCRATCH / "console", "wb") as console:
            self.nspawn = subprocess.Popen(
                ["sh", "-c", 'echo $$ >"$0/cgroup.procs" && exec "$@"', self.group, "systemd-nspawn", "--quiet",
                 f"--directory={SCRATCH}/root", "--machine=havrel-booted", "--register=no", "--keep-unit",
                 "--link-journal=no", "--console=pipe", "--network-namespace-path=/proc/self/ns/net",
                 "/lib/systemd/systemd"],
                stdin=subprocess.DEVNULL, stdout=console, stderr=console, env=ENVIRONMENT, start_new_session=True)
        eventually(self.is_up, "the system is up", 60)

    def is_up(self):
        if self.nspawn.poll() is not None:
            raise Failure((SCRATCH / "console").read_text(errors="replace"))
        try:
            self.leader = run("pgrep", "--parent", str(self.nspawn.pid)).split()[0]
            return self.run("systemctl", "show", "--property=SystemState") in (
                "SystemState=running\n", "SystemState=degraded\n")
        except Failure:
            return False

    def shut_down(self):
        self.run("systemctl", "poweroff")
        eventually(self.is_down, "the system is down", 30)

    def is_down(self):
        """Reaps: here this is the parent of every orphan, and a container waits for those that were inside."""
        return os.waitpid(-1, os.WNOHANG)[0] == self.nspawn.pid

    def close(self):
        if self.group.exists():
            (self.group / "cgroup.kill").write_text("1")
        if self.nspawn is not None and self.nspawn.poll() is None:
            eventually(self.is_down, "the container is gone")
        eventually(self.is_group_gone, "the control group is empty")

    def is_group_gone(self):
        try:
            for folder, _, _ in os.walk(self.group, topdown=False):
                os.rmdir(folder)
        except OSError:
            return False
        return True

    def run(self, *command, user="root"):
        """Runs a command in the container and returns its standard output. Throws Failure if it fails."""
        switch = ("runuser", "-u", user, "--") if user != "root" else ()
        return run("nsenter", "-t", self.leader, "-m", "-u", "-i", "-n", "-p", "-C", "-r", "-w", *switch, *command)

    def refusal(self, *command, user="root"):
        """Runs a command that has to fail, and returns what it said."""
        try:
            self.run(*command, user=user)
        except Failure as refused:
            return str(refused)
        raise Failure(f"{command} succeeded")

    def path(self, absolute):
        """A path of the container as it is seen from here, where an absolute link would lead out of the container."""
        return pathlib.Path(f"/proc/{self.leader}/root{absolute}")

    def write(self, absolute, content, mode=0o644):
        """Writes text, or another value as a property list."""
        file = self.path(absolute)
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_bytes(content.encode() if isinstance(content, str) else plistlib.dumps(content))
        file.chmod(mode)

    def read(self, absolute):
        """The text of a file; empty when absent."""
        return self.path(absolute).read_text() if self.exists(absolute) else ""

    def property_list(self, absolute):
        """The value of a property list; an empty dictionary when absent."""
        return plistlib.loads(self.path(absolute).read_bytes()) if self.exists(absolute) else {}

    def exists(self, absolute):
        return self.path(absolute).exists()

    def processes(self, program):
        """The users of the processes of this name, of which the kernel keeps 15 characters, by process id."""
        lines = [line.split(maxsplit=2) for line in self.run("ps", "-A", "-o", "pid=,user:32=,comm=").splitlines()]
        return {process: user for process, user, name in lines if name == program[:15]}

    def property(self, unit, name):
        return self.run("systemctl", "show", "--value", f"--property={name}", unit).strip()

    def is_active(self, unit):
        return self.property(unit, "ActiveState") == "active"

    def failed_units(self):
        return self.run("systemctl", "list-units", "--failed", "--no-legend").splitlines()
