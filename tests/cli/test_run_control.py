"""A run from its first check to its exit status: every early end, the locks, the terminal."""

from __future__ import annotations

import os
import signal
import tty
from datetime import timedelta

import pytest
from support import behave, expect, masking, pattern_text
from support.behave import forever, ready, report, wait_for
from support.collecting import GROUP, begin, collect, complete_output, started_log
from support.ending import check_refused
from support.machine import CONFIGURATION, DATA_DIRECTORY, LOG_DIRECTORY, PROGRAMS, QUENDIL, Machine
from support.progress import COLLECT_WIDTH, WIDTH, Terminal, complete, screen
from support.run import Run
from support.tree import read_archive

BIN = "/opt/norvale/quendil/bin"
RUN_LOCK = f"{BIN}/.quendil.lck"
HISTORY_LOCK = f"{BIN}/.quendil_hist.lck"
VARIABLE = "/var/opt/norvale/quendil"
HISTORY = f"{LOG_DIRECTORY}/quendil_hist.log"

NOT_SUPER_USER = "ZEPA117-E:This cannot be executed because the user is not a super user.\n"
RUNNING = "ZEPA116-E:Another quendil is already running. Please try later.\n"
NO_VARIABLE = f"ZEPA104-E:The specified directory({VARIABLE}) does not exist.\n"


def warning(call: str, code: int, path: str, source: str = "IGCmnLog") -> str:
    """The report of a history log that cannot be opened."""
    return expect.system_error(call, code, path, source, warning=True)


# ---- Who may run --------------------------------------------------------------------------------


def test_only_the_super_user_may_run_it(machine: Machine):
    for arguments in (GROUP, (), ("-x",)):
        run = machine.run(*arguments, user=1000)
        assert (run.status, run.stdout, run.stderr) == (255, "", NOT_SUPER_USER)
        assert run.log is None and run.history is None
    assert machine.list(BIN) == PROGRAMS
    assert machine.list(LOG_DIRECTORY) == []


def test_the_effective_user_counts_too(machine: Machine):
    machine.pattern("10_demo", pattern_text.pattern(pattern_text.block()))
    run = machine.run(*GROUP, user=1000, effective_user=0)
    assert (run.status, run.stderr) == (0, "")
    assert run.history == expect.history("-g demo", 0, f"{expect.OUTPUT_DIRECTORY}.tar.gz")


SETUID = "/opt/setuid/quendil"
USERS_ENVIRONMENT = {
    "PATH": "/opt/evil", "LD_PRELOAD": "/opt/evil.so", "LD_LIBRARY_PATH": "/opt/evil",
    "LOCPATH": "/opt/evil", "NLSPATH": "/opt/evil", "GCONV_PATH": "/opt/evil", "TZDIR": "/opt/evil",
    "TMPDIR": "/opt/evil", "ENV": "/opt/evil", "BASH_ENV": "/opt/evil", "IFS": "x",
    "GLIBC_TUNABLES": "glibc.malloc.check=1", "SHELLOPTS": "xtrace", "PS4": "$(id)", "HOME": "/opt",
    "LC_ALL": "C.UTF-8", "LANG": "de_DE.UTF-8@euro", "TZ": "Europe/Berlin", "LC_SECRET": "x",
}


def run_setuid(machine: Machine, environment: dict[str, str]) -> dict[str, list[str]]:
    """The output of /usr/bin/id and /usr/bin/env in a run that an ordinary user has started."""
    program = machine.path(QUENDIL).read_bytes()
    machine.file(SETUID, program, 0o4755)
    machine.pattern("10_demo", pattern_text.pattern(
        pattern_text.tool("/usr/bin/id", "%d%/id"), pattern_text.tool("/usr/bin/env", "%d%/env")))
    settings = [f"{name}={value}" for name, value in environment.items()]
    done = machine.exec(
        ["/usr/bin/setpriv", "--reuid=1000", "--regid=1000", "--groups=1000,4,27", "/usr/bin/env",
         "-i", *settings, SETUID, *GROUP])
    assert done.stderr == ""
    result, = machine.list(DATA_DIRECTORY)
    status = machine.status(f"{DATA_DIRECTORY}/{result}")
    assert (status.st_uid, status.st_gid) == (0, 0)
    tree = read_archive(machine.path(f"{DATA_DIRECTORY}/{result}"))
    machine.remove(f"{DATA_DIRECTORY}/{result}")
    return {name: tree.read(name).decode().splitlines() for name in ("id", "env")}


@pytest.mark.plain_binary  # an instrumented binary has settings of its own
def test_a_setuid_run_has_roots_ids_and_a_reduced_environment(machine: Machine):
    shown = run_setuid(machine, USERS_ENVIRONMENT)
    assert shown["id"] == ["uid=0(root) gid=0(root) groups=0(root)"]
    assert sorted(shown["env"]) == [
        "LANG=de_DE.UTF-8@euro", "LC_ALL=C.UTF-8",
        "PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin", "TZ=Europe/Berlin"]
    assert machine.status(f"{LOG_DIRECTORY}/quendil.log").st_gid == 0
    assert [machine.status(path).st_gid for path in (RUN_LOCK, HISTORY_LOCK, HISTORY)] == [0, 0, 0]


@pytest.mark.plain_binary
@pytest.mark.parametrize("name, value", [
    ("TZ", ""), ("TZ", "<+0545>-05:45"), ("LANGUAGE", "de_DE:en"), ("LC_TIME", "de_DE.UTF-8"),
])
def test_a_setuid_run_keeps_the_zone_and_the_locale(machine: Machine, name: str, value: str):
    assert f"{name}={value}" in run_setuid(machine, {name: value})["env"]


@pytest.mark.plain_binary
@pytest.mark.parametrize("name, value", [
    ("TZ", "/opt/evil"), ("TZ", ":/opt/evil"), ("TZ", ":Europe/Berlin"), ("TZ", "../../opt/evil"),
    ("TZ", "x y"), ("LC_ALL", "/opt/evil"), ("LC_ALL", "../opt"), ("LC_TIME", "a/b"),
    ("LANGUAGE", "../../../opt/evil"), ("LANGUAGE", "%s"), ("LANG", "$(id)"),
])
def test_a_setuid_run_drops_a_zone_or_locale_that_may_name_a_file(machine: Machine, name: str,
                                                                  value: str):
    assert [line for line in run_setuid(machine, {name: value})["env"]
            if not line.startswith("PATH=")] == []


# ---- One run at a time --------------------------------------------------------------------------


@pytest.mark.parametrize("arguments", [[*GROUP], [], ["-x"]])
def test_a_second_run_is_refused_and_the_first_one_is_undisturbed(machine: Machine,
                                                                  arguments: list[str]):
    tool = machine.tool(ready("/opt/ready"), wait_for("/opt/go"))
    first = begin(machine, pattern_text.tool(tool))
    first.wait_for("/opt/ready")
    before = machine.read_log("quendil.log")
    second = machine.run(*arguments)
    assert (second.status, second.stdout, second.stderr) == (255, "", RUNNING)
    assert machine.read_log("quendil.log") == before
    assert machine.read_log("quendil_old.log") is None
    machine.file("/opt/go")
    run = first.finish()
    result = f"{expect.OUTPUT_DIRECTORY}.tar.gz"
    text = " ".join(arguments) or None
    assert (run.status, run.stdout) == (0, complete_output(1))
    assert run.log == started_log().tool(tool).complete().text
    whole = expect.history("-g demo", 0, result)
    begun = whole[:whole.index("ZEPA303")]
    assert run.history == (begun + expect.history(text, 255, middle=RUNNING) + whole[len(begun):])


def test_help_is_shown_while_another_run_is_active(machine: Machine):
    with machine.locked(machine.file(RUN_LOCK)):
        run = machine.run("-h")
    assert run.status == 255 and run.stdout.startswith("quendil [Ver. 01-02]") and run.stderr == ""


def test_a_killed_run_leaves_no_lock(machine: Machine):
    tool = machine.tool(behave.once("/opt/ready", forever()))
    first = begin(machine, pattern_text.tool(tool))
    first.wait_for("/opt/ready")
    first.signal(signal.SIGKILL)
    first.finish()
    assert machine.exists(RUN_LOCK)
    assert machine.run(*GROUP).status == 0


def test_a_killed_run_leaves_no_tool(machine: Machine):
    first = begin(machine, pattern_text.tool(machine.tool(ready("/opt/ready"), forever())))
    first.wait_for("/opt/ready")
    first.signal(signal.SIGKILL)
    first.finish()
    machine.wait_for(lambda: not machine.processes(), what="the end of the tool")


@pytest.mark.parametrize("program", ["/bin/tar", "/bin/gzip"])
def test_a_killed_run_leaves_no_archiver(machine: Machine, program: str):
    machine.replace(program, ready("/opt/ready"), forever())
    first = begin(machine, pattern_text.block())
    first.wait_for("/opt/ready")
    first.signal(signal.SIGKILL)
    first.finish()
    machine.wait_for(lambda: not machine.processes(), what="the end of the archiver")


def test_a_removal_outlives_a_killed_run(machine: Machine):
    machine.replace("/bin/rm", ready("/opt/ready"), wait_for("/opt/go"), behave.run("/opt/real/rm"))
    first = begin(machine, pattern_text.block())
    first.wait_for("/opt/ready")
    first.signal(signal.SIGKILL)
    first.finish()
    machine.file("/opt/go")
    machine.wait_for(lambda: not machine.processes(), what="the end of the removal")
    assert machine.outputs() == [f"{expect.OUTPUT_NAME}.tar"]


def test_the_lock_is_held_until_the_history_has_the_end(machine: Machine):
    reader, writer = full_pipe()
    run = machine.start("-x", stderr=writer)
    # It ends the bar, then waits for the pipe; until its end it does not touch the history again.
    run.wait_for(lambda: run.stdout.endswith(b"\r\n"))
    with machine.locked(HISTORY_LOCK):
        os.close(writer)
        with open(reader, "rb") as pipe:
            while b"ZEPA216-I" not in pipe.read1():
                pass
        run.wait_for(lambda: "ZEPA213-I" in (machine.read_log("quendil.log") or ""))
        assert machine.locks(RUN_LOCK) == (1, 0) and not run.ended
        assert "ZEPA304" not in (machine.read_log("quendil_hist.log") or "")
    assert run.finish().history == expect.history("-x", 255)
    assert machine.locks(RUN_LOCK) == (0, 0)


def full_pipe() -> tuple[int, int]:
    """A pipe that is full."""
    reader, writer = os.pipe()
    os.set_blocking(writer, False)
    try:
        while True:
            os.write(writer, b"x" * 4096)
    except BlockingIOError:
        os.set_blocking(writer, True)
    return reader, writer


@pytest.mark.parametrize("count", [2, 5, 20])
def test_of_runs_started_together_one_wins_and_all_leave_whole_lines(machine: Machine, count: int):
    tool = machine.tool(wait_for("/opt/go"))
    machine.pattern("10_demo", pattern_text.pattern(pattern_text.tool(tool)))
    names = [str(number) * 100 for number in range(count)]
    runs = [machine.start(*GROUP, "-g", name) for name in names]
    machine.wait_for(lambda: sum(run.ended for run in runs) == count - 1, 20.0, "the refusals")
    machine.file("/opt/go")
    finished = [run.finish() for run in runs]
    assert sorted(run.status for run in finished) == [0] + [255] * (count - 1)
    for run in finished:
        assert (run.status, run.stdout, run.stderr) in [
            (0, complete_output(1), ""), (255, "", RUNNING)]
    last = machine.read_log("quendil_hist.log") or ""
    lines = masking.mask(last).splitlines(keepends=True)
    expected = [line for name in names
                for line in expect.history(f"-g demo -g {name}", 255).splitlines(keepends=True)]
    expected.remove("ZEPA304-I:quendil exit code = 255.\n")
    expected += ["ZEPA304-I:quendil exit code = 0.\n", *[RUNNING] * (count - 1)]
    expected.append(f"ZEPA303-I:Output = {expect.OUTPUT_DIRECTORY}.tar.gz.\n")
    assert sorted(lines) == sorted(expected)
    assert machine.status(RUN_LOCK).st_size == machine.status(HISTORY_LOCK).st_size == 0


# ---- The lock file ------------------------------------------------------------------------------


@pytest.mark.parametrize("kind, code", [("directory", 21), ("loop", 40), ("nowhere", 2)])
def test_a_lock_file_that_cannot_be_opened_ends_the_run(machine: Machine, kind: str, code: int):
    if kind == "directory":
        machine.directory(RUN_LOCK)
    else:
        machine.link(RUN_LOCK, RUN_LOCK if kind == "loop" else "/opt/none/lock")
    run = machine.run(*GROUP)
    call = expect.system_error("open", code)
    place = "ZEPA114-E:source = IGMain, line no = <LINE>.\n"
    assert (run.status, run.stdout) == (255, "")
    assert run.stderr == expect.system_error("open", code, RUN_LOCK)
    assert run.log is None
    assert run.history == expect.history("-g demo", 255, middle=call + place)


def test_a_lock_file_of_an_earlier_run_is_taken_as_it_is(machine: Machine):
    for path in (RUN_LOCK, HISTORY_LOCK):
        machine.file(path, "left behind\n", 0o644, (3, 4))
    before = [machine.status(path) for path in (RUN_LOCK, HISTORY_LOCK)]
    run = collect(machine, pattern_text.block())
    assert (run.status, run.stderr) == (0, "")
    for path, state in zip((RUN_LOCK, HISTORY_LOCK), before):
        now = machine.status(path)
        assert machine.read(path) == "left behind\n"
        assert (now.st_ino, now.st_mode, now.st_uid, now.st_mtime_ns) == (
            state.st_ino, state.st_mode, state.st_uid, state.st_mtime_ns)


def test_lock_files_and_logs_belong_to_the_super_user_alone(machine: Machine):
    for umask in (0, 0o022, 0o077):
        collect(machine, pattern_text.block(), umask=umask)
        names = [RUN_LOCK, HISTORY_LOCK, f"{LOG_DIRECTORY}/quendil.log", HISTORY]
        assert [machine.mode(name) for name in names] == ["0600"] * 4
        for name in names:
            machine.remove(name)


def test_lock_files_stay_empty_and_are_never_removed(machine: Machine):
    collect(machine, pattern_text.block())
    inodes = [machine.status(path).st_ino for path in (RUN_LOCK, HISTORY_LOCK)]
    machine.run(*GROUP)
    machine.run("-x")
    assert [machine.status(path).st_ino for path in (RUN_LOCK, HISTORY_LOCK)] == inodes
    assert [machine.status(path).st_size for path in (RUN_LOCK, HISTORY_LOCK)] == [0, 0]


# ---- Missing directories ------------------------------------------------------------------------


def test_a_missing_bin_directory_ends_the_run(machine: Machine):
    machine.exec(["/bin/mv", BIN, "/opt/moved"])
    run = machine.run(*GROUP, program="/opt/moved/quendil")
    lost = warning("open", 2, HISTORY_LOCK)
    refused = expect.system_error("open", 2, RUN_LOCK)
    assert (run.status, run.stdout) == (255, "")
    assert run.stderr == 3 * lost + refused + 4 * lost
    assert run.log is None and run.history is None
    assert machine.list(LOG_DIRECTORY) == []


def test_a_missing_directory_for_variable_data_ends_the_run(machine: Machine):
    machine.remove(VARIABLE)
    run = machine.run(*GROUP)
    assert (run.status, run.stdout) == (255, "")
    # Rotation, start, arguments, run log, exit code, end: each checks the directory.
    assert run.stderr == 6 * NO_VARIABLE
    assert not machine.exists(VARIABLE)


def test_a_missing_log_directory_ends_the_run(machine: Machine):
    machine.remove(LOG_DIRECTORY)
    run = machine.run(*GROUP)
    lost = warning("fopen", 2, HISTORY)
    assert (run.status, run.stdout) == (255, "")
    assert run.stderr == (
        2 * lost + expect.system_error("fopen", 2, f"{LOG_DIRECTORY}/quendil.log") + 2 * lost)
    assert machine.list(VARIABLE) == ["data"]


def test_a_missing_data_directory_ends_the_run(machine: Machine):
    machine.remove(DATA_DIRECTORY)
    run = machine.run(*GROUP)
    reported = f"ZEPA104-E:The specified directory({DATA_DIRECTORY}) does not exist.\n"
    assert run.status == 255
    assert run.stdout == Terminal().init().step(2).newline().text
    assert run.stderr == reported + expect.LOOK_AT_LOG
    assert run.log == expect.RunLog("-g demo").raw(reported).finished(255).text
    assert run.history == expect.history("-g demo", 255)
    assert machine.list(VARIABLE) == ["log"]


def test_a_missing_configuration_tree_ends_the_run(machine: Machine):
    machine.remove("/etc/opt/norvale")
    run = machine.run(*GROUP)
    reported = f"ZEPA118-E:A configuration file({CONFIGURATION}) does not exist.\n"
    assert run.status == 255
    assert run.stdout == Terminal().init().step(1).newline().text
    assert run.stderr == reported + expect.LOOK_AT_LOG
    assert run.log == expect.RunLog("-g demo").raw(reported).finished(255).text


# ---- The output directory -----------------------------------------------------------------------


def take_names(machine: Machine, endings: str) -> None:
    """Makes directories with the output name of every second of the next two minutes."""
    now = machine.now()
    for seconds in range(120):
        stamp = f"{now + timedelta(seconds=seconds):%y%m%d%H%M%S}"
        for ending in endings.split():
            machine.directory(f"{DATA_DIRECTORY}/testhost_{stamp}{ending}")


@pytest.mark.parametrize("present, name", [
    ("/kept", "_1"), ("/kept _1", "_2"), ("/kept _x", "_2"), ("/kept _2", "_3"),
    ("/kept _1 _2 _3", "_4"), ("/kept _3 _x", "_4"),
])
def test_an_output_name_that_is_taken_gets_a_number(machine: Machine, present: str, name: str):
    take_names(machine, present)
    run = collect(machine, pattern_text.block())
    output = expect.OUTPUT_DIRECTORY + name
    assert run.status == 0
    assert run.stdout == complete_output(0, output)
    assert run.archive.top == os.path.basename(run.result).removesuffix(".tar.gz")
    log = expect.RunLog("-g demo").initialized("demo")
    assert run.log == log.complete(output, output).text
    assert run.history == expect.history("-g demo", 0, f"{output}.tar.gz")
    assert machine.list(run.result.removesuffix(f"{name}.tar.gz")) == ["kept"]


@pytest.mark.parametrize("suffix", [".tar", ".tar.gz"])
def test_a_default_archive_that_exists_is_refused(machine: Machine, suffix: str):
    take_names(machine, suffix)
    run = machine.run(*GROUP)
    reported = f"ZEPA109-E:The specified file({expect.OUTPUT_DIRECTORY}{suffix}) already exists.\n"
    assert run.status == 255
    assert run.stdout == Terminal().init().step(2).newline().text
    assert run.stderr == reported + expect.LOOK_AT_LOG
    assert run.log == expect.RunLog("-g demo").raw(reported).finished(255).text


def two_patterns(machine: Machine, further: str = "") -> Run:
    """A run whose first pattern removes the output directory; the second one collects /opt/data."""
    machine.file("/opt/data", "12345")
    machine.file("/opt/tool", f'#!/bin/sh\ncd "$1" && rm -r "$1"\n{further}\n', 0o755)
    machine.pattern("10_first", pattern_text.pattern(pattern_text.tool("/opt/tool %d%")))
    machine.pattern("20_second", pattern_text.pattern(pattern_text.data("/opt/data")))
    return machine.run(*GROUP)


def test_an_output_directory_that_was_removed_is_made_again_for_the_next_pattern(machine: Machine):
    run = two_patterns(machine)
    assert (run.status, run.stderr) == (0, "")
    log = started_log().tool(f"/opt/tool {expect.OUTPUT_DIRECTORY}")
    assert run.log == log.data({"/opt/data": 5}, 5).complete().text
    assert run.archive.read("opt/data") == b"12345"
    assert run.archive[""].mode == "0700"
    assert run.index == expect.index_record("opt/data")  # the head is written once


def test_what_has_taken_the_outputs_name_ends_the_run_and_stays(machine: Machine):
    run = two_patterns(machine, 'echo x >"$1"')
    made = expect.system_error("mkdir", 17, expect.OUTPUT_DIRECTORY, "IGCmnFile", warning=True)
    lost = f"ZEPA104-E:The specified directory({expect.OUTPUT_DIRECTORY}) does not exist.\n"
    log = started_log().tool(f"/opt/tool {expect.OUTPUT_DIRECTORY}").raw(made + lost)
    assert run.log == log.cleaned().finished(255).text
    name, = machine.list(DATA_DIRECTORY)
    assert run.status == 255 and machine.read(f"{DATA_DIRECTORY}/{name}") == "x\n"


# ---- The terminal -------------------------------------------------------------------------------


def line(label: str, stars: int) -> str:
    return f"{label:<10}:" + "*" * stars + "_" * (68 - stars) + "\r"


#: The stars that each item adds, by the number of items.
SHARES = {0: [], 1: [52], 3: [17, 17, 18], 52: [1] * 52,
          53: [0] + [1] * 52, 100: [1 if n * 52 // 100 > (n - 1) * 52 // 100 else 0
                                    for n in range(1, 101)]}


@pytest.mark.parametrize("items", SHARES)
def test_the_bar_byte_for_byte(machine: Machine, items: int):
    machine.file("/opt/data")
    run = collect(machine, pattern_text.block(*[pattern_text.data("/opt/data")] * items))
    text = "".join(line("initialize", stars) for stars in range(5))
    text += line("initialize", 4) * 64  # what is left of the 68 steps of a phase
    text += line("collect", 4)
    done = 4
    for share in SHARES[items]:
        done += share
        text += line("collect", done) if share else ""
    assert done == (56 if items else 4)
    text += line("collect", done)
    for added in (0, 3, 2, 3):
        done += added
        text += line("archive", done)
    done += 2
    text += line("archive", done) * 65
    text += line("cleanup", done) + line("cleanup", done + 2) + line("cleanup", 68) + "\n"
    size = machine.status(run.result).st_size
    text += f"ZEPA214-I:Output file = {run.result}. size = {size} bytes.\n"
    assert run.raw_stdout.decode() == text
    assert run.raw_stderr == b""
    # The model that the other tests use draws the same.
    assert text.startswith(complete(items).text)
    assert COLLECT_WIDTH == sum(SHARES[items] or [52]) and WIDTH == 68


def test_the_lines_that_are_finally_visible(machine: Machine):
    run = collect(machine, pattern_text.block())
    assert screen(run.stdout) == [
        "cleanup   :" + "*" * 68, expect.output_file().removesuffix("\n"), ""]


def test_a_terminal_gets_the_same_as_a_file(machine: Machine):
    mine, theirs = os.openpty()
    try:
        tty.setraw(theirs)
        collect(machine, pattern_text.block(), stdout=theirs)
        os.set_blocking(mine, False)
        seen = b""
        while len(seen) < len(complete(0).text):
            seen += os.read(mine, 65536)
        assert seen.startswith(complete(0).text.encode())
    finally:
        os.close(mine)
        os.close(theirs)


# ---- What a run starts with ---------------------------------------------------------------------


@pytest.mark.parametrize("closed", [[0], [1], [2], [0, 1], [0, 1, 2]])
def test_closed_descriptors_do_no_harm(machine: Machine, closed: list[int]):
    tool = machine.tool(report("/opt/report"))
    run = collect(machine, pattern_text.tool(tool), close=closed)
    assert run.status == 0
    assert run.stdout == ("" if 1 in closed else complete_output(1))
    assert run.stderr == ""
    assert run.log == started_log().tool(tool).complete().text
    assert run.history == expect.history("-g demo", 0, f"{expect.OUTPUT_DIRECTORY}.tar.gz")
    assert [machine.status(path).st_size for path in (RUN_LOCK, HISTORY_LOCK)] == [0, 0]
    state = machine.report("/opt/report")
    assert [key for key in state if key.startswith("fd")] == ["fd0", "fd1", "fd2"]
    assert state["fd0"].endswith(" /dev/null")


@pytest.mark.parametrize("closed", [[1], [2], [0, 1, 2]])
def test_closed_descriptors_put_no_message_into_a_file(machine: Machine, closed: list[int]):
    run = machine.run("-x", close=closed)
    reported = "ZEPA101-E:The specified option(-x) is invalid.\n"
    assert run.status == 255
    assert run.stdout == ("" if 1 in closed else Terminal().init().newline().text)
    assert run.stderr == ("" if 2 in closed else reported + expect.LOOK_AT_LOG)
    assert run.log == expect.RunLog("-x").raw(reported).finished(255).text
    assert run.history == expect.history("-x", 255)
    assert [machine.status(path).st_size for path in (RUN_LOCK, HISTORY_LOCK)] == [0, 0]


def broken_pipe() -> int:
    """A descriptor without a reader."""
    reader, writer = os.pipe()
    os.close(reader)
    return writer


@pytest.mark.parametrize("kind", ["pipe", "full"])
@pytest.mark.parametrize("which", ["stdout", "stderr"])
def test_outputs_that_cannot_be_written_do_not_end_a_run(machine: Machine, which: str, kind: str):
    descriptor = broken_pipe() if kind == "pipe" else os.open("/dev/full", os.O_WRONLY)
    try:
        run = collect(machine, pattern_text.block(), arguments=("-d", "/none", "-d", "/opt"),
                      **{which: descriptor})
    finally:
        os.close(descriptor)
    output = f"/opt/{expect.OUTPUT_NAME}"
    reported = "ZEPA107-W:The specified option(-d) cannot be specified twice or more.\n"
    log = expect.RunLog("-g demo -d /none -d /opt").raw(reported).initialized("demo", output=output)
    assert run.status == 0
    assert run.log == log.complete(output, output).text
    if which == "stdout":
        assert (run.stdout, run.stderr) == ("", reported)
    else:
        assert run.stderr == "" and run.stdout.endswith(expect.output_file(output))


def test_a_usage_text_that_cannot_be_written_does_not_matter(machine: Machine):
    writer = broken_pipe()
    try:
        run = machine.run("-h", stdout=writer)
    finally:
        os.close(writer)
    assert run.status == 255
    assert run.history == expect.history("-h", 255)


@pytest.mark.parametrize("environment", [
    {"LC_ALL": "C"}, {"LC_ALL": "C.UTF-8"}, {"LC_ALL": "none_NONE"}, {"LC_ALL": "", "LANG": "C"},
    {"LC_ALL": "", "LC_MESSAGES": "de_DE.UTF-8", "LANGUAGE": "de"},
])
def test_the_locale_changes_no_message(machine: Machine, environment: dict[str, str]):
    reported = "ZEPA104-E:The specified directory(/opt/\u00e4) does not exist.\n"
    arguments = ["-g", "\u00e4", "-d", "/opt/\u00e4"]
    check_refused(machine, machine.run(*arguments, env=environment), arguments, reported)
    machine.remove(RUN_LOCK)
    machine.directory(RUN_LOCK)
    run = machine.run(*GROUP, env=environment)
    assert run.stderr == expect.system_error("open", 21, RUN_LOCK)


def german(machine: Machine) -> dict[str, str]:
    """Makes a German locale on the machine; returns the environment that selects it."""
    made = machine.exec(["/usr/bin/localedef", "-i", "de_DE", "-f", "UTF-8",
                         "/opt/locale/de_DE.UTF-8"], check=False)
    assert machine.exists("/opt/locale/de_DE.UTF-8/LC_MESSAGES"), made
    return {"LOCPATH": "/opt/locale", "LC_ALL": "de_DE.UTF-8"}


def test_another_language_changes_no_message_no_number_and_no_time(machine: Machine):
    machine.directory("/opt/locale")
    environment = german(machine)
    setting = " ".join(f"{name}={value}" for name, value in environment.items())
    # The locale works, and the system has its translations.
    listed = machine.exec(f"{setting} /bin/ls /missing", check=False)
    assert "Datei oder Verzeichnis nicht gefunden" in listed.stderr
    counted = machine.exec(f"{setting} /usr/bin/printf \"%'d\" 1234567")
    assert counted.stdout == "1.234.567"
    machine.file("/opt/data", b"x" * 1_234_567)
    run = collect(machine, pattern_text.data("/opt/data"), pattern_text.data("/opt/none/*"),
                  env=environment)
    assert (run.status, run.stdout, run.stderr) == (0, complete_output(2), "")
    log = started_log().data({"/opt/data": 1_234_567}, 1_234_567)
    missing = expect.system_error("opendir", 2, "/opt/none", "IGCmnTree", warning=True)
    log.data({}, 1_234_567, missing + "ZEPA129-W:A system information(/opt/none/*) is not found.\n")
    assert run.log == log.complete().text
    run.check_times()
    machine.remove(RUN_LOCK)
    machine.directory(RUN_LOCK)
    refused = machine.run(*GROUP, env=environment)
    assert refused.stderr == expect.system_error("open", 21, RUN_LOCK)


@pytest.mark.parametrize("locale", ["C", "C.UTF-8"])
def test_names_that_are_found_are_the_same_in_every_locale(machine: Machine, locale: str):
    machine.file("/opt/d/\u00e4/\u20ac", "x")
    run = collect(machine, pattern_text.data("/opt/d"), env={"LC_ALL": locale})
    log = started_log().data({"/opt/d": 0, "/opt/d/\u00e4": 0, "/opt/d/\u00e4/\u20ac": 1}, 1)
    assert (run.status, run.stdout, run.stderr) == (0, complete_output(1), "")
    assert run.log == log.complete().text
    assert run.archive.read("opt/d/\u00e4/\u20ac") == b"x"


def test_the_environment_of_the_archivers_changes_no_result(machine: Machine):
    run = collect(machine, pattern_text.block(), env={
        "TAR_OPTIONS": "--exclude=quendil_index", "GZIP": "--keep", "POSIXLY_CORRECT": "1"})
    assert run.status == 0 and run.stderr == ""
    assert "quendil_index" in run.archive


def test_the_host_name_is_part_of_the_output_name(machine: Machine):
    machine.hostname("web-01.lan")
    run = collect(machine, pattern_text.block())
    assert os.path.basename(run.result).startswith("web_01_lan_")
    assert run.status == 0


def test_no_host_name_forges_a_line(machine: Machine):
    machine.hostname("web\n\x1b[2J")
    run = collect(machine, pattern_text.block())
    assert run.status == 0
    assert os.path.basename(run.result).startswith("web____2J_")


def test_times_are_those_of_the_run(machine: Machine):
    tool = machine.tool(behave.out("x"))
    run = collect(machine, pattern_text.tool(tool))
    run.check_times()
    assert all(run.began <= stamp <= run.ended for stamp in masking.stamps(run.result))
    written = masking.times(run.raw["history"] or "")
    assert len(written) == 2 and run.began <= written[0] <= written[1] <= run.ended


def test_the_program_needs_no_standard_input(machine: Machine):
    reader, writer = os.pipe()
    try:
        assert collect(machine, pattern_text.block(), stdin=reader).status == 0
    finally:
        os.close(reader)
        os.close(writer)


def test_runs_follow_one_another(machine: Machine):
    for number in range(3):
        run = collect(machine, pattern_text.block())
        assert run.status == 0
        one = expect.history("-g demo", 0, f"{expect.OUTPUT_DIRECTORY}.tar.gz")
        machine.remove(run.result)
        assert run.history == one * (number + 1)
    assert machine.outputs() == []
    assert machine.exists(QUENDIL)
