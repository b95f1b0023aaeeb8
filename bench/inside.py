"""Measures workloads inside a sandbox, and reports on standard output, one JSON object to a line.

usage: inside.py PLAN     (a JSON object; see `main`)

The sandbox has "/opt", "/var/opt" and "/etc/opt" for itself, with the installations to measure in
"installation.N" of each. The data is on a tmpfs, the output on an ext4 made for each workload.
"""

from __future__ import annotations

import ctypes
import json
import os
import shutil
import subprocess
import sys
import time
from pathlib import Path

from data import Files
from peak import run_measured
from workloads import DATA, OUTPUT, WORKLOADS, Memory, Prepared, Side, Workload

PLACE = "/opt/bench"
MESSAGES = f"{PLACE}/messages"
TREES = ("/opt", "/etc/opt", "/var/opt")
PATTERNS = "/etc/opt/norvale/quendil/pattern"
LOGS = "/var/opt/norvale/quendil/log"
ENVIRONMENT = {
    "PATH": "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin",
    "HOME": "/", "LC_ALL": "C.UTF-8", "TZ": "UTC",
}

libc = ctypes.CDLL(None, use_errno=True)


class Failure(Exception):
    """A run did not do its work, so that its time means nothing."""


def report(**event: object) -> None:
    """Reports something to the program outside."""
    print(json.dumps(event), flush=True)


def call(*command: str) -> None:
    """Runs a program that prepares something."""
    done = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True,
                          stderr=subprocess.STDOUT, env=ENVIRONMENT, check=False)
    if done.returncode != 0:
        raise Failure(f"{command[0]}: {done.stdout.strip()}")


def empty(directory: str) -> None:
    """Removes all files in a directory; runs that succeed leave nothing else."""
    for name in os.listdir(directory):
        os.unlink(f"{directory}/{name}")


class Installations:
    """The installations, of which one at a time is in its place."""

    def __init__(self, count: int) -> None:
        self.count = count
        self._placed = -1

    def place(self, number: int) -> None:
        """Puts an installation in its place, and the one that was there back."""
        if number == self._placed:
            return
        for tree in TREES:
            if self._placed >= 0:
                os.rename(f"{tree}/norvale", f"{tree}/installation.{self._placed}/norvale")
            os.rename(f"{tree}/installation.{number}/norvale", f"{tree}/norvale")
        self._placed = number


def set_patterns(side: Side) -> None:
    """Installs the side's pattern files; the installation's own are kept in "shipped"."""
    shipped = f"{PATTERNS}.shipped"
    if not os.path.exists(shipped):
        os.rename(PATTERNS, shipped)
        os.mkdir(PATTERNS, 0o755)
    empty(PATTERNS)
    if side.shipped:
        shutil.copytree(shipped, PATTERNS, dirs_exist_ok=True)
    for name, text in (side.patterns or {}).items():
        Path(PATTERNS, name).write_text(text)


def sync_output() -> None:
    """Writes to the disk what earlier runs have left to write, so that no later run waits for it."""
    directory = os.open(OUTPUT, os.O_RDONLY)
    libc.syncfs(directory)
    os.close(directory)


class Measured:
    """One workload while it is measured."""

    def __init__(self, workload: Workload, sides: Prepared, installations: Installations) -> None:
        self._workload = workload
        self._sides = sides
        self._installations = installations

    def round(self) -> list[tuple[float, float]]:
        """The seconds of the floor and of the work, for each installation, in turns."""
        seconds = []
        floor = 0.0
        for number in range(self._installations.count):
            if number == 0 or not self._sides.floor.by_hand:
                floor = self._timed(self._sides.floor, number)
            seconds.append((floor, self._timed(self._sides.work, number)))
        return seconds

    def peak(self, number: int) -> int:
        """The peak memory of the program in the work, in KiB."""
        side = self._sides.work
        self._begin(side, number)
        output = os.open(MESSAGES, os.O_WRONLY | os.O_CREAT | os.O_TRUNC, 0o600)
        status, peak = run_measured(side.command, ENVIRONMENT, output)
        os.close(output)
        self._check(side, status)
        return peak

    def _begin(self, side: Side, number: int) -> None:
        """Makes what every run finds: no output, no logs, nothing that waits to be written."""
        if not side.by_hand:
            self._installations.place(number)
            set_patterns(side)
            empty(LOGS)
        empty(OUTPUT)
        sync_output()

    def _timed(self, side: Side, number: int) -> float:
        self._begin(side, number)
        flags = os.O_WRONLY | os.O_CREAT | os.O_TRUNC
        actions = [(os.POSIX_SPAWN_OPEN, 0, os.devnull, os.O_RDONLY, 0),
                   (os.POSIX_SPAWN_OPEN, 1, MESSAGES, flags, 0o600),
                   (os.POSIX_SPAWN_DUP2, 1, 2)]
        began = time.perf_counter()
        pid = os.posix_spawn(side.command[0], side.command, ENVIRONMENT, file_actions=actions)
        status = os.waitpid(pid, 0)[1]
        seconds = time.perf_counter() - began
        self._check(side, os.waitstatus_to_exitcode(status))
        return seconds

    def _check(self, side: Side, status: int) -> None:
        """A run that failed, or left something out, must not look fast."""
        what = f"{self._workload.name}: {' '.join(side.command)}"
        left = os.listdir(OUTPUT)
        if status != 0 or len(left) != 1 or not left[0].endswith(".tar.gz"):
            raise Failure(f"{what}: exit status {status}, left {left}\n"
                          f"{Path(MESSAGES).read_text(errors='replace')[-2000:]}")
        found = files_in(f"{OUTPUT}/{left[0]}", side.marker)
        if found != side.expected:
            raise Failure(f"{what}: the archive has {found}, expected {side.expected}")


def files_in(archive: str, marker: str) -> Files:
    """The regular files in an archive whose names contain a text, and their bytes."""
    count = size = 0
    command = ["/bin/tar", "--numeric-owner", "-tvzf", archive]
    with subprocess.Popen(command, stdout=subprocess.PIPE, env=ENVIRONMENT) as listing:
        assert listing.stdout is not None
        for line in listing.stdout:
            mode, _, length, _, _, name = line.split(None, 5)
            if mode.startswith(b"-") and marker.encode() in name:
                count += 1
                size += int(length)
    if listing.returncode != 0:
        raise Failure(f"{archive} cannot be read")
    return Files(count, size)


def measure(workload: Workload, installations: Installations, plan: dict) -> None:
    """Measures one workload and reports its rounds."""
    image = f"{PLACE}/{plan['image']}"
    with open(image, "xb") as file:
        file.truncate(workload.disk << 30)
    call("/sbin/mkfs.ext4", "-q", "-F", "-N", str(workload.inodes),
         "-E", "lazy_itable_init=0,lazy_journal_init=0", image)
    os.mkdir(OUTPUT)
    call("/bin/mount", "-n", "-o", "loop", image, OUTPUT)
    os.rmdir(f"{OUTPUT}/lost+found")
    measured = Measured(workload, workload.prepare(plan["scale"]), installations)
    rounds = plan["rounds"] or workload.rounds
    measured.round()  # not counted: the file system and the programs are used for the first time
    seconds = []
    for number in range(rounds):
        report(work=workload.name, round=number + 1, rounds=rounds)
        seconds.append(measured.round())
    peaks = []
    if any(isinstance(figure, Memory) for figure in workload.figures):
        peaks = [measured.peak(number) for number in range(installations.count)]
    report(work=workload.name, seconds=seconds, peaks=peaks)
    call("/bin/umount", "-n", OUTPUT)
    os.rmdir(OUTPUT)
    os.unlink(image)
    call("/bin/rm", "-rf", DATA)  # also a chain of directories, too deep for Python's own function


def main(plan: dict) -> None:
    """Measures the works of the plan, each with its rounds and at its scale."""
    os.umask(0o022)
    os.mkdir(PLACE)
    call("/bin/mount", "-n", "-t", "tmpfs", "-o", "size=95%,nr_inodes=0,mode=0755", "bench", PLACE)
    installations = Installations(plan["installations"])
    for name in plan["works"]:
        measure(WORKLOADS[name], installations, plan)


if __name__ == "__main__":
    try:
        main(json.loads(sys.argv[1]))
    except (Failure, OSError) as error:
        report(failed=str(error))
        sys.exit(1)
