"""The collection itself: what is built from it, its documentation, its checkers."""

from __future__ import annotations

import json
import re
import shutil
import subprocess
import sys
from pathlib import Path

import pytest
import yaml
from support.fleet import COLLECTIONS, ROOT, Fleet
from support.fleet_play import Plays, quick

SOURCE = ROOT / "ansible"
DEFAULTS = yaml.safe_load((SOURCE / "roles/collect/defaults/main.yml").read_text())
SPECS = yaml.safe_load((SOURCE / "roles/collect/meta/argument_specs.yml").read_text())["argument_specs"]


@pytest.fixture
def placed(tmp_path: Path) -> Path:
    """A copy of the collection in a tree as Ansible wants it."""
    path = tmp_path / "ansible_collections/norvale/quendil"
    shutil.copytree(SOURCE, path)
    return path


def run(command: list[str | Path], directory: Path) -> str:
    """What a command prints, run on the copy; it must succeed."""
    root = str(directory.parents[2]) if "ansible_collections" in directory.parts else str(directory)
    done = subprocess.run(command, cwd=directory, capture_output=True, text=True, stdin=subprocess.DEVNULL,
                          env={"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "HOME": root, "LC_ALL": "C.UTF-8",
                               "ANSIBLE_COLLECTIONS_PATH": root, "ANSIBLE_COLLECTIONS_PATHS": root,
                               "ANSIBLE_NOCOLOR": "1", "NO_COLOR": "1", "PYTHONDONTWRITEBYTECODE": "1"})
    assert done.returncode == 0, f"{done.stdout}\n{done.stderr}"
    return done.stdout


def test_the_built_collection_installs_and_collects(fleet: Fleet, plays: Plays, placed: Path):
    run(["ansible-galaxy", "collection", "build", "--output-path", fleet.directory], placed)
    package, = fleet.directory.glob("norvale-quendil-*.tar.gz")
    fleet.controller.remove(f"{COLLECTIONS}/ansible_collections")
    done = fleet.run(["ansible-galaxy", "collection", "install", package])
    assert done.status == 0, str(done)
    quick(fleet.host("one"))
    assert plays.run().statuses() == {"one": "ok"}


def test_ansible_lint_finds_nothing(placed: Path):
    run(["ansible-lint", "--profile", "production", "--offline", "--strict"], placed)


#: Those that need nothing but ansible-core and shellcheck; the others install packages of Python.
SANITY = ["action-plugin-docs", "changelog", "compile", "empty-init", "future-import-boilerplate", "line-endings",
          "metaclass-boilerplate", "no-assert", "no-illegal-filenames", "no-main-display", "no-smart-quotes",
          "shebang", "shellcheck", "symlinks", "use-argspec-type-path"]


def test_ansible_test_sanity_finds_nothing(placed: Path):
    run(["git", "init", "-q"], placed)
    run(["git", "add", "-A"], placed)
    version = f"{sys.version_info.major}.{sys.version_info.minor}"
    run(["ansible-test", "sanity", "--python", version,
         *(word for check in SANITY for word in ("--test", check))], placed)


def test_every_variable_has_a_default_a_type_and_a_row_in_the_readme():
    options = SPECS["main"]["options"]
    assert set(options) - set(DEFAULTS) == {"collect_request"} and options["collect_request"]["required"]
    assert {name: option["default"] for name, option in options.items() if "default" in option} == DEFAULTS
    rows = set(re.findall(r"`(collect_\w+)`", (SOURCE / "README.md").read_text()))
    assert rows == set(options) | {"collect_hosts", "collect_batch"}


@pytest.mark.parametrize("name", ["start", "wait", "fetch", "remove", "record", "summary"])
def test_every_action_describes_the_arguments_that_the_role_gives(placed: Path, name: str):
    described = json.loads(run(["ansible-doc", "--json", f"norvale.quendil.{name}"], placed))
    options = described[f"norvale.quendil.{name}"]["doc"]["options"]
    tasks = [*(SOURCE / "roles/collect/tasks").glob("*.yml")]
    given = set()
    for task in walked([task for file in tasks for task in yaml.safe_load(file.read_text())]):
        given |= set(task.get(f"norvale.quendil.{name}", {}))
    assert given == set(options)


def walked(tasks: list[dict]) -> list[dict]:
    """All tasks, those in blocks too."""
    found = []
    for task in tasks:
        found.append(task)
        for key in ("block", "rescue", "always"):
            found += walked(task.get(key, []))
    return found


def test_the_examples_are_plays(placed: Path):
    for file in sorted((placed / "examples").glob("*_*.yml")):
        run(["ansible-playbook", "--syntax-check", "-i", "examples/inventory.yml", file], placed)
    inventory = json.loads(run(["ansible-inventory", "-i", "examples/inventory.yml", "--list"], placed))
    assert {"web", "database", "inner"} <= set(inventory)


def test_the_collection_has_the_version_of_the_program():
    version = re.search(r"project\(quendil VERSION (\S+) ", (ROOT / "CMakeLists.txt").read_text())[1]
    galaxy = yaml.safe_load((SOURCE / "galaxy.yml").read_text())
    assert galaxy["version"] == f"{version}.0"
    assert f"## {galaxy['version']}\n" in (SOURCE / "CHANGELOG.md").read_text()
    assert f"norvale-quendil-{galaxy['version']}.tar.gz" in (SOURCE / "README.md").read_text()
