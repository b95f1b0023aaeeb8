"""Trees that a user made to harm the collector, and trees of the kernel."""

import os
import re

import pytest
from support import expect, pattern_text
from support.collecting import collect
from support.machine import Machine


def script(machine: Machine, path: str, text: str) -> str:
    """Makes a shell script to be run as a tool; returns its path."""
    machine.file(path, f"#!/bin/sh\n{text}\n", 0o755)
    return path


def test_each_directory_of_a_graph_of_links_is_entered_once(machine: Machine):
    # Two links a level give 2^16 paths; every directory is entered through a link once. More levels
    # could fail: the kernel follows at most 40 links in one path, and may count a link twice.
    levels = 16
    machine.directory("/opt/data")
    for level in range(levels):
        machine.directory(f"/opt/data/{level}")
        machine.file(f"/opt/data/{level}/file", str(level))
        for name in ("a", "b"):
            machine.link(f"/opt/data/{level}/{name}", f"/opt/data/{level + 1}")
    run = collect(machine, pattern_text.data("/opt/data/0"))
    assert run.status == 0
    files = [name for name in run.archive.files() if name.endswith("/file")]
    assert sorted(run.archive.read(name) for name in files) == sorted(
        str(level).encode() for level in range(levels)
    )


def test_of_two_links_to_one_directory_both_are_collected_and_one_has_the_contents(
        machine: Machine):
    machine.file("/opt/elsewhere/file", "x")
    machine.link("/opt/data/one", "/opt/elsewhere")
    machine.link("/opt/data/two", "/opt/elsewhere")
    run = collect(machine, pattern_text.data("/opt/data"))
    kinds = run.archive.kinds()
    assert kinds["opt/data/one"][0] == kinds["opt/data/two"][0] == "directory"
    assert ("opt/data/one/file" in kinds) != ("opt/data/two/file" in kinds)


def test_the_kernels_classes_of_devices_are_collected_without_their_links(machine: Machine):
    run = collect(machine, pattern_text.data("/sys/class/net"))
    assert run.status == 0
    names = run.archive.names
    assert "sys/class/net/lo" in names
    assert not [name for name in names if name.startswith("sys/class/net/lo/")]


def test_a_link_of_the_kernel_is_entered_where_the_path_names_it(machine: Machine):
    run = collect(machine, pattern_text.data("/sys/class/net/lo"))
    assert run.archive.read("sys/class/net/lo/mtu") == b"65536\n"


@pytest.mark.parametrize("path, entered", [
    ("/proc/self/task", False), ("/proc/self/cw*", False), ("/proc/self/cwd", True)])
def test_a_link_out_of_the_kernels_files_is_entered_only_where_the_path_names_it(
    machine: Machine, path: str, entered: bool
):
    # Below a process's "root" is the whole machine.
    machine.file("/opt/small/file", "x")
    run = collect(machine, pattern_text.data(path), cwd="/opt/small")
    assert run.status == 0
    copied = re.findall(r"It copied collecting data = (.*)\. size", run.raw["log"])
    assert [name for name in copied if name.endswith("/cwd")] != []
    below = [name for name in copied if re.search("/(cwd|root)/", name)]
    assert below == (["/proc/self/cwd/file"] if entered else [])


@pytest.mark.parametrize("path", ["/dev/fd", "/proc/self/fd", "/proc/thread-self/fd/*"])
def test_the_open_files_of_the_own_process_are_those_of_the_run(machine: Machine, path: str):
    # If tar followed these links, it would find the directory that it packs below itself.
    run = collect(machine, pattern_text.data(path))
    assert run.status == 0
    place = path.removesuffix("/*")[1:]
    assert not [name for name in run.archive.names if re.match(f"{place}/.*/", name)]
    files = [text for name, text in run.archive.files().items() if name.startswith(place)]
    assert [text for text in files if text.startswith(b"ZEPA201-I:quendil")] != []


def test_a_file_that_became_a_directory_between_two_items_leads_nowhere(machine: Machine):
    machine.file("/opt/data/x", "file")
    machine.directory("/opt/secret", mode=0o700)
    swap = script(
        machine, "/opt/swap", "rm /opt/data/x && ln -s /opt/secret /opt/data/x && touch /opt/secret/file"
    )
    run = collect(
        machine,
        pattern_text.data("/opt/data/x"),
        pattern_text.tool(swap),
        pattern_text.data("/opt/data/x"),
        pattern_text.data("/opt/data/x/*"),
    )
    assert run.status == 0
    assert machine.list("/opt/secret") == ["file"]
    assert machine.status("/opt/secret").st_mode & 0o777 == 0o700
    assert "ZEPA140-W" in run.log


def test_a_deep_tree_costs_no_more_than_its_size(machine: Machine):
    path = "/opt/data" + "/d" * 900
    machine.exec(["/bin/mkdir", "-p", path])
    machine.exec(["/bin/sh", "-c", f"cd {path} && touch $(seq 200)"])
    run = collect(machine, pattern_text.data("/opt/data"))
    assert run.status == 0
    assert len([name for name in run.archive.files() if "/d/" in name]) == 200


def test_a_chain_of_directories_costs_no_more_than_its_length(machine: Machine):
    path = "/opt/data" + "/d" * 1900
    machine.exec(["/bin/mkdir", "-p", path])
    run = collect(machine, pattern_text.data("/opt/data"))  # took minutes with a check of each path
    assert run.status == 0 and "ZEPA140-W" not in run.log
    assert path[1:] in run.archive


def test_a_target_with_the_name_of_the_index_has_a_directory_beside_it(machine: Machine):
    machine.file("/opt/data/x", "file")
    item = pattern_text.data("/opt/data/x")
    run = collect(machine, pattern_text.block(item, targets=["quendil_index"]))
    assert run.status == 0
    assert run.archive.read("quendil_index_1/opt/data/x") == b"file"
    assert run.index.startswith(expect.index_header("-g demo"))


def test_no_other_user_may_enter_the_output_while_it_is_made(machine: Machine):
    report = "/opt/mode"
    show = script(machine, "/opt/show", f"stat -c %a {expect.DATA_DIRECTORY}/* > {report}")
    run = collect(machine, pattern_text.tool(show))
    assert run.status == 0
    assert machine.read(report) == "700\n"


def test_an_output_file_with_two_dots_after_a_link_is_made_where_the_kernel_resolves_it(
        machine: Machine):
    machine.directory("/opt/one/sub")
    machine.directory("/opt/two")
    machine.link("/opt/two/link", "/opt/one/sub")
    machine.file("/opt/data/x", "file")
    output = ("-o", "/opt/two/link/../arch")
    run = collect(machine, pattern_text.data("/opt/data/x"), arguments=output)
    assert run.status == 0
    assert os.path.basename(run.result) == "arch.tar.gz"
    assert machine.exists("/opt/one/arch.tar.gz")
    assert "ZEPA113-E" not in run.log
