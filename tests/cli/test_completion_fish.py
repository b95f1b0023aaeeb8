"""The completions for fish: what the real shell offers and types, and that no pattern file can make
it run a command.
"""

from __future__ import annotations

from pathlib import Path

import pytest
from support.checking import CHECK
from support.completing import NAMES, OFFERED, list_anything, put_patterns
from support.machine import QUENDIL, Machine
from support.option_texts import of_usage

ROOT = Path(__file__).resolve().parents[2]
INSTALLED = "/tmp/completions"
PATHS = "".join(f"set -p fish_{kind}_path {INSTALLED}; " for kind in ("complete", "function"))
HOME = ["/usr/bin/env", "HOME=/tmp/home", "TERM=dumb"]


def install(machine: Machine) -> None:
    """Puts completions and function into one directory, and makes a home for the shell."""
    for path in (ROOT / "completions/fish").iterdir():
        machine.file(f"{INSTALLED}/{path.name}", path.read_bytes())
    machine.directory("/tmp/home")


def offered(machine: Machine, line: str) -> list[str]:
    """The words that are offered after a line, without their descriptions."""
    install(machine)
    done = machine.exec([*HOME, "/usr/bin/fish", "-c", f"{PATHS} complete -C $argv[1]", line])
    assert done.stderr == ""
    return sorted(row.partition("\t")[0] for row in done.stdout.splitlines())


def test_fish_searches_the_directories_of_the_completions(machine: Machine):
    machine.directory("/tmp/home")
    asked = "printf '%s\\n' $fish_complete_path $fish_function_path"
    found = machine.exec([*HOME, "/usr/bin/fish", "-c", asked]).stdout.split()
    wanted = {"/usr/share/fish/vendor_completions.d", "/usr/share/fish/vendor_functions.d"}
    assert wanted < set(found)


@pytest.mark.parametrize("program", ["quendil", "quendil-check", "quendil-report"])
def test_fish_offers_every_option_of_the_usage(machine: Machine, program: str):
    usage = machine.exec([str(Path(QUENDIL).with_name(program)), "-h"], check=False)
    named = of_usage(usage.stdout + usage.stderr)
    assert {"-h"} < named and set(offered(machine, f"{program} -")) == named


def test_fish_offers_groups_and_targets(machine: Machine):
    put_patterns(machine)
    assert offered(machine, "quendil -g ") == sorted([*NAMES, "last"])
    assert offered(machine, "quendil -g li") == ["linux"]
    assert offered(machine, "quendil -G li") == ["linux"]
    assert offered(machine, "quendil -g linux -t ") == ["disk", "two words"]
    assert offered(machine, "quendil -T t") == ["two words"]
    assert offered(machine, "quendil-check --preview -g we") == ["web shop"]
    assert offered(machine, "quendil-check --preview -t t") == ["two words"]
    assert offered(machine, "quendil -g described") == []
    assert not machine.exists("/tmp/ran")


def test_fish_takes_a_list_of_any_content_as_data(machine: Machine):
    list_anything(machine)
    assert offered(machine, "quendil -g ") == sorted(OFFERED)
    assert not machine.exists("/tmp/ran")


def test_without_the_command_that_lists_them_fish_offers_the_options(machine: Machine):
    machine.remove(CHECK)
    assert offered(machine, "quendil -g ") == offered(machine, "quendil -t ") == []
    assert offered(machine, "quendil -g linux -") == ["-c", "-d", "-g", "-h", "-o", "-t"]


@pytest.mark.parametrize("line, expected", [
    ("quendil ", []),
    ("quendil -d /tmp/desk/", ["/tmp/desk/sub/"]),
    ("quendil -D /tmp/desk/", ["/tmp/desk/sub/"]),
    ("quendil -c /tmp/desk/f", ["/tmp/desk/file"]),
    ("quendil -C /tmp/desk/f", ["/tmp/desk/file"]),
    ("quendil -o /tmp/desk/f", ["/tmp/desk/file"]),
    ("quendil-check /tmp/desk/f", ["/tmp/desk/file"]),
    ("quendil-check -c /tmp/desk/f", ["/tmp/desk/file"]),
    ("quendil-check --preview -d /tmp/desk/", ["/tmp/desk/sub/"]),
    ("quendil-check --fo", ["--format"]),
    ("quendil-check --format=s", ["--format=sarif"]),
    ("quendil-check --format ", ["json", "sarif", "text"]),
    ("quendil-check --fail-level=", ["--fail-level=error", "--fail-level=warning"]),
    ("quendil-check --format=z", []),
    ("quendil-report --text /tmp/desk/f", ["/tmp/desk/file"]),
    ("quendil-report --rules=/tmp/desk/f", ["--rules=/tmp/desk/file"]),
    ("quendil-report -o /tmp/desk/f", ["/tmp/desk/file"]),
    ("quendil-report --limit=", []),
])
def test_fish_completes_values_and_files(machine: Machine, line: str, expected: list[str]):
    machine.file("/tmp/desk/file")
    machine.directory("/tmp/desk/sub")
    assert offered(machine, line) == expected


#: Types into an interactive fish on its own terminal, when its prompt is there, until the program
#: is called.
TYPIST = r"""
import os, pty, select, sys
def screen(text):
    seen = b""
    while text not in seen:
        assert select.select([terminal], [], [], 20)[0], (text, seen)
        seen += os.read(terminal, 4096)
pid, terminal = pty.fork()
if pid == 0:
    os.execv("/usr/bin/fish", ["fish", "-i", "-C", sys.argv[1]])
screen(b"ready>")
os.write(terminal, sys.argv[2].encode() + b"\t\n")
screen(b"called>")
os.write(terminal, b"exit\n")
os.waitpid(pid, 0)
"""

SETTINGS = PATHS + r"""
set -g fish_autosuggestion_enabled 0
function fish_prompt; printf 'ready>'; end
function quendil; printf '%s\n' $argv >/tmp/arguments; printf 'called%s' '>'; end
"""


@pytest.mark.parametrize("typed, name", [
    ("web", "web shop"), ('"web', "web shop"), ("'web s", "web shop"), (r"web\ s", "web shop"),
    ("app:p", "app:prod"), ("say", 'say "hi" \\ #1'), ("100", "100%"), ("'$(", "$(touch /tmp/ran)"),
    (r"\$", "$(touch /tmp/ran)"), ("`", "`touch /tmp/ran`"), (r"\'", "';touch /tmp/ran;'"),
])
def test_a_name_that_fish_completes_reaches_the_program_as_the_pattern_file_has_it(
        machine: Machine, typed: str, name: str):
    install(machine)
    put_patterns(machine)
    machine.exec([*HOME, "/usr/bin/python3", "-c", TYPIST, SETTINGS, f"quendil -g {typed}"])
    assert machine.read("/tmp/arguments").splitlines() == ["-g", name]
    assert not machine.exists("/tmp/ran")
