"""The fixture that gives a test its fleet. A `conftest.py` imports it by name."""

from __future__ import annotations

from collections.abc import Iterator
from pathlib import Path

import pytest

from .fleet import Fleet
from .machine import Installation
from .sandbox import SandboxServer


@pytest.fixture
def fleet(sandbox_server: SandboxServer, installation: Installation,
          tmp_path: Path) -> Iterator[Fleet]:
    """A fleet without hosts, which belongs to one test and ends with it."""
    made = Fleet(sandbox_server, installation, tmp_path)
    try:
        yield made
    finally:
        made.destroy()
