"""quendil-check finds an error in a file exactly when the program refuses the file, and its first
error is on the line that the program names or on the line before it."""

from __future__ import annotations

import json
import re
from pathlib import Path

from support import pattern_text
from support.checking import check
from support.machine import CONFIGURATION, LOG_DIRECTORY, PATTERN_DIRECTORY, Machine
from support.pattern_grammar import PatternMaker

ROOT = Path(__file__).resolve().parents[2]
SHIPPED = sorted((ROOT / "patterns").iterdir())
SEEDS = sorted(path for name in ("pattern", "word")
               for path in (ROOT / "fuzz/seeds" / name).iterdir())


def all_files() -> dict[str, bytes]:
    """The seeds of the fuzzers, 10,000 files of the grammar, and mutations of the shipped files."""
    found = {f"seed_{path.parent.name}_{path.name}": path.read_bytes() for path in SEEDS}
    found |= {f"made_{number:05}": data for number, data in enumerate(PatternMaker(1).files(10000))}
    maker = PatternMaker(2)
    for path in SHIPPED:
        found |= {f"{path.name}_{number:02}": maker.mutation(path.read_bytes())
                  for number in range(40)}
    return found


def refused_by_program(machine: Machine) -> dict[str, int | None]:
    """The files that a run skips, with the line that it names, if it names one."""
    run = machine.run("-t", "no such target")
    assert run.status == 255
    log = machine.read(f"{LOG_DIRECTORY}/quendil.log")
    lines: dict[str, int | None] = {
        Path(path).name: int(line)
        for path, line in re.findall(r"^ZEPA138-W:filename = (.*), line no = (\d+)\.$", log, re.M)}
    for path in re.findall(r"^ZEPA139-W:Invalid format number\((.*)\)\.$", log, re.M):
        lines[Path(path).name] = None
    for path in re.findall(r"^ZEPA159-W:.* skip the file \((.*)\)\.$", log, re.M):
        lines[Path(path).name] = None
    return lines


def findings(machine: Machine, *arguments: str) -> list[dict]:
    """What quendil-check finds."""
    done = check(machine, "--offline", "--format=json", *arguments)
    assert done.status in (0, 1), done.stderr
    return json.loads(done.stdout)["findings"]


def first_errors(found: list[dict]) -> dict[str, int]:
    """The line of the first error of each file; 1 for an error of the whole file."""
    lines: dict[str, int] = {}
    for finding in found:
        if finding["level"] == "error":
            lines.setdefault(Path(finding["file"]).name, finding.get("line", 1))
    return lines


def test_an_error_is_found_exactly_where_the_program_refuses_a_pattern(machine: Machine):
    files = all_files()
    machine.no_patterns()
    for name, data in files.items():
        machine.file(f"{PATTERN_DIRECTORY}/{name}", data)
    refused = refused_by_program(machine)
    found = first_errors(findings(machine, PATTERN_DIRECTORY))
    assert len(files) > 11000 and 1000 < len(refused) < len(files) - 1000
    wrong = {name: (refused.get(name, "accepted"), found.get(name, "no error"), data)
             for name, data in files.items() if (name in refused) != (name in found)}
    assert wrong == {}
    misplaced = {name: (line, found[name], files[name]) for name, line in refused.items()
                 if line is not None and found[name] not in (line, line - 1)}
    assert misplaced == {}


SETTINGS = [
    b"", b"#\n", b"\n", b"#\n\n", b" \n", b"\r\n", b"#\ttab\n", b"# \xc3\xa4\n", b"#\xff\n", b"#\0\n",
    b"#" * 1024 + b"\n", b"#" * 1025 + b"\n", b"#" * 5000 + b"\n", b"x\n", b"QUENDIL_CLEANUP\n",
    b"QUENDIL_CLEANUP=\n", b"QUENDIL_CLEANUP= ON\n", b"QUENDIL_CLEANUP=ON\n",
    b"QUENDIL_CLEANUP=ON\r\n", b"QUENDIL_CLEANUP=on\n", b"QUENDIL_CLEANUP=ON\nQUENDIL_CLEANUP=ON\n",
    b"QUENDIL_NONE=1\n", b"QUENDIL_MAX_OUTPUT_DATA_SIZE=007\n", b"QUENDIL_MAX_OUTPUT_DATA_SIZE=-1\n",
    b"QUENDIL_MAX_OUTPUT_DATA_SIZE=-2\n", b"QUENDIL_MAX_OUTPUT_DATA_SIZE=2147483648\n",
    b"QUENDIL_MAX_OUTPUT_DATA_SIZE=1 \n", b"QUENDIL_DATA_DIRECTORY=/tmp\n",
    b"QUENDIL_DATA_DIRECTORY=tmp\n", b"QUENDIL_DATA_DIRECTORY=\"/tmp\"\n",
    b"QUENDIL_DATA_DIRECTORY=/%FOO%\n", b"QUENDIL_DATA_DIRECTORY=/%HOST\n",
    b"QUENDIL_DATA_DIRECTORY=/" + b"x" * 260 + b"\n", b"QUENDIL_DATA_DIRECTORY=/%HOST%" + b"x" * 252,
]


def test_an_error_is_found_exactly_where_the_program_refuses_a_configuration(machine: Machine):
    maker = PatternMaker(3)
    shipped = (ROOT / "config/quendil_conf").read_bytes()
    machine.no_patterns()
    machine.pattern("10_demo", pattern_text.pattern(pattern_text.data("/etc/os-release")))
    texts = [*SETTINGS, *(b"# first\n" + text for text in SETTINGS),
             *(maker.mutation(shipped) for _ in range(60))]
    refusals = 0
    for text in texts:
        machine.file(CONFIGURATION, text)
        run = machine.run("-t", "no such target")
        line = re.search(r"^ZEPA120-E:filename = .*, line no = (\d+)\.$", run.stderr, re.M)
        found = first_errors(findings(machine, "-c", CONFIGURATION))
        expected = {} if line is None else {Path(CONFIGURATION).name: int(line.group(1))}
        assert found == expected, text
        refusals += line is not None
    assert refusals > 30
