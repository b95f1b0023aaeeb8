"""A run of the program: started, watched, finished, and what it left."""

from __future__ import annotations

import fcntl
import os
import re
import time
from collections.abc import Callable
from datetime import datetime
from typing import TYPE_CHECKING

from . import masking
from .tree import Tree, read_archive, read_directory

if TYPE_CHECKING:
    from .machine import Machine

POLL_SECONDS = 0.003
RESULT = re.compile(r"^ZEPA(214-I:Output file|211-I:Archive file|215-I:Output) = (.*?)"
                    r"(?:\. size = \d+ bytes)?\.$", re.MULTILINE)
OUTPUT_PATH = re.compile(r"^    Output path of collected information = (.*)$", re.MULTILINE)


def wait_until(condition: Callable[[], object], seconds: float, what: str):
    """Waits for a true value of a condition and returns it; fails after so many seconds."""
    deadline = time.monotonic() + seconds
    while not (value := condition()):
        assert time.monotonic() < deadline, f"not within {seconds} seconds: {what}"
        time.sleep(POLL_SECONDS)
    return value


class Capture:
    """An unnamed file that receives a program's output.

    Unlike a pipe it never fills up, and a process that outlives the program cannot block the reader.
    """

    def __init__(self, name: str) -> None:
        self.descriptor = os.memfd_create(name)
        flags = fcntl.fcntl(self.descriptor, fcntl.F_GETFL)
        fcntl.fcntl(self.descriptor, fcntl.F_SETFL, flags | os.O_APPEND)

    def read(self) -> bytes:
        """All that was written so far."""
        return os.pread(self.descriptor, os.fstat(self.descriptor).st_size, 0)

    def close(self) -> None:
        """Discards the output."""
        os.close(self.descriptor)


class Run:
    """A finished run.

    `status` is the exit status, or minus the number of the signal that killed it. `stdout`,
    `stderr`, `log`, `old_log`, `history` and `old_history` are masked texts, a log that does not
    exist being None; `raw_stdout` and `raw_stderr` are the bytes, and `raw` holds the texts before
    masking by the same names. The logs are those in the log directory at the run's end.
    """

    def __init__(self, machine: Machine, status: int, outputs: tuple[bytes, bytes],
                 began: datetime) -> None:
        self.status = status
        self.raw_stdout, self.raw_stderr = outputs
        self.began = began
        self.ended = machine.now()
        self._machine = machine
        self.raw: dict[str, str | None] = {
            "stdout": masking.decode(self.raw_stdout), "stderr": masking.decode(self.raw_stderr),
            "log": machine.read_log("quendil.log"),
            "old_log": machine.read_log("quendil_old.log"),
            "history": machine.read_log("quendil_hist.log"),
            "old_history": machine.read_log("quendil_hist_old.log"),
        }
        self.stdout = masking.mask(self.raw["stdout"] or "")
        self.stderr = masking.mask(self.raw["stderr"] or "")
        self.log = self._masked("log")
        self.old_log = self._masked("old_log")
        self.history = self._masked("history")
        self.old_history = self._masked("old_history")

    def _masked(self, name: str) -> str | None:
        text = self.raw[name]
        return None if text is None else masking.mask(text)

    @property
    def result(self) -> str:
        """The path that the run reported as its result on the terminal."""
        found = RESULT.findall(self.raw["stdout"] or "")
        assert len(found) == 1, f"not one result on the terminal but {found}: {self.stdout!r}"
        return found[0][1]

    @property
    def archive(self) -> Tree:
        """The archive that the run reported, compressed or not."""
        return read_archive(self._machine.path(self.result))

    @property
    def directory(self) -> Tree:
        """The output directory: the reported result, or else the one that the log names."""
        if RESULT.search(self.raw["stdout"] or ""):
            return read_directory(self._machine.path(self.result))
        found = OUTPUT_PATH.findall(self.raw["log"] or "")
        assert len(found) == 1, f"no output path in the run log: {self.log!r}"
        return read_directory(self._machine.path(found[0]))

    @property
    def raw_index(self) -> str:
        """The index file, from the archive or from the directory, whichever is the result."""
        packed = RESULT.search(self.raw["stdout"] or "")
        tree = self.archive if packed and "215-I" not in packed.group(1) else self.directory
        return masking.decode(tree.read("quendil_index"))

    @property
    def index(self) -> str:
        """The index file, masked."""
        return masking.mask(self.raw_index)

    def check_times(self) -> None:
        """Every time that the run wrote is between its start and its end, in order."""
        for name in ("stdout", "log"):
            found = masking.times(self.raw[name] or "")
            assert found == sorted(found), f"times of {name} go backwards: {found}"
            for moment in found:
                assert self.began <= moment <= self.ended, (
                    f"{moment} in {name} is outside the run, {self.began} to {self.ended}")

    def __str__(self) -> str:
        parts = [f"status {self.status}", f"stdout {self.raw_stdout!r}",
                 f"stderr {self.raw_stderr!r}"]
        for name in ("log", "history"):
            parts.append(f"--- {name} ---\n{self.raw[name]}")
        return "\n".join(parts)


class ActiveRun:
    """A run that continues while the test watches it and interferes."""

    def __init__(self, machine: Machine, pid: int, stdout: Capture, stderr: Capture,
                 began: datetime, arguments: list[str]) -> None:
        self.pid = pid
        self.arguments = arguments
        self.sent: set[int] = set()
        self.finished: Run | None = None
        self._machine = machine
        self._stdout, self._stderr = stdout, stderr
        self._began = began

    @property
    def stdout(self) -> bytes:
        """The standard output so far."""
        return self.finished.raw_stdout if self.finished else self._stdout.read()

    @property
    def stderr(self) -> bytes:
        """The standard error so far."""
        return self.finished.raw_stderr if self.finished else self._stderr.read()

    @property
    def ended(self) -> bool:
        """Whether the program has ended, waited for or not."""
        return self._machine.sandbox.wait(self.pid, 0) is not None

    def wait_for(self, condition: Callable[[], object] | str, seconds: float = 10.0):
        """Waits for a condition, or for a file of that path; fails when the run ends before."""
        path = condition if isinstance(condition, str) else None
        test = (lambda: self._machine.exists(path)) if path is not None else condition
        what = path or getattr(condition, "__doc__", None) or repr(condition)

        def reached():
            # Read before the condition: what the run did last counts, even if it has ended since.
            over = self.ended
            value = test()
            assert value or not over, f"the run ended without: {what}\n{self.describe()}"
            return value

        return wait_until(reached, seconds * self._machine.patience, what)

    def signal(self, number: int, to_group: bool = False) -> None:
        """Sends a signal to the program, or to its whole process group as a terminal does."""
        self.sent.add(int(number))
        self._machine.sandbox.kill(-self.pid if to_group else self.pid, number)

    def finish(self, seconds: float | None = None) -> Run:
        """Waits for the end; a run that does not end in time is killed with the whole machine."""
        if self.finished:
            return self.finished
        allowed = self._machine.deadline if seconds is None else seconds * self._machine.patience
        status = self._machine.sandbox.wait(self.pid, allowed)
        if status is None:
            known = self.describe()
            self._machine.destroy()
            raise AssertionError(f"the run did not end within {allowed} seconds\n{known}")
        outputs = (self._stdout.read(), self._stderr.read())
        self.finished = Run(self._machine, os.waitstatus_to_exitcode(status), outputs, self._began)
        self.close()
        return self.finished

    def close(self) -> None:
        """Releases the captured outputs."""
        self._stdout.close()
        if self._stderr is not self._stdout:
            self._stderr.close()

    def describe(self) -> str:
        """All that is known of the run, for a failure's report."""
        call = f"quendil {' '.join(self.arguments)}"
        if self.finished:
            return f"{call}\n{self.finished}"
        return (f"{call}, still running\nstdout {self.stdout!r}\nstderr {self.stderr!r}\n"
                f"{self._machine.describe_processes()}\n"
                f"--- log ---\n{self._machine.read_log('quendil.log')}")

    def is_legal_end(self) -> bool:
        """Whether the run ended in one of its documented ways, or by a signal of the test."""
        assert self.finished is not None
        status = self.finished.status
        return status in (0, 10, 20, 255) or -status in self.sent
