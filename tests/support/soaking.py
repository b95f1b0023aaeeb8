"""Many runs in a row on one machine, disturbed at random: after each, a normal run must succeed."""

from __future__ import annotations

import random
import re
import signal
import time
from collections import Counter
from typing import NamedTuple

from . import behave, pattern_text
from .behave import Action
from .collecting import GROUP, started_log
from .interrupting import PROGRAM, REPORT, SOURCE, Order
from .machine import DATA_DIRECTORY, LOG_DIRECTORY, QUENDIL, Machine
from .run import Run, wait_until

LOCKS = [f"/opt/norvale/quendil/bin/{name}" for name in (".quendil.lck", ".quendil_hist.lck")]
ARCHIVERS = ("/bin/tar", "/bin/gzip")
SIGNALS = [signal.SIGINT, signal.SIGTERM, signal.SIGHUP, signal.SIGKILL, signal.SIGKILL]
HISTORY_LINE = re.compile(r"ZEPA30[1-5]-I:\S.*[.]")

#: About how many stops each segment of an undisturbed run has; see interrupter.c.
SEGMENTS = [570, 26, 40, 6, 22, 6, 44, 16, 30, 6, 40, 16, 120]


class Disturbance(NamedTuple):
    """What happens to one run."""

    victim: str
    order: Order | None = None
    tool: tuple[Action, ...] = ()
    archivers: tuple[tuple[Action, ...], ...] = ((), ())

    def __str__(self) -> str:
        return self.victim if self.order is None else f"{self.victim} {self.order}"


def choose(dice: random.Random) -> Disturbance:
    """One random disturbance."""
    victim = dice.choice(["program", "program", "program", "group", "group", "tool", "archiver"])
    number = dice.choice(SIGNALS)
    if victim == "tool":
        return Disturbance(victim, tool=(behave.die(str(int(number))),))
    if victim == "archiver":
        how = [(), ()]
        how[dice.randrange(2)] = (behave.die(str(int(number))),)
        return Disturbance(victim, archivers=tuple(how))
    segment = dice.randrange(len(SEGMENTS))
    stop = dice.randint(1, SEGMENTS[segment])
    return Disturbance(victim, Order(f"{segment}:{stop}", number, victim == "group"))


class Soak:
    """A machine, and how many of its runs ended in which way."""

    def __init__(self, machine: Machine, seed: int) -> None:
        self._machine = machine
        self._dice = random.Random(seed)
        self._began = time.monotonic()
        self.figures: Counter[str] = Counter()
        machine.install(machine.behave_source.with_name("interrupter"), PROGRAM)
        machine.file(SOURCE, "12345")
        for program in ARCHIVERS:
            machine.replace(program)
        self._set(Disturbance("none"))
        assert self._plain().status == 0
        self._mounts = self._read_mounts()

    def step(self) -> None:
        """One disturbed run and a normal one, with the checks after each."""
        what = choose(self._dice)
        self._set(what)
        disturbed = self._disturbed(what)
        context = f"{what}: {disturbed}"
        self.figures[f"{what.victim}: {disturbed.status}"] += 1
        self._check_nothing_left(context)
        self._set(Disturbance("none"))
        self._check_complete(self._plain(), context)
        self._check_nothing_left(context)

    def __str__(self) -> str:
        total = sum(self.figures.values())
        lines = [f"{count:5} {name}" for name, count in sorted(self.figures.items())]
        seconds = time.monotonic() - self._began
        return "\n".join([f"{total} disturbed runs, each followed by an ordinary one that was"
                          f" complete, in {seconds:.0f} s", "      who was disturbed: exit status",
                          *lines])

    def _set(self, what: Disturbance) -> None:
        tool = behave.command(behave.out("x"), behave.nap(5), *what.tool)
        self._machine.pattern("10_demo", pattern_text.pattern(
            pattern_text.data(SOURCE), pattern_text.tool(tool, redirect="%d%/out")))
        for number, (program, end) in enumerate(zip(ARCHIVERS, what.archivers), 1):
            name = program.rpartition("/")[2]
            actions = (*end, behave.run(f"/opt/real/{name}"), behave.exit("last"))
            self._machine.file(f"/opt/tools/{name}.{number}", behave.script(*actions), 0o755)

    def _disturbed(self, what: Disturbance) -> Run:
        if what.order is None:
            return self._plain()
        self._clear_archives()
        run = self._machine.start(REPORT, *what.order.words(), "--", QUENDIL, *GROUP,
                                  program=PROGRAM)
        run.sent.add(what.order.number)
        return run.finish(30)

    def _plain(self) -> Run:
        self._clear_archives()
        return self._machine.run(*GROUP)

    def _clear_archives(self) -> None:
        """Removes all archives: a run within the same second as one of them would be refused."""
        for name in self._machine.list(DATA_DIRECTORY):
            if not self._machine.path(f"{DATA_DIRECTORY}/{name}").is_dir():
                self._machine.remove(f"{DATA_DIRECTORY}/{name}")

    def _check_complete(self, run: Run, context: str) -> None:
        """The run is like the first one on a new machine, but its output may have a number."""
        tool = behave.command(behave.out("x"), behave.nap(5))
        log = started_log().data({SOURCE: 5}, 5).tool(tool).complete().text
        assert (run.status, run.stderr) == (0, ""), f"{run} after {context}"
        assert re.sub(r"<STAMP>_\d+", "<STAMP>", run.log or "") == log, f"{run} after {context}"
        assert run.archive.read("opt/data") == b"12345" and run.archive.read("out") == b"x", context
        history = (run.old_history or "") + (run.history or "")
        wrong = [line for line in history.splitlines() if not HISTORY_LINE.fullmatch(line)]
        assert wrong == [] and history.endswith("ZEPA305-I:quendil ended at <TIME>.\n"), context

    def _check_nothing_left(self, context: str) -> None:
        """The run left no process, lock or mount, and no unknown file among the logs."""
        wait_until(lambda: not self._machine.processes(), 10.0,
                   f"the end of all processes; {context}")
        for lock in LOCKS:
            assert self._machine.locks(lock) == (0, 0), context
        assert self._read_mounts() == self._mounts, context
        assert set(self._machine.list(LOG_DIRECTORY)) <= {
            "quendil.log", "quendil_old.log", "quendil_hist.log", "quendil_hist_old.log",
            "quendil_stderr.log"}, context

    def _read_mounts(self) -> str:
        return (self._machine.root / "proc/1/mountinfo").read_text()
