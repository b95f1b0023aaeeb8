"""A fleet: hosts with real ssh servers, and a controller that reaches them.

    host = fleet.host("web1")
    other = fleet.host("web2", sudo=True, space="64m")
    dead = fleet.down("web3")
    inventory = fleet.inventory(groups={"web": ["web1", "web2", "web3"]})
    done = fleet.run(["ansible", "-i", inventory, "web", "-m", "ping"])

Every host, and the controller too, has file systems, processes, a host name and a network of its
own. All of it ends with the test.
"""

from __future__ import annotations

import json
import os
import signal
import time
from collections.abc import Mapping, Sequence
from dataclasses import dataclass
from pathlib import Path

from . import fleet_network, masking
from .fleet_host import PASSWORD, FleetHost, make_key
from .machine import ENVIRONMENT, Installation
from .run import Capture, wait_until
from .sandbox import Order, SandboxServer

ROOT = Path(__file__).resolve().parents[2]
HOME = "/root"  # of the controller: in memory, like all else that it has for itself
KNOWN_HOSTS = f"{HOME}/.ssh/known_hosts"
KEY = f"{HOME}/.ssh/id_ed25519"
COLLECTIONS = f"{HOME}/.ansible/collections"
FIRST_NUMBER = 11  # of the hosts' addresses

CONTROLLER_ENVIRONMENT = {
    **ENVIRONMENT, "HOME": HOME, "USER": "root", "LOGNAME": "root", "TMPDIR": "/tmp",
    "ANSIBLE_HOME": f"{HOME}/.ansible", "ANSIBLE_LOCAL_TEMP": f"{HOME}/.ansible/tmp",
    # Both names: the second one is that of ansible-core 2.14 and earlier.
    "ANSIBLE_COLLECTIONS_PATH": COLLECTIONS, "ANSIBLE_COLLECTIONS_PATHS": COLLECTIONS,
    "ANSIBLE_NOCOLOR": "1", "PYTHONDONTWRITEBYTECODE": "1",
}

#: The addresses at which nothing answers, by how nothing does.
DOWN = {"refused": fleet_network.REFUSED, "silent": fleet_network.SILENT,
        "absent": fleet_network.ABSENT}


@dataclass(frozen=True)
class Finished:
    """A command that has ended on the controller.

    `peak` is the resident set of the largest of its processes; `total_peak` is the most that all
    watched processes of the controller had together, each shared page counted once (0 if none were
    watched). Both in bytes.
    """

    command: tuple[str, ...]
    status: int
    stdout: str
    stderr: str
    seconds: float
    peak: int
    total_peak: int

    def __str__(self) -> str:
        return (f"{' '.join(self.command)}: status {self.status}, {self.seconds:.1f} s\n"
                f"{self.stdout}\n--- stderr ---\n{self.stderr}")


class Command:
    """A command that runs on the controller."""

    def __init__(self, controller: FleetHost, command: Sequence[str | Path], cwd: str,
                 env: Mapping[str, str], watch_memory: bool | str) -> None:
        self.command = tuple(map(str, command))
        self._controller = controller
        self._watch = watch_memory
        self._total_peak = 0
        self._out, self._err = Capture("stdout"), Capture("stderr")
        self._began = time.monotonic()
        order = Order(argv=self.command, cwd=cwd, env={**CONTROLLER_ENVIRONMENT, **env})
        with open(os.devnull, "rb") as nothing:
            self.pid = controller.sandbox.spawn(order, nothing.fileno(), self._out.descriptor,
                                                self._err.descriptor)

    @property
    def stdout(self) -> str:
        """The standard output so far."""
        return masking.decode(self._out.read())

    @property
    def ended(self) -> bool:
        """Whether it has ended."""
        return self._controller.sandbox.wait(self.pid, 0) is not None

    def signal(self, number: int) -> None:
        """Sends a signal to the command and what it started, as a terminal does."""
        self._controller.sandbox.kill(-self.pid, number)

    def finish(self, seconds: float = 120.0) -> Finished:
        """Waits for the end; a command that does not end in time is killed, and the test fails.

        Memory is watched only meanwhile.
        """
        deadline = time.monotonic() + seconds * self._controller.patience
        step = 0.1 if self._watch else seconds * self._controller.patience
        while (status := self._controller.sandbox.wait(self.pid, step)) is None:
            if time.monotonic() >= deadline:
                self.signal(signal.SIGKILL)
                raise AssertionError(f"{self.command} did not end within {seconds} s\n"
                                     f"{self.stdout}\n{masking.decode(self._err.read())}")
            if self._watch:
                self._total_peak = max(self._total_peak, self._memory())
        done = Finished(self.command, os.waitstatus_to_exitcode(status), self.stdout,
                        masking.decode(self._err.read()), time.monotonic() - self._began,
                        self._controller.sandbox.peak(self.pid) * 1024, self._total_peak)
        self._out.close()
        self._err.close()
        return done

    def _memory(self) -> int:
        """The bytes that the watched processes have in memory, each shared page once."""
        named = "" if self._watch is True else str(self._watch)
        total = 0
        for entry in self._controller.processes():
            try:
                path = self._controller.root / f"proc/{entry.pid}/smaps_rollup"
                text = path.read_text() if named in entry.command else ""
            except (FileNotFoundError, ProcessLookupError):
                continue  # it ended meanwhile
            total += sum(int(line.split()[1]) for line in text.splitlines()
                         if line.startswith("Pss:"))
        return total * 1024


class Fleet:
    """The hosts of one test and their controller.

    `directory` is the test's own: the only one that both the test and the controller can write.
    The tree of the project is readable on the controller at its own path.
    """

    def __init__(self, server: SandboxServer, installation: Installation, directory: Path) -> None:
        self.directory = directory
        self.hosts: dict[str, FleetHost] = {}
        self._server, self._installation = server, installation
        self._down: dict[str, str] = {}
        self._keys = directory / "keys"
        self._keys.mkdir()
        self.controller = FleetHost(server, installation, "controller", [str(directory)],
                                    [str(ROOT)])
        try:
            fleet_network.make_bridge(self.controller)
            self._make_login()
        except BaseException:
            self.destroy()
            raise

    def _make_login(self) -> None:
        """The key with which the controller gets into every host, and the list of their keys."""
        key = make_key(self._keys / "login", "controller")
        self._authorized = key.with_suffix(".pub").read_text()
        self.controller.directory(f"{HOME}/.ssh", 0o700)
        self.controller.file(KEY, key.read_bytes(), 0o600)
        self.controller.file(KNOWN_HOSTS)
        self.controller.file("/etc/hosts", "127.0.0.1 localhost\n")
        self.controller.file("/etc/hostname", "controller\n")
        self.controller.file("/etc/resolv.conf")
        self.controller.directory(f"{HOME}/.ansible", 0o700)

    # ---- Hosts ----------------------------------------------------------------------------------

    def host(self, name: str, *, space: int | str | None = None, sudo: bool = False) -> FleetHost:
        """A new host, whose server answers.

        `space` gives it a file system of that size, such as "64m", on "/var/opt". With `sudo` the
        inventory has `operator` as its user, else `root`; both exist.
        """
        number = FIRST_NUMBER + len(self.hosts)
        host = FleetHost(self._server, self._installation, name, space=space)
        self.hosts[name] = host
        host.login = "operator" if sudo else "root"
        address = fleet_network.connect(self.controller, host, number)
        key = make_key(self._keys / name, name)
        host.settle(address, key, self._authorized, f"{fleet_network.CONTROLLER} controller\n")
        host.serve()
        self._introduce(name, address, key.with_suffix(".pub").read_text())
        return host

    def _introduce(self, name: str, address: str, public_key: str) -> None:
        kind, key = public_key.split()[:2]
        for path, line in ((KNOWN_HOSTS, f"{name},{address} {kind} {key}"),
                           ("/etc/hosts", f"{address} {name}")):
            self.controller.file(path, f"{self.controller.read(path)}{line}\n")

    def down(self, name: str, how: str = "refused") -> str:
        """A host that is not there; returns its address. Connections are refused at once, or
        ("silent") never answered, or ("absent") given up by the kernel after three seconds."""
        self._down[name] = DOWN[how]
        return DOWN[how]

    # ---- The inventory --------------------------------------------------------------------------

    def inventory(self, *, groups: Mapping[str, Sequence[str]] | None = None,
                  variables: Mapping[str, object] | None = None,
                  host_variables: Mapping[str, Mapping[str, object]] | None = None,
                  name: str = "inventory.yml") -> Path:
        """Writes an inventory with all hosts, those that are down too; returns its path.

        `groups` name hosts, `variables` hold for all hosts and `host_variables` for one.
        """
        own = host_variables or {}
        hosts = {host: {**self._login_of(host), **own.get(host, {})}
                 for host in (*self.hosts, *self._down)}
        children = {group: {"hosts": dict.fromkeys(members)}
                    for group, members in (groups or {}).items()}
        path = self.directory / name
        # JSON is YAML too.
        path.write_text(json.dumps({"all": {
            "hosts": hosts, "children": children,
            "vars": {"ansible_python_interpreter": "/usr/bin/python3",
                     "ansible_ssh_private_key_file": KEY,
                     "ansible_ssh_common_args": (f"-o UserKnownHostsFile={KNOWN_HOSTS} "
                                                 "-o StrictHostKeyChecking=yes"),
                     **(variables or {})}}}, indent=2))
        return path

    def _login_of(self, name: str) -> dict[str, str]:
        if name in self._down:
            return {"ansible_host": self._down[name], "ansible_user": "root"}
        host = self.hosts[name]
        login = {"ansible_host": host.address, "ansible_user": host.login}
        return login | ({"ansible_become_password": PASSWORD} if host.login != "root" else {})

    # ---- Commands of the controller -------------------------------------------------------------

    def start(self, command: Sequence[str | Path], *, env: Mapping[str, str] | None = None,
              cwd: str | Path | None = None, watch_memory: bool | str = False) -> Command:
        """Starts a command on the controller, with nothing to read and no terminal.

        `env` adds to the fixed environment; the working directory is the test's own one unless
        another is given. `watch_memory` also measures all processes together, or only those
        whose command lines have that text.
        """
        return Command(self.controller, command, str(cwd or self.directory), env or {},
                       watch_memory)

    def run(self, command: Sequence[str | Path], *, seconds: float = 120.0, **how) -> Finished:
        """Runs a command on the controller to its end; `how` is that of `start`."""
        return self.start(command, **how).finish(seconds)

    def end_connections(self) -> None:
        """Ends the connections that ssh keeps open on the controller for later commands."""
        masters = [entry.pid for entry in self.controller.processes()
                   if entry.command.startswith("ssh: ")]
        for pid in masters:
            self.controller.sandbox.kill(pid, signal.SIGTERM)
        wait_until(lambda: not [entry for entry in self.controller.processes()
                                if entry.pid in masters], 10.0, "the end of ssh's connections")

    # ---- The end --------------------------------------------------------------------------------

    def describe(self) -> str:
        """All that is known of the hosts, for a failure's report."""
        return "\n".join(host.describe() for host in self.hosts.values())

    def destroy(self) -> None:
        """Ends all hosts and the controller, with everything in them."""
        for machine in (*self.hosts.values(), self.controller):
            machine.destroy()
        self.hosts.clear()
