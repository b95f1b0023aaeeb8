"""Archives as quendil makes them, for the tests of quendil-report."""

from __future__ import annotations

import io
import tarfile
from collections.abc import Iterable
from dataclasses import dataclass, field
from pathlib import Path

TIME = "261123162538"


@dataclass
class Tool:
    """A tool in the run log."""
    command: str
    output: str = ""  # the item with its output
    start: int = 0    # seconds since the start of the run
    seconds: int = 0
    code: int = 0
    timed_out: bool = False


def clock(seconds: int) -> str:
    return f"2026/11/23 16:{25 + (38 + seconds) // 60:02}:{(38 + seconds) % 60:02}"


@dataclass
class Archive:
    """The members of an archive, in order, below one top directory. Links are not followed."""
    host: str = "web-7"
    members: list[tuple[tarfile.TarInfo, bytes]] = field(default_factory=list)
    records: list[str] = field(default_factory=list)  # of the index

    @property
    def top(self) -> str:
        return f"{self.host}_{TIME}"

    def member(self, name: str, kind: bytes = tarfile.REGTYPE, content: bytes = b"",
               target: str = "") -> None:
        """A member with any name."""
        info = tarfile.TarInfo(name)
        info.type = kind
        info.size = len(content)
        info.linkname = target
        info.mtime = 1795451138
        self.members.append((info, content))

    def file(self, name: str, content: bytes | str, description: str = "") -> None:
        """An item, with a record in the index if it has a description."""
        self.member(f"{self.top}/{name}",
                    content=content.encode() if isinstance(content, str) else content)
        if description:
            self.records.append(f"FILE:{name}\nDESC:{description}\nDATE:{TIME}\nTYPE:text\n")

    def finish(self, tools: Iterable[Tool] = (), warnings: Iterable[str] = ()) -> None:
        """Adds the index and the run log."""
        self.file("quendil_index",
                  "quendil [Ver. 01-02]\nquendil -g linux\n\n" + "\n".join(self.records))
        self.file("quendil.log", self.run_log(tools, warnings))

    def run_log(self, tools: Iterable[Tool], warnings: Iterable[str]) -> str:
        lines = [
            f"ZEPA201-I:quendil [Ver. 01-02] started at {clock(0)}.",
            'ZEPA204-I:quendil argument is "-g linux".',
            "ZEPA202-I:Started initializing.",
            "ZEPA205-I:Summary of parameters.",
            "    Configuration file = /etc/opt/norvale/quendil/config/quendil_conf",
            "    Output path of collected information = /var/opt/norvale/quendil/data/" + self.top,
            "    Max output data size = 8388608 KB",
            "    Cleanup = ON",
            "    Output file = " + self.top,
            "    TARGET = ",
            "    PP_GROUP = linux",
            "    PP_NAME = ",
            "ZEPA203-I:Ended initializing."]
        for tool in tools:
            lines += [
                "ZEPA202-I:Started executing.",
                "ZEPA206-I:Information collecting tool start.",
                f'    Command  = "{tool.command}"',
                f"    Start time = {clock(tool.start)}",
                "    Timeout = 10"]
            if tool.timed_out:
                lines += ["ZEPA126-W:A timeout occurred while information collecting "
                          f"tool({tool.command}) was being executed."]
            lines += [
                "ZEPA207-I:Information collecting tool end.",
                f"    Return code = {tool.code}",
                f"    Status code = {tool.code << 8}",
                f"    End time = {clock(tool.start + tool.seconds)}",
                "ZEPA203-I:Ended executing."]
            if tool.output:
                lines += [
                    "ZEPA202-I:Started collecting.",
                    "ZEPA209-I:It copied collecting data = /var/opt/norvale/quendil/data/"
                    f"{self.top}/{tool.output}. size = 68 bytes.",
                    "ZEPA210-I:Total data size: 68 bytes.",
                    "ZEPA203-I:Ended collecting."]
        lines += [f"ZEPA129-W:A system information({path}) is not found." for path in warnings]
        return "\n".join([*lines, "ZEPA202-I:Started making.\n"])

    def write(self, path: Path, compressed: bool = True) -> Path:
        with tarfile.open(path, "w:gz" if compressed else "w") as out:
            for info, content in self.members:
                out.addfile(info, io.BytesIO(content))
        return path

    def content(self, name: str) -> bytes:
        """The content of an item."""
        return next(content for info, content in self.members
                    if info.name == f"{self.top}/{name}")
