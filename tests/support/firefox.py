"""Firefox, driven by its WebDriver BiDi interface, for which it needs no other program."""

from __future__ import annotations

import base64
import json
import os
import re
import signal
import subprocess
from pathlib import Path

import trio
from trio_websocket import open_websocket_url

LISTENING = re.compile(rb"WebDriver BiDi listening on (ws://\S+)")
SECONDS = 60


class Firefox:
    """One Firefox with one page. Use it in `with`."""

    def __init__(self, profile: Path) -> None:
        self.profile = profile
        (profile / "user.js").write_text(
            'user_pref("datareporting.policy.dataSubmissionEnabled", false);\n'
            'user_pref("network.proxy.type", 1);\n'        # no host can be reached
            'user_pref("network.proxy.http", "127.0.0.1");\n'
            'user_pref("network.proxy.ssl", "127.0.0.1");\n'
            'user_pref("network.proxy.http_port", 9);\n'
            'user_pref("network.proxy.ssl_port", 9);\n')

    def __enter__(self) -> Firefox:
        self.process = subprocess.Popen(
            ["firefox-esr", "--headless", "--no-remote", "--profile", self.profile,
             "--remote-debugging-port", "0", "about:blank"],
            env={"HOME": str(self.profile), "PATH": "/usr/bin:/bin", "MOZ_HEADLESS_WIDTH": "1280",
                 "MOZ_HEADLESS_HEIGHT": "900", "MOZ_CRASHREPORTER_DISABLE": "1"},
            stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, start_new_session=True)
        assert self.process.stderr is not None
        for line in self.process.stderr:
            if match := LISTENING.search(line):
                self.address = match[1].decode()
                return self
        raise AssertionError("Firefox has ended")

    def __exit__(self, *_: object) -> None:
        os.killpg(self.process.pid, signal.SIGKILL)
        self.process.communicate()

    def visit(self, address: str, script: str) -> tuple[object, bytes]:
        """Opens a page and runs a script there, the body of an async function. Returns the value,
        by way of JSON, and then a picture."""
        return trio.run(self._visit, address, script)

    async def _visit(self, address: str, script: str) -> tuple[object, bytes]:
        number = 0

        async def call(method: str, **params: object) -> dict:
            nonlocal number
            number += 1
            await socket.send_message(
                json.dumps({"id": number, "method": method, "params": params}))
            while (answer := json.loads(await socket.get_message())).get("id") != number:
                pass
            assert answer["type"] == "success", answer
            return answer["result"]

        with trio.fail_after(SECONDS):
            async with open_websocket_url(
                    self.address + "/session", max_message_size=2**26) as socket:
                await call("session.new", capabilities={})
                context = (await call("browsingContext.getTree"))["contexts"][0]["context"]
                await call("browsingContext.navigate", context=context, url=address,
                           wait="complete")
                done = await call(
                    "script.evaluate", target={"context": context}, awaitPromise=True,
                    expression=f"(async () => {{ {script} }})().then(JSON.stringify)")
                assert done["type"] == "success", done
                picture = await call("browsingContext.captureScreenshot", context=context)
                await call("session.end")
                return json.loads(done["result"]["value"]), base64.b64decode(picture["data"])
