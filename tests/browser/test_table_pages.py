"""The pages of --diff and --overview in Chromium: clean, and readable at every width."""

from __future__ import annotations

import json
import subprocess
from pathlib import Path

import pytest
from selenium import webdriver
from support.reporting import make_archive, report

CONFIGURATION = Path(__file__).with_name("html-validate.json")

BEFORE = {
    "kernel/sysctl_kernel.txt": "/proc/sys/kernel/panic:0\n" + "".join(
        f"/proc/sys/vm/setting_{number}:{'0,' * 40}\n" for number in range(40)),
    "user/etc/login.defs": "UMASK 022\n" + "x" * 300 + "\n",
    "kernel/lsmod.txt": "Module Size Used by\nxfs 2048000 1\n",
    "service/failed_units.txt": "  UNIT LOAD ACTIVE SUB DESCRIPTION\n"
                                "* eater.service loaded failed failed x\n",
    "memory/proc/vmstat": "a 1\nb 2\n",
}
AFTER = {
    **BEFORE,
    "kernel/sysctl_kernel.txt": BEFORE["kernel/sysctl_kernel.txt"].replace("0,", "1,"),
    "user/etc/login.defs": "UMASK 077\n",
    "kernel/lsmod.txt": "lsmod: not installed on this machine\n",
    "memory/proc/vmstat": "a 1\nb 3\n" + "y" * 300 + "\n",
}


@pytest.fixture(scope="module")
def pages(tmp_path_factory: pytest.TempPathFactory) -> dict[str, Path]:
    directory = tmp_path_factory.mktemp("pages")
    old = make_archive(directory, BEFORE, "vm_261123162538")
    new = make_archive(directory, AFTER, "web_261124080000", "2026/11/24 08:00:00")
    (directory / "bad.tar.gz").write_text("no archive\n")
    assert report("--diff", "--all", "-o", directory / "diff.html", old, new).status == 0
    assert report("--overview", directory).status == 1
    return {"diff": directory / "diff.html", "overview": directory / "index.html"}


@pytest.fixture(params=["diff", "overview"])
def page(request: pytest.FixtureRequest, pages: dict[str, Path]) -> Path:
    return pages[request.param]


def opened(browser: webdriver.Chrome, page: Path) -> None:
    browser.get("about:blank")
    browser.get_log("browser")
    browser.get(page.as_uri())


def test_the_html_is_valid(page: Path, npm: Path):
    done = subprocess.run([npm / ".bin/html-validate", "--config", CONFIGURATION, page],
                          capture_output=True, text=True, timeout=60, check=False)
    assert (done.returncode, done.stdout, done.stderr) == (0, "", "")


@pytest.mark.parametrize("scheme", ["light", "dark"])
@pytest.mark.parametrize("width", [400, 1280])
def test_it_is_accessible(browser: webdriver.Chrome, page: Path, npm: Path, scheme: str, width: int):
    opened(browser, page)
    browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {
        "features": [{"name": "prefers-color-scheme", "value": scheme}]})
    browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
        "width": width, "height": 900, "deviceScaleFactor": 1, "mobile": False})
    try:
        browser.execute_script("for (const node of document.querySelectorAll('details')) "
                               "node.open = true;")
        browser.execute_cdp_cmd("Runtime.evaluate", {
            "expression": (npm / "axe-core/axe.min.js").read_text()})
        found = browser.execute_async_script(
            "const done = arguments[arguments.length - 1];"
            "axe.run(document, {resultTypes: ['violations']}).then("
            "(result) => done(result.violations.map((one) => one.id + ': ' + one.nodes.slice(0, 3)"
            ".map((node) => node.html + ' ' + node.failureSummary).join('; '))),"
            "(error) => done([String(error)]));")
        wide = browser.execute_script("return document.documentElement.scrollWidth")
    finally:
        browser.execute_cdp_cmd("Emulation.clearDeviceMetricsOverride", {})
        browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {"features": []})
    assert found == []
    assert wide <= width


def test_it_asks_for_nothing_and_reports_nothing(browser: webdriver.Chrome, page: Path):
    browser.get_log("performance")
    opened(browser, page)
    requests = {json.loads(entry["message"])["message"]["params"]["request"]["url"]
                for entry in browser.get_log("performance")
                if json.loads(entry["message"])["message"]["method"] == "Network.requestWillBeSent"}
    assert requests <= {page.as_uri(), "about:blank"}
    assert browser.get_log("browser") == []
    # The policy's hashes are those of the styles.
    assert browser.execute_script("return [...document.styleSheets].map("
                                  "(sheet) => sheet.cssRules.length > 5)") == [True, True]


def test_the_links_of_the_overview_open_the_pages(browser: webdriver.Chrome, pages: dict[str, Path]):
    opened(browser, pages["overview"])
    addresses = browser.execute_script(
        "return [...document.querySelectorAll('td a, th a')].map((link) => link.href)")
    assert len(addresses) == 2
    for address in addresses:
        browser.get(address)
        host = "web" if "web_" in address else "vm"
        assert browser.title.startswith(host)
