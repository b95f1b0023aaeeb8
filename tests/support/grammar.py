"""The grammars of the logs and the index, for texts whose content a test cannot know in advance.

Every line must match a rule of the grammar, in its order. Only the error output of a tool is free
text.
"""

from __future__ import annotations

import re
from collections.abc import Iterator

TIME = r"\d{4}/\d\d/\d\d \d\d:\d\d:\d\d"
STAMP = r"\d{12}"

HISTORY_RUN = [
    rf"ZEPA301-I:quendil \[Ver\. 01-02\] started at {TIME}\.",
    r"ZEPA302-I:quendil argument is .*\.",
    r"(ZEPA303-I:Output = /.*\.)?",
    r"ZEPA304-I:quendil exit code = (0|10|20|255)\.",
    rf"ZEPA305-I:quendil ended at {TIME}\.",
]


class Lines:
    """The lines of a text, to be taken one after the other."""

    def __init__(self, text: str) -> None:
        assert text.endswith("\n"), "the last line has no line feed"
        self._lines = text.splitlines()
        self._next = 0

    @property
    def left(self) -> bool:
        """Whether lines are left."""
        return self._next < len(self._lines)

    def take(self, pattern: str) -> str:
        """The next line, which must match; its first group if it has one."""
        found = self.take_if(pattern)
        line = self._lines[self._next] if self.left else "the end"
        assert found is not None, f"line {self._next + 1}: {line!r} is not {pattern!r}"
        return found

    def take_if(self, pattern: str) -> str | None:
        """The next line when it matches, else nothing."""
        match = re.fullmatch(pattern, self._lines[self._next]) if self.left else None
        if match is None:
            return None
        self._next += 1
        return match.group(1) if match.lastindex else match.group()

    def take_while(self, pattern: str) -> list[str]:
        """All lines from here on that match."""
        found = []
        while (line := self.take_if(pattern)) is not None:
            found.append(line)
        return found


WARNING = r"ZEPA(?:12[569]|130|14[0128]|15[2-8])-W:.*"


def read_run_log(text: str) -> list[tuple[str, str]]:
    """The items of a complete run in their order: ("tool", command) and ("data", copied path)."""
    lines = Lines(text)
    lines.take(rf"ZEPA201-I:quendil \[Ver\. 01-02\] started at {TIME}\.")
    lines.take(r'ZEPA204-I:quendil argument is ".*"\.')
    lines.take(r"ZEPA202-I:Started initializing\.")
    lines.take(r"ZEPA205-I:Summary of parameters\.")
    lines.take(r"    Configuration file = /.*")
    lines.take(r"    Output path of collected information = /.*")
    lines.take(r"    Max output data size = -?\d+ KB")
    lines.take(r"    Cleanup = (?:ON|OFF)")
    lines.take(r"    Output file = .*")
    for key in ("TARGET", "PP_GROUP", "PP_NAME"):
        assert lines.take_while(rf"    {key} = .*")
    lines.take(r"ZEPA203-I:Ended initializing\.")
    items = list(_read_items(lines))
    lines.take(r'ZEPA212-I:Deleted data below "/.*"\.')
    lines.take(r"ZEPA203-I:Ended making\.")
    lines.take(r"ZEPA202-I:Started cleaning\.")
    lines.take(r"ZEPA203-I:Ended cleaning\.")
    lines.take(r"ZEPA214-I:Output file = /.*\.tar\.gz\. size = \d+ bytes\.")
    lines.take(rf"ZEPA213-I:quendil ended at {TIME}\. return code = 0\.")
    assert not lines.left
    return items


def _read_items(lines: Lines) -> Iterator[tuple[str, str]]:
    while (phase := lines.take(r"ZEPA202-I:Started (executing|collecting|making)\.")) != "making":
        if phase == "executing":
            yield "tool", _read_tool(lines)
        else:
            lines.take_while(WARNING)
            for path in lines.take_while(
                    r"ZEPA209-I:It copied collecting data = (/.*)\. size = \d+ bytes\."):
                yield "data", path
            lines.take(r"ZEPA210-I:Total data size: \d+ bytes\.")
        lines.take(rf"ZEPA203-I:Ended {phase}\.")


def _read_tool(lines: Lines) -> str:
    lines.take(r"ZEPA206-I:Information collecting tool start\.")
    command = lines.take(r'    Command  = "(.*)"')
    lines.take(rf"    Start time = {TIME}")
    lines.take(r"    Timeout = -?\d+")
    lines.take_while(WARNING)
    lines.take(r"ZEPA207-I:Information collecting tool end\.")
    lines.take(r"    Return code = -?\d+")
    lines.take(r"    Status code = -?\d+")
    lines.take(rf"    End time = {TIME}")
    if lines.take_if(r"ZEPA208-W:Information collecting tool error message\."):
        assert lines.take_while(r"(?!ZEPA203-I:).*")
    return command


def read_history(text: str) -> int:
    """The number of runs in a history log, each of which must have ended."""
    lines = Lines(text)
    runs = 0
    while lines.left:
        for pattern in HISTORY_RUN:
            if pattern.endswith("?"):
                lines.take_if(pattern.removesuffix("?"))
            else:
                lines.take(pattern)
        runs += 1
    return runs


def read_index(text: str) -> list[list[str]]:
    """The files of every record of an index."""
    lines = Lines(text)
    lines.take(r"quendil \[Ver\. 01-02\]")
    lines.take(r"\S.*")
    records = []
    while lines.left:
        lines.take("")
        files = lines.take_while(r"FILE:(.*)")
        assert files
        assert lines.take_while(r"DESC:(.*)")
        lines.take(rf"DATE:{STAMP}")
        lines.take(r"TYPE:\S+")
        records.append([name for name in files if name])
    return records
