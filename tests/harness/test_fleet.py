"""The fleet of a test: its hosts, its network, and its faults, seen from the controller."""

from __future__ import annotations

import os
from pathlib import Path

import pytest
from support.fleet import Command, Finished, Fleet
from support.fleet_host import PASSWORD, FleetHost
from support.run import wait_until

BIG = os.urandom(300_000)


def ssh(fleet: Fleet, *words: str) -> Finished:
    """What ssh does on the controller, which gives up soon."""
    return fleet.run(["ssh", "-o", "ConnectTimeout=1", *words])


def fetch(fleet: Fleet, host: FleetHost, path: str) -> bytes:
    """A file of a host, as sftp gets it."""
    target = fleet.directory / "fetched"
    done = fleet.run(["sftp", f"{host.name}:{path}", target])
    assert done.status == 0, done
    return target.read_bytes()


# ---- Hosts --------------------------------------------------------------------------------------


def test_hosts_are_reached_by_their_names_and_share_nothing(fleet: Fleet):
    names = [f"host{number}" for number in range(6)]
    hosts = [fleet.host(name) for name in names]
    hosts[0].file("/etc/here")
    hosts[0].file("/root/here")
    for host in hosts:
        done = ssh(fleet, host.name, "hostname; ls /sys/class/net; hostname -I; ls /etc/here /root")
        words = done.stdout.split()
        assert words[:3] == [host.name, "eth0", "lo"] and host.address in words, done
        assert ("here" in words) == (host is hosts[0])
    assert len({host.address for host in hosts}) == 6
    assert not os.path.exists("/etc/here") and not os.path.exists("/root/here")


def test_a_host_does_not_see_the_processes_of_another(fleet: Fleet):
    one, other = fleet.host("one"), fleet.host("other")
    job = fleet.start(["ssh", "one", "exec sleep 1001"])
    one.wait_for(lambda: "sleep 1001" in one.describe_processes())
    assert "1001" not in other.describe_processes() and "sshd" in other.describe_processes()
    one.kill_sessions()
    job.finish()


def test_root_and_the_operator_get_in_by_key_only(fleet: Fleet):
    fleet.host("host")
    assert ssh(fleet, "host", "id -un").stdout == "root\n"
    assert ssh(fleet, "operator@host", "id -un; pwd").stdout == "operator\n/home/operator\n"
    done = ssh(fleet, "-v", "-o", "PubkeyAuthentication=no", "operator@host", "id")
    assert done.status == 255 and "Permission denied (publickey)" in done.stderr


@pytest.mark.parametrize("password, expected", [(PASSWORD, "root\n"), ("wrong", "")])
def test_the_operator_becomes_root_with_a_password(fleet: Fleet, password: str, expected: str):
    fleet.host("host")
    done = ssh(fleet, "operator@host", f"echo '{password}' | sudo -S id -un")
    assert done.stdout == expected


def test_a_session_has_a_terminal_of_its_own(fleet: Fleet):
    fleet.host("host")
    assert ssh(fleet, "-tt", "operator@host", "tty; stat -c %U $(tty)").stdout.split() == [
        "/dev/pts/0", "operator"]


def test_a_host_with_another_key_is_refused(fleet: Fleet):
    host, other = fleet.host("host"), fleet.host("other")
    host.file("/etc/ssh/host_key", other.read("/etc/ssh/host_key"), mode=0o600)
    host.serve()
    done = ssh(fleet, "host", "id")
    assert done.status == 255 and "REMOTE HOST IDENTIFICATION HAS CHANGED" in done.stderr


def test_a_host_has_little_space_if_a_test_says_so(fleet: Fleet):
    host = fleet.host("host", space="1m")
    assert host.list("/var/opt/norvale/quendil") == ["data", "log"]
    done = ssh(fleet, "host", "head -c 2000000 /dev/zero > /var/opt/file")
    assert "No space left on device" in done.stderr


# ---- Faults of the network ----------------------------------------------------------------------


@pytest.mark.parametrize("how, text", [
    ("refused", "Connection refused"), ("silent", "Connection timed out"),
    ("absent", "timed out"),
])
def test_a_host_that_is_down_does_not_answer(fleet: Fleet, how: str, text: str):
    done = ssh(fleet, fleet.down("dead", how), "id")
    assert done.status == 255 and text in done.stderr
    assert '"dead"' in fleet.inventory().read_text()


def sleeping(fleet: Fleet, host: FleetHost, *options: str) -> Command:
    """A session in which a command runs that does not end by itself."""
    job = fleet.start(["ssh", *options, host.name, "sleep 1002"])
    host.wait_for(lambda: "sleep 1002" in host.describe_processes())
    return job


def test_a_session_that_is_killed_ends_at_once_and_leaves_its_command(fleet: Fleet):
    host = fleet.host("host")
    before = host.snapshot()
    job = sleeping(fleet, host)
    assert host.kill_sessions() > 0 and host.sessions() == []
    done = job.finish(seconds=10)
    assert done.status == 255 and done.stderr != ""
    assert [line for line in host.leftovers(before) if "sleep 1002" in line]
    assert ssh(fleet, "host", "pkill -f '^sleep 1002'").status == 0
    wait_until(lambda: host.leftovers(before) == [], 10.0, "the end of the command")


def test_a_cable_that_is_out_loses_everything_until_it_is_in(fleet: Fleet):
    host = fleet.host("host")
    job = sleeping(fleet, host, "-o", "ServerAliveInterval=1", "-o", "ServerAliveCountMax=1")
    host.cut()
    done = job.finish(seconds=30)
    assert done.status == 255 and "not responding" in done.stderr
    host.mend()
    assert ssh(fleet, "-o", "ConnectTimeout=10", "host", "id -un").stdout == "root\n"


def test_a_frozen_server_accepts_and_says_nothing(fleet: Fleet):
    host = fleet.host("host")
    host.freeze()
    done = ssh(fleet, "host", "id -un")
    assert done.status == 255 and "banner exchange" in done.stderr
    host.freeze(False)
    assert ssh(fleet, "-o", "ConnectTimeout=10", "host", "id -un").stdout == "root\n"


def test_a_server_that_is_stopped_refuses_until_it_serves_again(fleet: Fleet):
    host = fleet.host("host")
    host.stop_serving()
    assert "Connection refused" in ssh(fleet, "host", "id").stderr
    host.serve()
    assert ssh(fleet, "host", "id -un").stdout == "root\n"


# ---- Faults of transfers ------------------------------------------------------------------------


def test_one_byte_is_flipped_in_as_many_transfers_as_asked(fleet: Fleet):
    host = fleet.host("host")
    host.file("/tmp/big", BIG)
    host.file("/tmp/small", BIG[:1000])
    host.flip(transfers=2)
    for left in (1, 0):
        assert fetch(fleet, host, "/tmp/small") == BIG[:1000]
        got = fetch(fleet, host, "/tmp/big")
        assert sum(one != other for one, other in zip(got, BIG, strict=True)) == 1
        assert host.flips_left() == left
    assert fetch(fleet, host, "/tmp/big") == BIG


def test_a_file_of_a_host_can_be_without_end(fleet: Fleet):
    host = fleet.host("host")
    host.file("/tmp/small", BIG[:1000])
    host.endless_files()
    target = fleet.directory / "fetched"
    job = fleet.start(["sftp", "host:/tmp/small", target])
    wait_until(lambda: target.exists() and target.stat().st_size > 50_000_000, 30.0, "the file")
    job.signal(15)
    job.finish()
    host.serve()
    assert fetch(fleet, host, "/tmp/small") == BIG[:1000]


def test_a_file_of_a_host_can_be_slow(fleet: Fleet):
    host = fleet.host("host")
    host.file("/tmp/big", BIG)
    host.slow_files(0.1)
    done = fleet.run(["sftp", "host:/tmp/big", fleet.directory / "fetched"])
    assert done.status == 0 and done.seconds >= 0.9  # 300,000 bytes are nine times 32 KiB
    assert (fleet.directory / "fetched").read_bytes() == BIG


# ---- Hostile hosts ------------------------------------------------------------------------------


def test_a_host_can_answer_without_end(fleet: Fleet):
    host = fleet.host("host")
    host.answer_endlessly()
    job = fleet.start(["ssh", "host", "id"])
    wait_until(lambda: len(job.stdout) > 10_000_000, 30.0, "the answer")
    assert not job.ended and job.stdout.startswith("and so on\n")
    job.signal(15)
    job.finish()


def test_a_host_can_never_answer(fleet: Fleet):
    host = fleet.host("host")
    host.answer_never()
    job = fleet.start(["ssh", "host", "id"])
    host.wait_for(lambda: "infinity" in host.describe_processes())
    assert not job.ended and job.stdout == ""
    job.signal(15)
    job.finish()


def test_a_host_can_answer_what_it_likes(fleet: Fleet):
    host = fleet.host("host")
    host.answer("it's \\ a\ttext", status=3)
    done = ssh(fleet, "host", "id")
    assert (done.status, done.stdout) == (3, "it's \\ a\ttext")


def test_a_host_can_change_its_answers(fleet: Fleet):
    host = fleet.host("host")
    host.file("/tmp/file", "root")
    host.answer_through("sed s/root/evil/")
    assert ssh(fleet, "host", "id -un").stdout == "evil\n"
    assert fetch(fleet, host, "/tmp/file") == b"root"
    host.serve()
    assert ssh(fleet, "host", "id -un").stdout == "root\n"


# ---- What is measured and what is left ----------------------------------------------------------


HOLD = "import time; held = b'x' * 60_000_000; time.sleep(1)"


def test_memory_is_measured_for_the_largest_process_and_for_all(fleet: Fleet):
    done = fleet.run(["python3", "-c", "import subprocess as s, sys\n"
                      f"p = [s.Popen([sys.executable, '-c', {HOLD!r}]) for _ in range(3)]\n"
                      "[one.wait() for one in p]"], watch_memory=True)
    assert done.status == 0, done
    assert 60_000_000 < done.peak < 120_000_000
    assert 180_000_000 < done.total_peak < 300_000_000


def test_what_is_new_on_a_host_is_found(fleet: Fleet):
    host = fleet.host("host")
    before = host.snapshot()
    assert host.leftovers(before) == []
    ssh(fleet, "host", "mkdir /var/tmp/a; touch /var/tmp/a/b /etc/c /root/d; "
        "setsid sleep 1003 </dev/null >/dev/null 2>&1 &")
    left = host.leftovers(before, ignore=["/root/d"])
    assert left[:3] == ["/etc/c", "/var/tmp/a", "/var/tmp/a/b"]
    assert len(left) == 4 and "sleep 1003" in left[3]


def test_kept_connections_end_when_a_test_says_so(fleet: Fleet):
    host = fleet.host("host")
    ssh(fleet, "-o", "ControlMaster=auto", "-o", "ControlPersist=60", "-o", "ControlPath=/tmp/c",
        "host", "id")
    assert host.sessions() != []
    fleet.end_connections()
    host.wait_for(lambda: host.sessions() == [], what="the end of the session")


def spaces() -> set[tuple[str, str]]:
    """The namespaces in which any process of this machine is."""
    found = set()
    for pid in filter(str.isdigit, os.listdir("/proc")):
        for kind in ("pid", "net", "mnt"):
            try:
                found.add((kind, os.readlink(f"/proc/{pid}/ns/{kind}")))
            except (FileNotFoundError, PermissionError, ProcessLookupError):
                pass
    return found


def test_nothing_is_left_of_a_fleet(fleet: Fleet):
    hosts = [fleet.host("one"), fleet.host("two", space="1m")]
    job = sleeping(fleet, hosts[0], "-o", "ControlMaster=auto", "-o", "ControlPersist=60",
                   "-o", "ControlPath=/tmp/c")
    own = {(kind, os.readlink(f"/proc/{host.sandbox.init}/ns/{kind}"))
           for host in (*hosts, fleet.controller) for kind in ("pid", "net", "mnt")}
    assert len(own) == 9 and own <= spaces()
    # Open, so that the kernel gives the number of none of them to a namespace of another test.
    held = [os.open(f"/proc/{host.sandbox.init}/ns/{kind}", os.O_RDONLY)
            for host in (*hosts, fleet.controller) for kind in ("pid", "net", "mnt")]
    devices = os.listdir("/sys/class/net")
    assert not job.ended
    fleet.destroy()
    assert own & spaces() == set()
    for descriptor in held:
        os.close(descriptor)
    mounts = Path("/proc/self/mounts").read_text().splitlines()
    assert [line for line in mounts if line.startswith(("sandbox ", "small "))] == []
    assert os.listdir("/sys/class/net") == devices and "br0" not in devices
