"""Runs that end before they collect anything: all that they may write, compared at once."""

from __future__ import annotations

from collections.abc import Sequence

from . import expect
from .machine import Machine
from .progress import Terminal
from .run import Run


def check_refused(machine: Machine, run: Run, arguments: Sequence[str], told: str, steps: int = 0,
                  log: expect.RunLog | None = None, stderr: str | None = None) -> None:
    """The run was refused while it was initializing, after so many of its four steps.

    `told` is what the run log and the standard error have of it; `log` is the log up to there, when
    it has more than its first lines; `stderr` replaces `told` where the terminal shows less.
    """
    text = expect.argument_string(arguments)
    written = (log or expect.RunLog(text)).raw(told).finished(255).text
    assert run.status == 255
    assert run.stdout == Terminal().init().step(steps).newline().text
    assert run.stderr == (told if stderr is None else stderr) + expect.LOOK_AT_LOG
    assert run.log == written
    assert run.history == expect.history(text, 255)
    assert machine.outputs() == []
    run.check_times()
