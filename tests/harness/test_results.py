"""How a test reads the results of a run, with masks for what differs from run to run."""

from __future__ import annotations

import tarfile
from datetime import datetime
from pathlib import Path

import pytest
from support import expect, masking
from support.behave import exit, out
from support.machine import DATA_DIRECTORY, LOG_DIRECTORY, Machine
from support.shell_program import play
from support.tree import Member, read_archive


# ---- Results ------------------------------------------------------------------------------------


def test_a_whole_run_is_read_back(machine: Machine):
    run = machine.run("collect", "-g")
    assert run.status == 0
    assert run.stdout == expect.output_file()
    assert run.log == "ZEPA201-I:quendil [Ver. 01-02] started at <TIME>.\n"
    assert run.history == "ZEPA302-I:quendil argument is collect -g.\n"
    assert run.index == expect.index_header("collect -g") + expect.index_record("a")
    assert machine.outputs() == ["testhost_<STAMP>.tar.gz"]
    tree = run.archive
    assert tree["a"] == Member("file", "0640", 12, 34, 5, 1_000_000_000)
    assert tree.files()["a"] == b"hello"
    assert tree.kinds() == {"": ("directory", "0755"), "a": ("file", "0640"),
                            "quendil_index": ("file", "0644")}
    run.check_times()
    assert all(run.began <= stamp <= run.ended
               for stamp in masking.stamps(run.result + "\n" + run.raw_index))


def test_a_time_outside_the_run_is_found(machine: Machine):
    run = play(machine, out("2001/02/03 04:05:06\n"))
    with pytest.raises(AssertionError, match="outside the run"):
        run.check_times()


def test_an_unpacked_output_is_read_back(machine: Machine):
    directory = f"{DATA_DIRECTORY}/testhost_261121014209"
    machine.file(f"{directory}/quendil_index", "index\n", mode=0o600)
    machine.link(f"{directory}/to", "/etc")
    run = play(machine, out(f"ZEPA215-I:Output = {directory}.\n"), exit(20))
    assert run.index == "index\n"
    assert run.directory.kinds()["quendil_index"] == ("file", "0600")
    assert run.directory["to"].target == "/etc"
    assert run.directory.names == ["", "quendil_index", "to"]


def test_an_output_that_no_message_names_is_found_through_the_log(machine: Machine):
    machine.file(f"{LOG_DIRECTORY}/quendil.log", expect.RunLog().parameters(output="/opt/o").text)
    machine.file("/opt/o/file", "x")
    run = play(machine, exit(255))
    assert run.directory.files() == {"file": b"x"}


def test_an_archive_with_a_name_twice_is_refused(tmp_path: Path):
    path = tmp_path / "twice.tar"
    with tarfile.open(path, "w") as archive:
        archive.addfile(tarfile.TarInfo("top/a"))
        archive.addfile(tarfile.TarInfo("top/a"))
    with pytest.raises(AssertionError, match="twice"):
        read_archive(path)


def test_an_archive_with_two_tops_is_refused(tmp_path: Path):
    path = tmp_path / "tops.tar"
    with tarfile.open(path, "w") as archive:
        archive.addfile(tarfile.TarInfo("top/a"))
        archive.addfile(tarfile.TarInfo("other/b"))
    with pytest.raises(AssertionError, match="top directories"):
        read_archive(path)


# ---- Masks --------------------------------------------------------------------------------------


@pytest.mark.parametrize("text, masked", [
    ("at 2026/11/15 09:53:18.", "at <TIME>."),
    ("at 2026/11/15 9:53:18.", "at 2026/11/15 9:53:18."),
    ("/d/testhost_261121014209_1.tar", "/d/testhost_<STAMP>_1.tar"),
    ("testhost_2611210142090", "testhost_2611210142090"),
    ("DATE:261121014209\n", "DATE:<STAMP>\n"),
    ("DESC:261121014209\n", "DESC:261121014209\n"),
    ("ZEPA114-E:source = IGMain, line no = 12.", "ZEPA114-E:source = IGMain, line no = <LINE>."),
    ("ZEPA120-E:filename = /f, line no = 12.", "ZEPA120-E:filename = /f, line no = 12."),
    ("An attempt to wait or stop a process (77) has failed.",
     "An attempt to wait or stop a process (<PID>) has failed."),
    ("Output file = /a.tar.gz. size = 45 bytes.", "Output file = /a.tar.gz. size = <SIZE> bytes."),
    ("Archive file = /a.tar. size = 45 bytes.", "Archive file = /a.tar. size = <SIZE> bytes."),
    ("collecting data = /a. size = 45 bytes.", "collecting data = /a. size = 45 bytes."),
    ("Total data size: 45 bytes.", "Total data size: 45 bytes."),
])
def test_masks_hide_what_differs_and_nothing_else(text: str, masked: str):
    assert masking.mask(text) == masked


def test_what_a_mask_hides_can_be_read():
    text = "x 2026/11/15 09:53:18 /testhost_261121014209\nDATE:261121014210\n"
    assert masking.times(text) == [datetime(2026, 11, 15, 9, 53, 18)]
    assert masking.stamps(text) == [datetime(2026, 11, 21, 1, 42, 9),
                                    datetime(2026, 11, 21, 1, 42, 10)]


def test_masks_keep_bytes_that_are_not_text():
    assert masking.mask(masking.decode(b"a\xffb")).encode("utf-8", "surrogateescape") == b"a\xffb"
