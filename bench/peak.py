"""The peak memory of one process, without that of the programs that it starts.

wait4(2) reports a peak too, but of the largest of a process, the children that it waited for, and
what the process was before it executed the program. The kernel's own mark of the program alone,
VmHWM, ends with the process. So the process is traced, and stopped on its way out.
"""

from __future__ import annotations

import ctypes
import os
import re
import signal
from collections.abc import Mapping, Sequence
from pathlib import Path

PTRACE_TRACEME, PTRACE_CONT, PTRACE_SETOPTIONS = 0, 7, 0x4200
PTRACE_O_TRACEEXIT, PTRACE_O_EXITKILL = 0x40, 0x100000
AT_EXIT = signal.SIGTRAP | 6 << 8  # how a stop on the way out is reported

libc = ctypes.CDLL(None, use_errno=True)
libc.ptrace.argtypes = (ctypes.c_long, ctypes.c_long, ctypes.c_void_p, ctypes.c_void_p)
libc.ptrace.restype = ctypes.c_long


def _ptrace(request: int, pid: int, value: int = 0) -> None:
    if libc.ptrace(request, pid, None, value) == -1:
        code = ctypes.get_errno()
        raise OSError(code, f"ptrace: {os.strerror(code)}")


def run_measured(command: Sequence[str], environment: Mapping[str, str],
                 output: int) -> tuple[int, int]:
    """Runs a command with its output in a file; returns its exit status and its peak in KiB."""
    pid = os.fork()
    if pid == 0:
        try:
            os.dup2(output, 1)
            os.dup2(output, 2)
            _ptrace(PTRACE_TRACEME, 0)
            os.execve(command[0], list(command), dict(environment))
        finally:
            os._exit(127)
    os.waitpid(pid, 0)  # stopped by its execve
    _ptrace(PTRACE_SETOPTIONS, pid, PTRACE_O_TRACEEXIT | PTRACE_O_EXITKILL)
    _ptrace(PTRACE_CONT, pid)
    peak = 0
    while os.WIFSTOPPED(status := os.waitpid(pid, 0)[1]):
        if status >> 8 == AT_EXIT:
            text = Path(f"/proc/{pid}/status").read_text()
            found = re.search(r"^VmHWM:\s+(\d+) kB$", text, re.MULTILINE)
            assert found, text
            peak = int(found[1])
            _ptrace(PTRACE_CONT, pid)
        else:
            _ptrace(PTRACE_CONT, pid, os.WSTOPSIG(status))
    return os.waitstatus_to_exitcode(status), peak
