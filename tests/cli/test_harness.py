"""The harness itself, tried out with a small shell script in the program's place.

A test of the program can prove nothing if its machine leaks, its masks swallow too much or its
checks never fail; so each of these is seen to work, and to fail where it must.
"""

from __future__ import annotations

import os
import signal
import tarfile
from datetime import datetime
from pathlib import Path

import pytest
from support import behave, expect, masking, pattern_text, progress
from support.behave import child, daemon, err, exit, forever, ignore, out, ready, report
from support.cell import CellError, CellServer
from support.machine import (
    DATA_DIRECTORY, LOG_DIRECTORY, QUENDIL, Installation, Machine, environment_path,
)
from support.tree import Member, read_archive

#: Performs its first argument: "exec COMMAND...", "shell TEXT", or "collect", a whole small run.
STAND_IN = r"""#!/bin/sh
log=/var/opt/norvale/quendil/log
data=/var/opt/norvale/quendil/data
collect() {
    name=$(hostname)_$(date +%y%m%d%H%M%S)
    now=$(date '+%Y/%m/%d %H:%M:%S')
    echo "ZEPA201-I:quendil [Ver. 01-02] started at $now." > $log/quendil.log
    echo "ZEPA302-I:quendil argument is $*." >> $log/quendil_hist.log
    mkdir $data/$name
    printf 'quendil [Ver. 01-02]\nquendil %s\n\nFILE:a\nDESC:\nDATE:%s\nTYPE:text\n' \
        "$*" "$(date +%y%m%d%H%M%S)" > $data/$name/quendil_index
    printf 'hello' > $data/$name/a
    chmod 640 $data/$name/a
    chown 12:34 $data/$name/a
    touch -d @1000000000 $data/$name/a
    cd $data && /bin/tar cfh $name.tar $name && /bin/gzip $name.tar || exit 20
    rm -r $name
    echo "ZEPA214-I:Output file = $data/$name.tar.gz. size = $(stat -c %s $name.tar.gz) bytes."
}
case $1 in
exec) shift; exec "$@" ;;
shell) eval "$2" ;;
collect) collect "$@" ;;
esac
"""


@pytest.fixture(scope="session")
def installation(tmp_path_factory: pytest.TempPathFactory) -> Installation:
    """An installation of the stand-in, made like that of the program."""
    stage = tmp_path_factory.mktemp("stage")
    for tree in ("opt/norvale/quendil/bin", "var/opt/norvale/quendil/data",
                 "var/opt/norvale/quendil/log", "etc/opt/norvale/quendil/config",
                 "etc/opt/norvale/quendil/pattern"):
        (stage / tree).mkdir(parents=True)
    program = stage / "opt/norvale/quendil/bin/quendil"
    program.write_text(STAND_IN)
    program.chmod(0o755)
    (stage / "etc/opt/norvale/quendil/pattern/shipped").write_text("# shipped\n")
    return Installation(stage, environment_path("QUENDIL_BEHAVE"))


def play(machine: Machine, *actions: behave.Action, **how):
    """A run whose stand-in becomes `behave`."""
    return machine.run("exec", *machine.tool(*actions).split(), **how)


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


def test_a_host_directory_can_be_kept_writable(cell_server: CellServer, installation: Installation,
                                               tmp_path: Path):
    machine = Machine(cell_server, Installation(installation.stage, installation.behave,
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


def test_two_machines_share_nothing(machine: Machine, cell_server: CellServer,
                                    installation: Installation):
    other = Machine(cell_server, installation)
    try:
        other.hostname("other")
        other.file("/opt/data/file", "x")
        assert other.exec(["hostname"]).stdout == "other\n"
        assert machine.exec(["hostname"]).stdout == "testhost\n"
        assert not machine.exists("/opt/data")
    finally:
        other.destroy()


def test_nothing_is_left_of_a_machine(cell_server: CellServer, installation: Installation):
    machine = Machine(cell_server, installation)
    play(machine, daemon(), ignore("TERM"), ready("/opt/ready"), forever())
    machine.wait_for("/opt/ready")
    namespace = os.readlink(f"/proc/{machine.cell.init}/ns/pid")
    assert _processes_of(namespace) != []
    machine.destroy()
    assert _processes_of(namespace) == []
    assert " cell " not in Path("/proc/self/mounts").read_text()


def _processes_of(namespace: str) -> list[str]:
    found = []
    for pid in filter(str.isdigit, os.listdir("/proc")):
        try:
            if os.readlink(f"/proc/{pid}/ns/pid") == namespace:
                found.append(pid)
        except (FileNotFoundError, PermissionError, ProcessLookupError):
            pass
    return found


def test_a_cell_ends_when_its_worker_is_gone(cell_server: CellServer, installation: Installation):
    machine = Machine(cell_server, installation)
    namespace = os.readlink(f"/proc/{machine.cell.init}/ns/pid")
    machine.cell._link.close()  # what the kernel does for a worker that was killed
    machine.wait_for(lambda: _processes_of(namespace) == [], what="the end of the cell")
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


# ---- Runs ---------------------------------------------------------------------------------------


def test_a_run_gives_its_outputs_and_its_status(machine: Machine):
    run = play(machine, out("2026/11/15 09:53:18\n"), err("oops\n"), exit(20))
    assert run.status == 20
    assert run.raw_stdout == b"2026/11/15 09:53:18\n"
    assert run.stdout == "<TIME>\n"
    assert run.stderr == "oops\n"
    assert run.log is None and run.history is None


def test_merged_outputs_keep_their_order(machine: Machine):
    run = play(machine, out("1\n"), err("2\n"), out("3\n"), merge=True)
    assert (run.stdout, run.stderr) == ("1\n2\n3\n", "1\n2\n3\n")


def test_a_run_inherits_what_the_test_says(machine: Machine):
    machine.directory("/opt/place", owner=(1000, 1000))
    play(machine, report("/opt/place/report"), cwd="/opt/place", umask=0o027, user=1000,
         limits={"nofile": 32}, close=[0], ignore=[signal.SIGHUP], block=[signal.SIGTERM])
    state = machine.report("/opt/place/report")
    assert (state["uid"], state["euid"], state["cwd"]) == ("1000", "1000", "/opt/place")
    assert (state["umask"], state["ignored"], state["blocked"]) == ("0027", "1", "15")
    assert state["pgid"] == state["sid"] == state["pid"] and state["ppid"] == "1"
    assert "fd0" not in state and "fd1" in state and "fd3" not in state


def test_a_run_starts_with_an_empty_input_and_default_signals(machine: Machine):
    play(machine, report("/opt/report"))
    state = machine.report("/opt/report")
    assert state["fd0"] == "r /dev/null"
    assert (state["ignored"], state["blocked"], state["caught"]) == ("", "", "")
    assert [key for key in state if key.startswith("fd")] == ["fd0", "fd1", "fd2"]


def test_real_and_effective_user_can_differ(machine: Machine):
    # A shell would give up the effective user at once.
    machine.file(QUENDIL, behave.script(report("/opt/report")), 0o755)
    machine.run(user=1000, effective_user=0)
    state = machine.report("/opt/report")
    assert (state["uid"], state["euid"]) == ("1000", "0")


def test_a_run_reads_the_input_that_the_test_gives(machine: Machine):
    play(machine, behave.drain("/opt/count"), stdin=b"12345")
    assert machine.read("/opt/count") == "5\n"


def test_environment_and_name_of_a_run(machine: Machine):
    run = machine.run("shell", "echo $0 $TZ $LC_ALL $EXTRA", env={"EXTRA": "more"})
    assert run.stdout == "/opt/norvale/quendil/bin/quendil QTZ-05:45 C.UTF-8 more\n"
    machine.install(environment_path("QUENDIL_BEHAVE"), QUENDIL)
    machine.run("report", "/opt/report", argv0="other")
    assert machine.report("/opt/report")["arg0"] == "other"


def test_the_time_zone_is_not_the_hosts(machine: Machine):
    assert machine.exec(["date", "+%z"]).stdout == "+0545\n"


def test_a_wrapper_is_put_in_front(cell_server: CellServer, installation: Installation):
    wrapper = ("/usr/bin/env", "WRAPPED=yes")
    machine = Machine(cell_server, Installation(installation.stage, installation.behave, wrapper))
    try:
        assert machine.run("shell", "echo $WRAPPED").stdout == "yes\n"
    finally:
        machine.destroy()


def test_a_running_program_can_be_watched_and_signalled(machine: Machine):
    run = machine.start("exec", *machine.tool(out("up\n"), behave.exiton("INT", 10),
                                              ready("/opt/ready"), forever()).split())
    run.wait_for("/opt/ready")
    assert run.stdout == b"up\n"
    assert [entry.pid for entry in machine.processes()] == [run.pid]
    run.signal(signal.SIGINT)
    assert run.finish().status == 10


def test_a_signal_to_the_group_reaches_its_children(machine: Machine):
    words = machine.tool(child(behave.note("USR1", "/opt/noted"), ready("/opt/ready"), forever()),
                         ignore("USR1"), behave.wait_for("/opt/noted"), forever()).split()
    run = machine.start("exec", *words)
    run.wait_for("/opt/ready")
    run.signal(signal.SIGUSR1, to_group=True)
    machine.wait_for(lambda: machine.read("/opt/noted") == "10\n", what="the child's note")
    run.signal(signal.SIGKILL, to_group=True)
    assert run.finish().status == -signal.SIGKILL


def test_two_runs_go_on_at_once(machine: Machine):
    first = machine.start("exec", *machine.tool(behave.wait_for("/opt/go"), out("first\n")).split())
    second = play(machine, behave.write("/opt/go", ""), out("second\n"))
    assert (second.stdout, first.finish().stdout) == ("second\n", "first\n")


def test_waiting_fails_when_the_run_ends_first(machine: Machine):
    run = machine.start("exec", "/opt/behave", "out", "last")
    with pytest.raises(AssertionError, match="the run ended without: /opt/never"):
        run.wait_for("/opt/never")
    run.finish()


def test_a_run_that_does_not_end_fails_with_what_is_known(cell_server: CellServer,
                                                          installation: Installation):
    machine = Machine(cell_server, installation)
    words = machine.tool(out("so far"), ready("/opt/ready"), forever()).split()
    run = machine.start("exec", *words)
    run.wait_for("/opt/ready")
    with pytest.raises(AssertionError, match="(?s)did not end within.*so far.*behave"):
        run.finish(seconds=0.01)
    assert not machine.root.exists()
    machine.destroy()


def test_a_program_that_cannot_be_started_is_an_error(machine: Machine):
    with pytest.raises(CellError, match="No such file"):
        machine.exec(["/opt/missing"])


# ---- The checks after every test ----------------------------------------------------------------


def test_a_process_left_behind_is_found(machine: Machine):
    play(machine, daemon(), ready("/opt/ready"), forever())
    machine.wait_for("/opt/ready")
    with pytest.raises(AssertionError, match="(?s)the end of all processes.*behave daemon"):
        machine.check(grace=0.01)
    machine.allow_survivors()
    machine.check()


@pytest.mark.parametrize("actions, status", [([exit(1)], 1), ([behave.die("SEGV")], -11)])
def test_an_illegal_end_is_found(machine: Machine, actions: list, status: int):
    assert play(machine, *actions).status == status
    with pytest.raises(AssertionError, match="illegal end of a run"):
        machine.check()
    machine.allow_status(status)


def test_an_unfinished_run_is_found(machine: Machine):
    run = machine.start("exec", *machine.tool(behave.wait_for("/opt/go")).split())
    with pytest.raises(AssertionError, match="left a run unfinished"):
        machine.check()
    machine.file("/opt/go")
    run.finish()


# ---- Results ------------------------------------------------------------------------------------


def test_a_whole_run_is_read_back(machine: Machine):
    run = machine.run("collect", "-g")
    assert run.status == 0
    assert run.stdout == expect.output_file()
    assert run.log == "ZEPA201-I:quendil [Ver. 01-02] started at <TIME>.\n"
    assert run.history == "ZEPA302-I:quendil argument is collect -g.\n"
    assert run.index == expect.index_header("collect -g") + expect.index_record("a")
    assert machine.outputs() == ["testhost_<STAMP>.tar.gz"]
    tree = run.archive
    assert tree["a"] == Member("file", "0640", 12, 34, 5, 1_000_000_000)
    assert tree.files()["a"] == b"hello"
    assert tree.kinds() == {"": ("directory", "0755"), "a": ("file", "0640"),
                            "quendil_index": ("file", "0644")}
    run.check_times()
    assert all(run.began <= stamp <= run.ended
               for stamp in masking.stamps(run.result + "\n" + run.raw_index))


def test_a_time_outside_the_run_is_found(machine: Machine):
    run = play(machine, out("2001/02/03 04:05:06\n"))
    with pytest.raises(AssertionError, match="outside the run"):
        run.check_times()


def test_an_unpacked_output_is_read_back(machine: Machine):
    directory = f"{DATA_DIRECTORY}/testhost_261121014209"
    machine.file(f"{directory}/quendil_index", "index\n", mode=0o600)
    machine.link(f"{directory}/to", "/etc")
    run = play(machine, out(f"ZEPA215-I:Output = {directory}.\n"), exit(20))
    assert run.index == "index\n"
    assert run.directory.kinds()["quendil_index"] == ("file", "0600")
    assert run.directory["to"].target == "/etc"
    assert run.directory.names == ["", "quendil_index", "to"]


def test_an_output_that_no_message_names_is_found_through_the_log(machine: Machine):
    machine.file(f"{LOG_DIRECTORY}/quendil.log", expect.RunLog().parameters(output="/opt/o").text)
    machine.file("/opt/o/file", "x")
    run = play(machine, exit(255))
    assert run.directory.files() == {"file": b"x"}


def test_an_archive_with_a_name_twice_is_refused(tmp_path: Path):
    path = tmp_path / "twice.tar"
    with tarfile.open(path, "w") as archive:
        archive.addfile(tarfile.TarInfo("top/a"))
        archive.addfile(tarfile.TarInfo("top/a"))
    with pytest.raises(AssertionError, match="twice"):
        read_archive(path)


def test_an_archive_with_two_tops_is_refused(tmp_path: Path):
    path = tmp_path / "tops.tar"
    with tarfile.open(path, "w") as archive:
        archive.addfile(tarfile.TarInfo("top/a"))
        archive.addfile(tarfile.TarInfo("other/b"))
    with pytest.raises(AssertionError, match="top directories"):
        read_archive(path)


# ---- Masks --------------------------------------------------------------------------------------


@pytest.mark.parametrize("text, masked", [
    ("at 2026/11/15 09:53:18.", "at <TIME>."),
    ("at 2026/11/15 9:53:18.", "at 2026/11/15 9:53:18."),
    ("/d/testhost_261121014209_1.tar", "/d/testhost_<STAMP>_1.tar"),
    ("testhost_2611210142090", "testhost_2611210142090"),
    ("DATE:261121014209\n", "DATE:<STAMP>\n"),
    ("DESC:261121014209\n", "DESC:261121014209\n"),
    ("ZEPA114-E:source = IGMain, line no = 12.", "ZEPA114-E:source = IGMain, line no = <LINE>."),
    ("ZEPA120-E:filename = /f, line no = 12.", "ZEPA120-E:filename = /f, line no = 12."),
    ("An attempt to wait or stop a process (77) has failed.",
     "An attempt to wait or stop a process (<PID>) has failed."),
    ("Output file = /a.tar.gz. size = 45 bytes.", "Output file = /a.tar.gz. size = <SIZE> bytes."),
    ("Archive file = /a.tar. size = 45 bytes.", "Archive file = /a.tar. size = <SIZE> bytes."),
    ("collecting data = /a. size = 45 bytes.", "collecting data = /a. size = 45 bytes."),
    ("Total data size: 45 bytes.", "Total data size: 45 bytes."),
])
def test_masks_hide_what_differs_and_nothing_else(text: str, masked: str):
    assert masking.mask(text) == masked


def test_what_a_mask_hides_can_be_read():
    text = "x 2026/11/15 09:53:18 /testhost_261121014209\nDATE:261121014210\n"
    assert masking.times(text) == [datetime(2026, 11, 15, 9, 53, 18)]
    assert masking.stamps(text) == [datetime(2026, 11, 21, 1, 42, 9),
                                    datetime(2026, 11, 21, 1, 42, 10)]


def test_bytes_that_are_not_text_survive():
    assert masking.mask(masking.decode(b"a\xffb")).encode("utf-8", "surrogateescape") == b"a\xffb"


# ---- The progress line --------------------------------------------------------------------------


def bars(text: str) -> list[tuple[str, int]]:
    """Label and stars of every line drawn."""
    drawn = [line for line in text.rstrip("\n").split("\r") if line]
    assert all(len(line) == 11 + 68 for line in drawn)
    return [(line[:11], line.count("*")) for line in drawn]


def test_the_bar_appears_empty_and_takes_a_star_a_step():
    assert bars(progress.initialized().text) == [("initialize:", stars) for stars in range(5)]
    assert progress.Terminal().init().text == "initialize:" + "_" * 68 + "\r"


def test_a_finished_phase_runs_through_the_rest_of_its_steps():
    text = progress.initialized().collect(3).text
    assert bars(text) == bars(progress.initialized().text) + [("initialize:", 4)] * 64 + [
        ("collect   :", 4)]


def test_a_phase_without_a_step_gets_no_stars():
    text = progress.Terminal().init().collect(1).step().archive().cleanup().text
    assert bars(text)[-1] == ("cleanup   :", 52)


@pytest.mark.parametrize("items, new", [
    (1, [52]), (2, [26, 26]), (3, [17, 17, 18]), (52, [1] * 52), (104, [1] * 52),
    (5, [10, 10, 11, 10, 11]),
])
def test_the_collect_phase_spreads_its_stars_evenly(items: int, new: list[int]):
    run = progress.initialized().collect(items)
    before = len(bars(run.text))
    stars = [count for _, count in bars(run.step(items).text)][before - 1:]
    assert [after - earlier for earlier, after in zip(stars, stars[1:])] == new


def test_of_a_hundred_items_fifty_two_add_a_star_each():
    run = progress.initialized().collect(100)
    added = []
    for _ in range(100):
        before = run.text
        drawn = bars(run.step().text)
        added.append(drawn[-1][1] - bars(before)[-1][1] if run.text != before else None)
    assert added.count(1) == 52 and added.count(None) == 48


def test_a_collect_phase_without_items_draws_no_steps():
    empty = progress.initialized().collect(0)
    assert bars(empty.text)[-1] == ("collect   :", 4)
    assert empty.text == progress.initialized().collect(0).step(3).text


def test_the_phases_fill_the_bar():
    text = progress.complete(7).text
    drawn = bars(text)
    assert drawn[-1] == ("cleanup   :", 68)
    ends = {label: stars for label, stars in drawn}
    assert ends == {"initialize:": 4, "collect   :": 56, "archive   :": 66, "cleanup   :": 68}
    assert text.endswith("\r\n")


def test_a_message_starts_on_a_line_of_its_own():
    run = progress.Terminal().init()
    run.message("first").message("second").step().newline().newline()
    assert progress.screen(run.text) == ["initialize:" + "_" * 68, "first", "second",
                                         "initialize:*" + "_" * 67, ""]


# ---- Expected texts -----------------------------------------------------------------------------


def test_the_run_log_of_a_whole_run():
    log = expect.RunLog("-g demo").initialized("demo").tool("/opt/tool", code=3, errors="bad\n")
    log.data({"/opt/data/a": 5}, total=5).complete()
    assert log.text == '''\
ZEPA201-I:quendil [Ver. 01-02] started at <TIME>.
ZEPA204-I:quendil argument is "-g demo".
ZEPA202-I:Started initializing.
ZEPA205-I:Summary of parameters.
    Configuration file = /etc/opt/norvale/quendil/config/quendil_conf
    Output path of collected information = /var/opt/norvale/quendil/data/testhost_<STAMP>
    Max output data size = 8388608 KB
    Cleanup = ON
    Output file = testhost_<STAMP>
    TARGET = \n    PP_GROUP = demo
    PP_NAME = \nZEPA203-I:Ended initializing.
ZEPA202-I:Started executing.
ZEPA206-I:Information collecting tool start.
    Command  = "/opt/tool"
    Start time = <TIME>
    Timeout = 10
ZEPA207-I:Information collecting tool end.
    Return code = 3
    Status code = 768
    End time = <TIME>
ZEPA208-W:Information collecting tool error message.
bad
ZEPA203-I:Ended executing.
ZEPA202-I:Started collecting.
ZEPA209-I:It copied collecting data = /opt/data/a. size = 5 bytes.
ZEPA210-I:Total data size: 5 bytes.
ZEPA203-I:Ended collecting.
ZEPA202-I:Started making.
ZEPA212-I:Deleted data below "/var/opt/norvale/quendil/data/testhost_<STAMP>".
ZEPA203-I:Ended making.
ZEPA202-I:Started cleaning.
ZEPA203-I:Ended cleaning.
ZEPA214-I:Output file = /var/opt/norvale/quendil/data/testhost_<STAMP>.tar.gz. size = <SIZE> bytes.
ZEPA213-I:quendil ended at <TIME>. return code = 0.
'''


def test_the_report_of_a_failed_system_call():
    assert expect.system_error("open", 2, "/f", "IGMain") == (
        "ZEPA113-E:An error occurred during the following system call. system call name = open, "
        "error code = 2, msg = No such file or directory.\n"
        "ZEPA151-E:Additional information, path = /f.\n"
        "ZEPA114-E:source = IGMain, line no = <LINE>.\n")


def test_the_history_of_a_run():
    assert expect.history(None, 255, middle="ZEPA116-E:busy\n") == (
        "ZEPA301-I:quendil [Ver. 01-02] started at <TIME>.\nZEPA302-I:quendil argument is (null).\n"
        "ZEPA116-E:busy\nZEPA304-I:quendil exit code = 255.\nZEPA305-I:quendil ended at <TIME>.\n")


def test_arguments_with_a_blank_are_quoted():
    assert expect.argument_string(["-g", "a b", "c\td"]) == "-g 'a b' c\td"


def test_a_pattern_file_is_written_out():
    text = pattern_text.pattern(
        pattern_text.tool('/opt/t "a b"', redirect="%d%/o", timeout=5, signal=2, wait=1),
        pattern_text.data("/opt/data/*", "some data", file_type="binary"))
    assert text == '''\
FORMAT_VERSION = 1.0
PP_VRS = 1.0
PP_NAME = "demo"
PP_GROUP = "demo"
BLOCK {
    TOOL_BLOCK {
        COMMAND_LINE = "/opt/t \\"a b\\""
        REDIRECT_PATH = "%d%/o"
        TIMEOUT = 5
        TIMEOUT_SIGNAL = 2
        WAIT_TERMINATION = 1
    }
    DATA_BLOCK {
        DESCRIPTION = "some data"
        FILE_TYPE = binary
        PATH_NAME = "/opt/data/*"
    }
}
'''


# ---- The helper program -------------------------------------------------------------------------


@pytest.mark.parametrize("text", ["plain", "two words\n", 'quo"te', "", "100% #1 {=}", "é\\n\t"])
def test_every_text_passes_through_a_command_line(machine: Machine, text: str):
    assert masking.decode(play(machine, out(text)).raw_stdout) == text


def test_a_long_tool_becomes_a_file(machine: Machine):
    line = machine.tool(*[out(f"{number}\n") for number in range(60)])
    assert line == "/opt/tools/1"
    assert machine.exec([line]).stdout == "".join(f"{number}\n" for number in range(60))


def test_a_wrong_word_ends_the_helper(machine: Machine):
    for line in ("/opt/behave dance", "/opt/behave exit", "/opt/behave exit no",
                 "/opt/behave kill NOSUCH self", "/opt/behave out '\\y'"):
        done = machine.exec(line, check=False)
        assert done.status == 121 and done.stderr.startswith("behave: ")


def test_the_helper_makes_all_kinds_of_files(machine: Machine):
    machine.exec(machine.tool(
        behave.umask(0), behave.directory("/opt/d"), behave.fifo("/opt/d/fifo"),
        behave.socket("/opt/d/socket"), behave.link("nowhere", "/opt/d/link"),
        behave.write("/opt/d/file", "12"), behave.append("/opt/d/file", "3"),
        behave.mode("/opt/d/file", 0o604), behave.owner("/opt/d/file", 7, 8),
        behave.touch("/opt/d/file", 1000), behave.fill("/opt/d/full", 1000),
        behave.cd("/opt/d"), behave.rename("full", "moved"), behave.write("gone", ""),
        behave.remove("gone")))
    run = play(machine, out("ZEPA215-I:Output = /opt/d.\n"))
    assert run.directory.kinds() == {
        "": ("directory", "0777"), "fifo": ("fifo", "0666"), "file": ("file", "0604"),
        "link": ("link", "0777"), "moved": ("file", "0666"), "socket": ("socket", "0777")}
    assert run.directory["file"] == Member("file", "0604", 7, 8, 3, 1000)
    assert run.directory["moved"].size == 1000


def test_the_helper_floods(machine: Machine):
    run = play(machine, behave.flood(1, 200_001), behave.flood(2, 3))
    assert (len(run.raw_stdout), len(run.raw_stderr)) == (200_001, 3)


def test_the_helper_handles_signals(machine: Machine):
    words = machine.tool(ignore("HUP"), behave.block("USR2"), behave.note("TERM", "/opt/noted"),
                         ready("/opt/ready"), forever()).split()
    run = machine.start("exec", *words)
    run.wait_for("/opt/ready")
    for number in (signal.SIGHUP, signal.SIGUSR2, signal.SIGTERM):
        run.signal(number)
    run.wait_for(lambda: machine.read("/opt/noted") == "15\n")
    run.signal(signal.SIGKILL)
    assert run.finish().status == -signal.SIGKILL


def test_the_helper_dies_by_a_signal_that_it_was_told_to_ignore(machine: Machine):
    machine.allow_status(-signal.SIGTERM)
    run = play(machine, ignore("TERM"), behave.block("TERM"), behave.die("TERM"))
    assert run.status == -signal.SIGTERM


def test_the_helper_goes_back_to_a_default_action(machine: Machine):
    machine.allow_status(-signal.SIGUSR1)
    actions = [ignore("USR1"), behave.kill("USR1", "self"), out("alive"), behave.default("USR1"),
               behave.block("USR1"), behave.kill("USR1", "self"), out(" still"),
               behave.unblock("USR1"), out(" never")]
    run = play(machine, *actions)
    assert (run.status, run.stdout) == (-signal.SIGUSR1, "alive still")


def test_the_helper_stops_itself(machine: Machine):
    run = machine.start("exec", "/opt/behave", "stop")
    run.wait_for(lambda: [entry.state for entry in machine.processes()] == ["T"])
    run.signal(signal.SIGCONT)
    assert run.finish().status == 0


def test_the_helper_signals_others(machine: Machine):
    run = play(machine, behave.exiton("USR1", 10), child(behave.kill("USR1", "parent")), forever())
    assert run.status == 10
    run = play(machine, behave.exiton("TERM", 20), behave.kill("TERM", "group"), forever())
    assert run.status == 20
    words = machine.tool(behave.exiton("INT", 0), ready("/opt/pid"), forever()).split()
    waiting = machine.start("exec", *words)
    waiting.wait_for("/opt/pid")
    play(machine, behave.kill("INT", "/opt/pid"))
    assert waiting.finish().status == 0


def test_the_helper_leaves_a_child_that_holds_the_output_open(machine: Machine):
    run = play(machine, child(ignore("TERM"), behave.session(), report("/opt/child"), forever()),
               behave.wait_for("/opt/child"), report("/opt/parent"), out("done"))
    assert run.stdout == "done"
    parent, orphan = machine.report("/opt/parent"), machine.report("/opt/child")
    assert orphan["fd1"] == parent["fd1"]
    assert orphan["sid"] == orphan["pid"] and orphan["ppid"] == parent["pid"]
    assert [str(entry.pid) for entry in machine.processes()] == [orphan["pid"]]
    machine.allow_survivors()


def test_the_helper_leads_a_group_and_waits_for_children(machine: Machine):
    run = play(machine, child(behave.group(), report("/opt/child"), behave.nap(1), out("child ")),
               behave.wait(), behave.close(2), report("/opt/parent"), out("parent"))
    assert run.stdout == "child parent"
    state = machine.report("/opt/child")
    assert state["pgid"] == state["pid"] != state["sid"]
    assert "fd2" not in machine.report("/opt/parent")


def test_the_helper_does_something_only_once(machine: Machine):
    machine.replace("/bin/false", behave.once("/opt/once", exit(4)), exit(5))
    assert [machine.exec(["/bin/false"], check=False).status for _ in range(3)] == [4, 5, 5]


def test_the_helper_plays_tar_and_gzip(machine: Machine):
    machine.replace("/bin/tar", behave.tarwrite(100), exit(2))
    machine.replace("/bin/gzip", behave.gzwrite(50), behave.gzconsume())
    assert machine.exec(["/bin/tar", "cfh", "/opt/a.tar", "a"], check=False).status == 2
    assert machine.status("/opt/a.tar").st_size == 100
    machine.exec(["/bin/gzip", "/opt/a.tar"])
    assert machine.status("/opt/a.tar.gz").st_size == 50 and not machine.exists("/opt/a.tar")


def test_the_helper_runs_and_becomes_other_programs(machine: Machine):
    machine.replace("/bin/true", behave.run("/bin/echo"), out("then "), behave.become("/bin/echo"))
    assert machine.exec(["/bin/true", "a"]).stdout == "a\nthen a\n"
    machine.replace("/bin/false", behave.run("/opt/real/false"), exit("last"))
    assert machine.exec(["/bin/false"], check=False).status == 1


def test_the_helper_reports_its_arguments(machine: Machine):
    machine.replace("/bin/true", report("/opt/report"))
    machine.exec(["/bin/true", "a b", "c"])
    state = machine.report("/opt/report")
    assert [state[key] for key in state if key.startswith("arg")][2:] == ["/bin/true", "a b", "c"]
