"""`unattended`: runs quendil for a timer or a failed unit, one run after the other and not too many."""

from __future__ import annotations

import re
import time

import pytest
from support import behave, pattern_text
from support.machine import DATA_DIRECTORY, LOG_DIRECTORY, Completed, Machine
from support.tool_directory import TOOLS, with_changes

UNATTENDED = f"{TOOLS}/unattended"
RECORD = f"{LOG_DIRECTORY}/quendil_failure.log"
USAGE = "usage: unattended [-f UNIT] OPTION...\n"
RESULT = re.compile(rf"quendil: the result is ({DATA_DIRECTORY}/testhost_\d{{12}}(?:_\d+)?(?:\.tar(?:\.gz)?)?)\n")
STARTED = "quendil: collecting, because {} has failed\n"


def add_pattern(machine: Machine, *actions: behave.Action) -> None:
    """A pattern of the group demo, with a tool that does this."""
    machine.pattern("10_demo", pattern_text.pattern(pattern_text.tool(
        machine.tool(*(actions or (behave.exit(0),))), timeout=60)))


def run(machine: Machine, *arguments: str, program: str = UNATTENDED, **environment: str) -> Completed:
    """Runs the command to its end."""
    return machine.exec([program, *arguments], check=False, env=environment)


def begin(machine: Machine, *arguments: str, program: str = UNATTENDED, output: str = "/tmp/out") -> None:
    """Starts the command in the background; the output ends with a line that has the exit status."""
    machine.exec(f"(echo >{output}; {program} {' '.join(arguments)} >{output} 2>&1 & "
                 f"echo $! >{output}.pid; wait $!; echo status $? >>{output}) </dev/null >/dev/null 2>&1 &")


def ended(machine: Machine, output: str = "/tmp/out") -> str:
    """Waits for the end of a command that was started in the background, and returns its output."""
    machine.wait_for(lambda: machine.exists(output) and "status " in machine.read(output), 60,
                     f"the end of {output}")
    return machine.read(output)


def wait_until_it_waits(machine: Machine, number: int = 1) -> None:
    """Waits until so many commands wait for their turn: each sleeps between two looks."""
    machine.wait_for(lambda: sum("sleep 1" in str(entry) for entry in machine.processes()) >= number)


def due(machine: Machine, unit: str, **environment: str) -> bool:
    """Whether there is a run for a unit that has failed."""
    done = run(machine, "-f", unit, "-g", "demo", **environment)
    assert done.status == 0 and done.stderr == ""
    return done.stdout.startswith(STARTED.format(unit))


# ---- A run --------------------------------------------------------------------------------------


def test_it_collects_and_names_the_result(system: Machine):
    add_pattern(system)
    done = run(system, "-g", "demo")
    assert (done.status, done.stderr) == (0, "")
    found = RESULT.fullmatch(done.stdout)
    assert found and system.exists(found[1]) and found[1].endswith(".tar.gz")
    assert "argument is -g demo." in system.read(f"{LOG_DIRECTORY}/quendil_hist.log")


@pytest.mark.parametrize("program, status, ending", [("/bin/gzip", 10, ".tar"), ("/bin/tar", 20, "")])
def test_the_status_of_the_run_is_its_own(machine: Machine, program: str, status: int, ending: str):
    add_pattern(machine)
    machine.replace(program, behave.exit(3))
    done = run(machine, "-g", "demo")
    found = RESULT.fullmatch(done.stdout)
    assert done.status == status and found and re.fullmatch(rf".*\d{ending}", found[1])


def test_an_error_is_printed_and_no_result_is_named(system: Machine):
    add_pattern(system)
    run(system, "-g", "demo")
    done = run(system, "-g", "unknown")
    assert (done.status, done.stdout) == (255, "")
    assert done.stderr.startswith("ZEPA")


def test_sigterm_ends_the_run_and_its_tool(system: Machine):
    system.conf("QUENDIL_CLEANUP=ON\n")
    add_pattern(system, behave.ready("/tmp/there"), behave.forever())
    begin(system, "-g", "demo")
    system.wait_for("/tmp/there")
    system.exec("kill -s TERM $(cat /tmp/out.pid)")
    assert ended(system).endswith("status 255\n")
    assert "ZEPA136-E" in ended(system)
    system.wait_for(lambda: not system.processes(), what="the end of all processes")
    assert system.list(DATA_DIRECTORY) == []


# ---- One run after the other --------------------------------------------------------------------


def test_it_waits_for_a_run_by_hand(system: Machine):
    add_pattern(system, behave.ready("/tmp/there"), behave.wait_for("/tmp/go"))
    by_hand = system.start("-g", "demo")
    system.wait_for("/tmp/there")
    begin(system, "-g", "demo")
    wait_until_it_waits(system)
    assert len(system.list(DATA_DIRECTORY)) == 1
    system.file("/tmp/go")
    assert by_hand.finish().status == 0
    assert ended(system).endswith("status 0\n")
    assert len(system.list(DATA_DIRECTORY)) == 2


def test_runs_that_it_starts_together_come_one_after_the_other(system: Machine):
    add_pattern(system)
    outputs = [f"/tmp/out{number}" for number in range(4)]
    for output in outputs:
        begin(system, "-g", "demo", output=output)
    for output in outputs:
        assert RESULT.match(ended(system, output)), ended(system, output)
    assert len(system.list(DATA_DIRECTORY)) == 4


def test_a_process_that_a_tool_leaves_behind_does_not_block_the_next_run(machine: Machine):
    machine.allow_survivors()
    add_pattern(machine, behave.child(behave.session(), behave.forever()), behave.exit(0))
    for _ in range(2):
        assert run(machine, "-g", "demo").status == 0


def test_it_does_not_wait_forever(system: Machine):
    add_pattern(system, behave.ready("/tmp/there"), behave.wait_for("/tmp/go"))
    tools = with_changes(system, "unattended", ("patience=1800", "patience=1"))
    by_hand = system.start("-g", "demo")
    system.wait_for("/tmp/there")
    done = run(system, "-g", "demo", program=f"{tools}/unattended")
    assert (done.status, done.stdout) == (75, "")
    assert done.stderr == "quendil: not started: another run is still active after 1 s\n"
    system.file("/tmp/go")
    by_hand.finish()


# ---- For a failed unit --------------------------------------------------------------------------


def test_there_is_one_run_a_day_for_a_unit(system: Machine):
    add_pattern(system)
    began = int(time.time())
    done = run(system, "-f", "web-1@a\\x2db.service", "-g", "demo")
    first, _, rest = done.stdout.partition("\n")
    assert first + "\n" == STARTED.format("web-1@a\\x2db.service") and RESULT.fullmatch(rest)
    when, unit = system.read(RECORD).split()
    assert began <= int(when) <= time.time() and unit == "web-1@a\\x2db.service"
    assert system.mode(RECORD) == "0600"
    done = run(system, "-f", "web-1@a\\x2db.service", "-g", "demo")
    assert (done.status, done.stderr) == (0, "")
    assert done.stdout == ("quendil: not started: there was a run for web-1@a\\x2db.service "
                           "in the last 24 hours\n")
    assert len(system.list(DATA_DIRECTORY)) == 1


def test_there_are_four_runs_a_day_for_all_units(system: Machine):
    add_pattern(system)
    assert [due(system, f"u{number}.service") for number in range(6)] == [True] * 4 + [False] * 2
    assert len(system.list(DATA_DIRECTORY)) == 4
    assert run(system, "-f", "u9.service", "-g", "demo").stdout == (
        "quendil: not started: there were 4 runs for failed units in the last 24 hours\n")
    assert due(system, "u5.service", QUENDIL_FAILURE_RUNS="5")
    assert not due(system, "u6.service", QUENDIL_FAILURE_RUNS="5")
    assert run(system, "-g", "demo").status == 0


def test_units_that_fail_together_do_not_exceed_the_number(system: Machine):
    add_pattern(system)
    outputs = [f"/tmp/out{number}" for number in range(7)]
    for number, output in enumerate(outputs):
        begin(system, "-f", f"u{number}.service", "-g", "demo", output=output)
    texts = [ended(system, output) for output in outputs]
    assert sum("the result is" in text for text in texts) == 4
    assert sum("not started: there were 4 runs" in text for text in texts) == 3
    assert len(system.list(DATA_DIRECTORY)) == len(system.read(RECORD).splitlines()) == 4


@pytest.mark.parametrize("ago, counts", [(86300, True), (86500, False), (-3600, False)])
def test_runs_of_the_last_day_count(system: Machine, ago: int, counts: bool):
    add_pattern(system)
    line = f"{int(time.time()) - ago} a.service\n"
    system.file(RECORD, line)
    assert due(system, "a.service") is not counts
    assert (line in system.read(RECORD)) is counts


@pytest.mark.parametrize("record", ["", "x\n", "\n", "123\n", "007 a.service\n", "$(id) a.service\n",
                                    "99999999999999999999 a.service\n", "-1 a.service\n", "\0\xff\n"])
def test_a_damaged_record_blocks_nothing(system: Machine, record: str):
    add_pattern(system)
    system.file(RECORD, record)
    assert due(system, "a.service") and not due(system, "a.service")


def test_without_a_record_there_is_no_run(machine: Machine):
    add_pattern(machine)
    machine.directory(f"{RECORD}.new")
    machine.file(f"{RECORD}.new/x")
    done = run(machine, "-f", "a.service", "-g", "demo")
    assert (done.status, done.stdout) == (1, "") and RECORD in done.stderr
    assert machine.list(DATA_DIRECTORY) == []


@pytest.mark.parametrize("unit", ["quendil.service", "quendil-prune.service",
                                  "quendil-failure@web.service.service"])
def test_there_is_no_run_for_the_units_of_quendil(system: Machine, unit: str):
    add_pattern(system)
    done = run(system, "-f", unit, "-g", "demo")
    assert (done.status, done.stdout) == (0, f"quendil: not started: {unit} is a unit of quendil\n")
    assert system.list(DATA_DIRECTORY) == [] and not system.exists(RECORD)


@pytest.mark.parametrize("arguments", [[], ["-f"], ["-f", "a.service"], ["-f", "", "-g", "demo"],
                                       ["-f", "a b", "-g", "demo"], ["-f", "a\nb", "-g", "demo"],
                                       ["-f", "../a", "-g", "demo"], ["-f", "$(id)", "-g", "demo"]])
def test_wrong_usage_starts_nothing(system: Machine, arguments: list[str]):
    add_pattern(system)
    done = run(system, *arguments)
    assert (done.status, done.stdout, done.stderr) == (2, "", USAGE)
    assert system.list(DATA_DIRECTORY) == [] and not system.exists(RECORD)


def test_a_number_that_is_none_starts_nothing(machine: Machine):
    add_pattern(machine)
    done = run(machine, "-f", "a.service", "-g", "demo", QUENDIL_FAILURE_RUNS="many")
    assert (done.status, done.stderr) == (2, USAGE)
