"""`each`: runs a program for every device or object of a kind, of which some may hang."""

from __future__ import annotations

import re

import pytest
from support import hostile_names
from support.machine import Machine
from support.tool_devices import make_blocks, make_devices, put_to_sleep
from support.tool_directory import (
    TOOLS, ask, lay_over, stop_at_many_moments, stop_at_time_limit, with_changes)

EACH = f"{TOOLS}/each"
RUN = f"{TOOLS}/run"
HIDDEN = "********"


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
    """Makes an interface with the number 5, on top of the one with the number `link`, if given."""
    files = {"ifindex": "5\n", "iflink": f"{link or 5}\n", "type": "1\n", "uevent": f"X={name}\n", **files}
    for file, text in files.items():
        machine.file(f"/tmp/net/{name}/{file.replace('__', '/')}", text)


def test_physical_interfaces_are_first_and_virtual_ends_are_left_out(system: Machine):
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
    # No single moment is known to hit a certain place of the command; all together hit many.
    make_devices(system, "block/sda", "block/sdb", "block/sdc")
    times = stop_at_many_moments(system, 2000, "==> sd", EACH, "disk", "sleep", "77.7")
    assert len(times) >= 31
    found = set()
    for status, in_time, output in times:
        assert (status, in_time) == (-15, True)
        found.add((output.count("==> sd"), "not asked:" in output))
    # Two are named if the signal ended the program for the first one before the end of the sentinel
    # was noticed: the next one begins, and ends at once.
    assert (1, True) in found
    assert found <= {(0, False), (0, True), (1, True), (2, True)}
    system.wait_for(lambda: not system.processes(), what="the end of all processes")


#: Time for several programs to start, on a busy machine too, before the limit is reached.
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
    # To simulate a program that cannot be killed because it hangs in the kernel, none is killed.
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


def test_hundreds_of_virtual_ends_do_not_delay_a_port(system: Machine):
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
