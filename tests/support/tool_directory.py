"""The commands of the tool directory, on machines with the shell and awk of several distributions."""

from __future__ import annotations

import ast
import os
import shutil
from pathlib import Path

import pytest

from .machine import Completed, Machine

TOOLS = "/opt/norvale/quendil/tool"
SYSTEMS = {"debian": ("dash", "mawk"), "fedora": ("bash", "gawk"), "alpine": ("busybox", "busybox")}


def use_system(machine: Machine, name: str) -> None:
    """Gives a machine the shell and the awk of a distribution."""
    for place, program in zip(("/bin/sh", "/usr/bin/awk"), SYSTEMS[name]):
        found = shutil.which(program)
        if found is None:
            pytest.skip(f"{program} is not installed")
        machine.install(Path(found), f"/opt/real/{program}")
        machine.mount("--bind", f"/opt/real/{program}", os.path.realpath(place))


def ask(machine: Machine, *words: str, tools: str = TOOLS) -> str:
    """The output of a command of the tool directory, run as a pattern runs it."""
    done = machine.exec([f"{tools}/run", "-m", "-c", *words])
    assert done.stderr == ""
    return done.stdout


def printed(done: Completed) -> bytes:
    """The output as bytes, so that pytest can report any content."""
    return done.stdout.encode("utf-8", "surrogateescape")


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
    """Stops a command as its time limit does, by SIGTERM to its process group, once /tmp/there exists.
    @param last a text in its last line
    @param around a command that runs it, in another process group
    @return its output"""
    machine.exec(f"{around} setsid sh -c 'echo $$ >/tmp/group; exec {command}' >/tmp/out 2>&1 &")
    machine.wait_for("/tmp/there")
    machine.exec("kill -TERM -$(cat /tmp/group)")
    machine.wait_for(lambda: last in machine.read("/tmp/out"))
    return machine.read("/tmp/out")


#: Starts a command in its own process group and sends SIGTERM to the group after 0, 1, 2 ... 60 steps of so
#: many microseconds, and then after more steps until the output has contained a text once. Prints each time
#: the exit status, whether the command ended within five seconds, and its output.
MOMENTS = """import itertools, os, signal, subprocess, sys, time
microseconds, text, *command = sys.argv[1:]
reached = False
for step in itertools.count():
    child = subprocess.Popen(command, env={"QUENDIL_FILTERED": "yes"}, stdin=subprocess.DEVNULL,
                             stdout=subprocess.PIPE, start_new_session=True, text=True)
    time.sleep(step * int(microseconds) / 1e6)
    os.killpg(child.pid, signal.SIGTERM)
    sent = time.monotonic()
    output = child.stdout.read()
    in_time = time.monotonic() - sent < 5
    print((child.wait(), in_time, output))
    reached = reached or output.count(text) == 1
    if not in_time or step >= 60 and reached:
        break
"""


def stop_at_many_moments(machine: Machine, microseconds: int, text: str,
                         *command: str) -> list[tuple[int, bool, str]]:
    """Stops a command as its time limit does, a step later each time.
    @return for each time the exit status, whether it ended within five seconds, and its output

    On a busy machine bash has lost one signal in some 8,000: the run then ends the tool with SIGKILL
    when its wait is over. A series with such a loss is repeated once; a signal that is lost at a
    certain moment is lost again."""
    script = machine.file("/tmp/moments", MOMENTS)
    times: list[tuple[int, bool, str]] = []
    for _ in range(2):
        done = machine.exec(["/usr/bin/python3", script, str(microseconds), text, *command],
                            seconds=300)
        times = [ast.literal_eval(line) for line in done.stdout.splitlines()]
        if all(in_time for _, in_time, _ in times):
            break
    return times


def add_users(machine: Machine) -> None:
    """Gives a machine three users: owner, postgres and mysql."""
    machine.file("/tmp/passwd", "root:x:0:0::/:/bin/sh\nowner:x:4711:4712::/:/bin/sh\n"
                 "postgres:x:4713:4714::/:/bin/sh\nmysql:x:4715:4716::/:/bin/sh\n")
    machine.mount("--bind", "/tmp/passwd", "/etc/passwd")
