"""The preview of quendil-check: the items of the next run, in its order, and their sums. And its
list of groups and targets."""

from __future__ import annotations

import fnmatch
import json
import re
from functools import cache
from pathlib import Path

import pytest
from support import pattern_text
from support.checking import CHECK, check, decoded, used
from support.machine import DATA_DIRECTORY, LOG_DIRECTORY, PATTERN_DIRECTORY, Machine

ROOT = Path(__file__).resolve().parents[2]
TOOLS = "/opt/norvale/quendil/tool"


def preview(machine: Machine, *arguments: str) -> dict:
    """A preview that finds nothing."""
    done = check(machine, "--preview", "--format=json", *arguments)
    assert (done.status, done.stderr) == (0, ""), done
    return decoded("preview", done.stdout)


@cache
def selections() -> list[tuple[str, str]]:
    """Every group and target of the shipped patterns."""
    text = "".join(path.read_text() for path in sorted((ROOT / "patterns").iterdir()))
    found = [("-g", name) for name in re.findall(r"^PP_GROUP *= *(\w+)$", text, re.M)]
    found += [("-t", name) for name in re.findall(r"^ *TARGET *= *(\w+)$", text, re.M)]
    return list(dict.fromkeys(found))


class LoggedItem:
    """An item of a real run, as its log shows it."""

    def __init__(self, kind: str, lines: list[str]) -> None:
        self.kind = "tool" if kind == "executing" else "data"
        text = re.sub(rf"{DATA_DIRECTORY}/[^/\s\"]+(/[\w]+)?", "%d%", "\n".join(lines))
        self.command = re.findall(r'^    Command  = "(.*)"$', text, re.M)
        self.missing = re.findall(r"^ZEPA129-W:A system information\((.*)\) is not found\.$", text, re.M)
        self.copied = re.findall(
            r"^ZEPA209-I:It copied collecting data = (.*)\. size = (\d+) bytes\.$", text, re.M)
        self.failed = re.findall(r"^ZEPA151-E:Additional information, path = (.*)\.$", text, re.M)

    def is_item(self, item: dict) -> bool:
        """Whether this is the item of a preview."""
        if item["kind"] != self.kind:
            return False
        if self.kind == "tool":
            return self.command == [item["command"]]
        paths = [path for path, _ in self.copied] + self.failed
        if not paths:
            # An item whose files an earlier item has brought shows none.
            return not self.missing or self.missing == [item["path"]]
        parts = [paths[0].split("/")[:len(item["path"].split("/"))]]
        return fnmatch.fnmatchcase("/".join(parts[0]), item["path"])


def logged_items(machine: Machine) -> list[LoggedItem]:
    """The items of the last run, in their order."""
    log = machine.read(f"{LOG_DIRECTORY}/quendil.log")
    return [LoggedItem(kind, lines.splitlines()) for kind, lines in re.findall(
        r"^ZEPA202-I:Started (executing|collecting)\.\n((?:(?!ZEPA202-I:).*\n)*)", log, re.M)]


def check_equal(machine: Machine, previewed: dict) -> None:
    """The items of a preview are those of the last run."""
    logged = logged_items(machine)
    wrong = [(item, vars(real)) for item, real in zip(previewed["items"], logged)
             if not real.is_item(item)]
    assert wrong == []
    assert len(previewed["items"]) == len(logged) > 0


@pytest.mark.parametrize("option, name", selections())
def test_the_items_of_a_preview_are_those_of_the_next_run(machine: Machine, option: str, name: str):
    # Which items there are does not depend on what the tools print.
    for tool in ("run", "show", "sql", "jvm"):
        machine.file(f"{TOOLS}/{tool}", "#!/bin/sh\n", mode=0o755)
    previewed = preview(machine, option, name)
    assert machine.run(option, name).status == 0
    check_equal(machine, previewed)


def test_the_items_of_the_templates_are_those_of_the_next_run(machine: Machine):
    machine.no_patterns()
    for path in (ROOT / "templates").iterdir():
        if path.name != "quendil_conf":
            # The run starts later than the preview.
            text = re.sub("%(YY|MM|DD|hh|mm|ss)%", r"\1", path.read_text())
            machine.file(f"{PATTERN_DIRECTORY}/{path.name}", text)
    rows = [line.split("\t") for line in check(machine, "--list").stdout.splitlines()]
    groups = list(dict.fromkeys(row[1] for row in rows if row[0] == "group"))
    assert groups
    arguments = [word for name in groups for word in ("-g", name)]
    previewed = preview(machine, *arguments)
    assert machine.run(*arguments).status == 0
    check_equal(machine, previewed)


def test_the_sizes_of_a_preview_are_those_of_the_next_run(machine: Machine):
    for number in range(3):
        machine.file(f"/opt/data/{number}.log", "x" * (100 + number))
    machine.file("/opt/data/below/deep", "y" * 50)
    machine.file("/opt/users/own", "z" * 7, owner=(1000, 1000))
    machine.link("/opt/data/link", "/opt/users/own")
    machine.fifo("/opt/data/fifo")
    machine.pattern("10_first", pattern_text.pattern(
        pattern_text.block(
            pattern_text.data("/opt/data/*.log"), pattern_text.data("/opt/data"),
            pattern_text.data("/opt/data/0.log"), pattern_text.data("/opt/none*"),
            pattern_text.data("/proc/version"))))
    machine.pattern("20_second", pattern_text.pattern(
        pattern_text.block(pattern_text.data("/opt/data/1.log"), targets=["other"])))
    previewed = preview(machine, "-g", "demo")
    sizes = [(item["files"], item["bytes"], item["kernel_files"], item["unreadable"], item["found"])
             for item in previewed["items"]]
    assert sizes == [(3, 303, 0, 0, True), (2, 57, 0, 1, True), (0, 0, 0, 0, True),
                     (0, 0, 0, 0, False), (1, 0, 1, 0, True), (1, 101, 0, 0, True)]
    assert previewed["totals"]["files"] == 7 and previewed["totals"]["known_bytes"] == 461
    assert previewed["totals"]["most_bytes"] == 461 + (64 << 20)
    assert previewed["totals"]["most_seconds"] == 0
    assert machine.run("-g", "demo").status == 0
    check_equal(machine, previewed)
    copied = sum(int(size) for item in logged_items(machine) for _, size in item.copied)
    assert copied == previewed["totals"]["known_bytes"]


def test_the_bounds_of_tools(machine: Machine):
    machine.pattern("10_demo", """FORMAT_VERSION = 1.0
PP_GROUP = demo
BLOCK {
    TOOL_BLOCK {
        COMMAND_LINE = "/opt/norvale/quendil/tool/run -m -l 3 df -h"
        REDIRECT_PATH = "%d%/a"
        TIMEOUT = 60
        WAIT_TERMINATION = 5
    }
    TOOL_BLOCK {
        COMMAND_LINE = "/opt/norvale/quendil/tool/run -e /x -ml4 df %d%"
        TIMEOUT = 20
    }
    TOOL_BLOCK {
        COMMAND_LINE = "/opt/norvale/quendil/tool/show -l 2 /etc/hosts"
        REDIRECT_PATH = "%d%/b"
    }
    TOOL_BLOCK {
        COMMAND_LINE = "/bin/true"
        REDIRECT_PATH = "/dev/null"
    }
    DATA_BLOCK {
        PATH_NAME = "%d%/./a"
    }
    DATA_BLOCK {
        PATH_NAME = "%d%/../../.."
    }
}
""")
    previewed = preview(machine, "-g", "demo")
    mib = 1 << 20
    assert [(item["timeout"], item["wait"], item["most_bytes"], item["output"])
            for item in previewed["items"][:3]] == [
        (60, 5, 3 * mib, "%d%/a"), (20, 10, 4 * mib, None), (10, 10, 8 * mib, "%d%/b")]
    assert previewed["items"][4] == {"kind": "data", "pattern": "10_demo", "path": "%d%/a",
                                     "from_tool": True}
    assert previewed["items"][5]["from_tool"]  # the output's own directories, not those of the machine
    assert previewed["totals"]["most_bytes"] == 15 * mib  # the last tool writes nothing there
    assert previewed["totals"]["most_seconds"] == 135


@pytest.mark.parametrize("line, most_bytes, most_seconds", [
    ('COMMAND_LINE = "/bin/true"\nREDIRECT_PATH = "%d%/a"', None, 20),
    ('COMMAND_LINE = "/opt/norvale/quendil/tool/run df"\n TIMEOUT = 0\nREDIRECT_PATH = "%d%/a"',
     20 << 20, None),
])
def test_what_has_no_bound(machine: Machine, line: str, most_bytes: int | None,
                           most_seconds: int | None):
    machine.conf("QUENDIL_MAX_OUTPUT_DATA_SIZE=0\n")
    machine.pattern("10_demo", "FORMAT_VERSION = 1.0\nPP_GROUP = demo\nBLOCK {\nTOOL_BLOCK {\n"
                    f"{line}\n}}\n}}\n")
    totals = preview(machine, "-g", "demo")["totals"]
    assert (totals["most_bytes"], totals["most_seconds"]) == (most_bytes, most_seconds)
    assert totals["limit_bytes"] is None
    text = check(machine, "--preview", "-g", "demo").stdout
    assert ("at most:       no limit\n" in text) == (most_bytes is None)
    assert ("longest time:  no limit\n" in text) == (most_seconds is None)


def test_more_than_the_limit_is_a_finding(machine: Machine):
    machine.file("/opt/data", "x" * 5120)
    machine.pattern("10_demo", pattern_text.pattern(pattern_text.data("/opt/data")))
    for blocks, status in ((10, 0), (9, 1)):
        machine.conf(f"QUENDIL_MAX_OUTPUT_DATA_SIZE={blocks}\n")
        done = check(machine, "--preview", "-g", "demo")
        assert done.status == status
        found = "error: the files have 5.0 KiB, but the size limit is 4.5 KiB: the rest is left out " \
                "[limit-exceeded]\n"
        assert done.stdout.endswith(found) == (status == 1)
    assert machine.run("-g", "demo").log.count("ZEPA153-W") == 1


def test_more_than_the_free_space_is_a_finding(machine: Machine):
    machine.file("/opt/data", "x" * 400000)
    machine.pattern("10_demo", pattern_text.pattern(pattern_text.data("/opt/data")))
    machine.small_tmpfs("/opt/small", 65536)
    done = check(machine, "--preview", "-g", "demo", "-d", "/opt/small", "--format=json")
    assert done.status == 1
    value = json.loads(done.stdout)
    assert [finding["rule"] for finding in value["findings"]] == ["space-short"]
    assert value["directory"] == "/opt/small" and value["totals"]["free_bytes"] <= 65536
    assert check(machine, "--preview", "-g", "demo").status == 0


def test_a_file_with_an_error_is_named_and_left_out(machine: Machine):
    machine.pattern("10_demo", pattern_text.pattern(pattern_text.data("/etc/os-release")))
    machine.pattern("20_bad", "x\n")
    done = check(machine, "--preview", "-g", "demo", "--format=json")
    assert done.stderr == f"quendil-check: {PATTERN_DIRECTORY}/20_bad: skipped: it has errors\n"
    value = json.loads(done.stdout)
    assert value["skipped"] == [f"{PATTERN_DIRECTORY}/20_bad"] and len(value["items"]) == 1


def test_a_dangling_link_is_named_because_no_run_starts(machine: Machine):
    machine.pattern("10_demo", pattern_text.pattern(pattern_text.data("/etc/os-release")))
    machine.link(f"{PATTERN_DIRECTORY}/20_link", "nowhere")
    said = f"quendil-check: {PATTERN_DIRECTORY}/20_link: a link to nothing: no run starts while it is here\n"
    done = check(machine, "--preview", "-g", "demo")
    assert (done.status, done.stderr) == (1, said)
    done = check(machine, "--list")
    assert (done.status, done.stderr) == (0, said)


def test_an_ordinary_user_gets_a_preview_without_the_free_space(machine: Machine):
    machine.file("/opt/data", "x" * 1000, mode=0o600)
    machine.pattern("10_demo", pattern_text.pattern(pattern_text.data("/opt/data")))
    done = check(machine, "--preview", "-g", "demo", user=1000)
    assert (done.status, done.stderr) == (0, "")
    assert "known size:    1000 bytes in 1 file\n" in done.stdout
    assert f"free space:    not known in {DATA_DIRECTORY}\n" in done.stdout


@pytest.mark.parametrize("directory, said", [
    ("/tmp/file", "not a directory: no run starts"), ("/tmp/closed", "not writable: no run starts"),
    ("/tmp/none", "No such file or directory")])
def test_a_directory_that_a_run_would_refuse(machine: Machine, directory: str, said: str):
    machine.pattern("10_demo", pattern_text.pattern(pattern_text.data("/etc/os-release")))
    machine.file("/tmp/file")
    machine.directory("/tmp/closed", mode=0o500)
    done = check(machine, "--preview", "-g", "demo", "-d", directory)
    assert (done.status, done.stderr) == (2, f"quendil-check: {directory}: {said}\n")
    assert machine.run("-g", "demo", "-d", directory).status == 255


def test_a_selected_pattern_without_items_is_no_finding(machine: Machine):
    machine.pattern("10_demo", "FORMAT_VERSION = 1.0\nPP_GROUP = demo\nBLOCK {\n}\n")
    assert preview(machine, "-g", "demo")["items"] == []
    assert machine.run("-g", "demo").status == 0


def test_sizes_that_are_too_large_to_add(machine: Machine):
    machine.conf("QUENDIL_MAX_OUTPUT_DATA_SIZE=0\n")
    for name in "ab":
        with open(machine.path(machine.file(f"/tmp/huge/{name}")), "r+b") as file:
            file.truncate(7 << 60)
    machine.pattern("10_demo", pattern_text.pattern(pattern_text.data("/tmp/huge")))
    done = check(machine, "--preview", "-g", "demo", "--format=json")
    value = json.loads(done.stdout)
    assert done.status == 1 and value["totals"]["known_bytes"] == (1 << 63) - 1
    assert [finding["rule"] for finding in value["findings"]] == ["space-short"]


def test_nothing_that_is_selected_is_a_finding(machine: Machine):
    done = check(machine, "--preview", "-g", "none")
    assert (done.status, done.stderr) == (1, "quendil-check: no pattern is selected\n")


def test_a_configuration_with_an_error_ends_a_preview_as_it_ends_a_run(machine: Machine):
    machine.conf("x\n")
    done = check(machine, "--preview", "-g", "linux")
    assert (done.status, done.stdout) == (1, "")
    assert done.stderr.endswith(
        "/quendil_conf:1: neither a comment nor KEY=VALUE, from the first column: no run starts\n")
    config = machine.file("/tmp/conf", "QUENDIL_DATA_DIRECTORY=/tmp\n")
    value = preview(machine, "-g", "linux", "-c", config)
    assert value["directory"] == "/tmp" and value["totals"]["limit_bytes"] is None


def test_the_text_of_a_preview(machine: Machine):
    machine.conf("QUENDIL_MAX_OUTPUT_DATA_SIZE=8388608\n")
    machine.file("/opt/data/1", "x" * 1500)
    machine.pattern("10_demo", """FORMAT_VERSION = 1.0
PP_GROUP = demo
BLOCK {
    TOOL_BLOCK {
        COMMAND_LINE = "/opt/norvale/quendil/tool/run -l 3 df -h"
        REDIRECT_PATH = "%d%/df.txt"
        TIMEOUT = 60
    }
    DATA_BLOCK {
        PATH_NAME = "%d%/df.txt"
    }
    DATA_BLOCK {
        PATH_NAME = "/opt/data"
    }
    DATA_BLOCK {
        PATH_NAME = "/proc/version"
    }
    DATA_BLOCK {
        PATH_NAME = "/no/file"
    }
}
""")
    done = check(machine, "--preview", "-g", "demo")
    text = re.sub(r"(?m)^(free space:    )\S+ \S+", r"\1N GiB", done.stdout)
    assert text == """10_demo
  tool /opt/norvale/quendil/tool/run -l 3 df -h (60 s + 10 s, at most 3.0 MiB)
  data %d%/df.txt (output of a tool)
  data /opt/data (1 file, 1.5 KiB)
  data /proc/version (1 file, 0 bytes, 1 file of the kernel)
  data /no/file (nothing matches)

5 items
known size:    1.5 KiB in 2 files
at most:       67.0 MiB
longest time:  0 h 1 min 10 s
size limit:    4.0 GiB
free space:    N GiB in /var/opt/norvale/quendil/data
"""


@pytest.mark.plain_binary
def test_a_preview_of_the_system_takes_under_a_second(machine: Machine):
    seconds, _ = used(machine, "--preview", "-g", "linux")
    assert seconds < 1


# ---- Groups and targets -------------------------------------------------------------------------


def test_the_list_of_the_shipped_patterns(machine: Machine):
    done = check(machine, "--list", user=1000)
    assert (done.status, done.stderr) == (0, "")
    rows = [line.split("\t") for line in done.stdout.splitlines()]
    assert rows == sorted(rows) and {len(row) for row in rows} == {4}
    listed = {(f"-{row[0][0]}", row[1]) for row in rows}
    assert listed == set(selections())
    assert ["group", "storage", "35_storage", "Linux storage"] in rows
    value = decoded("list", check(machine, "--list", "--format=json").stdout)
    assert [["group", group["name"], pattern["file"], pattern["name"]]
            for group in value["groups"] for pattern in group["patterns"]] == [
        row for row in rows if row[0] == "group"]


def test_the_list_of_other_patterns(machine: Machine):
    machine.pattern("10_a", 'FORMAT_VERSION = 1.0\nPP_GROUP = "a \\"b\\" 100%%"\nPP_GROUP = both\n'
                    'BLOCK {\nTARGET = "t t"\n}\nBLOCK {\nTARGET = both\nTARGET = "t t"\n}\n')
    machine.pattern("20_b", "FORMAT_VERSION = 1.0\nPP_NAME = B\nPP_GROUP = both\nBLOCK {\n}\n")
    machine.pattern("30_bad", "FORMAT_VERSION = 1.0\nPP_GROUP = bad\nBLOCK {\n}\nx\n")
    machine.pattern("40_tab", "FORMAT_VERSION = 1.0\nPP_GROUP = \"t\tb\"\nBLOCK {\n}\n")
    done = check(machine, "--list")
    assert done.status == 0
    assert done.stdout == ('group\ta "b" 100%\t10_a\t\ngroup\tboth\t10_a\t\ngroup\tboth\t20_b\tB\n'
                           "group\tt\\011b\t40_tab\t\n"
                           "target\tboth\t10_a\t\ntarget\tt t\t10_a\t\n")
    assert done.stderr == f"quendil-check: {PATTERN_DIRECTORY}/30_bad: skipped: it has errors\n"


def test_the_list_is_aligned_on_a_terminal(machine: Machine):
    machine.pattern("10_a", "FORMAT_VERSION = 1.0\nPP_NAME = A\nPP_GROUP = a\nPP_GROUP = long\n"
                    "BLOCK {\n}\n")
    done = machine.exec(["/bin/sh", "-c", f"script -qec '{CHECK} --list' /dev/null"], check=False)
    assert done.stdout.replace("\r", "") == "group   a     10_a  A\ngroup   long  10_a  A\n"
