"""The play of the collection on real hosts: what it fetches, what it says, and what it leaves."""

from __future__ import annotations

import hashlib
import io
import json
import signal
import subprocess
import tarfile
import time
from contextlib import suppress
from pathlib import Path

import pytest
from support import pattern_text
from support.behave import become, exit, forever, once, ready, wait_for
from support.fleet import KNOWN_HOSTS, ROOT, Fleet
from support.fleet_host import FleetHost
from support.fleet_play import QUICK_PATTERN, STAYS, Played, Plays, quick
from support.sandbox import SandboxError

WORK = "/var/opt/norvale/quendil-collect"
DATA = "/var/opt/norvale/quendil/data"


def members(archive: Path) -> list[str]:
    """The names in an archive, without its top directory; gzip's checksum is checked."""
    content = archive.read_bytes()
    if archive.suffix == ".gz":
        content = subprocess.run(["gzip", "-dc"], input=content, capture_output=True, check=True).stdout
    with tarfile.open(fileobj=io.BytesIO(content)) as tar:
        return sorted(name.partition("/")[2] for name in tar.getnames())


def assert_collected(played: Played, host: str, exit_status: int = 0) -> None:
    """A verified archive of the quick pattern is here, with a result that says so."""
    record = played.results[host]
    assert (record["status"], record["exit"]) == ("ok", exit_status), str(played)
    content = played.archive(host).read_bytes()
    assert record["bytes"] == len(content)
    assert record["sha256"] == hashlib.sha256(content).hexdigest()
    assert played.archive(host).stat().st_mode & 0o777 == 0o400
    assert {"quendil_index", "quendil.log", "quick/etc/hostname"} <= set(members(played.archive(host)))


def assert_failed(played: Played, host: str, *words: str) -> None:
    """A host is in the results as failed, with a cause, and the play names it with that cause."""
    record = played.results[host]
    assert record["status"] == "failed", str(played)
    assert record["archive"] is None
    for word in words:
        assert word in record["cause"], record["cause"]
    assert played.status == 2, str(played)
    assert f"fatal: [{host}]: FAILED! =>" in played.done.stdout.rpartition("Fail for a host")[2]


def assert_nothing_fetched(played: Played, host: str) -> None:
    assert not list((played.directory / host).glob("*"))


def assert_nothing_left(before: dict[FleetHost, object]) -> None:
    for host, snapshot in before.items():
        assert host.leftovers(snapshot, STAYS) == [], host.name


def test_one_play_over_hosts_of_all_kinds(fleet: Fleet, plays: Plays):
    root1, sudo1 = quick(fleet.host("root1")), quick(fleet.host("sudo1", sudo=True))
    full = quick(fleet.host("full", space="16m"))
    no_gzip, no_tar = quick(fleet.host("no-gzip")), quick(fleet.host("no-tar", sudo=True))
    no_gzip.replace("/bin/gzip", exit(1))
    no_tar.replace("/bin/tar", once("/run/fleet/failed", exit(2)), become("/opt/real/tar"))
    empty, absent = fleet.host("empty"), fleet.host("absent")
    empty.pattern("10_other", QUICK_PATTERN.replace("linux", "other"))
    absent.remove("/opt/norvale")
    fleet.down("down")
    fleet.down("silent", "silent")
    before = {host: host.snapshot() for host in fleet.hosts.values()}
    played = plays.run()
    assert_collected(played, "root1")
    assert_collected(played, "sudo1")
    assert_collected(played, "no-gzip", 10)
    assert_collected(played, "no-tar", 20)
    assert "gzip failed" in played.results["no-gzip"]["cause"]
    assert "the role has packed" in played.results["no-tar"]["cause"]
    assert_failed(played, "full", "disk full: ", "100 MiB needed")
    assert_failed(played, "empty", "ZEPA121-E:There is not system information to be collected")
    assert_failed(played, "absent", "quendil is not installed")
    assert_failed(played, "down", "unreachable", "Connection refused")
    assert_failed(played, "silent", "unreachable", "timed out")
    assert "4 of 9 hosts are collected" in played.done.stdout
    overview = (played.directory / "index.html").read_text()
    assert all(host in overview for host in ("root1", "sudo1", "no-gzip", "no-tar"))
    assert_nothing_left(before)


def test_hosts_that_are_all_well_end_with_status_0(fleet: Fleet, plays: Plays):
    quick(fleet.host("one"))
    quick(fleet.host("two", sudo=True))
    played = plays.run("-e", "collect_batch=1")
    assert played.status == 0, str(played)
    assert played.statuses() == {"one": "ok", "two": "ok"}


def test_a_batch_in_which_every_host_fails_does_not_end_the_play(fleet: Fleet, plays: Plays):
    for name in ("down1", "down2"):
        fleet.down(name)
    quick(fleet.host("last"))
    fleet.down("down3")
    played = plays.run("-e", "collect_batch=1")
    assert played.statuses() == {"down1": "failed", "down2": "failed", "down3": "failed", "last": "ok"}
    assert played.status == 2


def test_a_tool_that_never_ends_costs_the_time_limit_of_its_host_alone(fleet: Fleet, plays: Plays):
    quick(fleet.host("well"))
    stuck = fleet.host("stuck", sudo=True)
    stuck.pattern("10_stuck", pattern_text.pattern(
        pattern_text.tool(stuck.tool(forever())), groups=["linux"]))
    before = {stuck: stuck.snapshot()}
    played = plays.run("-e", "collect_time_limit=2")
    assert_collected(played, "well")
    assert_failed(played, "stuck", "the run was stopped: it took more than 2 s")
    assert_nothing_left(before)


def slow(host: FleetHost) -> str:
    """A run of this host waits in a tool until the file whose path is returned exists."""
    tool = pattern_text.tool(host.tool(ready("/run/fleet/started"), wait_for("/run/fleet/go_on")))
    host.pattern("10_slow", QUICK_PATTERN.replace("    DATA_BLOCK", f"{tool}\n    DATA_BLOCK", 1))
    return "/run/fleet/go_on"


def is_waiting(host: FleetHost) -> bool:
    """Whether the controller is waiting on this host for the end of the run."""
    return any(entry.command == "sleep 1" for entry in host.processes())


@pytest.mark.parametrize("sudo", [False, True])
def test_a_run_goes_on_when_its_connection_is_cut(fleet: Fleet, plays: Plays, sudo: bool):
    host = fleet.host("cut", sudo=sudo)
    go_on = slow(host)
    before = {host: host.snapshot()}
    play = plays.start()
    host.wait_for("/run/fleet/started")  # the first connection may still be open
    assert host.kill_sessions() > 0
    host.wait_for(lambda: is_waiting(host))
    assert host.kill_sessions() > 0
    host.wait_for(lambda: not host.sessions())
    host.wait_for(lambda: is_waiting(host))
    host.file(go_on)
    played = plays.finish(play)
    assert_collected(played, "cut")
    assert_nothing_left(before)


def test_what_a_lost_host_has_collected_is_fetched_by_the_next_play(fleet: Fleet, plays: Plays):
    host = fleet.host("lost", sudo=True)
    go_on = slow(host)
    before = {host: host.snapshot()}
    play = plays.start("-e", "collect_reconnect=1")
    host.wait_for(lambda: is_waiting(host))
    host.stop_serving()
    host.kill_sessions()
    assert_failed(plays.finish(play), "lost", "Connection refused", "the run goes on there")
    host.file(go_on)
    host.wait_for(lambda: not any("quendil-collect" in entry.command for entry in host.processes()))
    host.serve()
    made = host.list(f"{WORK}/test-1/out")
    assert len(made) == 1
    played = plays.run("-e", "collect_resume=true")
    assert_collected(played, "lost")
    assert played.archive("lost").name == made[0], "it was collected again"
    assert_nothing_left(before)


def test_a_play_that_was_ended_is_resumed(fleet: Fleet, plays: Plays):
    host = fleet.host("slow")
    quick(fleet.host("done"))
    go_on = slow(host)
    before = {host: host.snapshot()}
    play = plays.start("-f", "1", "-e", "collect_batch=1")
    first = None
    host.wait_for(lambda: is_waiting(host))
    play.signal(signal.SIGKILL)
    play.finish()
    fleet.end_connections()
    host.file(go_on)
    played = plays.run("-e", "collect_resume=true")
    assert played.statuses() == {"slow": "ok", "done": "ok"}
    assert played.status == 0
    assert_nothing_left(before)


def test_hosts_that_are_done_are_skipped_on_demand(fleet: Fleet, plays: Plays):
    good, bad = quick(fleet.host("good")), fleet.host("bad")
    bad.pattern("10_other", QUICK_PATTERN.replace("linux", "other"))
    first = plays.run()
    assert first.statuses() == {"good": "ok", "bad": "failed"}
    archive = first.archive("good")
    before = archive.stat()
    quick(bad)
    bad.remove("/etc/opt/norvale/quendil/pattern/10_other")
    good.stop_serving()  # nobody asks it again
    second = plays.run("-e", "collect_resume=true")
    assert second.status == 0, str(second)
    assert second.statuses() == {"good": "ok", "bad": "ok"}
    assert archive.stat() == before
    archive.chmod(0o600)
    archive.write_bytes(b"x" + archive.read_bytes()[1:])
    third = plays.run("-e", "collect_resume=true")
    assert third.statuses() == {"good": "failed", "bad": "ok"}


def test_a_byte_that_is_flipped_on_its_way_is_noticed(fleet: Fleet, plays: Plays):
    once_, always = quick(fleet.host("once")), quick(fleet.host("always", sudo=True))
    once_.flip(1, larger_than=0)
    always.flip(2, larger_than=0)
    before = {host: host.snapshot() for host in (once_, always)}
    played = plays.run()
    assert_collected(played, "once")
    assert once_.flips_left() == 0
    assert_failed(played, "always", "the transfer changed the archive: sha256 differs",
                  f"what was collected is kept on the host: {WORK}/test-1/out/")
    assert len(always.list(f"{WORK}/test-1/out")) == 1
    again = plays.run("-e", "collect_resume=true")
    assert_collected(again, "always")
    assert_nothing_left(before)


def test_a_hostile_host_stops_no_other_one(fleet: Fleet, plays: Plays):
    quick(fleet.host("well"))
    endless, mute = quick(fleet.host("endless")), quick(fleet.host("mute"))
    endless.answer_endlessly()
    mute.answer_never()
    strange, short = quick(fleet.host("strange")), quick(fleet.host("short"))
    strange.answer("user 0\nquendil state started\nquendil path ../../../etc/passwd\nquendil end\n")
    short.answer("user 0\nquendil state started\n")
    # Ansible's own retries of a connection would hide a host that does not answer.
    played = plays.run("-e", "collect_reconnect=1", watch_memory=True,
                       host_variables={"mute": {"collect_answer_limit": 3, "ansible_ssh_retries": 3}})
    assert_collected(played, "well")
    assert_failed(played, "endless", "the host has sent too much")
    assert_failed(played, "mute", "the host has not answered in time")
    assert_failed(played, "strange", "the host has given a strange answer: quendil path ../../..")
    assert_failed(played, "short", "the host has given no complete answer")
    assert played.done.peak < 400 << 20
    assert not [entry for entry in fleet.controller.processes() if "192.0.2" in entry.command]


def rewriting(host: FleetHost, key: str, value: str) -> None:
    """This host answers with another value of a key."""
    host.answer_through(f"sed 's|^quendil {key} .*|quendil {key} {value}|'")


@pytest.mark.parametrize("key, value, cause", [
    ("path", "/etc/shadow", "strange path: /etc/shadow"),
    ("path", f"{WORK}/test-1/out/../../x_261124000000.tar.gz", "strange path"),
    ("path", f"{WORK}/test-1/out/results.jsonl", "named its archive strangely"),
    ("path", f"{WORK}/test-1/out/-x_261124000000.tar.gz", "named its archive strangely"),
    ("path", f"{WORK}/test-1/out/{{{{ 7 * 7 }}}}_261124000000.tar.gz", "named its archive strangely"),
    ("bytes", "999999999999", "archive_limit is 4096 MiB"),
    ("bytes", "0", "archive_limit is 4096 MiB"),
    ("bytes", "10", "the host has sent more than the 10 bytes"),
    ("bytes", "1000000", "the transfer gave"),
    ("sha256", "0" * 64, "sha256 differs"),
    ("sha256", "x", "strange answer"),
    ("cause", r"\x1b[31m", "strange answer"),
    ("exit", "{{ 1 }}", "strange answer"),
])
def test_what_a_host_says_of_its_archive_is_checked(
        fleet: Fleet, plays: Plays, key: str, value: str, cause: str):
    host = quick(fleet.host("liar"))
    rewriting(host, key, value)
    played = plays.run()
    assert_failed(played, "liar", cause)
    assert_nothing_fetched(played, "liar")
    written = {str(path.relative_to(fleet.directory)) for path in fleet.directory.rglob("*")}
    assert {path for path in written if not path.startswith("keys")} <= {
        "inventory.yml", "collected", "collected/test-1", "collected/test-1/results.jsonl",
        "collected/test-1/.lock", "collected/test-1/liar"}


def test_a_file_without_end_and_a_slow_one_are_given_up(fleet: Fleet, plays: Plays):
    endless, slow_one = quick(fleet.host("endless")), quick(fleet.host("slow"))
    endless.endless_files()
    slow_one.slow_files(3600)
    played = plays.run(host_variables={"slow": {"collect_fetch_limit": 3, "collect_reconnect": 1}})
    assert_failed(played, "endless", "the host has sent more than the")
    assert_failed(played, "slow", "the host has not answered in time", "is kept on the host")


def stub(fleet: Fleet, commands: str) -> FleetHost:
    """A host on which these shell commands, in the directory for the output, take the place of quendil."""
    host = fleet.host("stub")
    host.file("/opt/norvale/quendil/bin/quendil", f'#!/bin/sh\ncd "$2" && {commands}\n', 0o755)
    return host


def test_an_archive_without_an_index_is_refused(fleet: Fleet, plays: Plays):
    stub(fleet, "mkdir stub && echo text >stub/file && tar czf stub_261124000000.tar.gz stub && rm -r stub")
    played = plays.run()
    assert_failed(played, "stub", "the archive is damaged: it has no index", "is kept on the host")
    assert_nothing_fetched(played, "stub")


@pytest.mark.parametrize("commands, cause", [
    ("true", 'no single result that ends with ".tar.gz"'),
    ("echo >a_261124000000.tar.gz; echo >b_261124000000.tar.gz", "no single result"),
    ("ln -s /etc/shadow a_261124000000.tar.gz", "no single result"),
    ("echo >a.tar; exit 10", "named its archive strangely"),
    ("exit 20", 'no single result that ends with "/"'),
    ("exit 255", "the run has left no log"),
    ("exit 3", "quendil ended with status 3"),
    ("kill -s KILL $$", "quendil was killed after 0 s"),
])
def test_a_run_that_ends_strangely_is_reported(fleet: Fleet, plays: Plays, commands: str, cause: str):
    host = stub(fleet, commands)
    assert_failed(plays.run(), "stub", cause)
    assert not host.exists(WORK) or host.list(f"{WORK}/test-1/data") or host.list(f"{WORK}/test-1/out")


def test_an_archive_is_encrypted_for_its_recipients(fleet: Fleet, plays: Plays):
    host, plain = quick(fleet.host("secret", sudo=True)), fleet.directory / "plain"
    key = fleet.directory / "key"
    subprocess.run(["age-keygen", "-o", key], check=True, capture_output=True)
    recipient = subprocess.run(["age-keygen", "-y", key], check=True, capture_output=True, text=True).stdout.strip()
    before = {host: host.snapshot()}
    played = plays.run("-e", json.dumps({"collect_recipients": [recipient]}))
    assert played.status == 0, str(played)
    archive = played.archive("secret")
    assert archive.name.endswith(".tar.gz.age")
    subprocess.run(["age", "-d", "-i", key, "-o", f"{plain}.tar.gz", archive], check=True)
    assert "quendil_index" in members(Path(f"{plain}.tar.gz"))
    assert_nothing_left(before)


def test_nothing_is_fetched_that_could_not_be_encrypted(fleet: Fleet, plays: Plays):
    host = quick(fleet.host("secret"))
    host.replace("/usr/bin/age", exit(1))
    played = plays.run("-e", json.dumps({"collect_recipients": ["age1notakey"]}))
    assert_failed(played, "secret", "age failed", f"what was collected is kept on the host: {WORK}/test-1/data")


def test_a_pattern_file_of_the_controller_is_there_for_this_run_only(fleet: Fleet, plays: Plays):
    host = quick(fleet.host("host", sudo=True))
    own = fleet.directory / "50_own"
    own.write_text(QUICK_PATTERN.replace("linux", "own") + "# it's \"quoted\" $(text) `here`\n")
    before = {host: host.snapshot()}
    played = plays.run("-e", json.dumps({"collect_groups": ["own"], "collect_patterns": [str(own)]}))
    assert played.status == 0, str(played)
    assert_nothing_left(before)


def test_an_archive_stays_on_the_host_on_demand(fleet: Fleet, plays: Plays):
    host = quick(fleet.host("host", sudo=True))
    played = plays.run("-e", "collect_keep=true")
    assert_collected(played, "host")
    name = played.archive("host").name
    assert host.list(DATA) == [name]
    assert host.mode(f"{DATA}/{name}") == "0600" and host.status(f"{DATA}/{name}").st_uid == 0
    assert not host.exists(WORK)


@pytest.mark.parametrize("package", ["quendil-*-linux-*.tar.gz", "quendil_*.deb"])
def test_a_package_is_installed_for_the_run_and_removed(fleet: Fleet, plays: Plays, package: str):
    host = fleet.host("bare", sudo=True)
    for tree in ("/opt/norvale", "/etc/opt/norvale", "/var/opt/norvale"):
        host.remove(tree)
    found = next((ROOT / "build/packages").glob(package))
    for name in ("upper", "work"):
        host.directory(f"/run/fleet/{name}")
    for tree in ("/usr", "/var/lib"):
        place = tree.replace("/", "_")
        host.directory(f"/run/fleet/{place}/upper")
        host.directory(f"/run/fleet/{place}/work")
        host.mount("-t", "overlay", "-o", f"lowerdir={tree},upperdir=/run/fleet/{place}/upper,"
                   f"workdir=/run/fleet/{place}/work", "overlay", tree)
    before = {host: host.snapshot()}
    played = plays.run("-e", f"collect_package={found}", "-e", json.dumps({"collect_targets": ["kernel"]}))
    assert played.status == 0, str(played)
    for snapshot in before.values():
        assert host.leftovers(snapshot) == []


def test_a_work_directory_of_ones_own_leaves_the_directories_above_it(fleet: Fleet, plays: Plays):
    host = quick(fleet.host("one"))
    host.directory("/opt/empty")
    before = host.snapshot()
    played = plays.run("-e", "collect_work_directory=/opt/empty/work")
    assert_collected(played, "one")
    assert host.leftovers(before, STAYS) == [] and host.exists("/opt/empty")


@pytest.mark.parametrize("mode, owner", [(0o777, (0, 0)), (0o1777, (0, 0)), (0o775, (0, 0)), (0o755, (5001, 0))])
def test_a_work_directory_that_others_can_write_to_is_refused(
        fleet: Fleet, plays: Plays, mode: int, owner: tuple[int, int]):
    host = quick(fleet.host("one"))
    host.directory("/opt/theirs", mode, owner)
    played = plays.run("-e", "collect_work_directory=/opt/theirs")
    assert_failed(played, "one", "/opt/theirs is not root's own")


def test_hosts_behind_a_bastion_are_reached_through_it(fleet: Fleet, plays: Plays):
    bastion, inner = fleet.host("bastion"), quick(fleet.host("inner", sudo=True))
    quick(bastion)
    bastion.file("/etc/hosts", f"{bastion.read('/etc/hosts')}{inner.address} only-the-bastion-knows\n")
    jump = f"-o ProxyJump=root@bastion -o HostKeyAlias=inner -o UserKnownHostsFile={KNOWN_HOSTS}"
    played = plays.run(host_variables={"inner": {
        "ansible_host": "only-the-bastion-knows", "ansible_ssh_common_args": jump}})
    assert_collected(played, "inner")


@pytest.mark.parametrize("strategy", ["free", "host_pinned"])
def test_other_strategies_do(fleet: Fleet, plays: Plays, strategy: str):
    quick(fleet.host("one"))
    quick(fleet.host("two"))
    fleet.down("down")
    played = plays.run(env={"ANSIBLE_STRATEGY": strategy})
    assert played.statuses() == {"one": "ok", "two": "ok", "down": "failed"}
    assert played.status == 2


def test_check_mode_does_nothing(fleet: Fleet, plays: Plays):
    host = quick(fleet.host("one"))
    before = host.snapshot()
    played = plays.run("--check")
    assert played.status == 0, str(played)
    assert host.leftovers(before) == []
    assert not plays.destination.exists()


def test_another_run_on_the_host_is_named_as_the_cause(fleet: Fleet, plays: Plays):
    host = quick(fleet.host("busy"))
    with host.locked(host.file("/opt/norvale/quendil/bin/.quendil.lck")):
        played = plays.run()
    assert_failed(played, "busy", "ZEPA116-E:Another quendil is already running")


def test_a_host_that_does_not_become_root_is_refused(fleet: Fleet, plays: Plays):
    host = quick(fleet.host("one", sudo=True))
    before = host.snapshot()
    played = plays.run("-e", "collect_become=false")
    assert_failed(played, "one", "not root: this user needs become")
    assert host.leftovers(before) == []


def test_a_wrong_password_is_the_cause(fleet: Fleet, plays: Plays):
    quick(fleet.host("one", sudo=True))
    played = plays.run(host_variables={"one": {"ansible_become_password": "wrong"}})
    assert_failed(played, "one", "Incorrect sudo password")


def test_a_package_that_was_changed_on_its_way_is_not_installed(fleet: Fleet, plays: Plays):
    host = fleet.host("bare")
    host.remove("/opt/norvale")
    package = fleet.directory / "quendil-1.2-linux-x86_64.tar.gz"
    package.write_bytes(b"x" * 100_000)
    host.replace_by("/usr/bin/sha256sum", "#!/bin/sh\ncat >/dev/null\necho other -\n")
    played = plays.run("-e", f"collect_package={package}")
    assert_failed(played, "bare", "the package was changed on its way")
    assert not host.list("/tmp") or all("quendil" not in name for name in host.list("/tmp"))


def completing(fleet: Fleet) -> Path:
    """A play that only completes the results."""
    play = fleet.directory / "end.yml"
    play.write_text("""
- hosts: all
  gather_facts: false
  tasks:
    - ansible.builtin.include_role:
        name: norvale.quendil.collect
        tasks_from: summary
""")
    return play


def test_a_host_without_a_result_is_in_the_results(fleet: Fleet, plays: Plays):
    quick(fleet.host("one"))
    played = plays.run(playbook=completing(fleet))
    assert_failed(played, "one", "the play ended early for this host")


def test_a_result_that_is_older_than_the_play_does_not_count(fleet: Fleet, plays: Plays):
    quick(fleet.host("one"))
    assert plays.run().statuses() == {"one": "ok"}
    assert plays.run(playbook=completing(fleet)).statuses() == {"one": "ok"}
    played = plays.run("-e", "collect_since=2999-01-01T00:00:00Z", playbook=completing(fleet))
    assert_failed(played, "one", "the play ended early for this host")


def test_an_archive_is_not_removed_because_waiting_for_it_failed(fleet: Fleet, plays: Plays):
    host = fleet.host("one")
    go_on = slow(host)
    play = plays.start()
    host.wait_for(lambda: is_waiting(host))
    waiting = [entry.ppid for entry in host.processes() if entry.command == "sleep 1"]
    for pid in waiting:
        host.sandbox.kill(pid, signal.SIGKILL)
    host.file(go_on)
    played = plays.finish(play)
    assert_failed(played, "one", "the host's shell ended with status")
    host.wait_for(lambda: not any("quendil-collect" in entry.command for entry in host.processes()))
    made = host.list(f"{WORK}/test-1/out")
    assert len(made) == 1
    again = plays.run("-e", "collect_resume=true")
    assert_collected(again, "one")
    assert again.archive("one").name == made[0]


def test_the_result_of_other_options_is_no_result(fleet: Fleet, plays: Plays):
    host = quick(fleet.host("one"))
    host.pattern("20_other", QUICK_PATTERN.replace("linux", "other"))
    host.flip(2, larger_than=0)
    assert_failed(plays.run(), "one", "sha256 differs")
    played = plays.run("-e", "collect_groups=other")
    assert_failed(played, "one", "with other options, is still on the host", "test-1/out/one_")
    assert_collected(plays.run("-e", "collect_groups=linux"), "one")


def test_what_could_not_be_handed_over_survives_the_next_play(fleet: Fleet, plays: Plays):
    host = quick(fleet.host("one"))
    host.replace("/usr/bin/age", exit(1))
    recipients = json.dumps({"collect_recipients": ["age1notakey"]})
    assert_failed(plays.run("-e", recipients), "one", "age failed", f"{WORK}/test-1/data")
    made = host.list(f"{WORK}/test-1/data")
    again = plays.run()
    assert_collected(again, "one")
    aside, = host.list(WORK)
    assert host.list(f"{WORK}/{aside}/data") == made
    assert f"what an earlier run has collected is kept on the host: {WORK}/{aside}" in again.results["one"]["cause"]


def test_a_pattern_file_goes_when_the_run_was_killed(fleet: Fleet, plays: Plays):
    host = fleet.host("one")
    slow(host)
    own = fleet.directory / "50_own"
    own.write_text(QUICK_PATTERN)
    before = host.snapshot()
    play = plays.start("-e", f"collect_patterns={own}")
    host.wait_for("/run/fleet/started")
    for entry in host.processes():
        if "quendil-collect" in entry.command or "bin/quendil " in entry.command:
            with suppress(SandboxError):  # it has ended with another one
                host.sandbox.kill(entry.pid, signal.SIGKILL)
    played = plays.finish(play)
    assert_failed(played, "one", "the run was killed", f"what was collected is kept on the host: {WORK}/test-1/data")
    assert [path for path in host.leftovers(before, STAYS) if not path.startswith(WORK)] == []


def test_nothing_below_a_work_directory_of_others_is_read(fleet: Fleet, plays: Plays):
    host = quick(fleet.host("one", sudo=True))
    host.directory("/tmp/theirs", 0o755, (5001, 0))
    host.directory("/tmp/theirs/test-1/package", 0o755, (5001, 0))
    host.file("/tmp/theirs/test-1/package/record", "$(touch /tmp/read)\ntouch /tmp/read\n")
    host.file("/tmp/theirs/test-1/patterns", "../../../../../tmp/victim\n")
    host.file("/tmp/victim.test-1")
    played = plays.run("-e", "collect_work_directory=/tmp/theirs")
    assert_failed(played, "one", "not root's own")
    assert host.list("/tmp") == ["theirs", "victim.test-1"]


def test_a_kept_archive_replaces_no_other_one(fleet: Fleet, plays: Plays):
    host = stub(fleet, "mkdir stub && echo text >stub/quendil_index && tar czf stub_261124000000.tar.gz stub && rm -r stub")
    host.file(f"{DATA}/stub_261124000000.tar.gz", "other")
    played = plays.run("-e", "collect_keep=true")
    assert played.statuses() == {"stub": "ok"}
    assert f"the archive could not be copied to {DATA}" in played.results["stub"]["cause"]
    assert host.read(f"{DATA}/stub_261124000000.tar.gz") == "other"


def test_settings_may_be_texts(fleet: Fleet, plays: Plays):
    host = quick(fleet.host("one"))
    played = plays.run("-e", "collect_keep=false", "-e", "collect_overview=false", "-e", "collect_groups=linux,other",
                       "-e", "collect_become=false")
    assert_collected(played, "one")
    assert host.list(DATA) == []
    assert not (played.directory / "index.html").exists()


def test_a_result_of_an_earlier_play_is_not_that_of_this_one(fleet: Fleet, plays: Plays):
    quick(fleet.host("one"))
    quick(fleet.host("two"))
    assert plays.run().statuses() == {"one": "ok", "two": "ok"}
    time.sleep(1.1)  # the time of a result has whole seconds
    played = plays.run(host_variables={"two": {"collect_time_limit": "15m"}})
    assert played.statuses() == {"one": "ok", "two": "failed"}, str(played)
    assert_failed(played, "two", "argument 'collect_time_limit' is of type")


def test_texts_of_a_host_are_no_templates(fleet: Fleet, plays: Plays):
    host = quick(fleet.host("one"))
    host.answer("user 0\nquendil cause {{ 7 * 7 }}{% raise %}{{ lookup('pipe', 'touch /tmp/x') }}\nquendil end\n")
    played = plays.run()
    assert_failed(played, "one", "{{ 7 * 7 }}{% raise %}{{ lookup(")
    assert not fleet.controller.exists("/tmp/x")


@pytest.mark.parametrize("shell", ["bash", "busybox"])
def test_other_shells_do(fleet: Fleet, plays: Plays, shell: str):
    host = quick(fleet.host("one", sudo=True))
    host.mount("--bind", f"/usr/bin/{shell}", "/usr/bin/dash")
    before = host.snapshot()
    assert_collected(plays.run(), "one")
    assert host.leftovers(before, STAYS) == []


def test_nothing_is_started_if_no_results_can_be_written(fleet: Fleet, plays: Plays):
    host = quick(fleet.host("one"))
    before = host.snapshot()
    done = fleet.run(["ansible-playbook", "-i", fleet.inventory(), "norvale.quendil.collect",
                      "-e", "collect_destination=/proc/collected"])
    assert done.status == 2
    assert "on the controller: [Errno 2] No such file or directory: '/proc/collected'" in done.stdout
    assert host.leftovers(before) == []


def test_results_are_in_the_current_directory(fleet: Fleet, plays: Plays):
    quick(fleet.host("one"))
    done = fleet.run(["ansible-playbook", "-i", fleet.inventory(), "norvale.quendil.collect",
                      "-e", "collect_request=r"], env={"PWD": "/elsewhere"})
    assert done.status == 0, str(done)
    assert (fleet.directory / "collected/r/results.jsonl").is_file()
