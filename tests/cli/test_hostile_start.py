"""Starts with a hostile environment or damaged files: each run ends with a correct report."""

from __future__ import annotations

import fcntl
import os
import signal

import pytest
from support import behave, expect, masking, pattern_text
from support.collecting import GROUP, begin, collect, complete_output, started_log
from support.ending import BIN_DIRECTORY, HISTORY_LOCK, RUN_LOCK, check_refused
from support.machine import LOG_DIRECTORY, PROGRAMS, QUENDIL, Machine
from support.progress import Terminal

HISTORY = f"{LOG_DIRECTORY}/quendil_hist.log"
OLD_HISTORY = f"{LOG_DIRECTORY}/quendil_hist_old.log"
REQUIRED = "ZEPA115-E:A required option is not specified.\n"
USAGE = ("{name} [Ver. 01-02]\n\nusage:\t{name}\t{{ -g pp_group | -t target }} ...\n"
         "\t\t[ -c configfile ] [ -d directory ] [ -o output_file ]\n\t{name}\t-h\n\n")

# ---- Names of the program -----------------------------------------------------------------------

#: Starts the program with exactly these words, the first of which is its name.
CALL = """\
import ctypes
words = %r
argv = (ctypes.c_char_p * (len(words) + 1))(*words, None)
ctypes.CDLL(None).execve(%r, argv, (ctypes.c_char_p * 1)(None))
"""


def call(machine: Machine, *words: bytes) -> tuple[int, str, str]:
    """Calls the program with these words and no environment; status, output and error output."""
    machine.file("/opt/call.py", CALL % (list(words), QUENDIL.encode()))
    done = machine.exec(["/usr/bin/python3", "-I", "-S", "/opt/call.py"], check=False)
    return done.status, done.stdout, done.stderr


@pytest.mark.parametrize("words", [[], [b""]], ids=["no words at all", "an empty name"])
def test_a_program_without_a_name_runs_like_any_other(machine: Machine, words: list[bytes]):
    bar = Terminal().init().newline().text
    assert call(machine, *words) == (255, bar, REQUIRED + expect.LOOK_AT_LOG)
    history = machine.read_log("quendil_hist.log")
    assert history is not None and masking.mask(history) == expect.history(None, 255)
    assert "ZEPA302-I:quendil argument is (null).\n" in (machine.read_log("quendil_hist.log") or "")
    assert 'ZEPA204-I:quendil argument is "".\n' in (machine.read_log("quendil.log") or "")


def test_an_empty_name_is_shown_as_it_is(machine: Machine):
    assert call(machine, b"", b"-h") == (255, USAGE.format(name=""), "")
    machine.pattern("10_demo", pattern_text.pattern(pattern_text.data("/opt/none")))
    machine.replace("/bin/tar", behave.exit(1))
    assert call(machine, b"", b"-g", b"demo")[0] == 20
    output, = machine.list("/var/opt/norvale/quendil/data")
    index = machine.read(f"/var/opt/norvale/quendil/data/{output}/quendil_index")
    assert index.startswith(expect.index_header("-g demo", command=""))


def test_a_name_forges_no_line_of_the_index(machine: Machine):
    shown = "a\\033\\012FILE:b\t"
    assert call(machine, b"/opt/a\x1b\nFILE:b\t", b"-h") == (255, USAGE.format(name=shown), "")
    machine.pattern("10_demo", pattern_text.pattern(pattern_text.data("/opt/none")))
    machine.replace("/bin/tar", behave.exit(1))
    assert call(machine, b"/opt/a\x1b\nFILE:b\t", b"-g", b"demo")[0] == 20
    output, = machine.list("/var/opt/norvale/quendil/data")
    index = machine.read(f"/var/opt/norvale/quendil/data/{output}/quendil_index")
    assert index.startswith(expect.index_header("-g demo", command=shown))


@pytest.mark.parametrize("argv0, name", [("/opt/directory/", ""), ("/", ""), ("-h", "-h"),
                                         ("-H", "-H")])
def test_the_name_is_what_follows_the_last_slash(machine: Machine, argv0: str, name: str):
    if machine.wrapped:
        pytest.skip("a wrapped program cannot be given another name")
    # A program name that is "-h" asks for help, as an argument does.
    arguments = [] if name else ["-h"]
    run = machine.run(*arguments, argv0=argv0)
    assert (run.status, run.stdout, run.stderr) == (255, USAGE.format(name=name), "")
    assert run.history == expect.history(" ".join(arguments) or None, 255)
    assert run.log is None


# ---- Other kinds of files -----------------------------------------------------------------------


def test_a_fifo_in_the_historys_place_does_not_block_a_run(machine: Machine):
    machine.fifo(HISTORY)
    run = collect(machine, pattern_text.block())
    lost = expect.system_error("fopen", 6, HISTORY, "IGCmnLog", warning=True)
    copy = f"ZEPA142-W:An attempt to copy the logfile ({HISTORY}) has failed.\n"
    log = started_log().started("making").raw(copy).deleted().raw(lost).ended("making").cleaned()
    assert (run.status, run.stdout, run.stderr) == (0, complete_output(0), 4 * lost)
    assert run.log == log.finished(0, expect.output_file()).text
    assert machine.locks(f"{BIN_DIRECTORY}/{HISTORY_LOCK}") == (0, 0)


def test_a_fifo_in_the_old_historys_place_is_not_waited_for(machine: Machine):
    machine.fifo(OLD_HISTORY)
    run = collect(machine, pattern_text.block())
    copy = f"ZEPA142-W:An attempt to copy the logfile ({OLD_HISTORY}) has failed.\n"
    log = started_log().started("making").raw(copy).deleted().ended("making").cleaned()
    assert run.log == log.finished(0, expect.output_file()).text
    assert sorted(run.archive.files()) == ["quendil.log", "quendil_hist.log", "quendil_index"]


def test_a_fifo_in_the_indexs_place_ends_the_run(machine: Machine):
    machine.file("/opt/tool", behave.script(
        behave.remove("quendil_index"), behave.fifo("quendil_index")), 0o755)
    run = collect(machine, pattern_text.tool(f"{behave.PROGRAM} cd %d% exec /opt/tool"),
                  pattern_text.data("/opt/tool"))
    index = f"{expect.OUTPUT_DIRECTORY}/quendil_index"
    reported = expect.system_error("fopen", 6, index, "IGCmnFile", warning=True)
    assert run.status == 255 and machine.outputs() == []
    assert run.stderr == reported.splitlines(keepends=True)[0] + expect.LOOK_AT_LOG


@pytest.mark.parametrize("name", ["quendil.log", "quendil_old.log"])
def test_a_fifo_in_the_run_logs_place_does_not_block_a_run(machine: Machine, name: str):
    machine.fifo(f"{LOG_DIRECTORY}/{name}")
    arguments = ["-x"]
    run = machine.run(*arguments)
    reported = "ZEPA101-E:The specified option(-x) is invalid.\n"
    assert run.log == expect.RunLog("-x").raw(reported).finished(255).text
    assert machine.list(LOG_DIRECTORY) == ["quendil.log", "quendil_hist.log", "quendil_old.log"]


def test_lock_files_may_be_of_any_kind_that_can_be_locked(machine: Machine):
    for name in (RUN_LOCK, HISTORY_LOCK):
        machine.fifo(f"{BIN_DIRECTORY}/{name}")
    run = collect(machine, pattern_text.block())
    assert (run.status, run.stdout, run.stderr) == (0, complete_output(0), "")


def test_a_history_of_three_gigabytes_is_rotated(machine: Machine):
    os.truncate(machine.path(machine.file(HISTORY)), 3 << 30)
    # Not with machine.run, which would read the whole log.
    done = machine.exec([QUENDIL, "-x"], check=False)
    assert done.status == 255 and "ZEPA140-W" not in done.stderr
    assert machine.status(OLD_HISTORY).st_size == 3 << 30
    assert machine.status(HISTORY).st_size < 200


@pytest.mark.parametrize("path, reported", [
    ("/dev/zero", "ZEPA119-E:A syntax error occurred.\n"
                  "ZEPA120-E:filename = /dev/zero, line no = 1.\n"),
    ("/dev/tty", "ZEPA112-E:You do not have access permissions for the specified file"
                 "(/dev/tty).\n"),
])
def test_a_device_is_no_configuration_file(machine: Machine, path: str, reported: str):
    arguments = [*GROUP, "-c", path]
    check_refused(machine, machine.run(*arguments), arguments, reported, 1)


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM, signal.SIGHUP])
def test_a_run_that_waits_for_its_configuration_can_be_interrupted(machine: Machine, number: int):
    machine.fifo("/opt/pipe")
    writer = os.open(machine.path("/opt/pipe"), os.O_RDWR)
    os.write(writer, b"#\n")
    arguments = [*GROUP, "-c", "/opt/pipe"]
    run = machine.start(*arguments)
    run.wait_for(lambda: run.stdout == Terminal().init().step().text.encode() and any(
        entry.pid == run.pid and entry.state == "S" for entry in machine.processes()))
    run.signal(number)
    reported = f"ZEPA136-E:quendil was interrupted. signal no = {number}.\n"
    check_refused(machine, run.finish(), arguments, reported, 1)
    os.close(writer)


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM, signal.SIGHUP])
@pytest.mark.parametrize("streams", [("stdout",), ("stdout", "stderr")], ids=["output", "both"])
def test_a_run_whose_terminal_is_not_read_can_be_interrupted(machine: Machine, number: int,
                                                             streams: tuple[str, ...]):
    reader, writer = os.pipe()
    os.write(writer, bytes(fcntl.fcntl(writer, fcntl.F_GETPIPE_SZ)))
    running = begin(machine, pattern_text.tool(machine.tool()), **dict.fromkeys(streams, writer))
    running.wait_for(lambda: "Started" in (machine.read_log("quendil.log") or "") and any(
        entry.pid == running.pid and entry.state == "S" for entry in machine.processes()))
    running.signal(number)
    run = running.finish()
    os.close(writer)
    os.close(reader)
    reported = f"ZEPA136-E:quendil was interrupted. signal no = {number}.\n"
    assert run.status == 255 and run.log.count(reported) == 1 and run.log.endswith("= 255.\n")
    assert run.stderr == ("" if "stderr" in streams else reported + expect.LOOK_AT_LOG)
    assert machine.outputs() == []
    assert machine.locks(f"{BIN_DIRECTORY}/{RUN_LOCK}") == (0, 0)


# ---- What a process inherits --------------------------------------------------------------------

ENVIRONMENTS = [
    {"PATH": "/opt/evil", "IFS": "/ ", "ENV": "/opt/evil/cp", "BASH_ENV": "/opt/evil/cp"},
    {"TAPE": "/opt/pwned", "TAR": "/opt/evil/cp", "RSH": "/opt/evil/cp", "TMPDIR": "/none"},
    {"TZ": "garbage"}, {"TZ": ":/none"}, {"TZ": "x" * 5000},
    {"LC_ALL": "x" * 5000}, {"LC_ALL": "../../../opt/evil"}, {"LC_ALL": "", "LC_TIME": "none"},
    {"QUENDIL_DATA_DIRECTORY": "/none", "QUENDIL_CLEANUP": "x", "QUENDIL_LOG": "/none"},
]


def test_no_environment_changes_what_a_run_does(machine: Machine):
    for name in ("cp", "rm", "tar", "gzip", "sh"):
        machine.file(f"/opt/evil/{name}", "#!/bin/sh\n: >/opt/pwned\n", 0o755)
    for number, environment in enumerate(ENVIRONMENTS):
        directory = machine.directory(f"/opt/{number}")
        run = collect(machine, pattern_text.block(), arguments=("-d", directory), env=environment)
        output = f"{directory}/{expect.OUTPUT_NAME}"
        assert (run.status, run.stdout, run.stderr) == (0, complete_output(0, output), ""), number
        assert sorted(run.archive.files()) == ["quendil.log", "quendil_hist.log", "quendil_index"]
    assert not machine.exists("/opt/pwned")


def test_no_signal_that_the_caller_ignored_or_blocked_changes_what_a_run_does(machine: Machine):
    every = [number for number in range(1, 32) if number not in (signal.SIGKILL, signal.SIGSTOP)]
    tool = machine.tool(behave.exit(3))
    overrun = machine.tool(behave.forever())
    run = collect(machine, pattern_text.tool(tool), pattern_text.tool(overrun, timeout=1),
                  ignore=every, block=every)
    log = started_log().tool(tool, 3).timed_out_tool(overrun, behave.PROGRAM, 0, 15, timeout=1)
    assert (run.status, run.stdout, run.stderr) == (0, complete_output(2), "")
    assert run.log == log.complete().text


@pytest.mark.parametrize("close", [(1,), (1, 2), (0, 1, 2)], ids=str)
def test_no_file_becomes_the_terminal_where_even_the_null_device_is_missing(
        machine: Machine, close: tuple[int, ...]):
    machine.mount("-t", "tmpfs", "sandbox", "/dev")
    tool = machine.tool(behave.ready("/opt/at"), behave.wait_for("/opt/go"))
    running = begin(machine, pattern_text.tool(tool), close=close)
    machine.wait_for("/opt/at")
    assert machine.locks(f"{BIN_DIRECTORY}/{RUN_LOCK}") == (1, 0)
    machine.file("/opt/go")
    run = running.finish()
    assert (run.status, run.stdout) == (0, "")
    assert run.log == started_log().tool(tool).complete().text
    for name in (RUN_LOCK, HISTORY_LOCK):
        assert machine.status(f"{BIN_DIRECTORY}/{name}").st_size == 0


# ---- Limits -------------------------------------------------------------------------------------


@pytest.mark.plain_binary  # an instrumented binary needs descriptors of its own
def test_with_few_descriptors_a_run_does_what_it_can_and_reports_the_rest(machine: Machine):
    machine.file("/opt/data", "x")
    seen = set()
    for count in range(4, 16):
        machine.directory(f"/opt/{count}")
        run = collect(machine, pattern_text.data("/opt/data"), arguments=("-d", f"/opt/{count}"),
                      limits={"nofile": count})
        seen.add(run.status)
        assert ("ZEPA" in run.stderr) == (run.status != 0 or "ZEPA133-W" in run.stderr), count
        if run.status == 255:
            assert machine.list(f"/opt/{count}") == [], count
            continue
        output = run.archive if run.status == 0 else run.directory
        assert ("opt/data" in output) != ("ZEPA130-W" in (run.log or "")), count
    assert {0, 255} <= seen


def test_the_callers_umask_does_not_matter(machine: Machine):
    tool = machine.tool(behave.out("x"))
    kinds = []
    for umask in (0o000, 0o022, 0o777):
        directory = machine.directory(f"/opt/{umask:o}")
        run = collect(machine, pattern_text.tool(tool, redirect="%d%/a/b"), umask=umask,
                      arguments=("-d", directory))
        assert (run.status, run.stderr) == (0, "")
        kinds.append((run.archive.kinds(), machine.mode(run.result)))
    assert kinds[0] == kinds[1] == kinds[2]
    assert kinds[0][0]["a/b"] == ("file", "0600") and kinds[0][1] == "0600"


@pytest.mark.plain_binary  # the leak sanitizer needs the rights that are missing here
def test_a_run_of_root_with_an_ordinary_effective_user_reports_what_it_cannot_open(
        machine: Machine):
    run = machine.run(*GROUP, user=0, effective_user=1000)
    path = f"{BIN_DIRECTORY}/{HISTORY_LOCK}"
    lost = expect.system_error("open", 13, path, "IGCmnLog", warning=True)
    refused = expect.system_error("open", 13, f"{BIN_DIRECTORY}/{RUN_LOCK}")
    assert (run.status, run.stdout) == (255, "")
    assert run.stderr == 3 * lost + refused + 4 * lost
    assert machine.list(LOG_DIRECTORY) == [] and machine.list(BIN_DIRECTORY) == PROGRAMS
