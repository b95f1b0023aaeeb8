"""The command line: what is accepted, and what is refused with which message."""

from __future__ import annotations

import pytest
from support import expect, pattern_text
from support.collecting import collect, complete_output
from support.ending import check_refused
from support.machine import CONFIGURATION, DATA_DIRECTORY, LOG_DIRECTORY, PROGRAMS, Machine
from support.masking import decode
from support.progress import Terminal
from support.tree import read_archive

REQUIRED = "ZEPA115-E:A required option is not specified.\n"
BIN = "/opt/norvale/quendil/bin"

USAGE = ("{name} [Ver. 01-02]\n\n"
         "usage:\t{name}\t{{ -g pp_group | -t target }} ...\n"
         "\t\t[ -c configfile ] [ -d directory ] [ -o output_file ]\n"
         "\t{name}\t-h\n\n")


def invalid(option: str) -> str:
    return f"ZEPA101-E:The specified option({option}) is invalid.\n"


def wants_argument(option: str) -> str:
    return f"ZEPA102-E:The specified option({option}) requires an argument.\n"


def no_directory(path: str) -> str:
    return f"ZEPA104-E:The specified directory({path}) does not exist.\n"


def not_writable(path: str) -> str:
    return f"ZEPA105-E:You do not have write permissions for the specified directory({path}).\n"


def no_configuration(path: str) -> str:
    return f"ZEPA106-E:The specified configuration file({path}) does not exist.\n"


def repeated(option: str) -> str:
    return f"ZEPA107-W:The specified option({option}) cannot be specified twice or more.\n"


def too_long(option: str) -> str:
    return f"ZEPA108-E:The specified argument of the option({option}) is too long.\n"


def exists(path: str) -> str:
    return f"ZEPA109-E:The specified file({path}) already exists.\n"


def not_readable(path: str) -> str:
    return f"ZEPA112-E:You do not have access permissions for the specified file({path}).\n"


def not_absolute(path: str) -> str:
    return f"ZEPA144-E:The specified output file({path}) must be absolute path name.\n"


def long_path(machine: Machine, length: int) -> str:
    """A path of so many bytes below /opt/long; its directories exist, its last part does not."""
    path = "/opt/long/" + "d" * 120
    machine.directory(path)
    return path + "/" + "e" * (length - len(path) - 1)


# ---- Help ---------------------------------------------------------------------------------------


@pytest.mark.parametrize("arguments", [
    ["-h"], ["-H"], ["-g", "demo", "-h"], ["-o", "-h"], ["-x", "-H"], ["-t", "-h"], ["-h", "-h"],
    ["-g", "demo", "-o", "relative", "-c", "-h"],
])
def test_help_is_shown_at_every_position(machine: Machine, arguments: list[str]):
    run = machine.run(*arguments)
    assert run.status == 255
    assert run.stdout == USAGE.format(name="quendil")
    assert run.stderr == ""
    assert run.log is None
    assert run.history == expect.history(" ".join(arguments), 255)
    assert machine.list(BIN) == [".quendil_hist.lck", *PROGRAMS]
    assert machine.list(LOG_DIRECTORY) == ["quendil_hist.log"]
    assert machine.outputs() == []


@pytest.mark.parametrize("argv0, name", [
    ("/some/where/collector", "collector"), ("collector", "collector"), ("./a b", "a b"),
    ("%s%n", "%s%n"),
])
def test_help_names_the_program_as_it_was_called(machine: Machine, argv0: str, name: str):
    if machine.wrapped:
        pytest.skip("a wrapped program cannot be given another name")
    assert machine.run("-h", argv0=argv0).stdout == USAGE.format(name=name)


def test_help_is_shown_to_every_user(machine: Machine):
    run = machine.run("-h", user=1000)
    assert (run.status, run.stdout, run.stderr) == (255, USAGE.format(name="quendil"), "")
    assert run.history is None
    assert machine.list(BIN) == PROGRAMS


@pytest.mark.parametrize("argument", ["--help", "-help", "-hh", "h", "-?", " -h"])
def test_no_other_argument_shows_help(machine: Machine, argument: str):
    check_refused(machine, machine.run(argument), [argument], invalid(argument))


# ---- Options ------------------------------------------------------------------------------------


@pytest.mark.parametrize("arguments, reported", [
    (["-x"], invalid("-x")),
    (["demo"], invalid("demo")),
    ([""], invalid("")),
    (["-"], invalid("-")),
    (["--"], invalid("--")),
    (["-gdemo"], invalid("-gdemo")),
    (["-g=demo"], invalid("-g=demo")),
    (["-tdemo"], invalid("-tdemo")),
    (["-g", "demo", "more"], invalid("more")),
    (["-g", "demo", "-x", "-g"], invalid("-x")),
    (["a b"], invalid("a b")),
    (["%s%n"], invalid("%s%n")),
    (["-g"], wants_argument("-g")),
    (["-T"], wants_argument("-T")),
    (["-g", "demo", "-d"], wants_argument("-d")),
    (["-g", "demo", "-O"], wants_argument("-O")),
    (["-g", "demo", "-c"], wants_argument("-c")),
    (["-g", "-t"], wants_argument("-g")),
    (["-g", "-t", "demo"], wants_argument("-g")),
    (["-t", "-demo"], wants_argument("-t")),
    (["-g", "-"], wants_argument("-g")),
    (["-t", "-" + "x" * 300], wants_argument("-t")),
    (["-d", "/opt", "-d", "-"], wants_argument("-d")),
    (["-d", "/opt", "-d", "/" * 261], too_long("-d")),
    (["-o", "/opt/x", "-o", "x" * 261], too_long("-o")),
    (["-c", "/none", "-c", "x" * 261], too_long("-c")),
    (["-g", "x" * 256, "-t"], wants_argument("-t")),
    (["-g", "-h "], wants_argument("-g")),
    (["-g", "demo", "-D", "-o"], wants_argument("-D")),
    (["-g", "demo", "-o", "-"], wants_argument("-o")),
    (["-g", "demo", "-C", "-c"], wants_argument("-C")),
    (["-g", "x" * 257], too_long("-g")),
    (["-T", "x" * 257], too_long("-T")),
    (["-g", "\u00e4" * 129], too_long("-g")),
    (["-g", "x" * 100_000], too_long("-g")),
    (["-g", "demo", "-d", "/" * 261], too_long("-d")),
    (["-g", "demo", "-o", "x" * 261], too_long("-o")),
    (["-g", "demo", "-C", "/" * 261], too_long("-C")),
    (["-c", CONFIGURATION], REQUIRED),
    (["-d", "/opt/none"], REQUIRED),
    (["-o", "/opt/none/x"], REQUIRED),
    (["-g", "demo", "-o", "relative"], not_absolute("relative")),
    (["-g", "demo", "-o", ""], not_absolute("")),
    (["-g", "demo", "-o", "/opt/"], not_absolute("/opt/")),
    (["-g", "demo", "-o", "/"], not_absolute("/")),
    (["-g", "demo", "-o", "./x"], not_absolute("./x")),
    (["-o", "relative"], not_absolute("relative")),
    (["-g", "demo", "-d", "/opt/none", "-x"], invalid("-x")),
])
def test_a_command_line_that_is_wrong(machine: Machine, arguments: list[str], reported: str):
    check_refused(machine, machine.run(*arguments), arguments, reported)


def test_no_arguments_at_all(machine: Machine):
    run = machine.run()
    assert run.status == 255
    assert run.stdout == Terminal().init().newline().text
    assert run.stderr == REQUIRED + expect.LOOK_AT_LOG
    assert run.log == expect.RunLog().raw(REQUIRED).finished(255).text
    assert run.history == expect.history(None, 255)
    assert machine.outputs() == []


def test_the_bar_ends_before_the_message(machine: Machine):
    run = machine.run("-x", merge=True)
    assert run.stdout == Terminal().init().newline().text + invalid("-x") + expect.LOOK_AT_LOG


@pytest.mark.parametrize("arguments, joined", [
    (["-g", "a b"], "-g 'a b'"), (["-g", "a\tb"], "-g a\tb"), (["-g", "it's"], "-g it's"),
    (["-g", "it's so"], "-g 'it's so'"), (["-g", " "], "-g ' '"), (["-g", ""], "-g "),
    (["", "-g", "x"], "-g x"), (["-g", "", ""], "-g  "), (["-g", "%s%n%d"], "-g %s%n%d"),
    (["-g", "\u00e4\u20ac"], "-g \u00e4\u20ac"), (["-x", "y" * 20_000], "-x " + "y" * 20_000),
    (["-x", *["word"] * 500], "-x" + " word" * 500),
    (["-x", "a\nZEPA304-I:forged\r\x1b[2J\x7f"], "-x a\\012ZEPA304-I:forged\\015\\033[2J\\177"),
    (["-x", "\x1b \t"], "-x '\\033 \t'"), (["-x", "\u009b2J"], "-x \\302\\2332J"),
    (["-x", "\udc9b2J\udc80\udcff"], "-x \\2332J\\200\udcff"),
    (["-x", "\u00db\u2014"], "-x \u00db\u2014"),
    (["-x", "y" * 100_000 + "\x1b"], "-x " + "y" * 100_000 + "\\033"),
], ids=lambda value: ascii(value[:12]) if isinstance(value, str) else "")
def test_arguments_are_recorded_joined(machine: Machine, arguments: list[str], joined: str):
    run = machine.run(*arguments)
    assert run.history == expect.history(joined, 255)
    assert run.log is not None and run.log.startswith(expect.RunLog(joined).text)


@pytest.mark.parametrize("upper", [False, True])
def test_every_option_is_taken_in_both_spellings(machine: Machine, upper: bool):
    given = {"-g": "demo", "-t": "left", "-d": "/opt/out", "-o": "/opt/result",
             "-c": machine.file("/opt/conf", "QUENDIL_CLEANUP=ON\n")}
    machine.directory("/opt/out")
    arguments = [word for option, value in given.items()
                 for word in (option.upper() if upper else option, value)]
    machine.pattern("10_demo", pattern_text.pattern(pattern_text.block(targets=["left"])))
    run = machine.run(*arguments)
    output = f"/opt/out/{expect.OUTPUT_NAME}"
    log = expect.RunLog(" ".join(arguments)).initialized(
        "demo", targets=["left"], configuration="/opt/conf", output=output, limit=-1,
        output_file="/opt/result")
    assert run.status == 0
    assert run.stderr == ""
    assert run.stdout == complete_output(0, "/opt/result")
    assert run.log == log.complete("/opt/result", output).text
    assert run.history == expect.history(" ".join(arguments), 0, "/opt/result.tar.gz")
    assert machine.list("/opt/out") == machine.outputs() == []


def test_groups_and_targets_add_up_in_their_order(machine: Machine):
    arguments = ["-g", "b", "-t", "2", "-G", "a", "-T", "1", "-g", "b"]
    machine.pattern("10_demo", pattern_text.pattern(groups=["none"], name="x")
                    + pattern_text.block() + "\n")
    run = machine.run(*arguments)
    log = expect.RunLog(" ".join(arguments)).parameters(["b", "a", "b"], ["2", "1"])
    check_refused(machine, run, arguments, "ZEPA121-E:There is not system information to be"
                  " collected under the specified options.\n", 3, log)


@pytest.mark.parametrize("option, value", [("-g", "x" * 256), ("-t", "\u00e4" * 128)])
def test_a_group_or_target_of_256_bytes_is_taken(machine: Machine, option: str, value: str):
    machine.no_patterns()
    assert "ZEPA145-W" in machine.run(option, value).stderr


#: A text that would forge a line and clear a terminal, and how it is shown; a tab stays a tab.
FORGED, SHOWN = "x\n\x1b[2J\t\u009b", "x\\012\\033[2J\t\\302\\233"


@pytest.mark.parametrize("arguments, reported", [
    ([FORGED], invalid(SHOWN)),
    (["-g", "demo", "-o", FORGED], not_absolute(SHOWN)),
    (["-g", "demo", "-d", f"/opt/{FORGED}"], no_directory(f"/opt/{SHOWN}")),
    (["-g", "demo", "-d", f"/opt/present {FORGED}"], not_writable(f"/opt/present {SHOWN}")),
    (["-g", "demo", "-o", f"/opt/present {FORGED}"], exists(f"/opt/present {SHOWN}")),
    (["-g", "demo", "-c", f"/opt/{FORGED}"], no_configuration(f"/opt/{SHOWN}")),
    (["-g", "demo", "-c", f"/opt/unreadable {FORGED}"], not_readable(f"/opt/unreadable {SHOWN}")),
], ids=lambda value: value[:9] if isinstance(value, str) else "")
def test_no_argument_forges_a_line_of_an_error(machine: Machine, arguments: list[str],
                                               reported: str):
    machine.directory(f"/opt/present {FORGED}", 0o500)
    machine.file(f"/opt/unreadable {FORGED}", "", 0o200)
    run = machine.run(*arguments)
    assert (run.status, run.stderr) == (255, reported + expect.LOOK_AT_LOG)
    assert reported in (run.log or "")


def test_what_is_selected_and_configured_forges_no_line(machine: Machine):
    machine.file(f"/opt/{FORGED}", "QUENDIL_CLEANUP=ON\nwrong\n")
    run = machine.run("-g", "demo", "-c", f"/opt/{FORGED}")
    assert run.stderr == ("ZEPA119-E:A syntax error occurred.\nZEPA120-E:filename ="
                          f" /opt/{SHOWN}, line no = 2.\n") + expect.LOOK_AT_LOG
    run = machine.run("-g", FORGED, "-t", FORGED)
    assert f"    TARGET = {SHOWN}\n    PP_GROUP = {SHOWN}\n" in (run.log or "")


# ---- Directory ----------------------------------------------------------------------------------


def index_in(machine: Machine, directory: str) -> str:
    """The index of the one archive in a directory."""
    (archive,) = machine.list(directory)
    return decode(read_archive(machine.path(f"{directory}/{archive}")).read("quendil_index"))


@pytest.mark.parametrize("odd, shown", [(FORGED, SHOWN), ("\udc9b2J\udcff", "\\2332J\udcff")],
                         ids=["control characters", "not UTF-8"])
def test_a_directory_of_an_odd_name_is_used_as_it_is_and_shown_escaped(machine: Machine, odd: str,
                                                                       shown: str):
    machine.directory(f"/opt/{odd}")
    run = collect(machine, pattern_text.block(), arguments=("-d", f"/opt/{odd}"))
    output = f"/opt/{shown}/{expect.OUTPUT_NAME}"
    arguments = f"-g demo -d /opt/{shown}"
    log = expect.RunLog(arguments).initialized("demo", output=output)
    assert (run.status, run.stderr) == (0, "")
    assert run.stdout == complete_output(0, output)
    assert run.log == log.complete(output, output).text
    assert run.history == expect.history(arguments, 0, f"{output}.tar.gz")
    assert index_in(machine, f"/opt/{odd}") == expect.index_header(arguments)


def test_a_tool_in_a_directory_of_an_odd_name_is_shown_escaped(machine: Machine):
    odd = machine.directory("/opt/x\n\x1b[2J")  # a tab would end the command's name
    run = collect(machine, pattern_text.tool("%d%/none"), arguments=("-d", odd))
    tool = f"/opt/x\\012\\033[2J/{expect.OUTPUT_NAME}/none"
    assert run.status == 0
    assert f'    Command  = "{tool}"\n' in (run.log or "")
    assert f"ZEPA125-W:An information collecting tool({tool}) that" in (run.log or "")


def test_a_missing_directory_is_refused_as_it_was_given(machine: Machine):
    for value in ("/opt/none", "none", "../none/./", "/opt/behave"):
        run = machine.run("-g", "demo", "-d", value, cwd="/opt/norvale")
        assert run.status == 255
        assert run.stderr == no_directory(value) + expect.LOOK_AT_LOG


@pytest.mark.parametrize("mode, taken", [
    (0o300, True), (0o700, True), (0o200, False), (0o100, False), (0o500, False), (0o477, False),
    (0o677, False), (0o000, False),
])
def test_only_the_owners_bits_make_a_directory_writable(machine: Machine, mode: int, taken: bool):
    machine.directory("/opt/out", mode)
    arguments = ["-g", "demo", "-d", "/opt/out"]
    if taken:
        run = collect(machine, pattern_text.block(), arguments=("-d", "/opt/out"))
        assert (run.status, run.stderr) == (0, "")
        assert run.result.startswith("/opt/out/testhost_")
    else:
        check_refused(machine, machine.run(*arguments), arguments, not_writable("/opt/out"))
    assert machine.mode("/opt/out") == f"{mode:04o}"


@pytest.mark.parametrize("value, shown", [
    ("out", "/opt/base/out"), ("./out/", "/opt/base/out"), ("../base/./out//", "/opt/base/out"),
    (".", "/opt/base"), ("/opt/base/../base/out", "/opt/base/out"), ("../../opt/base", "/opt/base"),
    ("/../opt", "/opt"), ("", "/opt/base"),
])
def test_a_directory_is_made_absolute_and_normalized(machine: Machine, value: str, shown: str):
    machine.directory("/opt/base/out")
    run = collect(machine, pattern_text.block(), arguments=("-d", value), cwd="/opt/base")
    assert run.status == 0
    assert run.result.startswith(f"{shown}/testhost_")
    assert f"information = {shown}/{expect.OUTPUT_NAME}\n" in (run.log or "")


def test_a_directory_of_260_bytes_is_taken(machine: Machine):
    path = machine.directory(long_path(machine, 260))
    run = collect(machine, pattern_text.block(), arguments=("-d", path))
    assert run.status == 0 and run.result.startswith(path + "/")


def test_a_repeated_directory_gives_a_warning_and_the_last_one_wins(machine: Machine):
    machine.directory("/opt/last")
    arguments = ("-d", "/opt/none", "-D", "/opt/none/2", "-d", "/opt/last")
    run = collect(machine, pattern_text.block(), arguments=arguments)
    reported = repeated("-D") + repeated("-d")
    output = f"/opt/last/{expect.OUTPUT_NAME}"
    log = expect.RunLog(" ".join(("-g", "demo", *arguments))).raw(reported)
    assert run.status == 0
    assert run.stderr == reported
    assert run.log == log.initialized("demo", output=output).complete(output, output).text


def test_a_warning_leaves_the_bar_as_it_is(machine: Machine):
    run = collect(machine, pattern_text.block(), merge=True,
                  arguments=("-d", "/opt", "-d", DATA_DIRECTORY))
    bar = Terminal().init().text
    end = complete_output(0)
    assert end.startswith(bar)
    assert run.stdout == bar + "\n" + repeated("-d") + end[len(bar):]


# ---- Output file --------------------------------------------------------------------------------


def test_an_output_file_that_exists_is_refused(machine: Machine):
    machine.file("/opt/d/file")
    machine.directory("/opt/d/directory")
    machine.fifo("/opt/d/fifo")
    machine.link("/opt/d/link", "file")
    machine.link("/opt/d/nowhere", "none")
    for value in ("/opt/d/file", "/opt/d/directory", "/opt/d/fifo", "/opt/d/link", "/opt/d/nowhere",
                  "/opt/d/./file"):
        run = machine.run("-g", "demo", "-o", value)
        assert run.status == 255
        assert run.stderr == exists(value) + expect.LOOK_AT_LOG


@pytest.mark.parametrize("present, reported", [
    ([".tar"], ".tar"), ([".tar.gz"], ".tar.gz"), ([".tar.gz", ".tar"], ".tar"),
])
def test_an_output_file_whose_result_exists_is_refused(machine: Machine, present: list[str],
                                                       reported: str):
    for suffix in present:
        machine.file(f"/opt/d/name{suffix}", "kept")
    arguments = ["-g", "demo", "-o", "/opt/d/name"]
    check_refused(machine, machine.run(*arguments), arguments, exists(f"/opt/d/name{reported}"))
    assert [machine.read(f"/opt/d/name{suffix}") for suffix in present] == ["kept"] * len(present)


@pytest.mark.parametrize("value, directory", [
    ("/opt/none/x", "/opt/none"), ("/opt/behave/x", "/opt/behave"), ("/none/x", "/none"),
    ("/opt/none/../x", "/opt/none/.."), ("//none/x", "//none"),
])
def test_an_output_file_in_a_missing_directory_is_refused(machine: Machine, value: str,
                                                          directory: str):
    arguments = ["-g", "demo", "-o", value]
    check_refused(machine, machine.run(*arguments), arguments, no_directory(directory))


def test_a_repeated_output_file_gives_a_warning_and_the_last_one_wins(machine: Machine):
    run = collect(machine, pattern_text.block(), arguments=("-o", "/none/x", "-O", "/opt/last"))
    assert (run.status, run.stderr) == (0, repeated("-O"))
    assert run.result == "/opt/last.tar.gz"


def test_the_warning_of_a_repeated_output_file_comes_before_its_error(machine: Machine):
    arguments = ["-g", "demo", "-o", "/opt/x", "-o", "y"]
    check_refused(machine, machine.run(*arguments), arguments, repeated("-o") + not_absolute("y"))


def test_the_names_of_the_result_are_checked_in_the_normalized_path(machine: Machine):
    machine.file("/opt/name.tar.gz")
    machine.directory("/opt/d")
    arguments = ["-g", "demo", "-o", "/opt/d/.././name"]
    check_refused(machine, machine.run(*arguments), arguments, exists("/opt/name.tar.gz"))


def test_an_output_file_below_the_root_has_no_directory_to_check(machine: Machine):
    run = collect(machine, pattern_text.block(), arguments=("-o", "/result"))
    # Only tar finds out that nothing can be made there.
    assert run.status == 20
    assert run.stderr == "ZEPA132-W:An error occurred while an archiver was being executed.\n"


def test_an_output_file_of_260_bytes_is_taken(machine: Machine):
    path = long_path(machine, 260)
    run = collect(machine, pattern_text.block(), arguments=("-o", path))
    assert (run.status, run.result) == (0, path + ".tar.gz")


def test_the_archive_alone_takes_the_name_of_the_output_file(machine: Machine):
    run = collect(machine, pattern_text.block(), arguments=("-o", "/opt/my result"))
    assert run.result == "/opt/my result.tar.gz"
    assert run.archive.top.startswith("testhost_")
    assert run.history == expect.history("-g demo -o '/opt/my result'", 0, run.result)


# ---- Configuration file -------------------------------------------------------------------------


def test_a_missing_configuration_file_is_refused_as_it_was_given(machine: Machine):
    machine.link("/opt/nowhere", "none")
    for value in ("/opt/none", "none", "./../none", "/opt", "/opt/nowhere", ""):
        run = machine.run("-g", "demo", "-c", value, cwd="/opt/norvale")
        assert run.status == 255
        assert run.stderr == no_configuration(value) + expect.LOOK_AT_LOG


@pytest.mark.parametrize("mode, taken", [
    (0o400, True), (0o600, True), (0o377, False), (0o044, False), (0o000, False),
])
def test_only_the_owners_bit_makes_a_configuration_file_readable(machine: Machine, mode: int,
                                                                 taken: bool):
    machine.file("/opt/conf", "QUENDIL_CLEANUP=ON\n", mode)
    if taken:
        assert collect(machine, pattern_text.block(), arguments=("-c", "/opt/conf")).status == 0
    else:
        arguments = ["-g", "demo", "-c", "/opt/conf"]
        check_refused(machine, machine.run(*arguments), arguments, not_readable("/opt/conf"))


def test_a_configuration_file_is_shown_by_its_full_path(machine: Machine):
    machine.file("/opt/here/conf", "QUENDIL_CLEANUP=ON\n")
    run = collect(machine, pattern_text.block(), arguments=("-c", "../here/./conf"),
                  cwd="/opt/here")
    log = expect.RunLog("-g demo -c ../here/./conf")
    assert run.log == log.initialized("demo", configuration="/opt/here/conf",
                                          limit=-1).complete().text


def test_a_configuration_file_of_260_bytes_is_taken(machine: Machine):
    path = machine.file(long_path(machine, 260), "QUENDIL_CLEANUP=ON\n")
    assert collect(machine, pattern_text.block(), arguments=("-c", path)).status == 0


def test_a_repeated_configuration_file_gives_a_warning_and_the_last_one_wins(machine: Machine):
    last = machine.file("/opt/last", "QUENDIL_MAX_OUTPUT_DATA_SIZE=7\n")
    run = collect(machine, pattern_text.block(), arguments=("-c", "/none", "-c", last))
    assert (run.status, run.stderr) == (0, repeated("-c"))
    assert "    Max output data size = 7 KB\n" in (run.log or "")


@pytest.mark.parametrize("arguments, reported", [
    (["-c", "/none", "-o", "/none/x", "-d", "/none"], no_directory("/none")),
    (["-c", "/none", "-o", "/opt/behave"], exists("/opt/behave")),
    (["-c", "/none", "-d", "/opt"], no_configuration("/none")),
])
def test_values_are_checked_in_a_fixed_order(machine: Machine, arguments: list[str], reported: str):
    arguments = ["-g", "demo", *arguments]
    check_refused(machine, machine.run(*arguments), arguments, reported)


def test_a_removed_working_directory_matters_to_relative_values_only(machine: Machine):
    machine.file("/opt/gone/run", "#!/bin/sh\ncd /opt/gone/cwd && /bin/rmdir /opt/gone/cwd &&"
                 ' exec /opt/norvale/quendil/bin/quendil "$@"\n', 0o755)
    machine.directory("/opt/gone/cwd")
    done = machine.exec(["/opt/gone/run", "-g", "demo", "-d", "out"], check=False)
    reported = expect.system_error("getcwd", 2)
    assert (done.status, done.stderr) == (255, reported + expect.LOOK_AT_LOG)
    machine.directory("/opt/gone/cwd")
    done = machine.exec(["/opt/gone/run", "-g", "none", "-d", "/opt"], check=False)
    assert done.stderr.startswith("ZEPA121-E")
