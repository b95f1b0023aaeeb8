"""What a file and a data item cost: system calls and memory, which do not depend on the load."""

from __future__ import annotations

import pytest
from support import pattern_text
from support.collecting import collect
from support.machine import QUENDIL, Machine

pytestmark = pytest.mark.plain_binary  # an instrumented program needs more of both

FEW, MANY = 50, 250


def calls_of(machine: Machine, *items: str) -> int:
    """The system calls of a run that collects these items, without those of its children."""
    if not machine.exists("/opt/interrupter"):
        machine.install(machine.behave_source.with_name("interrupter"), "/opt/interrupter")
    machine.pattern("10_demo", pattern_text.pattern(*items))
    run = machine.run("/tmp/stops", "--", QUENDIL, "-g", "demo", program="/opt/interrupter")
    assert run.status == 0 and run.stderr == ""
    machine.remove(run.result)
    stops = [line.split() for line in machine.read("/tmp/stops").splitlines()]
    return sum(place == "before" for _, _, place, _ in stops)


def make_files(machine: Machine, count: int, owner: tuple[int, int] = (0, 0)) -> list[str]:
    """Makes so many files in one directory; returns their paths."""
    paths = [machine.file(f"/opt/data/tree/{number:03}", b"some content", owner=owner)
             for number in range(count)]
    machine.directory("/opt/data/tree", 0o755, owner)
    return paths


@pytest.mark.parametrize("owner, most", [((0, 0), 8), ((1000, 1000), 14)],
                         ids=["linked", "copied"])
def test_a_file_takes_no_more_system_calls_than_this(machine: Machine, owner: tuple[int, int],
                                                     most: int):
    tree = pattern_text.data("/opt/data/tree")
    make_files(machine, FEW, owner)
    few = calls_of(machine, tree)
    make_files(machine, MANY, owner)
    each = (calls_of(machine, tree) - few) / (MANY - FEW)
    # To read the directory adds a fraction of a call for each file.
    assert 4 < each < most + 0.5


@pytest.mark.parametrize("other, most", [(None, 30), ("/opt/data/other", 62)],
                         ids=["in one directory", "in two directories in turn"])
def test_an_item_takes_no_more_system_calls_than_this(machine: Machine, other: str | None,
                                                      most: int):
    items = []
    for number, path in enumerate(make_files(machine, MANY)):
        items.append(pattern_text.data(path))
        if other is not None:
            items.append(pattern_text.data(machine.file(f"{other}/{number:03}", b"x")))
    step = 1 if other is None else 2
    few = calls_of(machine, *items[:FEW * step])
    each = (calls_of(machine, *items) - few) / (MANY - FEW) / step
    # To read the pattern file adds a fraction of a call for each item.
    assert 15 < each < most + 0.5


def test_a_listed_file_takes_no_more_memory_than_this(machine: Machine):
    machine.file("/opt/measure", "#!/bin/sh\ngrep VmHWM /proc/$PPID/status >/opt/peak\n", 0o755)
    items = (pattern_text.data("/opt/data/tree"), pattern_text.tool("/opt/measure"))
    peaks = []
    tree = machine.path(machine.directory("/opt/data/tree"))
    for count in (10_000, 20_000):
        for number in range(count):
            (tree / f"{number:05}").touch()
        run = collect(machine, *items)
        assert run.status == 0 and (run.log or "").count("ZEPA209-I") == count + 1
        machine.remove(run.result)
        name, kilobytes, _ = machine.read("/opt/peak").split()
        assert name == "VmHWM:"
        peaks.append(int(kilobytes) * 1024)
    # The name alone has six bytes.
    assert 6 < (peaks[1] - peaks[0]) / 10_000 <= 80
