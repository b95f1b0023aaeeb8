"""Sandboxes, from a pytest worker's side: makes them, starts programs in them, ends them."""

from __future__ import annotations

import json
import os
import select
import signal
import socket
import subprocess
import sys
import time
from collections.abc import Iterator, Mapping, Sequence
from dataclasses import dataclass, field
from pathlib import Path

PACKET = 1 << 17
SETUP_SECONDS = 30.0


class SandboxError(AssertionError):
    """The sandbox could not carry out an order; the test that gave the order fails."""


@dataclass(frozen=True)
class Order:
    """A program to start in a sandbox, with everything that it inherits."""

    argv: Sequence[str]
    path: str | None = None
    env: Mapping[str, str] = field(default_factory=dict)
    cwd: str = "/"
    umask: int = 0o022
    uids: tuple[int, int, int] = (0, 0, 0)
    gids: tuple[int, int, int] = (0, 0, 0)
    groups: Sequence[int] | None = ()
    limits: Mapping[str, int] = field(default_factory=dict)
    close: Sequence[int] = ()
    ignore: Sequence[int] = ()
    block: Sequence[int] = ()

    def packet(self) -> bytes:
        """The order as the sandbox's init reads it."""
        return json.dumps({
            "do": "spawn", "argv": list(self.argv), "path": self.path or self.argv[0],
            "env": dict(self.env), "cwd": self.cwd, "umask": self.umask, "uids": self.uids,
            "gids": self.gids, "groups": None if self.groups is None else list(self.groups),
            "limits": {"core": 0, **self.limits}, "close": list(self.close),
            "ignore": list(self.ignore), "block": list(self.block),
        }).encode()


@dataclass(frozen=True)
class ProcessEntry:
    """A process of a sandbox, as its /proc shows it."""

    pid: int
    ppid: int
    pgid: int
    sid: int
    state: str
    command: str

    def __str__(self) -> str:
        return (f"pid {self.pid} ppid {self.ppid} pgid {self.pgid} sid {self.sid} "
                f"{self.state} {self.command}")


class SandboxServer:
    """The program that makes sandboxes, one for each pytest worker."""

    def __init__(self) -> None:
        ours, theirs = socket.socketpair(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        script = Path(__file__).with_name("sandbox_server.py")
        with theirs:
            self._process = subprocess.Popen(
                [sys.executable, "-I", "-S", "-B", str(script), str(theirs.fileno())],
                pass_fds=[theirs.fileno()], stdin=subprocess.DEVNULL, cwd="/")
        self._control = ours

    def make_sandbox(self, hostname: str, writable: Sequence[str] = (),
                     visible: Sequence[str] = (), host: bool = False) -> Sandbox:
        """A new sandbox, ready for use.

        Directories in `writable` stay writable in it, those in `visible` readable. With `host` it
        has a network without any device, settings, homes and terminals of its own too.
        """
        ours, theirs = socket.socketpair(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        lifeline, guardian_end = os.pipe()
        order = json.dumps({"hostname": hostname, "writable": list(writable),
                            "visible": list(visible), "host": host}).encode()
        socket.send_fds(self._control, [order], [theirs.fileno(), guardian_end])
        theirs.close()
        os.close(guardian_end)
        return Sandbox(ours, lifeline)

    def close(self) -> None:
        """Ends the program; a sandbox that still exists ends when its link closes."""
        self._control.close()
        self._process.wait(timeout=SETUP_SECONDS)


class Sandbox:
    """Private mount, process-id, host-name and IPC namespaces, with an init that takes orders."""

    def __init__(self, link: socket.socket, lifeline: int) -> None:
        self._link = link
        self._lifeline = lifeline
        self._ended: dict[int, int] = {}
        self._peaks: dict[int, int] = {}
        self.init = 0
        ready = False
        deadline = time.monotonic() + SETUP_SECONDS
        while not (ready and self.init):
            message = self._receive(deadline)
            if message is None:
                raise SandboxError("the sandbox was not ready in time")
            self.init = message.get("init", self.init)
            ready = ready or "ready" in message
        self.root = Path(f"/proc/{self.init}/root")

    def _receive(self, deadline: float) -> dict | None:
        """The next message of init, or None when the deadline passes first."""
        left = max(0.0, deadline - time.monotonic())
        if not select.select([self._link], [], [], left)[0]:
            return None
        data = self._link.recv(PACKET)
        if not data:
            raise SandboxError("the sandbox is gone")
        message = json.loads(data)
        if "broken" in message:
            raise SandboxError(f"the sandbox could not be made: {message['broken']}")
        if "ended" in message:
            self._ended[message["ended"]] = message["status"]
            self._peaks[message["ended"]] = message["peak"]
        return message

    def _answer(self, wanted: str) -> dict:
        """The answer to the order just sent; reports of ended programs are stored meanwhile."""
        deadline = time.monotonic() + SETUP_SECONDS
        while (message := self._receive(deadline)) is not None:
            if "failed" in message:
                raise SandboxError(message["failed"])
            if wanted in message:
                return message
        raise SandboxError(f"no answer to the order: {wanted}")

    def spawn(self, order: Order, stdin: int, stdout: int, stderr: int) -> int:
        """Starts a program; returns its process id in the sandbox."""
        socket.send_fds(self._link, [order.packet()], [stdin, stdout, stderr])
        pid = self._answer("spawned")["spawned"]
        self._ended.pop(pid, None)  # an orphan may have used the number before
        return pid

    def kill(self, pid: int, number: int) -> None:
        """Sends a signal to a process of the sandbox, or to a group when `pid` is negative."""
        self._link.send(json.dumps({"do": "kill", "pid": pid, "signal": int(number)}).encode())
        self._answer("killed")

    def set_hostname(self, name: str) -> None:
        """Changes the host name that programs in the sandbox see."""
        self._link.send(json.dumps({"do": "hostname", "hostname": name}).encode())
        self._answer("hostname")

    def wait(self, pid: int, seconds: float) -> int | None:
        """The wait status of a started program, or None if it still runs after so many seconds."""
        deadline = time.monotonic() + seconds
        while pid not in self._ended:
            if self._receive(deadline) is None:
                return None
        return self._ended[pid]

    def peak(self, pid: int) -> int:
        """The most memory that an ended program, or a program that it waited for, had at once: the
        resident set of the largest of them, in KiB."""
        return self._peaks[pid]

    def processes(self) -> list[ProcessEntry]:
        """Every process of the sandbox but init, with zombies, sorted by process id."""
        return sorted(self._list_processes(), key=lambda entry: entry.pid)

    def _list_processes(self) -> Iterator[ProcessEntry]:
        for directory in os.listdir(self.root / "proc"):
            if not directory.isdigit() or directory == "1":
                continue
            try:
                stat = (self.root / "proc" / directory / "stat").read_text(errors="replace")
                line = (self.root / "proc" / directory / "cmdline").read_bytes()
            except (FileNotFoundError, ProcessLookupError):
                continue  # it ended while it was read
            head, _, rest = stat.rpartition(")")
            state, ppid, pgid, sid = rest.split()[:4]
            command = line.replace(b"\0", b" ").decode(errors="replace").strip()
            yield ProcessEntry(int(directory), int(ppid), int(pgid), int(sid), state,
                               command or head.partition("(")[2])

    def destroy(self) -> None:
        """Kills everything in the sandbox and returns when the kernel has removed all of it."""
        if self._lifeline < 0:
            return
        try:
            os.kill(self.init, signal.SIGKILL)
        except ProcessLookupError:
            pass
        self._link.close()
        gone = select.select([self._lifeline], [], [], SETUP_SECONDS)[0]
        os.close(self._lifeline)
        self._lifeline = -1
        if not gone:
            raise SandboxError("the sandbox did not end when its init was killed")
