# Copyright the quendil developers
# Apache-2.0 (see LICENSE or https://www.apache.org/licenses/LICENSE-2.0)
"""Limits for work with a host that may be hostile: time, memory, size of files, processes left behind."""

from __future__ import annotations

import os
import resource
import signal
import subprocess
import time
from contextlib import contextmanager

#: The address space that an answer may take in the worker, beyond what it has: an answer has some
#: kilobytes, but the connection keeps what a host sends in several copies.
ANSWER_BYTES = 64 << 20


#: The alarm rings again so often, in seconds: what it interrupts may go on with something else.
AGAIN = 5


class TooLate(BaseException):
    """The time for a piece of work is over. No Exception, because Ansible's ssh tries again after each of those."""


@contextmanager
def deadline(seconds):
    """Ends the work inside with TooLate after so many seconds, and with it the processes that it started.

    A task of Ansible is a process of its own with one thread, so that the alarm is free unless the task has a
    `timeout`; then the earlier one counts.
    """
    def ring(number, frame):
        raise TooLate()

    before = set(children())
    began = time.monotonic()
    task_left = signal.getitimer(signal.ITIMER_REAL)[0]
    ours = not 0 < task_left < seconds
    if ours:
        former = signal.signal(signal.SIGALRM, ring)
        signal.setitimer(signal.ITIMER_REAL, max(seconds, 0.1), AGAIN)
    try:
        yield
    finally:
        if ours:
            left = max(task_left - (time.monotonic() - began), 0.1) if task_left else 0
            signal.setitimer(signal.ITIMER_REAL, left)
            signal.signal(signal.SIGALRM, former)
        end(set(children()) - before)


def children():
    """The process IDs of this process's children."""
    text = ""
    try:
        for thread in os.listdir("/proc/self/task"):
            with open(f"/proc/self/task/{thread}/children", encoding="ascii") as file:
                text += file.read() + " "
    except OSError:  # a kernel without these files, or another system
        text = subprocess.run(["pgrep", "-P", str(os.getpid())], capture_output=True, text=True, check=False).stdout
    return [int(word) for word in text.split()]


def end(pids):
    """Kills children, such as an ssh that waits for a host that says nothing more."""
    for pid in pids:
        try:
            os.kill(pid, signal.SIGKILL)
            os.waitpid(pid, 0)
        except (ProcessLookupError, ChildProcessError):
            pass


@contextmanager
def soft_limit(kind, value):
    """Sets a soft limit of this process and of the processes that it starts; None leaves it as it is."""
    soft, hard = resource.getrlimit(kind)
    if value is not None and hard != resource.RLIM_INFINITY:
        value = min(value, hard)
    if value is not None:
        resource.setrlimit(kind, (value, hard))
    try:
        yield
    finally:
        resource.setrlimit(kind, (soft, hard))


def address_space(more):
    """What this process's address space may grow to, in bytes; None where the system does not tell."""
    try:
        with open("/proc/self/statm", encoding="ascii") as file:
            return int(file.read().split()[0]) * resource.getpagesize() + more
    except OSError:
        return None


@contextmanager
def answer_bounds(seconds):
    """Bounds for one answer of a host: its time, and the memory that it takes here."""
    with deadline(seconds), soft_limit(resource.RLIMIT_AS, address_space(ANSWER_BYTES)):
        yield


@contextmanager
def file_bounds(seconds, size):
    """Bounds for one file that a host sends: its time, and its size in bytes, whatever the host announced."""
    with answer_bounds(seconds), soft_limit(resource.RLIMIT_FSIZE, size):
        yield
