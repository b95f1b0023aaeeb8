"""The commands of the tool directory that show processes."""

from __future__ import annotations

import os
import re

import pytest
from support import hostile_names
from support.machine import Machine
from support.tool_directory import TOOLS, ask, lay_over, with_changes


# ---- Names and descriptors of processes ---------------------------------------------------------


def test_whole_names_of_processes_end_their_lines(system: Machine):
    hostile_names.start(system)
    processes = ask(system, "names", "-eo", "pid,euid")
    threads = ask(system, "names", "-eLo", "pid,tid,stat")
    descriptors = system.exec([f"{TOOLS}/descriptors"]).stdout.replace("\udc9b", "\\233")
    hostile_names.stop(system)
    assert re.fullmatch(r" *PID +EUID +NAME", processes.splitlines()[0])
    assert re.fullmatch(r" *PID +TID STAT +NAME", threads.splitlines()[0])
    for text in (processes, threads, descriptors):
        assert [line for line in text.splitlines() if line.endswith(" a?FORGED?[7m\\233")]
        assert hostile_names.faults(text.encode()) == []


def test_no_command_line_is_read_for_the_names(machine: Machine):
    # ps would hang on the command line of a process that hangs.
    lay_over(machine, "/usr/sbin", "ps", "#!/bin/sh\nprintf '  PID WCHAN\\n    1 x\\n99999999 y\\n'\n")
    name = machine.read("/proc/1/comm").strip()
    assert ask(machine, "names", "-eo", "pid,wchan").endswith(f"    1 x {name}\n99999999 y -\n")


def test_the_error_of_a_ps_that_knows_no_columns_is_passed_on(machine: Machine):
    lay_over(machine, "/usr/local/sbin", "other", "")
    machine.file("/tmp/bin/ps", "#!/bin/sh\necho 'ps: bad -o argument'\n", 0o755)
    text = machine.exec(f"PATH=/tmp/bin:/usr/bin:/bin {TOOLS}/names -eo pid").stdout
    assert text == "ps: bad -o argument\n"


def test_the_descriptors_of_processes_are_counted(system: Machine):
    system.exec("setsid sh -c 'ulimit -n 77; exec 3</dev/null 4</dev/null 5</dev/null 6</dev/null; "
                "echo $$ >/tmp/pid; : >/tmp/there; exec sleep 1000' </dev/null >/dev/null 2>&1 &")
    system.wait_for("/tmp/there")
    pid = system.read("/tmp/pid").strip()
    text = ask(system, "descriptors")
    system.exec("pkill -x sleep", check=False)
    assert text.startswith("descriptors limit pid name\n")
    rows = [line.split(" ") for line in text.splitlines()[1:]]
    # The shell may keep one of its own.
    assert [row for row in rows if row[2] == pid][0][0] in ("7", "8")
    assert [row for row in rows if row[2] == pid][0][1] == "77"
    assert [int(row[0]) for row in rows] == sorted((int(row[0]) for row in rows), reverse=True)


def test_removed_files_that_are_open_are_listed_by_size(system: Machine):
    # A file with a line feed in its name, opened twice; a larger one; and one in memory.
    system.directory("/tmp/held")
    system.file("/tmp/hold", """import os, time
held = []
for name, size in (("/tmp/held/a\\nb", 5000), ("/tmp/held/big", 90000)):
    held.append(open(name, "wb", buffering=0))
    held[-1].write(b"x" * size)
    os.unlink(name)
held += [os.dup(held[0].fileno()), os.memfd_create("held")]
open("/tmp/there", "w").close()
time.sleep(1000)
""")
    system.exec("setsid python3 /tmp/hold </dev/null >/dev/null 2>&1 & echo $! >/tmp/pid")
    system.wait_for("/tmp/there")
    heading, *rows = ask(system, "deleted_files").splitlines()
    system.exec("kill $(cat /tmp/pid)")
    assert heading == "KiB bytes device:inode descriptor name"
    columns = [row.split(" ", 4) for row in rows if "held" in row]
    assert [(column[1], column[4]) for column in columns] == [
        ("90000", "/tmp/held/big (deleted)"), ("5000", "/tmp/held/a\\012b (deleted)"),
        ("5000", "/tmp/held/a\\012b (deleted)")]
    assert columns[1][2] == columns[2][2] != columns[0][2]
    assert int(columns[0][0]) >= 88


def test_a_removed_file_that_does_not_answer_is_listed_without_a_size(system: Machine):
    system.exec("setsid sh -c 'exec 3>/tmp/held; rm /tmp/held; : >/tmp/there; exec sleep 1000' "
                "</dev/null >/dev/null 2>&1 & echo $! >/tmp/pid")
    system.wait_for("/tmp/there")
    lay_over(system, "/usr/sbin", "stat", "#!/bin/sh\nexec sleep 1000\n")
    rows = ask(system, "deleted_files").splitlines()
    system.exec("kill $(cat /tmp/pid)")
    assert any(row.startswith("- - - /proc/") and row.endswith(" /tmp/held (deleted)") for row in rows)


# ---- Processes by their use ---------------------------------------------------------------------


def make_process(machine: Machine, place: str, pid: int, name: str, user: int, *,
                 ticks: tuple[int, int] = (0, 0), pages: int = 0, start: int = 5, state: str = "S") -> None:
    """Makes a process below a directory like /proc; `ticks` are its user time and system time."""
    machine.file(f"{place}/{pid}/stat", (
        f"{pid} ({name}) {state} 1 1 1 0 -1 0 1 2 3 4 {ticks[0]} {ticks[1]} 5 6 20 -5 3 0 {start} 9999 {pages}"
        " 1 2 3\n"))
    machine.file(f"{place}/{pid}/status", f"Name:\tx\nUid:\t1\t{user}\t2\t3\nGid:\t4\n")


def make_counts(machine: Machine, place: str, uptime: str, cpu: str, started: int) -> None:
    """Makes the other files of a directory like /proc: uptime, processor times, load and memory."""
    machine.file(f"{place}/uptime", f"{uptime} 7.00\n")
    machine.file(f"{place}/stat", f"cpu  {cpu} 9 9\ncpu0 1\ncpu1 1\nintr 1 2 3\nprocesses {started}\n")
    machine.file(f"{place}/loadavg", "1.50 0.70 0.30 2/90 4711\n")
    machine.file(f"{place}/meminfo", "MemTotal:   8000 kB\nMemFree:  50 kB\nHugetlb: 1 kB\nSwapTotal: 0 kB\n")


def test_processes_that_use_most_are_first(system: Machine):
    second, kib = os.sysconf("SC_CLK_TCK"), os.sysconf("SC_PAGESIZE") // 1024
    make_counts(system, "/tmp/proc", "93780.50", "100 0 100 1000 50 0 0 0", 70)
    make_process(system, "/tmp/proc", 7, "worker", 33, ticks=(second, 0))
    make_process(system, "/tmp/proc", 9, "over", 33)
    make_process(system, "/tmp/proc", 11, "before", 0, ticks=(90 * second, 0))
    make_process(system, "/tmp/proc", 20, "idle", 0, ticks=(4000 * second, 0))
    # One that used half of a processor, one that began meanwhile, and one with a reused process ID.
    make_counts(system, "/tmp/next", "93784.50", "120 10 130 1030 45 0 5 5", 73)
    name = "a) R 1\nFORGED (\x1b[7m"
    make_process(system, "/tmp/next", 7, "worker", 33, ticks=(2 * second, second), pages=10)
    make_process(system, "/tmp/next", 8, name, 4711, ticks=(0, second), pages=500, state="D")
    make_process(system, "/tmp/next", 11, "after", 0, ticks=(0, 0), start=6, pages=20)
    make_process(system, "/tmp/next", 20, "idle", 0, ticks=(4000 * second, 0))
    system.directory("/tmp/next/12")  # one that has just ended
    lay_over(system, "/usr/sbin", "sleep", "#!/bin/sh\n[ $1 != 36000 ] || exec /usr/bin/sleep 36000\n"
             "echo $* >/tmp/slept\nrm -r /tmp/proc\ncp -r /tmp/next /tmp/proc\n")
    tools = with_changes(system, "load", ("/proc", "/tmp/proc"))
    head = "    PID      UID S   PR  NI   THR   %CPU        RSS       TIME NAME\n"
    worker = f"      7       33 S   20  -5     3   50.0 {10 * kib:10}    0:00:03 worker\n"
    forged = f"      8     4711 D   20  -5     3   25.0 {500 * kib:10}    0:00:01 a) R 1?FORGED (?[7m\n"
    after = f"     11        0 S   20  -5     3    0.0 {20 * kib:10}    0:00:00 after\n"
    idle = "     20        0 S   20  -5     3    0.0          0    1:06:40 idle\n"
    assert ask(system, "load", "-d", "4", tools=tools) == (
        "load: 1.50 0.70 0.30 2/90 4711\nup: 1 days 02:03:04\nduring: 4.00 seconds, on 2 processors\n"
        "cpu: user 20.0% nice 10.0% system 30.0% idle 30.0% iowait 0.0% irq 0.0% softirq 5.0% steal 5.0%\n"
        "memory in kB: MemTotal 8000 MemFree 50 SwapTotal 0\n"
        "processes: 4, 1 D, 3 S; 3 processes and threads were started meanwhile\n\n"
        "Most processor time during these seconds; 100 % is one processor, RSS is in kB:\n"
        f"{head}{worker}{forged}{idle}{after}\nMost memory:\n{head}{forged}{after}{worker}{idle}")
    assert system.read("/tmp/slept") == "4\n"


def test_of_many_processes_those_with_the_most_are_shown(system: Machine):
    make_counts(system, "/tmp/proc", "50.00", "1 1 1 1 1 1 1 1", 70)
    for pid in range(1, 101):
        make_process(system, "/tmp/proc", pid, f"p{pid}", 0, ticks=(pid * 37 % 101, 0), pages=pid * 7 % 101)
    tools = with_changes(system, "load", ("/proc", "/tmp/proc"))
    used, held = ask(system, "load", "-d", "0", tools=tools).split("Most processor")[1].split("Most memory")
    by_use = sorted(range(1, 101), key=lambda pid: -(pid * 37 % 101))
    by_memory = sorted(range(1, 101), key=lambda pid: -(pid * 7 % 101))
    assert re.findall(r" p(\d+)$", used, re.MULTILINE) == [str(pid) for pid in by_use[:30]]
    assert re.findall(r" p(\d+)$", held, re.MULTILINE) == [str(pid) for pid in by_memory[:20]]


def test_names_of_real_processes_forge_no_line_of_load(system: Machine):
    hostile_names.start(system)
    text = ask(system, "load", "-d", "0")
    hostile_names.stop(system)
    assert [line for line in text.splitlines() if line.endswith(" a?FORGED?[7m\\233")]
    assert hostile_names.faults(text.encode()) == []


@pytest.mark.parametrize("words", [("5",), ("-d",), ("-d", ""), ("-d", "1x"), ("-d", "1", "2"), ("-x", "1")])
def test_wrong_usage_of_load_ends_with_2(machine: Machine, words: tuple[str, ...]):
    done = machine.exec([f"{TOOLS}/load", *words], check=False)
    assert (done.status, done.stdout, done.stderr) == (2, "", "usage: load [-d SECONDS]\n")
