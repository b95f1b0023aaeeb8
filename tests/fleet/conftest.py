"""Tests with many hosts: each has a fleet of its own."""

import pytest
from support.fleet import Fleet
from support.fleet_fixture import fleet  # noqa: F401
from support.fleet_play import Plays


@pytest.fixture
def plays(fleet: Fleet) -> Plays:  # noqa: F811
    """The collection, installed on the fleet's controller."""
    return Plays(fleet)
