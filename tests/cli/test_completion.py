"""The bash completions: what they offer, and that no pattern file can make them run a command."""

from __future__ import annotations

import re
from pathlib import Path

import pytest
from support import pattern_text
from support.checking import CHECK
from support.completing import OFFERED, PATTERN, SECOND, list_anything
from support.machine import PATTERN_DIRECTORY, QUENDIL, Machine
from support.option_texts import of_usage

ROOT = Path(__file__).resolve().parents[2]
REPORT = f"{QUENDIL}-report"

#: Where the completions are in a machine, as they are installed: in one directory.
INSTALLED = "/tmp/completions"

#: Calls the function as readline does, with words that are split at ":" and "=" too.
DRIVER = r"""
. "$1"
function=$(complete -p "${2%% *}")
function=${function#complete -F } function=${function% *}
compopt() { printf 'compopt %s\n' "$*"; }
COMP_LINE=$2 COMP_POINT=${#2}
shift 2
COMP_WORDS=("$@") COMP_CWORD=$(($# - 1))
"$function"
[ ${#COMPREPLY[@]} -eq 0 ] || printf '%s\n' "${COMPREPLY[@]}"
"""

#: The values of PP_GROUP above, as they must be typed.
GROUPS = {
    "linux", "network", r"web\ shop", r'say\ \"hi\"\ \\\ #1', "100%", r"ab\ cd", "app:test",
    "app:prod", r"\$\(touch\ /tmp/ran\)", r"\`touch\ /tmp/ran\`", r"\'\;touch\ /tmp/ran\;\'",
}


def install(machine: Machine) -> None:
    """Puts the completions where bash finds them by the name of the command."""
    for path in (ROOT / "completions").glob("*.bash"):
        machine.file(f"{INSTALLED}/{path.stem}", path.read_bytes())


def offered(machine: Machine, line: str, *words: str) -> list[str]:
    """The words offered after a line, which bash splits into `words`, if not only at blanks."""
    install(machine)
    driver = machine.file("/tmp/driver", DRIVER)
    split = words or line.split(" ")
    path = f"{INSTALLED}/{split[0]}"
    done = machine.exec(["/bin/bash", driver, path, line, *split])
    assert done.stderr == ""
    return done.stdout.splitlines()


def test_options_are_offered_where_an_option_is_expected(machine: Machine):
    every = ["-g", "-t", "-c", "-d", "-o", "-h"]
    assert offered(machine, "quendil ") == every
    assert offered(machine, "quendil -") == every
    assert offered(machine, "quendil -g linux ") == every
    assert offered(machine, "quendil -g linux -t") == ["-t"]


@pytest.mark.parametrize("program", ["quendil", "quendil-check", "quendil-report"])
def test_every_option_of_the_usage_is_offered(machine: Machine, program: str):
    usage = machine.exec([str(Path(QUENDIL).with_name(program)), "-h"], check=False)
    named = of_usage(usage.stdout + usage.stderr)
    assert {"-h"} < named
    assert {option.partition("=")[0] for option in offered(machine, f"{program} -")} == named


def test_groups_and_targets_are_offered_from_the_pattern_files(machine: Machine):
    machine.pattern("10_first", PATTERN)
    machine.pattern("20_second", SECOND)
    groups = offered(machine, "quendil -g ")
    assert set(groups) == GROUPS | {"last"} and len(groups) == len(set(groups))
    assert offered(machine, "quendil -G li") == ["linux"]
    assert offered(machine, "quendil -g linux -t ") == ["disk", r"two\ words"]
    assert offered(machine, "quendil -T x") == []
    assert offered(machine, "quendil -g described") == []
    assert offered(machine, "quendil -g commented") == []
    assert not machine.exists("/tmp/ran")


@pytest.mark.parametrize("line, words, expected", [
    (r"quendil -g web\ s", ["quendil", "-g", r"web\ s"], [r"web\ shop"]),
    ('quendil -g "web s', ["quendil", "-g", '"web s'], ["web shop"]),
    ("quendil -g 'web s", ["quendil", "-g", "'web s"], ["web shop"]),
    ('quendil -g "$', ["quendil", "-g", '"$'], [r"\$(touch /tmp/ran)"]),
    (r'quendil -g "\$', ["quendil", "-g", r'"\$'], [r"\$(touch /tmp/ran)"]),
    ("quendil -g app:", ["quendil", "-g", "app", ":"], ["prod", "test"]),
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


def test_without_the_command_that_lists_them_the_options_are_offered(machine: Machine):
    machine.remove(CHECK)
    assert offered(machine, "quendil -g ") == offered(machine, "quendil -t ") == []
    assert offered(machine, "quendil -g linux -") == ["-g", "-t", "-c", "-d", "-o", "-h"]


def with_groups(*groups: str) -> str:
    """A pattern file in these groups."""
    return pattern_text.pattern(pattern_text.data("/a"), groups=groups)


def test_hostile_pattern_files_are_only_read(machine: Machine):
    machine.no_patterns()
    machine.file(f"{PATTERN_DIRECTORY}/-f", with_groups("dash"))
    machine.file(f"{PATTERN_DIRECTORY}/keyword=x", with_groups("assigned"))
    machine.file(f"{PATTERN_DIRECTORY}/zz $(touch x)", with_groups("-g", "--list", "good"))
    machine.file(f"{PATTERN_DIRECTORY}/escape", with_groups("\x1b[2J"))  # it has an error
    machine.file(f"{PATTERN_DIRECTORY}/binary", b"PP_GROUP = bad\n\xff\0\n" + b"a" * 100_000)
    assert offered(machine, "quendil -g ") == ["assigned", "dash", "good"]


def test_a_name_is_offered_only_if_the_list_shows_it_as_it_is(machine: Machine):
    machine.no_patterns()
    machine.file(f"{PATTERN_DIRECTORY}/10_tab", with_groups("a\tb", "whole"))
    machine.file(f"{PATTERN_DIRECTORY}/20_octal", with_groups(r"c\033[2J", r"d\8", "e"))
    assert offered(machine, "quendil -g ") == [r"d\\8", "e", "whole"]
    machine.file(f"{PATTERN_DIRECTORY}/30\tx", with_groups("f"))
    assert "x" not in offered(machine, "quendil -g ")


def test_a_list_of_any_content_is_data(machine: Machine):
    """The completion trusts no output: only lines with four fields count."""
    list_anything(machine)
    words = offered(machine, "quendil -g ")
    assert words == [r"%%F\{red\}", r"\*", r"\`touch\ /tmp/ran\`", r"d\\8", "good", r"\{a\,b\}",
                     r"\~"]
    assert len(words) == len(OFFERED)
    assert not machine.exists("/tmp/ran")


#: The options of quendil-check, and their values.
EVERY_CHECK_OPTION = [
    "-c", "-d", "-g", "-t", "-h", "--fail-level=error", "--fail-level=warning", "--format=json",
    "--format=sarif", "--format=text", "--help", "--list", "--offline", "--preview", "--version"]


def test_the_options_of_the_check_are_those_of_its_usage(machine: Machine):
    assert offered(machine, "quendil-check -") == EVERY_CHECK_OPTION
    assert offered(machine, "quendil-check --offline --l") == ["--list"]
    usage = machine.exec([CHECK, "--help"]).stdout
    named = set(re.findall(r"(?<![\w-])--?[a-z][a-z-]*", usage))
    assert {option.partition("=")[0] for option in EVERY_CHECK_OPTION} == named
    for option, values in re.findall(r"(--[a-z-]+)=([a-z]+(?:\|[a-z]+)+)", usage):
        words = [f"{option}={value}" for value in values.split("|")]
        assert set(words) <= set(EVERY_CHECK_OPTION)


@pytest.mark.parametrize("line, words, expected", [
    ("quendil-check --fo", (), ["--format=json", "--format=sarif", "--format=text"]),
    ("quendil-check --format=", ("quendil-check", "--format", "="), ["json", "sarif", "text"]),
    ("quendil-check --format=s", ("quendil-check", "--format", "=", "s"), ["sarif"]),
    ("quendil-check --format s", (), ["sarif"]),
    ("quendil-check --fail-level=w", ("quendil-check", "--fail-level", "=", "w"), ["warning"]),
    ("quendil-check --fail-level ", (), ["error", "warning"]),
    ("quendil-check --format=x", ("quendil-check", "--format", "=", "x"), []),
    ("quendil-check --preview -g we", (), [r"web\ shop"]),
    ("quendil-check --preview -g app:t", ("quendil-check", "--preview", "-g", "app", ":", "t"),
     ["test"]),
    ("quendil-check --preview -t ", (), ["disk", r"two\ words"]),
    ("quendil-check --preview -t x -d /v", (), ["compopt -o dirnames"]),
    ("quendil-check -c /e", (), ["compopt -o default"]),
    ("quendil-check ", (), ["compopt -o default"]),
    ("quendil-check --offline 90", (), ["compopt -o default"]),
])
def test_the_check_is_completed_with_values_and_files(machine: Machine, line: str,
                                                      words: tuple[str, ...], expected: list[str]):
    machine.pattern("10_first", PATTERN)
    assert offered(machine, line, *words) == expected


#: The options of quendil-report.
EVERY_REPORT_OPTION = ["-o", "-h", "--all", "--diff", "--follow-links", "--help", "--json", "--limit=",
                       "--overview", "--print-rules", "--rules=", "--text", "--version"]


def test_the_options_of_the_report_are_those_of_its_usage(machine: Machine):
    assert offered(machine, "quendil-report -") == EVERY_REPORT_OPTION
    assert offered(machine, "quendil-report --text --f") == ["--follow-links"]
    usage = machine.exec([REPORT, "--help"]).stdout
    named = set(re.findall(r"(?<![\w-])--?[a-z][a-z-]*=?", usage))
    assert set(EVERY_REPORT_OPTION) == named - {"--rules"}


@pytest.mark.parametrize("line, words, expected", [
    ("quendil-report ", (), ["compopt -o default"]),
    ("quendil-report --text a", (), ["compopt -o default"]),
    ("quendil-report -o ", (), ["compopt -o default"]),
    ("quendil-report --rules=", ("quendil-report", "--rules", "="), ["compopt -o default"]),
    ("quendil-report --limit=", ("quendil-report", "--limit", "="), []),
])
def test_the_report_is_completed_with_files(machine: Machine, line: str, words: tuple[str, ...],
                                            expected: list[str]):
    assert offered(machine, line, *words) == expected


def test_without_the_completion_of_the_program_the_check_has_none(machine: Machine):
    install(machine)
    machine.remove(f"{INSTALLED}/quendil")
    done = machine.exec(f"bash -c '. {INSTALLED}/quendil-check && ! complete -p quendil-check'")
    assert (done.stdout, "no completion" in done.stderr) == ("", True)


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
    machine.file("/tmp/completion", (ROOT / "completions/quendil.bash").read_text()
                 + "quendil() { printf '%s\\n' \"$@\" >/tmp/arguments; }\n")
    machine.exec(["/usr/bin/python3", "-c", TYPIST, f"quendil -g {typed}", shown])
    assert machine.read("/tmp/arguments").splitlines() == ["-g", argument]
    assert not machine.exists("/tmp/ran")


def test_a_typed_option_of_the_check_gets_its_value(machine: Machine):
    install(machine)
    machine.pattern("10_first", PATTERN)
    machine.file("/tmp/completion", f". {INSTALLED}/quendil-check\n"
                 "quendil-check() { printf '%s\\n' \"$@\" >/tmp/arguments; }\n")
    machine.exec(["/usr/bin/python3", "-c", TYPIST, "quendil-check --fo\t", "rmat=",
                  "j\t", "json ", "--p\t", "--preview ", "-g web\t", r"web\ shop "])
    assert machine.read("/tmp/arguments").splitlines() == [
        "--format=json", "--preview", "-g", "web shop"]
