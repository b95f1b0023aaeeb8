# Copyright the quendil developers
# Apache-2.0 (see LICENSE or https://www.apache.org/licenses/LICENSE-2.0)
"""Starts a run of quendil on a host, after it has checked program and free space."""

from __future__ import annotations

import hashlib
import os
import re
import shlex

from ansible_collections.norvale.quendil.plugins.plugin_utils.host import (
    Failed,
    HostAction,
    printable,
    request_settings,
    truth,
    words,
)

#: The longest time for the preview and for the installation of a package, in seconds.
START_SECONDS = 240
#: The longest time for a package on its way to a host, in seconds.
SEND_SECONDS = 900


def text_of(path):
    """A pattern file's text; a shell can hold it in a variable."""
    try:
        with open(path, encoding="utf-8", newline="") as file:
            text = file.read()
    except (OSError, UnicodeDecodeError) as error:
        raise Failed(f"pattern file: {error}") from error
    if "\0" in text:
        raise Failed(f"pattern file {path}: a NUL byte")
    return text[:-1] if text.endswith("\n") else text


def pattern_settings(paths):
    """The settings of host.sh for pattern files on the controller."""
    names = [os.path.basename(path) for path in paths]
    for name in names:
        if not re.fullmatch(r"[A-Za-z0-9][A-Za-z0-9._-]*", name):
            raise Failed(f"pattern file {printable(name, 80)!r}: only letters, digits, '.', '_' and '-' in its name")
    if len(set(names)) != len(names):
        raise Failed("two pattern files have the same name")
    settings = {f"pattern_{number}": text_of(path) for number, path in enumerate(paths, 1)}
    return dict(settings, patterns="\n".join(names))


class ActionModule(HostAction):
    """See the documentation of the module of this name."""

    def work(self, args, task_vars):
        settings = dict(
            request_settings(args), **pattern_settings(words(args.get("patterns"))),
            limit=str(int(args["time_limit"])),
            least=str(int(args["free_space"]) * 1024) if args.get("free_space") not in (None, "") else "",
            recipients="\n".join(self._recipients(words(args.get("recipients")))),
            uninstall="yes" if truth(args.get("uninstall", True)) else "no",
        )
        arguments = [word for group in words(args.get("groups")) for word in ("-g", group)]
        arguments += [word for target in words(args.get("targets")) for word in ("-t", target)]
        if not arguments:
            raise Failed("no group and no target: there is nothing to collect")
        # Not as root: it tells who logs in.
        login = self.shell("echo \"user $(id -u)\"; test -x /opt/norvale/quendil/bin/quendil || echo absent")
        user = re.search(r"^user ([0-9]{1,10})\r?$", login, re.MULTILINE)
        if not user:
            raise Failed(f"the host has given a strange answer: {printable(login, 80)}")
        settings["user"] = user.group(1)
        package, directory = args.get("package"), None
        if package and re.search(r"^absent\r?$", login, re.MULTILINE):
            directory = self._send(package, settings)
        try:
            # A second start of the same request only says that there was a first one.
            answer = self.persistently(self.step, "start", settings, arguments, more=START_SECONDS)
        finally:
            if directory:
                self.shell(f"rm -rf {shlex.quote(directory)}")  # if root has not got so far
        if "state" not in answer:
            raise Failed(answer.get("cause", "the host has given no cause"))
        return dict(answer, changed=answer["state"] == "started")

    def _recipients(self, recipients):
        for recipient in recipients:
            if not re.fullmatch(r"[A-Za-z0-9+/=@._ -]+", recipient) or recipient.startswith("-"):
                raise Failed(f"not a public key of age: {printable(recipient, 80)}")
        return recipients

    def _send(self, package, settings):
        """Sends a package to the host, as the user who logs in; returns the directory that it is in."""
        if not re.fullmatch(r"[A-Za-z0-9][A-Za-z0-9._+~-]*\.(deb|rpm|tar\.gz)", os.path.basename(package)):
            raise Failed(f"not a package of quendil: {printable(package, 200)}")
        try:
            with open(package, "rb") as file:
                content = file.read()
            settings["package_bytes"] = str(len(content))
            settings["package_sha256"] = hashlib.sha256(content).hexdigest()
        except OSError as error:
            raise Failed(f"package: {error}") from error
        said = self.shell("umask 077 && mktemp -d /tmp/quendil.XXXXXXXXXX")
        made = re.search(r"^(/tmp/quendil\.\w{10})\r?$", said, re.MULTILINE)
        if not made:
            raise Failed(f"the host has no place for the package: {printable(said, 200)}")
        directory = made.group(1)
        settings["package"] = f"{directory}/{os.path.basename(package)}"
        self.send(package, settings["package"], SEND_SECONDS)
        return directory
