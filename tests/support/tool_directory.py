"""The commands of the tool directory, on machines with the shell and awk of several distributions."""

from __future__ import annotations

import os
import shutil
from pathlib import Path

import pytest

from .machine import Machine

TOOLS = "/opt/norvale/quendil/tool"
SYSTEMS = {"debian": ("dash", "mawk"), "fedora": ("bash", "gawk"), "alpine": ("busybox", "busybox")}


def become(machine: Machine, name: str) -> None:
    """Gives a machine the shell and the awk of a distribution."""
    for place, program in zip(("/bin/sh", "/usr/bin/awk"), SYSTEMS[name]):
        stand_in = shutil.which(program)
        if stand_in is None:
            pytest.skip(f"{program} is not installed")
        machine.install(Path(stand_in), f"/opt/real/{program}")
        machine.mount("--bind", f"/opt/real/{program}", os.path.realpath(place))


def lay_over(machine: Machine, directory: str, name: str, content: str, mode: int = 0o755) -> None:
    """Adds a file to a directory of the host, as this machine sees it."""
    layer = f"/opt/layer{directory}.{name}"
    machine.file(f"{layer}/{name}", content, mode)
    machine.mount("-t", "overlay", "-o", f"lowerdir={layer}:{directory}", "layer", directory)


def with_changes(machine: Machine, name: str, *changes: tuple[str, str]) -> str:
    """Makes a tool directory in which texts of one command are replaced: a limit, or a path below
    /proc/self, over which nothing can be mounted.
    @return its path"""
    machine.exec(f"mkdir /opt/tool; ln -s {TOOLS}/* /opt/tool; rm /opt/tool/{name}")
    code = machine.read(f"{TOOLS}/{name}")
    for text, other in changes:
        assert text in code
        code = code.replace(text, other)
    machine.file(f"/opt/tool/{name}", code, 0o755)
    return "/opt/tool"


def stop_at_time_limit(machine: Machine, command: str, last: str, around: str = "") -> str:
    """Ends a command as its time limit does, by SIGTERM to its process group, once /tmp/there exists.
    @param last what its last line holds
    @param around a command that runs it, in another process group
    @return what it has printed"""
    machine.exec(f"{around} setsid sh -c 'echo $$ >/tmp/group; exec {command}' >/tmp/out 2>&1 &")
    machine.wait_for("/tmp/there")
    machine.exec("kill -TERM -$(cat /tmp/group)")
    machine.wait_for(lambda: last in machine.read("/tmp/out"))
    return machine.read("/tmp/out")


def add_users(machine: Machine) -> None:
    """Gives a machine three users: owner, postgres and mysql."""
    machine.file("/tmp/passwd", "root:x:0:0::/:/bin/sh\nowner:x:4711:4712::/:/bin/sh\n"
                 "postgres:x:4713:4714::/:/bin/sh\nmysql:x:4715:4716::/:/bin/sh\n")
    machine.mount("--bind", "/tmp/passwd", "/etc/passwd")
