"""Runs inside a sandbox: what each finds, and the check of what it made.

The sandbox has "/opt", "/var/opt" and "/etc/opt" for itself, with the installations to measure in
"installation.N" of each.
"""

from __future__ import annotations

import ctypes
import json
import os
import shutil
import subprocess
import sys
from collections.abc import Callable
from pathlib import Path

from data import Files
from workloads import OUTPUT, Side

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
    """A run did not do its work, so that its figures mean nothing."""


def report(**event: object) -> None:
    """Reports something to the program outside."""
    print(json.dumps(event), flush=True)


def call(*command: str) -> None:
    """Runs a program that prepares something."""
    done = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True,
                          stderr=subprocess.STDOUT, env=ENVIRONMENT, check=False)
    if done.returncode != 0:
        raise Failure(f"{command[0]}: {done.stdout.strip()}")


def make_place() -> None:
    """Makes the place of data and output: a tmpfs that all memory may fill."""
    os.umask(0o022)
    os.mkdir(PLACE)
    call("/bin/mount", "-n", "-t", "tmpfs", "-o", "size=95%,nr_inodes=0,mode=0755", "bench", PLACE)


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


def begin(side: Side, installations: Installations, number: int) -> None:
    """Makes what every run finds: no output, no logs, nothing that still waits to be written."""
    if side.patterns is not None:
        installations.place(number)
        _set_patterns(side)
        _empty(LOGS)
    _empty(OUTPUT)
    directory = os.open(OUTPUT, os.O_RDONLY)
    libc.syncfs(directory)
    os.close(directory)


def _set_patterns(side: Side) -> None:
    """Installs the side's pattern files; the installation's own are kept beside them."""
    shipped = f"{PATTERNS}.shipped"
    if not os.path.exists(shipped):
        os.rename(PATTERNS, shipped)
        os.mkdir(PATTERNS, 0o755)
    _empty(PATTERNS)
    if side.shipped:
        shutil.copytree(shipped, PATTERNS, dirs_exist_ok=True)
    for name, text in (side.patterns or {}).items():
        Path(PATTERNS, name).write_text(text)


def _empty(directory: str) -> None:
    """Removes all files in a directory; runs that succeed leave nothing else."""
    for name in os.listdir(directory):
        os.unlink(f"{directory}/{name}")


def check(name: str, side: Side, status: int) -> None:
    """Checks the result of a run: one that failed, or left something out, must not look fast."""
    what = f"{name}: {' '.join(side.command)}"
    left = os.listdir(OUTPUT)
    if status != 0 or len(left) != 1 or not left[0].endswith(".tar.gz"):
        raise Failure(f"{what}: exit status {status}, left {left}\n"
                      f"{Path(MESSAGES).read_text(errors='replace')[-2000:]}")
    found = _files_in(f"{OUTPUT}/{left[0]}", side.marker)
    if found != side.expected:
        raise Failure(f"{what}: the archive has {found}, expected {side.expected}")


def _files_in(archive: str, marker: str) -> Files:
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


def run_plan(carry_out: Callable[[dict], None]) -> None:
    """Carries out the plan that the program outside has given, and reports a failure to it."""
    try:
        carry_out(json.loads(sys.argv[1]))
    except (Failure, OSError) as error:
        report(failed=str(error))
        sys.exit(1)
