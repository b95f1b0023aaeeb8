"""Runs that are killed at random, one after the other: the next one always succeeds.

QUENDIL_SOAK_RUNS is their number and QUENDIL_SOAK_SEED the random seed; tests/soak/run sets both.
"""

from __future__ import annotations

import os

import pytest
from support.machine import Machine
from support.soaking import Soak

RUNS = int(os.environ.get("QUENDIL_SOAK_RUNS", "10"))
SEED = int(os.environ.get("QUENDIL_SOAK_SEED", "1"))


@pytest.mark.plain_binary
def test_a_run_works_after_another_one_was_killed(machine: Machine):
    soak = Soak(machine, SEED)
    for _ in range(RUNS):
        soak.step()
    print(f"\nseed {SEED}: {soak}")
