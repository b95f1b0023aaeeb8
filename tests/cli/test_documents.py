"""The examples of the documents: the program reads each of them and reports what they say."""

from __future__ import annotations

import json
import re
from pathlib import Path

import pytest
from support import pattern_text
from support.checking import CHECK
from support.machine import CONFIGURATION, PATTERN_DIRECTORY, Machine
from support.run import Run

ROOT = Path(__file__).resolve().parents[2]
COOKBOOK = ROOT / "docs/pattern-cookbook.md"
README = ROOT / "README.md"

DEMO = pattern_text.pattern(pattern_text.data("/etc/os-release"))


def fences(path: Path) -> list[tuple[str, str]]:
    """The kind and the text of every fenced block of a document."""
    return re.findall(r"^```(\w*)\n(.*?)^```$", path.read_text(), re.M | re.S)


def literals(path: Path) -> list[str]:
    """The literal displays of a manual page."""
    found = re.findall(r"^\.Bd -literal.*\n((?:[^.].*\n|\n)*)\.Ed", path.read_text(), re.M)
    return [text.replace("\\e", "\\").replace("\\(dq", '"') for text in found]


def complete(example: str) -> str:
    """A complete pattern file; an example that has only items is put into a block."""
    if example.startswith("FORMAT_VERSION"):
        return example
    return f"FORMAT_VERSION = 1.0\nPP_GROUP = recipe\nBLOCK {{\n{example}}}\n"


def patterns() -> dict[str, str]:
    """Every example of a pattern file, by its document and number."""
    found = {}
    for path in (COOKBOOK, README, *sorted((ROOT / "docs").glob("*.md"))):
        texts = [text for kind, text in fences(path)
                 if kind == "pattern" or kind == "" and text.startswith("FORMAT_VERSION")]
        found |= {f"{path.stem}_{number:02}": text for number, text in enumerate(texts)}
    for path in (ROOT / "man").iterdir():
        texts = [text for text in literals(path) if text.startswith("FORMAT_VERSION")]
        found |= {f"{path.stem}_{number:02}": text for number, text in enumerate(texts)}
    return found


def initializing(run: Run) -> list[str]:
    """The run log's lines of the initializing phase, without the summary of parameters."""
    assert run.log is not None
    part = run.log.split("ZEPA202-I:Started initializing.\n")[1]
    return [line for line in part.partition("ZEPA203-I:")[0].splitlines()
            if not line.startswith(("ZEPA205-I:", "    "))]


def test_every_block_of_the_cookbook_is_of_a_kind_that_is_tested():
    kinds = {kind for kind, _ in fences(COOKBOOK)}
    assert kinds == {"pattern", "mistake", "check", "log", "terminal", "sh"}
    assert {name.rpartition("_")[0] for name in patterns()} == {
        "pattern-cookbook", "README", "quendil_pattern"}


def test_every_example_of_a_pattern_file_is_read_without_a_warning(machine: Machine):
    machine.pattern("00_demo", DEMO)
    for name, text in patterns().items():
        machine.file(f"{PATTERN_DIRECTORY}/{name}", complete(text))
    run = machine.run("-g", "demo")
    assert (run.status, run.stderr) == (0, "")
    assert initializing(run) == []


def test_the_check_finds_no_error_in_any_example(machine: Machine):
    for name, text in patterns().items():
        machine.file(f"/tmp/examples/{name}", complete(text))
    done = machine.exec([CHECK, "--offline", "--format=json", "/tmp/examples"])
    found = json.loads(done.stdout)
    assert found["summary"]["files"] == len(patterns()) > 20
    assert [row for row in found["findings"] if row["level"] == "error"] == []


def test_the_first_pattern_of_the_cookbook_collects(machine: Machine):
    machine.pattern("90_myproduct", fences(COOKBOOK)[0][1])
    run = machine.run("-g", "myproduct")
    assert run.status == 0
    assert run.archive.read("myproduct/etc/os-release") == Path("/etc/os-release").read_bytes()
    assert "FILE:myproduct/etc/os-release\nDESC:Name and version of the distribution\n" in run.index


def test_the_recipes_with_tools_of_the_system_do_what_they_promise(machine: Machine):
    machine.no_patterns()
    for name, text in patterns().items():
        machine.file(f"{PATTERN_DIRECTORY}/{name}", complete(text))
    machine.file("/etc/opt/myproduct/db.conf", "user=shop\npassword=hidden\n")
    run = machine.run("-g", "recipe")
    assert run.status == 0
    archive = run.archive
    assert archive.read("db.conf") == b"user=shop\npassword=(masked)\n"
    assert b"password=****" in archive.read("settings.txt")
    assert archive.read("busy.txt").splitlines()[0].split() == [b"PID", b"%CPU", b"COMMAND"]
    assert archive.read("df.txt").startswith(b"Filesystem ")
    assert archive.read("running.txt") == b"myproductctl: not installed on this machine\n"
    assert archive.read("directories.txt").startswith(b"ls: nothing to show on this machine: ")
    assert archive.read("processes.txt").splitlines()[0].split() == [
        b"PID", b"EUID", b"STAT", b"WCHAN", b"NAME"]
    assert "DESC:Settings of the database, without the password\n" in run.index


def mistakes() -> list[tuple[str, list[tuple[str, str]]]]:
    """Every pattern with a mistake, with the blocks after it that show its reports."""
    found: list[tuple[str, list[tuple[str, str]]]] = []
    for kind, text in fences(COOKBOOK):
        if kind == "mistake":
            found.append((text, []))
        elif kind in ("check", "log", "terminal"):
            found[-1][1].append((kind, text))
    return found


def checked(machine: Machine, pattern: str) -> str:
    """The report of quendil-check about a pattern file with an error."""
    machine.file("/tmp/check/90_myproduct", pattern)
    done = machine.exec(f"cd /tmp/check && {CHECK} --offline 90_myproduct", check=False)
    assert (done.status, done.stderr) == (1, "")
    return done.stdout


@pytest.mark.parametrize("pattern, reported", mistakes(), ids=range(len(mistakes())))
def test_a_mistake_is_reported_as_the_cookbook_says(machine: Machine, pattern: str,
                                                    reported: list[tuple[str, str]]):
    assert [kind for kind, _ in reported][0] == "check" and len(reported) > 1
    machine.pattern("90_myproduct", pattern)
    machine.file(f"{PATTERN_DIRECTORY}/10_demo", DEMO)
    run = machine.run("-g", "myproduct")
    assert run.status == 255
    for kind, text in reported:
        if kind == "check":
            assert checked(machine, pattern) == text
            continue
        assert text in ((run.raw["log"] if kind == "log" else run.stderr) or ""), text


@pytest.mark.parametrize("text", [
    text for text in literals(ROOT / "man/quendil_conf.5") if "QUENDIL_" in text])
def test_an_example_of_a_configuration_file_is_read(machine: Machine, text: str):
    directories = re.findall("^QUENDIL_DATA_DIRECTORY=(.*)", text, re.M)
    for directory in directories:
        machine.directory("/opt/data")
        text = text.replace(directory, "/opt/data")
    machine.pattern("10_demo", DEMO)
    machine.file(CONFIGURATION, text)
    run = machine.run("-g", "demo")
    assert (run.status, run.stderr, initializing(run)) == (0, "", [])
    assert run.result.startswith("/opt/data/")


def test_the_readme_begins_with_both_commands():
    first_screen = (ROOT / "README.md").read_text().splitlines()[:24]
    for name in ("run", "test"):
        assert any(line.startswith(f"sudo scripts/{name} ") for line in first_screen)


def pattern_of_the_readme() -> str:
    return next(text for _, text in fences(README) if text.startswith("FORMAT_VERSION"))


def put_logs(machine: Machine, **logs: str) -> None:
    """Puts logs into /var/log/myproduct."""
    for name, text in logs.items():
        machine.file(f"/opt/log/myproduct/{name}.log", text)
    machine.mount("-t", "overlay", "-o", "lowerdir=/opt/log:/var/log", "log", "/var/log")


def test_the_pattern_of_the_readme_has_ten_lines_and_collects(machine: Machine):
    text = pattern_of_the_readme()
    assert text.count("\n") == 10
    machine.pattern("90_myproduct", text)
    put_logs(machine, a="seen\n")
    run = machine.run("-g", "myproduct")
    assert run.archive.read("myproduct/var/log/myproduct/a.log") == b"seen\n"


def dialogs() -> dict[str, str]:
    """The commands that the README shows with what they print."""
    found = [text for _, text in fences(README) if re.match(r"\$ .*quendil-check", text)]
    return {first[2:]: rest for first, _, rest in (text.partition("\n") for text in found)}


def test_the_readme_shows_what_the_check_prints(machine: Machine):
    command, shown = next(item for item in dialogs().items() if "--offline" in item[0])
    assert command == "quendil-check --offline 90_myproduct"
    wrong = pattern_of_the_readme().replace('"My product"', "My product")
    assert checked(machine, wrong) == shown
    machine.file("/tmp/check/90_myproduct", pattern_of_the_readme())
    done = machine.exec([CHECK, "--offline", "/tmp/check/90_myproduct"])
    assert done.stdout == "1 file: no errors, no warnings\n"


def test_the_readme_shows_what_the_preview_prints(machine: Machine):
    command, shown = next(item for item in dialogs().items() if "--preview" in item[0])
    machine.pattern("90_myproduct", pattern_of_the_readme())
    put_logs(machine, a="x" * 15360, b="x" * 5120)
    printed = machine.exec(command.replace("sudo quendil-check", CHECK)).stdout
    free = re.compile(r"^free space: +\d+\.\d [KMGT]iB ", re.M)
    assert len(free.findall(printed)) == 1
    assert free.sub("free space:", printed) == free.sub("free space:", shown)


def examples_of_the_check() -> list[str]:
    """The commands that the manual page of quendil-check shows."""
    page = ROOT / "man/quendil-check.8"
    lines = re.findall(r"^\.Dl [$#] (.*)$", page.read_text(), re.M)
    lines += [text[2:] for text in literals(page) if text.startswith("$ ")]
    return [line.replace("\\-", "-") for line in lines]


def test_the_examples_of_the_check_run_as_they_are_printed(machine: Machine):
    machine.file("/tmp/desk/90_myproduct", pattern_of_the_readme())
    machine.file("/tmp/desk/patterns/90_myproduct", pattern_of_the_readme())
    machine.link("/tmp/bin/quendil-check", CHECK)
    machine.file("/tmp/bin/sudo", '#!/bin/sh\nexec "$@"\n', 0o755)
    commands = examples_of_the_check()
    assert len(commands) == 6
    for command in commands:
        done = machine.exec(f"cd /tmp/desk && PATH=/tmp/bin:$PATH && {command}", check=False)
        assert (done.status, done.stderr) == (0, ""), command
    assert machine.exists(f"{PATTERN_DIRECTORY}/90_myproduct")
    assert json.loads(machine.read("/tmp/desk/findings.sarif"))["runs"][0]["results"] == []


def test_the_page_of_the_check_shows_a_real_finding():
    shown = next(text for command, text in dialogs().items() if "--offline" in command)
    finding, _, end = shown.rpartition("1 file:")
    assert finding in literals(ROOT / "man/quendil-check.8") and end


def test_the_groups_and_targets_can_be_listed_as_the_readme_says(machine: Machine):
    command = next(text for _, text in fences(README) if "--list" in text)
    assert command == "quendil-check --list\n"
    listed = {tuple(line.split("\t")[:2])
              for line in machine.exec(command.replace("quendil-check", CHECK)).stdout.splitlines()}
    assert {("group", "linux"), ("group", "network"), ("target", "network")} <= listed


def examples_of_commands() -> list[str]:
    """The command lines that the manual pages of the tool directory show."""
    pages = sorted((ROOT / "man").glob("quendil_*.8"))
    lines = [line for page in pages
             for line in re.findall(r"^\.Dl # (.*)$", page.read_text(), re.M)]
    assert not [line for line in lines if '"' in line]  # the page would not show it
    return [line.replace("\\-", "-").replace("\\(dq", '"') for line in lines]


def test_the_examples_of_the_commands_run_as_they_are_printed(machine: Machine):
    commands = examples_of_commands()
    assert len(commands) > 15
    for command in commands:
        done = machine.exec(command, check=False)
        assert (done.status, done.stderr) == (0, ""), command
        assert done.stdout and "usage:" not in done.stdout, (command, done.stdout)
