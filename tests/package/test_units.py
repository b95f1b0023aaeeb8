"""The units of systemd: they are right, they are as closed as a collector can stand, and no package enables or
starts them.
"""

from __future__ import annotations

import os
import re
import shlex
import subprocess
from pathlib import Path

import pytest
from support.machine import Installation, Machine
from test_packages import BUILD, ROOT, PrivateRoot, only

UNITS = sorted(path.name for kind in ("service", "timer") for path in (ROOT / "systemd").glob(f"*.{kind}"))
SERVICES = [name for name in UNITS if name.endswith(".service")]
COLLECTING = ["quendil.service", "quendil-failure@.service"]
WANTS = "etc/systemd/system/timers.target.wants/quendil.timer"
STAMP = "var/lib/systemd/timers/stamp-quendil.timer"


def unit(name: str) -> dict[str, list[str]]:
    """The settings of a unit, by name; each may be there several times."""
    settings: dict[str, list[str]] = {}
    for key, value in re.findall(r"^(\w+)=(.*)$", (ROOT / "systemd" / name).read_text(), re.M):
        settings.setdefault(key, []).append(value)
    return settings


def analyze(machine: Machine, *arguments: str) -> tuple[int, str]:
    """Status and output of systemd-analyze on a machine with the units."""
    for name in UNITS:
        machine.install(ROOT / "systemd" / name, f"/opt/units/{name}", 0o644)
    done = machine.exec(["/usr/bin/systemd-analyze", "--no-pager", *arguments], check=False,
                        env={"SYSTEMD_LOG_LEVEL": "warning"})
    return done.status, done.stdout + done.stderr


# ---- The units ----------------------------------------------------------------------------------


def test_the_installation_has_the_units(installation: Installation):
    system = installation.stage / "usr/lib/systemd/system"
    assert UNITS == ["quendil-failure@.service", "quendil-prune.service", "quendil.service", "quendil.timer"]
    assert sorted(os.listdir(system)) == UNITS
    for name in UNITS:
        assert (system / name).read_text() == (ROOT / "systemd" / name).read_text()
        assert (system / name).stat().st_mode & 0o777 == 0o644
    assert (installation.stage / "usr/lib/tmpfiles.d/quendil.conf").read_text() == (
        ROOT / "systemd/tmpfiles.conf").read_text()


@pytest.mark.parametrize("name", UNITS)
def test_systemd_finds_no_fault_in_a_unit(machine: Machine, name: str):
    status, output = analyze(machine, "verify", "--man=no", f"/opt/units/{name}")
    assert (status, output) == (0, "")


def test_systemd_would_report_a_fault(machine: Machine):
    machine.file("/opt/units/broken.service", "[Service]\nType=oneshot\nNise=1\nExecStart=/opt/none\n")
    status, output = analyze(machine, "verify", "--man=no", "/opt/units/broken.service")
    assert status != 0 and "Nise" in output and "/opt/none" in output


#: The exposure that systemd counts, at most; 10 is a service without any protection.
EXPOSURE = {"quendil.service": 7.7, "quendil-failure@.service": 7.7, "quendil-prune.service": 1.6}


@pytest.mark.parametrize("name", SERVICES)
def test_a_unit_is_as_closed_as_it_can_be(machine: Machine, name: str):
    threshold = str(round(EXPOSURE[name] * 10))
    status, output = analyze(machine, "security", "--offline=yes", f"--threshold={threshold}",
                             f"/opt/units/{name}")
    assert status == 0 and "Overall exposure level" in output, output


@pytest.mark.parametrize("name", SERVICES)
def test_what_a_unit_names_is_installed(machine: Machine, name: str):
    settings = unit(name)
    (command,) = settings["ExecStart"]
    program = command.split()[0]
    assert machine.exec(["/usr/bin/test", "-x", program]).status == 0
    (file,) = settings["EnvironmentFile"]
    assert machine.exists(file.removeprefix("-")) and file.startswith("-")
    page, section = re.fullmatch(r"man:(\S+)\((\d)\)", settings["Documentation"][0]).groups()
    assert (ROOT / "man" / f"{page}.{section}").exists()
    for other in settings.get("Wants", []):
        assert other in UNITS and other in settings["After"]


@pytest.mark.parametrize("name", SERVICES)
def test_without_the_settings_a_unit_uses_their_defaults(machine: Machine, name: str):
    settings = unit(name)
    used = re.findall(r"\$(\w+)", settings["ExecStart"][0])
    file = machine.read("/etc/opt/norvale/quendil/config/quendil_unattended")
    shipped = [shlex.split(line)[0] for line in file.splitlines() if line and not line.startswith("#")]
    assert shipped and len(used) == 1
    assert [line for line in shipped if line.startswith(f"{used[0]}=")] == [
        shlex.split(line)[0] for line in settings["Environment"]]


def test_a_run_is_throttled_and_never_killed_for_its_memory():
    for name in COLLECTING:
        settings = unit(name)
        assert "MemoryMax" not in settings and settings["MemoryHigh"] == ["512M"]
        assert settings["OOMPolicy"] == ["continue"] and settings["KillMode"] == ["mixed"]


def test_both_collecting_units_have_the_same_protections():
    first, second = (unit(name) for name in COLLECTING)
    differ = {key for key in first.keys() | second.keys() if first.get(key) != second.get(key)}
    assert differ == {"Description", "Environment", "ExecStart", "StartLimitIntervalSec", "StartLimitBurst"}


def test_only_the_timer_can_be_enabled():
    assert [name for name in UNITS if "WantedBy" in unit(name) or "Also" in unit(name)] == ["quendil.timer"]


def test_systemd_makes_the_directories_of_an_empty_machine(machine: Machine):
    machine.install(ROOT / "systemd/tmpfiles.conf", "/opt/empty/usr/lib/tmpfiles.d/quendil.conf", 0o644)
    for name in ("passwd", "group"):
        machine.file(f"/opt/empty/etc/{name}", "root:x:0:0::/:/bin/sh\n")
    old = machine.file("/opt/empty/var/opt/norvale/quendil/data/web_01_200101020304.tar.gz", "x")
    for action in ("--create", "--clean"):
        done = machine.exec(["/usr/bin/systemd-tmpfiles", "--root=/opt/empty", action, "quendil.conf"],
                            check=False)
        assert (done.status, done.stdout, done.stderr) == (0, "", "")
    top = "/opt/empty/var/opt/norvale"
    assert [machine.mode(f"{top}{name}") for name in ("", "/quendil", "/quendil/data", "/quendil/log")] == [
        "0755", "0700", "0700", "0700"]
    assert machine.list(top) == ["quendil"] and machine.exists(old)


# ---- The packages -------------------------------------------------------------------------------


@pytest.fixture(scope="module", name="deb")
def fixture_deb() -> Path:
    """The .deb of quendil."""
    return only(BUILD / "packages", "deb")


@pytest.fixture(scope="module", name="next_deb")
def fixture_next_deb() -> Path:
    """The .deb of a later version."""
    return only(BUILD / "packages-next", "deb")


@pytest.fixture(scope="module", name="rpm")
def fixture_rpm() -> Path:
    """The .rpm of quendil."""
    return only(BUILD / "packages", "rpm")


@pytest.fixture(name="root")
def fixture_root(machine: Machine) -> PrivateRoot:
    """A root directory in which systemd seems to run; /calls lists how systemctl is called."""
    root = PrivateRoot(machine)
    machine.directory(f"{root.top}/run/systemd/system")
    machine.remove(f"{root.top}/usr/bin/systemctl")
    machine.file(f"{root.top}/usr/bin/systemctl", '#!/bin/sh\necho "$*" >>/calls\n', 0o755)
    return root


def calls(root: PrivateRoot) -> list[str]:
    """The calls of systemctl since the last time."""
    text = root.read("calls") if root.exists("calls") else ""
    root.file("calls", "")
    return text.splitlines()


REMOVAL = ["--no-reload --quiet disable quendil.timer", "--quiet stop quendil.timer quendil*.service",
           "daemon-reload"]


def test_no_package_has_a_link_that_enables_a_unit(deb: Path, rpm: Path):
    for command in (["dpkg-deb", "-c", deb], ["rpm", "-qpl", rpm]):
        listed = subprocess.run(command, capture_output=True, text=True, check=True).stdout
        assert "/usr/lib/systemd/system/quendil.timer" in listed
        assert not re.search(r"\.(wants|requires|preset)\b|system-preset", listed)


def test_the_deb_enables_and_starts_nothing(root: PrivateRoot, deb: Path, next_deb: Path):
    root.install(deb)
    assert calls(root) == ["daemon-reload"]
    root.install(next_deb)
    assert calls(root) == ["daemon-reload"]
    assert not root.exists(WANTS)


def test_the_rpm_enables_and_starts_nothing(root: PrivateRoot, rpm: Path):
    root.install_rpm(rpm)
    assert calls(root) == ["daemon-reload"]


def test_removing_the_deb_stops_and_disables_its_units(root: PrivateRoot, deb: Path):
    root.install(deb)
    calls(root)
    root.file(STAMP, "")
    root.dpkg("--remove", "quendil")
    assert calls(root) == REMOVAL and root.exists(STAMP)
    root.dpkg("--purge", "quendil")
    assert not root.exists(STAMP)


def test_removing_the_rpm_stops_and_disables_its_units(root: PrivateRoot, rpm: Path):
    root.install_rpm(rpm)
    calls(root)
    root.rpm("--nodeps", "-e", "quendil")
    assert calls(root) == REMOVAL


def test_without_systemd_nothing_is_asked_to_reload(root: PrivateRoot, deb: Path, machine: Machine):
    machine.remove(f"{root.top}/run/systemd")
    root.install(deb)
    root.dpkg("--remove", "quendil")
    assert calls(root) == REMOVAL[:1]
    machine.remove(f"{root.top}/usr/bin/systemctl")
    root.install(deb)
    root.dpkg("--remove", "quendil")


def test_a_removal_takes_the_link_of_an_enabled_timer_away(machine: Machine, deb: Path):
    root = PrivateRoot(machine)
    root.install(deb)
    root.script("systemctl enable quendil.timer")
    assert os.path.lexists(machine.path(f"{root.top}/{WANTS}"))
    root.dpkg("--remove", "quendil")
    assert not os.path.lexists(machine.path(f"{root.top}/{WANTS}"))


def test_edited_settings_of_the_units_outlive_an_upgrade(root: PrivateRoot, deb: Path, next_deb: Path):
    name = "etc/opt/norvale/quendil/config/quendil_unattended"
    root.install(deb)
    root.file(name, 'QUENDIL_OPTIONS="-g web"\n')
    root.install(next_deb)
    assert root.read(name) == 'QUENDIL_OPTIONS="-g web"\n'
