"""Counts instructions inside a sandbox, and reports on standard output, one JSON object to a line.

usage: count_inside.py PLAN     (a JSON object, which bench/check makes)

Data and output are on a tmpfs, which lists a directory in the same order each time.
"""

from __future__ import annotations

import os
import re
import subprocess
from pathlib import Path

from runs import (ENVIRONMENT, MESSAGES, PLACE, Failure, Installations, begin, call, check,
                  make_place, report, run_plan)
from workloads import COUNTED, DATA, OUTPUT

COUNTS = f"{PLACE}/callgrind"
#: Without the option, the programs that the run starts would be counted too, each in a file.
CALLGRIND = ("/usr/bin/valgrind", "--tool=callgrind", "--trace-children=no", "--vgdb=no",
             f"--callgrind-out-file={COUNTS}.%p", "--quiet")


def instructions(name: str, installations: Installations) -> int:
    """The instructions of the program in one of the counted works."""
    side = COUNTED[name](1).work
    begin(side, installations, 0)
    with open(MESSAGES, "wb") as messages:
        with subprocess.Popen([*CALLGRIND, *side.command], env=ENVIRONMENT, stdout=messages,
                              stdin=subprocess.DEVNULL, stderr=messages) as run:
            status = run.wait()
    check(name, side, status)
    file = f"{COUNTS}.{run.pid}"
    found = re.search(r"^(?:summary|totals): (\d+)$", Path(file).read_text(), re.MULTILINE)
    if not found:
        raise Failure(f"{file} has no sum")
    call("/bin/rm", "-rf", DATA)
    return int(found[1])


def carry_out(plan: dict) -> None:
    """Counts each work so many times."""
    make_place()
    os.mkdir(OUTPUT)
    installations = Installations(1)
    for name in COUNTED:
        report(work=name, counts=[instructions(name, installations)
                                  for _ in range(plan["repeats"])])


if __name__ == "__main__":
    run_plan(carry_out)
