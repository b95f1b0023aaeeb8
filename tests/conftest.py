"""A machine for every test.

These environment variables set what is tested:

QUENDIL_STAGE     the staging tree of an installation (DESTDIR of the install step)
QUENDIL_BEHAVE    the helper program built from tests/support/behave.c; the other helper programs and
                  the library of the fault tests are in the same directory
QUENDIL_WRAPPER   optional: a command put in front of the program in every run, such as valgrind
                  with its options; reports that it leaves as /tmp/wrapper.* are shown by failures
QUENDIL_WRITABLE  optional: host directories, separated by colons, that stay writable in a machine,
                  such as the build directory of a coverage build
"""

from __future__ import annotations

import os
import sys
from collections.abc import Iterator
from pathlib import Path
from zlib import crc32

import pytest

sys.path.insert(0, str(Path(__file__).resolve().parent))
pytest.register_assert_rewrite("support.tree", "support.run", "support.machine",
                              "support.fleet", "support.fleet_host")

from support.machine import Installation, Machine  # noqa: E402
from support.sandbox import SandboxServer  # noqa: E402
from support.tool_directory import SYSTEMS, use_system  # noqa: E402

FAILED = pytest.StashKey[bool]()


def pytest_configure(config: pytest.Config) -> None:
    """Registers the marks of the command tests."""
    config.addinivalue_line(
        "markers", "plain_binary: needs the program as installed, not an instrumented one")


def pytest_collection_modifyitems(config: pytest.Config, items: list[pytest.Item]) -> None:
    """Spreads the slow tests, most of which are in a few files: a worker gets neighbours, and the
    last worker would otherwise be busy for minutes after all others. The tests of packages share
    the packages of their file and stay together."""
    if hasattr(config, "workerinput"):
        items.sort(key=lambda item: crc32(os.fsencode(
            item.path if item.path.parent.name == "package" else item.nodeid)))


@pytest.fixture(scope="session")
def sandbox_server() -> Iterator[SandboxServer]:
    """Makes the sandboxes of this worker."""
    assert os.geteuid() == 0, "the command tests must be run by root"
    server = SandboxServer()
    yield server
    server.close()


@pytest.fixture(scope="session")
def installation() -> Installation:
    """What is tested: the staging tree and its helpers, as the environment names them."""
    return Installation.from_environment()


@pytest.fixture
def machine(sandbox_server: SandboxServer, installation: Installation,
            request: pytest.FixtureRequest) -> Iterator[Machine]:
    """A machine that belongs to one test, checked and ended after it."""
    made = Machine(sandbox_server, installation)
    try:
        yield made
        if not request.node.stash.get(FAILED, False):
            made.check()
    finally:
        made.destroy()


@pytest.fixture(params=SYSTEMS)
def system(machine: Machine, request: pytest.FixtureRequest) -> Machine:
    """A machine with the shell and the awk of a distribution."""
    use_system(machine, request.param)
    return machine


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_makereport(item: pytest.Item):
    """Adds what is known of the machine to the report of a failed test."""
    outcome = yield
    report = outcome.get_result()
    if report.when == "call" and report.failed:
        item.stash[FAILED] = True
        for name in ("machine", "fleet"):
            made = getattr(item, "funcargs", {}).get(name)
            if made is not None:
                report.sections.append((name, made.describe()))
