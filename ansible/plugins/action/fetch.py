# Copyright the quendil developers
# Apache-2.0 (see LICENSE or https://www.apache.org/licenses/LICENSE-2.0)
"""Fetches an archive from a host and checks it, whatever the host sends."""

from __future__ import annotations

import fcntl
import os

from ansible_collections.norvale.quendil.plugins.plugin_utils.archive import (
    NAME,
    Damaged,
    sha256_of,
    verify,
)
from ansible_collections.norvale.quendil.plugins.plugin_utils.bounds import TooLate, deadline
from ansible_collections.norvale.quendil.plugins.plugin_utils.host import (
    Failed,
    HostAction,
    Lost,
    printable,
    request_settings,
    truth,
)
from ansible_collections.norvale.quendil.plugins.plugin_utils.store import (
    check_space,
    host_name,
    private,
    request_directory,
    sync_directory,
)

ATTEMPTS = 2
#: A host that sends less than this in a second, on average, is given up.
BYTES_A_SECOND = 64 << 10
#: How much larger than its archive the unpacked content may be: gzip's own limit is 1,032.
LARGEST_RATIO = 1100


class ActionModule(HostAction):
    """See the documentation of the module of this name."""

    def work(self, args, task_vars):
        path, size, checksum = str(args["path"]), int(args["bytes"]), str(args["sha256"])
        settings = request_settings(args)
        inside, name = os.path.split(path)
        if not inside.endswith(f"/{settings['request']}/out"):
            raise Failed(f"the host has named a strange path: {printable(path, 200)}")
        if not NAME.fullmatch(name):
            raise Failed(f"the host has named its archive strangely: {printable(name, 200)}")
        if truth(args.get("encrypted", False)) and not name.endswith(".age"):
            raise Failed("the host has not encrypted its archive")
        limit = int(args["archive_limit"]) << 20
        if not 0 < size <= limit:
            raise Failed(f"the archive has {size} bytes; archive_limit is {limit >> 20} MiB")
        directory = self._directory(args, task_vars)
        check_space(directory, size)
        target = os.path.join(directory, name)
        self._fetch_verified(path, target, size, checksum)
        return {"archive": target, "changed": True}

    def _directory(self, args, task_vars):
        directory = os.path.join(request_directory(args), host_name(task_vars["inventory_hostname"]))
        os.makedirs(directory, mode=0o700, exist_ok=True)
        return directory

    def _fetch_verified(self, path, target, size, checksum):
        """Fetches into a file of another name, which gets its own name once everything is right."""
        part = os.path.join(os.path.dirname(target), ".part")
        with open(part, "ab", opener=private) as file:
            try:
                fcntl.flock(file, fcntl.LOCK_EX | fcntl.LOCK_NB)
            except BlockingIOError:
                raise Failed("another play is fetching from this host for the same request") from None
            self._fetch_into(file, path, target, size, checksum)

    def _fetch_into(self, file, path, target, size, checksum):
        part = file.name
        try:
            for attempt in range(ATTEMPTS):
                file.truncate(0)
                try:
                    self._fetch(path, part, size)
                    self._check(part, os.path.basename(target), size, checksum)
                    break
                except Lost:
                    raise
                except Failed:
                    if attempt == ATTEMPTS - 1:
                        raise
            os.fsync(file.fileno())
            os.chmod(part, 0o400)
            os.replace(part, target)
            sync_directory(os.path.dirname(target))
        finally:
            if os.path.lexists(part):
                os.unlink(part)

    def _fetch(self, path, part, size):
        """One byte more than announced may come, and shows that the host has lied."""
        try:
            seconds = min(120 + size / BYTES_A_SECOND, float(self._task.args["fetch_limit"]))
            self.persistently(self.fetch, path, part, seconds, size + 1)
        except Failed as failure:
            if os.path.getsize(part) > size:
                raise Failed(f"the host has sent more than the {size} bytes that it announced") from failure
            raise

    def _check(self, part, name, size, checksum):
        if os.path.getsize(part) != size:
            raise Failed(f"the transfer gave {os.path.getsize(part)} of {size} bytes")
        if sha256_of(part) != checksum:
            raise Failed("the transfer changed the archive: sha256 differs")
        try:
            with deadline(600 + size / (1 << 20)):
                verify(part, name, size * LARGEST_RATIO)
        except Damaged as error:
            raise Failed(f"the archive is damaged: {error}") from error
        except TooLate as error:
            raise Failed("the archive takes too long to check") from error
