"""The play on many hosts at once, to see what the controller needs for them.

All hosts are the controller itself, reached by local connections, and a stub in the place of quendil
leaves a small archive at once: what is measured is the work of Ansible and of the role, with the
hosts' share of the role's steps, and neither collecting nor a network.
"""

from __future__ import annotations

import io
import json
import tarfile
from dataclasses import dataclass

from .fleet import Finished, Fleet
from .fleet_play import Plays
from .machine import QUENDIL

ARCHIVE = "/opt/archive"
WORK = "/var/opt/hosts"  # of all hosts: each has a directory there
REQUEST = "simulation"

STUB = f"""#!/bin/sh
case $1 in
    -h) echo "quendil [Ver. 01-02]"; exit ;;
    -d) cp {ARCHIVE} "$2/host_$(date +%y%m%d%H%M%S).tar.gz" ;;
esac
case $2 in
    */host*00/{REQUEST}/*) rm "$2"/*; exit 255 ;;
esac
"""


@dataclass(frozen=True)
class Simulated:
    """What came of a simulation. The two peaks are in bytes: of the largest process, and of all."""

    done: Finished
    hosts: int
    results: list[dict]

    def causes(self) -> dict[str, str]:
        """Why hosts have failed."""
        return {one["host"]: one["cause"] for one in self.results if one["status"] != "ok"}

    def figures(self) -> str:
        """The figures, as docs/fleet.md has them."""
        ok = sum(one["status"] == "ok" for one in self.results)
        return (f"hosts                      {self.hosts}\n"
                f"collected                  {ok}\n"
                f"failed                     {self.hosts - ok}\n"
                f"time                       {self.done.seconds:.0f} s\n"
                f"time for each host         {self.done.seconds / self.hosts:.2f} s\n"
                f"memory, largest process    {self.done.peak / 1e6:.0f} MB\n"
                f"memory, all of Ansible     {self.done.total_peak / 1e6:.0f} MB\n")


def make_archive() -> bytes:
    """A small archive with an index."""
    made = io.BytesIO()
    with tarfile.open(fileobj=made, mode="w:gz") as packed:
        member = tarfile.TarInfo("host/quendil_index")
        member.size = 5
        packed.addfile(member, io.BytesIO(b"index"))
    return made.getvalue()


def names(hosts: int, first: int = 1) -> list[str]:
    """The names of the hosts: those whose names end with "00" fail."""
    return [f"host{number:05}" for number in range(first, first + hosts)]


def simulate(fleet: Fleet, hosts: int, batch: str, forks: int, seconds: float,
             first: int = 1) -> Simulated:
    """Runs the play; a play that takes longer than `seconds` is ended, and this fails. `first` is
    the number of the first host."""
    plays = Plays(fleet)
    controller = fleet.controller
    controller.file(ARCHIVE, make_archive())
    controller.file(QUENDIL, STUB, 0o755)
    controller.remove(f"{QUENDIL}-check")  # a preview is the hosts' work
    controller.directory(WORK)
    inventory = fleet.directory / "hosts.yml"
    inventory.write_text(json.dumps({"all": {"hosts": dict.fromkeys(names(hosts, first)), "vars": {
        "ansible_connection": "local", "ansible_python_interpreter": "/usr/bin/python3",
        "collect_become": False, "collect_request": REQUEST,
        "collect_work_directory": f"{WORK}/{{{{ inventory_hostname }}}}",
        "collect_destination": str(plays.destination)}}}))
    done = fleet.run(["ansible-playbook", "-i", inventory, "norvale.quendil.collect",
                      "-e", f"collect_batch={batch}"],
                     env={"ANSIBLE_FORKS": str(forks), "ANSIBLE_DISPLAY_OK_HOSTS": "0",
                          "ANSIBLE_DISPLAY_SKIPPED_HOSTS": "0"},
                     seconds=seconds, watch_memory="ansible-playbook")
    path = plays.destination / REQUEST / "results.jsonl"
    lines = path.read_text().splitlines() if path.exists() else []
    return Simulated(done, hosts, [json.loads(line) for line in lines])
