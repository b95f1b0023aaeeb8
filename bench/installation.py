"""The installations that are measured, and how they get into a sandbox."""

from __future__ import annotations

import os
import shutil
import subprocess
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parents[1]
PROGRAM = "opt/norvale/quendil/bin/quendil"


class Unusable(Exception):
    """What was asked for cannot be measured here; the text says why."""


def installation(stage: str | None) -> Path:
    """The installation in a directory; without one, that of this tree, built now."""
    found = _build() if stage is None else Path(stage).resolve()
    if not (found / PROGRAM).is_file():
        raise Unusable(f"{stage}: there is no {PROGRAM}")
    return found


def _build() -> Path:
    """Builds the release preset and installs it in build/stage-release, as scripts/test does."""
    stage = ROOT / "build" / "stage-release"
    shutil.rmtree(stage, ignore_errors=True)
    for command in (["--preset", "release"], ["--build", "build/release"],
                    ["--install", "build/release"]):
        done = subprocess.run(["cmake", *command], cwd=ROOT, stdin=subprocess.DEVNULL,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                              env={**os.environ, "DESTDIR": str(stage)}, check=False)
        if done.returncode != 0:
            raise Unusable(f"{done.stdout}cmake {' '.join(command)} failed")
    return stage


def install(stage: Path, root: Path, directory: str = ".") -> None:
    """Copies an installation into a sandbox, below `directory` of its "/opt" and the like."""
    for tree in ("opt", "etc/opt"):
        shutil.copytree(stage / tree, root / tree / directory, symlinks=True, dirs_exist_ok=True)
    own = root / "var/opt" / directory / "norvale/quendil"  # without logs and data of earlier runs
    for name in ("data", "log"):
        (own / name).mkdir(parents=True)
        (own / name).chmod(0o700)


def install_code(root: Path) -> str:
    """Copies this directory into a sandbox, which has none of the host's /tmp; returns its path."""
    place = "/opt/bench-code"
    os.mkdir(root / place[1:])
    for file in [*Path(__file__).parent.glob("*.py"), ROOT / "tests/support/pattern_text.py"]:
        shutil.copy(file, root / place[1:])
    return place


def require_root(command: str) -> None:
    """Ends the program if it is not root's."""
    if os.geteuid() != 0:
        print(f"{command}: run this as root: it mounts file systems in namespaces of its own",
              file=sys.stderr)
        sys.exit(1)
