"""Pattern files: which of them a run reads, and what it reports of those that it cannot read."""

from __future__ import annotations

import os
import zlib

import pytest
from support import behave, expect, pattern_text
from support.collecting import complete_output
from support.ending import BIN_DIRECTORY, HISTORY_LOCK, RUN_LOCK, check_refused
from support.machine import PATTERN_DIRECTORY, QUENDIL, Machine
from support.pattern_text import block, pattern
from support.run import Run

NOTHING = ("ZEPA121-E:There is not system information to be collected under the specified"
           " options.\n")
ALL_FAILED = ("ZEPA145-W:There is not system information because an error occurred during reading"
              " of all collection pattern definition files.\n")


def path_of(name: str) -> str:
    return f"{PATTERN_DIRECTORY}/{name}"


def broken(line: int, name: str = "10_demo") -> str:
    """The report of a file with a fault in the run log."""
    return ("ZEPA137-W:Internal error occurred.\n"
            f"ZEPA138-W:filename = {path_of(name)}, line no = {line}.\n")


def bad_format(name: str = "10_demo") -> str:
    return f"ZEPA139-W:Invalid format number({path_of(name)}).\n"


def too_new(name: str = "10_demo") -> str:
    return ("ZEPA159-W:quendil command is older than the collection pattern file."
            f" skip the file ({path_of(name)}).\n")


def marked(machine: Machine, mark: str) -> str:
    """A data item whose name shows that it was collected."""
    return pattern_text.data(machine.file(f"/opt/marks/{mark}"))


def collected(run: Run) -> list[str]:
    """The marks of the items that a run collected, in their order."""
    lines = (run.log or "").splitlines()
    return [line.split("/opt/marks/")[1].split(".")[0] for line in lines if "/opt/marks/" in line]


# ---- Selection ----------------------------------------------------------------------------------


#: The groups of each file, and the targets of its blocks by the mark of the item in each.
FILES = {
    "10_a": (["red", "blue"], {"a": [], "b": ["left"], "c": ["left", "right"]}),
    "20_b": (["blue"], {"d": ["right"], "e": ["up"]}),
    "30_c": (["green"], {"f": []}),
    "40_d": ([], {"g": ["left"]}),
}


@pytest.mark.parametrize("arguments, taken", [
    ("-g red", "abc"), ("-g blue", "abcde"), ("-g green", "f"), ("-g green -g red", "abcf"),
    ("-t left", "bcg"), ("-t right", "cd"), ("-t up -t right", "cde"),
    ("-g red -t left", "bc"), ("-g blue -t right", "cd"), ("-g blue -g green -t up", "e"),
    ("-t left -g green -g blue", "bc"),
])
def test_groups_choose_patterns_and_targets_choose_blocks(machine: Machine, arguments: str,
                                                          taken: str):
    for name, (groups, blocks) in FILES.items():
        machine.pattern(name, pattern(*(block(marked(machine, mark), targets=targets)
                                        for mark, targets in blocks.items()), groups=groups))
    run = machine.run(*arguments.split())
    assert (run.status, run.stdout) == (0, complete_output(len(taken)))
    assert "".join(collected(run)) == taken


@pytest.mark.parametrize("arguments", [
    "-g none", "-g RED", "-g Red", "-g re", "-g redd", "-g demo", "-t LEFT", "-t none", "-t a",
    "-g green -t left", "-g none -t left", "-g red -t up", "-g 10_a",
])
def test_a_selection_that_matches_nothing_is_reported(machine: Machine, arguments: str):
    for name, (groups, blocks) in FILES.items():
        machine.pattern(name, pattern(*(block(targets=targets) for targets in blocks.values()),
                                      groups=groups))
    words = arguments.split()
    chosen = {option: [value for name, value in zip(words[::2], words[1::2]) if name == option]
              for option in ("-g", "-t")}
    log = expect.RunLog(arguments).parameters(chosen["-g"], chosen["-t"])
    check_refused(machine, machine.run(*words), words, NOTHING, 3, log)


def test_an_empty_group_matches_nothing(machine: Machine):
    machine.pattern("10_demo", pattern(block(), groups=["", "demo"]))
    log = expect.RunLog("-g ").parameters([""])
    check_refused(machine, machine.run("-g", ""), ["-g", ""], NOTHING, 3, log)


def test_a_group_may_hold_blanks_and_percent_signs(machine: Machine):
    machine.pattern("10_demo", pattern(marked(machine, "x"), groups=["a b", "100%%"]))
    run = machine.run("-g", "a b")
    assert collected(run) == ["x"]
    machine.remove(run.result)
    assert collected(machine.run("-g", "100%")) == ["x"]
    assert machine.run("-g", "100%%").status == 255


def test_files_are_read_in_the_order_of_their_bytes(machine: Machine):
    names = ["~", "2_a", "10_b", "A", "a", "1", "_", ".hidden", "-", "Z z"]
    for number, name in enumerate(names):
        machine.pattern(name, pattern(marked(machine, str(number))))
    run = machine.run("-g", "demo")
    assert collected(run) == [str(names.index(name)) for name in sorted(names)]


def test_files_with_the_same_pp_name_are_all_collected(machine: Machine):
    for name in ("1", "2"):
        machine.pattern(name, pattern(marked(machine, name), name="same"))
    assert collected(machine.run("-g", "demo")) == ["1", "2"]


def test_directories_among_the_files_are_left_out(machine: Machine):
    machine.pattern("10_demo", pattern(marked(machine, "x")))
    machine.file(path_of("00_directory/20_demo"), pattern(marked(machine, "y")))
    run = machine.run("-g", "demo")
    assert (run.status, run.stderr, collected(run)) == (0, "", ["x"])


def test_a_link_to_a_file_is_read(machine: Machine):
    machine.no_patterns()
    machine.file("/opt/pattern", pattern(marked(machine, "x")))
    machine.link(path_of("10_link"), "/opt/pattern")
    assert collected(machine.run("-g", "demo")) == ["x"]


# ---- Nothing to read ----------------------------------------------------------------------------


@pytest.mark.parametrize("with_directory", [False, True])
def test_an_empty_directory_is_reported(machine: Machine, with_directory: bool):
    machine.no_patterns()
    if with_directory:
        machine.directory(path_of("directory"))
    log = expect.RunLog("-g demo").parameters(["demo"])
    check_refused(machine, machine.run("-g", "demo"), ["-g", "demo"], ALL_FAILED, 3, log)


def test_a_failed_stat_of_a_pattern_file_ends_the_run(machine: Machine):
    machine.pattern("10_demo", pattern(marked(machine, "x")))
    machine.link(path_of("20_nowhere"), "/opt/none")
    log = expect.RunLog("-g demo").parameters(["demo"])
    shown = expect.system_error("stat", 2, path_of("20_nowhere"))
    reported = expect.system_error("stat", 2, path_of("20_nowhere"), "IGCmnDir")
    check_refused(machine, machine.run("-g", "demo"), ["-g", "demo"], reported, 3, log, shown)


# ---- Faults -------------------------------------------------------------------------------------


HEAD = "FORMAT_VERSION = 1.0\n"
TOOL = HEAD + "BLOCK {\nTOOL_BLOCK {\n"
DATA = HEAD + "BLOCK {\nDATA_BLOCK {\n"

FAULTS = [
    ("", broken(1)), ("\n\n", broken(3)), ("# only a comment\n", broken(2)), (HEAD, broken(2)),
    (HEAD + "PP_NAME = x\n", broken(3)), (HEAD + "BLOCK {\n", broken(3)),
    (HEAD + "BLOCK {\nTOOL_BLOCK {\nCOMMAND_LINE = /x\n}\n", broken(6)),
    ("PP_NAME = x\n" + HEAD, bad_format()), ("BLOCK {\n}\n", bad_format()),
    ("FORMAT_VERSION\n", bad_format()), ("FORMAT_VERSION =\n", bad_format()),
    ("FORMAT_VERSION = 1.00\n", bad_format()), ("FORMAT_VERSION = 01.0\n", bad_format()),
    ("FORMAT_VERSION = 0.9\n", bad_format()), ("FORMAT_VERSION = 1\n", bad_format()),
    ("FORMAT_VERSION = %HOST%\n", bad_format()), ("FORMAT_VERSION = %X%\n", bad_format()),
    ("FORMAT_VERSION = 1.0x\n", bad_format()), ("nonsense\n", bad_format()), ("}\n", bad_format()),
    ("{\n", bad_format()), ("\u00e4\n", bad_format()), ("\ufeff" + HEAD, bad_format()),
    ("FORMAT_VERSION = 1.5\n", too_new()), ("FORMAT_VERSION = 2.0\n", too_new()),
    ("FORMAT_VERSION = 99.99\n", too_new()), ("FORMAT_VERSION = 1.1 # newer\n", too_new()),
    (HEAD + HEAD, broken(2)), (HEAD + "nonsense\n", broken(2)), (HEAD + "TARGET = x\n", broken(2)),
    (HEAD + "PP_NAME = a\nPP_NAME = b\n", broken(3)), (HEAD + "PP_NAME = a b\n", broken(2)),
    (HEAD + "PP_NAME a\n", broken(2)), (HEAD + "PP_NAME\n", broken(2)),
    (HEAD + "PP_NAME = %FOO%\n", broken(2)), (HEAD + "PP_NAME = 100%\n", broken(2)),
    (HEAD + "PP_NAME = " + "x" * 257 + "\n", broken(2)),
    (HEAD + "PP_VRS = 12345678901\n", broken(2)),
    (HEAD + "PP_GROUP = \u00e4\n", broken(2)), (HEAD + "PP_GROUP = \"open\n", broken(2)),
    (HEAD + "# \u00e4\n", broken(2)), (HEAD + "#" * 1025 + "\n", broken(2)),
    (HEAD + "REG3 = x\n", broken(2)), (HEAD + "}\n", broken(2)),
    (HEAD + "BLOCK { # x\n", broken(2)),
    (HEAD + "BLOCK\n{\n", broken(3)), (HEAD + "BLOCK { {\n", broken(2)),
    (HEAD + "BLOCK {\nPP_NAME = x\n", broken(3)), (HEAD + "BLOCK {\nBLOCK {\n", broken(3)),
    (TOOL + "}\n", broken(4)), (DATA + "}\n", broken(4)),
    (TOOL + "COMMAND_LINE = tool -a\n", broken(4)),
    (TOOL + "COMMAND_LINE = \"tool -a\"\n", broken(4)), (TOOL + "COMMAND_LINE =\n", broken(4)),
    (TOOL + "COMMAND_LINE = /" + "x" * 260 + "\n", broken(4)),
    (TOOL + "TIMEOUT = 36001\n", broken(4)), (TOOL + "TIMEOUT = -2\n", broken(4)),
    (TOOL + "TIMEOUT = 10s\n", broken(4)), (TOOL + "TIMEOUT = 1\nTIMEOUT = 1\n", broken(5)),
    (TOOL + "WAIT_TERMINATION = 601\n", broken(4)), (TOOL + "TIMEOUT_SIGNAL = -1\n", broken(4)),
    (TOOL + "TIMEOUT_SIGNAL = 2147483648\n", broken(4)),
    (TOOL + "REDIRECT_PATH = out\n", broken(4)),
    (TOOL + "PATH_NAME = /x\n", broken(4)), (DATA + "COMMAND_LINE = /x\n", broken(4)),
    (DATA + "PATH_NAME = x\n", broken(4)), (DATA + "PATH_NAME =\n", broken(4)),
    (DATA + "FILE_TYPE = " + "x" * 21 + "\n", broken(4)),
    (DATA + "DESCRIPTION = " + "x" * 257 + "\n", broken(4)),
    (HEAD + "BLOCK {\n}\n}\n", broken(4)), (HEAD + "BLOCK {\n} }\n", broken(3)),
]


@pytest.mark.parametrize("text, reported", FAULTS, ids=lambda value: repr(value)[-40:])
def test_a_file_with_a_fault_is_left_out_and_the_others_are_taken(machine: Machine, text: str,
                                                                  reported: str):
    machine.pattern("10_demo", text)
    machine.pattern("20_good", pattern(marked(machine, "x")))
    run = machine.run("-g", "demo")
    log = expect.RunLog("-g demo").parameters(["demo"]).raw(reported).ended("initializing")
    assert run.status == 0
    assert run.stderr == ("" if reported.startswith("ZEPA137") else reported)
    assert run.log == log.data({"/opt/marks/x": 0}, 0).complete().text


@pytest.mark.parametrize("text", [
    HEAD + "BLOCK{\n}\n", HEAD + "block {\n}\nPp_Group = other\n", HEAD + "BLOCK {\n}",
    HEAD + "BLOCK {\nTOOL_BLOCK {\nCOMMAND_LINE = /x\n}}\n",
    HEAD.replace("\n", "\r\n") + "BLOCK {\r\n}\r\n",
    "\n# first\n\t " + HEAD + "BLOCK { \t\n} # end\n", "format_version=1.0\nBLOCK {\nTARGET =\n}\n",
    HEAD + "#" * 1024 + "\nBLOCK {\n}\n", HEAD + "PP_NAME = %HOST # open\nBLOCK {\n}\n",
    HEAD + "PP_NAME = 100%%\nBLOCK {\n}\n",
    TOOL + "TIMEOUT = -1\nTIMEOUT_SIGNAL = 2147483647\nWAIT_TERMINATION = 600\n"
    "COMMAND_LINE = %d%/x\nREDIRECT_PATH = %d%/y\n}\n}\n",
    DATA + "PATH_NAME = \"/x y\"\nFILE_TYPE = Text\nDESCRIPTION = a\nDESCRIPTION = "
    + "x" * 300 + "\n}\n}\n",
], ids=lambda value: repr(value)[-40:])
def test_a_file_without_a_fault_is_silent(machine: Machine, text: str):
    machine.pattern("10_demo", text)
    machine.pattern("20_good", pattern(marked(machine, "x")))
    run = machine.run("-g", "demo")
    log = expect.RunLog("-g demo").initialized("demo").data({"/opt/marks/x": 0}, 0)
    assert (run.status, run.stderr) == (0, "")
    assert run.log == log.complete().text


def test_when_every_file_has_a_fault_nothing_is_collected(machine: Machine):
    machine.pattern("10_demo", HEAD)
    machine.pattern("20_demo", "FORMAT_VERSION = 1.5\n")
    machine.pattern("30_demo", "wrong\n")
    machine.pattern("40_demo", HEAD + "wrong\n")
    log = expect.RunLog("-g demo").parameters(["demo"])
    shown = too_new("20_demo") + bad_format("30_demo") + ALL_FAILED
    reported = (broken(2) + too_new("20_demo") + bad_format("30_demo") + broken(2, "40_demo")
                + ALL_FAILED)
    check_refused(machine, machine.run("-g", "demo"), ["-g", "demo"], reported, 3, log, shown)


def test_one_good_file_that_does_not_match_is_not_a_fault(machine: Machine):
    machine.pattern("10_demo", HEAD)
    machine.pattern("20_other", pattern(block(), groups=["other"]))
    log = expect.RunLog("-g demo").parameters(["demo"]).raw(broken(2))
    check_refused(machine, machine.run("-g", "demo"), ["-g", "demo"], NOTHING, 3, log)


def test_a_file_that_cannot_be_opened_is_only_a_warning(machine: Machine):
    machine.pattern("20_good", pattern(marked(machine, "x")))
    machine.exec(behave.command(behave.socket(path_of("10_socket"))))
    run = machine.run("-g", "demo")
    warned = expect.system_error("fopen", 6, path_of("10_socket"), "IGCmnFile", warning=True)
    log = expect.RunLog("-g demo").parameters(["demo"]).raw(warned).ended("initializing")
    assert (run.status, run.stderr) == (0, "")
    assert run.log == log.data({"/opt/marks/x": 0}, 0).complete().text


@pytest.mark.parametrize("name", [RUN_LOCK, HISTORY_LOCK])
def test_a_lock_file_among_the_files_is_only_a_warning_and_keeps_its_lock(machine: Machine,
                                                                          name: str):
    lock = f"{BIN_DIRECTORY}/{name}"
    machine.pattern("20_good", pattern(
        pattern_text.tool(machine.tool(behave.ready("/opt/ready"), behave.wait_for("/opt/go")))))
    machine.link(path_of("10_lock"), machine.file(lock))
    run = machine.start("-g", "demo")
    run.wait_for("/opt/ready")
    assert machine.locks(f"{BIN_DIRECTORY}/{RUN_LOCK}") == (1, 0)
    machine.file("/opt/go")
    finished = run.finish()
    assert (finished.status, finished.stderr) == (0, "")
    assert expect.system_error("fopen", 13, path_of("10_lock"), "IGCmnFile",
                               warning=True) in (finished.log or "")


def test_a_pipe_among_the_files_does_not_stop_a_run(machine: Machine):
    machine.pattern("20_good", pattern(marked(machine, "x")))
    machine.fifo(path_of("10_pipe"))
    run = machine.run("-g", "demo")
    assert (run.status, collected(run)) == (0, ["x"])
    assert broken(1, "10_pipe") in (run.log or "")


def test_a_device_among_the_files_is_reported_as_faulty(machine: Machine):
    machine.pattern("20_good", pattern(marked(machine, "x")))
    machine.link(path_of("10_null"), "/dev/null")
    machine.link(path_of("15_zero"), "/dev/zero")
    run = machine.run("-g", "demo")
    assert (run.status, collected(run)) == (0, ["x"])
    assert broken(1, "10_null") + bad_format("15_zero") in (run.log or "")


@pytest.mark.parametrize("locale", ["C", "C.UTF-8"])
def test_bytes_that_the_locale_cannot_read_are_a_fault(machine: Machine, locale: str):
    machine.pattern("20_good", pattern(marked(machine, "x")))
    machine.file(path_of("10_demo"), HEAD.encode() + b"PP_NAME = \xff\xfe\n")
    run = machine.run("-g", "demo", env={"LC_ALL": locale})
    assert run.status == 0
    assert broken(2) in (run.log or "")


ODD_NAMES = [
    "new\nline", "tab\there", "\x1b[31mred", "\x7f", "two words", "-g", "--", "...", "back\\slash",
    "[a-z]", "?", "**", "%HOST%", "%s%n", "$(touch ran)", "`touch ran`", "'", '"', ";", "#",
    "n" * 255, "\udcff\udcfe", "\u00e4",
]


def in_messages(name: str) -> str:
    """How a message shows a name: control characters as octal numbers, all else as it is."""
    return "".join(f"\\{ord(c):03o}" if ord(c) < 32 or ord(c) == 127 else c for c in name)


def test_files_of_odd_names_are_read_like_any_other(machine: Machine):
    for number, name in enumerate(ODD_NAMES):
        machine.pattern(name, pattern(marked(machine, str(number))))
    run = machine.run("-g", "demo")
    assert (run.status, run.stderr) == (0, "")
    in_order = sorted(ODD_NAMES, key=lambda name: name.encode(errors="surrogateescape"))
    assert collected(run) == [str(ODD_NAMES.index(name)) for name in in_order]


@pytest.mark.parametrize("text, reported", [
    (HEAD, "ZEPA138-W:filename = {}, line no = 2.\n"),
    ("wrong\n", "ZEPA139-W:Invalid format number({}).\n"),
    ("FORMAT_VERSION = 1.1\n",
     "ZEPA159-W:quendil command is older than the collection pattern file. skip the file ({}).\n"),
])
def test_an_odd_name_of_a_faulty_file_forges_no_line(machine: Machine, text: str, reported: str):
    machine.pattern("20_good", pattern(marked(machine, "x")))
    forged = "0\nZEPA304-I:forged\x1b[2J\r"
    machine.pattern(forged, text)
    run = machine.run("-g", "demo")
    assert (run.status, collected(run)) == (0, ["x"])
    message = reported.format(in_messages(path_of(forged)))
    assert message in (run.log or "")
    assert run.stderr == ("" if reported.startswith("ZEPA138") else message)


def test_binary_files_are_left_out(machine: Machine):
    machine.pattern("90_good", pattern(marked(machine, "x")))
    program = machine.path(QUENDIL).read_bytes()
    every_byte = bytes(range(256))
    binaries = {
        "10_program": program, "11_every_byte": every_byte, "12_backwards": every_byte[::-1],
        "13_high": bytes(range(128, 256)) * 64, "14_wide": HEAD.encode("utf-16"),
        "15_packed": zlib.compress(program),
    }
    for name, content in binaries.items():
        machine.file(path_of(name), content)
    for name, content in list(binaries.items())[1:4]:
        machine.file(path_of("2" + name[1:]), HEAD.encode() + content)
    # A sparse file of a terabyte: the first byte is enough to reject it.
    os.truncate(machine.path(machine.file(path_of("30_hole"))), 1 << 40)
    run = machine.run("-g", "demo")
    reported = "".join(bad_format(name) for name in binaries)
    reported += broken(2, "21_every_byte") + broken(2, "22_backwards") + broken(2, "23_high")
    reported += bad_format("30_hole")
    log = expect.RunLog("-g demo").parameters(["demo"]).raw(reported).ended("initializing")
    assert run.status == 0
    assert run.stderr == "".join(bad_format(name) for name in [*binaries, "30_hole"])
    assert run.log == log.data({"/opt/marks/x": 0}, 0).complete().text


@pytest.mark.plain_binary
def test_a_file_of_a_hundred_megabytes_of_comment_is_read_to_its_end(machine: Machine):
    comment = b"#" + b"x" * 1023 + b"\n"
    lines = 100 * 1024
    machine.pattern("10_huge", "")
    with machine.path(path_of("10_huge")).open("wb") as file:
        for _ in range(lines // 1024):
            file.write(comment * 1024)
        file.write(pattern(marked(machine, "x")).encode())
    machine.file(path_of("20_huge"), HEAD.encode())
    with machine.path(path_of("20_huge")).open("ab") as file:
        file.write(b"#\n" * 300_000 + b"wrong\n")
    run = machine.run("-g", "demo")
    assert (run.status, collected(run)) == (0, ["x"])
    assert broken(300_002, "20_huge") in (run.log or "")


def test_a_line_without_an_end_is_refused_at_its_limit(machine: Machine):
    machine.pattern("10_long", HEAD + "#" + "x" * 5_000_000)
    machine.pattern("20_long", "#" + "x" * 5_000_000)
    machine.pattern("90_good", pattern(marked(machine, "x")))
    run = machine.run("-g", "demo")
    assert (run.status, run.stderr, collected(run)) == (0, "", ["x"])
    assert broken(2, "10_long") + broken(1, "20_long") in (run.log or "")


def test_a_patterns_directory_is_known_while_it_is_collected_only(machine: Machine):
    write = machine.tool(behave.out("x"))
    first = block(pattern_text.tool(write, redirect="%d%/own"), pattern_text.data("%d%/own"),
                  targets=["left"])
    second = block(pattern_text.tool(write, redirect="%d%/own"), pattern_text.data("%d%/own"),
                   targets=["right"])
    machine.pattern("10_demo", pattern(first))
    machine.pattern("20_demo", pattern(second))
    machine.pattern("30_demo", pattern(block(pattern_text.data("%d%/own"))))
    machine.directory("/opt/out")
    machine.conf("QUENDIL_DATA_DIRECTORY=/opt%d%/out%d%\n")
    run = machine.run("-g", "demo")
    files = run.archive.files()
    assert run.status == 0
    assert run.result.startswith("/opt/out/")
    assert sorted(name for name in files if name.endswith("own")) == ["left/own", "right/own"]


def test_targets_name_the_directory_of_the_pattern(machine: Machine):
    one = block(marked(machine, "a"), targets=['"left side"'])
    two = block(marked(machine, "b"), targets=["right"])
    machine.pattern("10_demo", pattern(one, two))
    both = block(marked(machine, "c"), targets=['"left side"', "right"])
    machine.pattern("20_demo", pattern(both))
    machine.pattern("30_demo", pattern(block(marked(machine, "d"), targets=["left-side"])))
    machine.pattern("40_demo", pattern(block(marked(machine, "e"))))
    run = machine.run("-g", "demo")
    members = run.archive.files()
    assert run.status == 0
    assert sorted(name for name in members if "marks" in name) == [
        "left_side/opt/marks/a", "left_side/opt/marks/b", "left_side/opt/marks/c",
        "left_side_1/opt/marks/d", "opt/marks/e"]


def test_a_pattern_without_items_collects_nothing(machine: Machine):
    machine.pattern("10_demo", pattern(block()))
    run = machine.run("-g", "demo")
    assert (run.status, run.stdout, run.stderr) == (0, complete_output(0), "")
    assert run.log == expect.RunLog("-g demo").initialized("demo").complete().text


def test_without_a_selection_by_group_a_pattern_needs_no_group(machine: Machine):
    machine.pattern("10_demo", pattern(block(marked(machine, "x"), targets=["t"]), groups=[]))
    run = machine.run("-t", "t")
    log = expect.RunLog("-t t").initialized(targets=["t"])
    assert run.status == 0
    assert run.log == log.data({"/opt/marks/x": 0}, 0).complete().text
