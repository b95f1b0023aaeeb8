"""The workloads: the data of each, the two sides that are compared, the figures and their goals."""

from __future__ import annotations

import os
import shlex
from collections.abc import Callable, Mapping
from dataclasses import dataclass
from pathlib import Path
from statistics import median
from typing import NamedTuple

from data import Files, make_chain, make_tree
from pattern_text import block, data, pattern, tool

QUENDIL = "/opt/norvale/quendil/bin/quendil"
DATA = "/opt/bench/data"  # on a tmpfs
OUTPUT = "/opt/bench/output"  # on an ext4
GROUP = "bench"
SERVICE_USER = 990  # need not exist


# ---- What is run ---------------------------------------------------------------------------------


@dataclass(frozen=True)
class Side:
    """One of the two ways of working that are compared.

    `expected` is what its archive must contain of the members whose names contain `marker`.
    """

    command: tuple[str, ...]
    expected: Files
    marker: str = f"{DATA}/"
    patterns: Mapping[str, str] | None = None  # files; None when the program does not run
    shipped: bool = False  # whether the installation's own patterns are read too

    @property
    def by_hand(self) -> bool:
        """Whether the work is done by hand, so that the installation makes no difference."""
        return self.patterns is None


def by_hand(expected: Files, *steps: str, marker: str = "data/") -> Side:
    """The same work by hand: a shell runs the steps in the output directory."""
    return Side(("/bin/sh", "-euc", f"cd {OUTPUT}; " + "; ".join(steps)), expected, marker)


def program(expected: Files, patterns: Mapping[str, str] | str, marker: str = f"{DATA}/",
            shipped: bool = False) -> Side:
    """A run of the program with these pattern files, or with one of this text."""
    files = {"90_bench": patterns} if isinstance(patterns, str) else patterns
    return Side((QUENDIL, "-g", GROUP, "-d", OUTPUT), expected, marker, files, shipped)


def one_item(path: str) -> str:
    """A pattern file that collects one path."""
    return pattern(block(data(path), targets=["bench"]), groups=[GROUP])


#: The program's own steps, in its own order: tar follows links, gzip has no options.
MIRRORED = ("mkdir hand", f"cp -rs {DATA} hand/data", "tar cfh hand.tar hand", "rm -rf hand",
            "gzip hand.tar")


# ---- What is reported ----------------------------------------------------------------------------


class Round(NamedTuple):
    """The seconds of one round, of the floor and of the work that is compared with it."""

    floor: float
    work: float


@dataclass(frozen=True)
class Figure:
    """A figure of a workload: the median of its value in each round. Less is better."""

    name: str
    unit: str
    of_round: Callable[[Round], float]
    goal: float

    def value(self, rounds: list[Round]) -> float:
        """The median over all rounds."""
        return median(self.of_round(one) for one in rounds)


@dataclass(frozen=True)
class Memory:
    """The peak memory of the program's own process in the work, in MiB, from one more run."""

    goal: float
    name: str = "peak memory"
    unit: str = "MiB"


def ratio(goal: float) -> Figure:
    """How many times as long as the floor the work takes."""
    return Figure("ratio", "", lambda one: one.work / one.floor, goal)


def cost(times: float, goal: float) -> Figure:
    """How many times as long a file takes when there are so many times as many files."""
    return Figure("cost of a file", "", lambda one: one.work / one.floor / times, goal)


def extra(name: str, unit: str, goal: float) -> Figure:
    """How much longer than the floor the work takes."""
    factor = {"s": 1, "ms": 1000}[unit]
    return Figure(name, unit, lambda one: (one.work - one.floor) * factor, goal)


class Prepared(NamedTuple):
    """A workload whose data exists: the work, and the floor that it is compared with.

    A workload with data of its own for the floor has both data directories in place.
    """

    floor: Side
    work: Side


@dataclass(frozen=True)
class Workload:
    """A workload; `prepare` makes its data, as large as the given scale says."""

    name: str
    says: str
    rounds: int
    prepare: Callable[[float], Prepared]
    figures: tuple[Figure | Memory, ...]
    default: bool = True
    inodes: int = 20_000
    disk: int = 1  # GiB


def scaled(number: int, scale: float) -> int:
    """A number of files, patterns or tools at this scale."""
    return max(1, round(number * scale))


# ---- The workloads -------------------------------------------------------------------------------


def _packed(count: int, size: int, in_each: int) -> Callable[[float], Prepared]:
    """Few large files: what is compared is tar and gzip of the data itself."""
    def prepare(scale: float) -> Prepared:
        files = make_tree(Path(DATA), scaled(count, scale), size, in_each)
        parent, _, name = DATA.rpartition("/")
        steps = (f"tar cfh hand.tar -C {parent} {name}", "gzip hand.tar")
        return Prepared(by_hand(files, *steps), program(files, one_item(DATA)))
    return prepare


def _linked(count: int) -> Callable[[float], Prepared]:
    """Many small files: what is compared is links to them, tar, rm and gzip."""
    def prepare(scale: float) -> Prepared:
        files = make_tree(Path(DATA), scaled(count, scale), 1024, 1000)
        return Prepared(by_hand(files, *MIRRORED), program(files, one_item(DATA)))
    return prepare


def _growth(few: int, many: int) -> Callable[[float], Prepared]:
    """Few and many small files, both collected by the program."""
    def prepare(scale: float) -> Prepared:
        os.mkdir(DATA)
        sides = []
        for number in (few, many):
            top = f"{DATA}/{number}"
            files = make_tree(Path(top), scaled(number, scale), 1024, 1000)
            sides.append(program(files, one_item(top)))
        return Prepared(*sides)
    return prepare


def _service_user(count: int) -> Callable[[float], Prepared]:
    """The same files twice: root's are linked, those of a user are copied."""
    def prepare(scale: float) -> Prepared:
        os.mkdir(DATA)
        sides = []
        for owner in (0, SERVICE_USER):
            top = f"{DATA}/{owner}"
            files = make_tree(Path(top), scaled(count, scale), 1024, 1000, owner)
            sides.append(program(files, one_item(top)))
        return Prepared(*sides)
    return prepare


def _items(count: int) -> Callable[[float], Prepared]:
    """One item that names all files, and as many items as files."""
    def prepare(scale: float) -> Prepared:
        files = make_tree(Path(DATA), scaled(count, scale), 1024, count)
        names = sorted(os.listdir(f"{DATA}/d0000"))
        each = block(*(data(f"{DATA}/d0000/{name}") for name in names), targets=["bench"])
        return Prepared(program(files, one_item(f"{DATA}/d0000/*")),
                        program(files, pattern(each, groups=[GROUP])))
    return prepare


def _deep(depth: int, in_each: int) -> Callable[[float], Prepared]:
    """A chain of directories. The longest name has two bytes for each, below PATH_MAX."""
    def prepare(scale: float) -> Prepared:
        files = make_chain(Path(DATA), scaled(depth, scale), in_each, 1024)
        return Prepared(by_hand(files, *MIRRORED), program(files, one_item(DATA)))
    return prepare


def _tools(count: int) -> Callable[[float], Prepared]:
    """Tools of a few milliseconds each."""
    def prepare(scale: float) -> Prepared:
        make_tree(Path(DATA), 500, 100, 50)
        number = scaled(count, scale)
        line = f"/bin/ls -lR {DATA}"
        size = len(os.popen(line).read())
        written = Files(number, number * size)
        items = block(*(tool(line, f"%d%/{place}.txt") for place in range(number)),
                      targets=["bench"])
        loop = (f"for n in $(seq {number}); do {shlex.join(line.split())} >hand/$n.txt 2>&1; done")
        return Prepared(
            by_hand(written, "mkdir hand", loop, "tar cfh hand.tar hand", "rm -rf hand",
                    "gzip hand.tar", marker=".txt"),
            program(written, pattern(items, groups=[GROUP]), marker=".txt"))
    return prepare


def _reading(scale: float) -> Prepared:
    """One file is collected, with and without the installation's own patterns to read."""
    files = make_tree(Path(DATA), 1, 1024, 1)
    return Prepared(program(files, one_item(DATA)), program(files, one_item(DATA), shipped=True))


def _names(count: int, taken: int = 0) -> Callable[[float], Prepared]:
    """Patterns whose first targets differ, and patterns whose first targets are the same text.

    Before these come as many patterns as `taken`. Their directories have the names that the program
    tries next in the work.
    """
    def prepare(scale: float) -> Prepared:
        others, number = round(taken * scale), scaled(count, scale)
        files = make_tree(Path(DATA), others + number, 100, others + number)
        names = sorted(os.listdir(f"{DATA}/d0000"))

        def patterns(same_first: bool) -> dict[str, str]:
            texts = {}
            for place, name in enumerate(names):
                first = f"same_{others + place}" if place < others else "same"
                targets = [first, f"target_{place}"]
                item = block(data(f"{DATA}/d0000/{name}"),
                             targets=targets if same_first else targets[::-1])
                texts[f"{place:06}"] = pattern(item, groups=[GROUP])
            return texts
        return Prepared(program(files, patterns(False)), program(files, patterns(True)))
    return prepare


def _many_patterns(count: int) -> Callable[[float], Prepared]:
    """One file is collected, with and without so many other patterns to read."""
    def prepare(scale: float) -> Prepared:
        files = make_tree(Path(DATA), 1, 1024, 1)
        other = pattern(*(block(*(tool(f"/bin/echo {place}", f"%d%/{place}.txt") for place in
                                  range(10)), targets=[f"target_{number}"]) for number in range(5)))
        others = {f"{place:06}": other for place in range(scaled(count, scale))}
        selected = {"90_bench": one_item(DATA)}
        return Prepared(program(files, selected), program(files, others | selected))
    return prepare


WORKLOADS = {one.name: one for one in (
    Workload("small", "100 files, 5 MiB, and tar and gzip of the same files", 31,
             _packed(100, 52_429, 10), (ratio(1.10),)),
    Workload("medium", "2,000 files, 200 MiB, and tar and gzip of the same files", 9,
             _packed(2000, 104_858, 100), (ratio(1.03),)),
    Workload("large", "100,000 files of 1 KiB, and links to them, tar, rm and gzip", 5,
             _linked(100_000), (ratio(1.15), Memory(16)), inodes=250_000, disk=2),
    Workload("growth", "300,000 files of 1 KiB, and 10,000", 3,
             _growth(10_000, 300_000), (cost(30, 1.05),), inodes=700_000, disk=4),
    Workload("service-user", "100,000 files of a user, which are copied, and of root", 5,
             _service_user(100_000), (ratio(1.3),), inodes=250_000, disk=2),
    Workload("items", "10,000 items of one file each, and one item of the same files", 7,
             _items(10_000), (ratio(1.3),), inodes=50_000),
    Workload("deep", "1,000 nested directories of 10 files, and links, tar, rm and gzip", 5,
             _deep(1000, 10), (ratio(1.3),), inodes=50_000),
    Workload("tools", "30 tools, and a shell's loop, tar, rm and gzip", 31,
             _tools(30), (ratio(1.15),)),
    Workload("reading", "one file, with and without the shipped patterns to read", 25,
             _reading, (extra("time of reading", "ms", 3),)),
    Workload("names", "2,000 patterns whose first target is the same, and not the same", 3,
             _names(2000), (extra("time of choosing names", "s", 0.3), Memory(8)),
             inodes=50_000),
    Workload("taken-names", "the same, when 1,000 other patterns have the names tried first", 3,
             _names(2000, 1000), (extra("time of choosing names", "s", 0.3), Memory(8)),
             inodes=50_000),
    Workload("million", "1,000,000 files of 1 KiB, and 100,000", 2,
             _growth(100_000, 1_000_000), (cost(10, 1.05),), default=False,
             inodes=2_200_000, disk=12),
)}

#: What bench/check counts the instructions of: the work alone, of a small size.
COUNTED = {
    "files": _linked(500),
    "items": _items(300),
    "patterns": _many_patterns(20),
}
