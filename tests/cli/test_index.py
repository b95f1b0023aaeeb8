"""The index file, byte for byte."""

from __future__ import annotations

import pytest
from support import behave, expect, masking, pattern_text
from support.collecting import collect
from support.machine import DATA_DIRECTORY, Machine

HEAD = expect.index_header("-g demo")


def described(*lines: str) -> str:
    """A data item with its path and these statements."""
    inner = "\n".join(f"        {line}" for line in lines)
    return f"DATA_BLOCK {{\n{inner}\n        PATH_NAME = /opt/data\n    }}"


@pytest.fixture
def data(machine: Machine) -> str:
    """One file to collect."""
    return machine.file("/opt/data", "x")


def test_the_whole_index_of_a_run(machine: Machine, data: str):
    machine.file("/opt/tree/file", "y")
    tool = machine.tool(behave.out("z"))
    run = collect(machine, pattern_text.data(data, "one", "two", file_type="binary"),
                  pattern_text.tool(tool, redirect="%d%/own"), pattern_text.data("/opt/none"),
                  pattern_text.data("/opt/tree", file_type="directory"),
                  pattern_text.data("%d%/own", "own"))
    assert run.index == """\
quendil [Ver. 01-02]
quendil -g demo

FILE:opt/data
DESC:one
DESC:two
DATE:<STAMP>
TYPE:binary

FILE:opt/tree
FILE:opt/tree/file
DESC:
DATE:<STAMP>
TYPE:directory

FILE:own
DESC:own
DATE:<STAMP>
TYPE:text
"""
    for stamp in masking.stamps(run.raw_index):
        assert run.began <= stamp <= run.ended


@pytest.mark.parametrize("word, shown", [
    ("text", "text"), ("binary", "binary"), ("archive", "archive"), ("directory", "directory"),
    ("Text", "Text"), ("core", "core"), ("twenty-bytes-of-type", "twenty-bytes-of-type"),
    ('"two words"', "two words"), ("", "text"), ("100%%", "100%"), (None, "text"),
])
def test_the_type_of_a_record(machine: Machine, data: str, word: str | None, shown: str):
    item = described(*([] if word is None else [f"FILE_TYPE = {word}"]))
    assert collect(machine, item).index == HEAD + expect.index_record("opt/data", file_type=shown)


@pytest.mark.parametrize("statements, descriptions", [
    ([], [""]), (["DESCRIPTION ="], [""]), (["DESCRIPTION = a", "DESCRIPTION = b"], ["a", "b"]),
    (['DESCRIPTION = "of several words"'], ["of several words"]),
    (['DESCRIPTION = "100%% %HOST%"'], ["100% %HOST%"]),
    (["DESCRIPTION = a", 'DESCRIPTION = "100%%"'], ["a", "100%%"]),
    ([f"DESCRIPTION = {'x' * 256}"], ["x" * 256]),
    ([f"DESCRIPTION = x{number}" for number in range(50)], [f"x{number}" for number in range(50)]),
], ids=["none", "empty", "two", "words", "percent", "further", "long", "many"])
def test_the_descriptions_of_a_record(machine: Machine, data: str, statements: list[str],
                                      descriptions: list[str]):
    run = collect(machine, described(*statements))
    assert run.index == HEAD + expect.index_record("opt/data", descriptions=descriptions)


def test_a_record_without_files_has_one_empty_line_for_them(machine: Machine, data: str):
    run = collect(machine, pattern_text.data(data), pattern_text.data(data, "again"))
    assert run.index == HEAD + expect.index_record("opt/data") + expect.index_record(
        descriptions=["again"])


@pytest.mark.parametrize("arguments", [
    ["-g", "demo"], ["-g", "demo", "-g", "other group"], ["-G", "demo", "-d", "/opt/out dir"],
    ["-g", "demo", "-g", "tab\there"], ["-g", "demo", "-g", "it's one"],
])
def test_the_head_has_the_arguments_of_the_program(machine: Machine, data: str,
                                                   arguments: list[str]):
    machine.directory("/opt/out dir")
    machine.pattern("10_demo", pattern_text.pattern(pattern_text.data(data)))
    run = machine.run(*arguments)
    shown = expect.argument_string(arguments)
    assert run.index == expect.index_header(shown) + expect.index_record("opt/data")


@pytest.mark.parametrize("name, shown", [
    ("other", "other"), ("/some/where/else", "else"), ("./quendil", "quendil")])
def test_the_head_has_the_name_that_the_program_was_called_by(machine: Machine, data: str,
                                                              name: str, shown: str):
    if machine.wrapped:
        pytest.skip("a wrapped program cannot be called by another name")
    machine.pattern("10_demo", pattern_text.pattern(pattern_text.data(data)))
    run = machine.run("-g", "demo", argv0=name)
    assert run.index.splitlines()[1] == f"{shown} -g demo"


def test_files_of_a_target_have_its_directory_in_their_paths(machine: Machine, data: str):
    targets = [pattern_text.quoted("Net & more"), "second"]
    run = collect(machine, pattern_text.block(pattern_text.data(data), targets=targets))
    assert run.index == HEAD + expect.index_record("Net___more/opt/data")
    assert run.archive.read("Net___more/opt/data") == b"x"


def test_only_the_targets_that_were_chosen_name_the_directory(machine: Machine, data: str):
    machine.pattern("10_demo", pattern_text.pattern(
        pattern_text.block(pattern_text.data(data), targets=["first"]),
        pattern_text.block(pattern_text.data(data, "chosen"), targets=["second", "third"])))
    run = machine.run("-t", "third")
    assert run.index == expect.index_header("-t third") + expect.index_record(
        "second/opt/data", descriptions=["chosen"])


def test_a_run_without_data_items_has_an_index_too(machine: Machine):
    run = collect(machine, pattern_text.tool(machine.tool(behave.out(""))))
    assert run.index == HEAD


def test_only_root_may_read_the_index(machine: Machine, data: str):
    run = collect(machine, pattern_text.data(data), umask=0)
    assert run.archive["quendil_index"][:4] == ("file", "0600", 0, 0)


def test_no_tool_can_have_the_index_written_elsewhere(machine: Machine, data: str):
    machine.file("/opt/victim", "untouched")
    machine.file("/opt/tool", behave.script(behave.remove("quendil_index"),
                                            behave.link("/opt/victim", "quendil_index")), 0o755)
    run = collect(machine, pattern_text.tool(f"{behave.PROGRAM} cd %d% exec /opt/tool"),
                  pattern_text.data(data))
    assert run.status == 255
    assert machine.read("/opt/victim") == "untouched"


def test_an_index_that_cannot_be_written_ends_the_run(machine: Machine, data: str):
    machine.file("/opt/tool", behave.script(behave.remove("quendil_index"),
                                            behave.directory("quendil_index")), 0o755)
    run = collect(machine, pattern_text.tool(f"{behave.PROGRAM} cd %d% exec /opt/tool"),
                  pattern_text.data(data), pattern_text.tool(machine.tool(
                      behave.write("/opt/never", ""))))
    reported = expect.system_error("fopen", 21, f"{expect.OUTPUT_DIRECTORY}/quendil_index",
                                   "IGCmnFile", warning=True)
    assert run.status == 255 and machine.outputs() == []
    assert run.log is not None and reported in run.log
    assert not machine.exists("/opt/never")
    # The warning was in the log only; because it ended the run, the terminal shows it too.
    assert run.stderr == reported.splitlines(keepends=True)[0] + expect.LOOK_AT_LOG


def test_a_head_that_is_too_long_for_the_disk_is_reported_as_a_failed_write(machine: Machine):
    machine.small_tmpfs(DATA_DIRECTORY, 4096)
    machine.fill(DATA_DIRECTORY)
    names = [word for number in range(20) for word in ("-g", f"{number:0256}")]
    run = collect(machine, pattern_text.block(), arguments=tuple(names))
    index = f"{expect.OUTPUT_DIRECTORY}/quendil_index"
    assert run.status == 255
    assert run.stderr == expect.system_error("fprintf", 28, index) + expect.LOOK_AT_LOG
    assert expect.system_error("fprintf", 28, index, "IGMain") in (run.log or "")
    assert machine.outputs() == ["filler"]


@pytest.mark.parametrize("cleanup", ["ON", "OFF"])
def test_a_disk_that_is_full_in_the_middle_of_a_record_ends_the_run(machine: Machine, cleanup: str):
    machine.conf(f"QUENDIL_CLEANUP={cleanup}\n")
    machine.small_tmpfs(DATA_DIRECTORY, 200_000)
    # File names take no space on this file system, but the record of all of them does.
    fill = machine.file("/opt/fill", "#!/bin/sh\n"
                        "mkdir $1/own && touch $(seq -f $1/own/%0200.0f 40)\n"
                        f"head -c 1000000 /dev/zero > {DATA_DIRECTORY}/filler 2> /opt/errors\n",
                        0o755)
    run = collect(machine, pattern_text.data(machine.file("/opt/first", "x"), "kept"),
                  pattern_text.tool(f"{fill} %d%"), pattern_text.data("%d%/own/*"),
                  pattern_text.tool(machine.tool(behave.write("/opt/never", ""))))
    path = f"{expect.OUTPUT_DIRECTORY}/quendil_index"
    reported = [expect.system_error(call, 28, path, unit, warning=True)
                for call, unit in (("fprintf", "IGIndex"), ("fflush", "IGCmnFile"))]
    assert run.status == 255
    assert run.log is not None and sum(text in run.log for text in reported) == 1
    assert run.log.count("error code = 28") == 1
    assert not machine.exists("/opt/never")
    machine.remove(f"{DATA_DIRECTORY}/filler")
    assert machine.outputs() == ([] if cleanup == "ON" else [expect.OUTPUT_NAME])
    if cleanup == "OFF":
        record = expect.index_record("opt/first", descriptions=["kept"])
        assert run.index.startswith(HEAD + record)
