"""Runs that SIGINT, SIGTERM or SIGHUP ends: what is stopped, what is reported and what stays."""

from __future__ import annotations

import os
import signal

import pytest
from support import behave, expect, pattern_text
from support.behave import child, exit, exiton, forever, ignore, ready
from support.collecting import begin, collect, started_log
from support.ending import BIN_DIRECTORY, HISTORY_LOCK
from support.machine import QUENDIL, Machine
from support.progress import complete, initialized

CLEANUP_OFF = "QUENDIL_CLEANUP=OFF\n"
EVERY = [signal.SIGINT, signal.SIGTERM, signal.SIGHUP]


def interrupted(number: int) -> str:
    """The message of an interrupted run."""
    return f"ZEPA136-E:quendil was interrupted. signal no = {number}.\n"


def cleaned_up(number: int, status: int, tool: str, timeout: int = 10, code: int = 0) -> str:
    """The log of a run that was interrupted during its only tool."""
    log = started_log().tool(tool, code, status, timeout).raw(interrupted(number))
    return log.cleaned(expect.OUTPUT_DIRECTORY).finished(255).text


#: Makes the standard input the controlling terminal and executes a program.
ON_TERMINAL = """\
import fcntl, os, sys, termios
fcntl.ioctl(0, termios.TIOCSCTTY, 0)
os.execv(sys.argv[1], sys.argv[1:])
"""


# ---- While a tool runs --------------------------------------------------------------------------


@pytest.mark.parametrize("timeout", [0, 10])
@pytest.mark.parametrize("number", EVERY)
def test_an_interruption_stops_the_tool_and_removes_the_output(machine: Machine, number: int,
                                                               timeout: int):
    tool = machine.tool(child(ready("/opt/child"), forever()), ready("/opt/ready"), forever())
    never = pattern_text.tool(machine.tool(behave.write("/opt/never", "")))
    run = begin(machine, pattern_text.tool(tool, timeout=timeout), never)
    run.wait_for("/opt/ready")
    run.wait_for("/opt/child")
    run.signal(number)
    ended = run.finish()
    assert ended.status == 255
    assert ended.stderr == interrupted(number) + expect.LOOK_AT_LOG
    assert ended.log == cleaned_up(number, 15, tool, timeout)
    assert ended.history == expect.history("-g demo", 255)
    assert machine.outputs() == [] and not machine.exists("/opt/never")


@pytest.mark.parametrize("actions, status", [([], 15), ([ignore("TERM")], 9)])
def test_a_tool_that_left_its_group_does_not_hold_up_an_interrupted_run(
        machine: Machine, actions: list[behave.Action], status: int):
    tool = machine.tool(behave.leave(), *actions, ready("/opt/ready"), forever())
    run = begin(machine, pattern_text.tool(tool))
    run.wait_for("/opt/ready")
    run.signal(signal.SIGINT)
    ended = run.finish()
    assert (ended.status, ended.log) == (255, cleaned_up(2, status, tool))


def test_the_bar_ends_before_the_message_of_an_interruption(machine: Machine):
    run = begin(machine, pattern_text.tool(machine.tool(ready("/opt/ready"), forever())))
    run.wait_for("/opt/ready")
    run.signal(signal.SIGINT)
    bar = initialized().collect(1).newline().cleanup()
    assert run.finish().stdout == bar.end().text


def test_without_cleanup_the_output_stays_as_it_was(machine: Machine):
    machine.conf(CLEANUP_OFF)
    machine.file("/opt/data", "12345")
    tool = machine.tool(behave.out("so far\n"), ready("/opt/ready"), forever())
    run = begin(machine, pattern_text.data("/opt/data"),
                pattern_text.tool(tool, redirect="%d%/part"))
    run.wait_for("/opt/ready")
    run.signal(signal.SIGINT)
    ended = run.finish()
    assert ended.status == 255
    assert ended.stderr == interrupted(2) + expect.LOOK_AT_LOG
    log = expect.RunLog("-g demo").initialized("demo", cleanup="OFF", limit=-1)
    log.data({"/opt/data": 5}, 5)
    assert ended.log == log.tool(tool, 0, 15).raw(interrupted(2)).finished(255).text
    assert ended.history == expect.history("-g demo", 255)
    assert ended.directory.kinds() == {
        "": ("directory", "0700"), "opt": ("directory", "0755"), "opt/data": ("link", "0777"),
        "part": ("file", "0600"), "quendil_index": ("file", "0600")}
    assert ended.directory.read("part") == b"so far\n"
    assert ended.index == (expect.index_header("-g demo")
                           + expect.index_record("opt/data"))


@pytest.mark.parametrize("actions, code, status", [
    ([exiton("TERM", 7)], 7, 0x700), ([exiton("TERM", 0)], 0, 0), ([ignore("TERM")], 0, 9),
    ([behave.stop()], 0, 9),
], ids=["exits", "exits with 0", "ignores it", "is stopped"])
def test_a_tool_is_asked_to_end_before_it_is_killed(machine: Machine, code: int, status: int,
                                                    actions: list[behave.Action]):
    tool = machine.tool(*actions[:-1], behave.child(ready("/opt/ready"), forever()),
                        actions[-1], forever())
    run = begin(machine, pattern_text.tool(tool))
    run.wait_for("/opt/ready")
    leader = run.wait_for(lambda: [entry for entry in machine.processes()
                                   if entry.ppid == run.pid and _settled(machine, entry, actions)])
    assert len(leader) == 1
    run.signal(signal.SIGINT)
    ended = run.finish()
    assert (ended.status, ended.log) == (255, cleaned_up(2, status, tool, code=code))


def _settled(machine: Machine, entry, actions: list[behave.Action]) -> bool:
    """Whether a process has stopped itself or set its action for SIGTERM, as `actions` has it."""
    status = machine.read(f"/proc/{entry.pid}/status")
    if actions == [behave.stop()]:
        return entry.state == "T"
    masks = dict(line.split(":\t") for line in status.splitlines() if line.startswith("Sig"))
    return bool((int(masks["SigIgn"], 16) | int(masks["SigCgt"], 16)) & 1 << signal.SIGTERM - 1)


@pytest.mark.parametrize("leader, timeout", [
    ([], 0), ([], 10), ([exiton("TERM", 0)], 10), ([ignore("TERM")], 0),
], ids=["dies, no limit", "dies", "exits", "ignores it"])
def test_the_whole_group_of_a_tool_is_stopped(machine: Machine, leader: list[behave.Action],
                                              timeout: int):
    grandchild = child(ignore("TERM"), ignore("INT"), ready("/opt/grandchild"), forever())
    tool = machine.tool(child(ignore("TERM"), grandchild, ready("/opt/child"), forever()),
                        *leader, ready("/opt/ready"), forever())
    run = begin(machine, pattern_text.tool(tool, timeout=timeout))
    for path in ("/opt/ready", "/opt/child", "/opt/grandchild"):
        run.wait_for(path)
    run.signal(signal.SIGINT)
    ended = run.finish()
    gone = {machine.read(f"/opt/{name}").strip() for name in ("ready", "child", "grandchild")}
    machine.wait_for(lambda: not gone & {str(entry.pid) for entry in machine.processes()},
                     what="the end of the tool's processes")
    assert ended.status == 255 and ended.stderr.count("ZEPA136-E") == 1


@pytest.mark.parametrize("first, second", [(2, 15), (15, 15), (1, 2), (15, 1)])
def test_a_second_signal_changes_nothing(machine: Machine, first: int, second: int):
    tool = machine.tool(behave.note("TERM", "/opt/noted"), ready("/opt/ready"), forever())
    run = begin(machine, pattern_text.tool(tool))
    run.wait_for("/opt/ready")
    run.signal(first)
    run.wait_for(lambda: machine.exists("/opt/noted") and machine.read("/opt/noted") == "15\n")
    run.signal(second)
    ended = run.finish()
    assert (ended.status, ended.log) == (255, cleaned_up(first, 9, tool))
    assert ended.stderr == interrupted(first) + expect.LOOK_AT_LOG
    assert machine.read("/opt/noted") == "15\n" and machine.outputs() == []


def test_a_terminals_interrupt_ends_the_run_which_stops_its_tool_with_sigterm(machine: Machine):
    tool = machine.tool(behave.note("INT", "/opt/noted"), ready("/opt/ready"), forever())
    run = begin(machine, pattern_text.tool(tool))
    run.wait_for("/opt/ready")
    run.signal(signal.SIGINT, to_group=True)
    ended = run.finish()
    # The tool has a group of its own: it gets our SIGTERM and not the terminal's SIGINT.
    assert (ended.status, ended.log) == (255, cleaned_up(2, 15, tool))
    assert machine.read("/opt/noted") == ""


def test_an_interruption_of_a_tool_that_overran_reports_no_second_time_out(machine: Machine):
    tool = machine.tool(behave.note("TERM", "/opt/noted"), forever())
    run = begin(machine, pattern_text.tool(tool, timeout=1, wait=600))
    run.wait_for(lambda: machine.exists("/opt/noted") and machine.read("/opt/noted") == "15\n")
    run.signal(signal.SIGTERM)
    ended = run.finish()
    log = started_log().timed_out_tool(tool, behave.PROGRAM, 0, 9, timeout=1)
    assert ended.log == log.raw(interrupted(15)).cleaned(expect.OUTPUT_DIRECTORY).finished(255).text
    assert ended.status == 255


@pytest.mark.parametrize("number, ignored", [
    (signal.SIGINT, EVERY), (signal.SIGTERM, EVERY),
    (signal.SIGHUP, [signal.SIGINT, signal.SIGTERM]),
])
def test_signals_that_the_caller_ignored_or_blocked_interrupt_all_the_same(
        machine: Machine, number: int, ignored: list[int]):
    tool = machine.tool(ready("/opt/ready"), forever())
    run = begin(machine, pattern_text.tool(tool), ignore=ignored, block=EVERY)
    run.wait_for("/opt/ready")
    run.signal(number)
    ended = run.finish()
    assert (ended.status, ended.log) == (255, cleaned_up(number, 15, tool))


@pytest.mark.parametrize("blocked", [[], EVERY], ids=["nohup", "blocked too"])
def test_a_run_under_nohup_outlives_its_terminal_and_so_do_its_tools(machine: Machine,
                                                                    blocked: list[int]):
    tool = machine.tool(behave.report("/opt/report"), ready("/opt/ready"),
                        behave.wait_for("/opt/go"))
    run = begin(machine, pattern_text.tool(tool), ignore=[signal.SIGHUP], block=blocked)
    run.wait_for("/opt/ready")
    run.signal(signal.SIGHUP, to_group=True)
    machine.sandbox.kill(int(machine.read("/opt/ready")), signal.SIGHUP)
    machine.file("/opt/go")
    ended = run.finish()
    assert (ended.status, ended.log) == (0, started_log().tool(tool).complete().text)
    state = machine.report("/opt/report")
    assert (state["ignored"], state["blocked"]) == ("1", "")


def test_a_closed_terminal_ends_a_run_and_what_it_has_started(machine: Machine):
    mine, theirs = os.openpty()
    tool = machine.tool(ready("/opt/ready"), forever())
    machine.pattern("10_demo", pattern_text.pattern(pattern_text.tool(tool)))
    machine.file("/opt/on_terminal.py", ON_TERMINAL)
    run = machine.start("/opt/on_terminal.py", QUENDIL, "-g", "demo", program="/usr/bin/python3",
                        stdin=theirs, stdout=theirs, stderr=theirs)
    run.wait_for("/opt/ready")
    os.close(theirs)
    os.close(mine)
    run.sent.add(signal.SIGHUP)
    ended = run.finish()
    assert (ended.status, ended.log) == (255, cleaned_up(signal.SIGHUP, 15, tool))
    assert machine.outputs() == []


# ---- While the archive is made ------------------------------------------------------------------


def making(number: int) -> str:
    """The log of a run without items that was interrupted before its archive existed."""
    log = started_log().started("making").raw(interrupted(number)).ended("making").cleaned()
    return log.finished(20, expect.output_directory()).text


@pytest.mark.parametrize("number, actions", [
    (2, [ready("/opt/ready"), forever()]), (15, [ready("/opt/ready"), forever()]),
    (15, [behave.tarwrite(20480), ready("/opt/ready"), forever()]),
    (15, [ignore("TERM"), behave.tarwrite(20480), ready("/opt/ready"), forever()]),
    (2, [behave.tarwrite(20480), exiton("TERM", 0), ready("/opt/ready"), forever()]),
], ids=["idle, SIGINT", "idle, SIGTERM", "half done", "ignores it", "says it is done"])
def test_an_interruption_while_packing_leaves_the_directory(machine: Machine, number: int,
                                                            actions: list[behave.Action]):
    machine.replace("/bin/tar", *actions)
    run = begin(machine, pattern_text.block())
    run.wait_for("/opt/ready")
    run.signal(number)
    ended = run.finish()
    assert ended.status == 20
    assert ended.stderr == interrupted(number)
    assert ended.log == making(number)
    assert ended.history == expect.history("-g demo", 20, expect.OUTPUT_DIRECTORY)
    assert machine.outputs() == [expect.OUTPUT_NAME]
    assert sorted(ended.directory.files()) == ["quendil.log", "quendil_hist.log", "quendil_index"]


def packed(number: int) -> str:
    """The log of a run without items that was interrupted when its archive existed."""
    log = started_log().started("making").deleted().raw(interrupted(number)).ended("making")
    return log.cleaned().finished(10, expect.archive_file()).text


@pytest.mark.parametrize("number, actions", [
    (2, [ready("/opt/ready"), forever()]), (15, [ready("/opt/ready"), forever()]),
    (15, [behave.gzwrite(100), ready("/opt/ready"), forever()]),
    (15, [ignore("TERM"), behave.gzwrite(100), ready("/opt/ready"), forever()]),
    (2, [behave.gzwrite(100), exiton("TERM", 0), ready("/opt/ready"), forever()]),
], ids=["idle, SIGINT", "idle, SIGTERM", "half done", "ignores it", "says it is done"])
def test_an_interruption_while_compressing_leaves_the_tar_file(machine: Machine, number: int,
                                                               actions: list[behave.Action]):
    machine.replace("/bin/gzip", *actions)
    run = begin(machine, pattern_text.block())
    run.wait_for("/opt/ready")
    run.signal(number)
    ended = run.finish()
    assert ended.status == 10
    assert ended.stderr == interrupted(number)
    assert ended.log == packed(number)
    assert ended.history == expect.history("-g demo", 10, expect.OUTPUT_DIRECTORY + ".tar")
    assert machine.outputs() == [expect.OUTPUT_NAME + ".tar"]
    assert sorted(ended.archive.files()) == ["quendil.log", "quendil_hist.log", "quendil_index"]


@pytest.mark.parametrize("program, status", [("/bin/tar", 20), ("/bin/gzip", 10)])
def test_a_terminals_interrupts_reach_the_archivers_too(machine: Machine, program: str,
                                                        status: int):
    machine.replace(program, behave.note("INT", "/opt/noted"), ready("/opt/ready"), forever())
    run = begin(machine, pattern_text.block())
    run.wait_for("/opt/ready")
    run.signal(signal.SIGINT, to_group=True)
    ended = run.finish()
    # They share the run's group; the SIGTERM that ends them is the program's own.
    assert (ended.status, ended.stderr) == (status, interrupted(2))
    assert ended.log == (making if status == 20 else packed)(2)
    assert machine.outputs() == [expect.OUTPUT_NAME + ("" if status == 20 else ".tar")]


def test_an_interruption_after_compressing_keeps_the_only_copy(machine: Machine):
    machine.replace("/bin/gzip", behave.run("/opt/real/gzip"), exiton("TERM", 0),
                    ready("/opt/ready"), forever())
    run = begin(machine, pattern_text.block())
    run.wait_for("/opt/ready")
    run.signal(signal.SIGTERM)
    ended = run.finish()
    assert machine.outputs() == [expect.OUTPUT_NAME + ".tar.gz"]
    # The reported result must exist.
    assert machine.exists(ended.result)


@pytest.mark.parametrize("end", [behave.die("INT"), exit(130)], ids=["killed", "130"])
def test_a_copy_of_a_log_that_an_interrupt_ended_interrupts_the_run(machine: Machine,
                                                                    end: behave.Action):
    machine.replace("/bin/cp", end)
    ended = collect(machine, pattern_text.block())
    failed = f"ZEPA133-W:An attempt to copy the logfile ({expect.RUN_LOG}) has failed.\n"
    assert ended.status == 20
    log = started_log().started("making").raw(failed + interrupted(2)).ended("making").cleaned()
    assert ended.log == log.finished(20, expect.output_directory()).text
    assert ended.stderr == failed + interrupted(2)
    assert sorted(ended.directory.files()) == ["quendil_index"]


@pytest.mark.parametrize("number", EVERY)
def test_an_interruption_while_logs_are_copied_leaves_the_directory(machine: Machine, number: int):
    machine.replace("/bin/cp", behave.run("/opt/real/cp"), ready("/opt/ready"),
                    behave.wait_for("/opt/go"))
    run = begin(machine, pattern_text.block())
    run.wait_for("/opt/ready")
    run.signal(number)  # to the program alone: the copy continues to its end
    machine.file("/opt/go")
    ended = run.finish()
    assert (ended.status, ended.log) == (20, making(number))
    assert sorted(ended.directory.files()) == ["quendil.log", "quendil_index"]


@pytest.mark.parametrize("number", EVERY)
def test_an_interruption_while_the_directory_is_removed_leaves_the_tar_file(machine: Machine,
                                                                           number: int):
    machine.replace("/bin/rm", ready("/opt/ready"), behave.wait_for("/opt/go"),
                    behave.run("/opt/real/rm"))
    run = begin(machine, pattern_text.block())
    run.wait_for("/opt/ready")
    run.signal(number)
    machine.file("/opt/go")
    ended = run.finish()
    assert (ended.status, ended.log) == (10, packed(number))
    assert machine.outputs() == [expect.OUTPUT_NAME + ".tar"]


def test_a_removal_that_an_interrupt_ended_interrupts_the_run(machine: Machine):
    machine.replace("/bin/rm", behave.run("/opt/real/rm"), behave.die("INT"))
    ended = collect(machine, pattern_text.block())
    assert ended.status == 10 and ended.stderr == interrupted(2)
    assert machine.outputs() == [expect.OUTPUT_NAME + ".tar"]


def test_a_run_after_an_interrupted_one_is_as_any_other(machine: Machine):
    tool = machine.tool(behave.once("/opt/once", ready("/opt/ready"), forever()))
    first = begin(machine, pattern_text.tool(tool))
    first.wait_for("/opt/ready")
    first.signal(signal.SIGINT)
    assert first.finish().status == 255
    second = machine.run("-g", "demo")
    assert (second.status, second.stderr) == (0, "")
    assert second.stdout == complete(1).text + expect.output_file()
    assert second.log == started_log().tool(tool).complete().text


# ---- What an interrupted run waits for ----------------------------------------------------------


def test_an_interrupted_run_does_not_wait_for_the_history_for_ever(machine: Machine):
    tool = machine.tool(ready("/opt/ready"), forever())
    run = begin(machine, pattern_text.tool(tool))
    run.wait_for("/opt/ready")
    lock = f"{BIN_DIRECTORY}/{HISTORY_LOCK}"
    with machine.locked(lock):
        run.signal(signal.SIGTERM)
        ended = run.finish()
    lost = expect.system_error("fcntl", 11, lock, "IGCmnLog", warning=True)
    assert (ended.status, ended.log) == (255, cleaned_up(15, 15, tool))
    assert ended.stderr == interrupted(15) + expect.LOOK_AT_LOG + 2 * lost
    assert ended.history == expect.history("-g demo", 255).partition("ZEPA304")[0]
    assert machine.outputs() == []
