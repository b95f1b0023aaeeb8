"""Runs the collection's play on a fleet, and reads what it leaves on the controller."""

from __future__ import annotations

import json
import shutil
from collections.abc import Mapping
from dataclasses import dataclass
from pathlib import Path

from .fleet import COLLECTIONS, ROOT, Command, Finished, Fleet
from .fleet_host import FleetHost

#: What stays on a host that has quendil: its logs, and the locks of the first run.
STAYS = ("/var/opt/norvale/quendil/log/", "/opt/norvale/quendil/bin/.quendil")
REQUEST = "test-1"

QUICK_PATTERN = """\
FORMAT_VERSION = 1.0
PP_NAME = "Quick"
PP_GROUP = linux
BLOCK {
    TARGET = quick
    DATA_BLOCK {
        PATH_NAME = "/etc/hostname"
        DESCRIPTION = "Name"
    }
    DATA_BLOCK {
        PATH_NAME = "/proc/version"
        DESCRIPTION = "Kernel"
    }
}
"""


@dataclass(frozen=True)
class Played:
    """A play that has ended, and its results."""

    done: Finished
    directory: Path

    @property
    def status(self) -> int:
        """The exit status of ansible-playbook."""
        return self.done.status

    @property
    def results(self) -> dict[str, dict]:
        """The results by host; one line for each."""
        lines = (self.directory / "results.jsonl").read_text().splitlines()
        records = [json.loads(line) for line in lines]
        found = {record["host"]: record for record in records}
        assert len(found) == len(records), lines
        return found

    def statuses(self) -> dict[str, str]:
        """The status of each host."""
        return {host: record["status"] for host, record in self.results.items()}

    def archive(self, host: str) -> Path:
        """The archive of a host."""
        return self.directory / self.results[host]["archive"]

    def __str__(self) -> str:
        return str(self.done)


class Plays:
    """Plays on one fleet."""

    def __init__(self, fleet: Fleet) -> None:
        self.fleet = fleet
        self.destination = fleet.directory / "collected"
        collection = fleet.controller.path(f"{COLLECTIONS}/ansible_collections/norvale/quendil")
        fleet.controller.directory(f"{COLLECTIONS}/ansible_collections/norvale")
        shutil.copytree(ROOT / "ansible", collection)

    def start(self, *options: str, variables: Mapping[str, object] | None = None,
              host_variables: Mapping[str, Mapping[str, object]] | None = None,
              playbook: str | Path = "norvale.quendil.collect", watch_memory: bool = False,
              request: str | None = REQUEST, env: Mapping[str, str] | None = None) -> Command:
        """Starts the play on all hosts of the fleet."""
        settings: dict[str, object] = {
            "collect_destination": str(self.destination), "collect_batch": "100%",
            "ansible_ssh_timeout": 3,
        }
        if request is not None:
            settings["collect_request"] = request
        inventory = self.fleet.inventory(variables={**settings, **(variables or {})},
                                         host_variables=host_variables)
        return self.fleet.start(["ansible-playbook", "-i", inventory, playbook, *options],
                                env={"ANSIBLE_FORKS": "10", **(env or {})}, watch_memory=watch_memory)

    def finish(self, command: Command, seconds: float = 120, request: str = REQUEST) -> Played:
        """Waits for the end of a play."""
        played = Played(command.finish(seconds), self.destination / request)
        self.fleet.end_connections()
        return played

    def run(self, *options: str, seconds: float = 120, **how) -> Played:
        """A whole play."""
        return self.finish(self.start(*options, **how), seconds)


def quick(host: FleetHost) -> FleetHost:
    """Gives a host a pattern of its own, with which a run takes a moment."""
    host.pattern("10_quick", QUICK_PATTERN)
    return host
