"""Pages of quendil-report in Chromium, which Selenium drives. No page may reach the network.

QUENDIL_STAGE   the staging tree of an installation
QUENDIL_BUILD   the build directory: what npm installs is kept below it; default "build"
CI              if set, tests that need what npm installs fail when it cannot be installed, and are
                skipped otherwise
"""

from __future__ import annotations

import fcntl
import os
import subprocess
from collections.abc import Iterator
from pathlib import Path

import pytest
from selenium import webdriver
from selenium.webdriver.chrome.options import Options
from selenium.webdriver.chrome.service import Service
from support.report_archive import Archive
from support.report_page import BUILD, SECONDS, Page

NPM_PACKAGES = ["axe-core@4.14.1", "html-validate@8.29.0", "typescript@5.9.3"]

# Neither the browser's own services nor a page can reach a host.
OPTIONS = ["--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
           "--hide-scrollbars", "--force-device-scale-factor=1", "--no-first-run",
           "--disable-background-networking", "--disable-component-update", "--disable-sync",
           "--disable-default-apps", "--host-resolver-rules=MAP * ~NOTFOUND"]

@pytest.fixture(scope="module")
def browser(tmp_path_factory: pytest.TempPathFactory) -> Iterator[webdriver.Chrome]:
    """One browser for the tests of a module."""
    options = Options()
    options.binary_location = "/usr/bin/chromium"
    profile = tmp_path_factory.mktemp("profile")
    for option in [*OPTIONS, f"--user-data-dir={profile}", "--window-size=1280,900"]:
        options.add_argument(option)
    options.set_capability("goog:loggingPrefs", {"browser": "ALL", "performance": "ALL"})
    driver = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
    driver.set_script_timeout(SECONDS)
    driver.get("about:blank")
    driver.get_log("performance")  # of the browser's own first page
    yield driver
    driver.quit()


@pytest.fixture
def page(browser, made: tuple[Path, Archive]) -> Iterator[Page]:
    """The page that a module has made of an archive, opened anew."""
    page = Page(browser, *made)
    page.size(1280, 900)
    page.scheme("light")
    page.open()
    yield page
    assert page.problems() == []


@pytest.fixture(scope="session")
def npm() -> Path:
    """The directory of the packages of npm, installed once and kept."""
    directory = BUILD / "npm"
    directory.mkdir(parents=True, exist_ok=True)
    marker = directory / "installed"
    with open(directory / "lock", "w") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        if not marker.exists() or marker.read_text() != " ".join(NPM_PACKAGES):
            try:
                done = subprocess.run(
                    ["npm", "install", "--prefix", directory, "--no-fund", "--no-audit",
                     "--ignore-scripts", "--fetch-retries=1", *NPM_PACKAGES],
                    capture_output=True, text=True, timeout=120, check=False)
                problem = done.stderr if done.returncode else ""
            except (OSError, subprocess.TimeoutExpired) as error:
                problem = str(error)
            if problem:
                assert "CI" not in os.environ, f"npm cannot install: {problem}"
                pytest.skip(f"npm cannot install: {problem[-300:]}")
            marker.write_text(" ".join(NPM_PACKAGES))
    return directory / "node_modules"
