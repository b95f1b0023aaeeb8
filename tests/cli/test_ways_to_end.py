"""Every way a run can end. Each test compares all outputs, logs and files of a run at once."""

from __future__ import annotations

import fcntl
import os
import signal
import threading
from dataclasses import replace

import pytest
from support import behave, expect, pattern_text
from support.behave import exit, forever, ready, wait_for
from support.collecting import GROUP, begin, collect
from support.ending import (
    BIN_DIRECTORY, BOTH_LOCKS, HISTORY_LOCK, RUN_LOCK, Ending, refused,
)
from support.expect import OUTPUT_NAME
from support.machine import CONFIGURATION, DATA_DIRECTORY, LOG_DIRECTORY, PATTERN_DIRECTORY, Machine
from support.progress import Terminal, complete, initialized
from support.run import ActiveRun

LOGS = ["quendil.log", "quendil_hist.log"]
LOGS_AFTER_A_TOOL = [*LOGS, "quendil_stderr.log"]
RUN_LOG, OLD_RUN_LOG = (f"{LOG_DIRECTORY}/quendil{suffix}.log" for suffix in ("", "_old"))
HISTORY = f"{LOG_DIRECTORY}/quendil_hist.log"
INDEX = f"{OUTPUT_NAME}/quendil_index"
COPIED_LOGS = [f"{OUTPUT_NAME}/{name}" for name in LOGS]

USAGE = ("quendil [Ver. 01-02]\n\nusage:\tquendil\t{ -g pp_group | -t target } ...\n"
         "\t\t[ -c configfile ] [ -d directory ] [ -o output_file ]\n\tquendil\t-h\n\n")
NOT_SUPER_USER = "ZEPA117-E:This cannot be executed because the user is not a super user.\n"
RUNNING = "ZEPA116-E:Another quendil is already running. Please try later.\n"
NOTHING = ("ZEPA121-E:There is not system information to be collected under the specified"
           " options.\n")
ALL_FAILED = ("ZEPA145-W:There is not system information because an error occurred during reading"
              " of all collection pattern definition files.\n")
NOT_PACKED = "ZEPA132-W:An error occurred while an archiver was being executed.\n"
NOT_COMPRESSED = ("ZEPA135-W:An error occurred while a compression was being executed.\n"
                  "ZEPA306-I:The archive file has not been compressed. Use a following file as"
                  " is.\n")
SIZE_EXCEEDED = "ZEPA131-W:The size of the output data exceeded a limit size.\n"

both_cleanups = pytest.mark.parametrize("cleanup", ["ON", "OFF"])


# ---- Before the run log is opened ---------------------------------------------------------------


def early(stdout: str, stderr: str, history: str | None, locks: dict[str, int], *,
          log: str | None = None, old_log: str | None = None,
          logs: tuple[str, ...] = ("quendil_hist.log",)) -> Ending:
    """The ending of a run that had no log of its own yet; there may be logs of earlier runs."""
    return Ending(255, stdout, stderr, log, old_log, history, None, list(logs), [], locks)


def test_help_is_shown(machine: Machine):
    run = machine.run("-h")
    assert Ending.of(machine, run) == early(USAGE, "", expect.history("-h", 255), {HISTORY_LOCK: 0})


def test_help_beside_the_logs_of_an_earlier_run(machine: Machine):
    machine.file(RUN_LOG, "before\n")
    run = machine.run("-x", "-H")
    assert Ending.of(machine, run) == early(USAGE, "", expect.history("-x -H", 255),
                                          {HISTORY_LOCK: 0}, log="before\n", logs=tuple(LOGS))


def test_a_user_who_is_not_root_is_refused(machine: Machine):
    run = machine.run(*GROUP, user=1000)
    assert Ending.of(machine, run) == early("", NOT_SUPER_USER, None, {}, logs=())


def test_another_run_is_active(machine: Machine):
    with machine.locked(machine.file(f"{BIN_DIRECTORY}/{RUN_LOCK}")):
        run = machine.run(*GROUP)
    assert Ending.of(machine, run) == early(
        "", RUNNING, expect.history("-g demo", 255, middle=RUNNING), BOTH_LOCKS)


def test_the_lock_file_cannot_be_opened(machine: Machine):
    path = f"{BIN_DIRECTORY}/{RUN_LOCK}"
    machine.link(path, path)
    run = machine.run(*GROUP)
    call = expect.system_error("open", 40)
    place = "ZEPA114-E:source = IGMain, line no = <LINE>.\n"
    assert Ending.of(machine, run) == early(
        "", expect.system_error("open", 40, path),
        expect.history("-g demo", 255, middle=call + place),
        {HISTORY_LOCK: 0, RUN_LOCK: len(path)})


def test_the_old_run_log_cannot_be_removed(machine: Machine):
    machine.file(RUN_LOG, "present\n")
    machine.file(f"{OLD_RUN_LOG}/file")
    run = machine.run(*GROUP)
    assert Ending.of(machine, run) == early(
        "", expect.system_error("remove", 39, OLD_RUN_LOG), expect.history("-g demo", 255),
        BOTH_LOCKS, log="present\n", logs=(*LOGS, "quendil_old.log"))


def test_the_run_log_cannot_be_renamed(machine: Machine):
    machine.file(RUN_LOG, "present\n")
    machine.file(OLD_RUN_LOG, "old\n")
    machine.pin(RUN_LOG)
    run = machine.run(*GROUP)
    assert Ending.of(machine, run) == early(
        "", expect.system_error("rename", 16, RUN_LOG), expect.history("-g demo", 255), BOTH_LOCKS,
        log="present\n", logs=tuple(LOGS))


def test_the_run_log_cannot_be_opened(machine: Machine):
    machine.link(RUN_LOG, "/opt/none/log")
    run = machine.run(*GROUP)
    assert Ending.of(machine, run) == early(
        "", expect.system_error("fopen", 2, RUN_LOG), expect.history("-g demo", 255), BOTH_LOCKS,
        logs=tuple(LOGS))


def test_the_run_log_cannot_be_written(machine: Machine):
    machine.file(HISTORY, "x\n")
    machine.small_tmpfs(LOG_DIRECTORY, 4 * 4096)
    machine.fill(LOG_DIRECTORY)
    run = machine.run(*GROUP)
    assert Ending.of(machine, run) == early(
        "", expect.system_error("fflush", 28, RUN_LOG), "x\n" + expect.history("-g demo", 255),
        BOTH_LOCKS, log="", logs=("filler", *LOGS))


def test_no_log_directory(machine: Machine):
    machine.remove(LOG_DIRECTORY)
    run = machine.run(*GROUP)
    assert not machine.exists(LOG_DIRECTORY)
    machine.directory(LOG_DIRECTORY)  # to be listed
    lost = expect.system_error("fopen", 2, HISTORY, "IGCmnLog", warning=True)
    assert Ending.of(machine, run) == early(
        "", 2 * lost + expect.system_error("fopen", 2, RUN_LOG) + 2 * lost, None, BOTH_LOCKS,
        logs=())


# ---- Refused while initializing -----------------------------------------------------------------


@pytest.mark.parametrize("arguments, reported", [
    (["-x"], "ZEPA101-E:The specified option(-x) is invalid.\n"),
    (["-g"], "ZEPA102-E:The specified option(-g) requires an argument.\n"),
    ([*GROUP, "-d", "/none"], "ZEPA104-E:The specified directory(/none) does not exist.\n"),
    ([*GROUP, "-d", "/opt/ro"],
     "ZEPA105-E:You do not have write permissions for the specified directory(/opt/ro).\n"),
    ([*GROUP, "-c", "/none"],
     "ZEPA106-E:The specified configuration file(/none) does not exist.\n"),
    (["-d", "/", "-d", "/"],
     "ZEPA107-W:The specified option(-d) cannot be specified twice or more.\n"
     "ZEPA115-E:A required option is not specified.\n"),
    (["-t", "x" * 257],
     "ZEPA108-E:The specified argument of the option(-t) is too long.\n"),
    ([*GROUP, "-o", "/opt"], "ZEPA109-E:The specified file(/opt) already exists.\n"),
    ([*GROUP, "-c", "/opt/secret"],
     "ZEPA112-E:You do not have access permissions for the specified file(/opt/secret).\n"),
    (["-o", "/opt/x"], "ZEPA115-E:A required option is not specified.\n"),
    ([*GROUP, "-o", "x"],
     "ZEPA144-E:The specified output file(x) must be absolute path name.\n"),
], ids=lambda value: value[:7] if isinstance(value, str) else " ".join(value)[:20])
def test_a_wrong_option(machine: Machine, arguments: list[str], reported: str):
    machine.directory("/opt/ro", 0o500)
    machine.file("/opt/secret", mode=0o300)
    assert Ending.of(machine, machine.run(*arguments)) == refused(arguments, reported)


def test_no_arguments(machine: Machine):
    reported = "ZEPA115-E:A required option is not specified.\n"
    expected = refused([], reported, log=expect.RunLog())
    assert Ending.of(machine, machine.run()) == replace(expected, history=expect.history(None, 255))


@pytest.mark.parametrize("text, reported, steps", [
    (None, f"ZEPA118-E:A configuration file({CONFIGURATION}) does not exist.\n", 1),
    ("#\n\n",
     "ZEPA119-E:A syntax error occurred.\n"
     f"ZEPA120-E:filename = {CONFIGURATION}, line no = 2.\n", 1),
    ("QUENDIL_DATA_DIRECTORY=/none\n",
     "ZEPA104-E:The specified directory(/none) does not exist.\n", 2),
    ("QUENDIL_DATA_DIRECTORY=/opt/ro\n",
     "ZEPA105-E:You do not have write permissions for the specified directory(/opt/ro).\n", 2),
], ids=["missing", "syntax", "no data directory", "read-only data directory"])
def test_a_wrong_configuration(machine: Machine, text: str | None, reported: str, steps: int):
    machine.directory("/opt/ro", 0o500)
    machine.conf(text or "")
    if text is None:
        machine.remove(CONFIGURATION)
    assert Ending.of(machine, machine.run(*GROUP)) == refused(GROUP, reported, steps)


def test_a_directory_in_place_of_the_configuration_file(machine: Machine):
    machine.remove(CONFIGURATION)
    machine.directory(CONFIGURATION)
    assert Ending.of(machine, machine.run(*GROUP)) == refused(
        GROUP, f"ZEPA106-E:The specified configuration file({CONFIGURATION}) does not exist.\n", 1)


def test_a_configuration_file_that_cannot_be_opened(machine: Machine):
    machine.remove(CONFIGURATION)
    machine.link(CONFIGURATION, CONFIGURATION)
    assert Ending.of(machine, machine.run(*GROUP)) == refused(
        GROUP, "ZEPA112-E:You do not have access permissions for the specified file"
        f"({CONFIGURATION}).\n", 1)


def refused_patterns(reported: str, quiet: str = "") -> Ending:
    """The ending of a run without anything to collect; `quiet` is reported in the run log only."""
    log = expect.RunLog("-g demo").parameters(["demo"]).raw(quiet)
    return refused(GROUP, reported, 3, log)


def test_no_pattern_file(machine: Machine):
    machine.no_patterns()
    assert Ending.of(machine, machine.run(*GROUP)) == refused_patterns(ALL_FAILED)


def test_no_pattern_directory(machine: Machine):
    machine.remove(PATTERN_DIRECTORY)
    shown = expect.system_error("opendir", 2, PATTERN_DIRECTORY)
    place = "ZEPA114-E:source = IGCmnDir, line no = <LINE>.\n"
    expected = refused_patterns("", shown + place)
    assert Ending.of(machine, machine.run(*GROUP)) == replace(
        expected, stderr=shown + expect.LOOK_AT_LOG)


def test_every_pattern_file_is_wrong(machine: Machine):
    machine.pattern("10_demo", "FORMAT_VERSION = 1.0\n")
    machine.pattern("20_demo", "nothing\n")
    paths = [f"{PATTERN_DIRECTORY}/{number}_demo" for number in (10, 20)]
    first = f"ZEPA137-W:Internal error occurred.\nZEPA138-W:filename = {paths[0]}, line no = 2.\n"
    second = f"ZEPA139-W:Invalid format number({paths[1]}).\n"
    log = expect.RunLog("-g demo").parameters(["demo"]).raw(first)
    assert Ending.of(machine, machine.run(*GROUP)) == refused(GROUP, second + ALL_FAILED, 3, log)


def test_nothing_is_selected(machine: Machine):
    machine.pattern("10_demo", pattern_text.pattern(pattern_text.block(), groups=["other"]))
    assert Ending.of(machine, machine.run(*GROUP)) == refused_patterns(NOTHING)


# ---- Later --------------------------------------------------------------------------------------


def late(status: int, stdout: Terminal, stderr: str, log: expect.RunLog, result: str,
         history: str | None, data: list[str], logs: list[str]) -> Ending:
    """The ending of a run that completed its initializing phase.

    `result` is its last line on the terminal, `history` the path that the history names.
    """
    return Ending(
        status, stdout.text + result, stderr + (expect.LOOK_AT_LOG if status == 255 else ""),
        log.finished(status, result).text, None, expect.history("-g demo", status, history), None,
        logs, data, BOTH_LOCKS)


def started(machine: Machine, cleanup: str, limit: int = -1) -> expect.RunLog:
    """Configures the cleanup and the size limit; the log of a run up to its first item."""
    machine.conf(f"QUENDIL_CLEANUP={cleanup}\nQUENDIL_MAX_OUTPUT_DATA_SIZE={limit}\n")
    return expect.RunLog("-g demo").initialized("demo", cleanup=cleanup, limit=limit)


def cleaned(terminal: Terminal, log: expect.RunLog, cleanup: str, interrupted: bool = False,
            deleted: bool = True) -> None:
    """What follows a failure: with cleanup on, the cleaning phase; else the end of the bar.

    An interrupted run takes no further step of the bar. `deleted`: there was something to delete.
    """
    terminal.newline()
    if cleanup == "ON":
        terminal.cleanup().step(0 if interrupted else 1).end()
        log.cleaned(expect.OUTPUT_DIRECTORY if deleted else None)


def interruption(number: int = 2) -> str:
    return f"ZEPA136-E:quendil was interrupted. signal no = {number}.\n"


def interrupt(run: ActiveRun, path: str, number: int = 2) -> None:
    """Interrupts a run when a file exists."""
    run.wait_for(path)
    run.signal(number)


@both_cleanups
def test_interrupted_while_initializing(machine: Machine, cleanup: str):
    log = expect.RunLog("-g demo").parameters(["demo"], cleanup=cleanup, limit=-1)
    started(machine, cleanup)
    reader, writer = os.pipe()
    fcntl.fcntl(writer, fcntl.F_SETPIPE_SZ, 4096)
    shown = len(Terminal().init().text)
    os.write(writer, b"x" * (4096 - shown))
    # The first bar fits; the second, after the options, waits for a reader at its first byte.
    run = begin(machine, pattern_text.tool(machine.tool(exit(0))), stdout=writer)
    os.close(writer)
    run.wait_for(lambda: _waits(machine, run.pid) and _full(reader))
    run.signal(signal.SIGINT)
    run.wait_for(lambda: _ignores(machine, run.pid, signal.SIGINT))
    taken: list[bytes] = []
    drain = threading.Thread(target=_drain, args=(reader, taken))
    drain.start()
    ended = run.finish()
    drain.join()
    text = b"".join(taken)[4096 - shown:].decode()
    terminal = Terminal().init().step()
    log.text = log.text.replace("ZEPA205-I", interruption() + "ZEPA205-I", 1)
    log.ended("initializing")
    cleaned(terminal, log, cleanup, interrupted=True, deleted=False)
    # The signal ended the write of one byte that waited, and no later write repeats that byte.
    terminal.text = terminal.text[:shown] + terminal.text[shown + 1:]
    seen = replace(Ending.of(machine, ended), stdout=text)
    assert seen == late(255, terminal, interruption(), log, "", None, [], LOGS)


def _waits(machine: Machine, pid: int) -> bool:
    return any(entry.pid == pid and entry.state == "S" for entry in machine.processes())


def _full(reader: int) -> bool:
    return int.from_bytes(fcntl.ioctl(reader, 0x541B, b"\0" * 4), "little") == 4096  # FIONREAD


def _ignores(machine: Machine, pid: int, number: int) -> bool:
    lines = machine.read(f"/proc/{pid}/status").splitlines()
    ignored, = (line.split()[1] for line in lines if line.startswith("SigIgn"))
    return bool(int(ignored, 16) & 1 << number - 1)


def _drain(reader: int, taken: list[bytes]) -> None:
    with open(reader, "rb") as pipe:
        taken.append(pipe.read())


@both_cleanups
def test_interrupted_while_executing(machine: Machine, cleanup: str):
    log = started(machine, cleanup)
    tool = machine.tool(ready("/opt/ready"), forever())
    run = begin(machine, pattern_text.tool(tool), pattern_text.data("/opt/behave"))
    interrupt(run, "/opt/ready")
    terminal = initialized().collect(2)
    log.tool(tool, 0, 15).raw(interruption())
    cleaned(terminal, log, cleanup, interrupted=True)
    left = [] if cleanup == "ON" else [OUTPUT_NAME, INDEX]
    assert Ending.of(machine, run.finish()) == late(
        255, terminal, interruption(), log, "", None, left, LOGS_AFTER_A_TOOL)


@both_cleanups
def test_interrupted_while_collecting(machine: Machine, cleanup: str):
    log = started(machine, cleanup)
    machine.directory("/opt/many")
    many = str(machine.path("/opt/many"))
    for number in range(15000):  # so many that the signal arrives before the last one
        os.mknod(f"{many}/{number}")
    run = begin(machine, pattern_text.data("/opt/many"), pattern_text.data("/opt/behave"))
    run.wait_for(lambda: "ZEPA209-I" in (machine.read_log("quendil.log") or ""))
    run.signal(signal.SIGTERM)
    ended = run.finish()
    count = (ended.log or "").count("ZEPA209-I")
    assert 1 <= count < 15001
    names = os.listdir(many)[:count - 1]
    log.started("collecting")
    for path in ("/opt/many", *(f"/opt/many/{name}" for name in names)):
        log.raw(f"ZEPA209-I:It copied collecting data = {path}. size = 0 bytes.\n")
    log.raw(interruption(15) + "ZEPA210-I:Total data size: 0 bytes.\n").ended("collecting")
    terminal = initialized().collect(2)
    cleaned(terminal, log, cleanup, interrupted=True)
    left = [OUTPUT_NAME, INDEX, f"{OUTPUT_NAME}/opt", f"{OUTPUT_NAME}/opt/many",
            *(f"{OUTPUT_NAME}/opt/many/{name}" for name in names)]
    if cleanup == "OFF":  # an item that was not finished has no record
        assert ended.index == expect.index_header("-g demo")
    assert Ending.of(machine, ended) == late(
        255, terminal, interruption(15), log, "", None, sorted(left) if cleanup == "OFF" else [],
        LOGS)


@both_cleanups
def test_interrupted_while_the_logs_are_copied(machine: Machine, cleanup: str):
    log = started(machine, cleanup)
    machine.replace("/bin/cp", behave.run("/opt/real/cp"), ready("/opt/ready"), wait_for("/opt/go"))
    run = begin(machine, pattern_text.block())
    interrupt(run, "/opt/ready")
    machine.file("/opt/go")
    log.started("making").raw(interruption()).ended("making")
    terminal = initialized().collect(0).archive().newline()
    if cleanup == "ON":
        terminal.cleanup().end()
        log.cleaned()
    assert Ending.of(machine, run.finish()) == late(
        20, terminal, interruption(), log, expect.output_directory(), expect.OUTPUT_DIRECTORY,
        [OUTPUT_NAME, COPIED_LOGS[0], INDEX], LOGS)


@both_cleanups
def test_interrupted_while_packing(machine: Machine, cleanup: str):
    log = started(machine, cleanup)
    machine.replace("/bin/tar", behave.tarwrite(20480), ready("/opt/ready"), forever())
    run = begin(machine, pattern_text.block())
    interrupt(run, "/opt/ready", 1)
    log.started("making").raw(interruption(1)).ended("making")
    terminal = initialized().collect(0).archive().newline()
    if cleanup == "ON":
        terminal.cleanup().end()
        log.cleaned()
    assert Ending.of(machine, run.finish()) == late(
        20, terminal, interruption(1), log, expect.output_directory(), expect.OUTPUT_DIRECTORY,
        sorted([OUTPUT_NAME, *COPIED_LOGS, INDEX]), LOGS_AFTER_A_TOOL)


@both_cleanups
def test_interrupted_while_compressing(machine: Machine, cleanup: str):
    log = started(machine, cleanup)
    machine.replace("/bin/gzip", behave.gzwrite(100), ready("/opt/ready"), forever())
    run = begin(machine, pattern_text.block())
    interrupt(run, "/opt/ready", 15)
    log.started("making").deleted().raw(interruption(15)).ended("making")
    terminal = initialized().collect(0).archive().step(2).newline()
    if cleanup == "ON":
        terminal.cleanup().end()
        log.cleaned()
    assert Ending.of(machine, run.finish()) == late(
        10, terminal, interruption(15), log, expect.archive_file(),
        f"{expect.OUTPUT_DIRECTORY}.tar", [f"{OUTPUT_NAME}.tar"], LOGS_AFTER_A_TOOL)


def without_index(machine: Machine, log: expect.RunLog) -> tuple[list[str], str]:
    """Items of which the second ends the run, because the first has replaced the index by a
    directory; completes the log up to there and returns them with the run's last warning."""
    machine.file("/opt/tool", behave.script(
        behave.remove("quendil_index"), behave.directory("quendil_index")), 0o755)
    machine.file("/opt/data", "12345")
    command = f"{behave.PROGRAM} cd %d% exec /opt/tool"
    failed = expect.system_error("fopen", 21, f"{expect.OUTPUT_DIRECTORY}/quendil_index",
                                 "IGCmnFile", warning=True)
    log.tool(command.replace("%d%", expect.OUTPUT_DIRECTORY)).started("collecting")
    log.raw("ZEPA209-I:It copied collecting data = /opt/data. size = 5 bytes.\n"
            "ZEPA210-I:Total data size: 5 bytes.\n" + failed)
    items = [pattern_text.tool(command), pattern_text.data("/opt/data")]
    return items, failed.splitlines(keepends=True)[0]


def test_signals_while_cleaning(machine: Machine):
    log = started(machine, "ON")
    items, warning = without_index(machine, log)
    machine.replace("/bin/rm", ready("/opt/ready"), wait_for("/opt/go"), behave.run("/opt/real/rm"))
    run = begin(machine, *items)
    interrupt(run, "/opt/ready", 15)
    run.signal(signal.SIGINT)
    run.signal(signal.SIGHUP, to_group=True)
    machine.file("/opt/go")
    log.cleaned(expect.OUTPUT_DIRECTORY)
    terminal = initialized().collect(2).step().cleanup().step().end()
    assert Ending.of(machine, run.finish()) == late(
        255, terminal, warning, log, "", None, [], LOGS_AFTER_A_TOOL)


def test_the_output_cannot_be_removed(machine: Machine):
    log = started(machine, "ON")
    machine.replace("/bin/rm", exit(1))
    tool = machine.tool(ready("/opt/ready"), forever())
    run = begin(machine, pattern_text.tool(tool))
    interrupt(run, "/opt/ready")
    log.tool(tool, 0, 15).raw(interruption()).started("cleaning").deleted()
    log.raw("ZEPA140-W:An error occurred during the following system call. system call name ="
            " system, error code = 256, msg = rm command failed.\n"
            "ZEPA152-W:Additional information, command ="
            f' /bin/rm -rf "{expect.OUTPUT_DIRECTORY}" 2> /dev/null.\n'
            "ZEPA141-W:source = IGCmnFile, line no = <LINE>.\n").ended("cleaning")
    terminal = initialized().collect(1).newline().cleanup().end()
    assert Ending.of(machine, run.finish()) == late(
        255, terminal, interruption(), log, "", None, [OUTPUT_NAME, INDEX], LOGS_AFTER_A_TOOL)


@both_cleanups
def test_the_index_cannot_be_written(machine: Machine, cleanup: str):
    log = started(machine, cleanup)
    machine.small_tmpfs(DATA_DIRECTORY, 4096)
    machine.fill(DATA_DIRECTORY)
    run = collect(machine, pattern_text.data("/opt/behave"))
    index = f"{expect.OUTPUT_DIRECTORY}/quendil_index"
    log.raw(expect.system_error("fflush", 28, index, "IGCmnFile"))
    terminal = initialized().collect(1)
    cleaned(terminal, log, cleanup)
    left = [] if cleanup == "ON" else [OUTPUT_NAME, INDEX]
    assert Ending.of(machine, run) == late(
        255, terminal, expect.system_error("fflush", 28, index), log, "", None, ["filler", *left],
        LOGS)


@both_cleanups
def test_the_output_directory_cannot_be_made(machine: Machine, cleanup: str):
    log = started(machine, cleanup)
    machine.read_only(DATA_DIRECTORY)
    run = collect(machine, pattern_text.block())
    log.raw(expect.system_error("mkdir", 30, expect.OUTPUT_DIRECTORY, "IGCmnFile"))
    terminal = initialized().collect(0)
    cleaned(terminal, log, cleanup, deleted=False)
    assert Ending.of(machine, run) == late(
        255, terminal, expect.system_error("mkdir", 30, expect.OUTPUT_DIRECTORY), log, "", None, [],
        LOGS)


@both_cleanups
def test_the_collection_fails(machine: Machine, cleanup: str):
    log = started(machine, cleanup)
    items, warning = without_index(machine, log)
    run = collect(machine, *items)
    terminal = initialized().collect(2).step()
    # The bar continues after the cleaning: only a message on the terminal ends its line.
    if cleanup == "ON":
        terminal.cleanup().step().end()
        log.cleaned(expect.OUTPUT_DIRECTORY)
    left = [] if cleanup == "ON" else [
        OUTPUT_NAME, f"{OUTPUT_NAME}/opt", f"{OUTPUT_NAME}/opt/data", INDEX]
    assert Ending.of(machine, run) == late(
        255, terminal.newline(), warning, log, "", None, left, LOGS_AFTER_A_TOOL)


@both_cleanups
def test_stopped_at_the_size_limit(machine: Machine, cleanup: str):
    log = started(machine, cleanup, limit=1)
    write = machine.tool(behave.flood(1, 513))
    hold = machine.tool(ready("/opt/ready"), wait_for("/opt/go"))
    run = begin(machine, pattern_text.tool(write, redirect="%d%/out"), pattern_text.tool(hold),
                pattern_text.data("%d%/out"), pattern_text.data("/opt/behave"))
    run.wait_for("/opt/ready")
    output, = machine.list(DATA_DIRECTORY)
    machine.pin(f"{DATA_DIRECTORY}/{output}/out")
    machine.file("/opt/go")
    path = f"{expect.OUTPUT_DIRECTORY}/out"
    log.tool(write).tool(hold).started("collecting")
    log.raw("ZEPA153-W:The size of the output data exceeded a limit size."
            f" filename = {path}, size = 513 bytes.\n")
    log.raw(expect.system_error("remove", 16, path, "IGCollectData", warning=True))
    terminal = initialized().collect(4).step(2).newline()
    assert Ending.of(machine, run.finish()) == late(
        20, terminal, SIZE_EXCEEDED, log, expect.output_directory(), None,
        [OUTPUT_NAME, f"{OUTPUT_NAME}/out", INDEX], LOGS_AFTER_A_TOOL)


@both_cleanups
def test_result_20(machine: Machine, cleanup: str):
    log = started(machine, cleanup)
    machine.replace("/bin/tar", exit(2))
    run = collect(machine, pattern_text.block())
    log.started("making").raw(NOT_PACKED).ended("making")
    terminal = initialized().collect(0).archive().newline()
    if cleanup == "ON":
        terminal.cleanup().step().end()
        log.cleaned()
    assert Ending.of(machine, run) == late(
        20, terminal, NOT_PACKED, log, expect.output_directory(), expect.OUTPUT_DIRECTORY,
        sorted([OUTPUT_NAME, *COPIED_LOGS, INDEX]), LOGS_AFTER_A_TOOL)


@both_cleanups
def test_result_10(machine: Machine, cleanup: str):
    log = started(machine, cleanup)
    machine.replace("/bin/gzip", exit(1))
    run = collect(machine, pattern_text.block())
    log.started("making").deleted().raw(NOT_COMPRESSED).ended("making")
    terminal = initialized().collect(0).archive().step(2).newline()
    if cleanup == "ON":
        terminal.cleanup().step().end()
        log.cleaned()
    assert Ending.of(machine, run) == late(
        10, terminal, NOT_COMPRESSED, log, expect.archive_file(), f"{expect.OUTPUT_DIRECTORY}.tar",
        [f"{OUTPUT_NAME}.tar"], LOGS_AFTER_A_TOOL)


@both_cleanups
def test_result_0(machine: Machine, cleanup: str):
    log = started(machine, cleanup)
    run = collect(machine, pattern_text.data("/opt/none"))
    log.data({}, 0, "ZEPA129-W:A system information(/opt/none) is not found.\n")
    log.made().cleaned()
    assert Ending.of(machine, run) == late(
        0, complete(1), "", log, expect.output_file(), f"{expect.OUTPUT_DIRECTORY}.tar.gz",
        [f"{OUTPUT_NAME}.tar.gz"], LOGS_AFTER_A_TOOL)


def test_result_0_without_a_history_log(machine: Machine):
    log = started(machine, "ON")
    machine.directory(HISTORY)
    run = collect(machine, pattern_text.block())
    lost = expect.system_error("fopen", 21, HISTORY, "IGCmnLog", warning=True)
    copy = f"ZEPA142-W:An attempt to copy the logfile ({HISTORY}) has failed.\n"
    log.started("making").raw(copy).deleted().raw(lost).ended("making").cleaned()
    expected = late(0, complete(0), 4 * lost, log, expect.output_file(), None,
                    [f"{OUTPUT_NAME}.tar.gz"], LOGS_AFTER_A_TOOL)
    assert Ending.of(machine, run) == replace(expected, history=None)
