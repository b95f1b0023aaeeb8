"""Starts runs that collect given items, and unpacks their archives."""

from __future__ import annotations

from . import expect, pattern_text
from .machine import Machine
from .run import ActiveRun, Run
from .progress import complete
from .tree import Tree, read_directory

GROUP = ("-g", "demo")
UNPACKED = "/tmp/unpacked"


def begin(machine: Machine, *items: str, arguments: tuple[str, ...] = (), **how) -> ActiveRun:
    """Starts a run that collects these tools, data items or blocks, with further arguments."""
    machine.pattern("10_demo", pattern_text.pattern(*items))
    return machine.start(*GROUP, *arguments, **how)


def collect(machine: Machine, *items: str, arguments: tuple[str, ...] = (), **how) -> Run:
    """A whole run that collects these tools, data items or blocks, with further arguments."""
    return begin(machine, *items, arguments=arguments, **how).finish()


def started_log() -> expect.RunLog:
    """The log of such a run without further arguments, up to its first item."""
    return expect.RunLog(" ".join(GROUP)).initialized("demo")


def complete_output(items: int, base: str = expect.OUTPUT_DIRECTORY) -> str:
    """The standard output of a run that collected so many items into a compressed archive."""
    return complete(items).text + expect.output_file(base)


def unpack(machine: Machine, run: Run) -> Tree:
    """Unpacks the run's archive with tar, as a reader of the data does; returns the tree."""
    machine.directory(UNPACKED)
    machine.exec(["/bin/tar", "xpf", run.result, "-C", UNPACKED, "--strip-components=1"])
    return read_directory(machine.path(UNPACKED))
