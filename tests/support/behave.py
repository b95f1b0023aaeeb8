"""Commands for the helper program `behave`, which plays tools and archivers.

A function for an action returns the words of that action; `command` makes a command line of them:

    command(out("hello\\n"), ready("/opt/ready"), ignore("TERM"), forever())

The comment at the top of behave.c describes each action.
"""

from __future__ import annotations

import re
from collections.abc import Iterable

PROGRAM = "/opt/behave"

Action = tuple[str, ...]

_PLAIN = re.compile(r"[A-Za-z0-9_./,:+@=-]")
_ESCAPES = {" ": "\\s", "\n": "\\n", "\t": "\\t", '"': "\\q", "\\": "\\\\"}


def encode(text: str) -> str:
    """Text as one word that passes unchanged through a pattern file, a shell and a script."""
    if not text:
        return "\\z"
    coded = []
    for character in text:
        if _PLAIN.match(character):
            coded.append(character)
        elif character in _ESCAPES:
            coded.append(_ESCAPES[character])
        else:
            coded += [f"\\x{byte:02x}" for byte in character.encode("utf-8", "surrogateescape")]
    return "".join(coded)


def command(*actions: Action) -> str:
    """A command line that performs the actions."""
    return " ".join([PROGRAM, *(encode(word) for action in actions for word in action)])


def script(*actions: Action) -> str:
    """The text of an executable file that performs the actions."""
    lines = [encode(word) for action in actions for word in action]
    return "\n".join([f"#!{PROGRAM} play", *lines]) + "\n"


def parse_report(text: str) -> dict[str, str]:
    """The values that the action `report` wrote, by key."""
    return dict(line.split("=", 1) for line in text.splitlines())


def _block(head: Action, actions: Iterable[Action]) -> Action:
    return (*head, *(word for action in actions for word in action), "end")


def out(text: str) -> Action:
    return ("out", text)


def err(text: str) -> Action:
    return ("err", text)


def flood(descriptor: int, size: int) -> Action:
    return ("flood", str(descriptor), str(size))


def write(path: str, text: str) -> Action:
    return ("write", path, text)


def append(path: str, text: str) -> Action:
    return ("append", path, text)


def fill(path: str, size: int) -> Action:
    return ("fill", path, str(size))


def directory(path: str) -> Action:
    return ("dir", path)


def fifo(path: str) -> Action:
    return ("fifo", path)


def socket(path: str) -> Action:
    return ("socket", path)


def link(target: str, path: str) -> Action:
    return ("link", target, path)


def remove(path: str) -> Action:
    return ("remove", path)


def rename(path: str, to: str) -> Action:
    return ("rename", path, to)


def mode(path: str, bits: int) -> Action:
    return ("mode", path, f"{bits:o}")


def owner(path: str, uid: int, gid: int) -> Action:
    return ("owner", path, str(uid), str(gid))


def touch(path: str, seconds: int) -> Action:
    return ("touch", path, str(seconds))


def cd(path: str) -> Action:
    return ("cd", path)


def umask(bits: int) -> Action:
    return ("umask", f"{bits:o}")


def exit(code: int | str) -> Action:
    return ("exit", str(code))


def die(signal: str) -> Action:
    return ("die", signal)


def close(descriptor: int) -> Action:
    return ("close", str(descriptor))


def ignore(signal: str) -> Action:
    return ("ignore", signal)


def default(signal: str) -> Action:
    return ("default", signal)


def block(signal: str) -> Action:
    return ("block", signal)


def unblock(signal: str) -> Action:
    return ("unblock", signal)


def note(signal: str, path: str) -> Action:
    return ("note", signal, path)


def exiton(signal: str, code: int) -> Action:
    return ("exiton", signal, str(code))


def kill(signal: str, who: str) -> Action:
    return ("kill", signal, who)


def stop() -> Action:
    return ("stop",)


def forever() -> Action:
    return ("forever",)


def nap(milliseconds: int) -> Action:
    return ("nap", str(milliseconds))


def ready(path: str) -> Action:
    return ("ready", path)


def wait_for(path: str) -> Action:
    return ("await", path)


def drain(path: str) -> Action:
    return ("drain", path)


def child(*actions: Action) -> Action:
    return _block(("child",), actions)


def wait() -> Action:
    return ("wait",)


def group() -> Action:
    return ("group",)


def leave() -> Action:
    return ("leave",)


def session() -> Action:
    return ("session",)


def daemon() -> Action:
    return ("daemon",)


def ifarg(text: str, *actions: Action) -> Action:
    return _block(("ifarg", text), actions)


def once(path: str, *actions: Action) -> Action:
    return _block(("once", path), actions)


def run(program: str) -> Action:
    return ("run", program)


def become(program: str) -> Action:
    return ("exec", program)


def tarwrite(size: int) -> Action:
    return ("tarwrite", str(size))


def gzwrite(size: int) -> Action:
    return ("gzwrite", str(size))


def gzconsume() -> Action:
    return ("gzconsume",)


def report(path: str) -> Action:
    return ("report", path)
