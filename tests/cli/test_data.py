"""Data items: what is found, what is copied, and what the unpacked archive contains."""

from __future__ import annotations

import os
import stat
from collections.abc import Iterable, Iterator

import pytest
from support import behave, expect, pattern_text
from support.collecting import collect, started_log, unpack
from support.machine import DATA_DIRECTORY, QUENDIL, Machine
from support.tree import Member, Tree, read_directory


def walk(machine: Machine, path: str) -> Iterator[str]:
    """A path and everything below it, parents first, in the order of the directories; no link is
    followed."""
    yield path
    if stat.S_ISDIR(machine.status(path).st_mode):
        for name in os.listdir(machine.path(path)):
            yield from walk(machine, f"{path}/{name}")


def sizes(machine: Machine, paths: Iterable[str]) -> dict[str, int]:
    """The sizes that the log reports for these paths: 0 for a directory."""
    status = {path: machine.status(path) for path in paths}
    return {path: 0 if stat.S_ISDIR(one.st_mode) else one.st_size for path, one in status.items()}


def log_of(machine: Machine, *paths: str, before: str = "") -> str:
    """The log of a run whose only item collects the paths and all below them."""
    copied = sizes(machine, (below for path in paths for below in walk(machine, path)))
    return started_log().data(copied, sum(copied.values()), before).complete().text


def check_same(machine: Machine, unpacked: Tree, path: str) -> None:
    """Every entry of a tree without links is in the archive, with content, mode, owner and time."""
    source = read_directory(machine.path(path))
    for name, member in source.members().items():
        there = f"{path[1:]}/{name}".rstrip("/")
        assert unpacked[there] == member, there
    for name, content in source.files().items():
        assert unpacked.read(f"{path[1:]}/{name}") == content


def failed(path: str) -> str:
    """The report of an entry that cannot be collected."""
    return ("ZEPA130-W:An attempt to collect the system information has failed.\n"
            f"ZEPA152-W:Additional information, path = {path}.\n")


def not_found(path: str) -> str:
    """The report of a missing path."""
    return f"ZEPA129-W:A system information({path}) is not found.\n"


# ---- What a path names --------------------------------------------------------------------------


def test_a_single_file_is_collected_with_its_attributes_and_its_directories(machine: Machine):
    machine.directory("/opt/data", 0o2750, (7, 8), 1_000_000_000)
    machine.directory("/opt/data/deep", 0o1777, (9, 10), 1_100_000_000)
    machine.file("/opt/data/deep/file", b"\0\1binary", 0o4751, (1000, 1001), 1_200_000_000)
    machine.directory("/opt/data/deep", 0o1777, (9, 10), 1_100_000_000)
    machine.directory("/opt/data", 0o2750, (7, 8), 1_000_000_000)
    run = collect(machine, pattern_text.data("/opt/data/deep/file", "one file"))
    assert run.status == 0 and run.stderr == ""
    assert run.log == started_log().data({"/opt/data/deep/file": 8}, 8).complete().text
    assert run.index == expect.index_header("-g demo") + expect.index_record(
        "opt/data/deep/file", descriptions=["one file"])
    unpacked = unpack(machine, run)
    assert unpacked["opt/data/deep/file"] == Member("file", "4751", 1000, 1001, 8, 1_200_000_000)
    assert unpacked["opt/data/deep"] == Member("directory", "1777", 9, 10, 0, 1_100_000_000)
    assert unpacked["opt/data"] == Member("directory", "2750", 7, 8, 0, 1_000_000_000)
    assert unpacked["opt"] == read_directory(machine.path("/opt"))[""]
    assert unpacked.read("opt/data/deep/file") == b"\0\1binary"


def make_tree(machine: Machine) -> None:
    """Makes a tree of full, empty and hidden files and directories, each with other attributes."""
    for number, name in enumerate(("a", "b/c", "b/.hidden", ".dir/d/e", "b/f/g")):
        machine.file(f"/opt/data/{name}", "x" * number, 0o600 + number, (number, 5),
                     1_000_000_000 + number)
    for number, name in enumerate(("empty", "b/f", "b", ".dir/d", ".dir", "")):
        machine.directory(f"/opt/data/{name}", 0o700 + number, (5, number), 1_000_000_100 + number)


@pytest.mark.parametrize("path", ["/opt/data", "/opt/data/", "/opt//data///", "/opt/./x/../data"])
def test_a_directory_is_collected_with_all_that_is_below_it(machine: Machine, path: str):
    make_tree(machine)
    run = collect(machine, pattern_text.data(path, file_type="directory"))
    assert run.status == 0 and run.stderr == ""
    assert run.log == log_of(machine, "/opt/data")
    names = [name[1:] for name in walk(machine, "/opt/data")]
    assert run.index == expect.index_header("-g demo") + expect.index_record(
        *names, file_type="directory")
    check_same(machine, unpack(machine, run), "/opt/data")


@pytest.mark.parametrize("wildcard, names", [
    ("*", ["a.log", "b.log", "b.txt", ".c.log", "dir.log"]),
    ("*.log", ["a.log", "b.log", ".c.log", "dir.log"]), ("?.log", ["a.log", "b.log"]),
    ("[bc].*", ["b.log", "b.txt"]), ("[!ab]*.log", [".c.log", "dir.log"]), (".*", [".c.log"]),
    ("b.log", ["b.log"]), ("*\\*", []), ("d*", ["dir.log"]),
])
def test_a_wildcard_collects_what_it_matches(machine: Machine, wildcard: str, names: list[str]):
    for name in ("a.log", "b.log", "b.txt", ".c.log", "dir.log/below"):
        machine.file(f"/opt/data/{name}", name)
    run = collect(machine, pattern_text.data(f"/opt/data/{wildcard}"))
    order = [f"/opt/data/{name}" for name in os.listdir(machine.path("/opt/data")) if name in names]
    missing = "" if names else not_found(f"/opt/data/{wildcard}")
    assert run.log == log_of(machine, *order, before=missing)
    if names:
        assert sorted(run.archive.files()) == sorted(
            [name[1:] for path in order for name in walk(machine, path)
             if not stat.S_ISDIR(machine.status(name).st_mode)]
            + ["quendil.log", "quendil_hist.log", "quendil_index"])


def test_a_backslash_in_a_wildcard_is_an_ordinary_character(machine: Machine):
    machine.file("/opt/data/a\\b")
    machine.file("/opt/data/ab")
    run = collect(machine, pattern_text.data("/opt/data/a\\*"))
    assert run.log == log_of(machine, "/opt/data/a\\b")


def test_a_name_with_wildcard_characters_that_exists_is_taken_as_it_is(machine: Machine):
    machine.file("/opt/data/[ab]*", "this one")
    machine.file("/opt/data/a", "not this one")
    run = collect(machine, pattern_text.data("/opt/data/[ab]*"))
    assert run.log == log_of(machine, "/opt/data/[ab]*")


@pytest.mark.parametrize("path", ["/opt/data/none", "/opt/data/none*", "/opt/data/dir/*"])
def test_a_path_that_matches_nothing_is_reported_and_has_no_record(machine: Machine, path: str):
    machine.directory("/opt/data/dir")
    run = collect(machine, pattern_text.data(path))
    assert run.status == 0 and run.stderr == ""
    assert run.log == started_log().data({}, 0, not_found(path)).complete().text
    assert run.index == expect.index_header("-g demo")


def test_a_path_below_a_missing_directory_is_reported(machine: Machine):
    run = collect(machine, pattern_text.data("/opt/none/*"))
    reported = expect.system_error("opendir", 2, "/opt/none", "IGCmnTree", warning=True)
    assert run.log == started_log().data({}, 0, reported + not_found("/opt/none/*")).complete().text


def test_special_strings_of_a_path_are_expanded(machine: Machine):
    machine.file("/opt/data/testhost-100%", "x")
    run = collect(machine, pattern_text.data("/opt/data/%HOST%-100%%"))
    assert run.log == log_of(machine, "/opt/data/testhost-100%")


# ---- Names --------------------------------------------------------------------------------------

HOSTILE = [
    b"two words", b'quo"te', b"it's", b"$(touch /opt/pwned)", b"`touch pwned`",
    b";touch pwned;", b"&& touch pwned", b"$HOME", b"-rf", b"--help", b"*", b"a\\b", b"%HOST%",
    b"new\nline\nFILE:forged", b"\nZEPA213-I:forged", b"tab\tcr\rbell\x07\x1b[2J\x7f", b"\xff\xfe",
    b"a\xc3", "\u00fcml\u00e4ut".encode(), b"x" * 255, b"\n" * 255, b" ", b"...",
]


def shown(name: str) -> str:
    """A name in messages and in the index: control characters as octal numbers."""
    return "".join(f"\\{ord(one):03o}" if ord(one) < 32 or ord(one) == 127 else one for one in name)


@pytest.mark.parametrize("through", ["directory", "wildcard"])
def test_files_with_any_name_are_collected(machine: Machine, through: str):
    directory = machine.directory("/opt/data")
    for number, name in enumerate(HOSTILE):
        at = machine.path(directory) / os.fsdecode(name.replace(b"/", b"|"))
        at.write_bytes(b"x" * number)
    paths = list(walk(machine, directory))[0 if through == "directory" else 1:]
    path = directory if through == "directory" else "/opt/data/?*"
    run = collect(machine, pattern_text.data(path))
    assert run.status == 0 and run.stderr == ""
    copied = {shown(path): size for path, size in sizes(machine, paths).items()}
    assert run.log == started_log().data(copied, sum(copied.values())).complete().text
    assert run.index == expect.index_header("-g demo") + expect.index_record(
        *(shown(path[1:]) for path in paths))
    check_same(machine, unpack(machine, run), "/opt/data")
    assert not any(machine.exists(f"{place}/pwned") for place in ("/opt", DATA_DIRECTORY))


@pytest.mark.parametrize("name", ["c1 \u0085\u009b", "line \u2028 paragraph \u2029"])
def test_a_name_with_other_control_characters_reaches_no_terminal(machine: Machine, name: str):
    machine.file(f"/opt/data/{name}")
    run = collect(machine, pattern_text.data("/opt/data/*"))
    assert run.archive.files()[f"opt/data/{name}"] == b""
    for text in (run.log, run.index):
        assert text is not None and "\u009b" not in text and "\u0085" not in text


@pytest.mark.parametrize("wildcard", ["a*", "*z", "a?z", "?*"])
def test_a_wildcard_matches_names_that_the_locale_cannot_decode(machine: Machine, wildcard: str):
    name = os.fsdecode(b"a\xffz")
    machine.file(f"/opt/data/{name}", "x")
    run = collect(machine, pattern_text.data(f"/opt/data/{wildcard}"))
    assert run.archive.read(f"opt/data/{name}") == b"x"


@pytest.mark.parametrize("locale", ["C", "POSIX", "C.UTF-8", "none.such"])
def test_every_locale_collects_the_same_names(machine: Machine, locale: str):
    for name in ("\u00fc", os.fsdecode(b"\xff"), "plain"):
        machine.file(f"/opt/data/{name}", name.encode("utf-8", "surrogateescape"))
    run = collect(machine, pattern_text.data("/opt/data"), env={"LC_ALL": locale})
    assert run.status == 0
    check_same(machine, unpack(machine, run), "/opt/data")


def test_a_tree_deeper_than_a_path_can_be_is_left_out_below_that(machine: Machine):
    descriptor = os.open(machine.path(machine.directory("/opt/data")), os.O_RDONLY)
    for _ in range(20):
        os.mkdir("d" * 250, dir_fd=descriptor)
        below = os.open("d" * 250, os.O_RDONLY, dir_fd=descriptor)
        os.close(descriptor)
        descriptor = below
    os.close(descriptor)
    machine.file("/opt/data/file", "x")
    run = collect(machine, pattern_text.data("/opt/data"))
    assert run.status == 0 and run.stderr == ""
    assert run.archive.read("opt/data/file") == b"x"
    depth = max(name.count("d" * 250) for name in run.archive.names)
    assert 14 <= depth < 20


# ---- Links --------------------------------------------------------------------------------------


def test_a_link_is_followed(machine: Machine):
    machine.file("/opt/real/file", "content", 0o640, (3, 4), 1_000_000_000)
    machine.file("/opt/real/dir/below", "below", mtime=1_000_000_001)
    machine.link("/opt/data/to-file", "/opt/real/file")
    machine.link("/opt/data/to-link", "to-file")
    machine.link("/opt/data/to-dir", "../real/dir")
    run = collect(machine, *(pattern_text.data(f"/opt/data/to-{name}")
                             for name in ("file", "link", "dir")))
    log = started_log().data({"/opt/data/to-file": 7}, 7).data({"/opt/data/to-link": 7}, 14)
    log.data({"/opt/data/to-dir": 0, "/opt/data/to-dir/below": 5}, 19)
    assert run.log == log.complete().text
    unpacked = unpack(machine, run)
    for name in ("to-file", "to-link"):
        assert unpacked[f"opt/data/{name}"] == Member("file", "0640", 3, 4, 7, 1_000_000_000)
        assert unpacked.read(f"opt/data/{name}") == b"content"
    assert unpacked["opt/data/to-dir"].kind == "directory"
    assert unpacked.read("opt/data/to-dir/below") == b"below"


def test_a_link_to_a_directory_above_it_is_not_entered(machine: Machine):
    machine.file("/opt/data/deep/file", "x")
    machine.link("/opt/data/deep/up", "../deep")
    machine.link("/opt/data/deep/top", "/opt/data")
    machine.link("/opt/data/self", ".")
    run = collect(machine, pattern_text.data("/opt/data"))
    assert run.status == 0 and run.stderr == ""
    names = {name: kind for name, (kind, _) in run.archive.kinds().items() if "opt/data" in name}
    assert names == {
        "opt/data": "directory", "opt/data/self": "directory", "opt/data/deep": "directory",
        "opt/data/deep/file": "file", "opt/data/deep/up": "directory",
        "opt/data/deep/top": "directory"}


def test_a_dangling_link_in_a_directory_is_reported_and_skipped(machine: Machine):
    machine.file("/opt/data/file", "x")
    machine.link("/opt/data/nowhere", "/opt/none")
    machine.link("/opt/data/loop", "loop")
    run = collect(machine, pattern_text.data("/opt/data"))
    order = [name for name in os.listdir(machine.path("/opt/data")) if name != "file"]
    reported = "".join(not_found(f"/opt/data/{name}") for name in order)
    assert run.log == started_log().data({"/opt/data": 0, "/opt/data/file": 1}, 1,
                                         reported).complete().text
    assert run.status == 0 and "opt/data/nowhere" not in run.archive


@pytest.mark.parametrize("target", ["/opt/none", "nowhere"])
def test_a_dangling_link_that_a_path_names_is_reported_once(machine: Machine, target: str):
    machine.link("/opt/data/nowhere", target)
    run = collect(machine, pattern_text.data("/opt/data/nowhere"))
    assert run.log == started_log().data({}, 0, not_found("/opt/data/nowhere")).complete().text


def test_two_links_to_one_file_both_have_its_content(machine: Machine):
    machine.file("/opt/data/file", "content")
    os.link(machine.path("/opt/data/file"), machine.path("/opt/data/hard"))
    machine.link("/opt/data/soft", "file")
    unpacked = unpack(machine, collect(machine, pattern_text.data("/opt/data")))
    for name in ("file", "hard", "soft"):
        assert unpacked.read(f"opt/data/{name}") == b"content"


# ---- What is not data ---------------------------------------------------------------------------

SPECIAL = {"fifo": behave.fifo("/opt/data/special"), "socket": behave.socket("/opt/data/special")}


def make_special(machine: Machine, kind: str) -> None:
    """Makes a file below /opt/data that must not be opened."""
    machine.directory("/opt/data")
    if kind in SPECIAL:
        machine.exec(machine.tool(SPECIAL[kind]))
    elif kind == "link to a fifo":
        machine.fifo("/opt/fifo")
        machine.link("/opt/data/special", "/opt/fifo")
    else:
        letter = "c" if kind == "terminal" else "b"
        machine.exec(["/usr/bin/mknod", "/opt/data/special", letter, "5", "0"])


@pytest.mark.parametrize("path", ["/opt/data", "/opt/data/special", "/opt/data/s*"])
@pytest.mark.parametrize("kind", ["fifo", "socket", "terminal", "block device", "link to a fifo"])
def test_only_files_and_directories_are_opened(machine: Machine, kind: str, path: str):
    make_special(machine, kind)
    machine.file("/opt/data/file", "x")
    run = collect(machine, pattern_text.data(path), pattern_text.data("/opt/data/file"))
    assert run.status == 0 and run.stderr == ""
    assert run.log is not None and run.log.count(failed("/opt/data/special")) == 1
    assert "opt/data/special" not in run.archive and "special" not in run.index
    assert run.archive.read("opt/data/file") == b"x"


def test_the_lock_files_are_not_data(machine: Machine):
    locks = ["/opt/norvale/quendil/bin/.quendil.lck", "/opt/norvale/quendil/bin/.quendil_hist.lck"]
    second = f"{QUENDIL} -g demo"
    run = collect(machine, *map(pattern_text.data, locks),
                  pattern_text.tool(second, redirect="/opt/second"))
    log = started_log()
    for lock in locks:
        log.data({}, 0, failed(lock))
    # Had a lock file been opened and closed, the second run would not be refused.
    refused = "ZEPA116-E:Another quendil is already running. Please try later.\n"
    assert run.log == log.tool(second, 255, 0, within=refused).complete().text


# ---- Files of the kernel ------------------------------------------------------------------------


@pytest.mark.parametrize("path", ["/proc/sys/kernel/ostype", "/proc/version", "/proc/filesystems",
                                  "/proc/sys/kernel/hostname", "/sys/kernel/address_bits"])
def test_a_file_of_the_kernel_is_collected_with_its_content(machine: Machine, path: str):
    content = machine.exec(["/bin/cat", path]).stdout
    assert content
    run = collect(machine, pattern_text.data(path))
    # The log has the size that stat reports, which is not that of the content; the total counts the
    # bytes read.
    size = int(machine.exec(["/usr/bin/stat", "-c", "%s", path]).stdout)
    read = max(size, len(content))
    assert run.log == started_log().data({path: size}, read).complete().text
    unpacked = unpack(machine, run)
    assert unpacked.read(path[1:]).decode() == content
    mode, uid, gid = machine.exec(["/usr/bin/stat", "-c", "%04a %u %g", path]).stdout.split()
    assert unpacked[path[1:]][:4] == ("file", mode.zfill(4), int(uid), int(gid))


def test_a_directory_of_the_kernel_is_collected_with_what_can_be_read(machine: Machine):
    run = collect(machine, pattern_text.data("/proc/sys/kernel/random"),
                  pattern_text.data("/opt/behave"))
    assert run.status == 0 and run.stderr == ""
    unpacked = unpack(machine, run)
    assert unpacked.read("proc/sys/kernel/random/poolsize").strip().isdigit()
    assert "opt/behave" in unpacked


def test_a_link_to_a_file_of_the_kernel_has_its_content(machine: Machine):
    machine.link("/opt/data/link", "/proc/sys/kernel/ostype")
    run = collect(machine, pattern_text.data("/opt/data/link"))
    assert unpack(machine, run).read("opt/data/link") == b"Linux\n"


def test_a_file_of_the_kernel_that_cannot_be_read_is_reported(machine: Machine):
    run = collect(machine, pattern_text.data("/proc/sys/vm/drop_caches"),
                  pattern_text.data("/opt/behave"))
    size = machine.status("/opt/behave").st_size
    reported = failed("/proc/sys/vm/drop_caches")
    log = started_log().data({}, 0, reported).data({"/opt/behave": size}, size)
    assert run.log == log.complete().text
    assert "proc/sys/vm/drop_caches" not in run.archive


@pytest.mark.plain_binary  # the sanitizers' library reads /proc
def test_data_is_collected_where_proc_is_empty(machine: Machine):
    machine.file("/opt/data/file", "content")
    machine.fifo("/opt/data/fifo")
    machine.mount("-t", "tmpfs", "sandbox", "/proc")
    run = collect(machine, pattern_text.data("/opt/data"))
    assert run.status == 0 and run.archive.read("opt/data/file") == b"content"
    assert run.log is not None and run.log.count("ZEPA130-W") == 1  # the FIFO


# ---- Several items ------------------------------------------------------------------------------


def test_a_file_that_two_items_name_is_copied_and_counted_once(machine: Machine):
    machine.file("/opt/data/a", "12345")
    machine.file("/opt/data/b", "123")
    run = collect(machine, pattern_text.data("/opt/data/a"), pattern_text.data("/opt/data/?"),
                  pattern_text.data("/opt/data/a"))
    log = started_log().data({"/opt/data/a": 5}, 5).data({"/opt/data/b": 3}, 8).data({}, 8)
    assert run.log == log.complete().text
    assert run.index == (expect.index_header("-g demo") + expect.index_record("opt/data/a")
                         + expect.index_record("opt/data/b") + expect.index_record())


def test_directories_have_the_attributes_of_their_sources_for_every_item(machine: Machine):
    machine.file("/opt/data/x/file", "1", mtime=1_000_000_000)
    machine.file("/opt/data/y/file", "2", mtime=1_000_000_001)
    for number, name in enumerate(("x", "y", "")):
        machine.directory(f"/opt/data/{name}", 0o711, (1, 2), 1_000_000_100 + number)
    run = collect(machine, pattern_text.data("/opt/data/x/file"), pattern_text.data("/opt/data"))
    check_same(machine, unpack(machine, run), "/opt/data")


def test_patterns_without_targets_share_the_output_directory(machine: Machine):
    machine.file("/opt/data/a", "1")
    machine.file("/opt/data/b", "2")
    machine.pattern("20_more", pattern_text.pattern(pattern_text.data("/opt/data/b"), name="more"))
    run = collect(machine, pattern_text.data("/opt/data/a"))
    assert run.archive.read("opt/data/a") == b"1" and run.archive.read("opt/data/b") == b"2"


def test_patterns_with_equal_targets_share_a_directory_and_others_have_their_own(machine: Machine):
    machine.file("/opt/data/a", "1")
    machine.file("/opt/data/b", "2")
    for number, (path, targets) in enumerate([
            ("/opt/data/a", ["net tools", "x"]), ("/opt/data/b", ["net tools", "x"]),
            ("/opt/data/a", ["net/tools"]), ("/opt/data/a", ["x", "net tools"])]):
        machine.pattern(f"{number}0_demo", pattern_text.pattern(
            pattern_text.block(pattern_text.data(path), targets=map(pattern_text.quoted, targets)),
            name=str(number)))
    run = machine.run("-g", "demo")
    assert run.status == 0 and run.stderr == ""
    assert sorted(name for name in unpack(machine, run).files() if "data" in name) == [
        "net_tools/opt/data/a", "net_tools/opt/data/b", "net_tools_1/opt/data/a", "x/opt/data/a"]
    assert run.index == expect.index_header("-g demo") + "".join(
        map(expect.index_record, ["net_tools/opt/data/a", "net_tools/opt/data/b",
                                  "net_tools_1/opt/data/a", "x/opt/data/a"]))


def test_the_directory_that_holds_the_output_can_be_collected(machine: Machine):
    machine.file(f"{DATA_DIRECTORY}/older", "12345")
    run = collect(machine, pattern_text.data(DATA_DIRECTORY))
    assert run.status == 0 and run.stderr == ""
    assert run.archive.read(f"{DATA_DIRECTORY[1:]}/older") == b"12345"


# ---- What the pattern's own tools wrote ---------------------------------------------------------


def test_output_of_a_tool_is_recorded_where_it_is(machine: Machine):
    made = machine.tool(behave.out("12345"))
    run = collect(machine, pattern_text.tool(made, redirect="%d%/sub/df.txt"),
                  pattern_text.data("%d%/sub/df.txt", "disks"), pattern_text.data("%d%/sub"),
                  pattern_text.data("%d%/sub/*.none"))
    place = f"{expect.OUTPUT_DIRECTORY}/sub"
    log = started_log().tool(made).data({f"{place}/df.txt": 5}, 5)
    log.data({place: 0, f"{place}/df.txt": 5}, 10).data({}, 10, not_found(f"{place}/*.none"))
    assert run.log == log.complete().text
    assert run.index == (expect.index_header("-g demo")
                         + expect.index_record("sub/df.txt", descriptions=["disks"])
                         + expect.index_record("sub", "sub/df.txt"))
    assert run.archive.read("sub/df.txt") == b"12345"


def test_attributes_that_a_tool_gave_its_output_stay(machine: Machine):
    script = behave.script(behave.write("own", "x"), behave.mode("own", 0o604),
                           behave.owner("own", 3, 4), behave.touch("own", 1_000_000_000))
    machine.file("/opt/tool", script, 0o755)
    line = f"{behave.PROGRAM} cd %d% exec /opt/tool"
    run = collect(machine, pattern_text.tool(line), pattern_text.data("%d%/own"))
    assert unpack(machine, run)["own"] == Member("file", "0604", 3, 4, 1, 1_000_000_000)


def test_a_targets_own_output_has_the_targets_directory_in_the_index(machine: Machine):
    tool = machine.tool(behave.out("x"))
    run = collect(machine, pattern_text.block(
        pattern_text.tool(tool, redirect="%d%/df"), pattern_text.data("%d%/df"), targets=["disk"]))
    assert run.index == expect.index_header("-g demo") + expect.index_record("disk/df")
    assert run.archive.read("disk/df") == b"x"
