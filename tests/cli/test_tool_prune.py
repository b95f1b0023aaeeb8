"""`prune`: removes old results of runs, and nothing else."""

from __future__ import annotations

import os
import subprocess
import time
from pathlib import Path

import pytest
from support import behave, pattern_text
from support.machine import DATA_DIRECTORY, Completed, Machine
from support.tool_directory import TOOLS, with_changes

PRUNE = f"{TOOLS}/prune"
DAY = 86400
#: Names of five runs, the oldest first.
RUNS = [f"web_01_2601{day}020304" for day in ("01", "02", "03", "04", "05")]


def name_of(days: float) -> str:
    """The name of a run so many days ago."""
    return time.strftime("web_01_%y%m%d%H%M%S", time.localtime(time.time() - days * DAY))


def age(machine: Machine, path: str, days: float) -> str:
    """Makes an entry so many days old."""
    then = time.time() - days * DAY
    os.utime(machine.path(path), (then, then), follow_symlinks=False)
    return path


def add(machine: Machine, name: str, days: float, text: str = "x", where: str = DATA_DIRECTORY) -> str:
    """Makes a file of this age in the data directory; one whose name ends with a slash is a directory
    with a file in it."""
    path = f"{where}/{name.rstrip('/')}"
    if name.endswith("/"):
        machine.file(f"{path}/kernel/dmesg.txt", text)
    else:
        machine.file(path, text)
    return age(machine, path, days)


def add_recent(machine: Machine) -> list[str]:
    """Three archives that are the newest three."""
    names = [f"{name_of(days)}.tar.gz" for days in (1, 2, 3)]
    for days, name in enumerate(names, 1):
        add(machine, name, days)
    return names


def prune(machine: Machine, *arguments: str, check: bool = True, program: str = PRUNE) -> Completed:
    """Runs the command."""
    return machine.exec([program, *arguments], check=check)


def removed(*names: str, verb: str = "removed") -> str:
    """The output for these entries of the data directory."""
    return "".join(f"{verb}: {DATA_DIRECTORY}/{name}\n" for name in names)


# ---- What goes ----------------------------------------------------------------------------------


def test_results_older_than_thirty_days_go(system: Machine):
    recent = add_recent(system)
    old = [f"{RUNS[0]}.tar.gz", f"{RUNS[1]}.tar", f"{RUNS[2]}.tar.gz.age", f"{RUNS[3]}.tar.age",
           RUNS[4], f"{RUNS[0]}_1.tar.gz", f"{RUNS[0]}_12"]
    for name in old:
        add(system, name if "." in name else f"{name}/", 30.1)
    young = [f"db_2602{day}020304.tar.gz" for day in ("01", "02")]
    for name in young:
        add(system, name, 29.9)
    done = prune(system)
    assert sorted(done.stdout.splitlines()) == sorted(removed(*old).splitlines())
    assert (done.status, done.stderr) == (0, "")
    assert system.list(DATA_DIRECTORY) == sorted(recent + young)


def test_the_newest_three_archives_stay_however_old_they_are(system: Machine):
    for days, name in zip((300, 200, 150, 100, 90), RUNS):
        add(system, f"{name}.tar.gz", days)
    assert prune(system).stdout == removed(f"{RUNS[1]}.tar.gz", f"{RUNS[0]}.tar.gz")
    assert system.list(DATA_DIRECTORY) == [f"{name}.tar.gz" for name in RUNS[2:]]
    assert prune(system).stdout == ""


def test_the_newest_are_those_with_the_newest_files_not_with_the_latest_names(system: Machine):
    for days, name in zip((100, 110, 120, 130), RUNS):
        add(system, f"{name}.tar.gz", days)
    assert prune(system).stdout == removed(f"{RUNS[3]}.tar.gz")


@pytest.mark.parametrize("dead", [
    ["{}/"], ["{}/", "{}.tar"], ["{}.tar.gz:"], ["{}.tar:"], ["{}.tar", "{}/", "{}.tar.gz:"],
], ids=["directory", "packing", "empty .tar.gz", "empty .tar", "all"])
def test_what_a_killed_run_left_displaces_no_archive(machine: Machine, dead: list[str]):
    archives = [f"{name}.tar.gz" for name in RUNS[:3]]
    for days, name in zip((300, 200, 150), archives):
        add(machine, name, days)
    for name in dead:
        add(machine, name.format(RUNS[4]).rstrip(":"), 40, "" if name.endswith(":") else "x")
    names = [name.format(RUNS[4]).rstrip(":/") for name in dead]
    assert sorted(prune(machine).stdout.splitlines()) == sorted(removed(*names).splitlines())
    assert machine.list(DATA_DIRECTORY) == archives


@pytest.mark.parametrize("complete", [
    [".tar", ".tar.gz"], [".tar.gz", "/"], [".tar"], [".tar.age"], [".tar.gz.age", "/"],
], ids=["killed in gzip", "unpacked", "not compressed", "encrypted", "encrypted and unpacked"])
def test_what_has_a_complete_archive_counts(machine: Machine, complete: list[str]):
    for days, name in zip((300, 200, 150), RUNS):
        add(machine, f"{name}.tar.gz", days)
    for ending in complete:
        add(machine, f"{RUNS[4]}{ending}", 40)
    assert prune(machine).stdout == removed(f"{RUNS[0]}.tar.gz")


def test_without_three_archives_the_newest_directories_stay(system: Machine):
    add(system, f"{RUNS[0]}.tar.gz", 300)
    for days, name in zip((200, 150, 100), RUNS[1:]):
        add(system, f"{name}/", days)
    assert prune(system).stdout == removed(RUNS[1])


def test_a_result_is_as_young_as_its_newest_entry_and_goes_whole(system: Machine):
    add_recent(system)
    for name, days in ((f"{RUNS[0]}/", 40), (f"{RUNS[0]}.tar", 20), (f"{RUNS[1]}/", 40),
                       (f"{RUNS[1]}.tar", 50)):
        add(system, name, days)
    assert prune(system).stdout == removed(f"{RUNS[1]}.tar", RUNS[1])


def test_a_page_goes_with_its_archive_and_before_it(system: Machine):
    recent = add_recent(system)
    page = f"{recent[0].removesuffix('.tar.gz')}.html"
    for name, days in ((f"{RUNS[0]}.tar.gz", 40), (f"{RUNS[0]}.html", 1), (page, 90),
                       (f"{RUNS[1]}.html", 90)):
        add(system, name, days)
    assert prune(system).stdout == removed(f"{RUNS[0]}.html", f"{RUNS[0]}.tar.gz")
    assert system.list(DATA_DIRECTORY) == sorted([*recent, page, f"{RUNS[1]}.html"])


# ---- What stays ---------------------------------------------------------------------------------


HOSTILE = ["-rf_260101020304.tar.gz", ".web_260101020304.tar.gz", "a b_260101020304.tar.gz",
           "a\nweb_260101020304.tar.gz", "$(id)_260101020304", "*_260101020304.tar.gz",
           "web\x1b_260101020304.tar", "w\u00e9b_260101020304.tar.gz"]
OTHERS = ["notes.txt", "web.tar.gz", "260101020304.tar.gz", "web_26010102030.tar.gz",
          "web_2601010203044.tar.gz", "web_262001020304.tar.gz", "web_260141020304.tar.gz",
          "web_260101320304.tar.gz", "web_260101026304.tar.gz", "web_260101020374.tar.gz",
          "web_260101020304_a.tar.gz", "web_260101020304_.tar.gz", "web_260101020304.tar.gz.part",
          "web_260101020304.zip", "web_260101020304.tar.gz.html", "web_260101020304.tar.xz"]


def test_only_names_that_a_run_makes_go(system: Machine):
    recent = add_recent(system)
    for name in HOSTILE + OTHERS:
        add(system, name, 90)
    add(system, "case_260101020304.txt/", 90)
    done = prune(system, "-k", "0")
    assert (done.stdout, done.stderr) == ("", "")
    assert system.list(DATA_DIRECTORY) == sorted(
        [*recent, *HOSTILE, *OTHERS, "case_260101020304.txt"])


def test_a_line_feed_in_a_name_does_not_name_another_file(system: Machine):
    add_recent(system)
    name = f"{DATA_DIRECTORY}/a\n1 1 8000 ./notes_260101020304.tar.gz"
    system.directory(name[:name.index("./")] + ".")
    add(system, "notes_260101020304.tar.gz", 1)
    system.file(name, "x")
    age(system, name, 90)
    assert prune(system, "-k", "0").stdout == ""


@pytest.mark.parametrize("name, kind", [
    (f"{RUNS[0]}.tar.gz", "link"), (RUNS[0], "link"), (f"{RUNS[0]}.tar", "fifo"),
    (f"{RUNS[0]}.tar.gz", "directory"), (RUNS[0], "file"), (f"{RUNS[0]}.tar.gz", "user's")])
def test_links_other_kinds_of_files_and_files_of_users_stay(machine: Machine, name: str, kind: str):
    recent = add_recent(machine)
    path = f"{DATA_DIRECTORY}/{name}"
    machine.file("/opt/kept/file")
    if kind == "link":
        machine.link(path, "/opt/kept")
    elif kind == "fifo":
        machine.fifo(path)
    elif kind == "directory":
        machine.file(f"{path}/x")
    else:
        machine.file(path, "x", owner=(1000, 1000) if kind == "user's" else (0, 0))
    age(machine, path, 90)
    assert prune(machine, "-k", "0").stdout == ""
    assert machine.list(DATA_DIRECTORY) == sorted([*recent, name])
    assert machine.exists("/opt/kept/file")


def test_a_link_in_a_directory_is_not_followed(machine: Machine):
    add_recent(machine)
    machine.file("/opt/kept/file")
    machine.link(f"{DATA_DIRECTORY}/{RUNS[0]}/etc", "/opt/kept")
    age(machine, f"{DATA_DIRECTORY}/{RUNS[0]}", 90)
    assert prune(machine).stdout == removed(RUNS[0])
    assert machine.exists("/opt/kept/file")


def test_a_directory_with_a_file_system_mounted_in_it_stays(machine: Machine):
    add_recent(machine)
    inside = f"{DATA_DIRECTORY}/{RUNS[0]}/mnt"
    machine.file("/opt/kept/file")
    machine.directory(inside)
    machine.mount("--bind", "/opt/kept", inside)
    age(machine, f"{DATA_DIRECTORY}/{RUNS[0]}", 90)
    add(machine, f"{RUNS[1]}.tar.gz", 90)
    done = prune(machine, check=False)
    assert (done.status, done.stdout) == (1, removed(f"{RUNS[1]}.tar.gz"))
    assert done.stderr == ("prune: not removed, a file system is mounted in it: "
                           f"{DATA_DIRECTORY}/{RUNS[0]}\n")
    assert machine.exists("/opt/kept/file")


# ---- A run that is active -----------------------------------------------------------------------


def test_what_an_active_run_may_be_making_stays(system: Machine):
    recent = add_recent(system)
    # Of a run whose clock was wrong when it began.
    own = [f"{RUNS[0]}/", f"{RUNS[1]}.tar", f"{RUNS[2]}.tar", f"{RUNS[2]}.tar.gz"]
    for name in [*own, f"{RUNS[3]}.tar.gz"]:
        add(system, name, 90)
    system.pattern("10_demo", pattern_text.pattern(pattern_text.tool(
        system.tool(behave.ready("/tmp/there"), behave.wait_for("/tmp/go")), timeout=60)))
    run = system.start("-g", "demo")
    system.wait_for("/tmp/there")
    assert prune(system).stdout == removed(f"{RUNS[3]}.tar.gz")
    system.file("/tmp/go")
    assert run.finish().status == 0
    result = Path(run.finished.result).name
    done = prune(system)
    assert sorted(done.stdout.splitlines()) == sorted(removed(
        *(name.rstrip("/") for name in own)).splitlines())
    assert system.list(DATA_DIRECTORY) == sorted([*recent, result])


def test_the_lock_file_of_an_ended_run_blocks_nothing(machine: Machine):
    add_recent(machine)
    machine.file("/opt/norvale/quendil/bin/.quendil.lck")
    add(machine, f"{RUNS[0]}/", 90)
    assert prune(machine).stdout == removed(RUNS[0])


def test_if_the_locks_cannot_be_read_a_run_may_be_active(machine: Machine):
    add_recent(machine)
    tools = with_changes(machine, "lock.sh", ("/proc/locks", "/tmp/none"))
    machine.remove(f"{tools}/prune")
    machine.file(f"{tools}/prune", machine.read(PRUNE), 0o755)
    add(machine, f"{RUNS[0]}/", 90)
    assert prune(machine, program=f"{tools}/prune").stdout == ""


# ---- Options, directories, failures --------------------------------------------------------------


def test_days_and_number_can_be_chosen(system: Machine):
    for days, name in zip((50, 20, 10, 9, 1), RUNS):
        add(system, f"{name}.tar.gz", days)
    assert prune(system, "-d", "60", "-k", "0").stdout == ""
    assert prune(system, "-n", "-d", "15", "-k", "4").stdout == removed(
        f"{RUNS[0]}.tar.gz", verb="would remove")
    assert prune(system, "-d", "15").stdout == removed(f"{RUNS[1]}.tar.gz", f"{RUNS[0]}.tar.gz")
    assert prune(system, "-d", "5", "-k", "0").stdout == removed(
        f"{RUNS[3]}.tar.gz", f"{RUNS[2]}.tar.gz")


def test_a_preview_removes_nothing(system: Machine):
    recent = add_recent(system)
    for ending in (".tar.gz", ".html"):
        add(system, f"{RUNS[0]}{ending}", 40)
    assert prune(system, "-n").stdout == removed(
        f"{RUNS[0]}.html", f"{RUNS[0]}.tar.gz", verb="would remove")
    assert system.list(DATA_DIRECTORY) == sorted([*recent, f"{RUNS[0]}.html", f"{RUNS[0]}.tar.gz"])


def test_another_directory_may_be_given_and_may_be_a_link(system: Machine):
    for days, name in zip((90, 80, 70, 60), RUNS):
        add(system, f"{name}.tar.gz", days)
        add(system, f"{name}.tar.gz", days, where="/opt/other data")
    system.link("/opt/link", "/opt/other data")
    assert prune(system, "/opt/link").stdout == f"removed: /opt/other data/{RUNS[0]}.tar.gz\n"
    assert len(system.list(DATA_DIRECTORY)) == 4 and len(system.list("/opt/other data")) == 3


@pytest.mark.parametrize("path, mode, owner", [
    ("/opt/a", 0o755, (1000, 0)), ("/opt/a", 0o775, (0, 0)), ("/opt/a", 0o757, (0, 0)),
    ("/opt/a", 0o1777, (0, 0)), ("/opt/a/b", 0o755, (1000, 0)), ("/opt/a/b", 0o1777, (0, 0))])
def test_a_directory_that_is_not_of_root_alone_is_refused(machine: Machine, path: str, mode: int,
                                                          owner: tuple[int, int]):
    add(machine, f"{RUNS[0]}.tar.gz", 90, where="/opt/a/b")
    machine.path(path).chmod(mode)
    os.chown(machine.path(path), *owner)
    done = prune(machine, "-k", "0", "/opt/a/b", check=False)
    assert (done.status, done.stdout) == (1, "")
    assert done.stderr == f"prune: refused: {path} does not belong to root alone\n"
    assert machine.list("/opt/a/b") == [f"{RUNS[0]}.tar.gz"]


@pytest.mark.parametrize("arguments", [
    ["-d"], ["-d", ""], ["-d", "x"], ["-d", "-1"], ["-d", "08"], ["-d", "1.5"], ["-d", "1000000"],
    ["-k", "x"], ["-k", "3 4"], ["-x"], ["--help"], ["/opt", "/tmp"], ["opt"], [""]])
def test_wrong_usage_removes_nothing(system: Machine, arguments: list[str]):
    add(system, f"{RUNS[0]}.tar.gz", 90)
    done = prune(system, "-k", "0", *arguments, check=False)
    assert done.status == 2 and done.stdout == ""
    assert done.stderr.endswith("usage: prune [-n] [-d DAYS] [-k KEEP] [DIRECTORY]\n")
    assert len(system.list(DATA_DIRECTORY)) == 1


def test_a_user_is_refused(machine: Machine):
    done = machine.exec([PRUNE], check=False, user=1000)
    assert (done.status, done.stderr) == (1, "prune: run this as root\n")


def test_a_missing_directory_is_a_failure_and_an_empty_one_is_not(system: Machine):
    done = prune(system, "/opt/none", check=False)
    assert done.status == 1 and "/opt/none" in done.stderr
    done = prune(system)
    assert (done.status, done.stdout, done.stderr) == (0, "", "")


def test_what_cannot_be_removed_is_a_failure_and_the_rest_goes(machine: Machine):
    add_recent(machine)
    for name in RUNS[:3]:
        add(machine, f"{name}.tar.gz", 90)
    machine.pin(f"{DATA_DIRECTORY}/{RUNS[1]}.tar.gz")
    done = prune(machine, check=False)
    assert (done.status, done.stdout) == (1, removed(f"{RUNS[2]}.tar.gz", f"{RUNS[0]}.tar.gz"))
    assert f"{RUNS[1]}.tar.gz" in done.stderr


def test_thousands_of_results_are_no_problem(machine: Machine):
    then = time.time() - 90 * DAY
    for number in range(3000):
        path = machine.path(DATA_DIRECTORY) / f"web_2601{number // 1440 + 1:02}" \
            f"{number // 60 % 24:02}{number % 60:02}00.tar.gz"
        path.write_bytes(b"x")
        os.utime(path, (then + number, then + number))
    assert prune(machine).stdout.count("removed: ") == 2997
    assert len(machine.list(DATA_DIRECTORY)) == 3


def test_the_manual_tells_the_defaults():
    page = Path(__file__).resolve().parents[2] / "man/quendil_prune.8"
    shown = subprocess.run(["mandoc", "-Tascii", page], capture_output=True, text=True, check=True)
    for words in ("30 without this option", "3 without this option"):
        assert words in " ".join(shown.stdout.replace("\b", "").split())
