"""The archive by symptom: the document names existing items only, and the manual the same ones."""

from __future__ import annotations

import fnmatch
import functools
import re
from pathlib import Path

import pytest
from support.check_patterns import PatternFile

ROOT = Path(__file__).resolve().parents[2]
DOCUMENT = (ROOT / "docs/by-symptom.md").read_text()
PAGE = (ROOT / "man/quendil_archive.7").read_text()
MOST_ITEMS = 12


def items_of(target: str, path: str) -> str:
    """The path in the archive of what a data item with this path collects."""
    return f"{target}/{path.removeprefix('%d%/').lstrip('/')}"


@functools.cache
def collected() -> set[str]:
    """The path in the archive of every shipped item, which may be a wildcard."""
    files = [PatternFile(path.name, path.read_bytes()) for path in (ROOT / "patterns").iterdir()]
    return {items_of(block.text("TARGET"), item.text("PATH_NAME"))
            for file in files for block in file.blocks for item in block.children
            if item.kind == "DATA_BLOCK"}


def is_collected(path: str, items: set[str]) -> bool:
    """Whether one of the items collects it: the item itself, or a directory above it."""
    ways = [path, *map(str, Path(path).parents)]
    return any(fnmatch.fnmatchcase(way, item) for way in ways for item in items)


def symptoms() -> dict[str, list[str]]:
    """The lines of every symptom of the document."""
    parts = DOCUMENT.split("\n## ")[1:]
    return {part.splitlines()[0]: part.splitlines()[2:] for part in parts}


def first_paths(line: str) -> list[str]:
    """The paths that a line of the document begins with."""
    return re.findall(r"`([^`]+)`", line.partition(": ")[0])


def named(text: str) -> set[str]:
    """All paths of items in a text of the document."""
    targets = {item.partition("/")[0] for item in collected()}
    return {word for word in re.findall(r"`([^`\s]+)`", text)
            if word.partition("/")[0] in targets and "/" in word}


def test_a_path_is_found_by_the_item_that_collects_it():
    items = {"storage/df.txt", "performance/proc/pressure", "network/proc/net/snmp*"}
    for path in ("storage/df.txt", "performance/proc/pressure/io", "network/proc/net/snmp6"):
        assert is_collected(path, items)
    for path in ("storage/df", "storage", "memory/df.txt", "performance/proc/pressures"):
        assert not is_collected(path, items)


def test_every_item_that_the_document_names_is_collected():
    items = collected()
    assert len(named(DOCUMENT)) > 80
    assert [path for path in sorted(named(DOCUMENT)) if not is_collected(path, items)] == []


@pytest.mark.parametrize("symptom, lines", symptoms().items())
def test_a_symptom_has_a_short_list_of_items_each_with_a_hint(symptom: str, lines: list[str]):
    assert 1 < len(lines) <= MOST_ITEMS, symptom
    for number, line in enumerate(lines, 1):
        assert line.startswith(f"{number}. `"), line
        assert set(first_paths(line)) <= named(line), line
        assert re.search(r"`: \S.*\.$", line), line


def test_the_manual_names_the_same_items_in_the_same_order():
    parts = PAGE.split(".Sh COLUMNS")[0].split("\n.Ss ")[1:]
    page = {part.splitlines()[0]: [re.findall(r"^\.Pa (\S+)", item, re.M)
                                   for item in part.split("\n.It\n")[1:]] for part in parts}
    assert page == {symptom: [first_paths(line) for line in lines]
                    for symptom, lines in symptoms().items()}
    assert list(page) == list(symptoms())


def written() -> set[tuple[str, str]]:
    """The path in the archive of every item that a command of quendil writes, with the command."""
    files = [PatternFile(path.name, path.read_bytes()) for path in (ROOT / "patterns").iterdir()]
    return {(items_of(block.text("TARGET"), item.text("REDIRECT_PATH")), found[1])
            for file in files for block in file.blocks for item in block.children
            if item.kind == "TOOL_BLOCK"
            and (found := re.search(r"/tool/run .*?-c (\w+)", item.text("COMMAND_LINE")))}


def test_the_manual_names_the_page_of_the_command_that_writes_an_item():
    part = PAGE.split(".Sh COLUMNS")[1].split(".Sh SEE ALSO")[0]
    pages = set(re.findall(r"^\.It Pa (\S+)\n\.Xr quendil_(\w+) 8$", part, re.M))
    assert len(pages) == part.count(".It ") > 10
    assert pages <= written()
    commands = {path.name for path in (ROOT / "tools").iterdir()}
    with_columns = {command for _, command in written() & pages}
    assert {"load", "expiry", "descriptors", "pci"} <= with_columns <= commands
