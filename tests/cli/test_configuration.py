"""The configuration file: what a line may hold, what it changes, and how a fault is reported."""

from __future__ import annotations

import pytest
from support import expect, pattern_text
from support.behave import forever, ready
from support.collecting import GROUP, begin, collect
from support.ending import BIN_DIRECTORY, HISTORY_LOCK, RUN_LOCK, check_refused
from support.machine import CONFIGURATION, DATA_DIRECTORY, Machine
from support.progress import Terminal
from support.run import Run


def fault(line: int, path: str = CONFIGURATION) -> str:
    """The report of a wrong line."""
    return ("ZEPA119-E:A syntax error occurred.\n"
            f"ZEPA120-E:filename = {path}, line no = {line}.\n")


def check_configured(machine: Machine, text: str | bytes, output: str = DATA_DIRECTORY,
                     **settings) -> None:
    """A run with this configuration is complete, and its summary shows these settings."""
    machine.file(CONFIGURATION, text)
    run = collect(machine, pattern_text.block())
    directory = f"{output}/{expect.OUTPUT_NAME}"
    settings.setdefault("limit", -1)
    log = expect.RunLog("-g demo").initialized("demo", output=directory, **settings)
    assert (run.status, run.stderr) == (0, "")
    assert run.log == log.complete(directory, directory).text


def check_fault(machine: Machine, text: str | bytes, line: int) -> None:
    """A run with this configuration ends with the report of the line."""
    machine.file(CONFIGURATION, text)
    check_refused(machine, machine.run(*GROUP), GROUP, fault(line), 1)


# ---- Lines --------------------------------------------------------------------------------------


@pytest.mark.parametrize("text", [
    "", "#\n", "# a comment\n#QUENDIL_CLEANUP=ON\n", "#no line feed", "#" * 1024 + "\n",
    "#" * 1024, "#a\r\n", "# !\"$%&'()*+,-./:;<=>?@[\\]^_`{|}~\n",
], ids=lambda text: f"{len(text)} bytes")
def test_comments_change_nothing(machine: Machine, text: str):
    check_configured(machine, text, cleanup="OFF")


@pytest.mark.parametrize("text, line", [
    ("\n", 1), ("#\n\n#\n", 2), ("#\n#\n\n", 3), ("QUENDIL_CLEANUP=ON\n\n", 2),
    (" \n", 1), (" # comment\n", 1), (" QUENDIL_CLEANUP=ON\n", 1), ("\r\n", 1),
    ("#\ta tab\n", 1), ("QUENDIL_CLEANUP=ON\t\n", 1), ("#\f\n", 1), ("#\x0b\n", 1), ("#\x7f\n", 1),
    ("#\x1b[0m\n", 1), ("# \u00e4\n", 1), (b"#\xff\n", 1), (b"#\xc3", 1), (b"#\0\n", 1),
    (b"#\nQUENDIL_CLEANUP=ON\0\n", 2), (b"\0", 1), ("\u00e4\n", 1),
    ("#" * 1025 + "\n", 1), ("#\n" + "#" * 1027 + "\n", 2), ("#\n" + "#" * 5000 + "\n", 2),
    ("QUENDIL_CLEANUP=" + "x" * 1009 + "\n", 1),
    ("x\n", 1), ("=ON\n", 1), ("Q\n", 1), ("QUENDIL_CLEANUP\n", 1), ("QUENDIL_CLEANUP=\n", 1),
    ("QUENDIL_CLEANUP= ON\n", 1), ("QUENDIL_CLEANUP =ON\n", 1), ("QUENDIL_CLEANUP = ON\n", 1),
    ("Quendil_Cleanup=ON\n", 1), ("quendil_cleanup=ON\n", 1), ("QUENDIL_CLEANUPS=ON\n", 1),
    ("QUENDIL_CLEAN=ON\n", 1), ("QUENDIL_=ON\n", 1), ("QUENDIL_CLEANUP#=ON\n", 1),
    ("QUENDIL_CLEANUP=ON\nQUENDIL_CLEANUP=ON\n", 2),
    ("#\nQUENDIL_CLEANUP=ON\n#\nQUENDIL_CLEANUP=OFF\n", 4),
    ("QUENDIL_MAX_OUTPUT_DATA_SIZE=1\nQUENDIL_MAX_OUTPUT_DATA_SIZE=1\n", 2),
    ("QUENDIL_DATA_DIRECTORY=/opt\nQUENDIL_DATA_DIRECTORY=/opt\n", 2),
], ids=lambda value: repr(value)[:30])
def test_a_line_that_is_wrong_is_reported_with_its_number(machine: Machine, text: str | bytes,
                                                          line: int):
    check_fault(machine, text, line)


def test_a_last_line_needs_no_line_feed(machine: Machine):
    check_configured(machine, "QUENDIL_CLEANUP=ON\nQUENDIL_MAX_OUTPUT_DATA_SIZE=5", limit=5)


def test_all_settings_together_in_any_order(machine: Machine):
    machine.directory("/opt/data")
    check_configured(machine, "QUENDIL_MAX_OUTPUT_DATA_SIZE=2147483647\n# between\n"
                     "QUENDIL_DATA_DIRECTORY=/opt/data\nQUENDIL_CLEANUP=OFF\n",
                     "/opt/data", cleanup="OFF", limit=2147483647)


# ---- Values -------------------------------------------------------------------------------------


@pytest.mark.parametrize("value", ["ON", "OFF"])
def test_cleanup_is_on_or_off(machine: Machine, value: str):
    check_configured(machine, f"QUENDIL_CLEANUP={value}\n", cleanup=value)


@pytest.mark.parametrize("value", [
    "on", "On", "off", "Off", "0", "1", "YES", "ON ", "ONN", '"ON"', "OFF#", "ON\r", "%HOST%",
])
def test_cleanup_is_nothing_else(machine: Machine, value: str):
    check_fault(machine, f"#\nQUENDIL_CLEANUP={value}\n", 2)


@pytest.mark.parametrize("value", [-1, 0, 1, 204800, 2147483647])
def test_a_size_is_taken_as_it_is(machine: Machine, value: int):
    check_configured(machine, f"QUENDIL_MAX_OUTPUT_DATA_SIZE={value}\n", cleanup="OFF", limit=value)


@pytest.mark.parametrize("value", [
    "007", "00", "+1", "-2", "-0", "-2147483648", "2147483648", "4294967295", "4294967296",
    "4294967297", "9223372036854775807", "9223372036854775808", "-9223372036854775809", "1 ",
    "1k", "0x10", "1.0", "1e3", "-", "--1", "- 1", "\"1\"", "1\r", "ON", "9" * 900,
], ids=lambda value: repr(value)[:24])
def test_a_size_is_a_plain_number(machine: Machine, value: str):
    check_fault(machine, f"QUENDIL_MAX_OUTPUT_DATA_SIZE={value}\n", 1)


@pytest.mark.parametrize("value, directory", [
    ("/opt/out", "/opt/out"), ('"/opt/out"', "/opt/out"), ('"/opt/a b"', "/opt/a b"),
    ("/opt/a b", "/opt/a b"), ("/opt/%HOST%", "/opt/testhost"),
    ('"/opt/%HOST%x"', "/opt/testhostx"),
    ("/opt/100%%", "/opt/100%"), ("/opt/a=b", "/opt/a=b"), ("/opt/#", "/opt/#"),
    ("%d%/opt/out", "/opt/out"), ("/opt/$(x)`'", "/opt/$(x)`'"),
])
def test_a_data_directory_takes_the_output(machine: Machine, value: str, directory: str):
    machine.directory(directory)
    check_configured(machine, f"QUENDIL_DATA_DIRECTORY={value}\n", directory, cleanup="OFF")
    assert machine.outputs() == []
    assert [name.endswith(".tar.gz") for name in machine.list(directory)] == [True]


def test_a_data_directory_is_made_plain_without_following_links(machine: Machine):
    machine.directory("/opt/far/away")
    machine.directory("/opt/out")
    machine.link("/opt/link", "/opt/far/away")
    machine.file("/opt/data", "x")
    machine.conf("QUENDIL_DATA_DIRECTORY=/opt/link/.././out/\n")
    run = collect(machine, pattern_text.data("/opt/data"))
    output = f"/opt/out/{expect.OUTPUT_NAME}"
    log = expect.RunLog("-g demo").initialized("demo", output=output, cleanup="OFF", limit=-1)
    log.data({"/opt/data": 1}, 1)
    assert run.log == log.complete(output, output).text
    assert "\nFILE:opt/data\n" in run.index


def test_a_data_directory_may_hold_the_time_of_the_start(machine: Machine):
    machine.conf('QUENDIL_DATA_DIRECTORY="/opt/%YY%%MM%%DD%-%hh%%mm%%ss%"\n')
    run = machine.run(*GROUP)
    assert run.status == 255
    shown = run.stderr.removeprefix("ZEPA104-E:The specified directory(/opt/")
    digits = shown[:shown.index(")")].replace("-", "")
    assert f"{run.began:%y%m%d%H%M%S}" <= digits <= f"{run.ended:%y%m%d%H%M%S}"


@pytest.mark.parametrize("value", [
    "opt", "./opt", '"opt"', '""', '"', "''", "/opt/%", "/opt/%FOO%", "/opt/%host%", "/opt/%HOST",
    "/opt/%reg1%", "/opt/%%%", "%HOST%", "%d%", '"/opt', "/" * 261, '"' + "/" * 259 + '"',
    "/" + "%%" * 130, "/" + "%HOST%" * 43,
], ids=lambda value: value[:16])
def test_a_data_directory_is_a_full_path_of_260_bytes_at_most(machine: Machine, value: str):
    check_fault(machine, f"QUENDIL_DATA_DIRECTORY={value}\n", 1)


def test_a_data_directory_of_260_bytes_is_taken(machine: Machine):
    path = machine.directory("/opt/" + "d" * 127 + "/" + "e" * 127)
    check_configured(machine, f"QUENDIL_DATA_DIRECTORY={path}\n", path, cleanup="OFF")


@pytest.mark.parametrize("value, reported", [
    ("/opt/none", "ZEPA104-E:The specified directory(/opt/none) does not exist.\n"),
    ("/opt/behave", "ZEPA104-E:The specified directory(/opt/behave) does not exist.\n"),
    ("/opt/%HOST%", "ZEPA104-E:The specified directory(/opt/testhost) does not exist.\n"),
    ("/opt/ro", "ZEPA105-E:You do not have write permissions for the specified"
     " directory(/opt/ro).\n"),
    ("/opt/nx", "ZEPA105-E:You do not have write permissions for the specified"
     " directory(/opt/nx).\n"),
])
def test_a_data_directory_that_cannot_be_used_is_refused(machine: Machine, value: str,
                                                         reported: str):
    machine.directory("/opt/ro", 0o577)
    machine.directory("/opt/nx", 0o677)
    machine.conf(f"QUENDIL_DATA_DIRECTORY={value}\n")
    check_refused(machine, machine.run(*GROUP), GROUP, reported, 2)


def test_the_option_wins_over_the_configured_directory(machine: Machine):
    machine.directory("/opt/wins")
    machine.conf("QUENDIL_DATA_DIRECTORY=/opt/none\nQUENDIL_CLEANUP=ON\n")
    run = collect(machine, pattern_text.block(), arguments=("-d", "/opt/wins"))
    output = f"/opt/wins/{expect.OUTPUT_NAME}"
    log = expect.RunLog("-g demo -d /opt/wins").initialized("demo", output=output, limit=-1)
    assert run.log == log.complete(output, output).text


@pytest.mark.parametrize("value", ["relative", "/%NONE%", "/" * 261])
def test_the_option_hides_no_fault_of_the_configured_directory(machine: Machine, value: str):
    machine.conf(f"QUENDIL_DATA_DIRECTORY={value}\n")
    arguments = [*GROUP, "-d", "/opt"]
    check_refused(machine, machine.run(*arguments), arguments, fault(1), 1)


def test_a_fault_after_good_lines_ends_the_run_and_collects_nothing(machine: Machine):
    machine.directory("/opt/data")
    check_fault(machine, "QUENDIL_DATA_DIRECTORY=/opt/data\nQUENDIL_CLEANUP=ON\nx\n", 3)
    assert machine.list("/opt/data") == []


# ---- Files --------------------------------------------------------------------------------------


def refused(machine: Machine, reported: str, *arguments: str) -> Run:
    run = machine.run(*GROUP, *arguments)
    assert run.status == 255
    assert run.stdout == Terminal().init().step(1).newline().text
    assert run.stderr == reported + expect.LOOK_AT_LOG
    return run


def test_a_missing_file_is_refused(machine: Machine):
    machine.remove(CONFIGURATION)
    refused(machine, f"ZEPA118-E:A configuration file({CONFIGURATION}) does not exist.\n")


def test_a_dangling_link_is_a_missing_file(machine: Machine):
    machine.remove(CONFIGURATION)
    machine.link(CONFIGURATION, "/opt/none")
    refused(machine, f"ZEPA118-E:A configuration file({CONFIGURATION}) does not exist.\n")


def test_a_directory_is_no_configuration_file(machine: Machine):
    machine.remove(CONFIGURATION)
    machine.directory(CONFIGURATION)
    refused(machine, "ZEPA106-E:The specified configuration"
            f" file({CONFIGURATION}) does not exist.\n")


def test_a_file_that_cannot_be_opened_is_refused(machine: Machine):
    machine.remove(CONFIGURATION)
    machine.link(CONFIGURATION, CONFIGURATION)
    refused(machine, "ZEPA112-E:You do not have access permissions for the specified"
            f" file({CONFIGURATION}).\n")


@pytest.mark.parametrize("name", [RUN_LOCK, HISTORY_LOCK])
@pytest.mark.parametrize("by_link", [False, True])
def test_a_lock_file_is_no_configuration_file(machine: Machine, name: str, by_link: bool):
    path = f"{BIN_DIRECTORY}/{name}"
    if by_link:
        path = machine.link("/opt/link", path)
    arguments = [*GROUP, "-c", path]
    check_refused(machine, machine.run(*arguments), arguments,
                  f"ZEPA112-E:You do not have access permissions for the specified file({path}).\n",
                  1)


def test_a_path_through_a_file_cannot_be_opened_either(machine: Machine):
    machine.remove("/etc/opt/norvale/quendil/config")
    machine.file("/etc/opt/norvale/quendil/config")
    refused(machine, "ZEPA112-E:You do not have access permissions for the specified"
            f" file({CONFIGURATION}).\n")


def test_the_shown_name_of_a_faulty_file_is_its_full_path(machine: Machine):
    machine.file("/opt/here/conf", "#\nx\n")
    run = machine.run(*GROUP, "-c", "./conf", cwd="/opt/here")
    assert run.stderr == fault(2, "/opt/here/conf") + expect.LOOK_AT_LOG


def test_the_default_file_is_not_read_when_another_is_given(machine: Machine):
    machine.conf("wrong\n")
    machine.file("/opt/conf", "QUENDIL_CLEANUP=ON\n")
    assert collect(machine, pattern_text.block(), arguments=("-c", "/opt/conf")).status == 0


def test_the_shipped_file_is_valid(machine: Machine):
    run = collect(machine, pattern_text.block())
    assert run.log == expect.RunLog("-g demo").initialized("demo").complete().text


def test_a_pipe_without_a_writer_does_not_stop_a_run(machine: Machine):
    machine.fifo("/opt/pipe")
    run = collect(machine, pattern_text.block(), arguments=("-c", "/opt/pipe"))
    assert run.status == 0
    assert "    Cleanup = OFF\n" in (run.log or "")


def test_without_the_setting_an_interrupted_run_leaves_its_output(machine: Machine):
    machine.conf("# nothing\n")
    run = begin(machine, pattern_text.tool(machine.tool(ready("/opt/ready"), forever())))
    run.wait_for("/opt/ready")
    run.signal(15)
    assert run.finish().status == 255
    assert machine.outputs() == [expect.OUTPUT_NAME]
