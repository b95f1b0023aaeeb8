"""The machine of a test: what it has for itself, what it shares, and how a test prepares it."""

from __future__ import annotations

import os
from pathlib import Path

import pytest
from support import behave
from support.behave import daemon, exit, forever, ignore, out, ready, report
from support.machine import Installation, Machine
from support.sandbox import SandboxServer
from support.shell_program import play


# ---- Isolation ----------------------------------------------------------------------------------


def test_a_machine_holds_the_installation_and_nothing_of_the_host(machine: Machine):
    assert machine.list("/opt") == ["behave", "norvale"]
    assert machine.list("/etc/opt") == machine.list("/var/opt") == ["norvale"]
    assert machine.list("/tmp") == []
    assert machine.exec(["hostname"]).stdout == "testhost\n"


def test_what_a_machine_writes_never_reaches_the_host(machine: Machine):
    machine.exec("echo x > /opt/here && echo x > /tmp/here && echo x > /etc/opt/here")
    assert machine.exists("/opt/here") and machine.exists("/tmp/here")
    assert not any(os.path.exists(f"{top}/here") for top in ("/opt", "/tmp", "/etc/opt"))


@pytest.mark.parametrize("path", ["/here", "/usr/here", "/etc/here", "/var/here", "/dev/here"])
def test_the_rest_of_the_file_system_is_read_only(machine: Machine, path: str):
    done = machine.exec(["/usr/bin/touch", path], check=False)
    assert done.status != 0 and "Read-only file system" in done.stderr
    assert not os.path.exists(path)


def test_devices_can_be_written_though_their_directory_cannot(machine: Machine):
    assert machine.exec("echo x > /dev/null").status == 0


def test_a_host_directory_can_be_kept_writable(sandbox_server: SandboxServer,
                                               installation: Installation, tmp_path: Path):
    machine = Machine(sandbox_server, Installation(installation.stage, installation.behave,
                                                   writable=(str(tmp_path),)))
    try:
        machine.exec(f"echo kept > {tmp_path}/file")
    finally:
        machine.destroy()
    assert (tmp_path / "file").read_text() == "kept\n"


def test_processes_of_the_host_cannot_be_seen(machine: Machine):
    play(machine, report("/opt/report"))
    assert int(machine.report("/opt/report")["pid"]) < 100
    assert machine.exec("echo /proc/[0-9]*").stdout.split()[0] == "/proc/1"
    assert not machine.exec(f"test -d /proc/{os.getpid()}", check=False).status == 0


def test_two_machines_share_nothing(machine: Machine, sandbox_server: SandboxServer,
                                    installation: Installation):
    other = Machine(sandbox_server, installation)
    try:
        other.hostname("other")
        other.file("/opt/data/file", "x")
        assert other.exec(["hostname"]).stdout == "other\n"
        assert machine.exec(["hostname"]).stdout == "testhost\n"
        assert not machine.exists("/opt/data")
    finally:
        other.destroy()


def test_nothing_is_left_of_a_machine(sandbox_server: SandboxServer, installation: Installation):
    machine = Machine(sandbox_server, installation)
    play(machine, daemon(), ignore("TERM"), ready("/opt/ready"), forever())
    machine.wait_for("/opt/ready")
    namespace = os.readlink(f"/proc/{machine.sandbox.init}/ns/pid")
    assert _processes_of(namespace) != []
    # Open, so that the kernel does not give its number to the namespace of another test.
    with open(f"/proc/{machine.sandbox.init}/ns/pid", "rb"):
        machine.destroy()
        assert _processes_of(namespace) == []
    mounts = Path("/proc/self/mounts").read_text().splitlines()
    assert [line for line in mounts if line.startswith("sandbox ")] == []


def _processes_of(namespace: str) -> list[str]:
    found = []
    for pid in filter(str.isdigit, os.listdir("/proc")):
        try:
            if os.readlink(f"/proc/{pid}/ns/pid") == namespace:
                found.append(pid)
        except (FileNotFoundError, PermissionError, ProcessLookupError):
            pass
    return found


def test_a_sandbox_ends_when_its_worker_has_ended(sandbox_server: SandboxServer,
                                                  installation: Installation):
    machine = Machine(sandbox_server, installation)
    namespace = os.readlink(f"/proc/{machine.sandbox.init}/ns/pid")
    with open(f"/proc/{machine.sandbox.init}/ns/pid", "rb"):
        machine.sandbox._link.close()  # what the kernel does for a worker that was killed
        machine.wait_for(lambda: _processes_of(namespace) == [], what="the end of the sandbox")
    machine.destroy()


# ---- Files --------------------------------------------------------------------------------------


def test_files_get_their_attributes(machine: Machine):
    machine.file("/opt/data/deep/file", "text", mode=0o600, owner=(5, 6), mtime=1_000_000_000)
    status = machine.status("/opt/data/deep/file")
    assert (status.st_uid, status.st_gid, status.st_mtime) == (5, 6, 1_000_000_000)
    assert machine.mode("/opt/data/deep/file") == "0600"
    assert machine.mode("/opt/data/deep") == "0755"
    assert machine.read("/opt/data/deep/file") == "text"


@pytest.mark.parametrize("path", ["/usr/file", "/etc/file", "/proc/file", "/optional/file"])
def test_a_file_of_the_host_is_not_made(machine: Machine, path: str):
    with pytest.raises(AssertionError, match="not the machine's own"):
        machine.file(path)


def test_a_link_does_not_lead_out_of_the_machine(machine: Machine, tmp_path: Path):
    machine.link("/opt/out", str(tmp_path))
    with pytest.raises(AssertionError, match="symbolic link"):
        machine.file("/opt/out/file")
    machine.link("/opt/direct", str(tmp_path / "direct"))
    with pytest.raises(AssertionError, match="symbolic link"):
        machine.file("/opt/direct", "x")
    with pytest.raises(AssertionError, match="not a plain path"):
        machine.file("/opt/../etc/file")
    assert list(tmp_path.iterdir()) == []


def test_the_first_pattern_replaces_the_shipped_ones(machine: Machine):
    machine.pattern("10_a", "a\n")
    machine.pattern("20_b", "b\n")
    assert machine.list("/etc/opt/norvale/quendil/pattern") == ["10_a", "20_b"]


def test_a_small_file_system_keeps_what_was_there_and_fills_up(machine: Machine):
    machine.file("/opt/small/kept", "x")
    machine.small_tmpfs("/opt/small", 16384)
    assert machine.read("/opt/small/kept") == "x"
    machine.fill("/opt/small")
    done = machine.exec(["/bin/cp", "/opt/behave", "/opt/small/more"], check=False)
    assert "No space left on device" in done.stderr


def test_a_replaced_program_is_replaced_in_the_machine_only(machine: Machine):
    real = machine.replace("/bin/tar", behave.ifarg("--version", out("not tar\n"), exit(3)),
                           behave.run("/opt/real/tar"), exit(7))
    done = machine.exec(["/bin/tar", "--version"], check=False)
    assert (done.status, done.stdout) == (3, "not tar\n")
    done = machine.exec(["/usr/bin/tar", "cf", "/opt/a.tar", "/opt/behave"], check=False)
    assert done.status == 7
    assert "opt/behave" in machine.exec([real, "tf", "/opt/a.tar"]).stdout
    machine.replace("/bin/tar", exit(9))
    assert machine.exec(["/bin/tar"], check=False).status == 9
    assert os.path.getsize("/bin/tar") > 100_000


def test_a_read_only_directory_stops_root_too(machine: Machine):
    machine.file("/opt/d/file", "x")
    machine.read_only("/opt/d")
    done = machine.exec(["/bin/rm", "/opt/d/file"], check=False)
    assert "Read-only file system" in done.stderr


def test_a_pinned_file_can_be_written_but_not_removed(machine: Machine):
    machine.file("/opt/file", "x")
    machine.pin("/opt/file")
    machine.exec("echo more > /opt/file")
    done = machine.exec(["/bin/rm", "/opt/file"], check=False)
    assert "Device or resource busy" in done.stderr
    assert machine.read("/opt/file") == "more\n"


def test_a_locked_file_keeps_others_out(machine: Machine):
    machine.file("/opt/lock")
    machine.file("/opt/other")
    with machine.locked("/opt/lock"):
        assert machine.locks("/opt/lock") == (1, 0)
        assert machine.locks("/opt/other") == (0, 0)
    assert machine.locks("/opt/lock") == (0, 0)
