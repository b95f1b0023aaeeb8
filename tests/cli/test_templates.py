"""The templates: each can be copied as it is, and collects what it describes."""

from __future__ import annotations

from pathlib import Path

import pytest
from support import expect, grammar
from support.machine import CONFIGURATION, PATTERN_DIRECTORY, Machine
from support.run import Run

TEMPLATES = "/opt/norvale/quendil/template"
SOURCES = Path(__file__).resolve().parents[2] / "templates"
CONFIGURATION_TEMPLATE = "quendil_conf"

# The group of each template, and files that a run of it collects.
COLLECTED = {
    "pattern": ("myproduct", [
        "myproduct/etc/os-release", "myproduct/status.txt", "myproduct/configuration.txt"]),
    "example_tool": ("example_tool", ["example_tool/df.txt"]),
    "example_file": ("example_file", ["example_file/etc/os-release"]),
    "example_wildcard": ("example_wildcard", ["example_wildcard/etc/os-release"]),
    "example_directory": ("example_directory", [
        "example_directory/etc/opt/norvale/quendil/config/quendil_conf",
        "example_directory/etc/opt/norvale/quendil/pattern/50_copy"]),
    "example_targets": ("example_targets", [
        "example_targets/proc/meminfo", "example_targets/proc/uptime"]),
    "example_special_strings": ("example_special_strings", [
        "example_special_strings/testhost_<DAY>_<CLOCK>.txt"]),
}


def collect(machine: Machine, template: str, *arguments: str) -> Run:
    """A run with a copy of one template as the only pattern."""
    machine.pattern("50_copy", (SOURCES / template).read_text())
    run = machine.run(*arguments)
    assert (run.status, run.stderr) == (0, "")
    assert "-W:" not in (run.log or "").replace("ZEPA129-W:", "")
    return run


def collected(run: Run) -> list[str]:
    """The files that the index names, without the day and the time in them."""
    assert grammar.read_run_log(run.raw["log"] or "")
    names = [name for record in grammar.read_index(run.raw_index) for name in record]
    members = run.archive.members()
    stamp = run.archive.top.rpartition("_")[2]
    return sorted(name.replace(f"{stamp[:6]}_{stamp[6:]}", "<DAY>_<CLOCK>")
                  for name in names if members[name].kind != "directory")


def test_the_templates_are_installed(machine: Machine):
    assert machine.list(TEMPLATES) == sorted(path.name for path in SOURCES.iterdir())
    assert machine.list(TEMPLATES) == sorted([*COLLECTED, CONFIGURATION_TEMPLATE])
    for name in machine.list(TEMPLATES):
        status = machine.status(f"{TEMPLATES}/{name}")
        assert (machine.mode(f"{TEMPLATES}/{name}"), status.st_uid, status.st_gid) == ("0644", 0, 0)


@pytest.mark.parametrize("template", COLLECTED)
def test_a_template_collects_what_it_shows(machine: Machine, template: str):
    group, files = COLLECTED[template]
    run = collect(machine, template, "-g", group)
    assert set(files) <= set(collected(run))
    assert {name.partition("/")[0] for name in collected(run)} == {group}
    assert all(content for name, content in run.archive.files().items() if name.startswith(group))


def test_a_target_of_the_example_selects_its_block_alone(machine: Machine):
    run = collect(machine, "example_targets", "-t", "example_short")
    assert collected(run) == ["example_targets/proc/uptime"]


def test_the_example_of_special_strings_names_its_file_after_the_run(machine: Machine):
    run = collect(machine, "example_special_strings", "-g", "example_special_strings")
    content = [text for name, text in run.archive.files().items() if name.endswith(".txt")]
    assert content in [[f"{day:%Y-%m-%d}\n".encode()] for day in (run.began, run.ended)]


def test_all_templates_can_lie_in_the_pattern_directory_together(machine: Machine):
    for name in COLLECTED:
        machine.file(f"{PATTERN_DIRECTORY}/90_{name}", (SOURCES / name).read_text())
    run = machine.run("-t", *" -t ".join(group for group, _ in COLLECTED.values()).split())
    assert (run.status, run.stderr) == (0, "")
    tops = {name.partition("/")[0] for name in collected(run)}
    assert tops == {group for group, _ in COLLECTED.values()}


@pytest.mark.parametrize("path, arguments", [
    (CONFIGURATION, ()), ("/tmp/conf", ("-c", "/tmp/conf")),
])
def test_the_configuration_template_is_read_with_every_key(machine: Machine, path: str,
                                                           arguments: tuple[str, ...]):
    machine.pattern("50_copy", (SOURCES / "example_file").read_text())
    machine.file(path, (SOURCES / CONFIGURATION_TEMPLATE).read_text())
    run = machine.run("-g", "example_file", *arguments)
    log = expect.RunLog(" ".join(("-g example_file", *arguments))).initialized(
        "example_file", configuration=path, limit=2097152, cleanup="OFF")
    assert (run.status, run.stderr) == (0, "")
    assert (run.log or "").startswith(log.text)
