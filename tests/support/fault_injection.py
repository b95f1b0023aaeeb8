"""Runs in which one call of the C library fails, and what must be true after each of them.

A bench is a machine with everything that such a run needs: the preloaded library of fail_nth.c, a
user's files, logs of earlier runs. Runs follow each other on it, each from the same state.
"""

from __future__ import annotations

import os
import re
import stat
import struct
from collections.abc import Iterator, Mapping
from dataclasses import dataclass, field

from . import behave, masking, pattern_text
from .machine import LOG_DIRECTORY, Machine, environment_path
from .run import ActiveRun, Run
from .tree import Tree, read_archive, read_directory

LIBRARY = "/opt/fail_nth.so"
REPORT = "/tmp/fault"
TOOL_REPORT = "/tmp/report"
READY = "/tmp/ready"
DATA = "/opt/data"
USER = "/opt/user"
ARGUMENTS = ("-g", "demo", "-t", "host")
SECONDS = 20.0  # a run takes a fraction of a second, or a few when it stops a tool

OWNER = (1000, 1000)
LONG_AGO = 1_000_000_000.0

EARLIER = "earlier"
HISTORY_LINE = re.compile(
    r"ZEPA(301-I:quendil \[Ver\. .*\] started at .*|302-I:quendil argument is .*|303-I:Output = .*"
    r"|304-I:quendil exit code = \d+|305-I:quendil ended at .*|11[346]-E:.*)\.|" + EARLIER)
CALL_REPORT = re.compile(
    r"ZEPA(?:113-E|140-W):An error occurred during the following system call\. "
    r"system call name = (\w+), error code = (-?\d+), msg = (.*)\.$", re.M)
WHOLE_REPORT = re.compile(
    r"ZEPA(?:113-E|140-W):An error occurred .*\n(?:ZEPA(?:151-E|152-W):Additional .*\n)?"
    r"ZEPA(?:114-E|141-W):source = IG\w+, line no = <LINE>\.\n")


@dataclass(frozen=True)
class Fault:
    """The `nth` call of a kind fails, or that and all later ones; in a child or in the run."""

    call: str
    nth: int
    error: int
    rest: bool = False
    child: bool = False
    also: str | None = None

    def environment(self) -> dict[str, str]:
        """The settings of the library."""
        given = {"FAIL_CALL": self.call, "FAIL_NTH": str(self.nth), "FAIL_ERRNO": str(self.error)}
        if self.rest:
            given["FAIL_ALL"] = "1"
        if self.child:
            given["FAIL_CHILD"] = "1"
        if self.also is not None:
            given["FAIL_ALSO"] = self.also
        return given


@dataclass
class Outcome:
    """A run with a fault, or with none."""

    fault: Fault | None
    run: Run
    seen: int
    failed: int
    subject: str
    left: list[str]
    tree: Tree | None = None
    tool: Mapping[str, str] = field(default_factory=dict)

    def texts(self) -> str:
        """All that the run wrote to the standard error and to its log."""
        return f"{self.run.stderr}{self.run.log or ''}"

    def state(self) -> dict[str, object]:
        """Everything that the run wrote and left, without what differs from run to run."""
        return {
            "status": self.run.status, "stdout": self.run.stdout, "stderr": self.run.stderr,
            "log": self.run.log, "old_log": self.run.old_log, "history": self.run.history,
            "old_history": self.run.old_history, "left": self.left,
            "entries": self.tree and dict(_entries(self.tree)),
        }

    def __str__(self) -> str:
        text = f"{self.fault} on {self.subject!r}, left {self.left}\n{self.run}"
        return text.replace(f"{EARLIER}\n", "")


def _entries(tree: Tree) -> Iterator[tuple[str, tuple]]:
    """Every entry with its attributes and content; tar may store a file again as a link."""
    files = tree.files()
    for name, member in tree.members().items():
        linked = member.kind == "hard link"
        content = files.get(member.target.partition("/")[2] if linked else name, b"")
        text = "" if name.startswith("quendil") and ".log" in name else masking.decode(content)
        target = "" if linked else member.target
        yield name, ("file" if linked else member.kind, member.mode, member.uid, member.gid, target,
                     masking.mask(text))


class Bench:
    """A machine for runs with faults; `items` are what its pattern collects."""

    def __init__(self, machine: Machine, *items: str, env: Mapping[str, str] | None = None,
                 arguments: tuple[str, ...] = ()) -> None:
        self.machine = machine
        self._arguments = (*ARGUMENTS, *arguments)
        self._env = dict(env or {})
        machine.install(environment_path("QUENDIL_BEHAVE").with_name("fail_nth.so"), LIBRARY)
        machine.directory(DATA)
        make_user_files(machine)
        machine.pattern("10_demo", pattern_text.pattern(
            pattern_text.block(*items, targets=["host"])))
        machine.conf(f"QUENDIL_DATA_DIRECTORY={DATA}\nQUENDIL_CLEANUP=ON\n"
                     "QUENDIL_MAX_OUTPUT_DATA_SIZE=10\n")
        self._user = snapshot(machine)

    def reset(self) -> None:
        """Removes the results and logs of the last run, and makes the logs of earlier runs."""
        machine = self.machine
        for directory in (DATA, LOG_DIRECTORY):
            for name in machine.list(directory):
                machine.remove(f"{directory}/{name}")
        for path in (TOOL_REPORT, READY):
            if machine.exists(path):
                machine.remove(path)
        machine.file(f"{LOG_DIRECTORY}/quendil.log", "the last run\n")
        machine.file(f"{LOG_DIRECTORY}/quendil_old.log", "the run before it\n")
        machine.file(f"{LOG_DIRECTORY}/quendil_hist.log", f"{EARLIER}\n" * 1250)  # is to be rotated
        machine.file(f"{LOG_DIRECTORY}/quendil_hist_old.log", f"{EARLIER}\n")
        machine.file(REPORT, bytes(4096))

    def start(self, fault: Fault | None = None) -> ActiveRun:
        """Starts a run with a fault; `finish` returns its outcome."""
        self.reset()
        wanted = fault.environment() if fault else {}
        return self.machine.start(*self._arguments, env={
            **self._env, "LD_PRELOAD": LIBRARY, "FAIL_REPORT": REPORT, **wanted})

    def finish(self, active: ActiveRun, fault: Fault | None = None) -> Outcome:
        """Waits for the end of a run and reads what it left."""
        run = active.finish(SECONDS)
        report = self.machine.path(REPORT).read_bytes()
        seen, failed = struct.unpack_from("II", report)
        names = self.machine.list(DATA)
        outcome = Outcome(fault, run, seen, failed, masking.decode(report[8:].split(b"\0")[0]),
                          [masking.mask(name) for name in names])
        outcome.tree = self._result(run.status, names)
        if self.machine.exists(TOOL_REPORT):
            outcome.tool = self.machine.report(TOOL_REPORT)
        return outcome

    def run(self, fault: Fault | None = None) -> Outcome:
        """A whole run with a fault."""
        return self.finish(self.start(fault), fault)

    def _result(self, status: int, names: list[str]) -> Tree | None:
        suffix = {0: ".tar.gz", 10: ".tar"}.get(status)
        if suffix is not None:
            archives = [name for name in names if ".tar" in name]
            assert [name.partition(".")[2] for name in archives] == [suffix[1:]], (
                f"status {status}, but there is {names}")
            return read_archive(self.machine.path(f"{DATA}/{archives[0]}"))
        if status == 20:
            assert len(names) == 1, f"status 20, but there is {names}"
            return read_directory(self.machine.path(f"{DATA}/{names[0]}"))
        return None

    # ---- What must be true after every run ------------------------------------------------------

    def check(self, outcome: Outcome) -> None:
        """Checks what no fault may change."""
        assert outcome.run.status in (0, 10, 20, 255), f"illegal end: {outcome}"
        check_named(outcome)
        check_index(outcome)
        check_content(outcome)
        check_history(outcome)
        check_reports_whole(outcome)
        check_tool(outcome)
        assert snapshot(self.machine) == self._user, f"the user's files have changed: {outcome}"
        self.machine.wait_for(lambda: not self.machine.processes(), 2.0,
                              f"the end of all processes of {outcome}")


def snapshot(machine: Machine) -> dict[str, tuple]:
    """All attributes of the user's files except the times of the last read."""
    found = {}
    for top, directories, files in os.walk(machine.path(USER)):
        for name in [".", *directories, *files]:
            path = os.path.join(top, name)
            status = os.lstat(path)
            content = b""
            if stat.S_ISREG(status.st_mode):
                with open(path, "rb") as file:
                    content = file.read()
            found[path] = (status.st_mode, status.st_uid, status.st_gid, status.st_nlink,
                           status.st_mtime_ns, status.st_ctime_ns, content)
    return found


def make_user_files(machine: Machine) -> None:
    """Makes a tree with valid and dangling links, and files for a wildcard."""
    tree = f"{USER}/tree"
    machine.file(f"{tree}/a.txt", "alpha\n", 0o640, OWNER, LONG_AGO)
    machine.file(f"{tree}/sub/b.txt", "beta\n", 0o600, OWNER, LONG_AGO)
    machine.link(f"{tree}/link", "a.txt")
    machine.link(f"{tree}/nowhere", "missing")
    machine.link(f"{tree}/again", "sub")
    machine.directory(f"{tree}/sub", 0o700, OWNER, LONG_AGO)
    machine.directory(tree, 0o750, OWNER, LONG_AGO)
    for name in ("one.log", "two.log", "other"):
        machine.file(f"{USER}/wild/{name}", f"{name}\n", 0o644, OWNER, LONG_AGO)


def representative(machine: Machine) -> tuple[str, ...]:
    """Tools of every kind and data of every kind, with a file over the limit."""
    plain = (behave.out("printed\n"), behave.err("said\n"), behave.report(TOOL_REPORT))
    return (
        pattern_text.tool(machine.tool(*plain), "%d%/out.txt"),
        pattern_text.tool(machine.tool(behave.err("complaint\n"))),
        pattern_text.tool(machine.tool(behave.flood(1, 20000)), "%d%/big.txt"),
        pattern_text.data("%d%/out.txt", "Output"),
        pattern_text.data("%d%/big.txt"),
        pattern_text.data(f"{USER}/tree", "Tree", file_type="directory"),
        pattern_text.data("/proc/sys/kernel/ostype"),
        pattern_text.data(f"{USER}/wild/*.log"),
    )


def stopped_by_time(machine: Machine) -> tuple[str, ...]:
    """A tool that overruns, with a child that does too."""
    command = machine.tool(behave.child(behave.forever()), behave.forever())
    return (pattern_text.tool(command, "%d%/out.txt", timeout=1, wait=1),
            pattern_text.data(f"{USER}/wild/one.log"))


def stopped_by_signal(machine: Machine) -> tuple[str, ...]:
    """A tool that makes a file when it runs, and then runs until it is stopped."""
    command = machine.tool(behave.child(behave.forever()), behave.ready(READY), behave.forever())
    return (pattern_text.tool(command, "%d%/out.txt", timeout=30, wait=1),
            pattern_text.data(f"{USER}/wild/one.log"))


def check_named(outcome: Outcome) -> None:
    """The named result exists; a failed run leaves nothing, unless its calls fail to the end."""
    run = outcome.run
    named = re.findall(r"^ZEPA2\d\d-I:(?:Output|Archive)(?: file)? = (\S+?)\.(?: size.*)?$",
                       run.stdout, re.M)
    assert len(named) <= 1, f"more than one result: {outcome}"
    for path in named:
        assert path.rpartition("/")[2] in outcome.left, f"{path} is not there: {outcome}"
    if run.status == 255:
        assert not named, f"a failed run names a result: {outcome}"
        kept = outcome.fault is not None and outcome.fault.rest
        assert kept or outcome.left == [], f"a failed run leaves {outcome.left}: {outcome}"


def check_index(outcome: Outcome) -> None:
    """Every file that the index lists is in the output."""
    if outcome.tree is None or "quendil_index" not in outcome.tree:
        return
    index = masking.decode(outcome.tree.read("quendil_index"))
    for name in re.findall(r"^FILE:(.+)$", index, re.M):
        assert name in outcome.tree, f"the index lists {name}, which is missing: {outcome}"


def check_content(outcome: Outcome) -> None:
    """A file is in the output whole or not at all, unless the run reports that a part stays."""
    if outcome.tree is None or "system call name = unlink" in outcome.texts():
        return
    whole = {"a.txt": b"alpha\n", "b.txt": b"beta\n", "one.log": b"one.log\n",
             "two.log": b"two.log\n", "ostype": b"Linux\n"}
    for name, content in outcome.tree.files().items():
        expected = whole.get(name.rpartition("/")[2], content)
        assert content == expected, f"{name} holds {content!r}: {outcome}"


def check_history(outcome: Outcome) -> None:
    """Every line of the history log is whole."""
    history = outcome.run.history or ""
    assert history == "" or history.endswith("\n"), f"truncated history: {outcome}"
    for line in history.splitlines():
        assert HISTORY_LINE.fullmatch(line), f"truncated history line {line!r}: {outcome}"


def check_reports_whole(outcome: Outcome) -> None:
    """Every report of a failed system call in the run log has all its lines."""
    if outcome.fault is not None and outcome.fault.rest:
        return  # a failed write to the run log may have truncated one
    log = outcome.run.log or ""
    assert len(CALL_REPORT.findall(log)) == len(WHOLE_REPORT.findall(log)), f"truncated: {outcome}"


#: The calls with which a child restores the signals of the run's start.
RESTORING = ("signal", "sigaction", "sigprocmask")


def check_tool(outcome: Outcome) -> None:
    """A tool inherits only the three standard descriptors, the private umask and, unless the call
    that restores them has failed, no signal that is blocked or ignored."""
    if not outcome.tool:
        return
    descriptors = {key for key in outcome.tool if re.fullmatch(r"fd\d+", key)}
    assert descriptors == {"fd0", "fd1", "fd2"}, f"a tool inherited {outcome.tool}: {outcome}"
    assert outcome.tool["umask"] == "0066", f"a tool inherited {outcome.tool}: {outcome}"
    if outcome.fault is None or not (outcome.fault.child and outcome.fault.call in RESTORING):
        signals = (outcome.tool["blocked"], outcome.tool["ignored"])
        assert signals == ("", ""), f"a tool inherited {outcome.tool}: {outcome}"
