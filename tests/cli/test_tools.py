"""Tools: how they are started, what they inherit, how they end and how they are stopped."""

from __future__ import annotations

import operator
import os
import signal
import stat
import struct
import time

import pytest
from support import behave, expect, pattern_text
from support.behave import child, daemon, err, exit, exiton, forever, ignore, out, ready, report
from support.collecting import begin, collect, complete_output, started_log
from support.machine import DATA_DIRECTORY, LOG_DIRECTORY, Machine
from support.tree import Member

STDERR_LOG = f"{LOG_DIRECTORY}/quendil_stderr.log"


def missing(path: str) -> str:
    """The message of a child whose program does not exist."""
    return (f"ZEPA125-W:An information collecting tool({path}) that collects system information"
            " does not exist.\n")


def not_run(code: int) -> str:
    """The message of a child whose program exists but cannot be executed."""
    return expect.system_error("execv", code, source="IGCmnProcess", warning=True)


# ---- How a tool ends ----------------------------------------------------------------------------


def test_a_tool_is_announced_and_its_end_reported(machine: Machine):
    tool = machine.tool(behave.write("/opt/ran", "yes"))
    run = collect(machine, pattern_text.tool(tool, timeout=30))
    assert run.status == 0
    assert run.stdout == complete_output(1)
    assert run.stderr == ""
    assert run.log == started_log().tool(tool, timeout=30).complete().text
    assert run.history == expect.history("-g demo", 0, expect.OUTPUT_DIRECTORY + ".tar.gz")
    assert machine.read("/opt/ran") == "yes"
    run.check_times()


@pytest.mark.parametrize("action, code, status", [
    (exit(0), 0, 0), (exit(1), 1, 0x100), (exit(10), 10, 0xA00), (exit(254), 254, 0xFE00),
    (exit(255), 255, 0xFF00), (behave.die("TERM"), 0, 15), (behave.die("KILL"), 0, 9),
    (behave.die("INT"), 0, 2),
])
def test_a_run_continues_after_every_end_of_a_tool(machine: Machine, action: behave.Action,
                                                   code: int, status: int):
    tool, after = machine.tool(out(""), action), machine.tool(behave.write("/opt/after", ""))
    run = collect(machine, pattern_text.tool(tool), pattern_text.tool(after))
    assert run.status == 0 and run.stderr == ""
    assert run.log == started_log().tool(tool, code, status).tool(after).complete().text
    assert machine.exists("/opt/after")


def test_error_output_follows_the_end_of_its_tool_and_of_no_other(machine: Machine):
    loud = machine.tool(out("shown\n"), err("first\nsecond, unfinished"), exit(3))
    quiet = machine.tool(exit(0))
    run = collect(machine, pattern_text.tool(loud), pattern_text.tool(quiet))
    assert run.log == started_log().tool(loud, 3, errors="first\nsecond, unfinished\n").tool(
        quiet).complete().text
    assert "shown\n" in run.stdout and "first" not in run.stdout + run.stderr


def test_a_megabyte_of_error_output_reaches_the_log_whole(machine: Machine):
    tool = machine.tool(behave.flood(2, 1_000_000))
    keep = machine.tool(behave.flood(1, 1_000_000))
    run = collect(machine, pattern_text.tool(tool), pattern_text.tool(keep, redirect="/opt/same"))
    flooded = machine.read("/opt/same")
    assert len(flooded) == 1_000_000
    assert run.log == started_log().tool(tool, errors=flooded).tool(keep).complete().text


def test_many_tools_run_one_after_the_other(machine: Machine):
    tools = [machine.tool(behave.write(f"/opt/ran/{number}", ""),
                          behave.append("/opt/order", f"{number}\n")) for number in range(30)]
    machine.directory("/opt/ran")
    run = collect(machine, *map(pattern_text.tool, tools))
    assert machine.read("/opt/order") == "".join(f"{number}\n" for number in range(30))
    assert run.stdout == complete_output(30)
    # A wait that does not end with the tool takes at least 100 ms for each of them. On a busy
    # machine one of them may take as long for another reason, but not every one.
    ran = [machine.status(f"/opt/ran/{number}").st_mtime for number in range(30)]
    assert min(map(operator.sub, ran[1:], ran)) < 0.09 * machine.patience


# ---- Programs that cannot be run ----------------------------------------------------------------


def test_a_missing_program_is_reported_and_the_run_continues(machine: Machine):
    after = machine.tool(out(""))
    run = collect(machine, pattern_text.tool("/opt/none -a"),
                  pattern_text.tool("/opt/none", redirect="%d%/none.txt"),
                  pattern_text.tool(after))
    assert run.status == 0 and run.stderr == ""
    log = started_log()
    log.tool("/opt/none -a", 255, 0, within=missing("/opt/none"))
    log.tool("/opt/none", 255, 0, within=missing("/opt/none"))
    assert run.log == log.tool(after).complete().text
    assert "none.txt" not in run.archive


@pytest.mark.parametrize("redirect", [None, "/opt/out"])
@pytest.mark.parametrize("content, mode, code", [
    ("#!/bin/sh\n", 0o644, 13), ("neither script nor program", 0o755, 8),
    (None, 0o755, 13),
])
def test_a_file_that_is_no_program_is_reported(machine: Machine, content: str | None, mode: int,
                                               code: int, redirect: str | None):
    path = "/opt/program"
    machine.file(path, content, mode) if content is not None else machine.directory(path, mode)
    run = collect(machine, pattern_text.tool(path, redirect=redirect))
    assert run.status == 0 and run.stderr == ""
    assert run.log == started_log().tool(path, 255, 0, within=not_run(code)).complete().text
    assert not machine.exists("/opt/out")


@pytest.mark.parametrize("text, as_ours", [
    ("ZEPA999 said the tool\nand more\n", True), ("ZEPA1", True), ("ZEPA", False), ("", False),
    ("zepa125-W:\n", False), (" ZEPA125-W:\n", False), ("first\nZEPA125-W:\n", False),
])
def test_a_tool_that_exits_255_is_judged_by_its_first_line(machine: Machine, text: str,
                                                           as_ours: bool):
    tool = machine.tool(out(text), exit(255))
    run = collect(machine, pattern_text.tool(tool, redirect="/opt/out"))
    if as_ours:
        shown = text if text.endswith("\n") else text + "\n"
        expected = started_log().tool(tool, 255, 0, within=shown)
    else:
        expected = started_log().tool(tool, 255)
    assert run.log == expected.complete().text
    assert machine.exists("/opt/out") != as_ours


def test_the_error_output_is_judged_when_the_output_is_not_redirected(machine: Machine):
    tool = machine.tool(out("plain\n"), err("ZEPA1 from the tool\n"), exit(255))
    run = collect(machine, pattern_text.tool(tool))
    expected = started_log().tool(tool, 255, 0, within="ZEPA1 from the tool\n")
    assert run.log == expected.complete().text


def test_only_255_makes_a_tool_be_judged_by_its_output(machine: Machine):
    tool = machine.tool(out("ZEPA125-W:x\n"), exit(254))
    run = collect(machine, pattern_text.tool(tool, redirect="%d%/out"))
    assert run.log == started_log().tool(tool, 254).complete().text
    assert run.archive.read("out") == b"ZEPA125-W:x\n"


# ---- What a tool inherits -----------------------------------------------------------------------


def test_a_tool_starts_with_a_clean_process_state(machine: Machine):
    run = begin(machine, pattern_text.tool(machine.tool(report("/opt/report"))), umask=0o027,
                ignore=[signal.SIGINT, signal.SIGTERM, signal.SIGPIPE, signal.SIGXFSZ],
                block=[signal.SIGINT, signal.SIGTERM], cwd="/opt")
    assert run.finish().status == 0
    state = machine.report("/opt/report")
    assert [key for key in state if key.startswith("fd")] == ["fd0", "fd1", "fd2"]
    assert (state["blocked"], state["ignored"], state["caught"]) == ("", "", "")
    assert state["pgid"] == state["pid"] and state["sid"] == state["ppid"] == str(run.pid)
    assert (state["umask"], state["cwd"]) == ("0066", "/opt")
    assert state["fd0"] == "r /dev/null" and state["fd2"] == f"w {STDERR_LOG}"


def test_output_and_error_output_share_a_redirected_file(machine: Machine):
    tool = machine.tool(out("1\n"), err("2\n"), out("3\n"), report("/opt/report"))
    run = collect(machine, pattern_text.tool(tool, redirect="/opt/out"))
    state = machine.report("/opt/report")
    assert state["fd1"] == state["fd2"] == "w /opt/out"
    assert [key for key in state if key.startswith("fd")] == ["fd0", "fd1", "fd2"]
    assert machine.read("/opt/out") == "1\n2\n3\n"
    assert run.log == started_log().tool(tool).complete().text
    assert run.stdout == complete_output(1)


def test_a_tool_reads_the_runs_own_input(machine: Machine):
    tool = machine.tool(behave.drain("/opt/count"))
    assert collect(machine, pattern_text.tool(tool), stdin=b"12345").status == 0
    assert machine.read("/opt/count") == "5\n"


def test_no_shell_reads_a_command_line(machine: Machine):
    machine.file("/opt/my tool", behave.script(report("/opt/report")), 0o755)
    line = '"/opt/my tool" $HOME "a b"\t`id` "" x"y z"  ;true * > /opt/f'
    run = collect(machine, pattern_text.tool(line))
    assert run.log == started_log().tool(line).complete().text
    state = machine.report("/opt/report")
    count = sum(key.startswith("arg") for key in state)
    assert [state[f"arg{number}"] for number in range(3, count)] == [
        "$HOME", "a b", "`id`", "", 'x"y z"', ";true", "*", ">", "/opt/f"]
    assert not machine.exists("/opt/f")


def test_special_strings_of_a_command_line_are_expanded(machine: Machine):
    tool = f"{behave.PROGRAM} write %d%/made %HOST%-100%%"
    run = collect(machine, pattern_text.tool(tool))
    shown = f"{behave.PROGRAM} write {expect.OUTPUT_DIRECTORY}/made testhost-100%"
    assert run.log == started_log().tool(shown).complete().text
    assert run.archive.read("made") == b"testhost-100%"


# ---- Where its output goes ----------------------------------------------------------------------


@pytest.mark.parametrize("redirect, place", [
    ("%d%/df.txt", "df.txt"), ("%d%/deep/below/%HOST%", "deep/below/testhost"),
    ("%d%/a/../b", "b"), ("%d%//double", "double"),
])
def test_redirected_output_becomes_part_of_the_archive(machine: Machine, redirect: str, place: str):
    tool = machine.tool(out("the output\n"))
    run = collect(machine, pattern_text.tool(tool, redirect=redirect))
    assert run.log == started_log().tool(tool).complete().text
    assert run.archive.read(place) == b"the output\n"
    assert run.archive[place][:4] == Member("file", "0600", 0, 0, 0, 0)[:4]
    if "deep" in place:
        assert run.archive["deep/below"].mode == "0777"


def test_a_relative_output_starts_from_the_working_directory(machine: Machine):
    machine.directory("/opt/place")
    tool = machine.tool(out("x"))
    assert collect(machine, pattern_text.tool(tool, redirect="%HOST%/out"),
                   cwd="/opt/place").status == 0
    assert machine.read("/opt/place/testhost/out") == "x"


@pytest.mark.parametrize("kind", ["file", "link", "dangling link", "link to a device"])
def test_what_exists_in_the_place_of_the_output_is_replaced(machine: Machine, kind: str):
    machine.file("/opt/victim", "untouched")
    {"file": lambda: machine.file("/opt/out", "a longer text than the new one", 0o666),
     "link": lambda: machine.link("/opt/out", "/opt/victim"),
     "dangling link": lambda: machine.link("/opt/out", "/opt/none"),
     "link to a device": lambda: machine.link("/opt/out", "/dev/zero")}[kind]()
    collect(machine, pattern_text.tool(machine.tool(out("new")), redirect="/opt/out"))
    assert machine.read("/opt/out") == "new" and machine.mode("/opt/out") == "0600"
    assert machine.read("/opt/victim") == "untouched" and not machine.exists("/opt/none")


@pytest.mark.parametrize("kind, code", [
    (stat.S_IFIFO, 17), (stat.S_IFSOCK, 17), (stat.S_IFCHR, 17), (stat.S_IFBLK, 17),
    (stat.S_IFDIR, 21),
])
def test_what_is_no_file_is_neither_removed_nor_written_to(machine: Machine, kind: int, code: int):
    if kind == stat.S_IFDIR:
        machine.directory("/opt/out")
    else:
        os.mknod(machine.path("/opt/out"), kind | 0o600, os.makedev(1, 3))
    tool = machine.tool(behave.write("/opt/ran", ""))
    run = collect(machine, pattern_text.tool(tool, redirect="/opt/out"))
    within = expect.system_error("open", code, "/opt/out", "IGCmnProcess", warning=True)
    assert run.log == started_log().tool(tool, 255, 0, within=within).complete().text
    assert (run.status, run.stderr) == (0, "")
    assert stat.S_IFMT(machine.status("/opt/out").st_mode) == kind
    assert not machine.exists("/opt/ran")


@pytest.mark.parametrize("redirect, mode", [
    ("/opt/made/below/out", "0755"), ("%d%/made/below/out", "0777"), ("%d%/../made/out", "0755"),
    ("%d%x/made/out", "0755"),
])
def test_only_directories_inside_of_the_output_are_open_to_all(machine: Machine, redirect: str,
                                                              mode: str):
    machine.replace("/bin/tar", exit(1))
    run = collect(machine, pattern_text.tool(machine.tool(out("x")), redirect=redirect))
    assert run.status == 20
    output, = [name for name in machine.list(DATA_DIRECTORY)
               if machine.exists(f"{DATA_DIRECTORY}/{name}/quendil_index")]
    path = os.path.normpath(redirect.replace("%d%", f"{DATA_DIRECTORY}/{output}"))
    made = path[:path.index("/made/")] + "/made"
    assert machine.mode(made) == mode and machine.mode(path) == "0600"
    if "below" in path:
        assert machine.mode(f"{made}/below") == mode


def test_a_default_acl_gives_no_access_to_what_a_tool_writes(machine: Machine):
    machine.directory("/opt/common")
    entries = [(0x01, 7, -1), (0x02, 7, 1000), (0x04, 7, -1), (0x10, 7, -1), (0x20, 7, -1)]
    acl = struct.pack("<I", 2) + b"".join(struct.pack("<HHi", *entry) for entry in entries)
    for path in ("/opt/common", LOG_DIRECTORY):
        os.setxattr(machine.path(path), "system.posix_acl_default", acl)
    run = collect(machine, pattern_text.tool(machine.tool(out("x")), redirect="/opt/common/out"),
                  pattern_text.tool(machine.tool(err("x"))))
    assert run.status == 0
    # With an ACL, the group's bits are the most that any of its entries gives.
    assert machine.mode("/opt/common/out") == machine.mode(STDERR_LOG) == "0600"


def test_the_error_file_is_made_anew_for_every_tool(machine: Machine):
    machine.file("/opt/victim", "untouched")
    machine.link(STDERR_LOG, "/opt/victim")
    tool = machine.tool(err("bad\n"))
    run = collect(machine, pattern_text.tool(tool))
    assert run.log == started_log().tool(tool, errors="bad\n").complete().text
    assert machine.read("/opt/victim") == "untouched"
    assert machine.mode(STDERR_LOG) == "0600"


def test_output_that_cannot_be_opened_keeps_its_tool_from_running(machine: Machine):
    machine.file("/opt/full/file")
    tool, after = machine.tool(behave.write("/opt/ran", "")), machine.tool(out("seen\n"))
    run = collect(machine, pattern_text.tool(tool, redirect="/opt/full"), pattern_text.tool(after))
    within = expect.system_error("open", 21, "/opt/full", "IGCmnProcess", warning=True)
    assert run.log == started_log().tool(tool, 255, 0, within=within).tool(after).complete().text
    assert run.status == 0 and run.stderr == "" and "seen\n" in run.stdout
    assert not machine.exists("/opt/ran") and machine.list("/opt/full") == ["file"]


def test_directories_of_the_output_that_cannot_be_made_keep_the_tool_from_running(machine: Machine):
    machine.file("/opt/file")
    tool = machine.tool(behave.write("/opt/ran", ""))
    run = collect(machine, pattern_text.tool(tool, redirect="/opt/file/below/out"))
    within = expect.system_error("mkdir", 17, "/opt/file", "IGCmnFile", warning=True)
    assert run.log == started_log().tool(tool, 255, 0, within=within).complete().text
    assert not machine.exists("/opt/ran")


@pytest.mark.parametrize("name, call, subject, unit", [
    ("new", "open", "/opt/fixed/new", "IGCmnProcess"),
    ("there", "open", "/opt/fixed/there", "IGCmnProcess"),
    ("below/new", "mkdir", "/opt/fixed/below", "IGCmnFile"),
])
def test_a_read_only_place_takes_no_output_and_keeps_what_it_has(machine: Machine, name: str,
                                                                call: str, subject: str,
                                                                unit: str):
    machine.file("/opt/fixed/there", "kept")
    machine.read_only("/opt/fixed")
    tool = machine.tool(behave.write("/opt/ran", ""))
    run = collect(machine, pattern_text.tool(tool, redirect=f"/opt/fixed/{name}"))
    within = expect.system_error(call, 30, subject, unit, warning=True)
    assert run.log == started_log().tool(tool, 255, 0, within=within).complete().text
    assert run.status == 0 and not machine.exists("/opt/ran")
    assert machine.list("/opt/fixed") == ["there"] and machine.read("/opt/fixed/there") == "kept"


def test_error_output_that_cannot_be_opened_keeps_every_program_from_running(machine: Machine):
    machine.file(f"{STDERR_LOG}/file")
    tool = machine.tool(behave.write("/opt/ran", ""))
    run = collect(machine, pattern_text.tool(tool))
    within = expect.system_error("open", 21, STDERR_LOG, "IGCmnProcess", warning=True)
    not_packed = "ZEPA132-W:An error occurred while an archiver was being executed.\n"
    log = started_log().tool(tool, 255, 0, within=within).started("making").raw(within + not_packed)
    assert run.log == log.ended("making").cleaned().finished(20, expect.output_directory()).text
    assert run.status == 20 and run.stderr == not_packed
    assert not machine.exists("/opt/ran")


def test_output_can_be_discarded(machine: Machine):
    tool = machine.tool(out("x"), err("y"), report("/opt/report"))
    run = collect(machine, pattern_text.tool(tool, redirect="/dev/null"))
    assert run.log == started_log().tool(tool).complete().text
    state = machine.report("/opt/report")
    assert state["fd1"] == state["fd2"] == "w /dev/null"


@pytest.mark.parametrize("redirect", ["/dev/null", "//dev/null", "/dev/./null", "/dev/x/../null"])
def test_the_null_device_is_never_removed(machine: Machine, redirect: str):
    machine.mount("-t", "tmpfs", "-o", "mode=0755,dev", "sandbox", "/dev")
    machine.exec(["/usr/bin/mknod", "-m", "666", "/dev/null", "c", "1", "3"])
    run = collect(machine, pattern_text.tool("/opt/none", redirect=redirect))
    assert run.log == started_log().tool("/opt/none", 255).complete().text
    assert machine.exec("test -c /dev/null", check=False).status == 0


# ---- Tools that overrun -------------------------------------------------------------------------


def test_a_tool_without_a_limit_is_waited_for(machine: Machine):
    tools = [machine.tool(behave.nap(150), behave.append("/opt/ran", "x")) for _ in range(3)]
    limits = (0, -1, 36000)
    run = collect(machine, *(pattern_text.tool(tool, timeout=limit, signal=9, wait=0)
                             for tool, limit in zip(tools, limits)))
    log = started_log()
    for tool, limit in zip(tools, limits):
        log.tool(tool, timeout=limit)
    assert run.log == log.complete().text
    assert machine.read("/opt/ran") == "xxx"


@pytest.mark.parametrize("actions, settings, code, status, seconds", [
    ([], {}, 0, 15, 1), ([], {"signal": 15}, 0, 15, 1), ([], {"signal": 2}, 0, 2, 1),
    ([], {"signal": 9}, 0, 9, 1), ([exiton("USR1", 7)], {"signal": 10}, 7, 0x700, 1),
    ([], {"signal": 0, "wait": 0}, 0, 9, 1), ([], {"signal": 0, "wait": 1}, 0, 9, 2),
    ([ignore("TERM")], {"wait": 0}, 0, 9, 1), ([ignore("TERM")], {"wait": 1}, 0, 9, 2),
    ([behave.block("TERM"), exiton("HUP", 0)], {"signal": 1, "wait": 1}, 0, 0, 1),
])
def test_a_tool_that_overruns_is_stopped(machine: Machine, actions: list[behave.Action],
                                         settings: dict[str, int], code: int, status: int,
                                         seconds: int):
    tool, after = machine.tool(*actions, forever()), machine.tool(out(""))
    began = time.monotonic()
    run = collect(machine, pattern_text.tool(tool, timeout=1, **settings), pattern_text.tool(after))
    took = time.monotonic() - began
    expected = started_log().timed_out_tool(tool, behave.PROGRAM, code, status, timeout=1)
    assert run.log == expected.tool(after).complete().text
    assert run.status == 0 and run.stderr == ""
    assert took >= seconds


@pytest.mark.parametrize("leader", [[], [exiton("TERM", 0)], [ignore("TERM")]])
def test_everything_that_an_overrunning_tool_started_is_stopped(machine: Machine,
                                                                leader: list[behave.Action]):
    grandchild = child(ignore("TERM"), ready("/opt/grandchild"), forever())
    tool = machine.tool(*leader, child(ignore("TERM"), grandchild, ready("/opt/child"), forever()),
                        forever())
    run = begin(machine, pattern_text.tool(tool, redirect="/opt/out", timeout=1, wait=1))
    run.wait_for("/opt/grandchild")
    assert run.finish().status == 0
    gone = [machine.read(f"/opt/{name}").strip() for name in ("child", "grandchild")]
    assert [entry for entry in machine.processes() if str(entry.pid) in gone] == []


def test_what_an_overrunning_tool_leaves_has_the_rest_of_its_time(machine: Machine):
    other = child(behave.note("TERM", "/opt/noted"), ready("/opt/other"),
                  behave.wait_for("/opt/go"), behave.write("/opt/saved", "x"))
    tool = machine.tool(other, behave.wait_for("/opt/other"), ready("/opt/ready"), forever())
    run = begin(machine, pattern_text.tool(tool, timeout=1, wait=600))
    run.wait_for(lambda: machine.exists("/opt/noted") and machine.read("/opt/noted") == "15\n")
    leader = int(machine.read("/opt/ready"))
    run.wait_for(lambda: {entry.pid: entry.state for entry in machine.processes()}[leader] == "Z")
    machine.file("/opt/go")
    ended = run.finish()  # long before its time is over, because nothing of it is left
    expected = started_log().timed_out_tool(tool, behave.PROGRAM, 0, 15, timeout=1)
    assert ended.log == expected.complete().text
    assert machine.read("/opt/saved") == "x"


def test_a_tool_that_left_its_group_is_stopped_all_the_same(machine: Machine):
    tool = machine.tool(behave.leave(), forever())
    run = collect(machine, pattern_text.tool(tool, timeout=1))
    expected = started_log().timed_out_tool(tool, behave.PROGRAM, 0, 15, timeout=1)
    assert run.log == expected.complete().text and run.status == 0


def test_a_stopped_tool_is_killed_when_its_time_is_over(machine: Machine):
    tool = machine.tool(behave.stop())
    run = collect(machine, pattern_text.tool(tool, timeout=1, wait=0))
    expected = started_log().timed_out_tool(tool, behave.PROGRAM, 0, 9, timeout=1)
    assert run.log == expected.complete().text


@pytest.mark.parametrize("number", [65, 999, 2147483647])
def test_a_time_out_signal_that_does_not_exist_is_reported(machine: Machine, number: int):
    tool, after = machine.tool(forever()), machine.tool(out(""))
    run = collect(machine, pattern_text.tool(tool, timeout=1, signal=number, wait=1),
                  pattern_text.tool(after))
    assert run.status == 0
    within = ("ZEPA126-W:A timeout occurred while information collecting tool"
              f"({behave.PROGRAM}) was being executed.\n"
              + expect.system_error("kill", 22, source="IGCmnProcess", warning=True)
              + "ZEPA148-W:An attempt to wait or stop a process (<PID>) has failed.\n")
    expected = started_log().tool(tool, 0, 9, timeout=1, within=within)
    assert run.log == expected.tool(after).complete().text
    assert run.stderr == ("ZEPA149-W:There were one or more information collection tools which"
                          " could not be waited or be stopped.\n" + expect.LOOK_AT_LOG)


NOT_STOPPED = ("ZEPA149-W:There were one or more information collection tools which could not be"
               " waited or be stopped.\n")


def test_tools_that_could_not_be_stopped_are_reported_after_the_result(machine: Machine):
    tool = machine.tool(forever())
    run = collect(machine, pattern_text.tool(tool, timeout=1, signal=999), merge=True)
    assert run.stdout == complete_output(1) + NOT_STOPPED + expect.LOOK_AT_LOG


def test_tools_that_could_not_be_stopped_are_reported_after_a_failure_too(machine: Machine):
    overrun, tool = machine.tool(forever()), machine.tool(ready("/opt/ready"), forever())
    run = begin(machine, pattern_text.tool(overrun, timeout=1, signal=999), pattern_text.tool(tool))
    run.wait_for("/opt/ready")
    run.signal(signal.SIGINT)
    ended = run.finish()
    assert ended.status == 255
    assert ended.stderr == ("ZEPA136-E:quendil was interrupted. signal no = 2.\n"
                            + expect.LOOK_AT_LOG + NOT_STOPPED + expect.LOOK_AT_LOG)


@pytest.mark.parametrize("timeout", [0, 10])
def test_signals_that_mean_nothing_to_the_program_end_no_wait(machine: Machine, timeout: int):
    tool = machine.tool(ready("/opt/ready"), behave.wait_for("/opt/go"), exit(3))
    run = begin(machine, pattern_text.tool(tool, timeout=timeout))
    run.wait_for("/opt/ready")
    for number in (signal.SIGWINCH, signal.SIGCHLD, signal.SIGURG, signal.SIGPIPE, signal.SIGTSTP,
                   signal.SIGCONT, signal.SIGSTOP):
        machine.sandbox.kill(run.pid, number)
    machine.wait_for(lambda: any(entry.pid == run.pid and entry.state == "T"
                                 for entry in machine.processes()))
    machine.sandbox.kill(run.pid, signal.SIGCONT)
    machine.file("/opt/go")
    ended = run.finish()
    assert ended.status == 0
    assert ended.log == started_log().tool(tool, 3, timeout=timeout).complete().text


def test_output_of_a_tool_that_overran_is_kept(machine: Machine):
    tool = machine.tool(out("so far\n"), forever())
    run = collect(machine, pattern_text.tool(tool, redirect="%d%/part", timeout=1))
    assert run.archive.read("part") == b"so far\n"


def test_error_output_of_a_tool_that_overran_is_shown(machine: Machine):
    tool = machine.tool(err("stuck\n"), forever())
    run = collect(machine, pattern_text.tool(tool, timeout=1))
    warning = ("ZEPA126-W:A timeout occurred while information collecting tool"
               f"({behave.PROGRAM}) was being executed.\n")
    expected = started_log().tool(tool, 0, 15, 1, within=warning, errors="stuck\n")
    assert run.log == expected.complete().text


def test_a_daemon_that_a_tool_started_lives_on_and_holds_up_nothing(machine: Machine):
    machine.allow_survivors()
    tool = machine.tool(child(daemon(), report("/opt/daemon"), forever()), behave.wait(),
                        behave.wait_for("/opt/daemon"))
    run = collect(machine, pattern_text.tool(tool, redirect="/opt/out"))
    assert run.log == started_log().tool(tool).complete().text
    pid = int(machine.report("/opt/daemon")["pid"])
    assert [entry.pid for entry in machine.processes()] == [pid]
    assert os.path.exists(machine.path(f"/proc/{pid}"))
