"""Every call that the program makes fails once: the first of its kind, the second, and so on."""

from __future__ import annotations

import errno
import os
import re
import signal
from collections import Counter
from collections.abc import Callable

import pytest

from support import behave, fault_injection, pattern_text
from support.fault_kinds import (
    AFTERWARDS, BY_CHARACTER, IGNORED, KINDS, NUMBERING, STAT, STOPPING, STOPPING_ARCHIVER,
    TRUNCATED_ARCHIVE, Kind)
from support.fault_injection import CALL_REPORT, READY, Bench, Fault, Outcome
from support.sandbox import SandboxError

pytestmark = pytest.mark.plain_binary

MOST_CALLS = 2000  # of one kind in a run


def count_reports(kind: Kind, text: str) -> int:
    """How many reports of this failed call a text holds."""
    return sum((name, code, message) == (call, str(kind.error), os.strerror(kind.error))
               for name, code, message in CALL_REPORT.findall(text) for call in kind.calls)


def other_messages(kind: Kind, text: str | None, untouched: str | None) -> Counter[str]:
    """The added lines of a text that report the failure in other words, with their counts."""
    added = Counter((text or "").splitlines()) - Counter((untouched or "").splitlines())
    return Counter({line: count for line, count in added.items()
                    if any(re.search(word, line) for word in kind.words)})


def check_reported(kind: Kind, outcome: Outcome, untouched: Outcome) -> None:
    """The run reports the failure once, or does not differ from a run without it."""
    log, terminal = (count_reports(kind, text)
                     for text in (outcome.run.log or "", outcome.run.stderr))
    assert log <= 1 and terminal <= 1, f"reported more than once: {outcome}"
    if log + terminal or outcome.state() == untouched.state():
        return
    reported = [other_messages(kind, getattr(outcome.run, name), getattr(untouched.run, name))
                for name in ("log", "stderr")]
    assert all(count <= 1 for lines in reported for count in lines.values()), (
        f"reported more than once, {reported}: {outcome}")
    assert any(reported) or any(re.search(subject, outcome.subject) for subject in kind.quiet), (
        f"not reported: {outcome}")


def fail_each(bench: Bench, kind: Kind,
              run: Callable[[Bench, Fault | None], Outcome] = Bench.run) -> None:
    """Makes the first call of a kind fail, then the second, until a run has no such call left."""
    untouched = run(bench, None)
    bench.check(untouched)
    for nth in range(1, MOST_CALLS):
        outcome = run(bench, kind.fault(nth))
        bench.check(outcome)
        if outcome.failed == 0:
            assert nth > 1, f"the run makes no such call: {outcome}"
            assert outcome.state() == untouched.state()
            return
        check_reported(kind, outcome, untouched)
    raise AssertionError(f"still failing after {MOST_CALLS} runs")


def interrupted(bench: Bench, fault: Fault | None) -> Outcome:
    """A run that is interrupted when its tool runs, or when it has ended before."""
    active = bench.start(fault)
    bench.machine.wait_for(lambda: active.ended or bench.machine.exists(READY), what="the tool")
    try:
        active.signal(signal.SIGTERM)
    except SandboxError:
        assert fault is not None, "the run ended before its tool"
    return bench.finish(active, fault)


@pytest.mark.parametrize("kind", [*KINDS, *AFTERWARDS], ids=str)
def test_a_failed_call_is_reported_and_changes_nothing_else(machine, kind):
    bench = Bench(machine, *fault_injection.representative(machine), env=kind.env)
    fail_each(bench, kind)


def test_a_failed_stat_does_not_mislead_a_run_with_o(machine):
    fail_each(Bench(machine, pattern_text.data(f"{fault_injection.USER}/wild/one.log"),
                    arguments=("-o", f"{fault_injection.DATA}/result")), STAT)


@pytest.mark.parametrize("kind", TRUNCATED_ARCHIVE, ids=str)
def test_a_failed_read_of_the_archive_keeps_the_directory(machine, kind):
    machine.replace("/bin/tar", behave.run("/opt/real/tar"), behave.exit(2))
    bench = Bench(machine, *fault_injection.representative(machine))
    untouched = bench.run()
    assert untouched.left == ["testhost_<STAMP>.tar.gz"]
    for nth in range(1, untouched.seen + 1):
        outcome = bench.run(kind.fault(nth))
        bench.check(outcome)
        assert outcome.failed == 1
        assert outcome.left == ["testhost_<STAMP>", "testhost_<STAMP>.tar.gz"], outcome
        assert "ZEPA215-I:Output = " in outcome.run.stdout


@pytest.mark.parametrize("kind", STOPPING, ids=str)
def test_a_failure_while_a_tool_overruns_leaves_nothing_running(machine, kind):
    fail_each(Bench(machine, *fault_injection.stopped_by_time(machine)), kind)


@pytest.mark.parametrize("kind", STOPPING, ids=str)
def test_a_failure_while_a_run_is_interrupted_leaves_nothing_running(machine, kind):
    fail_each(Bench(machine, *fault_injection.stopped_by_signal(machine)), kind, interrupted)


@pytest.mark.parametrize("kind", STOPPING_ARCHIVER, ids=str)
def test_a_failure_while_the_archiver_is_interrupted_leaves_nothing_running(machine, kind):
    machine.replace("/bin/tar", behave.ready(READY), behave.forever())
    bench = Bench(machine, pattern_text.data(f"{fault_injection.USER}/wild/one.log"))
    assert interrupted(bench, None).run.status == 20
    fail_each(bench, kind, interrupted)


@pytest.mark.parametrize("kind", BY_CHARACTER, ids=str)
def test_a_failure_in_the_middle_of_a_pattern_file_skips_the_file(machine, kind):
    bench = Bench(machine)
    machine.pattern("10_demo", "FORMAT_VERSION = 1.0\nPP_GROUP=demo\nBLOCK {\nTARGET=host\n"
                    f"DATA_BLOCK {{\nPATH_NAME={fault_injection.USER}/wild/one.log\n}}\n}}\n")
    fail_each(bench, kind)


@pytest.mark.parametrize("kind", NUMBERING, ids=str)
def test_a_failure_while_directories_get_numbers_changes_no_number(machine, kind):
    item = pattern_text.data(f"{fault_injection.USER}/wild/one.log")
    bench = Bench(machine, item)
    for number in range(3):
        block = pattern_text.block(item, targets=["host", f"other{number}"])
        machine.pattern(f"2{number}_demo", pattern_text.pattern(block))
    fail_each(bench, kind)


@pytest.mark.parametrize("kind", IGNORED, ids=str)
def test_a_failure_of_the_terminal_or_the_mutex_changes_no_result(machine, kind):
    bench = Bench(machine, *fault_injection.representative(machine))
    untouched = bench.run().state()
    for nth, rest in ((1, False), (2, False), (100, False), (250, False), (1, True), (100, True)):
        outcome = bench.run(kind.fault(nth, rest))
        bench.check(outcome)
        assert outcome.failed > 0, outcome
        shown = {"stdout": untouched["stdout"], "stderr": untouched["stderr"]}
        assert {**outcome.state(), **shown} == untouched, outcome


# Failures of a machine that is really broken.
BROKEN = (
    Kind("fflush", errno.ENOSPC),
    Kind("fork", errno.EAGAIN),
    Kind("fprintf", errno.ENOSPC),
    Kind("malloc", errno.ENOMEM),
    Kind("mkdir", errno.EROFS),
    Kind("open", errno.EMFILE),
    Kind("stat", errno.EIO),
    Kind("waitpid", errno.ECHILD),
    Kind("write", errno.ENOSPC),
)


@pytest.mark.parametrize("kind", BROKEN, ids=str)
def test_a_run_ends_when_all_calls_fail_from_some_call_on(machine, kind):
    bench = Bench(machine, *fault_injection.representative(machine))
    nth, step = 1, 1
    while (outcome := bench.run(kind.fault(nth, rest=True))).failed:
        bench.check(outcome)
        nth, step = nth + step, nth
    assert nth > 1, outcome
    bench.check(outcome)
