"""Runs under valgrind: no memory error, nothing leaked, no descriptor left open."""

from __future__ import annotations

import re
import shutil
from collections.abc import Iterator

import pytest
from support import behave, pattern_text
from support.behave import forever, ready
from support.collecting import begin, collect
from support.machine import Installation, Machine
from support.sandbox import SandboxServer

pytestmark = pytest.mark.plain_binary  # an instrumented program checks its memory itself

KNOWN = "/tmp/known"
VALGRIND = ("/usr/bin/valgrind", "--quiet", "--leak-check=full", "--show-leak-kinds=all",
            "--track-fds=yes", "--child-silent-after-fork=yes", "--vgdb=no",
            f"--suppressions={KNOWN}", "--log-file=/tmp/wrapper.%p")

#: Memory that the C++ runtime allocates before the program begins, and never frees.
KNOWN_TEXT = """\
{
    reserve for exceptions
    Memcheck:Leak
    match-leak-kinds: reachable
    fun:malloc
    ...
    fun:call_init
}
{
    reserve for exceptions, by its own name
    Memcheck:Leak
    match-leak-kinds: reachable
    fun:malloc
    ...
    fun:_GLOBAL__sub_I_eh_alloc.cc
}
"""

#: Lines of valgrind about itself: system calls that it does not know, and its own descriptors.
OWN_LINES = re.compile(r"--\d+-- |==\d+== *$|==\d+== FILE DESCRIPTORS: \d+ open \(3 std\) at exit"
                       r"|==\d+== Open file descriptor \d+: /tmp/wrapper|==\d+==  +<inherited ")


@pytest.fixture
def checked(sandbox_server: SandboxServer, installation: Installation) -> Iterator[Machine]:
    """A machine whose program runs under valgrind."""
    if shutil.which("valgrind", path="/usr/bin") is None:
        pytest.skip("valgrind is not installed")
    made = Machine(sandbox_server, Installation(installation.stage, installation.behave, VALGRIND))
    made.file(KNOWN, KNOWN_TEXT)
    try:
        yield made
        made.check()
    finally:
        made.destroy()


def complaints(machine: Machine) -> list[str]:
    """What valgrind reports of the program."""
    reports = [name for name in machine.list("/tmp") if name.startswith("wrapper.")]
    assert reports, "the program did not run under valgrind"
    lines = [line for name in reports for line in machine.read(f"/tmp/{name}").splitlines()]
    assert any("FILE DESCRIPTORS" in line for line in lines)
    return [line for line in lines if not OWN_LINES.match(line)]


def test_a_complete_run_is_clean(checked: Machine):
    checked.file("/opt/data/deep/file", b"x" * 70_000)
    checked.file("/opt/data/new\nline")
    checked.link("/opt/data/nowhere", "none")
    tools = [checked.tool(*actions) for actions in (
        [behave.out("x")], [behave.err("y")], [behave.exit(255)], [forever()])]
    run = collect(
        checked, pattern_text.tool(tools[0], redirect="%d%/df"), pattern_text.tool(tools[1]),
        pattern_text.tool(tools[2]), pattern_text.tool(tools[3], timeout=1, wait=0),
        pattern_text.tool("/opt/none"), pattern_text.data("/opt/data", "all", "of it"),
        pattern_text.data("/opt/none/*"), pattern_text.data("%d%/df"),
        pattern_text.data("/proc/version"))
    assert run.status == 0
    assert complaints(checked) == []


def test_an_interrupted_run_is_clean(checked: Machine):
    tool = checked.tool(ready("/opt/ready"), forever())
    run = begin(checked, pattern_text.data("/opt/behave"), pattern_text.tool(tool))
    run.wait_for("/opt/ready")
    run.signal(2)
    assert run.finish().status == 255
    assert complaints(checked) == []


def test_runs_that_fail_are_clean(checked: Machine):
    checked.replace("/bin/gzip", behave.exit(1))
    checked.file("/opt/broken", "KEY=VALUE\n")
    assert collect(checked, pattern_text.data("/opt/behave")).status == 10
    for arguments in (("-h",), ("-g", "demo", "-c", "/opt/broken")):
        assert checked.run(*arguments).status == 255
    assert complaints(checked) == []
