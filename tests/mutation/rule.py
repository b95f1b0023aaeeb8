"""A rule of the product: its code, a way to break it, and the tests that must fail then."""

from __future__ import annotations

import re
from dataclasses import dataclass
from pathlib import Path

#: The directories that hold the product's code.
PLACES = ("src", "tools", "patterns", "ansible/plugins", "ansible/roles")


@dataclass(frozen=True)
class Rule:
    """One rule: `code` is replaced by `broken`, and then one of `tests` must fail.

    The code must be in the product exactly once, in any file. White space in it only separates
    words. Where several units have the same code, `unit` is the name of one, without directory and
    suffix.

    Tests are separated by blanks: `unit:PROGRAM`, which may hold a `*`, or `cli:FILE`, or
    `cli:FILE:TEXT` for the tests of the file that have this text in their names; `fleet:` likewise.
    """

    says: str
    code: str
    broken: str
    tests: str
    unit: str | None = None

    def pattern(self) -> re.Pattern[str]:
        """A pattern that matches the code in any formatting."""
        tokens = re.findall(r"\w+|[^\w\s]", self.code)
        pattern = r"(?<!\w)" if is_word(tokens[0]) else ""
        for token, following in zip(tokens, tokens[1:]):
            between = r"\s+" if is_word(token) and is_word(following) else r"\s*"
            pattern += re.escape(token) + between
        return re.compile(pattern + re.escape(tokens[-1]) + (
            r"(?!\w)" if is_word(tokens[-1]) else ""))

    def places(self, texts: dict[Path, str]) -> list[tuple[Path, re.Match[str]]]:
        """Every file and place with the code."""
        pattern = self.pattern()
        return [(path, match) for path, text in texts.items() if self.unit in (None, path.stem)
                for match in pattern.finditer(text)]


def is_word(token: str) -> bool:
    """Whether white space must separate this from another word."""
    return re.fullmatch(r"\w+", token) is not None


def product_texts(root: Path) -> dict[Path, str]:
    """The text of every file of the product in this tree."""
    files = [path for place in PLACES for path in sorted((root / place).rglob("*"))]
    return {path: path.read_text() for path in files if path.is_file() and path.suffix != ".pyc"}


def files_of_test(root: Path, test: str) -> list[Path]:
    """The files of a test such as `unit:PROGRAM`, `cli:FILE:TEXT` or `fleet:FILE:TEXT`."""
    kind, name = test.split(":")[:2]
    pattern = f"tests/unit/*/{name}.cpp" if kind == "unit" else f"tests/{kind}/{name}"
    return sorted(root.glob(pattern))
