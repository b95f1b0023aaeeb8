"""The limit of the output's size: what fits, what does not, and how that is reported.

The limit is configured in units of 512 bytes.
"""

from __future__ import annotations

import os

import pytest
from support import behave, expect, pattern_text
from support.behave import ready
from support.collecting import begin, collect, complete_output
from support.machine import DATA_DIRECTORY, Machine

OVER = "ZEPA131-W:The size of the output data exceeded a limit size.\n"


def limited(machine: Machine, limit: int, cleanup: str = "ON") -> expect.RunLog:
    """Sets the limit; returns the log of a run up to its first item."""
    machine.conf(f"QUENDIL_MAX_OUTPUT_DATA_SIZE={limit}\nQUENDIL_CLEANUP={cleanup}\n")
    return expect.RunLog("-g demo").initialized("demo", limit=limit, cleanup=cleanup)


def too_large(path: str, size: int) -> str:
    """What the log reports of a file that does not fit."""
    return ("ZEPA153-W:The size of the output data exceeded a limit size."
            f" filename = {path}, size = {size} bytes.\n")


def data_files(machine: Machine, *file_sizes: int) -> list[str]:
    """Files of these sizes, named after their place."""
    return [machine.file(f"/opt/data/{number}", b"x" * size)
            for number, size in enumerate(file_sizes)]


@pytest.mark.parametrize("limit, file_sizes, taken", [
    (2, [1024], [True]), (2, [1025], [False]), (2, [1000, 24], [True, True]),
    (2, [1000, 25], [True, False]), (2, [1000, 25, 24, 1, 0], [True, False, True, False, True]),
    (2, [1025, 1024], [False, True]), (1, [513, 512, 1], [False, True, False]),
    (0, [100_000], [True]), (-1, [100_000], [True]), (2147483647, [100_000], [True]),
])
def test_files_are_taken_as_long_as_they_fit(machine: Machine, limit: int, file_sizes: list[int],
                                             taken: list[bool]):
    log = limited(machine, limit)
    paths = data_files(machine, *file_sizes)
    run = collect(machine, *map(pattern_text.data, paths))
    total, records = 0, ""
    for path, size, fits in zip(paths, file_sizes, taken):
        total += size if fits else 0
        log.data({path: size} if fits else {}, total, "" if fits else too_large(path, size))
        records += expect.index_record(*([path[1:]] if fits else []))
    assert run.status == 0
    assert run.log == log.complete().text
    assert run.stderr == ("" if all(taken) else OVER)
    assert run.index == expect.index_header("-g demo") + records
    assert [path[1:] in run.archive for path in paths] == taken


def test_the_warning_is_between_the_bar_and_the_result(machine: Machine):
    limited(machine, 1)
    run = collect(machine, pattern_text.data(*data_files(machine, 513)), merge=True)
    bar, result = complete_output(1).split("ZEPA214-I")
    assert run.stdout == bar + OVER + "ZEPA214-I" + result


def test_directories_count_nothing_and_are_never_over_the_limit(machine: Machine):
    log = limited(machine, 1)
    machine.file("/opt/data/deep/full", b"x" * 512)
    machine.directory("/opt/more")
    run = collect(machine, pattern_text.data("/opt/data"), pattern_text.data("/opt/more"))
    log.data({"/opt/data": 0, "/opt/data/deep": 0, "/opt/data/deep/full": 512}, 512)
    assert run.log == log.data({"/opt/more": 0}, 512).complete().text
    assert run.stderr == ""


def test_what_a_link_leads_to_is_counted(machine: Machine):
    log = limited(machine, 1)
    machine.file("/opt/large", b"x" * 513)
    machine.link("/opt/data/link", "/opt/large")
    run = collect(machine, pattern_text.data("/opt/data/link"))
    assert run.log == log.data({}, 0, too_large("/opt/data/link", 513)).complete().text
    assert run.stderr == OVER


def test_a_file_that_was_taken_already_is_not_counted_again(machine: Machine):
    log = limited(machine, 2)
    path, rest = data_files(machine, 1000, 24)
    run = collect(machine, pattern_text.data(path), pattern_text.data(path),
                  pattern_text.data(rest))
    assert run.log == log.data({path: 1000}, 1000).data({}, 1000).data({rest: 24},
                                                                       1024).complete().text
    assert run.stderr == ""


# ---- What a tool wrote --------------------------------------------------------------------------


@pytest.mark.parametrize("size, fits", [(1024, True), (1025, False)])
def test_output_of_a_tool_beyond_the_limit_is_removed(machine: Machine, size: int, fits: bool):
    log = limited(machine, 2)
    tool = machine.tool(behave.flood(1, size))
    run = collect(machine, pattern_text.tool(tool, redirect="%d%/out"),
                  pattern_text.data("%d%/out"))
    path = f"{expect.OUTPUT_DIRECTORY}/out"
    log.tool(tool)
    log.data({path: size}, size) if fits else log.data({}, 0, too_large(path, size))
    assert run.status == 0
    assert run.log == log.complete().text
    assert run.stderr == ("" if fits else OVER)
    assert run.index == expect.index_header("-g demo") + expect.index_record(
        *(["out"] if fits else []))
    assert ("out" in run.archive) == fits


def test_only_a_link_is_removed_and_never_what_it_leads_to(machine: Machine):
    limited(machine, 1)
    machine.file("/opt/large", b"x" * 513)
    machine.file("/opt/tool", behave.script(behave.link("/opt/large", "link")), 0o755)
    run = collect(machine, pattern_text.tool(f"{behave.PROGRAM} cd %d% exec /opt/tool"),
                  pattern_text.data("%d%/link"))
    assert run.status == 0 and run.stderr == OVER and "link" not in run.archive
    assert machine.status("/opt/large").st_size == 513


def test_nothing_outside_the_output_is_removed_through_a_linked_directory(machine: Machine):
    limited(machine, 1)
    machine.file("/opt/others/large", b"x" * 513)
    machine.file("/opt/tool", behave.script(behave.link("/opt/others", "link")), 0o755)
    collect(machine, pattern_text.tool(f"{behave.PROGRAM} cd %d% exec /opt/tool"),
            pattern_text.data("%d%/link"))
    assert machine.list("/opt/others") == ["large"]


def test_the_index_is_no_output_of_a_tool_and_stays(machine: Machine):
    limited(machine, 1)
    machine.file("/opt/data", b"x" * 512)
    run = collect(machine, pattern_text.data("/opt/data"), pattern_text.data("%d%/*"))
    assert run.status == 0
    assert run.index.startswith(expect.index_header("-g demo") + expect.index_record("opt/data"))


@pytest.mark.parametrize("cleanup", ["ON", "OFF"])
def test_output_beyond_the_limit_that_cannot_be_removed_stops_the_run(machine: Machine,
                                                                      cleanup: str):
    log = limited(machine, 1, cleanup)
    machine.file("/opt/data", "12345")
    write = machine.tool(behave.flood(1, 513))
    hold = machine.tool(ready("/opt/ready"), behave.wait_for("/opt/go"))
    never = machine.tool(behave.write("/opt/never", ""))
    run = begin(machine, pattern_text.data("/opt/data"),
                pattern_text.tool(write, redirect="%d%/out"), pattern_text.tool(hold),
                pattern_text.data("%d%/out"), pattern_text.tool(never))
    run.wait_for("/opt/ready")
    output, = machine.list(DATA_DIRECTORY)
    machine.pin(f"{DATA_DIRECTORY}/{output}/out")
    machine.file("/opt/go")
    ended = run.finish()
    path = f"{expect.OUTPUT_DIRECTORY}/out"
    assert ended.status == 20
    assert ended.stderr == OVER
    log.data({"/opt/data": 5}, 5).tool(write).tool(hold).started("collecting")
    log.raw(too_large(path, 513))
    log.raw(expect.system_error("remove", 16, path, "IGCollectData", warning=True))
    assert ended.log == log.finished(20, expect.output_directory()).text
    assert ended.history == expect.history("-g demo", 20)
    assert not machine.exists("/opt/never")
    assert ended.index == expect.index_header("-g demo") + expect.index_record("opt/data")
    assert ended.directory["out"].size == 513


def test_the_limit_holds_for_the_sum_of_a_whole_tree(machine: Machine):
    log = limited(machine, 2)
    for number in range(8):
        machine.file(f"/opt/data/{number}", b"x" * 300)
    order = [f"/opt/data/{name}" for name in os.listdir(machine.path("/opt/data"))]
    run = collect(machine, pattern_text.data("/opt/data"))
    # The log reports each file in order, also those that do not fit: only the first three fit.
    log.started("collecting").raw("ZEPA209-I:It copied collecting data = /opt/data."
                                  " size = 0 bytes.\n")
    for path in order[:3]:
        log.raw(f"ZEPA209-I:It copied collecting data = {path}. size = 300 bytes.\n")
    for path in order[3:]:
        log.raw(too_large(path, 300))
    log.raw("ZEPA210-I:Total data size: 900 bytes.\n").ended("collecting")
    assert run.log == log.complete().text
    assert run.stderr == OVER


# ---- Large numbers ------------------------------------------------------------------------------

GIB = 1 << 30


def sparse(machine: Machine, name: str, size: int) -> str:
    """Makes a sparse file of that size."""
    path = machine.file(f"/opt/data/{name}")
    os.truncate(machine.path(path), size)
    return path


@pytest.mark.parametrize("limit, file_sizes, taken", [
    (6 * GIB // 512, [3 * GIB, 3 * GIB, 1, 0], [True, True, False, True]),
    (6 * GIB // 512, [3 * GIB, 3 * GIB + 1, 3 * GIB], [True, False, True]),
    (2147483647, [2147483647 * 512, 1], [True, False]),
    (2147483647, [2147483647 * 512 + 1], [False]),
    (-1, [1 << 62, (1 << 62) - 1], [True, True]),
], ids=["beyond 4 GiB", "one byte over", "the largest limit", "over it", "without a limit"])
def test_sums_are_right_however_large(machine: Machine, limit: int, file_sizes: list[int],
                                      taken: list[bool]):
    machine.replace("/bin/tar", behave.exit(1))  # packing all this would take too long
    log = limited(machine, limit)
    paths = [sparse(machine, str(number), size) for number, size in enumerate(file_sizes)]
    run = collect(machine, *map(pattern_text.data, paths))
    total = 0
    for path, size, fits in zip(paths, file_sizes, taken):
        total += size if fits else 0
        log.data({path: size} if fits else {}, total, "" if fits else too_large(path, size))
    assert run.status == 20
    assert run.log is not None and run.log.startswith(log.text)
    assert OVER in run.stderr or all(taken)
    assert [path[1:] in run.directory for path in paths] == taken


def test_files_are_counted_one_by_one_until_the_sum_is_reached_exactly(machine: Machine):
    log = limited(machine, 1)
    paths = data_files(machine, 511, 2, 1, 1, 0)
    run = collect(machine, *map(pattern_text.data, paths))
    log.data({paths[0]: 511}, 511).data({}, 511, too_large(paths[1], 2))
    log.data({paths[2]: 1}, 512).data({}, 512, too_large(paths[3], 1)).data({paths[4]: 0}, 512)
    assert run.log == log.complete().text
    assert run.stderr == OVER
