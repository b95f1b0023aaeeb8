"""Files that a user replaces while root collects: no replacement gets into an archive."""

from __future__ import annotations

import os
import re

import pytest
from support import behave, expect, pattern_text
from support.collecting import collect, unpack
from support.machine import DATA_DIRECTORY, Machine
from support.tree import read_directory

USER = (1000, 1000)
HOME = "/opt/home"
SECRET = b"only root may read this"


def failed(path: str) -> str:
    """The report of an entry that cannot be collected."""
    return ("ZEPA130-W:An attempt to collect the system information has failed.\n"
            f"ZEPA152-W:Additional information, path = {path}.\n")


def make_home(machine: Machine) -> None:
    """Makes a user's directory with a file, and a directory of root's that the user cannot read."""
    machine.file(f"{HOME}/file", b"his", owner=USER)
    machine.directory(HOME, 0o755, USER)
    machine.file("/opt/secret/key", SECRET, 0o600)
    machine.directory("/opt/secret", 0o700)


def script(machine: Machine, path: str, text: str) -> str:
    """Makes a shell script to be run as a tool; returns its path."""
    machine.file(path, f"#!/bin/sh\n{text}\n", 0o755)
    return path


def user_link(machine: Machine, path: str, target: str, owner: tuple[int, int] = USER) -> None:
    """Makes a symbolic link that belongs to a user."""
    machine.link(path, target)
    os.chown(machine.path(path), *owner, follow_symlinks=False)


# ---- Between collecting and packing --------------------------------------------------------------

EXCHANGES = {
    "a link to a directory": f"rm {HOME}/file; ln -s /opt/secret {HOME}/file",
    "a link to a file": f"rm {HOME}/file; ln -s /opt/secret/key {HOME}/file",
    "a loop of links": f"rm {HOME}/file; mkdir {HOME}/file; ln -s . {HOME}/file/a",
    "a device": f"rm {HOME}/file; ln -s /dev/zero {HOME}/file",
    "a FIFO": f"rm {HOME}/file; mkfifo {HOME}/file",
    "much more content": f"truncate -s 100M {HOME}/file",
    "another directory": f"mv {HOME} {HOME}.old; ln -s /opt/secret {HOME}; touch /opt/secret/file",
    "nothing": f"rm {HOME}/file",
}


@pytest.mark.parametrize("way", EXCHANGES)
def test_what_a_user_puts_in_the_place_of_a_collected_file_is_not_packed(machine: Machine, way):
    make_home(machine)
    tool = script(machine, "/opt/exchange", EXCHANGES[way])
    run = collect(machine, pattern_text.data(f"{HOME}/file"), pattern_text.tool(tool))
    assert run.status == 0 and run.stderr == ""
    assert run.archive.read("opt/home/file") == b"his"
    assert SECRET not in run.archive.files().values()
    assert sorted(name for name in run.archive.names if name.startswith("opt")) == [
        "opt", "opt/home", "opt/home/file"]
    assert "tar: " not in run.log


def test_a_copied_file_has_the_mode_owner_and_times_of_its_source(machine: Machine):
    machine.file(f"{HOME}/file", b"content", 0o4751, USER, 1_200_000_000)
    machine.directory(HOME, 0o755, USER)
    unpacked = unpack(machine, collect(machine, pattern_text.data(f"{HOME}/file")))
    assert unpacked["opt/home/file"] == read_directory(machine.path(HOME))["file"]
    assert unpacked.read("opt/home/file") == b"content"


# ---- Links ---------------------------------------------------------------------------------------


@pytest.mark.parametrize("path", [f"{HOME}/link", f"{HOME}/l*", HOME])
@pytest.mark.parametrize("target", ["/opt/secret/key", "/opt/secret", "/proc/version", "/opt/third"])
def test_a_users_link_to_a_file_of_another_owner_is_a_failed_copy(machine: Machine, path, target):
    make_home(machine)
    machine.file("/opt/third", b"of a third user", owner=(1001, 1001))
    user_link(machine, f"{HOME}/link", target)
    run = collect(machine, pattern_text.data(path))
    assert run.status == 0 and run.stderr == ""
    assert run.log.count(failed(f"{HOME}/link")) == 1 and run.log.count("ZEPA130-W") == 1
    assert "opt/home/link" not in run.archive
    assert not [name for name in run.archive.names if "secret" in name or "key" in name]


def test_a_users_link_to_an_own_file_and_a_link_of_root_are_followed(machine: Machine):
    make_home(machine)
    user_link(machine, f"{HOME}/own", "file")
    machine.link(f"{HOME}/of-root", "/opt/secret/key")
    run = collect(machine, pattern_text.data(HOME))
    assert "ZEPA130-W" not in run.log
    assert run.archive.read("opt/home/own") == b"his"
    assert run.archive.read("opt/home/of-root") == SECRET  # root has put it there


def test_a_path_of_the_administrator_is_followed_as_it_is_written(machine: Machine):
    make_home(machine)
    machine.link("/opt/way", "/opt/secret")
    machine.link("/opt/kernel", "/proc/version")
    run = collect(machine, pattern_text.data("/opt/way/key"), pattern_text.data("/opt/kernel"))
    assert run.archive.read("opt/way/key") == SECRET
    assert run.archive.read("opt/kernel").startswith(b"Linux version")
    assert "ZEPA130-W" not in run.log


def test_a_wildcard_below_a_link_of_a_user_is_a_failed_copy(machine: Machine):
    make_home(machine)
    user_link(machine, f"{HOME}/link", "/opt/secret")
    run = collect(machine, pattern_text.data(f"{HOME}/link/*"))
    assert failed(f"{HOME}/link/*") in run.log
    assert not [name for name in run.archive.names if "key" in name]


def test_a_link_whose_resolution_is_too_long_counts_as_missing(machine: Machine):
    make_home(machine)
    machine.directory(f"{HOME}/a", 0o755, USER)
    user_link(machine, f"{HOME}/short", "a/../" * 40 + "file")
    user_link(machine, f"{HOME}/long0", "a/../" * 780 + "long1")  # 39 of these took half a second
    for number in range(1, 6):
        user_link(machine, f"{HOME}/long{number}", "a/../" * 780 + f"long{number + 1}")
    user_link(machine, f"{HOME}/long6", "file")
    run = collect(machine, pattern_text.data(f"{HOME}/short"), pattern_text.data(f"{HOME}/long0"))
    assert run.archive.read("opt/home/short") == b"his"
    assert f"ZEPA129-W:A system information({HOME}/long0) is not found.\n" in run.log


@pytest.mark.parametrize("item", ["/file", "/f*", "", "/*"])
def test_the_files_of_a_process_with_mounts_of_its_own_are_those_it_sees(machine: Machine, item):
    machine.file("/opt/ns/file", b"outer")
    machine.file("/opt/pid", b"")
    start = script(machine, "/opt/start", """unshare -m sh -c '
mount -t tmpfs -o mode=755 none /opt/ns; echo inner >/opt/ns/file; echo $$ >/opt/pid; exec sleep 60
' >/dev/null 2>&1 &
until [ -s /opt/pid ]; do :; done""")
    machine.exec([start])
    pid = machine.read("/opt/pid").strip()
    run = collect(machine, pattern_text.data(f"/proc/{pid}/root/opt/ns{item}"))
    machine.exec(["/bin/kill", pid])
    assert run.archive.read(f"proc/{pid}/root/opt/ns/file") == b"inner\n"


# ---- Leases --------------------------------------------------------------------------------------

LEASE = """#!/usr/bin/python3
import fcntl, glob, os, signal, sys
os.setgid(1000)
os.setuid(1000)
path = sys.argv[1]
file = os.open(path, os.O_RDWR)
signal.pthread_sigmask(signal.SIG_BLOCK, [signal.SIGIO])
fcntl.fcntl(file, fcntl.F_SETLEASE, fcntl.F_WRLCK)
open("/opt/held", "w").write("yes")
signal.sigtimedwait([signal.SIGIO], 60)
exec(open("/opt/then").read())
fcntl.fcntl(file, fcntl.F_SETLEASE, fcntl.F_UNLCK)
"""


def hold_lease(machine: Machine, path: str, then: str = "pass") -> None:
    """Starts a user's process that holds a lease on a file; when another process opens the file, it
    runs `then`, in Python, and releases the lease."""
    machine.file("/opt/then", then)
    machine.file("/opt/lease", LEASE, 0o755)
    machine.file("/opt/held", b"", owner=USER)
    machine.exec([script(machine, "/opt/start", f"""/opt/lease {path} 2>/opt/lease.log &
while kill -0 $! && ! [ -s /opt/held ]; do :; done""")])
    assert machine.read("/opt/held") == "yes", machine.read("/opt/lease.log")


def test_a_file_under_a_lease_is_collected_when_its_holder_releases_it(machine: Machine):
    make_home(machine)
    hold_lease(machine, f"{HOME}/file")
    run = collect(machine, pattern_text.data(f"{HOME}/file"))
    assert run.archive.read("opt/home/file") == b"his" and "ZEPA130-W" not in run.log


def test_a_file_under_a_lease_that_is_not_released_is_reported_and_skipped(machine: Machine):
    make_home(machine)
    machine.file("/opt/data", b"x")
    # Otherwise the kernel would end the lease, after /proc/sys/fs/lease-break-time.
    hold_lease(machine, f"{HOME}/file", """
import time
while not os.path.exists("/opt/over"):
    time.sleep(0.01)
""")
    run = collect(machine, pattern_text.data(f"{HOME}/file"), pattern_text.data("/opt/data"))
    machine.file("/opt/over")
    assert failed(f"{HOME}/file") in run.log
    assert run.status == 0 and run.archive.read("opt/data") == b"x"


# ---- Links and other things that a tool leaves in the output ------------------------------------


def run_in_output(machine: Machine, text: str, *items: str, **how):
    """A run whose tool executes shell commands in the output directory."""
    tool = script(machine, "/opt/write", f"cd {DATA_DIRECTORY}/*/ || exit 1\n{text}")
    return collect(machine, pattern_text.tool(tool), *items, **how)


def test_a_directory_that_a_tool_linked_is_copied_as_a_directory(machine: Machine):
    make_home(machine)
    machine.file("/opt/tree/a/file", b"content", 0o640, (3, 4), 1_000_000_000)
    machine.directory("/opt/tree/a", 0o750, (5, 6), 1_000_000_001)
    machine.file("/opt/tree/large", b"x" * 2000)
    machine.conf("QUENDIL_MAX_OUTPUT_DATA_SIZE=2\nQUENDIL_CLEANUP=ON\n")
    run = run_in_output(machine, "ln -s /opt/tree link", pattern_text.data("%d%/link"))
    assert run.status == 0
    output = re.escape(DATA_DIRECTORY) + r"/testhost_\d+"
    assert re.search(rf"ZEPA153-W.* = {output}/link/large, size = 2000 bytes", run.raw["log"])
    unpacked = unpack(machine, run)
    assert unpacked.read("link/a/file") == b"content"  # a file over the limit removes no other
    source = read_directory(machine.path("/opt/tree"))
    assert unpacked["link/a/file"] == source["a/file"] and unpacked["link/a"] == source["a"]
    assert "link/large" not in unpacked
    assert "FILE:link\nFILE:link/a\nFILE:link/a/file\n" in run.index
    assert machine.exists("/opt/tree/large")


@pytest.mark.parametrize("item", ["%d%/link/file", "%d%/link/f*"])
def test_a_path_through_a_link_that_a_tool_made_is_copied(machine: Machine, item: str):
    machine.file("/opt/tree/file", b"content")
    machine.file("/opt/tree/other", b"not asked for")
    run = run_in_output(machine, "ln -s /opt/tree link", pattern_text.data(item))
    assert run.archive.read("link/file") == b"content"
    assert "link/other" not in run.archive and "ZEPA130-W" not in run.log


def test_a_file_of_the_kernel_that_a_tool_linked_has_its_content(machine: Machine):
    run = run_in_output(machine, "ln -s /proc/version listed; ln -s /proc/version not-listed",
                        pattern_text.data("%d%/listed"))
    for name in ("listed", "not-listed"):
        assert run.archive.read(name).startswith(b"Linux version")


def test_what_a_tool_linked_below_a_users_directory_cannot_be_exchanged(machine: Machine):
    make_home(machine)
    swap = script(machine, "/opt/swap", f"rm {HOME}/file; ln -s /opt/secret/key {HOME}/file")
    run = run_in_output(machine, f"ln -s {HOME}/file link", pattern_text.data("%d%/link"),
                        pattern_text.tool(swap))
    assert run.archive.read("link") == b"his"


@pytest.mark.parametrize("way", ["listed twice", "ours has gone", "over the limit"])
def test_no_other_link_hides_one_that_a_tool_made_to_a_users_file(machine: Machine, way: str):
    make_home(machine)
    machine.file("/opt/data/a", b"a" * 3000)
    further = "; rm /opt/data/a" if way == "ours has gone" else ""
    swap = script(machine, "/opt/swap", f"rm {HOME}/file; ln -s /opt/secret/key {HOME}/file\n"
                  f"chown -h 1000:1000 {HOME}/file{further}")
    if way == "over the limit":
        machine.conf("QUENDIL_MAX_OUTPUT_DATA_SIZE=2\nQUENDIL_CLEANUP=ON\n")
    items = [pattern_text.data("%d%/listed")] * (2 if way == "listed twice" else 1)
    run = run_in_output(machine, f"ln -s /opt/data/a listed; ln -s {HOME}/file unlisted", *items,
                        pattern_text.tool(swap))
    assert SECRET not in run.archive.files().values()


def test_links_of_ours_that_a_tool_removed_hide_none_to_a_users_file(machine: Machine):
    make_home(machine)
    machine.file("/opt/data/a", b"a" * 3000)
    swap = script(machine, "/opt/swap", f"rm {HOME}/file; ln -s /opt/secret/key {HOME}/file\n"
                  f"chown -h 1000:1000 {HOME}/file; rm -r {DATA_DIRECTORY}/*/opt")
    run = run_in_output(machine, f"ln -s {HOME}/file unlisted", pattern_text.data("/opt/data/a"),
                        pattern_text.tool(swap))
    assert run.status == 0 and SECRET not in run.archive.files().values()


def test_a_link_of_ours_that_the_limit_removed_hides_none_to_a_users_file(machine: Machine):
    make_home(machine)
    machine.conf("QUENDIL_MAX_OUTPUT_DATA_SIZE=10\nQUENDIL_CLEANUP=ON\n")
    machine.file("/opt/data/a", b"a" * 3000)
    swap = script(machine, "/opt/swap", f"rm {HOME}/file; ln -s /opt/secret/key {HOME}/file\n"
                  f"chown -h 1000:1000 {HOME}/file")
    run = run_in_output(machine, f"ln -s {HOME}/file unlisted", pattern_text.data("/opt/data/a"),
                        pattern_text.data("%d%/opt"), pattern_text.tool(swap))
    assert "ZEPA153-W" in run.log and "opt/data/a" not in run.archive
    assert run.status == 0 and SECRET not in run.archive.files().values()


def test_a_dangling_link_stays_only_where_no_user_can_make_its_target(machine: Machine):
    make_home(machine)
    os.unlink(machine.path(f"{HOME}/file"))
    machine.directory("/opt/data")
    # The user makes a link there while the logs are copied.
    script(machine, "/opt/swap", f"[ -h {HOME}/file ] || ln -s /opt/secret/key {HOME}/file")
    machine.replace("/bin/cp", behave.run("/opt/swap"), behave.become("/opt/real/cp"))
    run = run_in_output(machine, f"ln -s {HOME}/file listed; ln -s {HOME}/file unlisted\n"
                        "ln -s /opt/data/none none", pattern_text.data("%d%/listed"))
    assert machine.exists(f"{HOME}/file")
    assert run.status == 0 and SECRET not in run.archive.files().values()
    assert f"ZEPA129-W:A system information({HOME}/file) is not found.\n" in run.log
    assert "tar: testhost_<STAMP>/none: " in run.log and "/unlisted" not in run.log


def test_what_a_tool_linked_counts_against_the_limit(machine: Machine):
    make_home(machine)
    machine.conf("QUENDIL_MAX_OUTPUT_DATA_SIZE=2\nQUENDIL_CLEANUP=ON\n")
    machine.exec([script(machine, "/opt/grow", f"truncate -s 50M {HOME}/file")])
    size = len(machine.exec(["/bin/cat", "/proc/kallsyms"]).stdout)
    run = run_in_output(machine, f"ln -s {HOME}/file users; ln -s /proc/kallsyms kernels\n"
                        "ln -s /proc/version small")
    assert run.status == 0
    for name, bytes_ in (("users", 50 << 20), ("kernels", size)):
        assert (f"ZEPA153-W:The size of the output data exceeded a limit size. filename ="
                f" {expect.OUTPUT_DIRECTORY}/{name}, size = {bytes_} bytes.\n") in run.log
        assert name not in run.archive
    assert run.archive.read("small").startswith(b"Linux version")
    assert run.stderr == "ZEPA131-W:The size of the output data exceeded a limit size.\n"


@pytest.mark.parametrize("listed", [True, False])
def test_a_users_link_that_a_tool_copied_is_not_followed(machine: Machine, listed: bool):
    make_home(machine)
    user_link(machine, f"{HOME}/link", "/opt/secret/key")
    items = [pattern_text.data("%d%")] if listed else []
    run = run_in_output(machine, f"cp -a {HOME} copied", *items)
    assert run.archive.read("copied/file") == b"his"
    assert SECRET not in run.archive.files().values()


@pytest.mark.parametrize("listed", [True, False])
@pytest.mark.parametrize("make", ["mkfifo x", "ln -s /dev/zero x", "mknod x c 1 5"])
def test_a_fifo_or_device_that_a_tool_left_is_removed_from_the_output(machine: Machine, make: str,
                                                                      listed: bool):
    items = [pattern_text.data("%d%/x")] if listed else []
    run = run_in_output(machine, make + "; echo kept > y", *items)
    assert run.status == 0 and run.stderr == ""
    assert failed(f"{expect.OUTPUT_DIRECTORY}/x") in run.log and run.log.count("ZEPA130-W") == 1
    assert "x" not in run.archive and run.archive.read("y") == b"kept\n"
    assert "FILE:x" not in run.index


def test_a_socket_that_a_tool_left_is_a_failed_copy(machine: Machine):
    tool = machine.tool(behave.socket("/opt/socket"), behave.run("/opt/move"))
    script(machine, "/opt/move", f"mv /opt/socket $(echo {DATA_DIRECTORY}/*)/x")
    run = collect(machine, pattern_text.tool(tool), pattern_text.data("%d%/*"))
    assert failed(f"{expect.OUTPUT_DIRECTORY}/x") in run.log
    assert "x" not in run.archive and "ZEPA209-I:It copied collecting data = "\
        f"{expect.OUTPUT_DIRECTORY}/x" not in run.log


def test_a_link_to_its_own_directory_is_not_followed_without_end(machine: Machine):
    run = run_in_output(machine, "mkdir a; ln -s . self; ln -s .. a/up; echo kept > a/file")
    assert run.status == 0
    assert {name for name in run.archive.names if name.startswith(("a", "self"))} == {"a", "a/file"}
    for name in ("self", "a/up"):
        assert failed(f"{expect.OUTPUT_DIRECTORY}/{name}") in run.log
    assert "tar: " not in run.log


# ---- The report of a file that was removed ------------------------------------------------------


@pytest.mark.parametrize("how", ["rm /opt/data/gone", "rm /opt/data/gone; ln -s gone /opt/data/gone"])
def test_the_archives_own_log_names_the_files_that_were_removed(machine: Machine, how: str):
    machine.file("/opt/data/gone", b"x")
    machine.file("/opt/data/stays", b"x")
    tool = script(machine, "/opt/remove", how)
    run = collect(machine, pattern_text.data("/opt/data"), pattern_text.tool(tool))
    assert run.status == 0
    reported = b"ZEPA129-W:A system information(/opt/data/gone) is not found.\n"
    assert run.archive.read("quendil.log").count(reported) == 1
    assert b"opt/data/stays) is" not in run.archive.read("quendil.log")


# ---- Files of the kernel -------------------------------------------------------------------------


def test_bytes_read_of_a_kernels_file_count_against_the_limit(machine: Machine):
    machine.conf("QUENDIL_MAX_OUTPUT_DATA_SIZE=2\nQUENDIL_CLEANUP=ON\n")
    size = len(machine.exec(["/bin/cat", "/proc/kallsyms"]).stdout)
    small = len(machine.exec(["/bin/cat", "/proc/version"]).stdout)
    assert small < 1024 < size
    run = collect(machine, pattern_text.data("/proc/kallsyms"), pattern_text.data("/proc/version"))
    assert f"filename = /proc/kallsyms, size = {size} bytes" in run.log
    assert "proc/kallsyms" not in run.archive
    assert f"ZEPA210-I:Total data size: {small} bytes.\n" in run.log
    assert run.stderr == "ZEPA131-W:The size of the output data exceeded a limit size.\n"


def test_of_a_kernels_file_without_an_end_the_first_part_is_collected(machine: Machine):
    pages = "/proc/self/pagemap"  # one entry for every page that a process could have
    run = collect(machine, pattern_text.data(pages))
    assert run.status == 0 and run.stderr == ""
    copied = f"ZEPA209-I:It copied collecting data = {pages}. size = 0 bytes.\n"
    assert failed(pages) + copied in run.log
    assert f"ZEPA210-I:Total data size: {64 << 20} bytes.\n" in run.log
    assert len(run.archive.read(pages[1:])) == 64 << 20
    assert f"FILE:{pages[1:]}\n" in run.index


# ---- The output itself ---------------------------------------------------------------------------

LOST = f"ZEPA104-E:The specified directory({expect.OUTPUT_DIRECTORY}) does not exist.\n"


@pytest.mark.parametrize("put", ["mkdir $d", "ln -s /opt/secret $d", "echo > $d", ":"])
@pytest.mark.parametrize("further", [True, False])
def test_a_run_ends_when_its_output_is_exchanged(machine: Machine, put: str, further: bool):
    make_home(machine)
    before = machine.list("/opt/secret")
    swap = script(machine, "/opt/swap", f"d=$(echo {DATA_DIRECTORY}/*); mv $d /opt/away; {put}")
    items = [pattern_text.data(f"{HOME}/file")] if further else []
    run = collect(machine, pattern_text.tool(swap), *items)
    assert run.status == 255 and run.stderr.startswith(LOST)
    assert machine.list("/opt/secret") == before
    left = machine.outputs()
    assert left == ([] if put == ":" else [expect.OUTPUT_NAME])  # not ours to remove
    assert machine.exists("/opt/away/quendil_index")


def test_what_takes_the_outputs_name_while_it_is_packed_is_not_removed(machine: Machine):
    machine.file("/opt/data", b"x")
    machine.file("/opt/victim/file", b"whole")
    machine.replace("/bin/tar", behave.run("/opt/real/tar"), behave.run("/opt/swap"))
    script(machine, "/opt/swap", f"for d in {DATA_DIRECTORY}/*; do [ ! -d $d ] || mv $d /opt/away;"
           " done; mv /opt/victim ${d%.tar}")
    run = collect(machine, pattern_text.data("/opt/data"))
    assert run.status == 0
    assert run.archive.read("opt/data") == b"x"
    directory, = (name for name in machine.list(DATA_DIRECTORY) if not name.endswith(".gz"))
    assert machine.read(f"{DATA_DIRECTORY}/{directory}/file") == "whole"


EXCHANGE = f"""
output, = glob.glob("{HOME}/base/*")
os.rename(output, output + ".away")
"""


def test_nothing_is_written_through_an_output_that_is_exchanged_during_an_item(machine: Machine):
    make_home(machine)
    machine.directory(f"{HOME}/base", 0o755, USER)
    machine.file(f"{HOME}/tree/etc/x", b"x", owner=USER)
    machine.file(f"{HOME}/tree/leased", b"his", owner=USER)
    machine.directory(f"{HOME}/tree/etc", 0o777, USER)
    machine.directory(f"{HOME}/tree", 0o755, USER)
    machine.file("/opt/victim/etc/passwd", b"whole")
    machine.directory("/opt/victim/etc", 0o755)
    hold_lease(machine, f"{HOME}/tree/leased", EXCHANGE + f"""
os.makedirs(output + "{HOME}")
os.symlink("/opt/victim", output + "{HOME}/tree")
""")
    run = collect(machine, pattern_text.data(f"{HOME}/tree"), arguments=("-d", f"{HOME}/base"))
    assert run.status == 255
    status = machine.status("/opt/victim/etc")
    assert (status.st_uid, status.st_mode & 0o777) == (0, 0o755)
    assert machine.list("/opt/victim") == ["etc"] and machine.list("/opt/victim/etc") == ["passwd"]


def test_nothing_is_removed_through_an_output_that_is_exchanged_before_it_is_packed(
        machine: Machine):
    make_home(machine)
    machine.directory(f"{HOME}/base", 0o755, USER)
    machine.file("/opt/victim/dev/x", b"x")
    make = script(machine, "/opt/make", "cd /opt/victim/dev; mknod null c 1 3; mkfifo fifo")
    machine.exec([make])
    hold_lease(machine, f"{HOME}/file", EXCHANGE + "os.symlink('/opt/victim', output)\n")
    tool = script(machine, "/opt/write",
                  f"cd {HOME}/base/*/ && ln -s {HOME}/file link && mkdir dev")
    run = collect(machine, pattern_text.tool(tool), arguments=("-d", f"{HOME}/base"))
    assert run.status == 255
    assert machine.list("/opt/victim") == ["dev"]
    assert machine.list("/opt/victim/dev") == ["fifo", "null", "x"]


def run_below_home(machine: Machine, meanwhile: str, in_output: str, *items: str):
    """A run whose output is in a user's directory. While it waits for the user's lease, the user
    renames the output and does what `meanwhile` says.

    The run must fail and leave /opt/victim as it was, a directory of root's to which the user's
    links lead.
    """
    make_home(machine)
    machine.directory(f"{HOME}/base", 0o755, USER)
    machine.file("/opt/victim/etc/passwd", b"whole")
    machine.directory("/opt/victim/etc", 0o755)
    hold_lease(machine, f"{HOME}/file", EXCHANGE + meanwhile)
    tool = script(machine, "/opt/write", f"cd {HOME}/base/*/ && {in_output}")
    run = collect(machine, pattern_text.tool(tool), *items, arguments=("-d", f"{HOME}/base"))
    status = machine.status("/opt/victim/etc")
    assert run.status == 255
    assert (status.st_uid, status.st_mode & 0o777) == (0, 0o755)
    assert machine.list("/opt/victim") == ["etc"] and machine.list("/opt/victim/etc") == ["passwd"]
    return run


def test_what_a_tool_linked_is_copied_into_the_output_that_was_made(machine: Machine):
    machine.file(f"{HOME}/tree/etc/x", b"x", owner=USER)
    machine.directory(f"{HOME}/tree/etc", 0o777, USER)
    machine.directory(f"{HOME}/tree", 0o755, USER)
    run_below_home(machine, 'os.mkdir(output)\nos.symlink("/opt/victim", output + "/link")\n',
                   f"ln -s {HOME}/file a; ln -s {HOME}/tree link", pattern_text.data("%d%/*"))
    away, = (name for name in machine.list(f"{HOME}/base") if name.endswith(".away"))
    assert machine.read(f"{HOME}/base/{away}/link/etc/x") == "x"


def test_the_content_of_a_link_goes_to_the_output_that_was_made(machine: Machine):
    run_below_home(machine, 'os.mkdir(output)\nos.symlink("/opt/victim", output + "/sub")\n',
                   f"mkdir sub; ln -s {HOME}/file sub/link")


def test_index_and_logs_go_to_the_output_that_was_made(machine: Machine):
    run_below_home(machine, 'os.symlink("/opt/victim", output)\n', f"ln -s {HOME}/file link")


def test_the_index_goes_to_the_output_that_was_made(machine: Machine):
    run_below_home(machine, 'os.symlink("/opt/victim", output)\n', ":",
                   pattern_text.data(f"{HOME}/file"))


def test_tar_packs_the_output_that_was_made(machine: Machine):
    make_home(machine)
    machine.directory(f"{HOME}/base", 0o755, USER)
    # The owner of the base directory can replace the output at any time; here, while tar starts.
    script(machine, "/opt/swap", f"""(cd {HOME}/base; mv "$3" away; mkdir "$3"
ln -s /opt/secret/key "$3/x"); /opt/real/tar "$@"; s=$?
cd {HOME}/base; rm -r "$3"; mv away "$3"; exit $s""")
    machine.replace("/bin/tar", behave.become("/opt/swap"))
    run = collect(machine, pattern_text.data(f"{HOME}/file"), arguments=("-d", f"{HOME}/base"))
    assert run.status == 0 and run.archive.read("opt/home/file") == b"his"
    assert SECRET not in run.archive.files().values()
    assert machine.outputs() == []  # and nothing of what the packing needed
    assert [name for name in machine.list(f"{HOME}/base") if not name.endswith(".gz")] == []


def test_an_output_whose_packing_cannot_be_prepared_stays(machine: Machine):
    make_home(machine)
    machine.directory(f"{HOME}/base", 0o755, USER)
    tool = script(machine, "/opt/remove", f"rmdir {DATA_DIRECTORY}")
    run = collect(machine, pattern_text.data(f"{HOME}/file"), pattern_text.tool(tool),
                  arguments=("-d", f"{HOME}/base"))
    assert run.status == 20
    assert "system call name = mkdtemp, error code = 2" in run.log
    output, = machine.list(f"{HOME}/base")
    assert machine.read(f"{HOME}/base/{output}{HOME}/file") == "his"


def test_what_replaces_the_output_is_not_removed(machine: Machine):
    make_home(machine)
    machine.directory(f"{HOME}/base", 0o755, USER)
    script(machine, "/opt/swap", f"""cd {HOME}; [ -e away ] || {{
for name in base/*; do mkdir -p /opt/victim/${{name#*/}}/keep; done
mv base away; ln -s /opt/victim base; }}""")
    machine.replace("/bin/rm", behave.run("/opt/swap"), behave.become("/opt/real/rm"))
    run = collect(machine, pattern_text.data(f"{HOME}/file"),
                  arguments=("-d", f"{HOME}/base", "-o", "/opt/result"))
    assert run.status == 0 and machine.exists("/opt/result.tar.gz")
    output, = machine.list("/opt/victim")
    assert machine.list(f"/opt/victim/{output}") == ["keep"]
    assert machine.list(f"{HOME}/away/{output}") == []


# ---- The archive ---------------------------------------------------------------------------------


@pytest.mark.parametrize("own", [True, False])
def test_an_archive_is_made_in_a_users_directory_too(machine: Machine, own: bool):
    make_home(machine)
    machine.file("/opt/data", b"x")
    place = "/opt" if own else HOME
    run = collect(machine, pattern_text.data("/opt/data"), arguments=("-o", f"{place}/result"))
    assert run.status == 0 and run.stderr == ""
    assert run.result == f"{place}/result.tar.gz" and run.archive.read("opt/data") == b"x"
    assert machine.mode(run.result) == "0600" and machine.status(run.result).st_uid == 0


@pytest.mark.parametrize("put", ["ln -s /opt/victim", "echo other >", "mkfifo", "true"])
def test_what_takes_the_archives_name_in_a_users_directory_is_not_written_to(machine: Machine,
                                                                            put: str):
    make_home(machine)
    machine.file("/opt/data", b"x")
    machine.file("/opt/victim", b"whole")
    swap = script(machine, "/opt/swap",
                  f"mv {HOME}/result.tar {HOME}/moved; {put} {HOME}/result.tar")
    machine.replace("/bin/tar", behave.run(swap), behave.run("/opt/real/tar"))
    run = collect(machine, pattern_text.data("/opt/data"), arguments=("-o", f"{HOME}/result"))
    assert run.status == 20
    assert run.stderr == "ZEPA132-W:An error occurred while an archiver was being executed.\n"
    assert run.directory["opt/data"].target == "/opt/data"
    assert machine.read("/opt/victim") == "whole"
    assert machine.exists(f"{HOME}/result.tar") == (put != "true")


def test_an_archive_that_cannot_be_made_in_a_users_directory_is_written_nowhere(machine: Machine):
    make_home(machine)
    machine.directory(f"{HOME}/sub", 0o755, USER)
    machine.file("/opt/data", b"x")
    machine.file("/opt/victim", b"whole")
    away = script(machine, "/opt/away",
                  f"mv {HOME}/sub {HOME}/other; ln -s /opt/victim {HOME}/other/result.tar")
    back = script(machine, "/opt/back", f"mv {HOME}/other {HOME}/sub")
    machine.replace("/bin/tar", behave.run(back), behave.run("/opt/real/tar"))
    run = collect(machine, pattern_text.data("/opt/data"), pattern_text.tool(away),
                  arguments=("-o", f"{HOME}/sub/result"))
    assert run.status == 20 and machine.read("/opt/victim") == "whole"
    assert "system call name = open, error code = 2" in run.log


def test_a_compressed_file_that_is_not_ours_is_not_removed(machine: Machine):
    make_home(machine)
    machine.directory(f"{HOME}/sub", 0o755, USER)
    machine.file("/opt/data", b"x")
    machine.file("/opt/victim/result.tar", b"whole")
    machine.file("/opt/victim/result.tar.gz", b"whole too")
    swap = script(machine, "/opt/swap", f"mv {HOME}/sub {HOME}/other; ln -s /opt/victim {HOME}/sub")
    machine.replace("/bin/gzip", behave.run(swap), behave.become("/opt/real/gzip"))
    collect(machine, pattern_text.data("/opt/data"), arguments=("-o", f"{HOME}/sub/result"))
    assert machine.list("/opt/victim") == ["result.tar", "result.tar.gz"]


def test_a_default_acl_gives_no_access_to_the_archive(machine: Machine):
    # u::rwx u:1000:rwx g::rwx m::rwx o::rwx
    entries = [(1, 7, 0xFFFFFFFF), (2, 7, 1000), (4, 7, 0xFFFFFFFF), (16, 7, 0xFFFFFFFF),
               (32, 7, 0xFFFFFFFF)]
    acl = (2).to_bytes(4, "little") + b"".join(
        tag.to_bytes(2, "little") + bits.to_bytes(2, "little") + who.to_bytes(4, "little")
        for tag, bits, who in entries)
    os.setxattr(machine.path(machine.directory("/opt/common")), "system.posix_acl_default", acl)
    machine.replace("/bin/gzip", behave.exit(1))
    run = collect(machine, pattern_text.block(), arguments=("-o", "/opt/common/result"))
    assert run.result == "/opt/common/result.tar"
    assert machine.status(run.result).st_mode & 0o077 == 0


# ---- The last complete copy ----------------------------------------------------------------------

TRUNCATED = "/opt/real/tar \"$@\"\ntruncate -s 5120 \"$2\"\n"


def test_a_truncated_archive_is_removed_and_the_directory_is_the_result(machine: Machine):
    machine.file("/opt/data", b"x" * 20000)
    real = machine.replace("/bin/tar", behave.become("/opt/cut"))
    script(machine, "/opt/cut", TRUNCATED + "exit 2")
    output = ("-o", "/opt/result")
    run = collect(machine, pattern_text.data("/opt/data"), arguments=output)
    assert run.status == 20
    assert run.directory["opt/data"].target == "/opt/data"
    assert not machine.exists("/opt/result.tar")
    machine.file("/opt/cut", f'#!/bin/sh\nexec {real} "$@"\n', 0o755)
    again = collect(machine, pattern_text.data("/opt/data"), arguments=output)
    assert again.status == 0 and again.archive.read("opt/data") == b"x" * 20000


def test_the_last_whole_copy_stays_when_the_run_log_cannot_be_written_then(machine: Machine):
    logs = "/var/opt/norvale/quendil/log"
    machine.small_tmpfs(logs, 65536)
    machine.file("/opt/data", b"x" * 20000)
    machine.replace("/bin/tar", behave.become("/opt/other"))
    # Its output fills the run log nearly to the end of its last page, and then it fills the disk.
    script(machine, "/opt/other", f"""echo no archive of tar >"$2"
head -c $((4096 - $(stat -c %s {logs}/quendil.log) % 4096 - 20)) /dev/zero | tr '\\0' x >&2
cat /dev/zero >{logs}/full 2>/dev/null
exit 2""")
    run = collect(machine, pattern_text.data("/opt/data"))
    assert run.status == 10 and "No space left on device" in run.stderr
    directory, = (name for name in machine.list(DATA_DIRECTORY) if "." not in name)
    left = read_directory(machine.path(f"{DATA_DIRECTORY}/{directory}"))
    assert left["opt/data"].target == "/opt/data"
