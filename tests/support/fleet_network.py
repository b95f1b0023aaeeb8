"""The network of a fleet: a bridge in the controller's namespace, and a cable to every host.

Its addresses are from 192.0.2.0/24, which RFC 5737 keeps for examples and tests.
"""

from __future__ import annotations

import subprocess

from .machine import Machine

NETWORK = "192.0.2.{}"
CONTROLLER = NETWORK.format(1)
REFUSED = NETWORK.format(201)
SILENT = NETWORK.format(202)
ABSENT = NETWORK.format(203)

_BRIDGE = "br0"
_DEVICE = "eth0"
_NOBODY = "02:00:00:00:00:01"  # the hardware address of nothing


def make_bridge(controller: Machine) -> None:
    """Gives the controller a bridge with its own address, and the addresses that do not answer."""
    _configure(controller, "link set lo up", f"link add {_BRIDGE} type bridge",
               f"addr add {CONTROLLER}/24 dev {_BRIDGE}",
               # The controller's kernel refuses connections to this one itself: nothing listens.
               f"addr add {REFUSED}/24 dev {_BRIDGE}",
               f"link set {_BRIDGE} up",
               # Packets to this one leave, and nobody takes them.
               f"neigh add {SILENT} lladdr {_NOBODY} dev {_BRIDGE} nud permanent")


def connect(controller: Machine, host: Machine, number: int) -> str:
    """Connects a host to the bridge; returns its address, which ends in `number`."""
    # From here, because a host cannot see the process ids of another one.
    _batch(["/usr/bin/nsenter", f"--net=/proc/{controller.sandbox.init}/ns/net"],
           f"link add v{number} type veth peer name {_DEVICE} netns {host.sandbox.init}",
           f"link set v{number} master {_BRIDGE} up")
    address = NETWORK.format(number)
    _configure(host, "link set lo up", f"addr add {address}/24 dev {_DEVICE}",
               f"link set {_DEVICE} up")
    return address


def switch(host: Machine, on: bool) -> None:
    """Plugs the cable of a host in or out: without it packets are lost and nothing is refused."""
    _configure(host, f"link set {_DEVICE} {'up' if on else 'down'}")


def listens(host: Machine, port: int) -> bool:
    """Whether a program of the host waits for connections to a port."""
    with open(f"/proc/{host.sandbox.init}/net/tcp", encoding="ascii") as table:
        rows = [line.split() for line in table][1:]
    return any(row[1].endswith(f":{port:04X}") and row[3] == "0A" for row in rows)


def _configure(machine: Machine, *lines: str) -> None:
    machine.exec(["/usr/sbin/ip", "-batch", "-"], stdin="\n".join(lines).encode())


def _batch(prefix: list[str], *lines: str) -> None:
    done = subprocess.run([*prefix, "/usr/sbin/ip", "-batch", "-"], input="\n".join(lines),
                          capture_output=True, text=True, check=False)
    assert done.returncode == 0, done.stderr
