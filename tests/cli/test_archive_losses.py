"""Failures while the archive is made: the data is kept, and the run names where."""

from __future__ import annotations

import pytest
from support import behave, expect, pattern_text
from support.behave import exit
from support.collecting import begin, collect, started_log
from support.machine import DATA_DIRECTORY, Machine
from support.masking import mask_stamps
from support.run import Run
from support.tree import Tree, read_archive, read_directory

NOT_PACKED = "ZEPA132-W:An error occurred while an archiver was being executed.\n"
NOT_COMPRESSED = "ZEPA135-W:An error occurred while a compression was being executed.\n"
USE_AS_IS = ("ZEPA306-I:The archive file has not been compressed."
             " Use a following file as is.\n")
CONTENT = b"precious"


def collect_one(machine: Machine, *arguments: str, **how) -> Run:
    """A run that collects one file and a tool's output."""
    machine.file("/opt/data", CONTENT)
    tool = machine.tool(behave.out("output"))
    return collect(machine, pattern_text.data("/opt/data"),
                   pattern_text.tool(tool, redirect="%d%/df"), arguments=arguments, **how)


def check_whole(tree: Tree) -> None:
    """The tree contains everything that `collect_one` collects."""
    assert tree.read("df") == b"output" and "opt/data" in tree
    if tree["opt/data"].kind == "link":
        assert tree["opt/data"].target == "/opt/data"
    else:
        assert tree.read("opt/data") == CONTENT
    assert tree.read("quendil_index").count(b"\nFILE:opt/data\n") == 1


# ---- Directories that disappear -----------------------------------------------------------------


def test_a_removal_of_the_archives_directory_during_the_collection_leaves_the_output(
        machine: Machine):
    machine.directory("/opt/gone")
    machine.file("/opt/data", CONTENT)
    tool = machine.tool(behave.out("output"), behave.remove("/opt/gone"))
    run = collect(machine, pattern_text.data("/opt/data"),
                  pattern_text.tool(tool, redirect="%d%/df"), arguments=("-o", "/opt/gone/name"))
    assert run.status == 20 and run.stderr == NOT_PACKED
    assert run.log is not None and "/opt/gone/name.tar: Cannot open" in run.log
    assert run.stdout.endswith(expect.output_directory())
    check_whole(run.directory)
    assert run.history.count(f"ZEPA303-I:Output = {expect.OUTPUT_DIRECTORY}.\n") == 1


def test_a_renamed_directory_that_has_the_archive_in_it_leaves_the_output(machine: Machine):
    machine.directory("/opt/place")
    machine.replace("/bin/tar", behave.run("/opt/real/tar"),
                    behave.rename("/opt/place", "/opt/elsewhere"))
    run = collect_one(machine, "-o", "/opt/place/name")
    assert run.status == 20 and run.stderr == NOT_PACKED
    check_whole(run.directory)


def test_a_renamed_directory_of_the_archive_is_reported_when_it_is_compressed(machine: Machine):
    machine.directory("/opt/place")
    machine.replace("/bin/gzip", behave.rename("/opt/place", "/opt/elsewhere"),
                    behave.run("/opt/real/gzip"), exit("last"))
    run = collect_one(machine, "-o", "/opt/place/name")
    assert run.status == 10
    assert run.stderr.startswith(NOT_COMPRESSED + USE_AS_IS)
    assert machine.list("/opt/elsewhere") == ["name.tar"]  # where gzip's fake has moved it
    check_whole(read_archive(machine.path("/opt/elsewhere/name.tar")))


def test_a_working_directory_that_is_removed_while_packing_loses_nothing(machine: Machine):
    machine.directory("/opt/cwd")
    machine.replace("/bin/tar", behave.run("/opt/real/tar"), behave.remove("/opt/cwd"))
    run = collect_one(machine, cwd="/opt/cwd")
    assert (run.status, run.stderr) == (0, "")
    check_whole(run.archive)


# ---- What cannot be removed ---------------------------------------------------------------------


@pytest.mark.parametrize("size, end, reported", [
    (50, exit(1), NOT_COMPRESSED + USE_AS_IS), (50, exit(2), USE_AS_IS), (0, exit(0), NOT_PACKED),
], ids=["half done", "half done, exit 2", "empty"])
def test_an_unfinished_compressed_file_that_cannot_be_removed_is_reported(
        machine: Machine, size: int, end: behave.Action, reported: str):
    machine.replace("/bin/gzip", behave.gzwrite(size), behave.ready("/opt/ready"),
                    behave.wait_for("/opt/go"), end)
    machine.file("/opt/data", CONTENT)
    tool = machine.tool(behave.out("output"))
    run = begin(machine, pattern_text.data("/opt/data"),
                pattern_text.tool(tool, redirect="%d%/df"))
    run.wait_for("/opt/ready")
    gz, = (name for name in machine.list(DATA_DIRECTORY) if name.endswith(".gz"))
    machine.pin(f"{DATA_DIRECTORY}/{gz}")
    machine.file("/opt/go")
    ended = run.finish()
    left = expect.system_error("remove", 16, expect.OUTPUT_DIRECTORY + ".tar.gz", "IGArcMake",
                               warning=True)
    log = started_log().data({"/opt/data": len(CONTENT)}, len(CONTENT)).tool(tool)
    log.started("making").deleted().raw(left + reported).ended("making").cleaned()
    assert ended.log == log.finished(10, expect.archive_file()).text
    assert ended.status == 10 and ended.stderr == reported
    check_whole(ended.archive)


# ---- Archivers that the interrupting signal kills -----------------------------------------------


@pytest.mark.parametrize("number", ["INT", "TERM"])
@pytest.mark.parametrize("program, status", [("/bin/tar", 20), ("/bin/gzip", 10)])
def test_an_archiver_killed_by_the_interrupting_signal_leaves_the_data(machine: Machine,
                                                                       program: str, status: int,
                                                                       number: str):
    write = behave.tarwrite(10240) if status == 20 else behave.gzwrite(50)
    machine.replace(program, write, behave.kill(number, "group"), behave.forever())
    run = collect_one(machine)
    signal_number = 2 if number == "INT" else 15
    assert run.status == status
    assert run.stderr == f"ZEPA136-E:quendil was interrupted. signal no = {signal_number}.\n"
    assert machine.outputs() == [expect.OUTPUT_NAME + ("" if status == 20 else ".tar")]
    check_whole(run.directory if status == 20 else run.archive)


# ---- A tar that fails, and another failure after it ---------------------------------------------


def test_a_failed_tar_and_an_existing_compressed_file_leave_the_tar_file(machine: Machine):
    machine.replace("/bin/tar", behave.run("/opt/real/tar"),
                    behave.write("/opt/name.tar.gz", "his"), exit(1))
    run = collect_one(machine, "-o", "/opt/name")
    there = "ZEPA109-E:The specified file(/opt/name.tar.gz) already exists.\n"
    assert run.status == 10 and run.stderr == there + NOT_COMPRESSED + USE_AS_IS
    assert run.result == "/opt/name.tar" and machine.read("/opt/name.tar.gz") == "his"
    check_whole(run.archive)


def test_a_failed_tar_and_an_interruption_leave_the_tar_file(machine: Machine):
    machine.replace("/bin/tar", behave.run("/opt/real/tar"), exit(1))
    machine.replace("/bin/rm", behave.run("/opt/real/rm"), behave.exit(130))  # killed by SIGINT
    run = collect_one(machine)
    message = "ZEPA136-E:quendil was interrupted. signal no = 2.\n"
    assert run.status == 10 and run.stderr == message + NOT_COMPRESSED + USE_AS_IS
    assert machine.outputs() == [expect.OUTPUT_NAME + ".tar"]
    check_whole(run.archive)


def test_a_gzip_that_removes_the_archive_and_writes_nothing_is_reported(machine: Machine):
    machine.replace("/bin/gzip", behave.gzconsume())
    run = collect_one(machine)
    # gzip itself has removed the data: the run must report that.
    assert run.status == 10 and run.stderr.startswith(NOT_PACKED)
    assert machine.outputs() == [] and " = " not in run.stdout.rpartition("\r")[2]


# ---- Full disks ---------------------------------------------------------------------------------


def every_whole_copy(machine: Machine) -> list[str]:
    """The directories and archives that contain all the data."""
    found = []
    for name in machine.list(DATA_DIRECTORY):
        path = machine.path(f"{DATA_DIRECTORY}/{name}")
        try:
            check_whole(read_directory(path) if path.is_dir() else read_archive(path))
        except (AssertionError, OSError, EOFError):
            continue  # an unfinished archive
        except Exception as error:  # noqa: BLE001 - tarfile raises many types
            assert type(error).__module__ in ("tarfile", "zlib"), error
            continue
        found.append(name)
    return found


@pytest.mark.parametrize("leave", [0, 4096, 8192, 12288, 16384, 32768])
def test_on_a_disk_that_becomes_full_a_whole_copy_stays_and_is_the_result(machine: Machine,
                                                                          leave: int):
    machine.small_tmpfs(DATA_DIRECTORY, 400_000)
    machine.file("/opt/data", CONTENT)
    filler = f"{DATA_DIRECTORY}/filler"
    fill = machine.file("/opt/fill", "#!/bin/sh\n"
                        f"free=$(($(stat -f -c '%a * %S' {DATA_DIRECTORY}) - {leave}))\n"
                        f"head -c $free /dev/zero > {filler}\n", 0o755)
    tool = machine.tool(behave.out("output"))
    run = collect(machine, pattern_text.data("/opt/data"),
                  pattern_text.tool(tool, redirect="%d%/df"), pattern_text.tool(fill))
    machine.remove(filler)
    names = every_whole_copy(machine)
    assert names, f"the data is lost: {run}"
    reported = [name for name in names if f" = {DATA_DIRECTORY}/{name}." in run.raw["stdout"]]
    assert reported, f"no whole copy is reported: {run}"
    directory = f"ZEPA215-I:Output = {expect.OUTPUT_DIRECTORY}.\n" in run.stdout
    ending = {0: ".tar.gz", 10: "" if directory else ".tar", 20: ""}[run.status]
    assert expect.OUTPUT_NAME + ending in [mask_stamps(name) for name in reported], run
