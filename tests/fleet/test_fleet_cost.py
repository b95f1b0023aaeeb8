"""What a play costs: memory of the controller, and time beside collecting."""

from __future__ import annotations

import time

from support.fleet import Fleet
from support.fleet_play import Plays, quick

#: Together more than the controller may take; bench/fleet measures larger ones.
ARCHIVE_BYTES = 60_000_000
HOSTS = 5
MOST_MEMORY = 200_000_000
MOST_OVERHEAD = 5.0


def test_large_archives_need_little_memory(fleet: Fleet, plays: Plays):
    for number in range(HOSTS):
        fleet.host(f"large{number}", sudo=True).collect_large(ARCHIVE_BYTES)
    played = plays.run("-e", "collect_overview=false", watch_memory=True, seconds=300)
    assert set(played.statuses().values()) == {"ok"}, str(played)
    assert all(record["bytes"] >= ARCHIVE_BYTES for record in played.results.values())
    assert 0 < played.done.total_peak < MOST_MEMORY


def test_the_role_adds_little_time_to_a_run(fleet: Fleet, plays: Plays):
    host = quick(fleet.host("one", sudo=True))
    began = time.monotonic()
    assert host.run("-g", "linux").status == 0
    alone = time.monotonic() - began
    host.remove("/var/opt/norvale/quendil/data")
    host.directory("/var/opt/norvale/quendil/data", 0o700)
    played = plays.run()
    assert played.statuses() == {"one": "ok"}
    assert played.done.seconds - alone < MOST_OVERHEAD * host.patience
