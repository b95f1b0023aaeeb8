"""Data that changes while it is collected, very many files, and very long paths."""

from __future__ import annotations

import os
import signal
from collections.abc import Iterator

import pytest
from support import behave, expect, pattern_text
from support.collecting import begin, collect, started_log
from support.machine import DATA_DIRECTORY, Machine
from support.tree import read_archive

FAILED = "ZEPA130-W:An attempt to collect the system information has failed.\n"


# ---- Between linking and packing ----------------------------------------------------------------

CHANGES = {
    "grows": ([behave.append("/opt/data/b", "567890")], b"1234567890"),
    "shrinks": ([behave.write("/opt/data/b", "1")], b"1"),
    "is replaced": ([behave.rename("/opt/data/new", "/opt/data/b")], b"new"),
    "becomes unreadable": ([behave.mode("/opt/data/b", 0)], b"1234"),  # except to root
    "vanishes": ([behave.remove("/opt/data/b")], None),
    "becomes a FIFO": ([behave.remove("/opt/data/b"), behave.fifo("/opt/data/b")], None),
    "becomes a loop": ([behave.remove("/opt/data/b"), behave.link("b", "/opt/data/b")], None),
}


@pytest.mark.parametrize("change", CHANGES)
def test_a_file_that_changes_before_it_is_packed_affects_no_other_file(machine: Machine,
                                                                       change: str):
    actions, content = CHANGES[change]
    for name in ("a", "b", "c", "new"):
        machine.file(f"/opt/data/{name}", name if name == "new" else "1234")
    paths = [f"/opt/data/{name}" for name in "abc"]
    tool = machine.tool(*actions)
    run = collect(machine, *map(pattern_text.data, paths), pattern_text.tool(tool))
    assert run.status == 0 and run.stderr == ""
    log = started_log()
    for number, path in enumerate(paths, 1):
        log.data({path: 4}, 4 * number)  # the size that it had when it was copied
    assert run.log is not None and run.log.startswith(log.tool(tool).text)
    files = run.archive.files()
    assert files.get("opt/data/b") == content
    assert files["opt/data/a"] == files["opt/data/c"] == b"1234"
    if change in ("vanishes", "becomes a loop"):
        assert "tar: testhost_<STAMP>/opt/data/b: " in run.log
    assert machine.outputs() == [expect.OUTPUT_NAME + ".tar.gz"]


# ---- Between listing and linking ----------------------------------------------------------------

MANY = 100_000


def make_many(machine: Machine) -> list[str]:
    """Makes very many files in one directory; returns their names in the order of the directory."""
    many = str(machine.path(machine.directory("/opt/many")))
    for number in range(MANY):
        os.mknod(f"{many}/{number:06}")
    return os.listdir(many)


@pytest.mark.plain_binary
def test_a_hundred_thousand_files_are_collected_though_some_change_after_they_were_listed(
        machine: Machine):
    names = make_many(machine)
    vanished, grown, fifo, linked, directory = (f"/opt/many/{name}" for name in names[-5:])
    run = begin(machine, pattern_text.data("/opt/many"))
    run.wait_for(lambda: "ZEPA209-I" in (machine.read_log("quendil.log") or ""), 30)
    run.signal(signal.SIGSTOP)
    machine.wait_for(lambda: any(entry.pid == run.pid and entry.state == "T"
                                 for entry in machine.processes()))
    assert vanished not in machine.read_log("quendil.log")  # listed, but not collected yet
    machine.remove(vanished)
    machine.file(grown, "123")
    machine.remove(fifo)
    machine.fifo(fifo)
    machine.remove(linked)
    machine.link(linked, "/opt/none")
    machine.remove(directory)
    machine.file(f"{directory}/below")
    run.signal(signal.SIGCONT)
    ended = run.finish(60)
    assert ended.status == 0 and ended.stderr == ""
    assert ended.log is not None
    reported = {path: FAILED + f"ZEPA152-W:Additional information, path = {path}.\n"
                for path in (vanished, fifo, linked, directory)}
    assert all(text in ended.log for text in reported.values())
    assert ended.log.count(FAILED) == 4
    assert ended.log.count("ZEPA209-I") == MANY - 4 + 1
    assert f"ZEPA209-I:It copied collecting data = {grown}. size = 3 bytes.\n" in ended.log
    assert "ZEPA210-I:Total data size: 3 bytes.\n" in ended.log
    files = ended.archive.files()
    assert len(files) == MANY - 4 + 3 and files[grown[1:]] == b"123"
    listed = [line for line in ended.index.splitlines() if line.startswith("FILE:")]
    assert len(listed) == MANY - 4 + 1
    assert machine.outputs() == [expect.OUTPUT_NAME + ".tar.gz"]


# ---- Long paths ---------------------------------------------------------------------------------


def make_deep(machine: Machine, length: int, name: str) -> str:
    """Makes a file below /opt/deep whose full path has this many bytes; returns the path."""
    path = "/opt/deep"
    descriptor = os.open(machine.path(machine.directory(path)), os.O_RDONLY)
    for part in _parts(length - len(path) - 1 - len(name)):
        try:
            os.mkdir(part, dir_fd=descriptor)
        except FileExistsError:
            pass
        below = os.open(part, os.O_RDONLY, dir_fd=descriptor)
        os.close(descriptor)
        descriptor, path = below, f"{path}/{part}"
    os.close(os.open(name, os.O_WRONLY | os.O_CREAT, 0o644, dir_fd=descriptor))
    os.close(descriptor)
    assert len(f"{path}/{name}") == length
    return f"{path}/{name}"


def _parts(length: int) -> Iterator[str]:
    """Names that have so many bytes together, each with the slash before it."""
    while length > 0:
        size = min(200, length)
        size = size if length - size != 1 else size - 1  # or the last name would be empty
        yield "d" * (size - 1)
        length -= size


def test_a_path_is_collected_up_to_the_longest_that_its_copy_can_have(machine: Machine):
    longest = 4095 - len(f"{DATA_DIRECTORY}/testhost_{0:012}")
    fits = make_deep(machine, longest, "fits")
    too_long = make_deep(machine, longest + 1, "large")
    assert os.path.dirname(fits) == os.path.dirname(too_long)
    run = collect(machine, pattern_text.data("/opt/deep"))
    assert run.status == 0 and run.stderr == ""
    assert run.log is not None and run.log.count(FAILED) == 1
    assert FAILED + f"ZEPA152-W:Additional information, path = {too_long}.\n" in run.log
    archive = read_archive(machine.path(run.result))
    assert fits[1:] in archive and too_long[1:] not in archive
    assert f"FILE:{fits[1:]}\n" in run.index and too_long[1:] not in run.index


def test_a_directory_whose_copy_has_no_room_for_its_path_is_reported(machine: Machine):
    longest = 4095 - len(f"{DATA_DIRECTORY}/testhost_{0:012}")
    below = make_deep(machine, longest + 2, "x")  # its directory's path fits exactly
    deep = os.path.dirname(make_deep(machine, longest + 3, "y"))  # this one's does not
    run = collect(machine, pattern_text.data("/opt/deep"))
    assert run.status == 0 and run.stderr == ""
    assert run.log is not None
    assert run.log.count("system call name = mkdir, error code = 36") >= 1
    assert os.path.dirname(below)[1:] in run.archive and deep[1:] not in run.archive


@pytest.mark.plain_binary  # an instrumented binary needs more memory
def test_many_long_paths_take_little_memory_and_only_while_their_item_is_collected(
        machine: Machine):
    directory = os.path.dirname(make_deep(machine, 3500, "x"))
    for number in range(2000):
        os.mknod(f"{machine.path(directory)}/{number}")
    item = pattern_text.data("/opt/deep")  # 7 MB of paths
    run = collect(machine, item, item, item, limits={"as": 48 << 20})
    assert run.status == 0 and run.stderr == ""
    assert len(run.archive.files()) == 2001 + 3
