"""What the completions of all shells must offer: names of groups and targets, some hostile."""

from __future__ import annotations

from .checking import CHECK
from .machine import PATTERN_DIRECTORY, Machine

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

#: The values of PP_GROUP above.
NAMES = ["linux", "network", "web shop", 'say "hi" \\ #1', "100%", "ab cd", "app:test", "app:prod",
         "$(touch /tmp/ran)", "`touch /tmp/ran`", "';touch /tmp/ran;'"]

#: With the line ends of another system, and values that the first one has too.
SECOND = ('FORMAT_VERSION = 1.0\r\nPP_GROUP = linux\r\nPP_GROUP = "last"\r\n'
          'BLOCK {\r\n TARGET = disk\r\n}\r\n')

#: What a list of groups may hold besides good lines, and the names that may be offered of it.
LISTED = [r"group\tgood\tfile\t", r"group\t\tfile\tname", r"group\tlost", r"group\ta\tb\tc\td",
          r"other\tx\tfile\tname", r"group\t-x\tfile\tname", r"group\t\033x\tfile\tname",
          r"group\t*\tfile\tname", r"group\t`touch /tmp/ran`\tfile\tname", "group",
          r"group\t\\033[2J\tfile\tname", r"group\td\\8\tfile\tname", r"(\t!\t=\t",
          r"group\t~\tf\tn", r"group\t%%F{red}\tfile\tname", r"group\t{a,b}\tfile\tname"]
OFFERED = ["good", "*", "`touch /tmp/ran`", r"d\8", "~", "%%F{red}", "{a,b}"]


def list_anything(machine: Machine) -> None:
    """Replaces the command that lists the groups by one that prints LISTED and fails."""
    words = " ".join(f"'{line}'" for line in LISTED)
    machine.file(CHECK, f"#!/bin/sh\nprintf '%b\\n' {words}\necho failed >&2\nexit 2\n", 0o755)


def put_patterns(machine: Machine) -> None:
    """Installs both pattern files, and no others."""
    machine.no_patterns()
    machine.file(f"{PATTERN_DIRECTORY}/10_first", PATTERN)
    machine.file(f"{PATTERN_DIRECTORY}/20_second", SECOND)
