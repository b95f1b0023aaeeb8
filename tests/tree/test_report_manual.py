"""The page of quendil-report: that it has every option and limit of the program."""

from __future__ import annotations

import re
from pathlib import Path

from support.option_texts import of_page, of_usage

ROOT = Path(__file__).resolve().parents[2]
SOURCE = ROOT / "src/view"
PAGE = (ROOT / "man/quendil-report.8").read_text()


def test_the_synopsis_and_the_list_have_the_options_of_the_usage():
    code = (SOURCE / "IGViewOption.cpp").read_text().split("REPORT_USAGE =")[1].split(";\n")[0]
    usage = of_usage(code)
    assert of_page(PAGE) == (usage, usage)


def test_the_limits_are_those_of_the_program():
    option = (SOURCE / "IGViewOption.h").read_text()
    scan = (SOURCE / "IGViewScan.h").read_text()
    assert "DEFAULT_LIMIT = 64;" in option and "64 without this option" in PAGE
    assert "MOST_LIMIT = 4096;" in option and "at most 4096" in PAGE
    assert "std::uint64_t{8} * 1024 * 1024 * 1024" in scan and "after 8 GiB of content" in PAGE
    assert "MOST_ITEMS = 100000;" in (SOURCE / "IGViewResult.h").read_text()
    assert "100,000 members" in PAGE
    assert "64} * 1024;" in (SOURCE / "IGViewLines.h").read_text() and "64 KiB of a line" in PAGE


def test_there_are_at_least_forty_rules():
    rules = (SOURCE / "definitions.json").read_text().split('"facts": [')[0]
    assert len(re.findall(r'^      "name": "', rules, re.M)) >= 40
