"""The outputs of quendil-report in JSON fit their schemas, which are strict."""

from __future__ import annotations

import json
from collections.abc import Iterator
from copy import deepcopy
from pathlib import Path

import jsonschema
import pytest
from support.checking import decoded, schema
from support.reporting import Files, make_archive, make_directory, report, tar_bytes

LOG = """ZEPA201-I:quendil [Ver. 01-02] started at 2026/11/23 16:25:38.
ZEPA204-I:quendil argument is "-g linux".
ZEPA206-I:Information collecting tool start.
    Command  = "/opt/norvale/quendil/tool/run df"
    Start time = 2026/11/23 16:25:38
    Timeout = 10
ZEPA126-W:The tool has timed out.
ZEPA207-I:Information collecting tool end.
    Return code = 0
    Status code = 0
    End time = 2026/11/23 16:25:39
"""

FILES: Files = {
    "quendil.log": LOG,
    "quendil_index": "quendil [Ver. 01-02]\nquendil -g linux\n\nFILE:storage/df.txt\nDESC:Disks\n"
                     "DATE:261123162538\nTYPE:text\n",
    "storage/df.txt": "Filesystem Type Size Used Avail Use% Mounted on\n"
                      "/dev/vda2  ext4  9.0G  9.0G     0 100% /\n",
    "service/failed_units.txt": "  UNIT LOAD ACTIVE SUB DESCRIPTION\n"
                                "* eater.service loaded failed failed x\n",
    "system/uname.txt": "Linux vm 6.1.0 #1 SMP x86_64 GNU/Linux\n",
}


def described(kind: str, value: object, rule: dict) -> Iterator[tuple[list, str]]:
    """Where each object of a value is, and the names of fields that it must have."""
    definitions = schema(kind)["definitions"]
    if "$ref" in rule:
        rule = definitions[rule["$ref"].rpartition("/")[2]]
    if isinstance(value, dict):
        for name in rule.get("required", []):
            yield [], name
        for name, inside in value.items():
            for path, field in described(kind, inside, rule.get("properties", {}).get(name, {})):
                yield [name, *path], field
    elif isinstance(value, list) and value:
        for path, field in described(kind, value[0], rule.get("items", {})):
            yield [0, *path], field


def at(value, path: list):
    for step in path:
        value = value[step]
    return value


def strict(kind: str, value: dict) -> int:
    """Checks that a value loses its validity with any field; returns their number."""
    rules = schema(kind)
    jsonschema.Draft7Validator.check_schema(rules)
    validator = jsonschema.Draft7Validator(rules)
    assert validator.is_valid(value)
    fields = list(described(kind, value, rules))
    for path, field in fields:
        less = deepcopy(value)
        del at(less, path)[field]
        assert not validator.is_valid(less), (path, field)
        more = deepcopy(value)
        at(more, path)["unknown"] = 1
        assert not validator.is_valid(more), path
    return len(fields)


def test_a_report_fits_its_schema(tmp_path):
    done = report("--json", make_archive(tmp_path, FILES))
    assert (done.status, done.stderr) == (0, "")
    value = decoded("report", done.stdout)
    assert strict("report", value) > 40
    assert value["run"]["arguments"] == "-g linux"
    assert [item["name"] for item in value["items"]] == list(FILES)
    assert value["items"][2]["description"] == "Disks"
    assert value["tools"][0]["command"] == "/opt/norvale/quendil/tool/run df"
    assert value["messages"][0]["id"] == "ZEPA126-W"
    assert "failed-units" in [finding["rule"] for finding in value["findings"]
                              if finding["verdict"] == "found"]
    assert value["facts"] and value["charts"]


def test_a_report_of_any_form_and_state_fits_its_schema(tmp_path):
    link = make_directory(tmp_path, FILES)
    (link / "link").symlink_to("/etc/hostname")
    (link / "empty").mkdir()
    cut = tmp_path / "cut.tar"
    cut.write_bytes(tar_bytes({**FILES, "x": "y" * 100000}, gzip=False)[:20000])
    for path, status in [(link, 0), (cut, 1), (make_archive(tmp_path, {"quendil.log": ""}), 0)]:
        done = report("--json", path)
        assert (done.status, done.stderr) == (status, "")
        value = decoded("report", done.stdout)
        assert value["damaged"] == (status == 1)
        assert [item["name"] for item in value["items"] if "cut" in item] == (
            ["x"] if path == cut else [])


@pytest.mark.parametrize("options", [(), ("--all",)])
def test_differences_fit_their_schema(tmp_path: Path, options: tuple[str, ...]):
    old = make_archive(tmp_path, {**FILES, "a/etc/x": "1\n"}, "vm_261123162538")
    new = make_archive(tmp_path, {
        **FILES, "a/etc/y": "1\n", "system/uname.txt": "Linux vm 6.2.0 #1 SMP x86_64 GNU/Linux\n",
        "service/failed_units.txt": "systemctl: not installed on this machine\n", "z": "1\n",
    }, "vm_261124162538")
    done = report("--diff", "--json", *options, old, new)
    assert (done.status, done.stderr) == (0, "")
    value = decoded("diff", done.stdout)
    assert strict("diff", value) > 15
    assert {one["state"] for one in value["comparisons"]} >= {"different", "no data"}
    assert ("files" in value) == bool(options)


def test_the_schemas_are_plain_json_in_ascii():
    for kind in ("report", "diff"):
        assert json.dumps(schema(kind), indent=2) + "\n" == (
            Path(__file__).resolve().parents[2] / f"docs/schema/{kind}.json").read_text()
