"""A page of quendil-report in a browser."""

from __future__ import annotations

import json
import os
import subprocess
from collections.abc import Callable
from dataclasses import dataclass
from pathlib import Path

from selenium import webdriver
from selenium.common.exceptions import NoAlertPresentException
from selenium.webdriver.common.by import By
from selenium.webdriver.support.ui import WebDriverWait

from .report_archive import Archive

ROOT = Path(__file__).resolve().parents[2]
BUILD = Path(os.environ.get("QUENDIL_BUILD", ROOT / "build"))

SECONDS = 30  # for anything that the browser does; a busy machine is slow

# The bytes of the rows that are shown, as Latin-1 texts: escapes stand for what they show.
SHOWN_ROWS = r"""
const encoder = new TextEncoder();
const escapes = /\\x(..)|\\u\{(\w+)\}|\\u(....)/g;
const shown = (node) => [...node.childNodes].flatMap((part) =>
    part.nodeName === 'BUTTON' ? [] :
    part.nodeName === '#text' ? [...encoder.encode(part.data)] :
    part.nodeName !== 'S' ? shown(part) :
    [...part.textContent.matchAll(escapes)].flatMap(([, byte, code, unit]) =>
        byte ? [parseInt(byte, 16)] :
            [...encoder.encode(String.fromCodePoint(parseInt(unit || code, 16)))]));
return [...document.querySelectorAll('#vb .z > div > code')].map((row) =>
    shown(row).map((byte) => String.fromCharCode(byte)).join(''));
"""


@dataclass
class Page:
    """A page in the browser."""
    browser: webdriver.Chrome
    path: Path
    archive: Archive

    @property
    def address(self) -> str:
        return self.path.as_uri()

    def open(self, hash_: str = "", script: bool = True) -> None:
        """Opens the page anew, with the script's work done."""
        self.browser.get("about:blank")
        self.browser.get(self.address + hash_)
        if script:
            self.wait(lambda: self.run("return Boolean(quendil.bytesOf)"))

    def run(self, script: str, *arguments):
        return self.browser.execute_script(script, *arguments)

    def later(self, script: str, *arguments):
        """The value of a promise."""
        return self.browser.execute_async_script(
            "const done = arguments[arguments.length - 1]; const given = arguments;"
            f"(async () => {{ {script} }})().then(done, (error) => done(String(error)));",
            *arguments)

    def wait(self, condition: Callable[[], object]):
        return WebDriverWait(self.browser, SECONDS, poll_frequency=0.02).until(
            lambda _: condition())

    def all(self, selector: str):
        return self.browser.find_elements(By.CSS_SELECTOR, selector)

    def one(self, selector: str):
        return self.browser.find_element(By.CSS_SELECTOR, selector)

    def text(self, selector: str) -> str:
        return self.run("return document.querySelector(arguments[0])?.textContent ?? ''", selector)

    def texts(self, selector: str) -> list[str]:
        return self.run("return [...document.querySelectorAll(arguments[0])]"
                        ".map((node) => node.textContent)", selector)

    def item(self, name: str) -> int:
        """The number of an item."""
        return self.run(
            "return [...document.querySelectorAll('#items li')].map((node) => "
            "Number(node.id.slice(1))).find((item) => quendil.nameOf(item) === arguments[0])", name)

    def visit(self, hash_: str) -> None:
        """Goes to a place of the page, as its links do."""
        self.run("location.hash = arguments[0]", hash_)

    def view(self, item: int, line: int = 0) -> None:
        """Opens an item, and waits until it is shown."""
        self.visit(f"#i{item}L{line}" if line else f"#i{item}")
        self.wait(lambda: self.run(
            "return document.getElementById('v').open && "
            "document.getElementById('vt').textContent === quendil.nameOf(arguments[0]) && "
            "!/^(Opening|$)/.test(document.getElementById('vm').textContent)", item))

    def rows(self) -> list[bytes]:
        """The rows that are shown, byte by byte."""
        return [row.encode("latin-1") for row in self.run(SHOWN_ROWS)]

    def contents(self) -> dict[str, bytes]:
        """The bytes of all items that open, by their names, as the page has them."""
        found = self.later("""
            const items = [...document.querySelectorAll('#items li > a')].map((node) =>
                Number(node.getAttribute('href').slice(2)));
            const texts = [];
            for (const item of items) {
                const bytes = await quendil.bytesOf(item);
                let text = '';
                for (let at = 0; at < bytes.length; at += 8192) {
                    text += String.fromCharCode(...bytes.subarray(at, at + 8192));
                }
                texts.push([quendil.nameOf(item), text]);
            }
            return texts;""")
        assert isinstance(found, list), found
        assert len({name for name, _ in found}) == len(found)
        return {name: text.encode("latin-1") for name, text in found}

    def status(self) -> str:
        return self.text("#vm")

    def numbers(self) -> list[int]:
        """The numbers of the rows that are shown."""
        return [int(text) for text in self.texts("#vb .z > div > a")]

    def search(self, text: str) -> None:
        """Types into the search, and waits for the end."""
        field = self.one("#s")
        field.clear()
        field.send_keys(text)
        self.wait(lambda: self.text("#hs") and "Searching" not in self.text("#hs"))

    def problems(self) -> list[str]:
        """What the page must not do: requests, messages of the console, dialogs."""
        found = [entry["message"] for entry in self.browser.get_log("browser")
                 if entry["level"] in ("SEVERE", "WARNING")]
        for entry in self.browser.get_log("performance"):
            message = json.loads(entry["message"])["message"]
            if message["method"] == "Network.requestWillBeSent":
                address = message["params"]["request"]["url"]
                if address.partition("#")[0] not in (self.address, "about:blank"):
                    found.append(address)
        try:
            found.append(self.browser.switch_to.alert.text)
        except NoAlertPresentException:
            pass
        return found

    def scheme(self, name: str) -> None:
        """Light or dark; without motion, which clicks would have to wait for."""
        self.browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {"features": [
            {"name": "prefers-color-scheme", "value": name},
            {"name": "prefers-reduced-motion", "value": "reduce"}]})

    def size(self, width: int, height: int) -> None:
        self.browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
            "width": width, "height": height, "deviceScaleFactor": 1, "mobile": False})

    def without_script(self, off: bool) -> None:
        self.browser.execute_cdp_cmd("Emulation.setScriptExecutionDisabled", {"value": off})


def stage() -> Path:
    assert "QUENDIL_STAGE" in os.environ, "QUENDIL_STAGE must name the staging tree"
    return Path(os.environ["QUENDIL_STAGE"])


def make_page(archive: Archive, directory: Path, *options: str, status: int = 0) -> Path:
    """The page of an archive."""
    source = archive.write(directory / f"{archive.top}.tar.gz")
    path = directory / f"{archive.top}.html"
    program = stage() / "opt/norvale/quendil/bin/quendil-report"
    done = subprocess.run([program, *options, "-o", path, source], capture_output=True, text=True,
                          timeout=60, check=False)
    assert (done.returncode, done.stderr) == (status, ""), done
    return path
