"""Tests with many hosts: each has a fleet of its own."""

from support.fleet_fixture import fleet  # noqa: F401
