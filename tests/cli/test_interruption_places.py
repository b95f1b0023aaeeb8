"""Runs that get SIGINT, SIGTERM or SIGHUP between any two system calls.

Nothing is left behind, nothing is reported twice, and the reported result exists.
"""

from __future__ import annotations

import signal
from collections.abc import Callable, Iterable

import pytest
from support import behave
from support.behave import forever
from support.interrupting import Interrupted, Order, Stop, every
from support.machine import Machine

pytestmark = pytest.mark.plain_binary  # an instrumented program makes many more calls

EVERY = [signal.SIGINT, signal.SIGTERM, signal.SIGHUP]

# The segments of a run that makes its archive: what it has started or reaped last.
(STARTED, TOOL, TOOL_REAPED, COPY, COPY_REAPED, SECOND_COPY, COPIES_REAPED, TAR, TAR_REAPED,
 REMOVAL, REMOVAL_REAPED, GZIP, GZIP_REAPED) = range(13)

#: Calls that every run makes around a child that is started without a shell.
AROUND_A_CHILD = {
    *((place, call) for place in ("before", "after")
      for call in ("clone", "sigprocmask", "dup2", "close", "wait4", "umask")),
}


def interrupt_at(runs: Interrupted, stops: Iterable[Stop], number: int) -> set[tuple[str, str]]:
    """Interrupts a run at each of the places, the program alone and its group in turn; returns
    the kinds of places that were reached."""
    reached = set()
    for count, stop in enumerate(stops):
        to_group = (count + number) % 2 == 0
        for found in runs.check(Order(stop.where, number, to_group)):
            reached.add((found.place, found.call))
    return reached


def interrupt_at_kinds(runs: Interrupted, stops: list[Stop], number: int,
                       wanted: set[tuple[str, str]]) -> set[tuple[str, str]]:
    """Interrupts a run at each of the places; returns the kinds of places that were reached.

    On a busy machine a tool may end before a place is reached: those of a wanted kind that was
    missed are tried again.
    """
    reached = interrupt_at(runs, stops, number)
    for _ in range(20):
        again = [stop for stop in stops if (stop.place, stop.call) in wanted - reached]
        reached |= interrupt_at(runs, again, number)
    return reached


def survey_with_wait(runs: Interrupted, wait: str) -> list[Stop]:
    """All places of a run that reached this wait for its tool. On a busy machine the tool may end
    before, so this tries again."""
    for _ in range(20):
        stops = runs.survey()
        if ("before", wait) in {(stop.place, stop.call) for stop in every(stops, TOOL)}:
            return stops
    raise AssertionError(f"no run has reached {wait}: {stops}")


def quick(machine: Machine, timeout: int = 10, milliseconds: int = 10) -> Interrupted:
    """Runs whose tool ends by itself after so many milliseconds."""
    return Interrupted(machine, machine.tool(behave.out("x"), behave.nap(milliseconds)), timeout)


def places_up_to_the_wait(machine: Machine, timeout: int) -> list[Stop]:
    """All places from shortly before a tool's start to the first call that waits for it."""
    wait = "select" if timeout else "waitid"
    stops = survey_with_wait(quick(machine, timeout, 1000), wait)
    started = every(stops, TOOL)
    last = [(stop.place, stop.call) for stop in started].index(("before", wait))
    return [*every(stops, STARTED, -20), *started[:last + 1]]


# ---- Around every program that is started -------------------------------------------------------


@pytest.mark.parametrize("timeout", [0, 10], ids=["no limit", "limit"])
@pytest.mark.parametrize("number", EVERY)
def test_an_interruption_around_a_tool_leaves_nothing_of_it(machine: Machine, number: int,
                                                            timeout: int):
    runs = quick(machine, timeout, 300)  # long enough for the program to reach its wait
    wait = "select" if timeout else "waitid"
    stops = survey_with_wait(runs, wait)
    wanted = AROUND_A_CHILD | {("before", "setpgid"), ("before", wait), ("after", wait)}
    around = [*every(stops, STARTED, -40), *every(stops, TOOL)]
    assert wanted <= interrupt_at_kinds(runs, around, number, wanted)


@pytest.mark.parametrize("timeout", [0, 10], ids=["no limit", "limit"])
@pytest.mark.parametrize("number", EVERY)
def test_an_interruption_before_and_while_a_tool_is_waited_for_stops_it(machine: Machine,
                                                                        number: int, timeout: int):
    stops = places_up_to_the_wait(machine, timeout)
    runs = Interrupted(machine, machine.tool(behave.out("x"), forever()), timeout)
    kinds = {(stop.place, stop.call) for stop in stops}
    assert interrupt_at_kinds(runs, stops, number, kinds) == kinds


@pytest.mark.parametrize("number", EVERY)
@pytest.mark.parametrize("window", [
    [COPY, COPY_REAPED, SECOND_COPY], [COPIES_REAPED, TAR], [TAR_REAPED, REMOVAL],
    [REMOVAL_REAPED, GZIP],
], ids=["copying the logs", "packing", "removing the directory", "compressing"])
def test_an_interruption_while_the_archive_is_made_keeps_the_last_whole_copy(
        machine: Machine, number: int, window: list[int]):
    runs = quick(machine)
    wanted = set()
    if window[-1] in (TAR, GZIP):
        wanted = AROUND_A_CHILD | {("before", "waitid"), ("after", "waitid")}
    stops = [stop for stop in runs.survey() if stop.segment in window]
    assert wanted <= interrupt_at_kinds(runs, stops, number, wanted)


# ---- Everywhere else ----------------------------------------------------------------------------


@pytest.mark.parametrize("number", EVERY)
@pytest.mark.parametrize("places", [
    lambda stops: every(stops, STARTED)[::8], lambda stops: every(stops, TOOL_REAPED),
    lambda stops: every(stops, GZIP_REAPED)[::3],
], ids=["initializing", "after the tool", "at the end"])
def test_an_interruption_anywhere_else_ends_the_run_in_a_documented_way(
        machine: Machine, number: int, places: Callable[[list[Stop]], list[Stop]]):
    runs = quick(machine)
    assert len(interrupt_at(runs, places(runs.survey()), number)) > 10


# ---- A second signal ----------------------------------------------------------------------------


@pytest.mark.parametrize("first", EVERY)
def test_a_second_signal_while_the_first_is_handled_changes_nothing(machine: Machine, first: int):
    second = signal.SIGTERM if first == signal.SIGINT else signal.SIGINT
    waiting = places_up_to_the_wait(machine, 10)[-1]
    runs = Interrupted(machine, machine.tool(behave.out("x"), forever()))
    for distance in range(1, 25):
        runs.check(Order(waiting.where, first), Order(f"+{distance}", second))
    # How far away these are depends on how soon the tool ends.
    for place, call in (("after", "sigaction"), ("before", "kill"), ("after", "wait4")):
        found = runs.check(Order(waiting.where, first), Order(f"{place}:{call}", second))
        assert [(stop.place, stop.call) for stop in found[1:]] == [(place, call)]
