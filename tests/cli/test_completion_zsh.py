"""The completions for zsh: what the real shell offers and types, and that no pattern file can make
it run a command.

The shell is interactive, on a terminal of its own. Its line editor begins with a given line,
presses the key for a completion, and enters the result: nothing waits for a time.
"""

from __future__ import annotations

import subprocess
from pathlib import Path

import pytest
from support.checking import CHECK
from support.completing import NAMES, OFFERED, list_anything, put_patterns
from support.machine import QUENDIL, Machine
from support.option_texts import of_usage

ROOT = Path(__file__).resolve().parents[2]
INSTALLED = "/tmp/completions"

#: Records what is offered, the completed line, and the arguments that the entered line has.
SETTINGS = r"""
PROMPT=''
fpath=(/tmp/completions $fpath)
autoload -Uz compinit
compinit -u -D
typeset -ga offered
compadd() {
    local -a found
    if (( ! ${@[1,(i)-(|-)][(I)-[OAD]]} )); then  # not those that only ask what would match
        builtin compadd -O found "$@"
        offered+=("$found[@]")
    fi
    builtin compadd "$@"
}
quendil quendil-check quendil-report() { print -rN -- "$@" >/tmp/arguments }
zle-line-init() {
    if [[ -v line ]]; then
        BUFFER=$line CURSOR=$#line
        unset line
        zle expand-or-complete
        : >/tmp/offered
        (( ! $#offered )) || print -rN -- "$offered[@]" >/tmp/offered
        print -rn -- "$BUFFER" >/tmp/buffer
    else
        BUFFER=exit
    fi
    zle accept-line
}
zle -N zle-line-init
"""


class Completion:
    """What became of a line after which the key for a completion was pressed."""

    def __init__(self, machine: Machine, line: str) -> None:
        for path in (ROOT / "completions/zsh").iterdir():
            machine.file(f"{INSTALLED}/{path.name}", path.read_bytes())
        machine.file("/tmp/settings/.zshrc", SETTINGS)
        start = "import pty; pty.spawn(['/usr/bin/zsh', '-o', 'no_global_rcs', '-i'])"
        machine.exec(["/usr/bin/env", "TERM=dumb", "ZDOTDIR=/tmp/settings", f"line={line}",
                      "/usr/bin/python3", "-c", start])
        self.offered = sorted(set(machine.read("/tmp/offered").split("\0")[:-1]))
        self.line = machine.read("/tmp/buffer")
        self.arguments = machine.read("/tmp/arguments").split("\0")[:-1]


def offered(machine: Machine, line: str) -> list[str]:
    """The words that are offered after a line."""
    return Completion(machine, line).offered


def test_zsh_searches_the_directories_of_the_completions():
    found = subprocess.run(["/usr/bin/zsh", "-fc", "print -l $fpath"], capture_output=True,
                           text=True, check=True).stdout.split()
    assert {"/usr/share/zsh/vendor-completions", "/usr/share/zsh/site-functions"} & set(found)


@pytest.mark.parametrize("program", ["quendil", "quendil-check", "quendil-report"])
def test_zsh_offers_every_option_of_the_usage(machine: Machine, program: str):
    usage = machine.exec([str(Path(QUENDIL).with_name(program)), "-h"], check=False)
    named = of_usage(usage.stdout + usage.stderr)
    assert {"-h"} < named and set(offered(machine, f"{program} -")) == named


def test_zsh_offers_groups_and_targets(machine: Machine):
    put_patterns(machine)
    assert offered(machine, "quendil -g ") == sorted([*NAMES, "last"])
    assert offered(machine, "quendil -G li") == ["linux"]
    assert offered(machine, "quendil -g linux -t ") == ["disk", "two words"]
    assert offered(machine, "quendil-check --preview -g we") == ["web shop"]
    assert offered(machine, "quendil-check --preview -t t") == ["two words"]
    assert offered(machine, "quendil -T x") == []
    assert not machine.exists("/tmp/ran")


@pytest.mark.parametrize("typed, name", [
    ("web", "web shop"), ('"web', "web shop"), ("'web s", "web shop"), (r"web\ s", "web shop"),
    ("app:p", "app:prod"), ("say", 'say "hi" \\ #1'), ("100", "100%"), ("'$", "$(touch /tmp/ran)"),
    (r"\$", "$(touch /tmp/ran)"), (r"\`", "`touch /tmp/ran`"), (r"\'", "';touch /tmp/ran;'"),
])
def test_a_name_that_zsh_completes_reaches_the_program_as_the_pattern_file_has_it(
        machine: Machine, typed: str, name: str):
    put_patterns(machine)
    completed = Completion(machine, f"quendil -g {typed}")
    assert (completed.offered, completed.arguments) == ([name], ["-g", name])
    assert not machine.exists("/tmp/ran")


def test_zsh_takes_a_list_of_any_content_as_data(machine: Machine):
    list_anything(machine)
    assert offered(machine, "quendil -g ") == sorted(OFFERED)
    for typed, name in ((r"\*", "*"), (r"\~", "~"), (r"\{", "{a,b}"), ("%", "%%F{red}")):
        assert Completion(machine, f"quendil -g {typed}").arguments == ["-g", name]
    assert not machine.exists("/tmp/ran")


def test_without_the_command_that_lists_them_zsh_offers_the_options(machine: Machine):
    machine.remove(CHECK)
    assert offered(machine, "quendil -g ") == []
    assert offered(machine, "quendil -g linux -") == ["-c", "-d", "-g", "-h", "-o", "-t"]


@pytest.mark.parametrize("line, expected", [
    ("quendil -d /tmp/d", "quendil -d /tmp/desk/"),
    ("quendil -D /tmp/d", "quendil -D /tmp/desk/"),
    ("quendil -d /tmp/desk/", "quendil -d /tmp/desk/sub/"),
    ("quendil -c /tmp/desk/f", "quendil -c /tmp/desk/file "),
    ("quendil -o /tmp/desk/f", "quendil -o /tmp/desk/file "),
    ("quendil-check /tmp/desk/f", "quendil-check /tmp/desk/file "),
    ("quendil-check --offline /tmp/desk/f", "quendil-check --offline /tmp/desk/file "),
    ("quendil-check -c /tmp/desk/f", "quendil-check -c /tmp/desk/file "),
    ("quendil-check --preview -d /tmp/desk/", "quendil-check --preview -d /tmp/desk/sub/"),
    ("quendil-check --fo", "quendil-check --format="),
    ("quendil-check --format=s", "quendil-check --format=sarif "),
    ("quendil-check --format s", "quendil-check --format sarif "),
    ("quendil-check --fail-level=w", "quendil-check --fail-level=warning "),
    ("quendil-check --format=x", "quendil-check --format=x"),
    ("quendil-report --text /tmp/desk/f", "quendil-report --text /tmp/desk/file "),
    ("quendil-report --rules=/tmp/desk/f", "quendil-report --rules=/tmp/desk/file "),
    ("quendil-report -o /tmp/desk/f", "quendil-report -o /tmp/desk/file "),
    ("quendil-report --limit=", "quendil-report --limit="),
])
def test_zsh_completes_values_and_files(machine: Machine, line: str, expected: str):
    machine.file("/tmp/desk/file")
    machine.directory("/tmp/desk/sub")
    assert Completion(machine, line).line == expected
