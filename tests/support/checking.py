"""Runs of quendil-check."""

from __future__ import annotations

import json
from pathlib import Path

import jsonschema

from .machine import QUENDIL, Completed, Machine

ROOT = Path(__file__).resolve().parents[2]
CHECK = f"{QUENDIL}-check"

#: Seconds for one run: with sanitizers, thousands of files take long on a busy machine.
PATIENCE = 300

MEASURE = """
import resource, subprocess, sys
subprocess.run(sys.argv[1:], stdout=subprocess.DEVNULL)
used = resource.getrusage(resource.RUSAGE_CHILDREN)
print(used.ru_utime + used.ru_stime, used.ru_maxrss)
"""


def check(machine: Machine, *arguments: str, **how) -> Completed:
    """Runs quendil-check to its end, with any exit status; `how` is that of `Machine.exec`."""
    return machine.exec([CHECK, *arguments], check=False, seconds=PATIENCE, **how)


def used(machine: Machine, *arguments: str) -> tuple[float, int]:
    """The processor time in seconds and the memory in KiB that quendil-check needs."""
    done = machine.exec(["/usr/bin/python3", "-c", MEASURE, CHECK, *arguments])
    seconds, kib = done.stdout.split()
    return float(seconds), int(kib)


def schema(kind: str) -> dict:
    """The documented schema of an output: check, list, preview, report or diff."""
    return json.loads((ROOT / f"docs/schema/{kind}.json").read_text())


def decoded(kind: str, text: str) -> dict:
    """An output in JSON, which must fit its schema."""
    value = json.loads(text)
    jsonschema.validate(value, schema(kind))
    return value
