"""`behave`, the helper program that plays tools and archivers."""

from __future__ import annotations

import signal

import pytest
from support import behave, masking
from support.behave import child, exit, forever, ignore, out, ready, report
from support.machine import Machine
from support.shell_program import play
from support.tree import Member


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


def test_the_helper_dies_by_a_signal_that_it_ignores(machine: Machine):
    machine.allow_status(-signal.SIGTERM)
    run = play(machine, ignore("TERM"), behave.block("TERM"), behave.die("TERM"))
    assert run.status == -signal.SIGTERM


def test_the_helper_restores_a_default_action(machine: Machine):
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
