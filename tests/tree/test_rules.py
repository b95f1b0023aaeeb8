"""The rules that tests/mutation/mutate breaks: their code and their tests exist."""

from __future__ import annotations

import re
from pathlib import Path

import pytest
from mutation.areas import AREAS
from mutation.rule import Rule, files_of_test, product_texts

ROOT = Path(__file__).resolve().parents[2]
RULES = [rule for rules in AREAS.values() for rule in rules]


def test_the_code_of_each_rule_is_in_the_product_once():
    texts = product_texts(ROOT)
    found = {rule.says: [str(path.relative_to(ROOT)) for path, _ in rule.places(texts)]
             for rule in RULES}
    assert {says: paths for says, paths in found.items() if len(paths) != 1} == {}


def test_each_rule_has_a_name_of_its_own():
    assert len({rule.says for rule in RULES}) == len(RULES) > 250


def test_a_broken_rule_differs_from_the_rule():
    assert [rule.says for rule in RULES if "".join(rule.code.split()) == "".join(
        rule.broken.split())] == []


def test_the_tests_of_each_rule_exist():
    for rule in RULES:
        for test in rule.tests.split():
            files = files_of_test(ROOT, test)
            assert files, (rule.says, test)
            if test.count(":") == 2:
                name = test.rpartition(":")[2]
                assert re.search(rf"^def test_\w*{name}", files[0].read_text(), re.MULTILINE), test


@pytest.mark.parametrize("text", [
    "if (taken(a, 1)) {", "if(taken(a,1)){", "if (taken(a,\n            1)) {",
    "x; if ( taken(a, 1) ) {",
])
def test_the_code_of_a_rule_is_found_however_it_is_formatted(text: str):
    assert Rule("", "if (taken(a, 1)) {", "", "").pattern().search(text)


@pytest.mark.parametrize("code, text", [
    ("taken(a, 1)", "taken(b, 1)"),
    ("taken(a, 1", "taken(a, 12)"),
    ("taken(a, 1)", "mistaken(a, 1)"),
    ("int taken", "inttaken"),
])
def test_other_code_is_not_found(code: str, text: str):
    assert not Rule("", code, "", "").pattern().search(text)
