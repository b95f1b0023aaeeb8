"""The packages of this machine: to which a file belongs, and what a package contains."""

from __future__ import annotations

import os
import re
import subprocess
from collections import defaultdict
from collections.abc import Iterable
from pathlib import Path


def _query(*arguments: str) -> str:
    """What dpkg-query prints; finding nothing for an argument is not an error."""
    return subprocess.run(["dpkg-query", *arguments], capture_output=True, text=True,
                          env={**os.environ, "LC_ALL": "C"}).stdout


def _other_spelling(path: str) -> str:
    """The same file by its other name, where /bin, /sbin and /lib are links into /usr."""
    return path.removeprefix("/usr") if path.startswith("/usr/") else f"/usr{path}"


def owners(paths: Iterable[str]) -> dict[str, set[str]]:
    """The packages of each file, its links followed: of the file itself and of a link that leads to it.

    The set of a file that belongs to no package is empty.
    """
    spellings = {}
    for path in paths:
        real = os.path.realpath(path)
        spellings[path] = [[real, _other_spelling(real)], [path, _other_spelling(path)]]
    asked = sorted({name for row in spellings.values() for names in row for name in names})
    by_file: dict[str, set[str]] = defaultdict(set)
    for line in _query("-S", *asked).splitlines():
        packages, _, file = line.partition(": ")
        if not packages.startswith("diversion by"):
            by_file[file].update(re.sub(r":\w+$", "", name) for name in packages.split(", "))
    found = {}
    for path, (real, link) in spellings.items():
        packages = by_file[real[0]] | by_file[real[1]]
        found[path] = packages and packages | by_file[link[0]] | by_file[link[1]]
    return found


class Packages:
    """The installed packages with what they require. Recommended packages do not count."""

    def __init__(self) -> None:
        fields = ("Package", "db:Status-Status", "Essential", "Priority", "Provides", "Pre-Depends",
                  "Depends")
        self._requires: dict[str, str] = {}
        self._provided: dict[str, set[str]] = defaultdict(set)
        self._minimal = {"apt"}
        form = r"\t".join(f"${{{field}}}" for field in fields) + r"\n"
        for line in _query("-W", "-f", form).splitlines():
            name, status, essential, priority, provides, *requires = line.split("\t")
            if status != "installed":
                continue
            self._requires[name] = ", ".join(text for text in requires if text)
            if essential == "yes" or priority == "required":
                self._minimal.add(name)
            for virtual in re.findall(r"(?:^|, )([\w.+-]+)", provides):
                self._provided[virtual].add(name)

    def is_installed(self, name: str) -> bool:
        """Whether this machine has the package."""
        return name in self._requires

    def minimal_system(self) -> set[str]:
        """A minimal system: essential packages, those with the priority `required`, apt, and what
        these require."""
        return self.with_dependencies(self._minimal)

    def with_dependencies(self, names: Iterable[str]) -> set[str]:
        """The installed packages of these names, with everything that they require."""
        found: set[str] = set()
        left = [name for name in names if self.is_installed(name)]
        while left:
            name = left.pop()
            if name not in found:
                found.add(name)
                left += self._required_by(name)
        return found

    def _required_by(self, name: str) -> set[str]:
        """The packages that one requires: of alternatives the first one that is installed."""
        for_each = []
        for alternatives in self._requires[name].split(", "):
            names = re.findall(r"(?:^|\| )([\w.+-]+)", alternatives)
            for_each.append(next(filter(None, map(self._installed_as, names)), set()))
        return set().union(*for_each)

    def _installed_as(self, name: str) -> set[str]:
        """The packages that a name stands for: of those that provide it only the ones of a minimal
        system, if there are any."""
        if self.is_installed(name):
            return {name}
        return self._provided[name] & self._minimal or self._provided[name]


def named_in(script: Path) -> list[str]:
    """The packages that a script installs, alternatives such as `a|b` as they are."""
    text = script.read_text().replace("\\\n", " ")
    calls = re.findall(r"^(?:need|want)_packages (.*)$", text, re.M)
    return [name.strip('"') for call in calls for name in call.split()]
