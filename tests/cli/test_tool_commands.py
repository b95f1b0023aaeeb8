"""The commands of the tool directory for one part of the system each, which the tests fake."""

from __future__ import annotations

import shutil
import struct

import pytest
from support.machine import Machine
from support.tool_devices import make_blocks, put_to_sleep
from support.tool_directory import TOOLS, ask, lay_over, stop_at_time_limit, with_changes

PCI = f"{TOOLS}/pci"
HIDDEN = "********"


# ---- Volumes ------------------------------------------------------------------------------------


def make_volumes(machine: Machine) -> None:
    """Makes a disk that udev lists for LVM, a disk below an active volume, a partition of a disk
    that sleeps, an array on that partition, and a disk that LVM does not use."""
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
    @return a tool directory whose command reads them"""
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


def test_a_firewall_without_rules_is_reported(system: Machine):
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


def test_a_user_who_holds_the_lock_on_his_failures_blocks_nothing(system: Machine):
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
