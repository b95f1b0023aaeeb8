# Copyright the quendil developers
# Apache-2.0 (see LICENSE or https://www.apache.org/licenses/LICENSE-2.0)
"""Ends a request: completes results.jsonl and makes the overview."""

from __future__ import annotations

import os
import shutil
import subprocess

from ansible_collections.norvale.quendil.plugins.plugin_utils.host import Action, printable, truth, words
from ansible_collections.norvale.quendil.plugins.plugin_utils.store import (
    RESULTS,
    last_of,
    locked,
    now,
    request_directory,
    rewrite,
)

REPORT = "/opt/norvale/quendil/bin/quendil-report"
#: The longest time for the pages of all archives, in seconds.
OVERVIEW_SECONDS = 7200
#: More failed hosts than this are counted; all are in the results.
NAMED = 200


class ActionModule(Action):
    """See the documentation of the module of this name."""

    def work(self, args, task_vars):
        directory, hosts = request_directory(args), words(args["hosts"])
        with locked(directory):
            records = completed(last_of(directory), hosts, str(args.get("since") or ""))
            rewrite(directory, records)
        causes = {host: printable(records[host]["cause"]) for host in hosts if records[host]["status"] != "ok"}
        result = {"changed": True, "causes": causes, "results": os.path.join(directory, RESULTS), "overview": None}
        if truth(args.get("overview", True)):
            result.update(overview(directory))
        return dict(result, text=text(result, len(hosts)))


def completed(records, hosts, since):
    """The results of all hosts. One that has none since this play began fell out of the play."""
    for host in hosts:
        if records.get(host, {}).get("time", "") < since:
            records.pop(host, None)
        records.setdefault(host, {
            "host": host, "status": "failed", "cause": "the play ended early for this host", "time": now(),
            "exit": None, "bytes": None, "seconds": None, "sha256": None, "archive": None})
    return records


def text(result, count):
    """What the play says at its end."""
    failed = list(result["causes"])
    said = f"{count - len(failed)} of {count} hosts are collected. Results: {result['results']}."
    if result["overview"]:
        said += f" Overview: {result['overview']}."
    if result.get("overview_note"):
        said += f" Overview: {result['overview_note']}."
    if failed:
        said += f" Failed: {', '.join(failed[:NAMED])}"
        said += f" and {len(failed) - NAMED} more." if len(failed) > NAMED else "."
    return said


def overview(directory):
    """Makes the page of all archives, if quendil-report is installed here; returns values of the result.

    The page of an earlier play of this request is replaced: this one has more archives.
    """
    report = shutil.which("quendil-report") or (REPORT if os.access(REPORT, os.X_OK) else None)
    if report is None:
        return {"overview_note": "quendil-report is not installed on the controller"}
    page, new = os.path.join(directory, "index.html"), os.path.join(directory, f".index.{os.getpid()}.html")
    if os.path.lexists(new):
        os.unlink(new)
    destination, request = os.path.split(directory)
    try:
        done = subprocess.run([report, "--overview", "-o", new, request], cwd=destination, stdin=subprocess.DEVNULL,
                              stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, check=False, timeout=OVERVIEW_SECONDS)
    except subprocess.TimeoutExpired:
        return {"overview_note": f"quendil-report took more than {OVERVIEW_SECONDS} s"}
    note = printable(done.stderr.decode(errors="replace"), 1000)
    if not os.path.lexists(new):
        return {"overview_note": note or "quendil-report made no page"}
    os.replace(new, page)
    return {"overview": page, "overview_note": note}
