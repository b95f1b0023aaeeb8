# Copyright the quendil developers
# Apache-2.0 (see LICENSE or https://www.apache.org/licenses/LICENSE-2.0)
"""Waits until the run on a host has ended; a lost connection is made again."""

from __future__ import annotations

import time

from ansible_collections.norvale.quendil.plugins.plugin_utils.host import (
    Failed,
    HostAction,
    Lost,
    request_settings,
)

#: How long the host waits for the end of the run before it answers, in seconds.
PATIENCE = 25


class ActionModule(HostAction):
    """See the documentation of the module of this name."""

    def work(self, args, task_vars):
        settings = dict(request_settings(args), patience=str(PATIENCE))
        end = time.monotonic() + float(args["time_limit"])
        while True:
            asked = time.monotonic()
            try:
                answer = self.persistently(self.step, "wait", settings, more=PATIENCE)
            except Lost as failure:
                raise Lost(f"{failure}; the run goes on there") from failure
            if answer.get("state") != "running":
                return self._judged(answer)
            if time.monotonic() - asked < 1:
                time.sleep(1)  # the host has not waited
            if time.monotonic() > end:
                raise Failed("the run has not ended in time; it goes on there")

    def _judged(self, answer):
        """The result of an answer that says how the run ended."""
        state = answer.pop("state", None)
        cause = answer.pop("cause", "")
        if state == "lost":
            raise Failed("the run was killed, or the host was restarted", **answer)
        if state != "finished":
            raise Failed("the host has given a strange answer: no state")
        if not all(key in answer for key in ("path", "bytes", "sha256")):
            raise Failed(cause or "the host has given no cause", **answer)
        return dict(answer, cause=cause, changed=False)
