"""Storage that speaks S3, on the controller of a fleet: OpenStack Swift, of Debian's package
python3-swift.

It checks signatures and checksums, knows conditional writes, and gives each user only the access
that the bucket's owner allowed.
"""

from __future__ import annotations

import importlib.util
import os
import time
from pathlib import Path

from . import fleet_network
from .fleet import Finished, Fleet
from .fleet_host import FleetHost
from .machine import ENVIRONMENT
from .run import Capture, wait_until
from .sandbox import Order

#: The servers behind the proxy, as the rings of object_storage_program.py have them.
BEHIND = {"account": 6202, "container": 6201, "object": 6200}
PORTS = {**BEHIND, "proxy": 8080}
ENDPOINT = f"http://{fleet_network.CONTROLLER}:{PORTS['proxy']}"
ACCOUNT = "archives"
OWNER, WRITER, READER = (f"{ACCOUNT}:{name}" for name in ("owner", "writer", "reader"))
SECRETS = {OWNER: "owner/secret+1", WRITER: "writer/secret+2", READER: "reader/secret+3"}
BUCKET = "nightly"
REGION = "us-east-1"

PROGRAM = Path(__file__).with_name("object_storage_program.py")

PROXY = """\
[DEFAULT]
bind_ip = 0.0.0.0
bind_port = {port}
user = root
workers = 0
[pipeline:main]
pipeline = catch_errors cache s3api tempauth copy slo proxy-server
[app:proxy-server]
use = egg:swift#proxy
account_autocreate = true
[filter:catch_errors]
use = egg:swift#catch_errors
[filter:cache]
paste.filter_factory = object_storage_program:cache_factory
[filter:s3api]
use = egg:swift#s3api
location = {region}
[filter:tempauth]
use = egg:swift#tempauth
{users}
[filter:copy]
use = egg:swift#copy
[filter:slo]
use = egg:swift#slo
"""

SERVER = """\
[DEFAULT]
bind_ip = 127.0.0.1
bind_port = {port}
user = root
workers = 0
devices = {devices}
mount_check = false
[pipeline:main]
pipeline = {kind}-server
[app:{kind}-server]
use = egg:swift#{kind}
"""


def is_available() -> bool:
    """Whether this machine has the package."""
    return importlib.util.find_spec("swift") is not None


class ObjectStorage:
    """The storage, with one bucket: `WRITER` may only write to it, `READER` only read and list."""

    def __init__(self, fleet: Fleet) -> None:
        self.fleet = fleet
        self._controller: FleetHost = fleet.controller
        self._log = Capture("storage")
        self.disk = fleet.directory / "storage"
        (self.disk / "disk").mkdir(parents=True)
        self._configure()
        self._python("rings")
        self._servers: dict[str, int] = {}
        for kind in PORTS:
            self._spawn(kind)
        for kind in PORTS:
            self._wait(kind)
        self._make_bucket()

    def _configure(self) -> None:
        own = self._controller
        own.file("/etc/swift/swift.conf", "[swift-hash]\nswift_hash_path_suffix = x\n")
        users = "\n".join(
            f"user_{name.replace(':', '_')} = {secret}{' .admin' if name == OWNER else ''}"
            for name, secret in SECRETS.items())
        own.file("/etc/swift/proxy.conf", PROXY.format(port=PORTS['proxy'], region=REGION, users=users))
        for kind, port in BEHIND.items():
            own.file(f"/etc/swift/{kind}.conf",
                     SERVER.format(port=port, devices=self.disk, kind=kind))

    def _order(self, *arguments: str) -> Order:
        return Order(argv=["/usr/bin/python3", "-B", str(PROGRAM), *arguments],
                     env={**ENVIRONMENT, "PYTHONPATH": str(PROGRAM.parent)})

    def _python(self, *arguments: str) -> None:
        order = self._order(*arguments)
        done = self.fleet.run(order.argv, env=order.env)
        assert done.status == 0, done

    def _spawn(self, kind: str) -> None:
        output = self._log.descriptor
        with open(os.devnull, "rb") as nothing:
            self._servers[kind] = self._controller.sandbox.spawn(
                self._order(kind), nothing.fileno(), output, output)

    def _wait(self, kind: str) -> None:
        wait_until(lambda: self._answers(kind), 60.0, f"the storage's {kind} server")

    def start(self, kind: str = "proxy") -> None:
        """Starts one of the servers again and waits until it answers."""
        self._spawn(kind)
        self._wait(kind)

    def _answers(self, kind: str) -> bool:
        ended = self._controller.sandbox.wait(self._servers[kind], 0) is not None
        assert not ended, f"the storage's {kind} server ended: {self.log()}"
        return fleet_network.listens(self._controller, PORTS[kind])

    def stop(self, kind: str = "proxy") -> None:
        """Ends one of the servers at once."""
        self._controller.sandbox.kill(self._servers[kind], 9)
        assert self._controller.sandbox.wait(self._servers.pop(kind), 10.0) is not None

    def log(self) -> str:
        """What the servers said."""
        return self._log.read().decode(errors="replace")

    def _make_bucket(self) -> None:
        answer = self._curl("-H", f"X-Auth-User: {OWNER}", "-H", f"X-Auth-Key: {SECRETS[OWNER]}",
                            f"{ENDPOINT}/auth/v1.0")
        token = next(line.split(": ")[1].strip() for line in answer.stdout.splitlines()
                     if line.lower().startswith("x-auth-token:"))
        self._curl("-X", "PUT", "-H", f"X-Auth-Token: {token}",
                   "-H", f"X-Container-Write: {WRITER}", "-H", f"X-Container-Read: {READER}",
                   f"{ENDPOINT}/v1/AUTH_{ACCOUNT}/{BUCKET}")

    def _curl(self, *arguments: str) -> Finished:
        done = self.fleet.run(["curl", "-sSi", "--fail", *arguments])
        assert done.status == 0, (done, self.log())
        return done

    def objects(self) -> dict[str, bytes]:
        """All objects of the bucket, by name, as rclone reads them."""
        target = self.fleet.directory / f"objects{time.monotonic_ns()}"
        self.pull(target)
        return {str(path.relative_to(target)): path.read_bytes()
                for path in target.rglob("*") if path.is_file()}

    def pull(self, target: Path) -> None:
        """Copies what is new in the bucket into a directory of the controller."""
        done = self.fleet.run(["rclone", *rclone(READER), "copy", "--immutable", "--max-size", "5G",
                               f":s3:{BUCKET}", target])
        assert done.status == 0, (done, self.log())


def rclone(user: str) -> list[str]:
    """The options with which rclone reaches the storage as that user, without a file of its own."""
    return ["--config", "", "--s3-provider", "Other", "--s3-endpoint", ENDPOINT,
            "--s3-access-key-id", user, "--s3-secret-access-key", SECRETS[user],
            "--s3-region", REGION, "--s3-force-path-style"]
