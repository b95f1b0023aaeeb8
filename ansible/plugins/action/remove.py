# Copyright the quendil developers
# Apache-2.0 (see LICENSE or https://www.apache.org/licenses/LICENSE-2.0)
"""Removes everything of a request from a host."""

from __future__ import annotations

from ansible_collections.norvale.quendil.plugins.plugin_utils.host import (
    Failed,
    HostAction,
    request_settings,
    truth,
)


#: The longest time for large directories and for the removal of a package, in seconds.
REMOVE_SECONDS = 240


class ActionModule(HostAction):
    """See the documentation of the module of this name."""

    def work(self, args, task_vars):
        settings = dict(request_settings(args), verified=str(args.get("verified") or ""),
                        keep="yes" if truth(args.get("keep", False)) else "no",
                        uninstall="yes" if truth(args.get("uninstall", True)) else "no")
        answer = self.persistently(self.step, "remove", settings, more=REMOVE_SECONDS)
        if answer.get("state") == "removed":
            return {"changed": True}
        if "kept" in answer and "cause" not in answer:
            return {"changed": True, "kept": answer["kept"]}
        raise Failed(f"not removed from the host: {answer.get('cause', 'the host has given no cause')}")
