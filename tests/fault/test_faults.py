"""Every call that the program makes fails once: the first of its kind, the second, and so on."""

from __future__ import annotations

import errno
import os
import re
import signal
from collections import Counter
from collections.abc import Mapping
from dataclasses import dataclass, field

import pytest

from support import faulting
from support.faulting import CALL_REPORT, Bench, Fault, Outcome

pytestmark = pytest.mark.plain_binary

NO_RUN_ENDS_LATER = 2000  # calls of one kind

EXISTENCE = "a file that cannot be looked at counts as one that is not there"


@dataclass(frozen=True)
class Kind:
    """A kind of call, and how a run tells of its failure.

    `told` are the names under which the three lines of a failed system call report it; `words` are
    patterns of other messages that tell of it. Whatever is told by neither must not have made any
    difference, but for the subjects in `quiet`, each with the reason.
    """

    call: str
    error: int
    told: tuple[str, ...] = ()
    words: tuple[str, ...] = ()
    quiet: Mapping[str, str] = field(default_factory=dict)
    child: bool = False
    env: Mapping[str, str] = field(default_factory=dict)

    def __str__(self) -> str:
        return f"{'child-' if self.child else ''}{self.call}-{errno.errorcode[self.error]}"


# What a failed look at a file leads to: it is made though it is there.
MADE_AGAIN = r"system call name = mkdir, error code = 17,"
NOT_COPIED = "ZEPA130-W"
NO_MEMORY = "ZEPA(122-E|143-W)"

KINDS = (
    Kind("chdir", errno.EACCES, told=("chdir",)),
    Kind("close", errno.EIO),
    Kind("dup2", errno.EBUSY, told=("dup2",)),
    Kind("fchmod", errno.EPERM, told=("chmod",), words=(NOT_COPIED,)),
    Kind("fchown", errno.EPERM, told=("chown",), words=(NOT_COPIED,)),
    Kind("fclose", errno.EIO),
    Kind("fcntl", errno.ENOLCK, told=("fcntl", "dup")),
    Kind("fcntl", errno.EAGAIN, told=("fcntl", "dup"), words=("ZEPA116-E",)),
    Kind("fdopen", errno.ENOMEM, told=("fopen",), words=("ZEPA112-E",)),
    Kind("fflush", errno.ENOSPC, told=("fflush",)),
    Kind("fnmatch", errno.ENOMEM, told=("fnmatch",)),
    Kind("fork", errno.EAGAIN, told=("fork",)),
    Kind("fprintf", errno.ENOSPC, told=("vfprintf", "fprintf")),
    Kind("fstat", errno.EIO, told=("fstat",), words=(NOT_COPIED,)),
    Kind("futimens", errno.EPERM, told=("utime",), words=(NOT_COPIED,)),
    Kind("fwrite", errno.ENOSPC, told=("fputs",)),
    Kind("getc", errno.EIO, told=("fgets",)),
    Kind("getcwd", errno.ENOENT, told=("getcwd",)),
    Kind("gethostname", errno.ENAMETOOLONG, told=("gethostname",)),
    Kind("localtime", errno.EOVERFLOW),
    Kind("lstat", errno.EACCES, told=("lstat",), words=(MADE_AGAIN,)),
    # In this locale the C library needs no memory for itself.
    Kind("malloc", errno.ENOMEM, told=("fopen", "opendir", "fgetwc"),
         words=(NO_MEMORY, "ZEPA112-E"), env={"LC_ALL": "C"}),
    Kind("mbstowcs", errno.EILSEQ, told=("mbstowcs",)),
    Kind("mkdir", errno.ENOSPC, told=("mkdir",)),
    Kind("open", errno.EMFILE, told=("open", "fopen"), words=(NOT_COPIED, "ZEPA112-E")),
    Kind("opendir", errno.EMFILE, told=("opendir",)),
    Kind("pidfd_open", errno.ENOSYS),
    Kind("read", errno.EIO, words=(NOT_COPIED,)),
    Kind("read", errno.EINTR),
    Kind("readdir", errno.EIO, told=("readdir",)),
    Kind("remove", errno.EBUSY, told=("remove",)),
    Kind("rename", errno.EXDEV, told=("rename",)),
    Kind("select", errno.ENOMEM, told=("select",)),
    Kind("setlocale", errno.ENOENT),
    Kind("setpgid", errno.EPERM),
    Kind("sigaction", errno.EINVAL),
    Kind("signal", errno.EINVAL),
    Kind("sigprocmask", errno.EINVAL),
    Kind("stat", errno.EACCES, told=("stat",),
         words=(MADE_AGAIN, "ZEPA10[45]-E", "ZEPA129-W", NOT_COPIED, "ZEPA132-W"),
         quiet={r"quendil_hist\.log$": EXISTENCE + ": it is not rotated",
                r"log/quendil\.log$": EXISTENCE + ": it is written over",
                r"log/quendil_hist_old\.log$": EXISTENCE + ": it is not packed",
                r"log/quendil_stderr\.log$": EXISTENCE + ": it is not shown"}),
    Kind("statfs", errno.ESTALE, told=("statfs",)),
    Kind("symlink", errno.ENOSPC, words=(NOT_COPIED,)),
    Kind("system", errno.EAGAIN, told=("system",), words=("ZEPA133-W", "ZEPA142-W")),
    Kind("vsnprintf", errno.EOVERFLOW),
    Kind("waitid", errno.EINVAL, told=("waitpid",)),
    Kind("waitpid", errno.EINVAL, told=("waitpid",)),
    Kind("wcrtomb", errno.EILSEQ),
    Kind("wcstombs", errno.EILSEQ, told=("wcstombs",)),
    Kind("write", errno.ENOSPC, words=(NOT_COPIED,)),
    Kind("write", errno.EINTR),
    Kind("close_range", errno.EPERM, child=True),
    Kind("execv", errno.EACCES, told=("execv",), child=True),
    Kind("execv", errno.ENOENT, words=("Return code = 255", "ZEPA132-W", "ZEPA135-W"), child=True),
    Kind("setpgid", errno.EPERM, child=True),
    Kind("signal", errno.EINVAL, child=True),
    Kind("sigprocmask", errno.EINVAL, child=True),
)

# A character of a pattern file costs one call or two: these have a short one to read.
BY_CHARACTER = (
    Kind("fgetwc", errno.EIO, told=("fgetwc",)),
    Kind("ungetwc", errno.ENOMEM, told=("ungetwc",)),
)

# Too many calls to let each fail in a run of its own, and none is looked at.
IGNORED = (
    Kind("pthread_mutex", errno.EINVAL),
    Kind("terminal", errno.EIO),
)

# Calls that only a tool makes that overruns, or one that is interrupted.
STOPPING = (
    Kind("kill", errno.EPERM, told=("kill",)),
    Kind("pidfd_open", errno.ENOSYS),
    Kind("select", errno.ENOMEM, told=("select",)),
    Kind("sigaction", errno.EINVAL),
    Kind("waitid", errno.EINVAL, told=("waitpid",)),
    Kind("waitpid", errno.EINVAL, told=("waitpid",)),
)


def times_told(kind: Kind, text: str) -> int:
    """How many reports of this failed call a text holds."""
    return sum((name, code, message) == (told, str(kind.error), os.strerror(kind.error))
               for name, code, message in CALL_REPORT.findall(text) for told in kind.told)


def check_told(kind: Kind, outcome: Outcome, untouched: Outcome) -> None:
    """The run tells of the failure once, or nothing is different from a run without it."""
    log, terminal = (times_told(kind, text) for text in (outcome.run.log or "", outcome.run.stderr))
    assert log <= 1 and terminal <= 1, f"told more than once: {outcome}"
    if log + terminal or outcome.state() == untouched.state():
        return
    added = Counter(outcome.texts().splitlines()) - Counter(untouched.texts().splitlines())
    if any(re.search(word, line) for word in kind.words for line in added):
        return
    assert any(re.search(subject, outcome.subject) for subject in kind.quiet), (
        f"no word of the failure: {outcome}")


def fail_each(bench: Bench, kind: Kind) -> None:
    """Lets the first call of a kind fail, then the second, until there is none left to fail."""
    untouched = bench.run()
    assert untouched.run.status == 0, untouched
    for nth in range(1, NO_RUN_ENDS_LATER):
        outcome = bench.run(Fault(kind.call, nth, kind.error, child=kind.child))
        bench.check(outcome)
        if outcome.failed == 0:
            assert nth > 1, f"the run makes no such call: {outcome}"
            assert outcome.state() == untouched.state()
            return
        check_told(kind, outcome, untouched)
    raise AssertionError(f"still failing after {NO_RUN_ENDS_LATER} runs")


@pytest.mark.parametrize("kind", KINDS, ids=str)
def test_a_failed_call_is_told_and_spoils_nothing_else(machine, kind):
    bench = Bench(machine, *faulting.representative(machine), env=kind.env)
    fail_each(bench, kind)


@pytest.mark.parametrize("kind", BY_CHARACTER, ids=str)
def test_a_failure_in_the_middle_of_a_pattern_file_skips_the_file(machine, kind):
    bench = Bench(machine)
    machine.pattern("10_demo", "FORMAT_VERSION = 1.0\nPP_GROUP=demo\nBLOCK {\nTARGET=host\n"
                    f"DATA_BLOCK {{\nPATH_NAME={faulting.USER}/wild/one.log\n}}\n}}\n")
    fail_each(bench, kind)


@pytest.mark.parametrize("kind", IGNORED, ids=str)
def test_a_failure_of_the_terminal_or_the_mutex_changes_no_result(machine, kind):
    bench = Bench(machine, *faulting.representative(machine))
    untouched = bench.run().state()
    for nth, rest in ((1, False), (2, False), (100, False), (1000, False), (1, True), (100, True)):
        outcome = bench.run(Fault(kind.call, nth, kind.error, rest))
        bench.check(outcome)
        assert outcome.failed > 0, outcome
        shown = {"stdout": untouched["stdout"], "stderr": untouched["stderr"]}
        assert {**outcome.state(), **shown} == untouched, outcome
