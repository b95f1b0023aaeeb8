# Copyright the quendil developers
# Apache-2.0 (see LICENSE or https://www.apache.org/licenses/LICENSE-2.0)
"""Where results are on the controller: DESTINATION/REQUEST/HOST/ARCHIVE, and results.jsonl beside the hosts."""

from __future__ import annotations

import fcntl
import json
import os
import re
import time
from contextlib import contextmanager

from .host import REQUEST, Failed, printable

RESULTS = "results.jsonl"
#: What stays free on the controller.
RESERVE_BYTES = 64 << 20


def request_directory(args):
    """The directory of a request, from the arguments of an action; made if it is missing, for this user alone."""
    destination, request = os.path.expanduser(str(args["destination"])), str(args["request"])
    if not REQUEST.fullmatch(request):
        raise Failed(f"request {printable(request, 80)!r}: only letters, digits, '.', '_' and '-'")
    directory = os.path.join(os.path.abspath(destination), request)
    os.makedirs(directory, mode=0o700, exist_ok=True)
    return directory


def check_space(directory, size):
    """Fails if there is no room for a file of this size."""
    free = os.statvfs(directory)
    if free.f_bavail * free.f_frsize < size + RESERVE_BYTES:
        raise Failed(f"the controller's disk is full: no room for {size} bytes and a reserve of {RESERVE_BYTES} in {directory}")


def host_name(host):
    """The name of a host's directory. Other bytes than those of host names become %XX, so that no two are alike."""
    name = re.sub(rb"[^A-Za-z0-9._-]", lambda match: b"%%%02X" % match.group()[0], host.encode()).decode()
    return "%2E" + name[1:] if name.startswith(".") else name


@contextmanager
def locked(directory):
    """Lets one task of Ansible at a time change the results."""
    with open(os.path.join(directory, ".lock"), "a", encoding="ascii", opener=private) as file:
        fcntl.flock(file, fcntl.LOCK_EX)
        yield


def append(directory, record):
    """Adds the result of a host, as a line of its own, whatever a full disk has left of the line before."""
    with locked(directory), open(os.path.join(directory, RESULTS), "a+b", opener=private) as file:
        size = file.seek(0, os.SEEK_END)
        file.seek(max(size - 1, 0))
        begin = b"" if file.read(1) in (b"", b"\n") else b"\n"
        file.write(begin + json.dumps(record).encode() + b"\n")


def sync_directory(directory):
    """Makes sure that the names in a directory survive a crash."""
    descriptor = os.open(directory, os.O_RDONLY | os.O_DIRECTORY)
    try:
        os.fsync(descriptor)
    finally:
        os.close(descriptor)


def now():
    """The time of a result, to a second, in UTC."""
    return time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime())


def private(path, flags):
    """Opens a file that only this user can read."""
    return os.open(path, flags | os.O_CLOEXEC, 0o600)


def last_of(directory, host=None):
    """The last result of each host, or of one, by host. A line that is cut off, by a full disk, is left out."""
    beginning = None if host is None else json.dumps({"host": host})[:-1] + ","
    found = {}
    try:
        with open(os.path.join(directory, RESULTS), encoding="ascii", errors="replace") as file:
            for line in file:
                if beginning is None or line.startswith(beginning):
                    record = parsed_line(line)
                    if record:
                        found[record["host"]] = record
    except FileNotFoundError:
        pass
    return found


def parsed_line(line):
    """A record, or None if the line is no record."""
    try:
        record = json.loads(line)
    except ValueError:
        return None
    return record if isinstance(record, dict) and isinstance(record.get("host"), str) else None


def rewrite(directory, records):
    """Replaces the results by one line for each host, in the order of their names; complete or not at all.

    The caller has the lock.
    """
    new = os.path.join(directory, "." + RESULTS)
    with open(new, "w", encoding="ascii", opener=private) as file:
        for host in sorted(records):
            file.write(json.dumps(records[host]) + "\n")
        file.flush()
        os.fsync(file.fileno())
    os.replace(new, os.path.join(directory, RESULTS))
