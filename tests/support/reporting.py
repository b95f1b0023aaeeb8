"""Runs of quendil-report, and small archives for it."""

from __future__ import annotations

import io
import os
import re
import subprocess
import sys
import tarfile
from base64 import b64encode
from collections.abc import Mapping
from dataclasses import dataclass
from hashlib import sha256
from pathlib import Path

from .checking import MEASURE

REPORT = "opt/norvale/quendil/bin/quendil-report"

#: Seconds for one run: with sanitizers, large archives take long on a busy machine.
PATIENCE = 300

#: The beginning of a run, and the name of its result.
STARTED = "2026/11/23 16:25:38"
NAME = "vm_261123162538"

Content = str | bytes
Files = Mapping[str, Content]


@dataclass(frozen=True)
class Reported:
    """What a run of quendil-report has printed."""

    status: int
    stdout: str
    stderr: str


def report(*arguments: str | Path, directory: Path | None = None) -> Reported:
    """Runs quendil-report on this machine to its end, with any exit status."""
    program = Path(os.environ["QUENDIL_STAGE"]) / REPORT
    done = subprocess.run([program, *arguments], capture_output=True, cwd=directory, check=False,
                          timeout=PATIENCE)
    return Reported(done.returncode, done.stdout.decode(), done.stderr.decode())


def memory(*arguments: str | Path) -> int:
    """The most memory in KiB that a run of quendil-report has used."""
    program = Path(os.environ["QUENDIL_STAGE"]) / REPORT
    # A small process in between: a child's maximum begins with that of its parent.
    done = subprocess.run([sys.executable, "-c", MEASURE, program, *arguments], capture_output=True, text=True,
                          check=True, timeout=PATIENCE)
    return int(done.stdout.split()[1])


def log_text(started: str = STARTED, arguments: str = "-g linux") -> str:
    """The beginning of a run log."""
    return (f"ZEPA201-I:quendil [Ver. 01-02] started at {started}.\n"
            f"ZEPA204-I:quendil argument is \"{arguments}\".\n")


def tar_bytes(files: Files, name: str = NAME, started: str = STARTED, gzip: bool = True) -> bytes:
    """An archive in the format of GNU tar, with a run log unless `files` has one."""
    out = io.BytesIO()
    members = {"quendil.log": log_text(started), **files}
    with tarfile.open(fileobj=out, mode="w:gz" if gzip else "w", format=tarfile.GNU_FORMAT) as tar:
        for path, content in members.items():
            data = content if isinstance(content, bytes) else content.encode()
            member = tarfile.TarInfo(f"{name}/{path}")
            member.size = len(data)
            tar.addfile(member, io.BytesIO(data))
    return out.getvalue()


def make_archive(directory: Path, files: Files, name: str = NAME, started: str = STARTED,
                 gzip: bool = True) -> Path:
    """Writes such an archive, under the name that the collector would give it."""
    path = directory / f"{name}.tar{'.gz' if gzip else ''}"
    path.write_bytes(tar_bytes(files, name, started, gzip))
    return path


def make_directory(directory: Path, files: Files, name: str = NAME) -> Path:
    """Writes the same as the directory of a run that was not packed."""
    path = directory / name
    for inside, content in {"quendil.log": log_text(), **files}.items():
        file = path / inside
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_bytes(content if isinstance(content, bytes) else content.encode())
    return path


def allowed_parts(page: Path) -> list[str]:
    """The scripts and styles of a page, without its data blocks; its policy must name each."""
    text = page.read_text()
    policy = re.search(r'Content-Security-Policy content="([^"]*)"', text)
    assert policy is not None
    directives = dict(part.split(" ", 1) for part in policy[1].split("; "))
    parts = re.findall(r"<(script|style)>(.*?)</\1>", text, re.S)
    for element, inside in parts:
        digest = b64encode(sha256(inside.encode()).digest()).decode()
        assert f"'sha256-{digest}'" in directives[f"{element}-src"].split(), element
    return sorted(element for element, _ in parts)
