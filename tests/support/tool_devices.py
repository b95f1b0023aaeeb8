"""Block devices and network interfaces of a machine, as sysfs shows them."""

from __future__ import annotations

from .machine import Machine


def make_blocks(machine: Machine, *names: str, **slaves: str) -> None:
    """Makes block devices; `slaves` are made of others, and "sda/sda1" is a partition."""
    for name in (*names, *slaves):
        machine.directory(f"/tmp/block/{name}")
        machine.link(f"/tmp/class/{name.split('/')[-1]}", f"/tmp/block/{name}")
        if "/" in name:
            machine.file(f"/tmp/block/{name}/partition", "1\n")
    for name, below in slaves.items():
        for slave in below.split():
            machine.link(f"/tmp/block/{name}/slaves/{slave}", f"/tmp/class/{slave}")
    for place in ("block", "class"):
        machine.directory(f"/tmp/{place}")
    machine.mount("--bind", "/tmp/class", "/sys/class/block")
    machine.mount("--bind", "/tmp/block", "/sys/block")


def make_devices(machine: Machine, *names: str) -> None:
    """Gives a machine these disks and interfaces, and no others."""
    for name in ("net", *names):
        machine.directory(f"/tmp/{name}")
    make_blocks(machine, *(name.removeprefix("block/") for name in names if name.startswith("block/")))
    machine.mount("--bind", "/tmp/net", "/sys/class/net")


def put_to_sleep(machine: Machine, name: str, state: str = "suspended") -> None:
    """Gives a disk this state in sysfs."""
    machine.file(f"/tmp/block/{name}/device/power/runtime_status", state + "\n")
