"""The rules of the product by area."""

from mutation.areas import (
    archives, checks, collection, fleet, patterns, products, report, run_control, secrets, sources, timer, tools,
)

AREAS = {module.__name__.rpartition(".")[2]: module.RULES for module in (
    run_control, patterns, collection, sources, tools, products, secrets,
    checks, archives, report, fleet, timer)}
