"""The page of quendil-check: that it leaves out no rule and no option of the program."""

from __future__ import annotations

import re
from pathlib import Path

import pytest
from support.option_texts import of_page, of_usage

ROOT = Path(__file__).resolve().parents[2]
SOURCE = ROOT / "src/check"
PAGE = (ROOT / "man/quendil-check.8").read_text()

#: The parts of the section of rules, with the level of the rules in each.
PARTS = {
    "Errors of pattern files": "error",
    "Errors of configuration files": "error",
    "Warnings": "warning",
    "Warnings of this machine": "warning",
    "Findings of a preview": "error",
}


def rules() -> list[tuple[str, str]]:
    """The name and the level of every rule of the program."""
    table = (SOURCE / "IGCheckRule.cpp").read_text().split("RULES[] = {")[1].split("\n};")[0]
    rows = re.findall(r'^ {4}\{"([a-z-]+)", Level::(ERROR|WARNING),', table, re.M)
    assert len(rows) == len(re.findall(r"^ {4}\{", table, re.M)) > 50
    return [(name, level.lower()) for name, level in rows]


def entries() -> list[tuple[str, str, str]]:
    """The name, the level and the text of every rule of the page."""
    section = re.search(r"^\.Sh RULES\n(.*?)^\.Sh ", PAGE, re.M | re.S)
    assert section
    parts = re.findall(r"^\.Ss (.*)\n((?:(?!\.Ss ).*\n)*)", section[1], re.M)
    assert [name for name, _ in parts] == list(PARTS)
    return [(name, PARTS[part], text) for part, body in parts
            for name, text in re.findall(r"^\.It Ic (.*)\n((?:(?!\.It |\.El).*\n)*)", body, re.M)]


def test_every_rule_has_one_entry_below_its_level():
    assert sorted((name, level) for name, level, _ in entries()) == sorted(rules())


@pytest.mark.parametrize("name, text", [(name, text) for name, _, text in entries()])
def test_an_entry_gives_the_cause_and_the_remedy_in_a_few_sentences(name: str, text: str):
    lines = text.splitlines()
    sentences = [line for line in lines if line.endswith(".") or line.endswith(" .")]
    assert 2 <= len(sentences) <= 4, name


def test_the_warnings_of_this_machine_are_those_of_the_unit_that_asks_it():
    code = (SOURCE / "IGCheckMachine.cpp").read_text()
    asked = {name.lower().replace("_", "-") for name in re.findall(r"Warning::(\w+)", code)}
    part = PAGE.split(".Ss Warnings of this machine\n")[1].split("\n.Ss ")[0]
    assert set(re.findall(r"^\.It Ic (.*)", part, re.M)) == asked


def test_the_synopsis_and_the_lists_have_the_options_of_the_usage():
    code = (SOURCE / "IGCheckOption.cpp").read_text().split("CHECK_USAGE =")[1].split(";\n")[0]
    usage = of_usage(code)
    assert of_page(PAGE) == (usage, usage)


def test_the_limits_are_those_of_the_program():
    finding = (SOURCE / "IGCheckFinding.h").read_text()
    most = re.search(r"MOST_FINDINGS = (\d+)", finding)
    source = (SOURCE / "IGCheckSource.cpp").read_text()
    assert most and f"At most {most[1]} findings" in PAGE
    assert "MOST_INPUT = std::size_t{8} << 20U" in source and "Up to 8 MiB" in PAGE
    assert "LONG_TIMEOUT = 300" in (SOURCE / "IGCheckWarning.cpp").read_text()
    assert "more than five minutes" in PAGE
