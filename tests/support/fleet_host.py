"""A host of a fleet: a machine with a network, users, and OpenSSH's server."""

from __future__ import annotations

import os
import shlex
import shutil
import signal
from collections.abc import Sequence
from dataclasses import dataclass
from pathlib import Path

from . import fleet_network
from .machine import ENVIRONMENT, Installation, Machine
from .run import Capture, wait_until
from .sandbox import Order, Sandbox, SandboxServer

PASSWORD = "open sesame, please"
#: Of that password, by crypt(3): SHA-512.
PASSWORD_HASH = ("$6$fleet$qT8c/SDvaWKucl1rkP2VNLEk9nEvICvGtJbvM23CHO7PTjVQpJQrMgESVzZwLAqHirltiIi"
                 "BZbMOA9yx7oYys/")
OPERATOR = (5001, 5001)  # user and group

SSHD = "/usr/sbin/sshd"
SFTP = "/usr/lib/openssh/sftp-server"
HELPERS = "/run/fleet"  # programs of the test on a host; not what a collector looks at
FAULT = f"{HELPERS}/sftp_fault.py"
FLIPS = f"{HELPERS}/flips"

#: The settings of the server, after Debian's, without what waits for a name service.
SETTINGS = """\
ListenAddress {address}
HostKey /etc/ssh/host_key
PermitRootLogin prohibit-password
PasswordAuthentication no
KbdInteractiveAuthentication no
UsePAM yes
UseDNS no
PrintMotd no
PidFile none
PrintLastLog no
MaxStartups 100
Subsystem sftp {sftp}
"""

#: Where a run may leave something, what logins and sudo leave there, and Ansible's empty
#: directories.
PLACES = ("/opt", "/var/opt", "/etc", "/home", "/root", "/run", "/tmp", "/var/tmp", "/dev/shm")
NOT_LEFT = ("/run/sudo", "/run/motd.dynamic", HELPERS)
NOT_LEFT_EMPTY = tuple(f"{home}/{name}" for home in ("/root", "/home/operator")
                       for name in (".ansible", ".ansible/tmp"))

#: A replacement of gzip that compresses nothing: fast, and its result is valid all the same.
STORE = """#!/usr/bin/python3
import os, sys, zlib
if len(sys.argv) != 2 or sys.argv[1].startswith("-"):
    os.execv("/opt/real/gzip", ["gzip", *sys.argv[1:]])
path = sys.argv[1]
packer = zlib.compressobj(0, zlib.DEFLATED, 31)
with open(path, "rb") as source, open(path + ".gz", "wb") as target:
    while block := source.read(1 << 20):
        target.write(packer.compress(block))
    target.write(packer.flush())
os.unlink(path)
"""

LARGE_PATTERN = """\
FORMAT_VERSION = 1.0
PP_NAME = "Large"
PP_GROUP = linux

BLOCK {
    TARGET = large

    DATA_BLOCK {
        PATH_NAME = "/opt/large"
        FILE_TYPE = binary
        DESCRIPTION = "Random bytes"
    }
}
"""


@dataclass(frozen=True)
class Snapshot:
    """What there is on a host at a moment."""

    paths: frozenset[str]
    processes: frozenset[int]


class FleetHost(Machine):
    """A host: all that a `Machine` is, with an address, a server and users.

    `root` is in by key; `operator` is in by key and gets root with sudo and the password. Below
    "/etc", "/home", "/root" and "/run" files can be made too.
    """

    OWN_DIRECTORIES = ("/opt/", "/var/opt/", "/etc/", "/home/", "/root/", "/run/", "/tmp/",
                       "/var/tmp/")

    def __init__(self, server: SandboxServer, installation: Installation, name: str,
                 writable: Sequence[str] = (), visible: Sequence[str] = (),
                 space: int | str | None = None) -> None:
        self.name = name
        self.address = ""
        self.login = "root"
        self._writable, self._visible, self._space = writable, visible, space
        self._listener = 0
        self._log: Capture | None = Capture("sshd")
        super().__init__(server, installation)

    def _make_sandbox(self, server: SandboxServer) -> Sandbox:
        return server.make_sandbox(self.name, [*self._installation.writable, *self._writable],
                                   self._visible, host=True)

    def _install(self) -> None:
        if self._space is not None:
            self.mount("-t", "tmpfs", "-o", f"size={self._space},mode=0755", "small", "/var/opt")
        super()._install()
        self.directory("/run/sshd")
        self.directory("/run/lock", mode=0o1777)
        self.directory(HELPERS, mode=0o1777)

    # ---- Before its server starts ---------------------------------------------------------------

    def settle(self, address: str, key: Path, authorized: str, names: str) -> None:
        """Gives the host its address, its host key, its users and the names of the network."""
        self.address = address
        self.file("/etc/hosts", f"127.0.0.1 localhost\n{address} {self.name}\n{names}")
        self.file("/etc/hostname", f"{self.name}\n")
        self.file("/etc/resolv.conf")
        self.file("/etc/ssh/host_key", key.read_bytes(), mode=0o600)
        self._add_operator()
        self.directory("/home/operator", 0o700, OPERATOR)
        for home, owner in (("/root", (0, 0)), ("/home/operator", OPERATOR)):
            self.directory(f"{home}/.ssh", 0o700, owner)
            self.file(f"{home}/.ssh/authorized_keys", authorized, 0o600, owner)

    def _add_operator(self) -> None:
        user, group = OPERATOR
        for path, line in (
                ("/etc/passwd", f"operator:x:{user}:{group}::/home/operator:/bin/bash"),
                ("/etc/group", f"operators:x:{group}:"),
                ("/etc/shadow", f"operator:{PASSWORD_HASH}:20000:0:99999:7:::")):
            lines = [old for old in self.read(path).splitlines()
                     if not (old.startswith("operator:") and path != "/etc/group")]
            mode = self.status(path).st_mode & 0o777
            self.file(path, "\n".join([*lines, line]) + "\n", mode)
        self.file("/etc/sudoers.d/operator",
                  "Defaults lecture=never\noperator ALL=(ALL:ALL) ALL\n", 0o440)

    # ---- The server -----------------------------------------------------------------------------

    def serve(self, sftp: str = SFTP, settings: str = "") -> None:
        """Starts the server, or starts it anew: `sftp` is its program for files, `settings` are
        further lines of sshd_config(5). Sessions that are open stay open."""
        self.stop_serving()
        self.file("/etc/ssh/sshd_config",
                  SETTINGS.format(address=self.address, sftp=sftp) + settings)
        order = Order(argv=[SSHD, "-D", "-e"], env={"PATH": ENVIRONMENT["PATH"]})
        assert self._log is not None, "the host is gone"
        output = self._log.descriptor
        with open(os.devnull, "rb") as nothing:
            self._listener = self.sandbox.spawn(order, nothing.fileno(), output, output)
        wait_until(self._is_ready, 10.0 * self.patience, f"sshd of {self.name}")

    def _is_ready(self) -> bool:
        ended = self.sandbox.wait(self._listener, 0) is not None
        assert not ended, f"sshd of {self.name} ended: {self.server_log()}"
        return fleet_network.listens(self, 22)

    def stop_serving(self) -> None:
        """Ends the listener; connections are refused from now on, those that are open stay."""
        if self._listener:
            self.sandbox.kill(self._listener, signal.SIGKILL)
            assert self.sandbox.wait(self._listener, 10.0) is not None
            self._listener = 0

    def freeze(self, frozen: bool = True) -> None:
        """Stops the listener, or lets it go on: the kernel still accepts connections, but no one
        says a word on them."""
        self.sandbox.kill(self._listener, signal.SIGSTOP if frozen else signal.SIGCONT)

    def server_log(self) -> str:
        """What the server said so far."""
        return self._log.read().decode(errors="replace") if self._log is not None else ""

    def sessions(self) -> list[int]:
        """The process ids of the server's sessions."""
        return [entry.pid for entry in self.processes()
                if entry.pid != self._listener and entry.command.startswith("sshd: ")]

    def kill_sessions(self) -> int:
        """Cuts every connection by killing the server's processes for it; returns how many. What
        runs in a session is not killed."""
        sessions = self.sessions()
        for pid in sessions:
            try:
                self.sandbox.kill(pid, signal.SIGKILL)
            except AssertionError:
                assert pid not in self.sessions()  # it ended with its parent
        wait_until(lambda: not set(sessions) & set(self.sessions()), 10.0, "the sessions' end")
        return len(sessions)

    def cut(self) -> None:
        """Pulls the cable out: nothing answers, and nobody is told."""
        fleet_network.switch(self, False)

    def mend(self) -> None:
        """Plugs the cable in again."""
        fleet_network.switch(self, True)

    # ---- Faults ---------------------------------------------------------------------------------

    def _sftp_with(self, *words: object) -> None:
        self.install(Path(__file__).with_name("sftp_fault.py"), FAULT)
        command = ["/usr/bin/python3", "-I", "-S", "-B", FAULT, *map(str, words)]
        self.serve(shlex.join(command))

    def flip(self, transfers: int = 1, larger_than: int = 1 << 16) -> None:
        """One byte is flipped in each of the next transfers from here of files of that size."""
        if self.exists(FLIPS):
            self.remove(FLIPS)
        self._sftp_with("flip", larger_than, transfers, FLIPS)

    def flips_left(self) -> int:
        """How many transfers are still to be changed."""
        return int(self.read(FLIPS))

    def endless_files(self) -> None:
        """Every file that is read from here has no end."""
        self._sftp_with("endless")

    def slow_files(self, seconds: float) -> None:
        """Every 32 KiB of a file that is read from here take so many seconds."""
        self._sftp_with("slow", seconds)

    def answer_endlessly(self) -> None:
        """Every command is answered with output without end."""
        self._force("exec /usr/bin/yes 'and so on'")

    def answer_never(self) -> None:
        """No command is ever answered."""
        self._force("exec /usr/bin/sleep infinity")

    def answer(self, text: str, status: int = 0) -> None:
        """Every command is answered with this text and this exit status."""
        self.file(f"{HELPERS}/text", text)
        self._force(f"/usr/bin/cat {HELPERS}/text; exit {status}")

    def answer_through(self, program: str) -> None:
        """The standard output of every command goes through a program of the host; transfers of
        files do not."""
        self._force(f'case $SSH_ORIGINAL_COMMAND in {SFTP}) exec {SFTP} ;; esac\n'
                    f'/bin/sh -c "$SSH_ORIGINAL_COMMAND" | {program}')

    def _force(self, script: str) -> None:
        self.file(f"{HELPERS}/answer", f"#!/bin/sh\n{script}\n", 0o755)
        self.serve(settings=f"ForceCommand {HELPERS}/answer\n")

    # ---- Collecting -----------------------------------------------------------------------------

    def collect_large(self, size: int) -> None:
        """From now on, a run collects only a file of so many random bytes, and does not compress
        it: the archive is made in a few seconds and is a little larger."""
        with open(self._own("/opt/large"), "wb") as file:
            for begin in range(0, size, 1 << 20):
                file.write(os.urandom(min(1 << 20, size - begin)))
        self.pattern("10_large", LARGE_PATTERN)
        self.replace_by("/usr/bin/gzip", STORE)

    def replace_by(self, program: str, script: str) -> str:
        """Replaces a program of the system by a script; returns where the real one stays."""
        real = self.replace(program)
        replacement = self.file(f"{HELPERS}/{Path(program).name}", script, 0o755)
        self.mount("--bind", replacement, os.path.realpath(program))
        return real

    # ---- What is left ---------------------------------------------------------------------------

    def snapshot(self) -> Snapshot:
        """What there is now, for a later comparison."""
        return Snapshot(frozenset(self._paths()), frozenset(
            entry.pid for entry in self.processes()))

    def _paths(self) -> list[str]:
        found = []
        for place in PLACES:
            for directory, below, files in os.walk(self.root / place.lstrip("/")):
                inside = "/" + os.path.relpath(directory, self.root)
                found += [f"{inside}/{name}" for name in (*below, *files)]
        return [path for path in found
                if not path.startswith(NOT_LEFT) and path not in NOT_LEFT_EMPTY]

    def leftovers(self, before: Snapshot, ignore: Sequence[str] = ()) -> list[str]:
        """What is new since a snapshot: paths, and processes as lines of text. The server's own
        processes do not count, nor do paths that begin with one of `ignore`."""
        paths = [path for path in self._paths()
                 if path not in before.paths and not path.startswith(tuple(ignore))]
        processes = [str(entry) for entry in self.processes()
                     if entry.pid not in before.processes and not entry.command.startswith("sshd")]
        return sorted(paths) + processes

    def destroy(self) -> None:
        """Ends the host with everything in it."""
        super().destroy()
        if self._log is not None:
            self._log.close()
            self._log = None

    def describe(self) -> str:
        """All that is known of the host, for a failure's report."""
        return f"--- {self.name} {self.address} ---\n{super().describe()}\n{self.server_log()}"


def make_key(path: Path, comment: str) -> Path:
    """Makes a key pair without a passphrase; returns the path of the private one."""
    keygen = shutil.which("ssh-keygen")
    assert keygen, "there is no ssh-keygen"
    status = os.spawnv(os.P_WAIT, keygen, ["ssh-keygen", "-q", "-t", "ed25519", "-N", "",
                                           "-C", comment, "-f", str(path)])
    assert status == 0, f"{path} was not made"
    return path
