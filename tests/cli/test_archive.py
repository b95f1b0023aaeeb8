"""The archive: how it is made and named, and what happens to the data when a step fails."""

from __future__ import annotations

import os
import random

import pytest
from support import behave, expect, pattern_text
from support.behave import err, exit
from support.collecting import begin, collect, complete_output, started_log
from support.machine import DATA_DIRECTORY, LOG_DIRECTORY, Machine
from support.progress import complete, initialized
from support.tree import read_archive, read_directory

NOT_PACKED = "ZEPA132-W:An error occurred while an archiver was being executed.\n"
NOT_COMPRESSED = "ZEPA135-W:An error occurred while a compression was being executed.\n"
USE_AS_IS = ("ZEPA306-I:The archive file has not been compressed."
             " Use a following file as is.\n")
ALWAYS = ["quendil.log", "quendil_hist.log", "quendil_index"]
NOISE = random.Random(0).randbytes(300_000)


def exists_already(path: str) -> str:
    """The message about a file that already has the archive's name."""
    return f"ZEPA109-E:The specified file({path}) already exists.\n"


def without(machine: Machine, program: str) -> None:
    """Makes every start of a program of the system fail with ENOENT."""
    machine.file("/opt/tools/none", "#!/opt/no/such/interpreter\n", 0o755)
    machine.mount("--bind", "/opt/tools/none", os.path.realpath(program))


def not_executable(machine: Machine, program: str) -> None:
    """Replaces a program of the system by a file that cannot be executed."""
    machine.file("/opt/tools/plain", "#!/bin/sh\n", 0o644)
    machine.mount("--bind", "/opt/tools/plain", os.path.realpath(program))


DENIED = expect.system_error("execv", 13, source="IGCmnProcess", warning=True)


# ---- The archive itself -------------------------------------------------------------------------


def test_the_archive_takes_the_place_of_the_directory(machine: Machine):
    machine.file("/opt/data", "x", 0o640, (3, 4), 1_000_000_000)
    run = collect(machine, pattern_text.data("/opt/data"))
    assert run.status == 0 and run.stdout == complete_output(1) and run.stderr == ""
    assert machine.outputs() == [expect.OUTPUT_NAME + ".tar.gz"]
    assert machine.mode(run.result) == "0600" and machine.status(run.result).st_uid == 0
    archive = run.archive
    assert archive.top == os.path.basename(run.result).removesuffix(".tar.gz")
    assert archive.kinds() == {
        "": ("directory", "0700"), "opt": ("directory", "0755"), "opt/data": ("file", "0640"),
        "quendil.log": ("file", "0600"), "quendil_hist.log": ("file", "0600"),
        "quendil_index": ("file", "0600")}
    size = machine.status(run.result).st_size
    assert f"Output file = {run.result}. size = {size} bytes." in run.raw["stdout"]


def test_the_logs_in_the_archive_are_those_of_the_run(machine: Machine):
    tool = machine.tool(err("reported\n"))
    run = collect(machine, pattern_text.tool(tool))
    log, history = (run.archive.read(name).decode() for name in ALWAYS[:2])
    assert run.raw["log"] is not None and run.raw["log"].startswith(log)
    assert run.log == started_log().tool(tool, errors="reported\n").complete().text
    assert log.endswith("ZEPA202-I:Started making.\n")
    assert run.raw["history"] is not None and run.raw["history"].startswith(history)
    assert history.endswith("ZEPA302-I:quendil argument is -g demo.\n")
    assert run.archive["quendil.log"].mode == machine.mode(f"{LOG_DIRECTORY}/quendil.log")


def test_the_old_history_is_packed_if_it_exists(machine: Machine):
    machine.file(f"{LOG_DIRECTORY}/quendil_hist_old.log", "older\n", 0o600, (0, 0), 1_000_000_000)
    run = collect(machine, pattern_text.block())
    assert run.archive.read("quendil_hist_old.log") == b"older\n"
    assert run.archive["quendil_hist_old.log"].mtime == 1_000_000_000


@pytest.mark.parametrize("name", ["result", "two words", "r\u00e9sultat", "$(touch pwned)", "a.tar",
                                  "%HOST%", "`touch pwned`", "-rf", "*", "back\\slash", "a;b&c"])
def test_an_archive_can_be_given_another_name(machine: Machine, name: str):
    machine.file("/opt/data", "x")
    output = machine.directory("/opt/out dir") + "/" + name
    run = collect(machine, pattern_text.data("/opt/data"), arguments=("-o", output))
    assert run.status == 0 and run.stderr == ""
    assert machine.list("/opt/out dir") == [f"{name}.tar.gz"] and machine.outputs() == []
    assert run.stdout == complete_output(1, output)
    assert run.archive.top.startswith("testhost_") and run.archive.read("opt/data") == b"x"
    assert run.history == expect.history(
        expect.argument_string(["-g", "demo", "-o", output]), 0, output + ".tar.gz")


@pytest.mark.parametrize("name", ["two words", "$(touch pwned)", "`touch pwned`", "a\\", "*", "-rf",
                                  "new\nline", "d\u00fcrr"])
def test_an_output_directory_can_have_any_name(machine: Machine, name: str):
    machine.file("/opt/data", "x")
    machine.directory(f"/opt/{name}")
    run = collect(machine, pattern_text.data("/opt/data"), arguments=("-d", f"/opt/{name}"))
    assert run.status == 0 and run.stderr == ""
    made, = machine.list(f"/opt/{name}")
    assert made.endswith(".tar.gz")
    assert read_archive(machine.path(f"/opt/{name}/{made}")).read("opt/data") == b"x"
    assert not machine.exists("/opt/pwned") and not machine.exists(f"/opt/{name}/pwned")


INJECTION = 'a" --checkpoint=1 "--checkpoint-action=exec=touch pwned" "b'


@pytest.mark.parametrize("name", ['quo"te', '"', 'two "quoted words" here', INJECTION],
                         ids=["one quote", "a quote alone", "two quotes", "options"])
@pytest.mark.parametrize("option", ["-d", "-o"])
def test_no_quote_in_a_name_adds_an_argument_to_the_archivers(machine: Machine, option: str,
                                                              name: str):
    machine.file("/opt/data", b"x" * 100_000)
    target = f"/opt/out/{name}"
    machine.directory(target if option == "-d" else "/opt/out")
    run = collect(machine, pattern_text.data("/opt/data"), arguments=(option, target))
    # Only these directories are writable.
    private = ["/opt", "/var/opt", "/etc/opt", "/tmp"]
    assert machine.exec(["/usr/bin/find", *private, "-name", "pwned"]).stdout == ""
    assert run.status == 0
    assert run.archive.files()["opt/data"] == b"x" * 100_000


@pytest.mark.parametrize("code", [1, 2, 5])
def test_a_complete_archive_of_a_tar_that_failed_is_the_result(machine: Machine, code: int):
    machine.replace("/bin/tar", behave.run("/opt/real/tar"), err("tar: complaint\n"), exit(code))
    run = collect(machine, pattern_text.block())
    assert run.status == 0 and run.stderr == ""
    log = started_log().started("making").raw("tar: complaint\n").deleted().ended("making")
    assert run.log == log.cleaned().finished(0, expect.output_file()).text
    assert sorted(run.archive.files()) == ALWAYS


def test_the_archivers_are_called_with_these_arguments(machine: Machine):
    machine.replace("/bin/tar", behave.report("/opt/tar"), behave.run("/opt/real/tar"))
    machine.replace("/bin/gzip", behave.report("/opt/gzip"), behave.run("/opt/real/gzip"))
    run = begin(machine, pattern_text.block(), umask=0o022,
                env={"TAR_OPTIONS": "--remove-files", "GZIP": "--keep"})
    ended = run.finish()
    base = ended.result.removesuffix(".tar.gz")
    for name, words in (("tar", ["cfh", base + ".tar", os.path.basename(base)]),
                        ("gzip", [base + ".tar"])):
        state = machine.report(f"/opt/{name}")
        arguments = [value for key, value in state.items() if key.startswith("arg")]
        assert arguments[-len(words):] == words
        # They share the run's group, so that a terminal's signals reach them.
        assert state["pgid"] == str(run.pid)
        assert [key for key in state if key.startswith("fd")] == ["fd0", "fd1", "fd2"]
        assert state["fd1"] == "w /dev/null"
        assert state["fd2"] == f"w {LOG_DIRECTORY}/quendil_stderr.log"
        assert (state["umask"], state["blocked"], state["ignored"]) == ("0066", "", "")
    assert machine.report("/opt/tar")["cwd"] == DATA_DIRECTORY
    assert machine.report("/opt/gzip")["cwd"] == "/"


# ---- When packing fails -------------------------------------------------------------------------

TAR_FAILURES = {
    "missing": (without, ""), "not executable": (not_executable, DENIED),
    "exit 1": ([err("tar: no\n"), exit(1)], "tar: no\n"), "exit 2": ([exit(2)], ""),
    "killed": ([behave.die("KILL")], ""), "no output": ([exit(0)], ""),
    "empty": ([behave.tarwrite(0)], ""), "exit 255": ([err("no\n"), exit(255)], "no\n"),
}


def break_program(machine: Machine, program: str, how) -> None:
    """Makes a program fail in one of the ways of a table."""
    if callable(how):
        how(machine, program)
    else:
        machine.replace(program, *how)


@pytest.mark.parametrize("way", TAR_FAILURES)
def test_a_tar_that_fails_leaves_the_directory(machine: Machine, way: str):
    how, logged = TAR_FAILURES[way]
    break_program(machine, "/bin/tar", how)
    machine.file("/opt/data", "x")
    tool = machine.tool(behave.out("kept"))
    run = collect(machine, pattern_text.data("/opt/data"),
                  pattern_text.tool(tool, redirect="%d%/df"))
    assert run.status == 20
    assert run.stderr == NOT_PACKED
    log = started_log().data({"/opt/data": 1}, 1).tool(tool).started("making").raw(logged)
    log.raw(NOT_PACKED).ended("making").cleaned()
    assert run.log == log.finished(20, expect.output_directory()).text
    bar = initialized().collect(2).step(2).archive().newline().cleanup().step().end()
    assert run.stdout == bar.text + expect.output_directory()
    assert run.history == expect.history("-g demo", 20, expect.OUTPUT_DIRECTORY)
    assert machine.outputs() == [expect.OUTPUT_NAME]
    assert sorted(run.directory.files()) == ["df", *ALWAYS]
    assert run.directory["opt/data"].target == "/opt/data"


def test_an_unfinished_archive_that_cannot_be_removed_is_reported(machine: Machine):
    machine.replace("/bin/tar", behave.tarwrite(0), behave.ready("/opt/ready"),
                    behave.wait_for("/opt/go"), exit(1))
    run = begin(machine, pattern_text.block())
    run.wait_for("/opt/ready")
    tar, = (name for name in machine.list(DATA_DIRECTORY) if name.endswith(".tar"))
    machine.pin(f"{DATA_DIRECTORY}/{tar}")
    machine.file("/opt/go")
    ended = run.finish()
    path = expect.OUTPUT_DIRECTORY + ".tar"
    reported = expect.system_error("remove", 16, path, "IGArcMake", warning=True)
    log = started_log().started("making").raw(reported + NOT_PACKED).ended("making").cleaned()
    assert ended.log == log.finished(20, expect.output_directory()).text
    assert ended.status == 20 and ended.stderr == NOT_PACKED


def test_a_run_packs_though_its_working_directory_was_removed(machine: Machine):
    machine.directory("/opt/gone")
    tool = machine.tool(behave.remove("/opt/gone"))
    run = collect(machine, pattern_text.tool(tool), cwd="/opt/gone")
    assert run.log == started_log().tool(tool).complete().text
    assert run.status == 0 and sorted(run.archive.files()) == ALWAYS


# ---- When compressing fails ---------------------------------------------------------------------

NO_GZ = expect.system_error("stat", 2, expect.OUTPUT_DIRECTORY + ".tar.gz", "IGCmnTree",
                            warning=True)
GZIP_FAILURES = {
    "missing": (without, "", NOT_COMPRESSED + USE_AS_IS),
    "not executable": (not_executable, DENIED, NOT_COMPRESSED + USE_AS_IS),
    "exit 1": ([err("gzip: no\n"), exit(1)], "gzip: no\n", NOT_COMPRESSED + USE_AS_IS),
    "exit 2": ([err("gzip: warning\n"), exit(2)], "gzip: warning\n", USE_AS_IS),
    "exit 3": ([exit(3)], "", NOT_COMPRESSED + USE_AS_IS),
    "exit 255": ([exit(255)], "", NOT_COMPRESSED + USE_AS_IS),
    "killed": ([behave.die("TERM")], "", NOT_COMPRESSED + USE_AS_IS),
    "half done": ([behave.gzwrite(50), exit(1)], "", NOT_COMPRESSED + USE_AS_IS),
    "half done, killed": ([behave.gzwrite(50), behave.die("KILL")], "",
                          NOT_COMPRESSED + USE_AS_IS),
    "half done, exit 2": ([behave.gzwrite(50), exit(2)], "", USE_AS_IS),
    "no output": ([exit(0)], NO_GZ, NOT_PACKED), "empty": ([behave.gzwrite(0)], "", NOT_PACKED),
}


@pytest.mark.parametrize("way", GZIP_FAILURES)
def test_a_gzip_that_fails_leaves_the_tar_file(machine: Machine, way: str):
    how, logged, reported = GZIP_FAILURES[way]
    break_program(machine, "/bin/gzip", how)
    machine.file("/opt/data", "x")
    run = collect(machine, pattern_text.data("/opt/data"))
    assert run.status == 10
    assert run.stderr == reported
    log = started_log().data({"/opt/data": 1}, 1).started("making").deleted()
    log.raw(logged + reported).ended("making").cleaned()
    assert run.log == log.finished(10, expect.archive_file()).text
    bar = initialized().collect(1).step().archive().step(2).newline().cleanup().step().end()
    assert run.stdout == bar.text + expect.archive_file()
    assert run.history == expect.history("-g demo", 10, expect.OUTPUT_DIRECTORY + ".tar")
    assert machine.outputs() == [expect.OUTPUT_NAME + ".tar"]
    assert run.archive.read("opt/data") == b"x"


@pytest.mark.parametrize("end", [exit(1), exit(2), behave.die("KILL")])
def test_a_gzip_that_fails_after_its_work_loses_nothing(machine: Machine, end: behave.Action):
    machine.replace("/bin/gzip", behave.run("/opt/real/gzip"), end)
    machine.file("/opt/data", "x")
    run = collect(machine, pattern_text.data("/opt/data"))
    assert machine.outputs() == [expect.OUTPUT_NAME + ".tar.gz"]
    # The path that the run reports must be that of this archive.
    assert run.archive.read("opt/data") == b"x"


def test_a_gzip_that_fails_is_reported_under_the_chosen_name(machine: Machine):
    machine.replace("/bin/gzip", exit(1))
    run = collect(machine, pattern_text.block(), arguments=("-o", "/opt/result"))
    assert run.status == 10 and run.result == "/opt/result.tar"
    assert machine.outputs() == []


@pytest.mark.parametrize("length, suffix", [(248, ".tar.gz"), (249, ".tar"), (251, ".tar")])
def test_an_archive_whose_name_has_no_room_for_gz_is_not_compressed(machine: Machine, length: int,
                                                                    suffix: str):
    machine.file("/opt/data", "x")
    base = machine.directory("/opt/out") + "/" + "n" * length
    run = collect(machine, pattern_text.data("/opt/data"), arguments=("-o", base))
    compressed = suffix == ".tar.gz"
    assert (run.status, run.result) == (0 if compressed else 10, base + suffix)
    assert run.stderr == ("" if compressed else NOT_COMPRESSED + USE_AS_IS)
    assert machine.list("/opt/out") == ["n" * length + suffix]
    assert run.archive.read("opt/data") == b"x"
    reported = expect.system_error("lstat", 36, base + ".tar.gz", "IGArcMake", warning=True)
    assert run.log is not None and (reported + NOT_COMPRESSED in run.log) == (not compressed)


# ---- Files with the archive's name --------------------------------------------------------------


@pytest.mark.parametrize("chosen", [False, True], ids=["default name", "-o"])
def test_a_tar_file_that_appears_meanwhile_is_left_alone(machine: Machine, chosen: bool):
    base = "/opt/result" if chosen else expect.OUTPUT_DIRECTORY
    written = "/opt/result" if chosen else "%d%"
    run = collect(machine, pattern_text.tool(f"{behave.PROGRAM} write {written}.tar mine"),
                  arguments=("-o", "/opt/result") if chosen else ())
    assert run.status == 20
    assert run.stderr == exists_already(base + ".tar")
    place = run.result + ".tar" if not chosen else "/opt/result.tar"
    assert machine.read(place) == "mine"
    assert sorted(run.directory.files()) == ALWAYS


@pytest.mark.parametrize("chosen", [False, True], ids=["default name", "-o"])
def test_a_compressed_file_that_appears_meanwhile_is_left_alone(machine: Machine, chosen: bool):
    base = "/opt/result" if chosen else expect.OUTPUT_DIRECTORY
    written = "/opt/result" if chosen else "%d%"
    run = collect(machine, pattern_text.tool(f"{behave.PROGRAM} write {written}.tar.gz mine"),
                  arguments=("-o", "/opt/result") if chosen else ())
    assert run.status == 10
    assert run.stderr == exists_already(base + ".tar.gz")
    assert machine.read(run.result + ".gz") == "mine"
    assert sorted(run.archive.files()) == ALWAYS


@pytest.mark.parametrize("suffix", [".tar", ".tar.gz"])
def test_a_dangling_link_with_the_archives_name_is_not_followed(machine: Machine, suffix: str):
    machine.file("/opt/tool", behave.script(behave.link("/opt/victim", f"/opt/result{suffix}")),
                 0o755)
    collect(machine, pattern_text.tool("/opt/tool"), arguments=("-o", "/opt/result"))
    assert not machine.exists("/opt/victim")


def test_no_user_can_put_a_link_in_the_archives_place_before_it_is_written(machine: Machine):
    machine.file("/opt/victim", "whole")
    late = behave.child(behave.link("/opt/victim", "/opt/result.tar"))
    machine.replace("/bin/tar", late, behave.wait(), behave.become("/opt/real/tar"))
    run = collect(machine, pattern_text.block(), arguments=("-o", "/opt/result"))
    assert run.status == 0
    assert machine.read("/opt/victim") == "whole"
    assert machine.mode("/opt/result.tar.gz") == "0600"


# ---- Logs that cannot be copied -----------------------------------------------------------------


def test_logs_that_cannot_be_copied_are_reported_and_left_out(machine: Machine):
    machine.file(f"{LOG_DIRECTORY}/quendil_hist_old.log", "older\n")
    machine.replace("/bin/cp", exit(1))
    run = collect(machine, pattern_text.block())
    run_log = f"ZEPA133-W:An attempt to copy the logfile ({expect.RUN_LOG}) has failed.\n"
    others = "".join(
        f"ZEPA142-W:An attempt to copy the logfile ({LOG_DIRECTORY}/{name}) has failed.\n"
        for name in ("quendil_hist.log", "quendil_hist_old.log"))
    assert run.status == 0
    assert run.stderr == run_log
    log = started_log().started("making").raw(run_log + others).deleted().ended("making")
    assert run.log == log.cleaned().finished(0, expect.output_file()).text
    assert run.stdout == initialized().collect(0).archive().newline().step(3).cleanup().step(
        ).end().text + expect.output_file()
    assert sorted(run.archive.files()) == ["quendil_index"]


def test_a_file_of_a_tool_with_the_name_of_a_log_is_kept(machine: Machine):
    tool = machine.tool(behave.out("the tool's"))
    run = collect(machine, pattern_text.tool(tool, redirect="%d%/quendil.log"))
    failed = f"ZEPA133-W:An attempt to copy the logfile ({expect.RUN_LOG}) has failed.\n"
    assert run.status == 0 and run.stderr == failed
    assert run.archive.read("quendil.log") == b"the tool's"


# ---- A directory that cannot be removed ---------------------------------------------------------


def test_a_directory_that_cannot_be_removed_stays_beside_its_archive(machine: Machine):
    machine.replace("/bin/rm", exit(1))
    run = collect(machine, pattern_text.block())
    assert run.status == 0 and run.stderr == ""
    assert run.log is not None and "msg = rm command failed.\n" in run.log
    assert machine.outputs() == [expect.OUTPUT_NAME, expect.OUTPUT_NAME + ".tar.gz"]


# ---- A full disk --------------------------------------------------------------------------------


def held_somewhere(machine: Machine, name: str, content: bytes) -> bool:
    """Whether a directory or archive in the data directory contains the complete file."""
    for entry in machine.list(DATA_DIRECTORY):
        path = machine.path(f"{DATA_DIRECTORY}/{entry}")
        try:
            tree = read_directory(path) if path.is_dir() else read_archive(path)
        except (OSError, EOFError, AssertionError):
            continue  # an unfinished archive
        except Exception as error:  # noqa: BLE001 - tarfile raises many types for one
            assert type(error).__module__ in ("tarfile", "zlib"), error
            continue
        if tree.files().get(name) == content:
            return True
    return False


def test_a_disk_that_is_full_while_packing_loses_nothing_and_the_directory_is_named(
        machine: Machine):
    machine.small_tmpfs(DATA_DIRECTORY, 500_000)
    machine.file("/opt/noise", NOISE)
    machine.file("/opt/copy", "#!/bin/sh\nexec /bin/cat /opt/noise\n", 0o755)
    run = collect(machine, pattern_text.tool("/opt/copy", redirect="%d%/noise"))
    assert held_somewhere(machine, "noise", NOISE)
    assert f"ZEPA215-I:Output = {expect.OUTPUT_DIRECTORY}.\n" in run.stdout
    assert "Error is not recoverable" in run.log


GIB_9 = (9 << 30).to_bytes(8, "big")


@pytest.mark.parametrize("size, follows, whole", [
    (b"%011o\0" % 512, 512, True), (b"%011o\0" % 512, 0, False), (b"%011o\0" % 513, 512, False),
    (b"\x80\0\0\0" + GIB_9, 9 << 30, True), (b"\x80\0\0\0" + GIB_9, 512, False),
    (b"0000000089x\0", 512, False), (b"\x80\0\0\0" + b"\x7f" + b"\xff" * 7, 512, False),
], ids=["octal", "octal, truncated", "octal, beyond a block, truncated", "binary",
        "binary, truncated", "no number", "beyond all files"])
def test_a_tar_that_failed_replaces_the_directory_only_by_a_whole_archive(
        machine: Machine, size: bytes, follows: int, whole: bool):
    # One header, so many bytes of the file after it, and the two blocks of zeros at the end.
    header = b"name".ljust(124, b"\0") + size
    machine.file("/opt/header", header.ljust(512, b"1"))
    machine.file("/opt/tools/tar", '#!/bin/sh\ncp /opt/header "$2"\n'
                 f'truncate -s {512 + follows + (1024 if whole else 0)} "$2"\nexit 2\n', 0o755)
    machine.mount("--bind", "/opt/tools/tar", os.path.realpath("/bin/tar"))
    machine.replace("/bin/gzip", exit(1))
    run = collect(machine, pattern_text.block())
    assert run.status == 10
    directory = f"ZEPA215-I:Output = {expect.OUTPUT_DIRECTORY}.\n"
    assert (directory in run.stdout) == (not whole)
    names = [expect.OUTPUT_NAME] if not whole else []
    assert machine.outputs() == [*names, expect.OUTPUT_NAME + ".tar"]


def test_a_disk_that_is_full_while_compressing_leaves_the_tar_file(machine: Machine):
    machine.small_tmpfs(DATA_DIRECTORY, 500_000)
    machine.file("/opt/noise", NOISE)
    run = collect(machine, pattern_text.data("/opt/noise"))
    assert run.status == 10
    assert run.stderr == NOT_COMPRESSED + USE_AS_IS
    assert machine.outputs() == [expect.OUTPUT_NAME + ".tar"]
    assert run.archive.read("opt/noise") == NOISE


def test_a_disk_that_is_full_from_the_start_ends_the_run(machine: Machine):
    machine.small_tmpfs(DATA_DIRECTORY, 65536, inodes=64)
    machine.fill(DATA_DIRECTORY)
    machine.file("/opt/data", "x")
    run = collect(machine, pattern_text.data("/opt/data"))
    assert run.status == 255
    assert machine.list(DATA_DIRECTORY) == ["filler"]
    assert "No space left on device" in run.stderr


def test_a_complete_run_leaves_nothing_else(machine: Machine):
    before = machine.list("/opt"), machine.list("/tmp"), machine.list(LOG_DIRECTORY)
    run = collect(machine, pattern_text.block())
    assert run.stdout == complete(0).text + expect.output_file()
    assert (machine.list("/opt"), machine.list("/tmp")) == before[:2]
    assert machine.list(LOG_DIRECTORY) == ["quendil.log", "quendil_hist.log", "quendil_stderr.log"]
