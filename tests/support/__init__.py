"""Shared by the tests: private machines, expected texts, masks."""
