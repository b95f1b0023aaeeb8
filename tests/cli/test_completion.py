"""The bash completion: what it offers, and that no pattern file can make it run a command."""

from __future__ import annotations

from pathlib import Path

import pytest
from support.machine import PATTERN_DIRECTORY, Machine

ROOT = Path(__file__).resolve().parents[2]
COMPLETION = ROOT / "completions/quendil.bash"

#: Calls the function as readline does, with words that are split at ":" and "=" too.
DRIVER = r"""
. "$1"
compopt() { printf 'compopt %s\n' "$*"; }
COMP_LINE=$2 COMP_POINT=${#2}
shift 2
COMP_WORDS=("$@") COMP_CWORD=$(($# - 1))
_quendil
[ ${#COMPREPLY[@]} -eq 0 ] || printf '%s\n' "${COMPREPLY[@]}"
"""

PATTERN = r"""FORMAT_VERSION = 1.0
PP_NAME = "no value of it is offered"
PP_GROUP = linux
pp_group=network # a comment
  PP_GROUP   =   "web shop"
PP_GROUP = "say \"hi\" \\ \#1"
PP_GROUP = 100%%
PP_GROUP = a"b c"d
PP_GROUP = app:test
PP_GROUP = app:prod
PP_GROUP = "$(touch /tmp/ran)"
PP_GROUP = "`touch /tmp/ran`"
PP_GROUP = "';touch /tmp/ran;'"
PP_GROUP =
# PP_GROUP = commented
BLOCK {
    TARGET = disk
    TARGET = "two words"
    DATA_BLOCK {
        DESCRIPTION = "PP_GROUP = described"
        PATH_NAME = "/a"
    }
}
"""

#: The values of PP_GROUP above, as they must be typed.
GROUPS = {
    "linux", "network", r"web\ shop", r'say\ \"hi\"\ \\\ #1', "100%", r"ab\ cd", "app:test",
    "app:prod", r"\$\(touch\ /tmp/ran\)", r"\`touch\ /tmp/ran\`", r"\'\;touch\ /tmp/ran\;\'",
}


def offered(machine: Machine, line: str, *words: str) -> list[str]:
    """The words offered after a line, which bash splits into `words`, if not only at blanks."""
    path = machine.file("/tmp/completion", COMPLETION.read_bytes())
    driver = machine.file("/tmp/driver", DRIVER)
    split = words or line.split(" ")
    return machine.exec(["/bin/bash", driver, path, line, *split]).stdout.splitlines()


def test_options_are_offered_where_an_option_is_expected(machine: Machine):
    every = ["-g", "-t", "-c", "-d", "-o", "-h"]
    assert offered(machine, "quendil ") == every
    assert offered(machine, "quendil -") == every
    assert offered(machine, "quendil -g linux ") == every
    assert offered(machine, "quendil -g linux -t") == ["-t"]


def test_groups_and_targets_are_offered_from_the_pattern_files(machine: Machine):
    machine.pattern("10_first", PATTERN)
    machine.pattern("20_second", 'PP_GROUP = linux\r\nPP_GROUP = "last"\r\nTARGET = disk\n')
    groups = offered(machine, "quendil -g ")
    assert set(groups) == GROUPS | {"last"} and len(groups) == len(set(groups))
    assert offered(machine, "quendil -G li") == ["linux"]
    assert offered(machine, "quendil -g linux -t ") == ["disk", r"two\ words"]
    assert offered(machine, "quendil -T x") == []
    assert not machine.exists("/tmp/ran")


@pytest.mark.parametrize("line, words, expected", [
    (r"quendil -g web\ s", ["quendil", "-g", r"web\ s"], [r"web\ shop"]),
    ('quendil -g "web s', ["quendil", "-g", '"web s'], ["web shop"]),
    ("quendil -g 'web s", ["quendil", "-g", "'web s"], ["web shop"]),
    ('quendil -g "$', ["quendil", "-g", '"$'], [r"\$(touch /tmp/ran)"]),
    (r'quendil -g "\$', ["quendil", "-g", r'"\$'], [r"\$(touch /tmp/ran)"]),
    ("quendil -g app:", ["quendil", "-g", "app", ":"], ["test", "prod"]),
    ("quendil -g app:t", ["quendil", "-g", "app", ":", "t"], ["test"]),
    ('quendil -g "app:t', ["quendil", "-g", '"app:t'], ["app:test"]),
    ("quendil -g ';", ["quendil", "-g", "';"], []),
])
def test_a_word_is_completed_in_every_kind_of_quotes(machine: Machine, line: str, words: list[str],
                                                     expected: list[str]):
    machine.pattern("10_first", PATTERN)
    assert offered(machine, line, *words) == expected
    assert not machine.exists("/tmp/ran")


@pytest.mark.parametrize("option, asked", [("-d", "dirnames"), ("-c", "default"),
                                           ("-o", "default")])
def test_readline_itself_completes_directories_and_files(machine: Machine, option: str,
                                                         asked: str):
    assert offered(machine, f"quendil {option} /va") == [f"compopt -o {asked}"]
    assert offered(machine, f"quendil {option.upper()} ") == [f"compopt -o {asked}"]


def test_nothing_is_printed_without_patterns(machine: Machine):
    machine.no_patterns()
    assert offered(machine, "quendil -g ") == []
    machine.remove(PATTERN_DIRECTORY)
    assert offered(machine, "quendil -g ") == []


def test_hostile_pattern_files_are_only_read(machine: Machine):
    machine.no_patterns()
    machine.file(f"{PATTERN_DIRECTORY}/-f", "PP_GROUP = dash\n")
    machine.file(f"{PATTERN_DIRECTORY}/keyword=x", "PP_GROUP = assigned\n")
    machine.file(f"{PATTERN_DIRECTORY}/zz $(touch x)", "PP_GROUP = -g\nPP_GROUP = \x1b[2J\n")
    machine.file(f"{PATTERN_DIRECTORY}/binary", b"PP_GROUP = good\n\xff\0\n" + b"a" * 100_000)
    assert offered(machine, "quendil -g ") == ["dash", "good", "assigned"]


#: Types into an interactive bash on its own terminal, and waits after each text for what the screen
#: must show then.
TYPIST = r"""
import os, pty, select, sys
def screen(descriptor, text):
    seen = b""
    while text not in seen:
        assert select.select([descriptor], [], [], 20)[0], (text, seen)
        seen += os.read(descriptor, 4096)
pid, terminal = pty.fork()
if pid == 0:
    os.environ.update(PS1="ready>", TERM="dumb")
    os.execv("/bin/bash", ["bash", "--norc", "--noprofile", "-i"])
screen(terminal, b"ready>")
os.write(terminal, b"bind 'set enable-bracketed-paste off'; . /tmp/completion\n")
screen(terminal, b"ready>")
for keys, shown in zip(sys.argv[1::2], sys.argv[2::2]):
    os.write(terminal, keys.encode())
    screen(terminal, shown.encode())
os.write(terminal, b"\nexit\n")
os.waitpid(pid, 0)
"""


@pytest.mark.parametrize("typed, shown, argument", [
    ("web\t", r"web\ shop ", "web shop"),
    ('"web\t', 'web shop" ', "web shop"),
    ("app:p\t", "app:prod ", "app:prod"),
    ('"$(\t', r'\$(touch /tmp/ran)" ', "$(touch /tmp/ran)"),
    ("say\t", r"#1 ", 'say "hi" \\ #1'),
])
def test_a_completed_word_reaches_the_program_as_the_pattern_file_has_it(
        machine: Machine, typed: str, shown: str, argument: str):
    machine.pattern("10_first", PATTERN)
    machine.file("/tmp/completion", COMPLETION.read_text()
                 + "quendil() { printf '%s\\n' \"$@\" >/tmp/arguments; }\n")
    machine.exec(["/usr/bin/python3", "-c", TYPIST, f"quendil -g {typed}", shown])
    assert machine.read("/tmp/arguments").splitlines() == ["-g", argument]
    assert not machine.exists("/tmp/ran")
