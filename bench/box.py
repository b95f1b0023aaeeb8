"""What is common to the commands: the installations, and the sandbox in which they are measured."""

from __future__ import annotations

import json
import os
import shutil
import subprocess
import sys
import time
from collections.abc import Iterator, Sequence
from contextlib import contextmanager
from pathlib import Path

from support.sandbox import Order, Sandbox, SandboxServer

HERE = Path(__file__).resolve().parent
ROOT = HERE.parent
PROGRAM = "opt/norvale/quendil/bin/quendil"
CODE = "/opt/bench-code"
FREEING_SECONDS = 30.0


class Unusable(Exception):
    """What was asked for cannot be measured; the text says why."""


# ---- Installations -------------------------------------------------------------------------------


def installation(stage: str | None) -> Path:
    """The installation in a directory; without one, that of this tree, built now."""
    found = _build() if stage is None else Path(stage).resolve()
    if not (found / PROGRAM).is_file():
        raise Unusable(f"{found} has no {PROGRAM}")
    return found


def _build() -> Path:
    """Builds the release preset and installs it where scripts/test does."""
    stage = ROOT / "build" / "stage-release"
    shutil.rmtree(stage, ignore_errors=True)
    for arguments in (["--preset", "release"], ["--build", "build/release"],
                      ["--install", "build/release"]):
        done = subprocess.run(["cmake", *arguments], cwd=ROOT, stdin=subprocess.DEVNULL,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                              env={**os.environ, "DESTDIR": str(stage)}, check=False)
        if done.returncode != 0:
            raise Unusable(f"cmake {' '.join(arguments)}:\n{done.stdout}")
    return stage


def install(stage: Path, root: Path, number: int) -> None:
    """Copies an installation into a sandbox, without the logs and data of its earlier runs."""
    name = f"installation.{number}"
    for tree in ("opt", "etc/opt"):
        shutil.copytree(stage / tree, root / tree / name, symlinks=True)
    for directory in ("data", "log"):
        made = root / "var/opt" / name / "norvale/quendil" / directory
        made.mkdir(parents=True)
        made.chmod(0o700)


# ---- The sandbox ---------------------------------------------------------------------------------


def require_root(command: str) -> None:
    """Ends the program if it is not root's."""
    if os.geteuid() != 0:
        print(f"{command}: run this as root: it makes a sandbox with file systems of its own",
              file=sys.stderr)
        sys.exit(1)


@contextmanager
def sandbox(stages: Sequence[Path], image: str | None = None) -> Iterator[Sandbox]:
    """A sandbox with these installations. At its end nothing is left of it, nor the loop device of
    a file system in `image`."""
    server = SandboxServer()
    try:
        made = server.make_sandbox("bench")
        try:
            for number, stage in enumerate(stages):
                install(stage, made.root, number)
            yield made
        finally:
            made.destroy()
            if image is not None:
                _wait_for_loop_device(image)
    finally:
        server.close()


def _wait_for_loop_device(image: str) -> None:
    """The kernel frees the device a moment after the last process of the sandbox has ended."""
    deadline = time.monotonic() + FREEING_SECONDS
    while any(image in _read(file) for file in Path("/sys/block").glob("loop*/loop/backing_file")):
        if time.monotonic() > deadline:
            raise Unusable(f"the loop device of {image} is still in use")
        time.sleep(0.01)


def _read(file: Path) -> str:
    """The text of a file that may vanish."""
    try:
        return file.read_text()
    except OSError:
        return ""


def events(box: Sandbox, script: str, plan: dict) -> Iterator[dict]:
    """Runs a script of this directory in the sandbox; yields what it reports."""
    os.mkdir(box.root / CODE[1:])  # the sandbox has a /tmp of its own, where this tree may be
    for file in [*HERE.glob("*.py"), ROOT / "tests/support/pattern_text.py"]:
        shutil.copy(file, box.root / CODE[1:])
    reading, writing = os.pipe()
    with open(reading, encoding="utf-8") as reports, open(os.devnull, "rb") as nothing:
        order = Order(argv=[sys.executable, "-B", f"{CODE}/{script}", json.dumps(plan)],
                      env={"PATH": os.defpath})
        pid = box.spawn(order, nothing.fileno(), writing, 2)
        os.close(writing)
        for line in reports:
            event = json.loads(line)
            if "failed" in event:
                raise Unusable(event["failed"])
            yield event
    status = box.wait(pid, 30)
    if status != 0:
        raise Unusable(f"{script} ended with wait status {status}")
