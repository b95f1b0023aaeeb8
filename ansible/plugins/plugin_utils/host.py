# Copyright the quendil developers
# Apache-2.0 (see LICENSE or https://www.apache.org/licenses/LICENSE-2.0)
"""The base of the actions that work on a host: runs a step of host.sh there and checks the answer."""

from __future__ import annotations

import os
import re
import shlex
import time

from ansible.errors import AnsibleConnectionFailure, AnsibleError
from ansible.module_utils.common.text.converters import to_text
from ansible.module_utils.parsing.convert_bool import boolean
from ansible.plugins.action import ActionBase

from .bounds import TooLate, answer_bounds, file_bounds

#: What a value of an answer looks like. An answer with anything else is not from host.sh.
KINDS = {
    "state": re.compile(r"started|resumed|running|finished|lost|removed"),
    "version": re.compile(r"[0-9A-Za-z.~+-]{1,40}"),
    "exit": re.compile(r"[0-9]{1,3}"),
    "seconds": re.compile(r"[0-9]{1,7}"),
    "cause": re.compile(r"[ -~]{0,1500}"),
    "path": re.compile(r"/[ -~]{1,1499}"),
    "kept": re.compile(r"/[ -~]{1,1499}"),
    "bytes": re.compile(r"[0-9]{1,15}"),
    "sha256": re.compile(r"[0-9a-f]{64}"),
}
NUMBERS = ("exit", "seconds", "bytes")

#: A request names directories on the hosts and on the controller.
REQUEST = re.compile(r"[A-Za-z0-9][A-Za-z0-9._-]{0,63}")

#: The time that a host has for an answer, in seconds.
ANSWER_SECONDS = 60

#: The pause before a lost connection is made again, in seconds.
PAUSE = 2

#: The longest command line that carries the text, where the connection cannot send it as input.
COMMAND_BYTES = 120_000


class Failed(Exception):
    """This host has failed; the text is the cause, for the results, as are the values of the answer."""

    def __init__(self, cause, **values):
        super().__init__(cause)
        self.values = values


class Lost(Failed):
    """The host could not be reached, or has not answered in time."""


def printable(text, limit=1000):
    """One line of printable ASCII: what a host or a program said may hold anything."""
    return re.sub(r"[^ -~]", "?", " ".join(text.split()))[:limit]


def parsed(output):
    """The values of an answer by key; Failed if it is not one."""
    values = {}
    for line in output.splitlines():
        words = line.rstrip("\r").split(" ", 2)
        if words == ["quendil", "end"]:
            break
        if words[0] != "quendil" or len(words) != 3:
            continue  # what the login shell of this user prints
        key, value = words[1:]
        if key not in KINDS or not KINDS[key].fullmatch(value):
            raise Failed(f"the host has given a strange answer: {printable(line, 80)}")
        values[key] = int(value) if key in NUMBERS else value.strip()
    else:
        raise Failed(f"the host has given no complete answer: {printable(output[-200:]) or 'nothing'}")
    return values


def script_text(script, settings, arguments):
    """What the host evaluates: the settings as variables, the arguments, then the script."""
    lines = [f"{name}={shlex.quote(value)}" for name, value in settings.items()]
    lines.append("set -- " + " ".join(map(shlex.quote, arguments)))
    lines.append(f"script={shlex.quote(script)}")
    lines.append('eval "$script"')
    return "\n".join(lines) + "\n"


class Action(ActionBase):
    """An action of the collection. A subclass does its work in `work`, and raises Failed with the cause."""

    def run(self, tmp=None, task_vars=None):
        result = super().run(tmp, task_vars)
        if self._task.check_mode:
            return dict(result, skipped=True, msg="nothing is collected in check mode")
        try:
            result.update(self.work(self._task.args, task_vars or {}))
        except OSError as error:
            result.update(failed=True, msg=printable(f"on the controller: {error}"), lost=False)
        except Failed as failure:
            result.update(failure.values, failed=True, msg=str(failure), lost=isinstance(failure, Lost))
        return result

    def work(self, args, task_vars):
        """What the action does; returns the values of its result."""
        raise NotImplementedError


class HostAction(Action):
    """An action on a host, for which a lost connection is an ordinary failure of this host."""

    def call(self, function, *args, **kwargs):
        """Calls a function of the connection; its errors become causes."""
        if self._connection.transport == "ssh":
            # `persistently` makes a lost connection again; and these are times that the host has.
            self._connection.set_option("reconnection_retries", 0)
        try:
            return function(*args, **kwargs)
        except AnsibleConnectionFailure as error:
            raise Lost(f"unreachable: {printable(to_text(error))}") from error
        except TooLate as error:
            raise Lost("the host has not answered in time") from error
        except MemoryError as error:
            raise Failed("the host has sent too much") from error
        except (AnsibleError, OSError) as error:
            raise Failed(printable(to_text(error))) from error

    def shell(self, command, text=None, become=False, more=0):
        """Runs a shell command on the host, with `text` as its input; returns what it prints."""
        with_input = text is not None and self._input_is_possible(become)
        if text is not None and not with_input:
            command = f"sh -c {shlex.quote(text)}"
            if len(command) > COMMAND_BYTES:
                raise Failed("the pattern files are too large for this way to become root")

        def execute():
            with answer_bounds(int(self._task.args.get("answer_limit", ANSWER_SECONDS)) + more):
                return self._low_level_execute_command(
                    command, sudoable=become, in_data=text.encode() if with_input else None)

        done = self.call(execute)
        if done["rc"] != 0:
            said = printable(done["stderr"].strip() or done["stdout"].strip(), 300)
            raise Failed(f"the host's shell ended with status {done['rc']}: {said}")
        return done["stdout"]

    def _input_is_possible(self, become):
        """Some ways to become root need a terminal, which takes no input besides the password."""
        plugin = self._connection.become if become else None
        terminal = plugin is not None and (plugin.name == "su" or getattr(plugin, "require_tty", False))
        return self._connection.has_pipelining and not terminal

    def persistently(self, work, *args, **kwargs):
        """Calls `work` again while its connection is lost, for at most `reconnect` seconds after the last answer."""
        lost = time.monotonic()
        while True:
            try:
                return work(*args, **kwargs)
            except Lost:
                if time.monotonic() - lost > float(self._task.args.get("reconnect", 0)):
                    raise
                time.sleep(PAUSE)

    def send(self, source, target, seconds):
        """Copies a file to the host, as the user who logs in."""
        def put():
            with answer_bounds(seconds):
                self._connection.put_file(source, target)
        self.call(put)

    def fetch(self, source, target, seconds, size):
        """Copies a file of at most `size` bytes from the host, as the user who logs in, to an existing file."""
        # The other ways of this connection put the whole file into memory, or do not end at a limit.
        if self._connection.transport == "ssh":
            self._connection.set_option("ssh_transfer_method", "sftp")

        def get():
            with file_bounds(seconds, size):
                self._connection.fetch_file(source, target)
        self.call(get)

    def step(self, name, settings, arguments=(), more=0):
        """Runs a step of host.sh as root and returns the values of its answer.

        The host has `answer_limit` seconds, and `more` for a step that takes longer.
        """
        with open(self._find_needle("files", "host.sh"), encoding="utf-8") as file:
            text = script_text(file.read(), dict(settings, step=name), arguments)
        return parsed(self.shell("sh -c 'eval \"$(cat)\"'", text, become=True, more=more))


def words(value):
    """A list; `-e NAME=a,b` gives a text, which Ansible accepts for a list too."""
    if isinstance(value, str):
        return [word.strip() for word in value.split(",") if word.strip()]
    return [str(word) for word in value or []]


def truth(value):
    """A truth value; `-e NAME=false` gives a text, which would be true."""
    return boolean(value, strict=False)


def request_settings(args):
    """The settings of host.sh that name a request, from the arguments of an action."""
    work, request = str(args["work_directory"]), str(args["request"])
    if not REQUEST.fullmatch(request):
        raise Failed(f"request {printable(request, 80)!r}: only letters, digits, '.', '_' and '-'")
    if not work.startswith("/") or os.path.normpath(work) != work or not work.isprintable():
        raise Failed(f"work_directory {printable(work, 80)!r}: not a plain, full path")
    return {"work": work, "request": request}
