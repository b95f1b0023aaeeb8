"""The removal of an installation that was made from the source tree."""

from __future__ import annotations

import os
import shutil
from collections.abc import Iterable
from pathlib import Path

import pytest
from support import pattern_text
from support.machine import Completed, Installation, Machine

ROOT = Path(__file__).resolve().parents[2]
SOURCE = "/opt/source"
#: An installation below a directory, because a machine's "/usr" is the host's.
TOP = "/tmp/root"
CONFIG = f"{TOP}/etc/opt/norvale/quendil/config/quendil_conf"
PATTERN = f"{TOP}/etc/opt/norvale/quendil/pattern"
DATA = f"{TOP}/var/opt/norvale/quendil/data"
LOG = f"{TOP}/var/opt/norvale/quendil/log"
SHIPPED = sorted(path.name for path in (ROOT / "patterns").iterdir())


@pytest.fixture
def installed(machine: Machine, installation: Installation) -> Machine:
    """A machine with an installation below TOP and the source tree of the installation."""
    shutil.copytree(installation.stage, machine.path(TOP), symlinks=True)
    for name in ("scripts", "patterns", "config", "man", "completions", "tools", "templates",
                 "systemd"):
        if (ROOT / name).is_dir():
            shutil.copytree(ROOT / name, machine.path(f"{SOURCE}/{name}"))
    return machine


def uninstall(machine: Machine) -> Completed:
    """Runs the command."""
    return machine.exec(f"DESTDIR={TOP} {SOURCE}/scripts/uninstall", check=False)


def left(machine: Machine) -> list[str]:
    """The files that are left."""
    found = machine.exec(["/usr/bin/find", TOP, "!", "-type", "d"]).stdout
    return sorted(found.splitlines())


def test_an_untouched_installation_is_removed_whole(installed: Machine):
    assert len(left(installed)) > len(SHIPPED) + 5
    installed.file(f"{TOP}/opt/norvale/quendil/bin/.quendil.lck")
    installed.file(f"{TOP}/opt/norvale/quendil/bin/.quendil_hist.lck")
    done = uninstall(installed)
    assert (done.status, done.stdout, done.stderr) == (0, "== quendil is removed\n", "")
    assert left(installed) == []
    for name in ("opt", "etc/opt", "var/opt"):
        assert installed.list(f"{TOP}/{name}") == []


#: Where each command is on the path after an installation from the tree.
LINKS = {"usr/local/sbin/quendil": "quendil", "usr/local/bin/quendil-check": "quendil-check",
         "usr/local/bin/quendil-report": "quendil-report"}


def link_commands(machine: Machine) -> list[str]:
    """Puts the commands on the path as scripts/run does; returns what it prints."""
    done = machine.exec(["/bin/sh", "-euc", f"cd {SOURCE}; . scripts/support.sh; DESTDIR={TOP} "
                         "link_commands"])
    assert done.stderr == ""
    return done.stdout.splitlines()


def targets(machine: Machine, names: Iterable[str]) -> dict[str, str]:
    """What each of these links below TOP leads to; left out is what is no link."""
    paths = {name: machine.path(f"{TOP}/{name}") for name in names}
    return {name: os.readlink(path) for name, path in paths.items() if path.is_symlink()}


def changes(machine: Machine) -> list[tuple[int, int]]:
    """Of what is at the places of the links: the number, and when it was changed last."""
    found = [machine.path(f"{TOP}/{name}").lstat() for name in LINKS]
    return [(status.st_ino, status.st_ctime_ns) for status in found]


def test_the_commands_are_linked_once_and_the_links_go_with_them(installed: Machine):
    assert link_commands(installed) == []
    made = changes(installed)
    assert targets(installed, LINKS) == {
        name: f"/opt/norvale/quendil/bin/{command}" for name, command in LINKS.items()}
    assert link_commands(installed) == []
    assert changes(installed) == made
    uninstall(installed)
    assert left(installed) == []


@pytest.mark.parametrize("entry", ["a file", "a directory", "a link", "a link without a target"])
def test_an_entry_of_another_is_neither_replaced_nor_removed(installed: Machine, entry: str):
    for name in LINKS:
        path = f"{TOP}/{name}"
        if entry == "a file":
            installed.file(path, "mine")
        elif entry == "a directory":
            installed.file(f"{path}/mine", "")
        else:
            installed.link(path, "/bin/true" if entry == "a link" else "/opt/mine/none")
    before = changes(installed)
    assert link_commands(installed) == [
        f"== kept: /{name} (quendil has not placed it)" for name in LINKS]
    assert uninstall(installed).status == 0
    assert changes(installed) == before
    assert len(left(installed)) == len(LINKS)


def test_where_a_package_has_its_links_none_is_made(installed: Machine):
    for name, command in LINKS.items():
        installed.link(f"{TOP}/{name.replace('/local', '')}", f"/opt/norvale/quendil/bin/{command}")
    assert link_commands(installed) == []
    assert targets(installed, LINKS) == {}


def test_a_companion_command_that_was_not_built_is_not_linked(installed: Machine):
    installed.remove(f"{TOP}/opt/norvale/quendil/bin/quendil-check")
    assert link_commands(installed) == []
    assert set(targets(installed, LINKS)) == set(LINKS) - {"usr/local/bin/quendil-check"}


def test_a_directory_that_cannot_be_made_is_reported(installed: Machine):
    installed.file(f"{TOP}/usr/local", "a file")
    done = installed.exec(["/bin/sh", "-euc", f"cd {SOURCE}; . scripts/support.sh; DESTDIR={TOP} "
                           "link_commands; echo collecting"])
    assert done.stdout.splitlines() == [
        *(f"== not on the path: {command}" for command in LINKS.values()), "collecting"]


def test_links_without_their_commands_are_removed(installed: Machine):
    link_commands(installed)
    for name in ("opt", "etc", "var"):
        installed.remove(f"{TOP}/{name}")
    done = uninstall(installed)
    assert (done.status, done.stdout, done.stderr) == (0, "== quendil is removed\n", "")
    assert left(installed) == []


def test_the_command_links_installs_and_collects_and_again_changes_nothing(installed: Machine):
    """scripts/run, with programs that stand for the build, which has installed already."""
    installed.file("/opt/played/cmake", "#!/bin/sh\n", 0o755)
    installed.file("/opt/played/dpkg-query", "#!/bin/sh\necho installed\n", 0o755)
    installed.pattern("99_demo", pattern_text.pattern(pattern_text.data("/etc/os-release")))
    run = f"DESTDIR={TOP} PATH=/opt/played:$PATH {SOURCE}/scripts/run -g demo -o /tmp/result"
    stamps = []
    for number in (1, 2):
        done = installed.exec(f"{run}{number}")
        assert done.stdout.endswith(f"== collected: /tmp/result{number}.tar.gz\n")
        assert "kept:" not in done.stdout
        stamps.append(changes(installed))
    assert set(targets(installed, LINKS)) == set(LINKS) and stamps[0] == stamps[1]


def test_what_was_edited_added_collected_or_logged_stays_and_is_named(installed: Machine):
    installed.file(CONFIG, "QUENDIL_CLEANUP=OFF\n")
    installed.file(f"{PATTERN}/{SHIPPED[0]}", "# mine\n")
    installed.file(f"{PATTERN}/99_own", "# mine\n")
    installed.file(f"{DATA}/host_261121022130.tar.gz", "x")
    installed.file(f"{LOG}/quendil.log", "x")
    installed.file(f"{TOP}/opt/norvale/quendil/tool/mine", "x")
    done = uninstall(installed)
    assert (done.status, done.stderr) == (0, "")
    assert done.stdout == """\
== kept: /opt/norvale/quendil/tool (files that quendil has not placed)
== kept: /etc/opt/norvale/quendil/config (edited or added by you)
== kept: /etc/opt/norvale/quendil/pattern (edited or added by you)
== kept: /var/opt/norvale/quendil/data (collected data)
== kept: /var/opt/norvale/quendil/log (logs)
== quendil is removed
"""
    assert left(installed) == sorted([
        CONFIG, f"{PATTERN}/{SHIPPED[0]}", f"{PATTERN}/99_own",
        f"{DATA}/host_261121022130.tar.gz", f"{LOG}/quendil.log",
        f"{TOP}/opt/norvale/quendil/tool/mine"])
    again = uninstall(installed)
    assert (again.status, again.stdout) == (0, done.stdout)


def test_a_removal_ignores_missing_files(installed: Machine):
    for name in ("opt/norvale/quendil/bin", "etc/opt/norvale/quendil/pattern", "usr/share/man",
                 "var/opt/norvale"):
        installed.remove(f"{TOP}/{name}")
    done = uninstall(installed)
    assert (done.status, done.stdout, done.stderr) == (0, "== quendil is removed\n", "")
    assert left(installed) == []


def test_nothing_is_removed_where_nothing_was_installed(installed: Machine):
    installed.remove(TOP)
    done = uninstall(installed)
    assert (done.status, done.stdout, done.stderr) == (1, "", "quendil is not installed\n")


def test_an_installed_package_is_left_to_its_package_manager(installed: Machine):
    # A fake of the database, which owns the program.
    installed.file("/opt/played/dpkg-query", "#!/bin/sh\n[ \"$1 $2\" = "
                   "'-S /opt/norvale/quendil/bin/quendil' ]\n", 0o755)
    done = installed.exec(f"PATH=/opt/played:$PATH {SOURCE}/scripts/uninstall", check=False)
    assert done.status == 1 and "as a package: apt-get remove quendil" in done.stderr
    assert installed.exists("/opt/norvale/quendil/bin/quendil")


def test_an_installation_from_an_archive_is_left_to_its_own_script(installed: Machine):
    installed.directory(f"{TOP}/opt/norvale/quendil/package")
    done = uninstall(installed)
    assert (done.status, done.stdout, done.stderr) == (
        1, "", "quendil was installed from an archive: "
        "/opt/norvale/quendil/package/install.sh --uninstall\n")
    assert installed.exists(f"{TOP}/opt/norvale/quendil/bin/quendil")
