"""The result of a run, member by member: an archive, or a directory that was not packed."""

from __future__ import annotations

import os
import stat
import tarfile
from collections.abc import Iterator
from pathlib import Path
from typing import NamedTuple

KINDS = {
    stat.S_IFREG: "file", stat.S_IFDIR: "directory", stat.S_IFLNK: "link", stat.S_IFIFO: "fifo",
    stat.S_IFSOCK: "socket", stat.S_IFCHR: "character", stat.S_IFBLK: "block",
}
TAR_KINDS = {
    tarfile.REGTYPE: "file", tarfile.AREGTYPE: "file", tarfile.DIRTYPE: "directory",
    tarfile.SYMTYPE: "link", tarfile.LNKTYPE: "hard link", tarfile.FIFOTYPE: "fifo",
    tarfile.CHRTYPE: "character", tarfile.BLKTYPE: "block",
}


class Member(NamedTuple):
    """One entry; `mode` is octal text such as "0644", `target` what a link points to."""

    kind: str
    mode: str
    uid: int
    gid: int
    size: int
    mtime: int
    target: str = ""


class Tree:
    """Entries by name. The top directory itself has the name ""."""

    def __init__(self, top: str, names: list[str], members: dict[str, Member],
                 content: dict[str, bytes]) -> None:
        self.top = top
        self.names = names
        self._members = members
        self._content = content

    def members(self) -> dict[str, Member]:
        """Every entry with its attributes, by its name below the top directory."""
        return dict(self._members)

    def kinds(self) -> dict[str, tuple[str, str]]:
        """Kind and mode of every entry, for tests that need no more."""
        return {name: (member.kind, member.mode) for name, member in self._members.items()}

    def files(self) -> dict[str, bytes]:
        """The content of every regular file, by name."""
        return dict(self._content)

    def read(self, name: str) -> bytes:
        """The content of one regular file."""
        assert name in self._content, f"no file {name!r} among {self.names}"
        return self._content[name]

    def __contains__(self, name: str) -> bool:
        return name in self._members

    def __getitem__(self, name: str) -> Member:
        assert name in self._members, f"no entry {name!r} among {self.names}"
        return self._members[name]


def read_archive(path: Path) -> Tree:
    """The tree in a .tar or .tar.gz file, its names in the archive's order.

    A name that is in the archive twice, or outside its one top directory, is an error: an
    unpacked archive would then differ from what was collected, or litter the directory.
    """
    names: list[str] = []
    members: dict[str, Member] = {}
    content: dict[str, bytes] = {}
    tops: set[str] = set()
    mode = "r:gz" if path.name.endswith(".gz") else "r:"
    with tarfile.open(path, mode, errors="surrogateescape") as archive:
        for entry in archive:
            top, _, name = entry.name.partition("/")
            assert name not in members, f"{entry.name} is in the archive twice"
            tops.add(top)
            names.append(name)
            members[name] = Member(TAR_KINDS[entry.type], f"{entry.mode:04o}", entry.uid,
                                   entry.gid, entry.size, int(entry.mtime), entry.linkname)
            if entry.isreg():
                reader = archive.extractfile(entry)
                assert reader is not None
                content[name] = reader.read()
    assert len(tops) == 1, f"top directories of the archive: {sorted(tops)}"
    return Tree(tops.pop(), names, members, content)


def read_directory(path: Path) -> Tree:
    """The tree in a directory, in the order of names. No link is followed."""
    members: dict[str, Member] = {}
    content: dict[str, bytes] = {}
    for name in _walk(path, ""):
        entry = path / name if name else path
        status = entry.lstat()
        kind = KINDS[stat.S_IFMT(status.st_mode)]
        members[name] = Member(kind, f"{stat.S_IMODE(status.st_mode):04o}", status.st_uid,
                               status.st_gid, status.st_size if kind == "file" else 0,
                               int(status.st_mtime), os.readlink(entry) if kind == "link" else "")
        if kind == "file":
            content[name] = entry.read_bytes()
    return Tree(path.name, list(members), members, content)


def _walk(top: Path, name: str) -> Iterator[str]:
    yield name
    directory = top / name if name else top
    if directory.is_symlink() or not directory.is_dir():
        return
    for child in sorted(os.listdir(directory)):
        yield from _walk(top, f"{name}/{child}" if name else child)
