"""Runs that are interrupted at a chosen place between two system calls, and the checks after them.

The comment at the top of interrupter.c describes how places are counted.
"""

from __future__ import annotations

from collections import Counter
from collections.abc import Iterable, Iterator, Sequence
from typing import NamedTuple

from . import expect, pattern_text
from .collecting import GROUP, complete_output, started_log
from .machine import DATA_DIRECTORY, LOG_DIRECTORY, QUENDIL, Machine
from .run import Run, wait_until
from .tree import Tree

PROGRAM = "/opt/interrupter"
REPORT = "/tmp/interrupted"
SOURCE = "/opt/data"
TOOL_OUTPUT = "out"
HISTORY = f"{LOG_DIRECTORY}/quendil_hist.log"

CLEANUP_STATUS, DIRECTORY, ARCHIVE, COMPRESSED = 255, 20, 10, 0


class Stop(NamedTuple):
    """A place in a run: just before a system call, or just after it."""

    segment: int
    number: int
    place: str
    call: str

    @property
    def where(self) -> str:
        """The place in the syntax of the interrupter."""
        return f"{self.segment}:{self.number}"


class Order(NamedTuple):
    """A signal and where it is sent; `where` is in the syntax of the interrupter."""

    where: str
    number: int
    to_group: bool = False

    def words(self) -> tuple[str, ...]:
        """The words of the interrupter's command line."""
        return (self.where, str(int(self.number)), "group" if self.to_group else "process")


def message(number: int) -> str:
    """The message of an interrupted run."""
    return f"ZEPA136-E:quendil was interrupted. signal no = {int(number)}.\n"


class Interrupted:
    """Runs of one data item and one tool on one machine, each interrupted at another place."""

    def __init__(self, machine: Machine, tool: str, timeout: int = 10) -> None:
        self._machine = machine
        self._tool = tool
        self._timeout = timeout
        helper = machine.behave_source.with_name("interrupter")
        machine.install(helper, PROGRAM)
        for name in ("quendil.log", "quendil_old.log"):
            # Every later run finds these logs and makes more calls; so must the first one.
            machine.file(f"{LOG_DIRECTORY}/{name}")
        machine.file(SOURCE, "12345")
        machine.pattern("10_demo", pattern_text.pattern(
            pattern_text.data(SOURCE),
            pattern_text.tool(tool, redirect=f"%d%/{TOOL_OUTPUT}", timeout=timeout)))

    def survey(self) -> list[Stop]:
        """All places of a run that is not interrupted."""
        run, stops = self._run()
        assert run.log == self._complete_log(), run
        self._clear()
        return stops

    def check(self, *orders: Order) -> list[Stop]:
        """Interrupts a run there, checks how it ended, and returns the places where it was interrupted.

        These may be fewer than the orders: a wait may have been shorter this time.
        """
        run, stops = self._run(*orders)
        context = f"interrupted at {stops} by {orders}: {run}"
        sent = orders[:len(stops)]
        if -run.status in {order.number for order in sent}:
            assert stops[0].segment == 0, context  # there was no handler yet
        else:
            _check_texts(run, sent, context)
            self._check_result(run, context)
            if "ZEPA136-E" not in run.stderr:
                assert run.log == self._complete_log(), context
                assert run.stdout == complete_output(2), context
        wait_until(lambda: not self._machine.processes(), 10.0,
                   f"the end of all processes; {context}")
        self._clear()
        return stops

    def _run(self, *orders: Order) -> tuple[Run, list[Stop]]:
        words = (word for order in orders for word in order.words())
        run = self._machine.start(REPORT, *words, "--", QUENDIL, *GROUP, program=PROGRAM)
        run.sent.update(order.number for order in orders)
        ended = run.finish(40)
        return ended, list(_read_stops(self._machine.read(REPORT)))

    def _complete_log(self) -> str:
        log = started_log().data({SOURCE: 5}, 5).tool(self._tool, timeout=self._timeout)
        return log.complete().text

    def _clear(self) -> None:
        for name in self._machine.list(DATA_DIRECTORY):
            self._machine.remove(f"{DATA_DIRECTORY}/{name}")
        if self._machine.exists(HISTORY):
            self._machine.remove(HISTORY)

    def _check_result(self, run: Run, context: str) -> None:
        """The reported result exists."""
        suffix, result = {
            CLEANUP_STATUS: (None, ""), DIRECTORY: ("", expect.output_directory()),
            ARCHIVE: (".tar", expect.archive_file()), COMPRESSED: (".tar.gz", expect.output_file()),
        }[run.status]
        assert run.stdout.endswith(result) and run.stdout.count("ZEPA") == bool(result), context
        path = None if suffix is None else expect.OUTPUT_DIRECTORY + suffix
        assert run.history == expect.history(" ".join(GROUP), run.status, path), context
        outputs = self._machine.outputs()
        if path is not None:
            assert expect.OUTPUT_NAME + suffix in outputs, context
            _check_tree(run.directory if run.status == DIRECTORY else run.archive, context)
            outputs.remove(expect.OUTPUT_NAME + suffix)
        if outputs:  # the removal of the directory was interrupted
            assert "rm command failed" in run.log and outputs == [expect.OUTPUT_NAME], context


def _read_stops(text: str) -> Iterator[Stop]:
    for line in text.splitlines():
        segment, number, place, call = line.split()
        yield Stop(int(segment), int(number), place, call)


def _check_tree(tree: Tree, context: str) -> None:
    """All the collected data is there, and the index ends with a complete record."""
    assert tree.read("quendil_index").endswith(b"TYPE:text\n"), context
    assert SOURCE[1:] in tree and TOOL_OUTPUT in tree, context


def _check_texts(run: Run, sent: Sequence[Order], context: str) -> None:
    """No line is repeated, nothing failed, and the log was written to its end."""
    assert run.log is not None and run.stderr is not None
    end = f"ZEPA213-I:quendil ended at <TIME>. return code = {run.status}.\n"
    assert run.log.endswith(end), context
    twice = [line for line, count in Counter(run.log.splitlines()).items() if count > 1]
    assert twice == [], context
    assert ("ZEPA206-I" in run.log) == ("ZEPA207-I" in run.log), context
    for failure in ("ZEPA113-E", "ZEPA126-W", "ZEPA130-W", "ZEPA132-W", "ZEPA135-W", "ZEPA148-W",
                    "ZEPA149-W", "ZEPA208-W"):
        assert failure not in run.log + run.stderr, context
    messages = {message(order.number) for order in sent}
    notice = [line for line in run.stderr.splitlines(keepends=True) if "ZEPA136-E" in line]
    in_log = [line for line in run.log.splitlines(keepends=True) if "ZEPA136-E" in line]
    assert notice == in_log and len(notice) <= 1 and set(notice) <= messages, context
    assert notice or run.status == COMPRESSED, context
    rest = [line for line in run.stderr.splitlines(keepends=True) if "ZEPA136-E" not in line]
    if any(order.to_group for order in sent):
        # A command of the shell may have received the signal too, as it does on a terminal.
        rest = [line for line in rest if "An attempt to copy the logfile" not in line]
    else:
        assert "ZEPA140-W" not in run.log and "ZEPA142-W" not in run.log, context
    assert rest == ([expect.LOOK_AT_LOG] if run.status == CLEANUP_STATUS else []), context


def every(stops: Iterable[Stop], segment: int, first: int = 1, last: int | None = None
          ) -> list[Stop]:
    """The places of one segment from the first to the last; negative ones count from its end."""
    own = [stop for stop in stops if stop.segment == segment]
    return own[first - 1 if first > 0 else first:last]
