"""The options that a usage text and a manual page name."""

from __future__ import annotations

import re

OPTION = r"-?[a-z][a-z-]*"


def of_usage(text: str) -> set[str]:
    """Those of a usage text; a lone hyphen is a file."""
    return set(re.findall(rf"(?<![\w-])-{OPTION}", text))


def of_page(page: str) -> tuple[set[str], set[str]]:
    """Those that the source of a page names anywhere, and those that its lists explain."""
    page = page.replace("\\-", "-")
    named = re.findall(rf"\bFl ({OPTION})", page)
    listed = [name for line in re.findall(r"^\.It (Fl .*)", page, re.M)
              for name in re.findall(rf"\bFl ({OPTION})", line)]
    return {f"-{name}" for name in named}, {f"-{name}" for name in listed}
