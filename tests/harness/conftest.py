"""The tests of the harness run a small shell script in the program's place."""

from __future__ import annotations

import pytest
from support import shell_program
from support.fleet_fixture import fleet  # noqa: F401
from support.machine import Installation


@pytest.fixture(scope="session")
def installation(tmp_path_factory: pytest.TempPathFactory) -> Installation:
    """An installation of the script, made like that of the program."""
    return shell_program.install(tmp_path_factory.mktemp("stage"))
