"""Runs on a machine, and the checks after each test: they find what a test leaves behind."""

from __future__ import annotations

import signal

import pytest
from support import behave
from support.behave import child, daemon, err, exit, forever, ignore, out, ready, report
from support.machine import QUENDIL, Installation, Machine, environment_path
from support.sandbox import SandboxError, SandboxServer
from support.shell_program import play


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


def test_a_run_inherits_what_the_test_sets(machine: Machine):
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


def test_a_wrapper_is_put_in_front(sandbox_server: SandboxServer, installation: Installation):
    wrapper = ("/usr/bin/env", "WRAPPED=yes")
    machine = Machine(sandbox_server,
                      Installation(installation.stage, installation.behave, wrapper))
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


def test_two_runs_can_be_active_at_once(machine: Machine):
    first = machine.start("exec", *machine.tool(behave.wait_for("/opt/go"), out("first\n")).split())
    second = play(machine, behave.write("/opt/go", ""), out("second\n"))
    assert (second.stdout, first.finish().stdout) == ("second\n", "first\n")


def test_waiting_fails_when_the_run_ends_first(machine: Machine):
    run = machine.start("exec", "/opt/behave", "out", "last")
    with pytest.raises(AssertionError, match="the run ended without: /opt/never"):
        run.wait_for("/opt/never")
    run.finish()


def test_a_run_that_does_not_end_fails_with_what_is_known(sandbox_server: SandboxServer,
                                                          installation: Installation):
    machine = Machine(sandbox_server, installation)
    words = machine.tool(out("so far"), ready("/opt/ready"), forever()).split()
    run = machine.start("exec", *words)
    run.wait_for("/opt/ready")
    with pytest.raises(AssertionError, match="(?s)did not end within.*so far.*behave"):
        run.finish(seconds=0.01)
    assert not machine.root.exists()
    machine.destroy()


def test_a_program_that_cannot_be_started_is_an_error(machine: Machine):
    with pytest.raises(SandboxError, match="No such file"):
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
