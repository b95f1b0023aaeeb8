"""The simulation of many hosts works; its figures for 1,000 come from tests/fleet/simulate."""

from __future__ import annotations

from support.fleet import Fleet
from support.simulation import WORK, names, simulate


def test_a_simulated_host_that_fails_stops_no_batch(fleet: Fleet):
    made = simulate(fleet, hosts=15, first=95, batch="40%", forks=8, seconds=200)
    assert [one["host"] for one in made.results] == names(15, 95), made.done
    assert list(made.causes()) == ["host00100"]
    assert made.done.status == 2 and "host00100" in made.done.stdout
    assert fleet.controller.list(WORK) == []
    assert made.done.peak > 10_000_000 and made.done.total_peak > made.done.peak / 2
