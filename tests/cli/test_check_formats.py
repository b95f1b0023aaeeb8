"""The JSON outputs of quendil-check: they fit their schemas, and the documents show real ones."""

from __future__ import annotations

import json
import re
from pathlib import Path

import jsonschema
import pytest
from support import pattern_text
from support.checking import check, decoded, schema
from support.machine import CONFIGURATION, PATTERN_DIRECTORY, Machine

ROOT = Path(__file__).resolve().parents[2]
KINDS = ["check", "list", "preview"]


def output(machine: Machine, kind: str, *arguments: str, status: int = 0) -> dict:
    """An output, which must fit its schema."""
    done = check(machine, "--format=json", *arguments)
    assert done.status == status, done
    return decoded(kind, done.stdout)


def validator(kind: str) -> jsonschema.Draft7Validator:
    jsonschema.Draft7Validator.check_schema(schema(kind))
    return jsonschema.Draft7Validator(schema(kind))


def examples() -> dict[str, dict]:
    """The examples of the document, each after the link to its schema."""
    text = (ROOT / "docs/formats.md").read_text()
    found = re.findall(r"\(schema/(\w+)\.json\)\)\.(?:(?!```).)*```json\n(.*?)```", text, re.S)
    return {kind: json.loads(example) for kind, example in found}


def first_pattern() -> str:
    """The pattern at the beginning of the manual page."""
    page = (ROOT / "man/quendil_pattern.5").read_text()
    text = re.search(r"^\.Bd -literal.*\n(FORMAT_VERSION(?:.*\n)*?)\.Ed", page, re.M)
    assert text
    return text[1]


def objects(node: object) -> list[dict]:
    """Every object that a schema describes, at any depth."""
    if isinstance(node, list):
        return [found for part in node for found in objects(part)]
    if not isinstance(node, dict):
        return []
    own = [node] if node.get("type") == "object" else []
    return own + [found for part in node.values() for found in objects(part)]


@pytest.mark.parametrize("kind", KINDS)
def test_a_schema_permits_no_unknown_field(kind: str):
    jsonschema.Draft7Validator.check_schema(schema(kind))
    assert objects(schema(kind))
    for part in objects(schema(kind)):
        assert part["additionalProperties"] is False and set(part["required"]) <= set(
            part["properties"])


@pytest.mark.parametrize("kind", KINDS)
def test_an_example_fits_its_schema_and_a_changed_one_does_not(kind: str):
    example = examples()[kind]
    validator(kind).validate(example)
    for change in ({"version": 2}, {"more": 1}):
        with pytest.raises(jsonschema.ValidationError):
            validator(kind).validate(example | change)
    for field in example:
        with pytest.raises(jsonschema.ValidationError):
            validator(kind).validate({name: example[name] for name in example if name != field})


def test_the_example_of_a_check_is_real(machine: Machine):
    machine.file("/tmp/90_myproduct", first_pattern().replace('  = "My product"', " = My product"))
    done = check(machine, "--offline", "--format=json", "90_myproduct", cwd="/tmp")
    assert json.loads(done.stdout) == examples()["check"]


def test_the_examples_of_a_list_and_a_preview_are_real(machine: Machine):
    machine.pattern("90_myproduct", first_pattern())
    machine.file("/opt/log/myproduct/a.log", "x" * 15360)
    machine.file("/opt/log/myproduct/b.log", "x" * 5120)
    machine.mount("-t", "overlay", "-o", "lowerdir=/opt/log:/var/log", "log", "/var/log")
    assert output(machine, "list", "--list") == examples()["list"]
    preview = output(machine, "preview", "--preview", "-g", "myproduct")
    preview["totals"]["free_bytes"] = examples()["preview"]["totals"]["free_bytes"]
    assert preview == examples()["preview"]


def test_the_outputs_for_the_shipped_files_fit_their_schemas(machine: Machine):
    found = output(machine, "check")
    assert found["summary"]["files"] > 20
    assert {row["name"] for row in output(machine, "list", "--list")["groups"]} >= {"linux", "java"}
    preview = output(machine, "preview", "--preview", "-g", "linux")
    assert len(preview["items"]) > 1000


def test_findings_with_and_without_a_place_and_a_note_fit(machine: Machine):
    machine.file("/tmp/file", "FORMAT_VERSION = 1.0\nPP_GROUP = x\nBLOCK {\n FOO = 1\n TARGET = a")
    found = output(machine, "check", "--offline", "/tmp/file", status=1)["findings"]
    assert {row["rule"] for row in found} == {"line-lost", "keyword-unknown", "block-unclosed"}
    assert [row["rule"] for row in found if "note" in row] == ["block-unclosed"]
    machine.file("/tmp/patterns/old~", pattern_text.pattern(pattern_text.data("/a", "A file")))
    machine.link("/tmp/patterns/lost", "/nowhere")
    found = output(machine, "check", "--offline", "/tmp/patterns", status=1)["findings"]
    assert {row["rule"] for row in found if "line" not in row} == {"link-dangling", "file-leftover"}


def test_names_that_are_not_utf_8_fit(machine: Machine):
    machine.no_patterns()
    machine.exec(f"printf 'x' >\"{PATTERN_DIRECTORY}/$(printf 'a\\377\\tb\\n{{c')\"")
    found = output(machine, "check", status=1)["findings"]
    assert found[0]["file"] == f"{PATTERN_DIRECTORY}/a\ufffd\tb\n{{c"


def test_an_empty_list_and_a_preview_with_findings_fit(machine: Machine):
    machine.no_patterns()
    assert output(machine, "list", "--list") == {"version": 1, "groups": [], "targets": []}
    tool = pattern_text.tool("/bin/true", timeout=-1)
    machine.pattern("10_demo", pattern_text.pattern(pattern_text.data("/etc/passwd"), tool))
    machine.file(f"{PATTERN_DIRECTORY}/20_wrong", "wrong\n")
    machine.file(CONFIGURATION, "QUENDIL_MAX_OUTPUT_DATA_SIZE=1\n")
    preview = output(machine, "preview", "--preview", "-g", "demo", status=1)
    assert [row["rule"] for row in preview["findings"]] == ["limit-exceeded"]
    assert preview["skipped"] == [f"{PATTERN_DIRECTORY}/20_wrong"]
    assert preview["totals"]["most_seconds"] is None
    assert (preview["items"][1]["timeout"], preview["items"][1]["output"]) == (None, None)
