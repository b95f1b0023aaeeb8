"""The run log and the history log: how they are kept, and what a run does that cannot write one."""

from __future__ import annotations

import os
import struct
import time
from collections.abc import Iterator

import pytest
from support import behave, expect, pattern_text
from support.behave import ready, wait_for
from support.collecting import GROUP, begin, collect, complete_output, started_log
from support.machine import DATA_DIRECTORY, LOG_DIRECTORY, Machine
from support.progress import Terminal, complete, initialized

RUN_LOG = f"{LOG_DIRECTORY}/quendil.log"
OLD_RUN_LOG = f"{LOG_DIRECTORY}/quendil_old.log"
HISTORY = f"{LOG_DIRECTORY}/quendil_hist.log"
OLD_HISTORY = f"{LOG_DIRECTORY}/quendil_hist_old.log"
HISTORY_LOCK = "/opt/norvale/quendil/bin/.quendil_hist.lck"

INVALID = "ZEPA101-E:The specified option(-x) is invalid.\n"
COMPLETE_HISTORY = expect.history("-g demo", 0, f"{expect.OUTPUT_DIRECTORY}.tar.gz")

NO_SPACE, TOO_LARGE = 28, 27

#: An access control list as the kernel keeps it: version 2, then tag, permissions and user of each
#: entry. Owner, user 1000, group, mask and others may read, write and search.
FULL_ACCESS_FOR_ALL = struct.pack("<I", 2) + b"".join(
    struct.pack("<HHI", tag, 7, 1000 if tag == 2 else 0xFFFFFFFF) for tag in (1, 2, 4, 16, 32))
PAGE = 4096


def warning(call: str, code: int, path: str) -> str:
    """The report of a history log that cannot be written."""
    return expect.system_error(call, code, path, "IGCmnLog", warning=True)


# ---- The run log --------------------------------------------------------------------------------


def test_every_run_keeps_the_log_of_the_one_before_it(machine: Machine):
    logs = [expect.RunLog(f"-x {number}").raw(INVALID).finished(255).text for number in range(4)]
    for number, log in enumerate(logs):
        run = machine.run("-x", str(number))
        assert run.log == log
        assert run.old_log == (logs[number - 1] if number else None)
    assert machine.list(LOG_DIRECTORY) == ["quendil.log", "quendil_hist.log", "quendil_old.log"]


@pytest.mark.parametrize("umask", [0o000, 0o022, 0o077])
def test_logs_belong_to_their_owner_alone(machine: Machine, umask: int):
    for _ in range(2):
        machine.run("-x", umask=umask)
    for name in ("quendil.log", "quendil_old.log", "quendil_hist.log"):
        assert machine.mode(f"{LOG_DIRECTORY}/{name}") == "0600"
    assert machine.mode(HISTORY_LOCK) == "0600"


def test_a_default_acl_gives_no_access_to_logs_and_index(machine: Machine):
    for directory in (LOG_DIRECTORY, DATA_DIRECTORY):
        os.setxattr(machine.path(directory), "system.posix_acl_default", FULL_ACCESS_FOR_ALL)
    machine.replace("/bin/tar", behave.exit(1))
    run = collect(machine, pattern_text.block())
    assert run.status == 20
    machine.run("-x")
    # With an ACL, the group's bits are the most that any of its entries gives.
    for name in ("quendil.log", "quendil_old.log", "quendil_hist.log"):
        assert machine.mode(f"{LOG_DIRECTORY}/{name}") == "0600"
    assert machine.mode(f"{run.result}/quendil_index") == "0600"


def test_an_old_log_that_cannot_be_removed_does_not_matter_without_a_current_one(machine: Machine):
    machine.file(f"{OLD_RUN_LOG}/file")
    assert machine.run("-x").log == expect.RunLog("-x").raw(INVALID).finished(255).text


def test_a_read_only_log_directory_ends_the_run(machine: Machine):
    machine.read_only(LOG_DIRECTORY)
    run = machine.run(*GROUP)
    lost = warning("fopen", 30, HISTORY)
    assert (run.status, run.stdout) == (255, "")
    assert run.stderr == 2 * lost + expect.system_error("fopen", 30, RUN_LOG) + 2 * lost
    assert machine.list(LOG_DIRECTORY) == []


# ---- A run log that cannot be written any more ---------------------------------------------------


def lost(call: str, code: int) -> str:
    """What the terminal shows when the run log breaks."""
    return expect.system_error(call, code, RUN_LOG)


def small_log_directory(machine: Machine, history: int, pages: int) -> str:
    """Makes a history log of so many bytes, and leaves so many free pages; returns the log's text."""
    text = "x" * (history - 1) + "\n"
    machine.file(HISTORY, text)
    machine.small_tmpfs(LOG_DIRECTORY, 20 * PAGE)
    machine.fill(LOG_DIRECTORY, pages * PAGE)
    return text


def test_a_log_whose_first_line_cannot_be_written_ends_the_run(machine: Machine):
    before = small_log_directory(machine, 1000, 0)
    run = machine.run(*GROUP)
    # No message refers to an empty log.
    assert (run.status, run.stdout, run.stderr) == (255, "", lost("fflush", NO_SPACE))
    assert run.log == ""
    assert run.history == before + expect.history("-g demo", 255)


#: The bytes of the log's first line, and of its second one without the arguments.
FIRST = len("ZEPA201-I:quendil [Ver. 01-02] started at 2026/11/15 09:53:18.\n")
SECOND = len('ZEPA204-I:quendil argument is "".\n')


@pytest.mark.parametrize("beyond, call", [(1, "fflush"), (2000, "vfprintf"), (-5, "fflush"),
                                          (-15, "fflush")])
def test_a_full_disk_before_the_first_phase_ends_the_run(machine: Machine, beyond: int, call: str):
    # The second line ends so many bytes beyond the page, or before its end.
    argument = "y" * (PAGE + beyond - FIRST - SECOND - len("-x "))
    before = small_log_directory(machine, 1000, 2)  # one of them goes to the history
    run = machine.run("-x", argument)
    whole = expect.RunLog(f"-x {argument}").text
    assert (run.status, run.stdout) == (255, "")
    assert run.stderr == lost(call, NO_SPACE) + expect.LOOK_AT_LOG
    assert run.log is not None and whole.startswith(run.log)
    assert run.history == before + expect.history(f"-x {argument}", 255)


def remove_outputs(machine: Machine) -> None:
    """Removes the results, so that another run may start in the same second."""
    for name in machine.list(DATA_DIRECTORY):
        machine.remove(f"{DATA_DIRECTORY}/{name}")


def phases(log: str) -> Iterator[tuple[int, Terminal]]:
    """Where each line of a log ends, with what the terminal shows while it is written.

    The log is that of a run with a tool and a data item.
    """
    end, seen = 0, ""
    for number, line in enumerate(log.splitlines(keepends=True)):
        end += len(line)
        if number < 3:
            yield end, Terminal()
        elif "Ended initializing" in line:
            yield end, initialized()
            seen = "executing"
        elif not seen:
            yield end, Terminal().init().step(2)
        elif "Started making" in line:
            return
        else:
            yield end, initialized().collect(2).step(0 if seen == "executing" else 1)
            seen = "collecting" if "Ended executing" in line else seen


@pytest.mark.parametrize("cleanup", ["ON", "OFF"])
def test_a_log_that_breaks_at_any_line_ends_the_run_at_once(machine: Machine, cleanup: str):
    machine.conf(f"QUENDIL_CLEANUP={cleanup}\n")
    machine.link(HISTORY, "/dev/null")  # its own lines must not reach the limit
    machine.file("/opt/data", "x")
    tool = machine.tool(behave.exit(0))
    items = [pattern_text.tool(tool), pattern_text.data("/opt/data")]
    whole = collect(machine, *items).raw["log"] or ""
    remove_outputs(machine)
    masked = expect.RunLog("-g demo").initialized("demo", cleanup=cleanup, limit=-1).tool(tool)
    masked.data({"/opt/data": 1}, 1)
    broken = list(phases(whole))
    assert len(broken) > 25
    for end, terminal in broken:
        streams = [os.pipe(), os.pipe()]  # the limit does not apply to pipes
        run = machine.run(*GROUP, limits={"fsize": end - 1}, stdout=streams[0][1],
                          stderr=streams[1][1])
        shown = []
        for reader, writer in streams:
            os.close(writer)
            with open(reader, "rb") as file:
                shown.append(file.read().decode())
        look = expect.LOOK_AT_LOG if end > FIRST else ""
        assert run.status == 255, end
        assert shown == [terminal.newline().text, lost("fflush", TOO_LARGE) + look], end
        assert len(run.raw["log"] or "") == end - 1
        assert masked.text.startswith(run.log or "?") or end <= FIRST, end
        made = terminal.text.startswith(initialized().collect(0).text)
        assert machine.outputs() == ([expect.OUTPUT_NAME] if made and cleanup == "OFF" else [])
        remove_outputs(machine)


#: What is written at the end of a run: text of the line, bytes of it that still fit (None: all but
#: the line feed), exit status, the archive phase's steps, and whether cleaning has begun or ended.
LATE = [
    ("ZEPA202-I:Started making.", None, 20, 0, 0),
    ("ZEPA202-I:Started making.", 3, 20, 0, 0),
    ("ZEPA212-I:Deleted", None, 10, 1, 0),
    ("ZEPA203-I:Ended making.", None, 0, 3, 0),
    ("ZEPA202-I:Started cleaning.", None, 0, 3, 1),
    ("ZEPA203-I:Ended cleaning.", None, 0, 3, 1),
    ("ZEPA214-I:Output file", 5, 0, 3, 2),
    ("ZEPA214-I:Output file", 30, 0, 3, 2),
    ("ZEPA214-I:Output file", None, 0, 3, 2),
    ("ZEPA213-I:quendil ended", 4, 0, 3, 2),
    ("ZEPA213-I:quendil ended", None, 0, 3, 2),
]
PADS = 12


def padding(extra: int) -> list[str]:
    """Paths of items that are not found, whose lines in the log grow by so many bytes in all."""
    each, rest = divmod(extra, PADS)
    assert 0 <= each < 240
    return ["/opt/none" + "x" * (each + (1 if number < rest else 0)) for number in range(PADS)]


@pytest.mark.parametrize("cleanup", ["ON", "OFF"])
@pytest.mark.parametrize("text, fits, status, steps, cleaning", LATE)
def test_a_log_that_breaks_while_the_result_is_made_loses_no_result(
        machine: Machine, text: str, fits: int | None, status: int, steps: int, cleaning: int,
        cleanup: str):
    machine.conf(f"QUENDIL_CLEANUP={cleanup}\n")
    first = collect(machine, *map(pattern_text.data, padding(0)))
    whole = first.raw["log"] or ""
    start = whole.index(text)
    end = whole.index("\n", start) if fits is None else start + fits
    for path in (first.result, RUN_LOG, HISTORY):
        machine.remove(path)
    before = small_log_directory(machine, 1000, 1)
    run = collect(machine, *map(pattern_text.data, padding(PAGE - end)))
    result = {0: expect.output_file(), 10: expect.archive_file(), 20: expect.output_directory()}
    terminal = initialized().collect(PADS).step(PADS).archive().step(steps)
    if cleaning == 1:
        terminal.cleanup()
    assert run.status == status
    assert run.stdout == (complete(PADS).text if cleaning == 2 else terminal.newline().text) + (
        result[status])
    assert run.stderr == lost("fflush", NO_SPACE)
    assert len(run.raw["log"] or "") == PAGE
    unbroken = expect.RunLog("-g demo").initialized("demo", cleanup=cleanup, limit=-1)
    for path in padding(PAGE - end):
        unbroken.data({}, 0, f"ZEPA129-W:A system information({path}) is not found.\n")
    assert unbroken.complete().text.startswith(run.log or "?")
    assert run.history == before + expect.history(
        "-g demo", status, f"{expect.OUTPUT_DIRECTORY}.tar.gz" if status == 0 else None)
    present = {0: [".tar.gz"], 10: [".tar"] if cleanup == "ON" else ["", ".tar"], 20: [""]}
    assert machine.outputs() == [expect.OUTPUT_NAME + suffix for suffix in present[status]]


def test_a_log_that_breaks_while_a_tool_overruns_leaves_no_tool_behind(machine: Machine):
    machine.link(HISTORY, "/dev/null")  # its own lines must not reach the limit
    tool = machine.tool(behave.forever())
    whole = collect(machine, pattern_text.tool(tool, redirect="%d%/out", timeout=1)).raw["log"]
    remove_outputs(machine)
    reader, writer = os.pipe()  # the limit does not apply to a pipe
    run = machine.run(*GROUP, limits={"fsize": (whole or "").index("ZEPA126-W") + 5},
                      stdout=writer, stderr=writer)
    os.close(writer)
    with open(reader, "rb") as file:
        shown = file.read().decode()
    assert run.status == 255 and machine.outputs() == []
    assert shown == initialized().collect(1).newline().text + (
        lost("fflush", TOO_LARGE) + expect.LOOK_AT_LOG)
    assert (run.raw["log"] or "").endswith("Timeout = 1\nZEPA1")
    assert machine.processes() == []


def test_a_log_that_breaks_in_the_middle_of_a_tools_errors_ends_the_run(machine: Machine):
    small_log_directory(machine, 1000, 4)
    tool = machine.tool(behave.flood(2, 2 * PAGE))
    run = collect(machine, pattern_text.tool(tool))
    assert (run.status, run.stdout) == (255, initialized().collect(1).newline().text)
    assert run.stderr in (lost("fflush", NO_SPACE) + expect.LOOK_AT_LOG,
                          lost("vfprintf", NO_SPACE) + expect.LOOK_AT_LOG)
    assert machine.outputs() == []


# ---- The history log ----------------------------------------------------------------------------


@pytest.mark.parametrize("size, rotated", [(1, False), (9932, False), (9933, True), (50_000, True)])
@pytest.mark.parametrize("old", [None, "old\n"])
def test_a_history_of_9933_bytes_is_rotated(machine: Machine, size: int, rotated: bool,
                                            old: str | None):
    present = "x" * (size - 1) + "\n"
    machine.file(HISTORY, present, 0o640)
    if old is not None:
        machine.file(OLD_HISTORY, old)
    run = machine.run("-x")
    added = expect.history("-x", 255)
    assert run.history == (added if rotated else present + added)
    assert run.old_history == (present if rotated else old)
    assert machine.mode(HISTORY) == ("0600" if rotated else "0640")


@pytest.mark.parametrize("arguments", [["-h"], ["-x"], []])
def test_every_run_rotates_a_full_history(machine: Machine, arguments: list[str]):
    machine.file(HISTORY, "x" * 9933)
    run = machine.run(*arguments)
    assert run.status == 255
    assert run.old_history == "x" * 9933
    assert run.history == expect.history(" ".join(arguments) or None, 255)


def test_a_history_grows_by_whole_lines_until_it_is_rotated(machine: Machine):
    one = expect.history("-x " + "y" * 2000, 255)
    seen = []
    for _ in range(7):
        run = machine.run("-x", "y" * 2000)
        seen.append(((run.history or "").count(one), (run.old_history or "").count(one)))
    assert seen == [(1, 0), (2, 0), (3, 0), (4, 0), (5, 0), (1, 5), (2, 5)]


def test_an_old_history_that_cannot_be_removed_lets_the_current_one_grow(machine: Machine):
    present = "x" * 20_000 + "\n"
    machine.file(HISTORY, present)
    machine.file(f"{OLD_HISTORY}/file")
    run = collect(machine, pattern_text.block(), merge=True)
    assert run.status == 0
    assert run.stdout == warning("remove", 39, OLD_HISTORY) + complete_output(0)
    assert run.history == present + COMPLETE_HISTORY


def test_a_history_that_cannot_be_renamed_grows(machine: Machine):
    present = "x" * 20_000 + "\n"
    machine.file(HISTORY, present)
    machine.pin(HISTORY)
    run = machine.run("-x")
    assert run.stderr == warning("rename", 16, HISTORY) + INVALID + expect.LOOK_AT_LOG
    assert run.history == present + expect.history("-x", 255)


def test_a_history_that_cannot_be_opened_is_reported_and_the_run_continues(machine: Machine):
    machine.directory(HISTORY)
    run = collect(machine, pattern_text.block(), merge=True)
    reported = warning("fopen", 21, HISTORY)
    copy = f"ZEPA142-W:An attempt to copy the logfile ({HISTORY}) has failed.\n"
    log = started_log().started("making").raw(copy).deleted(expect.OUTPUT_DIRECTORY).raw(reported)
    log.ended("making").cleaned()
    assert run.status == 0
    assert run.stdout == 2 * reported + complete_output(0) + 2 * reported
    assert run.log == log.finished(0, expect.output_file()).text


def test_a_history_lock_that_cannot_be_opened_is_reported_and_the_run_continues(machine: Machine):
    machine.directory(HISTORY_LOCK)
    run = collect(machine, pattern_text.block(), merge=True)
    reported = warning("open", 21, HISTORY_LOCK)
    copy = f"ZEPA142-W:An attempt to copy the logfile ({HISTORY}) has failed.\n"
    log = started_log().started("making").raw(copy).deleted(expect.OUTPUT_DIRECTORY).raw(reported)
    log.ended("making").cleaned()
    assert run.status == 0
    # The rotation, the start and the arguments; the exit code and the end.
    assert run.stdout == 3 * reported + complete_output(0) + 2 * reported
    assert run.log == log.finished(0, expect.output_file()).text
    assert run.history is None


def test_a_history_that_cannot_be_written_is_reported_and_the_run_continues(machine: Machine):
    machine.file(HISTORY, "x" * 9000)
    run = machine.run("-x", limits={"fsize": 9000})
    reported = warning("fflush", TOO_LARGE, HISTORY)
    assert run.status == 255
    assert run.stderr == 2 * reported + INVALID + expect.LOOK_AT_LOG + 2 * reported
    assert run.log == expect.RunLog("-x").raw(INVALID).finished(255).text
    assert run.history == "x" * 9000


def test_a_history_line_that_does_not_fit_leaves_nothing_of_itself(machine: Machine):
    machine.file(HISTORY, "x" * 8999 + "\n")
    machine.run("-x", limits={"fsize": 9010})
    run = machine.run("-x")
    assert run.history == "x" * 8999 + "\n" + expect.history("-x", 255)


def test_a_full_disk_is_reported_for_the_history_and_the_run_log(machine: Machine):
    before = small_log_directory(machine, PAGE, 0)
    run = machine.run(*GROUP)
    reported = warning("fflush", NO_SPACE, HISTORY)
    assert (run.status, run.stdout) == (255, "")
    assert run.stderr == 2 * reported + lost("fflush", NO_SPACE) + 2 * reported
    assert (run.log, run.history) == ("", before)


def test_a_run_waits_for_the_history_before_its_first_line(machine: Machine):
    with machine.locked(machine.file(HISTORY_LOCK)):
        run = machine.start("-x")
        run.wait_for(lambda: machine.locks(HISTORY_LOCK) == (1, 1))
        assert machine.read_log("quendil_hist.log") is None
    assert run.finish().history == expect.history("-x", 255)


def test_a_run_waits_for_the_history_with_every_line(machine: Machine):
    run = begin(machine, pattern_text.tool(machine.tool(ready("/opt/ready"), wait_for("/opt/go"))))
    run.wait_for("/opt/ready")
    before = machine.read_log("quendil_hist.log")
    with machine.locked(HISTORY_LOCK):
        machine.file("/opt/go")
        run.wait_for(lambda: "ZEPA212-I" in (machine.read_log("quendil.log") or ""))
        assert "Ended making" not in (machine.read_log("quendil.log") or "")
        assert machine.read_log("quendil_hist.log") == before
    done = run.finish()
    assert done.status == 0
    assert done.history == COMPLETE_HISTORY


def switches(machine: Machine, pid: int) -> int:
    """The voluntary context switches of a process."""
    lines = machine.read(f"/proc/{pid}/status").splitlines()
    count, = (int(line.split()[1]) for line in lines if line.startswith("voluntary"))
    return count


def test_a_run_tries_to_lock_the_history_every_tenth_of_a_second_without_limit(machine: Machine):
    run = begin(machine, pattern_text.tool(machine.tool(ready("/opt/ready"), wait_for("/opt/go"))))
    run.wait_for("/opt/ready")
    before = machine.read_log("quendil_hist.log")
    with machine.locked(HISTORY_LOCK):
        machine.file("/opt/go")
        run.wait_for(lambda: machine.outputs() == [f"{expect.OUTPUT_NAME}.tar.gz"])
        run.wait_for(lambda: not [entry for entry in machine.processes() if entry.pid != run.pid])
        began, slept = time.monotonic(), switches(machine, run.pid)
        tries = run.wait_for(lambda: max(0, switches(machine, run.pid) - slept - 9))
        # At most one switch in each tenth of a second, however late this test reads the number.
        assert tries + 9 <= 10 * (time.monotonic() - began) + 2
        assert machine.locks(HISTORY_LOCK) == (1, 0) and not run.ended
        assert machine.read_log("quendil_hist.log") == before
    done = run.finish()
    assert (done.status, done.history) == (0, COMPLETE_HISTORY)


def test_a_lock_of_the_history_is_held_for_one_line_only(machine: Machine):
    run = begin(machine, pattern_text.tool(machine.tool(ready("/opt/ready"), wait_for("/opt/go"))))
    run.wait_for("/opt/ready")
    assert machine.locks(HISTORY_LOCK) == (0, 0)
    machine.file("/opt/go")
    assert run.finish().status == 0


def test_a_tool_inherits_no_descriptor_of_a_log(machine: Machine):
    run = collect(machine, pattern_text.tool(machine.tool(behave.report("/opt/report"))))
    state = machine.report("/opt/report")
    assert run.status == 0
    assert [key for key in state if key.startswith("fd")] == ["fd0", "fd1", "fd2"]


# ---- The last warning ---------------------------------------------------------------------------


def test_a_run_that_reported_its_failure_repeats_no_warning(machine: Machine):
    machine.pattern("10_demo", "FORMAT_VERSION = 1.0\n")
    run = machine.run(*GROUP)
    assert "ZEPA137-W" in (run.log or "") and "ZEPA137-W" not in run.stderr
    assert run.stderr.count("ZEPA") == 2
