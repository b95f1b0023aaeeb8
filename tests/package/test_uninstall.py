"""The removal of an installation that was made from the source tree."""

from __future__ import annotations

import shutil
from pathlib import Path

import pytest
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
    for name in ("scripts", "patterns", "config", "man", "tools", "templates"):
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


def test_a_link_to_a_companion_command_goes_with_it_and_another_one_stays(installed: Machine):
    directory = f"{TOP}/usr/bin"
    name = f"{directory}/quendil-check"
    assert installed.exists(f"{TOP}/opt/norvale/quendil/bin/quendil-check")
    installed.link(name, "/opt/norvale/quendil/bin/quendil-check")
    uninstall(installed)
    assert left(installed) == []
    installed.directory(f"{TOP}/opt/norvale/quendil")
    installed.link(name, "/opt/mine/quendil-check")
    uninstall(installed)
    assert left(installed) == [name]


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
