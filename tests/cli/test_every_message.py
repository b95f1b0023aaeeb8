"""Every message of the catalogue: a run that issues it, its exact text, and where it appears."""

from __future__ import annotations

import re
from collections.abc import Callable, Sequence
from dataclasses import dataclass
from pathlib import Path

import pytest
from support import behave, expect, pattern_text
from support.behave import exit, forever, ready
from support.collecting import GROUP, begin, collect
from support.ending import BIN_DIRECTORY
from support.machine import (
    CONFIGURATION, DATA_DIRECTORY, LOG_DIRECTORY, PATTERN_DIRECTORY, Machine,
)
from support.run import Run

CATALOGUE = Path(__file__).resolve().parents[2] / "src/common/report/IGCmnMessageTable.inc"
HISTORY = f"{LOG_DIRECTORY}/quendil_hist.log"
HISTORY_LOCK = f"{BIN_DIRECTORY}/.quendil_hist.lck"
OUTPUT = expect.OUTPUT_DIRECTORY

LOG = ("log",)
STDOUT = ("stdout",)
STDERR = ("stderr",)
STDOUT_LOG = ("stdout", "log")
STDERR_LOG = ("stderr", "log")
HISTORY_ONLY = ("history",)
EVERYWHERE = ("stdout", "stderr", "log", "history")

#: Messages that no run can issue, and why.
NEVER = {
    24: "a missing tool is detected when it is started, which message 19 reports",
    27: "there is no self-extracting archive on this system",
    35: "a directory that cannot be removed is reported as a failed system call",
    37: "there is no registry on this system",
    45: "stopping a tool is reported by messages 20 and 38 alone",
    46: "as 45", 47: "as 45", 48: "as 45", 49: "as 45",
    89: "it has no text",
}


@dataclass(frozen=True)
class Message:
    """A message, or an identifier with its text, as a run shows it.

    `numbers` are its rows of the catalogue. `text` is masked and whole, from the start of a line
    to the end of one. `where` are the only places that show it.
    """

    numbers: tuple[int, ...]
    text: str
    where: tuple[str, ...]


def says(number: int | tuple[int, ...], text: str, where: tuple[str, ...]) -> Message:
    """A message of one line or several; the last line feed is added."""
    return Message(number if isinstance(number, tuple) else (number,), text + "\n", where)


Messages = tuple[Message, ...]


def issues(*messages: Message) -> pytest.MarkDecorator:
    """Passes to a test, as `messages`, the messages that its run issues."""
    return pytest.mark.parametrize("messages", [messages], ids=[messages[0].text[:7]])


def shows(whole: str | None, text: str) -> bool:
    """Whether a text has these lines. A line may begin after a carriage return of the bar, too."""
    return re.search(r"(?:\A|[\n\r])" + re.escape(text), whole or "") is not None


def check(run: Run, messages: Messages) -> None:
    """Each message is in its places, and in no other."""
    for message in messages:
        for place in EVERYWHERE:
            found = shows(getattr(run, place), message.text)
            assert found == (place in message.where), (message, place)


def issued_messages() -> list[Message]:
    """The messages of all tests of this file."""
    tests = [value for name, value in globals().items() if name.startswith("test_")]
    marks = [mark for test in tests for mark in getattr(test, "pytestmark", ())]
    cases = [case for mark in marks if mark.args[:1] == ("messages",) for case in mark.args[1]]
    return [message for case in [*cases, *(row.values[0] for row in REFUSALS)] for message in case]


def test_every_message_is_issued_by_a_run_or_has_a_reason_why_not():
    rows = re.findall(r"^IG_MSG\((\d+),", CATALOGUE.read_text(), re.MULTILINE)
    issued = {number for message in issued_messages() for number in message.numbers}
    assert sorted(issued | set(NEVER)) == sorted(map(int, rows))
    assert not issued & set(NEVER)


# ---- The command line and the configuration -----------------------------------------------------


def refusal(number: int, arguments: Sequence[str], text: str,
            prepare: Callable[[Machine], object] = lambda machine: None):
    """A case of a run that is refused for its arguments or its configuration."""
    return pytest.param((says(number, text, STDERR_LOG),), arguments, prepare, id=text[:7])


REFUSALS = [
    refusal(0, ["-%s"], "ZEPA101-E:The specified option(-%s) is invalid."),
    refusal(1, ["-G", "-t"], "ZEPA102-E:The specified option(-G) requires an argument."),
    refusal(2, [*GROUP, "-d", "none"], "ZEPA104-E:The specified directory(none) does not exist."),
    refusal(3, [*GROUP, "-d", "/opt/ro"],
            "ZEPA105-E:You do not have write permissions for the specified directory(/opt/ro).",
            lambda machine: machine.directory("/opt/ro", 0o500)),
    refusal(4, [*GROUP, "-C", "none"],
            "ZEPA106-E:The specified configuration file(none) does not exist."),
    refusal(5, ["-o", "/a", "-O", "/b"],
            "ZEPA107-W:The specified option(-O) cannot be specified twice or more."),
    refusal(6, [*GROUP, "-D", "/" * 261],
            "ZEPA108-E:The specified argument of the option(-D) is too long."),
    refusal(7, [*GROUP, "-o", "/opt/behave"],
            "ZEPA109-E:The specified file(/opt/behave) already exists."),
    refusal(8, [*GROUP, "-c", "/opt/none"],
            "ZEPA112-E:You do not have access permissions for the specified file(/opt/none).",
            lambda machine: machine.file("/opt/none", mode=0)),
    refusal(11, ["-c", "/none"], "ZEPA115-E:A required option is not specified."),
    refusal(36, [*GROUP, "-o", "a b/"],
            "ZEPA144-E:The specified output file(a b/) must be absolute path name."),
    refusal(14, GROUP, f"ZEPA118-E:A configuration file({CONFIGURATION}) does not exist.",
            lambda machine: machine.remove(CONFIGURATION)),
    refusal(17, ["-t", "none"], "ZEPA121-E:There is not system information to be collected under"
            " the specified options."),
    refusal(34, GROUP, "ZEPA145-W:There is not system information because an error occurred during"
            " reading of all collection pattern definition files.",
            lambda machine: machine.no_patterns()),
]


@pytest.mark.parametrize("messages, arguments, prepare", REFUSALS)
def test_a_refused_run(machine: Machine, messages: Messages, arguments: Sequence[str],
                       prepare: Callable[[Machine], object]):
    prepare(machine)
    check(machine.run(*arguments), messages)


@issues(says(15, "ZEPA119-E:A syntax error occurred.", STDERR_LOG),
        says(16, f"ZEPA120-E:filename = {CONFIGURATION}, line no = 3.", STDERR_LOG))
def test_a_wrong_line_in_the_configuration(machine: Machine, messages: Messages):
    machine.conf("#\n#\nx\n")
    check(machine.run(*GROUP), messages)


@issues(says(90, "quendil [Ver. 01-02]\n\n"
                 "usage:\tquendil\t{ -g pp_group | -t target } ...\n"
                 "\t\t[ -c configfile ] [ -d directory ] [ -o output_file ]\n"
                 "\tquendil\t-h\n", STDOUT))
def test_the_usage(machine: Machine, messages: Messages):
    check(machine.run("-h"), messages)


# ---- Who may run --------------------------------------------------------------------------------


@issues(says(12, "ZEPA116-E:Another quendil is already running. Please try later.",
             ("stderr", "history")))
def test_a_second_run(machine: Machine, messages: Messages):
    with machine.locked(machine.file(f"{BIN_DIRECTORY}/.quendil.lck")):
        check(machine.run(*GROUP), messages)


@issues(says(9, "ZEPA113-E:An error occurred during the following system call. system call name ="
             " open, error code = 21, msg = Is a directory.", ("stderr", "history")),
        says(10, "ZEPA114-E:source = IGMain, line no = <LINE>.", HISTORY_ONLY),
        says(42, f"ZEPA151-E:Additional information, path = {BIN_DIRECTORY}/.quendil.lck.", STDERR))
def test_a_lock_file_that_cannot_be_opened(machine: Machine, messages: Messages):
    machine.directory(f"{BIN_DIRECTORY}/.quendil.lck")
    check(machine.run(*GROUP), messages)


@issues(says(9, "ZEPA113-E:An error occurred during the following system call. system call name ="
             " mkdir, error code = 30, msg = Read-only file system.", STDERR_LOG),
        says(42, f"ZEPA151-E:Additional information, path = {OUTPUT}.", STDERR_LOG),
        says(10, "ZEPA114-E:source = IGCmnFile, line no = <LINE>.", LOG))
def test_a_failed_call_of_a_run_that_has_its_log(machine: Machine, messages: Messages):
    machine.read_only(DATA_DIRECTORY)
    check(collect(machine, pattern_text.block()), messages)


@issues(says(13, "ZEPA117-E:This cannot be executed because the user is not a super user.", STDERR))
def test_a_user_who_is_not_root(machine: Machine, messages: Messages):
    check(machine.run(*GROUP, user=1000), messages)


# ---- Patterns -----------------------------------------------------------------------------------


@issues(says(30, "ZEPA137-W:Internal error occurred.", LOG),
        says(31, f"ZEPA138-W:filename = {PATTERN_DIRECTORY}/1, line no = 2.", LOG),
        says(32, f"ZEPA139-W:Invalid format number({PATTERN_DIRECTORY}/2).", STDERR_LOG),
        says(92, "ZEPA159-W:quendil command is older than the collection pattern file. skip the"
             f" file ({PATTERN_DIRECTORY}/3).", STDERR_LOG),
        says(40, "ZEPA140-W:An error occurred during the following system call. system call name ="
             " fopen, error code = 6, msg = No such device or address.", LOG),
        says(43, f"ZEPA152-W:Additional information, path = {PATTERN_DIRECTORY}/4.", LOG),
        says(41, "ZEPA141-W:source = IGCmnFile, line no = <LINE>.", LOG))
def test_pattern_files_with_mistakes(machine: Machine, messages: Messages):
    machine.pattern("1", "FORMAT_VERSION = 1.0\n")
    machine.pattern("2", "FORMAT_VERSION = x\n")
    machine.pattern("3", "FORMAT_VERSION = 1.1\n")
    machine.exec(behave.command(behave.socket(f"{PATTERN_DIRECTORY}/4")))
    check(collect(machine, pattern_text.block()), messages)


# ---- A complete run -----------------------------------------------------------------------------


TOOL = "/opt/behave err no\\x0a exit 3"


@issues(says((50, 51), "ZEPA201-I:quendil [Ver. 01-02] started at <TIME>.", LOG),
        says((52, 53), "ZEPA202-I:Started initializing.", LOG),
        says((52, 53), "ZEPA202-I:Started executing.", LOG),
        says((52, 53), "ZEPA202-I:Started collecting.", LOG),
        says((52, 53), "ZEPA202-I:Started making.", LOG),
        says((52, 53), "ZEPA202-I:Started cleaning.", LOG),
        says((54, 55), "ZEPA203-I:Ended initializing.", LOG),
        says((54, 55), "ZEPA203-I:Ended executing.", LOG),
        says((54, 55), "ZEPA203-I:Ended collecting.", LOG),
        says((54, 55), "ZEPA203-I:Ended making.", LOG),
        says((54, 55), "ZEPA203-I:Ended cleaning.", LOG),
        says((56, 57), 'ZEPA204-I:quendil argument is "-g demo -t up".', LOG),
        says((58, 59, 62, 61, 63),
             "ZEPA205-I:Summary of parameters.\n"
             f"    Configuration file = {CONFIGURATION}\n"
             f"    Output path of collected information = {OUTPUT}\n"
             "    Max output data size = 8388608 KB\n"
             "    Cleanup = ON\n"
             f"    Output file = {expect.OUTPUT_NAME}\n"
             "    TARGET = up\n"
             "    PP_GROUP = demo\n"
             "    PP_NAME = ", LOG),
        says((64, 65), "ZEPA206-I:Information collecting tool start.\n"
             f'    Command  = "{TOOL}"\n    Start time = <TIME>\n    Timeout = 7', LOG),
        says((66, 67), "ZEPA207-I:Information collecting tool end.\n"
             "    Return code = 3\n    Status code = 768\n    End time = <TIME>", LOG),
        says((68, 69), "ZEPA208-W:Information collecting tool error message.\nno", LOG),
        says((70, 71), "ZEPA209-I:It copied collecting data = /opt/data. size = 5 bytes.", LOG),
        says((72, 73), "ZEPA210-I:Total data size: 5 bytes.", LOG),
        says((76, 77), f'ZEPA212-I:Deleted data below "{OUTPUT}/up".', ()),
        says((76, 77), f'ZEPA212-I:Deleted data below "{OUTPUT}".', LOG),
        says((78, 79), "ZEPA213-I:quendil ended at <TIME>. return code = 0.", LOG),
        says((80, 81), f"ZEPA214-I:Output file = {OUTPUT}.tar.gz. size = <SIZE> bytes.",
             STDOUT_LOG),
        says(84, "ZEPA301-I:quendil [Ver. 01-02] started at <TIME>.", HISTORY_ONLY),
        says(85, "ZEPA302-I:quendil argument is -g demo -t up.", HISTORY_ONLY),
        says(86, f"ZEPA303-I:Output = {OUTPUT}.tar.gz.", HISTORY_ONLY),
        says(87, "ZEPA304-I:quendil exit code = 0.", HISTORY_ONLY),
        says(88, "ZEPA305-I:quendil ended at <TIME>.", HISTORY_ONLY))
def test_a_run_with_a_tool_and_a_data_item(machine: Machine, messages: Messages):
    machine.file("/opt/data", "12345")
    items = [pattern_text.tool(TOOL, timeout=7), pattern_text.data("/opt/data")]
    block = pattern_text.block(*items, targets=["up"])
    check(collect(machine, block, arguments=("-t", "up")), messages)


# ---- Warnings of a collection -------------------------------------------------------------------


@issues(says(19, "ZEPA125-W:An information collecting tool(/opt/no) that collects system"
             " information does not exist.", LOG),
        says(20, "ZEPA126-W:A timeout occurred while information collecting tool(/opt/behave) was"
             " being executed.", LOG),
        says(21, "ZEPA129-W:A system information(/opt/none) is not found.", LOG),
        says(22, "ZEPA130-W:An attempt to collect the system information has failed.", LOG),
        says(23, "ZEPA131-W:The size of the output data exceeded a limit size.", STDERR),
        says(44, "ZEPA153-W:The size of the output data exceeded a limit size. filename ="
             " /opt/large, size = 513 bytes.", LOG),
        says(38, "ZEPA148-W:An attempt to wait or stop a process (<PID>) has failed.", LOG),
        says(39, "ZEPA149-W:There were one or more information collection tools which could not be"
             " waited or be stopped.", STDERR),
        says(83, f"ZEPA216-I:Look at {expect.RUN_LOG}.", STDERR),
        says(40, "ZEPA140-W:An error occurred during the following system call. system call name ="
             " kill, error code = 22, msg = Invalid argument.", LOG),
        says(41, "ZEPA141-W:source = IGCmnProcess, line no = <LINE>.", LOG))
def test_data_that_cannot_be_collected(machine: Machine, messages: Messages):
    machine.conf("QUENDIL_MAX_OUTPUT_DATA_SIZE=1\n")
    machine.file("/opt/large", b"x" * 513)
    machine.fifo("/opt/fifo")
    run = collect(machine, pattern_text.tool("/opt/no"),
                  pattern_text.tool(machine.tool(forever()), timeout=1, signal=999),
                  *map(pattern_text.data, ("/opt/none", "/opt/fifo", "/opt/large")))
    check(run, messages)


@issues(says(29, "ZEPA136-E:quendil was interrupted. signal no = 15.", STDERR_LOG))
def test_an_interruption(machine: Machine, messages: Messages):
    run = begin(machine, pattern_text.tool(machine.tool(ready("/opt/ready"), forever())))
    run.wait_for("/opt/ready")
    run.signal(15)
    check(run.finish(), messages)


# ---- The archive --------------------------------------------------------------------------------


@issues(says(25, "ZEPA132-W:An error occurred while an archiver was being executed.", STDERR_LOG),
        says(26, f"ZEPA133-W:An attempt to copy the logfile ({expect.RUN_LOG}) has failed.",
             STDERR_LOG),
        says(33, f"ZEPA142-W:An attempt to copy the logfile ({HISTORY}) has failed.", LOG),
        says(82, f"ZEPA215-I:Output = {OUTPUT}.", STDOUT_LOG),
        says(86, f"ZEPA303-I:Output = {OUTPUT}.", HISTORY_ONLY))
def test_a_failed_archiver(machine: Machine, messages: Messages):
    machine.replace("/bin/cp", exit(1))
    machine.replace("/bin/tar", exit(1))
    check(collect(machine, pattern_text.block()), messages)


@issues(says(28, "ZEPA135-W:An error occurred while a compression was being executed.", STDERR_LOG),
        says(91, "ZEPA306-I:The archive file has not been compressed. Use a following file as is.",
             STDERR_LOG),
        says((74, 75), f"ZEPA211-I:Archive file = {OUTPUT}.tar. size = <SIZE> bytes.", STDOUT_LOG),
        says(86, f"ZEPA303-I:Output = {OUTPUT}.tar.", HISTORY_ONLY))
def test_a_failed_compression(machine: Machine, messages: Messages):
    machine.replace("/bin/gzip", exit(1))
    check(collect(machine, pattern_text.block()), messages)


# ---- The history --------------------------------------------------------------------------------


@issues(says(40, "ZEPA140-W:An error occurred during the following system call. system call name ="
             " open, error code = 21, msg = Is a directory.", STDERR_LOG),
        says(43, f"ZEPA152-W:Additional information, path = {HISTORY_LOCK}.", STDERR_LOG),
        says(41, "ZEPA141-W:source = IGCmnLog, line no = <LINE>.", STDERR_LOG))
def test_a_history_that_cannot_be_written(machine: Machine, messages: Messages):
    machine.directory(HISTORY_LOCK)
    check(collect(machine, pattern_text.block()), messages)


# ---- Memory -------------------------------------------------------------------------------------


#: A limit of memory that is enough for a small run and not for these.
MEMORY = {"data": 1_000_000}


@pytest.mark.plain_binary  # an instrumented binary needs more
@issues(says(18, "ZEPA122-E:Memory is insufficient.", STDERR_LOG))
def test_a_run_out_of_memory(machine: Machine, messages: Messages):
    items = [pattern_text.data("/opt/" + "x" * 200)] * 6000
    machine.pattern("10_demo", pattern_text.pattern(*items))
    run = machine.run(*GROUP, limits=MEMORY)
    check(run, messages)
    text = messages[0].text
    assert (run.status, run.stderr) == (255, text + expect.LOOK_AT_LOG)
    assert run.log == expect.RunLog("-g demo").parameters(["demo"]).raw(text).finished(255).text
    assert run.history == expect.history("-g demo", 255)
    assert machine.outputs() == []


@pytest.mark.plain_binary
def test_a_collection_out_of_memory(machine: Machine):
    many = machine.path(machine.directory("/opt/many"))
    for number in range(6000):
        (many / f"{number:0200}").touch()
    run = collect(machine, pattern_text.data("/opt/many"), limits=MEMORY)
    warning = "ZEPA143-W:Memory is insufficient.\n"
    assert (run.status, run.stderr) == (255, warning + expect.LOOK_AT_LOG)
    assert run.log is not None and f"Started collecting.\n{warning}" in run.log
    assert run.history == expect.history("-g demo", 255)
    assert machine.outputs() == []
