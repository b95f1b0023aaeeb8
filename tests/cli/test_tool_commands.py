"""The commands of the tool directory that ask one part of the system, with stand-ins for that part."""

from __future__ import annotations

import os
import re
import shutil
import struct

import pytest
from support import hostile_names
from support.machine import Machine
from support.tool_directory import (
    TOOLS, lay_over, stop_at_many_moments, stop_at_time_limit, with_changes)

RUN, EACH, PCI = (f"{TOOLS}/{name}" for name in ("run", "each", "pci"))
HIDDEN = "********"


def ask(machine: Machine, *words: str, tools: str = TOOLS) -> str:
    """What a command of the tool directory prints when a pattern calls it."""
    done = machine.exec([f"{tools}/run", "-m", "-c", *words])
    assert done.stderr == ""
    return done.stdout


# ---- Once for everything of one kind ------------------------------------------------------------


def make_blocks(machine: Machine, *names: str, **slaves: str) -> None:
    """Block devices, and those that some are made of; "sda/sda1" is a partition."""
    for name in (*names, *slaves):
        machine.directory(f"/tmp/block/{name}")
        machine.link(f"/tmp/class/{name.split('/')[-1]}", f"/tmp/block/{name}")
        if "/" in name:
            machine.file(f"/tmp/block/{name}/partition", "1\n")
    for name, below in slaves.items():
        for slave in below.split():
            machine.link(f"/tmp/block/{name}/slaves/{slave}", f"/tmp/class/{slave}")
    for place in ("block", "class"):
        machine.directory(f"/tmp/{place}")
    machine.mount("--bind", "/tmp/class", "/sys/class/block")
    machine.mount("--bind", "/tmp/block", "/sys/block")


def make_devices(machine: Machine, *names: str) -> None:
    """Gives a machine these disks and interfaces, and no others."""
    for name in ("net", *names):
        machine.directory(f"/tmp/{name}")
    make_blocks(machine, *(name.removeprefix("block/") for name in names if name.startswith("block/")))
    machine.mount("--bind", "/tmp/net", "/sys/class/net")


def put_to_sleep(machine: Machine, name: str, state: str = "suspended") -> None:
    """Gives a disk this state in sysfs."""
    machine.file(f"/tmp/block/{name}/device/power/runtime_status", state + "\n")


def test_a_program_runs_for_every_disk(system: Machine):
    make_devices(system, "block/sda", "block/nvme0n1", "block/loop0", "block/dm-0", "block/sr0",
                 "block/md0")
    assert system.exec([EACH, "disk", "echo", "{}", "-n 1", "/dev/{}", "a={}b"]).stdout == (
        "==> nvme0n1\n  nvme0n1 -n 1 /dev/nvme0n1 a=nvme0n1b\n==> sda\n  sda -n 1 /dev/sda a=sdab\n")
    assert system.exec([EACH, "nvme", "echo"]).stdout == "==> nvme0n1\n  \n"
    assert system.exec([EACH, "raid", "echo", "/dev/{}"]).stdout == "==> md0\n  /dev/md0\n"
    for name in ("sda", "nvme0n1"):
        system.remove(f"/tmp/block/{name}")
    system.remove("/tmp/block/md0")
    for kind, noun in (("disk", "disk"), ("nvme", "NVMe disk"), ("raid", "array of disks"),
                       ("port", "network interface"), ("interface", "network interface")):
        assert system.exec([EACH, kind, "echo", "{}"]).stdout == f"echo: no {noun} on this machine\n"


def test_no_output_looks_like_a_heading(system: Machine):
    make_devices(system, "block/sda", "block/sdb")
    assert system.exec([EACH, "disk", "printf", "==> other\\n\\n==> {}"]).stdout == (
        "==> sda\n  ==> other\n  \n  ==> sda\n==> sdb\n  ==> other\n  \n  ==> sdb\n")


def test_what_sleeps_or_is_suspended_is_not_asked(system: Machine):
    make_devices(system, "block/sda", "block/sdb", "block/sdc", "block/md0", "net/eth0")
    system.file("/tmp/net/eth0/device/power/runtime_status", "active\n")
    assert system.exec([EACH, "interface", "echo", "{}"]).stdout == "==> eth0\n  eth0\n"
    system.file("/tmp/net/eth0/device/power/runtime_status", "suspended\n")
    assert system.exec([EACH, "interface", "echo", "{}"]).stdout == (
        "==> eth0 was not asked: eth0 sleeps\n")
    put_to_sleep(system, "sda")
    put_to_sleep(system, "sdb", "resuming")
    put_to_sleep(system, "sdc", "suspending")
    system.file("/tmp/block/md0/dm/suspended", "1\n")
    assert system.exec([EACH, "disk", "echo", "{}"]).stdout == (
        "==> sda was not asked: sda sleeps\n==> sdb\n  sdb\n==> sdc was not asked: sdc sleeps\n")
    assert system.exec([EACH, "raid", "echo", "{}"]).stdout == "==> md0 was not asked: md0 is suspended\n"


def test_an_array_on_a_disk_that_sleeps_is_not_asked(system: Machine):
    make_blocks(system, "sda", "sda/sda1", "sdb", "sdb/sdb1", "sdc", md0="sda1 sdb1", md1="sdc",
                md2="dm-1 sdc", **{"dm-1": "md0", "dm-2": "md0 dm-1"})
    put_to_sleep(system, "sdb")
    assert system.exec([EACH, "raid", "echo", "{}"]).stdout == (
        "==> md0 was not asked: sdb sleeps\n==> md1\n  md1\n==> md2 was not asked: sdb sleeps\n")
    put_to_sleep(system, "sdb", "active")
    system.file("/tmp/block/dm-1/dm/suspended", "1\n")
    assert system.exec([EACH, "raid", "echo", "{}"]).stdout == (
        "==> md0\n  md0\n==> md1\n  md1\n==> md2 was not asked: dm-1 is suspended\n")


def test_a_file_system_on_a_disk_that_sleeps_is_not_asked(system: Machine):
    make_blocks(system, "sda", "sda/sda1", "sdb", "sdc", **{"dm-0": "sda1", "dm-1": "sdb"})
    system.file("/tmp/mountinfo", (
        "1 0 8:1 / / rw - ext4 /dev/sda1 rw\n"
        "2 0 253:0 / /a\\040b rw - xfs /dev/mapper/a rw\n"
        "3 0 253:1 / /c rw - xfs /dev/mapper/c rw\n"
        "4 0 0:30 / /bt rw - btrfs /dev/sdb rw\n"
        "5 0 0:31 / /bt2 rw - btrfs /dev/sdc rw\n"))
    for number, name in (("8:1", "sda1"), ("253:0", "dm-0"), ("253:1", "dm-1")):
        system.link(f"/tmp/numbers/{number}", f"../class/{name}")
    for members in (("sdb", "sda1"), ("sdc",)):
        for name in members:
            system.link(f"/tmp/fs/btrfs/{members[0]}/devices/{name}", f"/tmp/class/{name}")
    system.mount("--bind", "/tmp/numbers", "/sys/dev/block")
    system.mount("--bind", "/tmp/fs", "/sys/fs")
    each = with_changes(system, "each", ("/proc/self/mountinfo", "/tmp/mountinfo")) + "/each"
    put_to_sleep(system, "sda")
    assert system.exec([each, "ext", "echo", "{}"]).stdout == "==> sda1 was not asked: sda sleeps\n"
    assert system.exec([each, "xfs", "echo", "{}"]).stdout == (
        "==> /a\\040b was not asked: sda sleeps\n==> /c\n  /c\n")
    assert system.exec([each, "btrfs", "echo", "{}"]).stdout == (
        "==> /bt was not asked: sda sleeps\n==> /bt2\n  /bt2\n")


def make_interface(machine: Machine, name: str, link: int | None = None, **files: str) -> None:
    """An interface of number 5 on top of `link`, its own number when it lies on none."""
    files = {"ifindex": "5\n", "iflink": f"{link or 5}\n", "type": "1\n", "uevent": f"X={name}\n", **files}
    for file, text in files.items():
        machine.file(f"/tmp/net/{name}/{file.replace('__', '/')}", text)


def test_physical_interfaces_come_first_and_virtual_ends_are_left_out(system: Machine):
    make_devices(system, "net/lo", "net/bonding_masters")
    make_interface(system, "bond0")
    make_interface(system, "eth1", device__x="")
    make_interface(system, "eth0", device__x="")
    make_interface(system, "eth0.5", 2, lower_eth0__x="")
    make_interface(system, "vxlan1", 2, uevent="DEVTYPE=vxlan\n")
    make_interface(system, "gre1", 2, type="778\n")
    make_interface(system, "tap0", tun_flags="0x1\n")
    for number in range(3):
        make_interface(system, f"veth{number}", 7)
    done = system.exec([EACH, "interface", "echo", "{}"]).stdout
    assert re.findall("^==> (.*)", done, re.MULTILINE) == [
        "eth0", "eth1", "bond0", "eth0.5", "gre1", "vxlan1",
        "4 virtual ends of containers and virtual machines were left out"]
    assert re.findall("^==> (.*)", system.exec([EACH, "port", "echo"]).stdout, re.MULTILINE) == [
        "eth0", "eth1"]


@pytest.mark.parametrize("trap", ["", "trap '' TERM; "])
def test_the_time_limit_says_which_interfaces_were_not_asked(system: Machine, trap: str):
    make_devices(system)
    for name in ("eth0", "eth1", "eth2"):
        make_interface(system, name, device__x="")
    lay_over(system, "/usr/local/bin", "probe", "#!/bin/sh\necho asked $1\n"
             f"[ $1 = eth0 ] || {{ {trap}: >/tmp/there; exec sleep 1000; }}\n")
    assert stop_at_time_limit(system, f"{EACH} interface probe {{}}", "time limit") == (
        "==> eth0\n  asked eth0\n==> eth1\n  asked eth1\n"
        "==> not asked: eth2\neach: stopped here by the time limit\n")


def test_the_time_limit_is_noticed_at_every_moment(system: Machine):
    # No moment is expected to find the command at one place: all of them together find it at many.
    make_devices(system, "block/sda", "block/sdb", "block/sdc")
    times = stop_at_many_moments(system, 2000, "==> sd", EACH, "disk", "sleep", "77.7")
    assert len(times) >= 31
    found = set()
    for status, in_time, output in times:
        assert (status, in_time) == (-15, True)
        found.add((output.count("==> sd"), "not asked:" in output))
    # Two are named when the program for the first one got the signal before the end of the sentinel
    # could be seen: the next one begins, and ends at once.
    assert (1, True) in found
    assert found <= {(0, False), (0, True), (1, True), (2, True)}
    system.wait_for(lambda: not system.processes(), what="the end of all processes")


#: Time for several programs to start, on a busy machine too, before the limit meets them.
SHORT = ("LIMIT=10", "LIMIT=3")
STOPPED, LEFT_BEHIND = "was stopped after 3 seconds", "has ended, but left a process behind"


@pytest.mark.parametrize("last, reason", [
    ("sleep 1000; :;", STOPPED), ("(trap '' TERM; exec sleep 1000) & wait;", STOPPED),
    ("sleep 1000 >/dev/null 2>&1 & exec sleep 1000;", STOPPED),
    ("(trap '' TERM; exec sleep 1000 >/dev/null 2>&1) & exec sleep 1000;", STOPPED),
    ("sleep 1000 &", LEFT_BEHIND)])
def test_what_a_program_has_started_ends_with_it(system: Machine, last: str, reason: str):
    make_devices(system, "block/sda", "block/sdb")
    each = with_changes(system, "each", SHORT) + "/each"
    lay_over(system, "/usr/local/bin", "probe", f"#!/bin/sh\n[ $1 = sdb ] || {{ {last} }}\n")
    assert system.exec([each, "disk", "probe", "{}"]).stdout == f"==> sda\n==> sda {reason}\n==> sdb\n"
    system.wait_for(lambda: not system.processes(), what="the end of all processes")


def test_a_program_is_asked_to_end_before_it_is_killed(system: Machine):
    make_devices(system, "block/sda")
    each = with_changes(system, "each", SHORT) + "/each"
    lay_over(system, "/usr/local/bin", "probe",
             "#!/bin/sh\ntrap 'echo asked to end; exit' TERM\nsleep 1000 & wait\n")
    assert system.exec([each, "disk", "probe"]).stdout == f"==> sda\n  asked to end\n==> sda {STOPPED}\n"


@pytest.mark.parametrize("last, reason", [
    ("exec sleep 1000;", STOPPED), ("trap '' TERM; printf in_part; exec sleep 1000;", STOPPED),
    ("trap '' TERM; printf in_part; exec sleep 1001;", "does not end and was left behind"),
    ("printf in_part; setsid sleep 1001 &", LEFT_BEHIND)])
def test_what_is_stuck_hides_nothing_of_what_follows(system: Machine, last: str, reason: str):
    # One that cannot be killed, as in the kernel, is one that is never killed.
    make_devices(system, "block/sda", "block/sdb", "block/sdc")
    changes = [SHORT]
    if "1001" in last:
        changes.append(("send KILL", ":"))
    each = with_changes(system, "each", *changes) + "/each"
    lay_over(system, "/usr/local/bin", "probe",
             f"#!/bin/sh\necho asked $1\n[ $1 != sdb ] || {{ {last} }}\n")
    done = system.exec([each, "disk", "probe", "{}"])
    system.exec("pkill -KILL -x sleep", check=False)
    part = "  in_part\n" if "in_part" in last else ""
    assert done.stdout == (
        f"==> sda\n  asked sda\n==> sdb\n  asked sdb\n{part}==> sdb {reason}\n==> sdc\n  asked sdc\n")


def test_a_program_runs_for_every_mounted_file_system_of_a_kind(system: Machine):
    system.file("/tmp/mountinfo", (
        "1 0 8:1 / / rw - ext4 /dev/sda1 rw\n"
        "2 1 8:1 /a /bound rw shared:1 - ext4 /dev/sda1 rw\n"
        "3 1 253:7 / /data\\040of\\040us rw,noatime shared:2 master:1 - xfs /dev/mapper/v rw\n"
        "4 1 0:30 / /bt rw - btrfs /dev/sdb rw\n"
        "5 1 0:31 / /net rw - nfs4 server:/ext4 rw\n"
        "6 1 8:2 / /old rw - ext2 /dev/sda2 rw\n"))
    for number, name in (("8:1", "sda1"), ("8:2", "sda2")):
        system.directory(f"/tmp/devices/{name}")
        system.link(f"/tmp/numbers/{number}", f"../devices/{name}")
    system.mount("--bind", "/tmp/numbers", "/sys/dev/block")
    each = with_changes(system, "each", ("/proc/self/mountinfo", "/tmp/mountinfo")) + "/each"
    assert system.exec([each, "ext", "echo", "/dev/{}"]).stdout == (
        "==> sda1\n  /dev/sda1\n==> sda2\n  /dev/sda2\n")
    assert system.exec([each, "xfs", "printf", "<%s>\\n", "{}"]).stdout == (
        "==> /data\\040of\\040us\n  </data of us>\n")
    assert system.exec([each, "btrfs", "echo", "{}"]).stdout == "==> /bt\n  /bt\n"


def test_a_program_runs_in_every_other_network_namespace(machine: Machine):
    # The second one has a name and a process, and is asked once.
    machine.directory("/tmp/netns")
    machine.file("/tmp/netns/blue")
    machine.file("/tmp/netns/file")
    machine.mount("--bind", "/tmp/netns", "/run")
    machine.directory("/tmp/netns/netns")
    machine.exec("touch /run/netns/blue; "
                 "unshare --net=/run/netns/blue ip link add only_blue type dummy 2>/dev/null || true")
    machine.exec("setsid unshare --net sh -c 'echo $$ >/tmp/pid; : >/tmp/there; exec sleep 1000' "
                 "</dev/null >/dev/null 2>&1 &")
    machine.exec("setsid nsenter --net=/run/netns/blue sh -c ': >/tmp/too; exec sleep 1000' "
                 "</dev/null >/dev/null 2>&1 &")
    machine.wait_for("/tmp/there")
    machine.wait_for("/tmp/too")
    pid = machine.read("/tmp/pid").strip()
    done = machine.exec([EACH, "namespace", "nsenter", "--net={}", "readlink", "/proc/self/ns/net"])
    machine.exec("pkill -x sleep; umount /run/netns/blue", check=False)
    shown = re.findall(r"==> (\S+)\n  (net:\[\d+\])\n", done.stdout)
    assert [name for name, _ in shown if name in ("/run/netns/blue", f"/proc/{pid}/ns/net")] == [
        "/run/netns/blue", f"/proc/{pid}/ns/net"]
    assert len({number for _, number in shown}) == len(shown)
    own = machine.exec(["readlink", "/proc/self/ns/net"]).stdout.strip()
    assert own not in {number for _, number in shown}


def test_a_program_runs_for_the_records_of_the_days_before(system: Machine):
    today = system.exec(["date", "+%d"]).stdout.strip()
    days = [f"{day:02d}" for day in range(1, 32) if f"{day:02d}" != today][:9]
    for name in (today, system.exec(["date", "+%Y%m%d"]).stdout.strip()):
        system.file(f"/tmp/log/sysstat/sa{name}")
    for age, day in enumerate(days):
        system.exec(f"touch -d '{age + 1} days ago' /tmp/log/sysstat/sa{day} /tmp/log/sysstat/sar{day}")
    system.mount("--bind", "/tmp/log", "/var/log")
    assert system.exec([EACH, "day", "echo", "-f", "{}"]).stdout == "".join(
        f"==> /var/log/sysstat/sa{day}\n  -f /var/log/sysstat/sa{day}\n" for day in days[:6])
    system.exec("rm /tmp/log/sysstat/*")
    assert system.exec([EACH, "day", "sar"]).stdout == "sar: no record of earlier days on this machine\n"


def test_no_more_namespaces_are_asked_than_the_limit_allows(system: Machine):
    for _ in range(2):
        system.exec("setsid unshare --net sleep 1000 </dev/null >/dev/null 2>&1 &")
    each = with_changes(system, "each", ("MOST_NAMESPACES=50", "MOST_NAMESPACES=1")) + "/each"
    system.wait_for(lambda: "of 2 " in system.exec([each, "namespace", "echo"]).stdout)
    heading, first, *output = system.exec([each, "namespace", "echo", "asked"]).stdout.splitlines()
    system.exec("pkill -x sleep")
    assert heading == "==> the first 1 of 2 namespaces"
    assert (first[:4], output) == ("==> ", ["  asked"])


def test_nothing_is_asked_where_a_group_cannot_be_ended(system: Machine):
    make_devices(system, "block/sda")
    each = with_changes(system, "each", ("command -v setsid", "command -v no_such_program")) + "/each"
    assert system.exec([each, "disk", "echo"]).stdout == "setsid: not installed on this machine\n"


def test_the_name_of_a_process_hides_no_namespace(system: Machine):
    hostile_names.start(system)
    system.exec("setsid unshare --net sh -c 'echo $$ >/tmp/pid; : >/tmp/there; exec sleep 1000' "
                "</dev/null >/dev/null 2>&1 &")
    system.wait_for("/tmp/there")
    pid = system.read("/tmp/pid").strip()
    number = system.exec(["stat", "-L", "-c", "%i", f"/proc/{pid}/ns/net"]).stdout.strip()
    text, all_kinds = ask(system, "namespaces", "net"), ask(system, "namespaces")
    system.exec("pkill -x sleep", check=False)
    hostile_names.stop(system)
    assert text.startswith("kind number processes pid\n")
    assert f"net {number} 1 {pid}\n" in text
    assert f"net {number} 1 {pid}\n" in all_kinds
    assert {line.split()[0] for line in all_kinds.splitlines()[1:]} >= {"ipc", "mnt", "net", "pid", "uts"}
    done = system.exec([f"{TOOLS}/namespaces", "net", "pid"], check=False)
    assert (done.status, done.stderr) == (2, "usage: namespaces [KIND]\n")


def test_hundreds_of_virtual_ends_hold_no_port_up(system: Machine):
    make_devices(system)
    system.exec("for i in $(seq 400); do d=/tmp/net/veth$i; mkdir $d; echo 5 >$d/ifindex; echo 7 >$d/iflink;"
                " echo 1 >$d/type; echo X=1 >$d/uevent; done")
    make_interface(system, "eth0", device__x="")
    done = system.exec(["timeout", "20", EACH, "interface", "echo", "{}"])
    assert done.stdout == (
        "==> eth0\n  eth0\n==> 400 virtual ends of containers and virtual machines were left out\n")


@pytest.mark.parametrize("arguments", [
    (), ("disk",), ("fan", "echo"), ("disk", ""), ("-m", "disk", "echo")])
def test_wrong_usage_of_each_ends_with_2(machine: Machine, arguments: tuple[str, ...]):
    done = machine.exec([EACH, *arguments], check=False)
    assert (done.status, done.stdout) == (2, "")
    assert done.stderr.endswith("raid|ext|xfs|btrfs|namespace|day NAME [ARG]...\n")


def test_what_each_prints_is_filtered_and_limited(system: Machine):
    make_devices(system, "block/sda")
    assert ask(system, "each", "disk", "echo", "password={}") == f"==> sda\n  password={HIDDEN}\n"
    control = ["disk", "printf", "a\\033[7m %s\\n", "{}"]
    for command in ([EACH, *control], [RUN, "-c", "each", *control]):
        assert system.exec(command).stdout == "==> sda\n  a\\033[7m sda\n"
    assert system.exec([RUN, "-c", "-e", "/proc/no-such", "each", "disk", "echo"]).stdout == (
        "each: not asked: there is no /proc/no-such\n")
    assert system.exec([EACH, "disk", "no-such-program"]).stdout == (
        "no-such-program: not installed on this machine\n")


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
    # A process that is stuck would hold ps up there.
    lay_over(machine, "/usr/sbin", "ps", "#!/bin/sh\nprintf '  PID WCHAN\\n    1 x\\n99999999 y\\n'\n")
    name = machine.read("/proc/1/comm").strip()
    assert ask(machine, "names", "-eo", "pid,wchan").endswith(f"    1 x {name}\n99999999 y -\n")


def test_a_small_ps_that_knows_no_columns_is_passed(machine: Machine):
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
    # A file with a line feed in its name, twice open, a larger one, and one in memory that takes no disk.
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


def test_accounts_are_shown_with_their_dates_and_without_hashes(system: Machine):
    system.file("/tmp/shadow", "a:$6$hash:0:0:99999:7:::\nb:!$6$hash:19782:1:90:7:30:20000:\nc::20513:0:::::\nshort\n"
                "d:*:x:y:z::::\ne:x:20513:0:99999::::\nf:x:20513::99999:::-1:\n+::::::::\n")
    system.mount("--bind", "/tmp/shadow", "/etc/shadow")
    assert ask(system, "expiry").splitlines()[1:] == [
        "a set must-change - - 7 - -",
        "b locked 2024-02-29 2024-03-01 2024-05-29 7 30 2024-10-04",
        "c none 2026-03-01 2026-03-01 - - - -",
        "d locked - - - - - -",
        "e set 2026-03-01 2026-03-01 - - - -",
        "f set 2026-03-01 - - - - -"]
    system.exec("umount /etc/shadow")
    tools = with_changes(system, "expiry", ("/etc/shadow", "/etc/no-such-file"))
    assert ask(system, "expiry", tools=tools) == "expiry: there is no /etc/no-such-file on this machine\n"


def test_of_the_journal_all_but_logins_and_cron_are_asked(system: Machine):
    lay_over(system, "/usr/bin", "journalctl", "#!/bin/sh\necho \"$@\"\n")
    words = ask(system, "journal", "-b", "-n", "7").split()
    assert words[:4] == ["--no-pager", "-b", "-n", "7"]
    assert [word for word in words if word.startswith("_TRANSPORT=")] == [
        "_TRANSPORT=kernel", "_TRANSPORT=journal", "_TRANSPORT=stdout", "_TRANSPORT=driver"]
    asked = {int(word.partition("=")[2]) for word in words[words.index("+") + 1:]}
    assert asked == set(range(24)) - {4, 9, 10}
    done = system.exec([f"{TOOLS}/journal"], check=False)
    assert (done.status, done.stderr) == (2, "usage: journal JOURNALCTL-ARG...\n")


# ---- Processes by their use ---------------------------------------------------------------------


def make_process(machine: Machine, place: str, pid: int, name: str, user: int, *,
                 ticks: tuple[int, int] = (0, 0), pages: int = 0, start: int = 5, state: str = "S") -> None:
    """A process below a directory of them: processor time of the program and of the kernel for it."""
    machine.file(f"{place}/{pid}/stat", (
        f"{pid} ({name}) {state} 1 1 1 0 -1 0 1 2 3 4 {ticks[0]} {ticks[1]} 5 6 20 -5 3 0 {start} 9999 {pages}"
        " 1 2 3\n"))
    machine.file(f"{place}/{pid}/status", f"Name:\tx\nUid:\t1\t{user}\t2\t3\nGid:\t4\n")


def make_counts(machine: Machine, place: str, uptime: str, cpu: str, started: int) -> None:
    """What the kernel counts beside its processes."""
    machine.file(f"{place}/uptime", f"{uptime} 7.00\n")
    machine.file(f"{place}/stat", f"cpu  {cpu} 9 9\ncpu0 1\ncpu1 1\nintr 1 2 3\nprocesses {started}\n")
    machine.file(f"{place}/loadavg", "1.50 0.70 0.30 2/90 4711\n")
    machine.file(f"{place}/meminfo", "MemTotal:   8000 kB\nMemFree:  50 kB\nHugetlb: 1 kB\nSwapTotal: 0 kB\n")


def test_processes_that_use_most_come_first(system: Machine):
    second, kib = os.sysconf("SC_CLK_TCK"), os.sysconf("SC_PAGESIZE") // 1024
    make_counts(system, "/tmp/proc", "93780.50", "100 0 100 1000 50 0 0 0", 70)
    make_process(system, "/tmp/proc", 7, "worker", 33, ticks=(second, 0))
    make_process(system, "/tmp/proc", 9, "over", 33)
    make_process(system, "/tmp/proc", 11, "before", 0, ticks=(90 * second, 0))
    make_process(system, "/tmp/proc", 20, "idle", 0, ticks=(4000 * second, 0))
    # Half of the time of one processor, one that began meanwhile, and one with the number of another.
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


# ---- Volumes ------------------------------------------------------------------------------------


def make_volumes(machine: Machine) -> None:
    """A disk that udev knows, one below an active volume, a partition of one that sleeps, an array on
    this, and a disk of something else."""
    make_blocks(machine, "sda", "sdb", "sdc", "sdc/sdc1", "sdd", md0="sdc1",
                **{"dm-0": "sdb", "dm-1": "sdd"})
    for number, name in (("8:0", "sda"), ("8:16", "sdb"), ("8:33", "sdc1"), ("8:48", "sdd"), ("9:0", "md0")):
        place = "sdc/sdc1" if name == "sdc1" else name
        machine.file(f"/tmp/block/{place}/dev", number + "\n")
        machine.link(f"/tmp/numbers/{number}", f"/tmp/class/{name}")
        machine.file(f"/tmp/run/udev/data/b{number}", "E:ID_FS_TYPE=%s\n" % (
            "ext4" if name in ("sdb", "sdd") else "LVM2_member"))
    put_to_sleep(machine, "sdc")
    machine.file("/tmp/block/dm-0/dm/uuid", "LVM-abc\n")
    machine.file("/tmp/block/dm-1/dm/uuid", "CRYPT-abc\n")
    machine.mount("--bind", "/tmp/numbers", "/sys/dev/block")
    machine.mount("--bind", "/tmp/run", "/run")


def test_lvm_is_asked_about_its_own_devices_only(system: Machine):
    make_volumes(system)
    lay_over(system, "/usr/sbin", "lvs", "#!/bin/sh\nprintf '%s\\n' \"$@\"\n")
    text = ask(system, "lvm", "lvs", "-a", "-o", "+devices")
    first, second, *arguments = text.splitlines()
    assert (first, second) == (
        "/dev/sdc1 was not asked: sdc sleeps", "/dev/md0 was not asked: sdc sleeps")
    assert (arguments[0], arguments[1], arguments[-3:]) == (
        "--nolocking", "--config", ["-a", "-o", "+devices"])
    config = arguments[2]
    accepted = 'filter=["a|^/dev/sda$|","a|^/dev/sdb$|","r|.*|"]'
    assert config.startswith(f'devices{{{accepted} global_{accepted} hints="none"')
    assert "global{metadata_read_only=1} backup{backup=0 archive=0}" in config
    assert "use_devicesfile" not in config
    system.file("/tmp/lvm/system.devices")
    tools = with_changes(system, "lvm", ("/etc/lvm/devices", "/tmp/lvm"))
    assert " use_devicesfile=0} " in ask(system, "lvm", "lvs", tools=tools)
    system.directory("/tmp/module")
    system.mount("--bind", "/tmp/module", "/sys/module")
    assert ask(system, "lvm", "lvs").splitlines()[4].endswith("activation{activation=0}")


def test_where_nothing_belongs_to_lvm_it_is_not_asked(system: Machine):
    for directory in ("/tmp/block", "/tmp/run"):
        system.directory(directory)
    system.mount("--bind", "/tmp/block", "/sys/block")
    system.mount("--bind", "/tmp/run", "/run")
    lay_over(system, "/usr/sbin", "pvs", "#!/bin/sh\necho asked\n")
    assert ask(system, "lvm", "pvs") == (
        "pvs: no device of this machine is known to hold volumes of LVM\n")
    assert system.exec([f"{TOOLS}/lvm", "lvremove", "x"], check=False).status == 2


# ---- Firewall -----------------------------------------------------------------------------------

FAMILIES = ("iptables", "ip6tables", "ebtables", "arptables")


def in_use(machine: Machine, *paths: str) -> str:
    """Makes these the only files below /proc/net and /sys/module.
    @return the tool directory that sees them"""
    for path in ("/proc/net/x", "/sys/module/x", *paths):
        machine.file(f"/tmp/layer{path}")
    machine.mount("--bind", "/tmp/layer/sys/module", "/sys/module")
    return with_changes(machine, "firewall", ("/proc/net", "/tmp/layer/proc/net"))


def test_no_program_of_a_firewall_that_is_not_in_use_is_asked(system: Machine):
    tools = in_use(system)
    for family in FAMILIES:
        for variant in ("nft", "legacy"):
            system.file(f"/tmp/bin/{family}-{variant}-save", "#!/bin/sh\necho asked\n", 0o755)
    system.mount("--bind", "/tmp/bin", "/usr/local/sbin")
    for family in FAMILIES:
        for variant in ("nft", "legacy"):
            assert ask(system, "firewall", variant, family, tools=tools).startswith(
                f"{family}-{variant}-save: not asked: there is no /")


def test_each_variant_of_a_firewall_is_asked_by_its_own_program(system: Machine):
    tools = in_use(system, "/sys/module/nf_tables", "/sys/module/ebtable_filter",
                   "/sys/module/arptable_filter", "/proc/net/ip6_tables_names")
    system.file("/tmp/real/xtables-nft-multi", "#!/bin/sh\necho nft ${0##*/} $*\n", 0o755)
    system.file("/tmp/real/ebtables", "#!/bin/sh\necho legacy ${0##*/} $*\n", 0o755)
    for name in ("iptables-save", "ip6tables-nft-save", "arptables-nft-save"):
        system.link(f"/tmp/bin/{name}", "/tmp/real/xtables-nft-multi")
    for name in ("ebtables-save", "arptables-legacy-save", "iptables-legacy-save"):
        system.link(f"/tmp/bin/{name}", "/tmp/real/ebtables")
    system.mount("--bind", "/tmp/bin", "/usr/local/sbin")
    system.mount("--bind", "/tmp/real", "/usr/local/bin")
    assert {(variant, family): ask(system, "firewall", variant, family, tools=tools)
            for variant in ("nft", "legacy") for family in FAMILIES} == {
        ("nft", "iptables"): "nft iptables-save -c\n",
        ("nft", "ip6tables"): "nft ip6tables-nft-save -c\n",
        ("nft", "ebtables"): "ebtables-nft-save: not installed on this machine\n",
        ("nft", "arptables"): "nft arptables-nft-save -c\n",
        ("legacy", "iptables"):
            "iptables-legacy-save: not asked: there is no /tmp/layer/proc/net/ip_tables_names\n",
        ("legacy", "ip6tables"): "ip6tables-legacy-save: not installed on this machine\n",
        ("legacy", "ebtables"): "legacy ebtables-save\n",
        ("legacy", "arptables"): "legacy arptables-legacy-save\n",
    }


def test_rules_of_a_firewall_that_were_printed_before_the_time_limit_are_kept(system: Machine):
    tools = in_use(system, "/sys/module/nf_tables")
    system.file("/tmp/bin/iptables-nft-save", "#!/bin/sh\necho rule\n: >/tmp/there\nexec sleep 1000\n", 0o755)
    system.mount("--bind", "/tmp/bin", "/usr/local/sbin")
    assert stop_at_time_limit(system, f"{tools}/firewall nft iptables", "time limit") == (
        "rule\niptables-nft-save: stopped here by the time limit\n")


def test_a_firewall_without_rules_says_so(system: Machine):
    tools = in_use(system, "/sys/module/nf_tables")
    system.file("/tmp/bin/iptables-nft-save", "#!/bin/sh\n", 0o755)
    system.mount("--bind", "/tmp/bin", "/usr/local/sbin")
    assert ask(system, "firewall", "nft", "iptables", tools=tools) == "iptables-nft-save: there are no rules\n"


@pytest.mark.parametrize("words", [(), ("nft",), ("old", "iptables"), ("nft", "nftables")])
def test_wrong_usage_of_firewall_ends_with_2(machine: Machine, words: tuple[str, ...]):
    done = machine.exec([f"{TOOLS}/firewall", *words], check=False)
    assert (done.status, done.stderr) == (
        2, "usage: firewall legacy|nft iptables|ip6tables|ebtables|arptables\n")


# ---- Logins -------------------------------------------------------------------------------------


LOGINS = {
    "root     ssh:notty    192.0.2.9       ": "root     ssh:notty    192.0.2.9       ",
    "rooty    ssh:notty    192.0.2.9       ": f"{HIDDEN}  ssh:notty  192.0.2.9",
    "A secret of mine tty1                 ": f"{HIDDEN}  tty1",
    "tty1 pw tty1 tty1                     ": f"{HIDDEN}  tty1",
    "root pw tty1         2001:db8::1      ": f"{HIDDEN}  tty1  2001:db8::1",
    "root hunter2                          ": HIDDEN,
    "         tty1                         ": "tty1",
}


def test_names_of_failed_logins_that_are_no_users_are_masked(system: Machine):
    date = "Sun Nov 22 10:00:00 2026 - Sun Nov 22 10:00:00 2026  (00:00)"
    lay_over(system, "/usr/sbin", "lastb", "#!/bin/sh\ncat <<'X'\n" + "".join(
        f"{login} {date}\n" for login in LOGINS) + "\nbtmp begins Sun Nov 22 09:00:00 2026\nX\n")
    system.file("/tmp/log/btmp", "x")
    system.mount("--bind", "/tmp/log", "/var/log")
    text = ask(system, "failed_logins")
    assert text.splitlines() == [f"{shown} {date}" for shown in LOGINS.values()] + [
        "", "btmp begins Sun Nov 22 09:00:00 2026"]
    system.file("/tmp/log/btmp", "")
    assert ask(system, "failed_logins") == "lastb: there is no record of failed logins\n"


def tally(source: bytes, status: int, seconds: int) -> bytes:
    """A failure as pam_faillock records it."""
    return struct.pack("=52sHHQ", source, 0, status, seconds)


def count_failures(machine: Machine, settings: str = "", **users: bytes) -> None:
    """Gives a machine these files of pam_faillock, and its settings."""
    machine.directory("/tmp/run")
    for user, records in users.items():
        machine.file(f"/tmp/run/faillock/{user}", records)
    machine.mount("--bind", "/tmp/run", "/run")
    machine.file("/tmp/security/faillock.conf", settings)
    machine.mount("--bind", "/tmp/security", "/etc/security")


def test_failures_that_may_lock_a_user_are_listed(system: Machine):
    count_failures(
        system, "# deny = 9\n  deny=4 # after four\nsilent\neven_deny_root\nunlock_time = 600\n",
        root=tally(b"192.0.2.9", 3, 1795341600) + tally(b"tty1", 4, 951868799)
        + tally(b"sshd", 1, 4107542400) + tally(b"x\x1b\n" + b"y" * 49, 1, 1 << 60), daemon=b"",
        hunter2=tally(b"", 0, 60) + tally(b"", 0, 0) + b"cut")
    system.link("/tmp/run/faillock/bin", "/tmp/run/faillock/root")
    system.fifo("/tmp/run/faillock/sys")
    assert ask(system, "failed_logins", "-l").splitlines() == [
        "deny=4", "even_deny_root", "unlock_time = 600",
        f"{HIDDEN}: 0 valid failures",
        "When (UTC)          Type  Valid Source",
        "1970-01-01 00:01:00 SVC   I     ",
        "==> the file ends within a record",
        "",
        "root: 3 valid failures",
        "When (UTC)          Type  Valid Source",
        "2026-11-22 10:00:00 RHOST V     192.0.2.9",
        "2000-02-29 23:59:59 TTY   I     tty1",
        "2100-03-01 00:00:00 SVC   V     sshd",
        "?                   SVC   V     x??" + "y" * 49,
        ""]


def test_a_user_who_holds_the_lock_on_his_failures_holds_up_nothing(system: Machine):
    lay_over(system, "/usr/sbin", "faillock", "#!/bin/sh\necho the name service was asked\n")
    count_failures(system, root=tally(b"tty1", 5, 0))
    done = system.exec(["flock", "-x", "/run/faillock/root", "timeout", "20", f"{TOOLS}/failed_logins", "-l"])
    assert done.stdout == ("root: 1 valid failures\nWhen (UTC)          Type  Valid Source\n"
                           "1970-01-01 00:00:00 TTY   V     tty1\n\n")


def test_failures_are_read_where_the_settings_say_and_limited(system: Machine):
    count_failures(system, "dir = /tmp/tallies # ours\n")
    assert ask(system, "failed_logins", "-l") == (
        "failed_logins: not in use on this machine: there is no /tmp/tallies\n")
    system.directory("/tmp/tallies")
    assert ask(system, "failed_logins", "-l") == "no failed login is counted\n"
    system.file("/tmp/tallies/root", tally(b"a", 1, 0) * 53)
    system.file("/tmp/tallies/.pw", tally(b"a", 1, 0))  # left out as well
    system.exec("for i in $(seq 202); do cp /tmp/tallies/root /tmp/tallies/user$i; done")
    text = ask(system, "failed_logins", "-l")
    assert text.count(f"{HIDDEN}: 50 valid failures\n") == 199 and "root: 50 valid" in text
    assert text.count("\n==> 3 more were left out\n") == 200
    assert text.endswith("\n==> 4 more were left out\n")
    system.exec("rm -r /tmp/tallies")
    system.file("/tmp/security/faillock.conf", "dir = tallies\n")
    assert ask(system, "failed_logins", "-l") == (
        "failed_logins: not in use on this machine: there is no /run/faillock\n")


def test_wrong_usage_of_failed_logins_ends_with_2(system: Machine):
    for arguments in (["-x"], ["-l", "-l"], [""]):
        done = system.exec([f"{TOOLS}/failed_logins", *arguments], check=False)
        assert (done.status, done.stderr) == (2, "usage: failed_logins [-l]\n")


@pytest.mark.skipif(shutil.which("lastb") is None, reason="this distribution has no lastb")
def test_real_records_of_failed_logins_are_read(machine: Machine):
    record = struct.Struct("<hxxi32s4s32s256siiii16x20x")
    machine.file("/tmp/log/btmp", b"".join(
        record.pack(6, 1, b"tty1", b"1", name, b"", 0, 1, 1700000000, 0)
        for name in (b"root", b"hunter2", b"two words", b"x" * 32)))
    machine.mount("--bind", "/tmp/log", "/var/log")
    lines = ask(machine, "failed_logins").splitlines()[:4]
    assert [line.split()[:2] for line in lines] == [
        [HIDDEN, "tty1"], [HIDDEN, "tty1"], [HIDDEN, "tty1"], ["root", "tty1"]]


def test_refusals_are_shown_as_they_were_recorded(system: Machine):
    assert ask(system, "refusals") == "refusals: the audit service keeps no records here\n"
    denied = 'type=AVC msg=audit(1.%d:2): apparmor="DENIED" operation="open" name="/x"\n'
    system.file("/tmp/log/audit/audit.log.1", denied % 1 + "type=USER_AUTH op=denied\n")
    system.file("/tmp/log/audit/audit.log", "type=AVC msg=audit(2.0:3): avc:  denied  { read }\n"
                + 'type=AVC msg=audit(3.0:4): apparmor="STATUS"\n' + denied % 3)
    system.mount("--bind", "/tmp/log", "/var/log")
    assert ask(system, "refusals") == (
        denied % 1 + "type=AVC msg=audit(2.0:3): avc:  denied  { read }\n" + denied % 3)


# ---- PCI devices --------------------------------------------------------------------------------


def test_pci_devices_are_listed_with_their_names(system: Machine):
    device = "/tmp/devices/0000:00:1f.0"
    for name, value in (("class", "0x020000"), ("vendor", "0x8086"), ("device", "0x15f3")):
        system.file(f"{device}/{name}", value + "\n")
    system.directory("/tmp/drivers/igc")
    system.link(f"{device}/driver", "/tmp/drivers/igc")
    system.file("/tmp/misc/pci.ids",
                "# table\n8086  Maker\n\t15f3  Adapter\n\t\t1 2  Sub\nC 02  Net\n")
    system.mount("--bind", "/tmp/devices", "/sys/bus/pci/devices")
    system.mount("--bind", "/tmp/misc", "/usr/share/misc")
    assert system.exec([PCI]).stdout == (
        "address class vendor:device driver name\n"
        "0000:00:1f.0 020000 8086:15f3 igc Maker Adapter\n")
    system.remove(device)
    assert system.exec([PCI]).stdout == "pci: no PCI device on this machine\n"
    assert system.exec([PCI, "-x"], check=False).status == 2


def test_of_pci_devices_that_sleep_none_is_read(system: Machine):
    for name, state in (("0000:00:01.0", "active"), ("0000:00:02.0", "unsupported")):
        system.file(f"/tmp/devices/{name}/power/runtime_status", state + "\n")
    system.mount("--bind", "/tmp/devices", "/sys/bus/pci/devices")
    lay_over(system, "/usr/sbin", "lspci", "#!/bin/sh\necho lspci \"$@\"\n")
    assert ask(system, "pci", "-v") == "lspci -nnvv\n"
    system.file("/tmp/devices/0000:00:02.0/power/runtime_status", "suspended\n")
    assert ask(system, "pci", "-v") == (
        "lspci -nnvv -s 0000:00:01.0\n0000:00:02.0 was not asked: it sleeps\n\n")
