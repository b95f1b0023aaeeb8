"""The package tests use the machines of the command tests."""

from __future__ import annotations

import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))

from cli.conftest import (  # noqa: E402,F401
    cell_server,
    installation,
    machine,
    pytest_runtest_makereport,
)
