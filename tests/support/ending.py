"""How a run ended: everything that it wrote and left, to be compared at once."""

from __future__ import annotations

import os
from collections.abc import Sequence
from dataclasses import dataclass

from . import expect, masking
from .machine import DATA_DIRECTORY, LOG_DIRECTORY, PROGRAMS, Machine
from .progress import Terminal
from .run import Run

BIN_DIRECTORY = "/opt/norvale/quendil/bin"
HISTORY_LOCK = ".quendil_hist.lck"
RUN_LOCK = ".quendil.lck"


@dataclass(frozen=True)
class Ending:
    """Everything that a run has written and left. No field has a default.

    Texts are masked. A log that does not exist is None. `data` are the paths below the data
    directory, `logs` the names in the log directory, and `locks` the sizes of the lock files.
    """

    status: int
    stdout: str
    stderr: str
    log: str | None
    old_log: str | None
    history: str | None
    old_history: str | None
    logs: list[str]
    data: list[str]
    locks: dict[str, int]

    @classmethod
    def of(cls, machine: Machine, run: Run) -> Ending:
        """How this run ended on this machine, where no other run has started since."""
        locks = {name: machine.status(f"{BIN_DIRECTORY}/{name}").st_size
                 for name in machine.list(BIN_DIRECTORY) if name not in PROGRAMS}
        return cls(run.status, run.stdout, run.stderr, run.log, run.old_log, run.history,
                   run.old_history, machine.list(LOG_DIRECTORY), paths_below(machine), locks)


def paths_below(machine: Machine, directory: str = DATA_DIRECTORY) -> list[str]:
    """The sorted, masked paths of all that a directory holds. No link is followed."""
    top = str(machine.path(directory))
    return sorted(masking.mask(os.path.relpath(os.path.join(parent, name), top))
                  for parent, directories, files in os.walk(top) for name in directories + files)


#: The lock files after a run that reached its single-run lock: they stay empty.
BOTH_LOCKS = {HISTORY_LOCK: 0, RUN_LOCK: 0}


def refused(arguments: Sequence[str], reported: str, steps: int = 0,
            log: expect.RunLog | None = None, stderr: str | None = None) -> Ending:
    """The ending of a run that was refused after so many of the initializing phase's four steps.

    `reported` is the report of the refusal in the run log and on the standard error. `log` is the
    run log before it, if that has more than the first lines; `stderr` replaces `reported` where the
    terminal shows less.
    """
    text = expect.argument_string(arguments)
    return Ending(
        status=255,
        stdout=Terminal().init().step(steps).newline().text,
        stderr=(reported if stderr is None else stderr) + expect.LOOK_AT_LOG,
        log=(log or expect.RunLog(text)).raw(reported).finished(255).text,
        old_log=None,
        history=expect.history(text, 255),
        old_history=None,
        logs=["quendil.log", "quendil_hist.log"],
        data=[],
        locks=BOTH_LOCKS,
    )


def check_refused(machine: Machine, run: Run, arguments: Sequence[str], reported: str,
                  steps: int = 0, log: expect.RunLog | None = None,
                  stderr: str | None = None) -> None:
    """Checks that a run, the machine's first, was refused; the arguments are those of `refused`."""
    assert Ending.of(machine, run) == refused(arguments, reported, steps, log, stderr)
    run.check_times()
