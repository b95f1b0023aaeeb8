"""Data that is the same on every machine: files whose content compresses like logs."""

from __future__ import annotations

import os
import random
from collections.abc import Iterator
from dataclasses import dataclass
from pathlib import Path

SEED = 20261123
POOL = 4 << 20  # bytes of text from which all files are taken

HOSTS = ("web01", "web02", "db01", "mail")
LINES = (
    "sshd[{a}]: Accepted publickey for user{b} from 10.{c}.{d}.{e} port {f} ssh2",
    "sshd[{a}]: Connection closed by 10.{c}.{d}.{e} port {f} [preauth]",
    "kernel: [{a}.{f}] eth{c}: link is up at 1000 Mbps, full duplex, flow control rx/tx",
    "kernel: [{a}.{f}] EXT4-fs (sda{c}): re-mounted. Opts: errors=remount-ro",
    "systemd[1]: session-{a}.scope: Consumed {d}.{e}s CPU time.",
    "cron[{a}]: (user{b}) CMD (/usr/lib/backup/run --level {c} >/dev/null 2>&1)",
    'nginx: 10.{c}.{d}.{e} "GET /shop/item/{f}?page={b} HTTP/1.1" 200 {a}{d} "Mozilla/5.0"',
    'nginx: 10.{c}.{d}.{e} "POST /api/v1/orders/{a} HTTP/1.1" 502 {f} "curl/7.88.1"',
    "postgres[{a}]: LOG:  checkpoint complete: wrote {f} buffers ({c}.{d}%); sync={e}.{b} s",
    "postfix/smtp[{a}]: {f}A{b}: to=<user{b}@example.com>, relay=10.{c}.{d}.{e}:25, status=sent",
)


def _lines(seed: int) -> Iterator[str]:
    """Lines of a log without end. Only `random()` is used: its numbers never change."""
    dice = random.Random(seed)

    def below(limit: int) -> int:
        return int(dice.random() * limit)

    seconds = 0
    while True:
        seconds += below(4)
        clock = f"{seconds // 3600 % 24:02}:{seconds // 60 % 60:02}:{seconds % 60:02}"
        text = LINES[below(len(LINES))].format(a=below(30000), b=below(60), c=below(8),
                                               d=below(256), e=below(256), f=below(65536))
        yield f"Nov {seconds // 86400 % 28 + 1:2} {clock} {HOSTS[below(len(HOSTS))]} {text}\n"


class LogText:
    """A text like that of logs, from which files are taken one after the other."""

    def __init__(self, seed: int = SEED, size: int = POOL) -> None:
        lines = []
        length = 0
        for line in _lines(seed):
            if length >= size:
                break
            lines.append(line)
            length += len(line)
        self._text = "".join(lines).encode()
        self._at = 0

    def take(self, size: int) -> bytes:
        """The next bytes; after its end the text begins again."""
        parts = []
        while size > 0:
            part = self._text[self._at:self._at + size]
            parts.append(part)
            size -= len(part)
            self._at = (self._at + len(part)) % len(self._text)
        return b"".join(parts)


@dataclass(frozen=True)
class Files:
    """Files that were made: how many, and their bytes in all."""

    count: int
    size: int


def make_tree(top: Path, count: int, size: int, in_each: int, owner: int = 0) -> Files:
    """Makes files of `size` bytes, so many in each directory; all belong to the user `owner`."""
    text = LogText()
    _directory(top, owner)
    directory = top
    for number in range(count):
        if number % in_each == 0:
            directory = _directory(top / f"d{number // in_each:04}", owner)
        _file(f"{directory}/f{number:06}.log", text.take(size), owner)
    return Files(count, count * size)


def make_chain(top: Path, depth: int, in_each: int, size: int) -> Files:
    """Makes directories that are nested so deep, with so many files in each."""
    text = LogText()
    start = os.open(".", os.O_RDONLY | os.O_DIRECTORY)
    _directory(top, 0)
    os.chdir(top)
    for _ in range(depth):
        _directory(Path("d"), 0)
        os.chdir("d")
        for number in range(in_each):
            _file(f"{number}", text.take(size), 0)
    os.fchdir(start)
    os.close(start)
    return Files(depth * in_each, depth * in_each * size)


def _directory(path: Path, owner: int) -> Path:
    path.mkdir(mode=0o755)
    os.chown(path, owner, owner)
    return path


def _file(path: str, content: bytes, owner: int) -> None:
    descriptor = os.open(path, os.O_WRONLY | os.O_CREAT | os.O_EXCL, 0o644)
    os.write(descriptor, content)
    if owner != 0:
        os.fchown(descriptor, owner, owner)
    os.close(descriptor)
