"""Which programs a shell script names: its words in command position."""

from __future__ import annotations

import re
from collections.abc import Iterator

BUILT_IN = set(""": . [ break cd command continue echo eval exec exit export false getopts hash kill
    local printf pwd read readonly return set shift test trap true type ulimit umask unset wait""".split())

#: Words that a command may follow.
BEFORE_COMMAND = {"if", "then", "elif", "else", "while", "until", "do", "!", "time"}

#: Words that begin a command of the shell's own, without a program.
NO_COMMAND = {"for", "case", "fi", "done", "esac"}

#: Commands that run another, with the number of words before it.
RUNNERS = {"exec": 0, "env": 0, "nice": 0, "xargs": 0, "quietly": 1}

PROGRAM = re.compile(r"(?:(?:/usr)?/s?bin/)?[a-z][\w.+-]*")

#: A character behind a backslash, a quoted text, a comment.
QUOTED = re.compile(r"""\\.|'[^']*'|"(?:\\.|[^"\\])*"|(?<![^\s;&|(])#[^\n]*""", re.S)


def programs(script: str) -> set[str]:
    """The programs that a POSIX shell script names; not the shell's own commands, not its functions.

    A word that is made of variables is left out, and so is a quoted text that another shell runs.
    """
    functions = set(re.findall(r"^(\w+)\(\)", script, re.M))
    found: set[str] = set()
    for text in _texts(script):
        for command in re.split(r"[\n;|&(){}]", text):
            found.update(_programs_of(command.split()))
    return found - functions - BUILT_IN


def _texts(script: str) -> Iterator[str]:
    """The text of every command substitution, the inner ones first, and what is left of the script."""
    text = re.sub(r"<<-?'?(\w+)'?([^\n]*)\n.*?^\t*\1$", r"\2", script, flags=re.S | re.M)
    text = QUOTED.sub(_unquoted, text)
    arithmetic, substitution = r"\$\(\([^()]*\)\)", r"\$\(([^()]*)\)"
    while found := re.search(rf"\$\{{[^{{}}]*\}}|{arithmetic}|{substitution}", text):
        if found[1] is not None:
            yield re.sub(r"\d*[<>]+&?\s*\S+", "", found[1])
        text = f"{text[:found.start()]}_{text[found.end():]}"
    text = re.sub(r"^\s*[^()\n]+\)(?=\s|$)", "", text, flags=re.M)  # the patterns of `case`
    yield re.sub(r"\d*[<>]+&?\s*\S+", "", text)


def _unquoted(found: re.Match[str]) -> str:
    """What replaces a quoted text: its substitutions, and no other possible command."""
    quoted = found[0]
    if quoted == "\\\n" or quoted.startswith("#"):
        return " "
    if quoted.startswith('"') and re.search(r"\$\(|^\"[^()]*\)", quoted):
        return quoted[1:-1]
    return "_"


def _programs_of(words: list[str]) -> Iterator[str]:
    """The program of one simple command, and the one that it runs in turn."""
    words = list(words)
    while words:
        word = words.pop(0)
        if word in NO_COMMAND:
            return
        if word in BEFORE_COMMAND or re.match(r"\w+=", word):
            continue
        if PROGRAM.fullmatch(word):
            yield word
        if word not in RUNNERS:
            return
        del words[:RUNNERS[word]]
        while words and words[0].startswith("-"):
            words.pop(0)
