"""Measures workloads inside a sandbox, and reports on standard output, one JSON object to a line.

usage: measure_inside.py PLAN     (a JSON object, which bench/run makes)

The data is on a tmpfs, the output on an ext4 made for each workload.
"""

from __future__ import annotations

import os
import time

from peak import run_measured
from runs import (ENVIRONMENT, MESSAGES, PLACE, Installations, begin, call, check,
                  make_place, report, run_plan)
from workloads import DATA, OUTPUT, WORKLOADS, Memory, Prepared, Side, Workload

WRITING = os.O_WRONLY | os.O_CREAT | os.O_TRUNC


class Measured:
    """One workload while it is measured."""

    def __init__(self, workload: Workload, sides: Prepared, installations: Installations) -> None:
        self._name = workload.name
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

    def _timed(self, side: Side, number: int) -> float:
        begin(side, self._installations, number)
        actions = [(os.POSIX_SPAWN_OPEN, 0, os.devnull, os.O_RDONLY, 0),
                   (os.POSIX_SPAWN_OPEN, 1, MESSAGES, WRITING, 0o600),
                   (os.POSIX_SPAWN_DUP2, 1, 2)]
        began = time.perf_counter()
        pid = os.posix_spawn(side.command[0], side.command, ENVIRONMENT, file_actions=actions)
        status = os.waitpid(pid, 0)[1]
        seconds = time.perf_counter() - began
        check(self._name, side, os.waitstatus_to_exitcode(status))
        return seconds

    def peak(self, number: int) -> int:
        """The peak memory of the program in the work, in KiB."""
        side = self._sides.work
        begin(side, self._installations, number)
        output = os.open(MESSAGES, WRITING, 0o600)
        status, peak = run_measured(side.command, ENVIRONMENT, output)
        os.close(output)
        check(self._name, side, status)
        return peak


def mount_output(image: str, workload: Workload) -> None:
    """Mounts a new ext4 for the output. Its loop device is freed when it is unmounted."""
    with open(image, "xb") as file:
        file.truncate(workload.disk << 30)
    call("/sbin/mkfs.ext4", "-q", "-F", "-N", str(workload.inodes),
         "-E", "lazy_itable_init=0,lazy_journal_init=0", image)  # no work left for the kernel
    os.mkdir(OUTPUT)
    call("/bin/mount", "-n", "-o", "loop", image, OUTPUT)
    os.rmdir(f"{OUTPUT}/lost+found")


def measure(workload: Workload, installations: Installations, plan: dict) -> None:
    """Measures one workload and reports its rounds."""
    image = f"{PLACE}/{plan['image']}"
    mount_output(image, workload)
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


def carry_out(plan: dict) -> None:
    """Measures the workloads of the plan."""
    make_place()
    installations = Installations(plan["installations"])
    for name in plan["works"]:
        measure(WORKLOADS[name], installations, plan)


if __name__ == "__main__":
    run_plan(carry_out)
