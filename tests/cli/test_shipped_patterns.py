"""The pattern files that are shipped: checked as texts, then run for real."""

from __future__ import annotations

import re
import subprocess
import sys
from collections import Counter
from pathlib import Path

import pytest
from support import expect, grammar, masking, pattern_text
from support.collecting import complete_output
from support.machine import PATTERN_DIRECTORY, Machine
from support.run import Run
from support.tree import Tree

ROOT = Path(__file__).resolve().parents[2]
CHECKER = ROOT / "tests/support/check_patterns.py"
PATTERNS = ROOT / "patterns"
LOGS = {"quendil_index", "quendil.log", "quendil_hist.log", "quendil_hist_old.log"}


def check(directory: Path) -> subprocess.CompletedProcess[str]:
    return subprocess.run([sys.executable, str(CHECKER), str(directory)], capture_output=True,
                          text=True, check=False)


# ---- As texts -----------------------------------------------------------------------------------


def test_the_shipped_files_keep_every_rule():
    done = check(PATTERNS)
    assert (done.returncode, done.stderr) == (0, ""), done.stdout
    assert done.stdout.startswith(f"{len(list(PATTERNS.iterdir()))} files, ")


GOOD = pattern_text.pattern(pattern_text.block(
    pattern_text.tool("/bin/df -k", "%d%/df.txt", timeout=10),
    pattern_text.data("%d%/df.txt", "disk space", file_type="text"), targets=["disk"]),
    groups=["linux"]).replace("PP_VRS = 1.0", "PP_VRS = 1.0\nPP_KATAMEI = \"x\"")


def test_the_checker_accepts_a_file_that_keeps_every_rule(tmp_path: Path):
    (tmp_path / "10_good").write_text(GOOD)
    done = check(tmp_path)
    assert (done.returncode, done.stdout) == (0, "1 files, 1 tools, 1 data items\n")


@pytest.mark.parametrize("present, wrong, told", [
    ("/bin/df", "df", "the command df is not absolute"),
    ("/bin/df -k", "/bin/df | /bin/cat", "the command needs a shell"),
    ("/bin/df -k", "/bin/cat /etc/shadow", "may hold secrets"),
    ('PATH_NAME = "%d%/df.txt"', 'PATH_NAME = "/etc/sha*"', "may bring secrets along"),
    ('PATH_NAME = "%d%/df.txt"', 'PATH_NAME = "%d%/other"', "no DATA_BLOCK directly behind"),
    ("TIMEOUT = 10", "TIMEOUT = -1", "TIMEOUT is no number"),
    ("TARGET = disk\n", "", "BLOCK without TARGET"),
    ("disk space", "%FOO%", "unknown special string"),
    ("disk space", "\u00e4", "a character that no pattern file may hold"),
    ("}\n}", "}\n", "is never closed"),
    ('"linux"', '"other"', "the group linux is missing"),
    ("FORMAT_VERSION = 1.0", "FORMAT_VERSION = 2.0", "FORMAT_VERSION is not 1.0"),
])
def test_the_checker_finds_what_breaks_a_rule(tmp_path: Path, present: str, wrong: str, told: str):
    assert present in GOOD
    (tmp_path / "10_wrong").write_text(GOOD.replace(present, wrong, 1))
    done = check(tmp_path)
    assert done.returncode == 1 and told in done.stdout


# ---- For real -----------------------------------------------------------------------------------


def programs() -> list[str]:
    """The programs of all shipped tools, in the order in which they are to run."""
    lines = [line.split() for path in sorted(PATTERNS.iterdir())
             for line in path.read_text().splitlines()]
    return [words[2].strip('"') for words in lines if words[:2] == ["COMMAND_LINE", "="]]


def data_items() -> int:
    """The number of all shipped data items."""
    return sum(path.read_text().count("DATA_BLOCK {") for path in PATTERNS.iterdir())


def check_logs(run: Run) -> None:
    """Both logs hold nothing but what they should, and every tool had its turn."""
    items = grammar.read_run_log(run.raw["log"] or "")
    assert [text.split()[0] for kind, text in items if kind == "tool"] == programs()
    assert grammar.read_history(run.raw["history"] or "") == 1
    assert run.history == expect.history("-g linux", 0, f"{expect.OUTPUT_DIRECTORY}.tar.gz")


def check_archive(tree: Tree) -> None:
    """The archive holds plain files in one directory, with the logs as they were meanwhile."""
    assert masking.mask(tree.top) == expect.OUTPUT_NAME
    for name, member in tree.members().items():
        assert member.kind in ("file", "directory", "hard link"), name
        assert member.kind != "hard link" or member.target.removeprefix(f"{tree.top}/") in tree
    assert tree.read("quendil.log").endswith(b"\nZEPA202-I:Started making.\n")
    assert tree.read("quendil_hist.log").count(b"\n") == 2
    assert tree.read("quendil_hist_old.log") == b"x" * 10_000


def check_index(run: Run, tree: Tree) -> None:
    """The index names every file of the archive once, and none that is not there."""
    named = [name for record in grammar.read_index(run.raw_index) for name in record]
    assert [name for name, count in Counter(named).items() if count > 1] == []
    assert [name for name in named if name not in tree] == []
    assert set(tree.files()) - set(named) == LOGS
    assert len(named) > 50


def check_no_secret(tree: Tree) -> None:
    """Nothing came along that only the super user may know."""
    secret = re.compile(r"(^|/)(g?shadow-?|sudoers|crypttab|environ|ssh_host_\w*_key|\d+/cmdline)$")
    assert [name for name in tree.names if secret.search(name)] == []


def test_the_shipped_set_runs_for_real(machine: Machine):
    # One run for all that there is to see: some of the tools take their seconds.
    assert machine.list(PATTERN_DIRECTORY) == sorted(path.name for path in PATTERNS.iterdir())
    machine.file("/var/opt/norvale/quendil/log/quendil_hist.log", "x" * 10_000)
    run = machine.run("-g", "linux", seconds=120)
    assert (run.status, run.stderr) == (0, "")
    assert run.stdout == complete_output(len(programs()) + data_items())
    assert machine.exists(run.result)
    assert machine.outputs() == [expect.OUTPUT_NAME + ".tar.gz"]
    run.check_times()
    tree = run.archive
    check_logs(run)
    check_archive(tree)
    check_index(run, tree)
    check_no_secret(tree)
