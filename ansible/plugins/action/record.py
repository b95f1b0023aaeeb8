# Copyright the quendil developers
# Apache-2.0 (see LICENSE or https://www.apache.org/licenses/LICENSE-2.0)
"""Writes the result of a host to results.jsonl, or finds an earlier one there."""

from __future__ import annotations

import os

from ansible_collections.norvale.quendil.plugins.plugin_utils.archive import sha256_of
from ansible_collections.norvale.quendil.plugins.plugin_utils.host import Action, printable, truth
from ansible_collections.norvale.quendil.plugins.plugin_utils.store import (
    append,
    check_space,
    last_of,
    locked,
    now,
    request_directory,
)

NUMBERS = ("exit", "bytes", "seconds")


class ActionModule(Action):
    """See the documentation of the module of this name."""

    def work(self, args, task_vars):
        directory, host = request_directory(args), task_vars["inventory_hostname"]
        if args.get("state") == "begun":
            return {"verified": self._begun(directory, host) is not None}
        record = self._record(directory, args, host)
        append(directory, record)
        return {"record": record, "changed": True}

    def _begun(self, directory, host):
        """Fails if no results can be written: then nothing is to be started. Finds an earlier result on demand."""
        check_space(directory, 0)
        with locked(directory):
            pass
        record = verified(directory, host) if truth(self._task.args.get("resume", False)) else None
        if record:
            append(directory, dict(record, time=now()))
        return record

    def _record(self, directory, args, host):
        start, end, fetch, remove = (args.get(key) or {} for key in ("start", "end", "fetch", "remove"))
        archive = fetch.get("archive")
        causes = [args.get("cause"), end.get("cause") if archive else None]
        for step, what in ((start, "what an earlier run has collected"), (remove, "what was collected")):
            if step.get("kept"):
                causes.append(f"{what} is kept on the host: {step['kept']}")
        if not (args.get("cause") and str(args["cause"]) in str(remove.get("msg"))):
            causes.append(remove.get("msg"))
        record = {
            "host": host, "status": "ok" if archive else "failed",
            "cause": printable("; ".join(str(cause) for cause in causes if cause), 2000), "time": now(),
        }
        for key in NUMBERS:
            record[key] = int(end[key]) if end.get(key) not in (None, "") else None
        record["sha256"] = end.get("sha256")
        record["archive"] = os.path.relpath(archive, directory) if archive else None
        return record


def verified(directory, host):
    """The record of a host whose archive is here and still what was fetched; None if there is none."""
    record = last_of(directory, host).get(host, {})
    if record.get("status") != "ok":
        return None
    path = os.path.join(directory, str(record.get("archive")))
    if not os.path.isfile(path) or sha256_of(path) != record.get("sha256"):
        return None
    return record
