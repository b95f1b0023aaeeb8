"""quendil-report --diff: two results compared as sets."""

from __future__ import annotations

import json
import re
import shutil
import stat
from pathlib import Path

import pytest
from support.checking import decoded
from support.machine import DATA_DIRECTORY, Machine
from support.reporting import (
    Files,
    Reported,
    allowed_parts,
    make_archive,
    make_directory,
    report,
)

OLD, NEW = "vm_261123162538", "vm_261124080000"
LATER = "2026/11/24 08:00:00"

#: What an idle machine says, in the formats of the tools.
BASE: Files = {
    "kernel/sysctl_kernel.txt":
        "/proc/sys/kernel/hostname:vm\n/proc/sys/kernel/panic:0\n/proc/sys/kernel/ns_last_pid:4200\n"
        "/proc/sys/kernel/random/uuid:ffae230b-e180-4da2-97d3-191a6128611f\n",
    "network/sysctl_net.txt": "/proc/sys/net/ipv4/ip_forward:0\n/proc/sys/net/core/somaxconn:4096\n",
    "package/dpkg_list.txt":
        "ii  adduser 3.134 all\nii  bash 5.2.15-2+b13 amd64\nii  nginx 1.22.1-9 amd64\n",
    "package/rpm_list.txt": "rpm: not installed on this machine\n",
    "service/units.txt":
        "  UNIT           LOAD   ACTIVE SUB     DESCRIPTION\n"
        "  cron.service   loaded active running Regular background program\n"
        "  nginx.service  loaded active running A web server\n"
        "  session-23.scope loaded active running Session 23 of User root\n",
    "service/unit_files.txt":
        "UNIT FILE       STATE           PRESET\n"
        "cron.service    enabled         enabled\n"
        "nginx.service   disabled        enabled\n\n2 unit files listed.\n",
    "kernel/lsmod.txt":
        "Module                  Size  Used by\nxfs                  2048000  1\n"
        "nf_nat                 57344  2 nft_chain_nat,xt_MASQUERADE\n",
    "storage/mountinfo.txt":
        "==> /proc/self/mountinfo\n"
        "27 1 254:2 / / rw,relatime shared:1 - ext4 /dev/vda2 rw,errors=remount-ro\n"
        "459 27 252:0 / /data rw,relatime shared:237 - xfs /dev/mapper/vg0-data rw,noquota\n",
    "network/ip_route.txt":
        "default via 192.0.2.1 dev eth0 \n"
        "192.0.2.0/24 dev eth0 proto kernel scope link src 192.0.2.2 \n",
    "network/listening.txt":
        "Netid State  Recv-Q Send-Q Local Address:Port  Peer Address:PortProcess\n"
        'tcp   LISTEN 0      0            0.0.0.0:22         0.0.0.0:*    users:(("sshd",pid=1354,fd=3))\n'
        'udp   UNCONN 0      0          127.0.0.1:323        0.0.0.0:*    users:(("chronyd",pid=718,fd=5))\n',
    "user/etc/login.defs": "# comment\nPASS_MAX_DAYS\t99999\nUMASK\t022\n",
    "network/etc/host.conf": "multi on\n",
    "memory/proc/vmstat": "nr_free_pages 12345\npgfault 1\n",
}

Where = tuple[Path, Path]


def archives(directory: Path, changes: Files, removed: tuple[str, ...] = ()) -> Where:
    """Two archives: that of an idle machine, and one with other files."""
    after = {name: text for name, text in {**BASE, **changes}.items() if name not in removed}
    return (make_archive(directory, BASE, OLD),
            make_archive(directory, after, NEW, LATER))


def edited(name: str, before: str, after: str) -> Files:
    """A file of the idle machine with one change."""
    text = str(BASE[name])
    assert text.count(before) == 1
    return {name: text.replace(before, after)}


def diff(where: Where, *options: str, status: int = 0) -> Reported:
    done = report("--diff", *options, *where)
    assert (done.status, done.stderr) == (status, "")
    return done


def differences(where: Where, *options: str) -> list[dict]:
    """All differences, without those of whole files."""
    value = decoded("diff", diff(where, "--json", *options).stdout)
    return [one for comparison in value["comparisons"] for one in comparison["differences"]]


def test_two_runs_of_an_idle_machine_are_equal(tmp_path):
    volatile = {
        **edited("kernel/sysctl_kernel.txt", "ns_last_pid:4200", "ns_last_pid:9781"),
        **edited("service/units.txt", "session-23.scope", "session-41.scope"),
        **edited("memory/proc/vmstat", "12345", "54321"),
    }
    volatile["kernel/sysctl_kernel.txt"] = volatile["kernel/sysctl_kernel.txt"].replace("ffae", "0000")
    where = archives(tmp_path, volatile)
    assert differences(where) == []
    text = diff(where).stdout
    assert "\nNo difference\n" in text
    assert re.search(r"^Equal: .*Packages", text, re.M)
    assert "Not compared" not in text


@pytest.mark.plain_binary
def test_two_real_runs_on_an_idle_machine_show_at_most_three_differences(
        machine: Machine, tmp_path: Path):
    """The page of such an archive is not much larger than the archive either."""
    for _ in range(2):
        machine.run("-g", "linux", seconds=240)
    made = sorted(machine.path(DATA_DIRECTORY).glob("*.tar.gz"))
    assert len(made) == 2
    where = (tmp_path / made[0].name, tmp_path / made[1].name)
    for source, target in zip(made, where, strict=True):
        shutil.copyfile(source, target)
    value = decoded("diff", diff(where, "--json").stdout)
    # The network is the host's, on which other tests open sockets meanwhile.
    shown = [(one["name"], difference["key"]) for one in value["comparisons"]
             for difference in one["differences"] if not one["name"].startswith("listening")]
    assert len(shown) <= 3, shown
    equal = {one["name"] for one in value["comparisons"] if one["state"] == "equal"}
    assert {"sysctl", "mounts", "routes", "settings"} <= equal
    assert decoded("diff", diff(where, "--all", "--json").stdout)["files"]
    page = Path(report(where[0]).stdout.rstrip("\n"))
    assert page.stat().st_size <= 1.6 * where[0].stat().st_size


@pytest.mark.parametrize(("name", "before", "after", "key", "old", "new"), [
    pytest.param("network/sysctl_net.txt", "ip_forward:0", "ip_forward:1",
                 "net/ipv4/ip_forward", "0", "1", id="sysctl"),
    pytest.param("kernel/sysctl_kernel.txt", "panic:0", "panic:30",
                 "kernel/panic", "0", "30", id="sysctl-kernel"),
    pytest.param("package/dpkg_list.txt", "bash 5.2.15-2+b13", "bash 5.2.15-2+b14",
                 "bash", "5.2.15-2+b13 amd64", "5.2.15-2+b14 amd64", id="package"),
    pytest.param("service/unit_files.txt", "nginx.service   disabled", "nginx.service   enabled ",
                 "nginx.service", "disabled", "enabled", id="unit-file"),
    pytest.param("service/units.txt", "nginx.service  loaded active running",
                 "nginx.service  loaded failed failed ", "nginx.service", "active", "failed",
                 id="unit"),
    pytest.param("storage/mountinfo.txt", "/data rw,relatime", "/data ro,relatime",
                 "/data", "rw,relatime", "ro,relatime", id="mount"),
])
def test_a_changed_value_is_shown_with_its_lines(tmp_path, name, before, after, key, old, new):
    where = archives(tmp_path, edited(name, before, after))
    (one,) = differences(where)
    assert (one["change"], one["item"], one["key"]) == ("changed", name, key)
    assert old in one["old"]["value"] and new in one["new"]["value"]
    line = 1 + str(BASE[name])[:str(BASE[name]).index(before)].count("\n")
    assert (one["old"]["line"], one["new"]["line"]) == (line, line)
    text = diff(where).stdout
    assert f"  ~ {key}: {one['old']['value']} -> {one['new']['value']}  ({name}:{line} -> {line})\n" in text


@pytest.mark.parametrize(("name", "line", "key"), [
    pytest.param("network/sysctl_net.txt", "/proc/sys/net/ipv4/tcp_sack:1", "net/ipv4/tcp_sack",
                 id="sysctl"),
    pytest.param("package/dpkg_list.txt", "ii  zsh 5.9-4 amd64", "zsh", id="package"),
    pytest.param("service/unit_files.txt", "zz.service enabled enabled", "zz.service",
                 id="unit-file"),
    pytest.param("service/units.txt", "  zz.service loaded active running A unit", "zz.service",
                 id="unit"),
    pytest.param("kernel/lsmod.txt", "btrfs                1630208  0", "btrfs", id="module"),
    pytest.param("storage/mountinfo.txt", "474 27 252:10 / /secret rw - ext4 /dev/dm-10 rw",
                 "/secret", id="mount"),
    pytest.param("network/ip_route.txt", "198.51.100.0/24 via 192.0.2.9 dev eth0 ",
                 "198.51.100.0/24 via 192.0.2.9 dev eth0", id="route"),
    pytest.param("network/listening.txt", "tcp   LISTEN 0      0            0.0.0.0:8080"
                 "         0.0.0.0:*    ", "0.0.0.0:8080", id="socket"),
    pytest.param("user/etc/login.defs", "UID_MIN\t1000", "UID_MIN 1000", id="configuration"),
])
def test_what_was_added_is_shown_and_what_was_removed(tmp_path, name, line, key):
    where = archives(tmp_path, {name: str(BASE[name]) + line + "\n"})
    number = str(BASE[name]).count("\n") + 1
    (added,) = differences(where)
    assert (added["change"], added["item"]) == ("added", name)
    assert key in f"{added['key']} {added['new']['value']}"
    assert added["new"]["line"] == number and "old" not in added
    assert re.search(rf"^  \+ .*\({re.escape(name)}:{number}\)$", diff(where).stdout, re.M)
    (removed,) = differences((where[1], where[0]))
    assert (removed["change"], removed["item"], removed["key"]) == ("removed", name, added["key"])
    assert removed["old"] == added["new"] and "new" not in removed
    assert re.search(rf"^  - .*\(OLD {re.escape(name)}:{number}\)$",
                     diff((where[1], where[0])).stdout, re.M)


def test_a_changed_line_of_a_configuration_file_is_shown_with_both_lines(tmp_path):
    found = differences(archives(tmp_path, edited("user/etc/login.defs", "022", "077")))
    assert sorted((one["change"], one["key"]) for one in found) == [
        ("added", "UMASK 077"), ("removed", "UMASK 022")]


def test_a_configuration_file_is_added_or_removed_as_a_whole(tmp_path):
    where = archives(tmp_path, {"user/etc/security/limits.d/90-db.conf": "a\nb\n"},
                     ("network/etc/host.conf",))
    assert differences(where) == [
        {"change": "removed", "item": "network/etc/host.conf", "file_entries": 1},
        {"change": "added", "item": "user/etc/security/limits.d/90-db.conf", "file_entries": 2},
    ]
    text = diff(where).stdout
    assert "  - network/etc/host.conf: the file, 1 entry\n" in text
    assert "  + user/etc/security/limits.d/90-db.conf: the file, 2 entries\n" in text


def test_what_one_side_does_not_say_is_not_compared(tmp_path):
    said = "lsmod: not installed on this machine"
    where = archives(tmp_path, {"kernel/lsmod.txt": said + "\n"}, ("network/listening.txt",))
    value = decoded("diff", diff(where, "--json").stdout)
    states = {item["item"]: (comparison["state"], item)
              for comparison in value["comparisons"] for item in comparison["not_compared"]}
    assert states == {
        "kernel/lsmod.txt": ("not compared", {"item": "kernel/lsmod.txt", "new": said}),
        "network/listening.txt": ("not compared", {"item": "network/listening.txt",
                                                   "new": "it is not in the archive"}),
    }
    text = diff(where).stdout
    assert f"kernel/lsmod.txt: NEW: {said}\n" in text
    assert "network/listening.txt: NEW: it is not in the archive\n" in text
    assert "rpm" not in text.partition("Neither archive")[0]


def test_all_compares_every_other_file_line_by_line(tmp_path):
    where = archives(tmp_path, {**edited("memory/proc/vmstat", "12345", "54321"), "log/x": "1\n"},
                     ("package/rpm_list.txt",))
    text = diff(where, "--all").stdout
    assert "  memory/proc/vmstat: 1 removed, 1 added\n" in text
    assert re.search(r"^    -      1  nr_free_pages 12345\n    \+      1  nr_free_pages 54321$",
                     text, re.M)
    value = decoded("diff", diff(where, "--all", "--json").stdout)
    assert {"item": "memory/proc/vmstat", "added": 1, "removed": 1,
            "first_added": [{"line": 1, "text": "nr_free_pages 54321"}],
            "first_removed": [{"line": 1, "text": "nr_free_pages 12345"}]} in value["files"]
    assert value["only_new"] == ["log/x"]
    assert value["only_old"] == ["package/rpm_list.txt"]
    assert "vmstat" not in diff(where).stdout and "log/x" not in diff(where).stdout


def test_the_head_names_both_runs(tmp_path):
    lines = diff(archives(tmp_path, {})).stdout.splitlines()
    assert lines[0] == f"OLD  {tmp_path}/{OLD}.tar.gz  (vm, 2026/11/23 16:25:38)"
    assert lines[1] == f"NEW  {tmp_path}/{NEW}.tar.gz  (vm, {LATER})"
    assert not lines[2].startswith("!")


def test_two_machines_and_the_wrong_order_are_warned_of(tmp_path):
    old = make_archive(tmp_path, BASE, "web_261124080000", LATER)
    new = make_archive(tmp_path, BASE, OLD)
    warnings = [line for line in diff((old, new)).stdout.splitlines() if line.startswith("! ")]
    assert warnings == ["! Two machines: web and vm.",
                        f"! OLD is newer than NEW: {LATER} and 2026/11/23 16:25:38."]


def test_every_form_of_a_result_is_compared(tmp_path):
    packed = make_archive(tmp_path, BASE, OLD)
    tar = make_archive(tmp_path, BASE, OLD, gzip=False)
    unpacked = make_directory(tmp_path, BASE, OLD)
    assert differences((packed, tar)) == differences((tar, unpacked)) == []


def test_a_damaged_archive_is_compared_as_far_as_it_can_be_read(tmp_path):
    old, new = archives(tmp_path, {})
    whole = make_archive(tmp_path, BASE, NEW, LATER, gzip=False).read_bytes()
    new.write_bytes(whole[:len(whole) // 2])
    text = diff((old, new), status=1).stdout
    assert "! NEW: The archive is damaged or cut" in text
    assert "Not compared" in text and "removed" not in text


def test_texts_of_an_archive_cannot_control_a_terminal(tmp_path):
    escape = "\x1b]0;owned\x07\x9b31m"
    where = archives(tmp_path, {
        "package/dpkg_list.txt": f"ii  {escape}evil 1{escape} all\n",
        f"user/etc/{escape}": "x\n",
        "kernel/lsmod.txt": f"{escape}: not installed on this machine\n",
        f"log/{escape}": f"{escape}\n",
    })
    for options in [(), ("--all",), ("--all", "--json")]:
        text = diff(where, *options).stdout
        assert not re.search(r"[\x00-\x08\x0b-\x1f\x7f-\x9f]", text)
    assert "\\033]0;owned\\007" in diff(where).stdout


def test_json_is_valid_for_bytes_that_are_no_text(tmp_path):
    where = archives(tmp_path, {"user/etc/x": b"\xff\xfe a\n", "user/etc/login.defs": b"\xe2\x80\xa8 \xc0\n"})
    text = diff(where, "--json").stdout
    assert text.isascii()
    assert any(one["key"].startswith("\u2028") for one in differences(where) if "key" in one)
    json.loads(text)


def test_a_page_has_the_same_differences(tmp_path):
    where = archives(tmp_path, {
        **edited("network/sysctl_net.txt", "ip_forward:0", "ip_forward:1"),
        "kernel/lsmod.txt": "lsmod: not installed on this machine\n",
        "memory/proc/vmstat": "nr_free_pages 1\n",
    })
    page = tmp_path / "diff.html"
    assert diff(where, "-o", str(page)).stdout == f"{page}\n"
    assert stat.S_IMODE(page.stat().st_mode) == 0o600
    text = page.read_text()
    assert re.search(r"<td>changed</td><th scope=row><code>net/ipv4/ip_forward</code></th>"
                     r"<td data-l=OLD><code>0</code></td><td data-l=NEW><code>1</code></td>"
                     r"<td><small>network/sysctl_net.txt, OLD line 1, NEW line 1</small>", text)
    assert "kernel/lsmod.txt: NEW: lsmod: not installed on this machine" in text
    assert "vmstat" not in text
    every = tmp_path / "all.html"
    diff(where, "--all", "-o", str(every))
    assert "<del class=w0>- 1  nr_free_pages 12345</del>" in every.read_text()


def test_the_policy_of_a_page_allows_its_own_styles(tmp_path):
    page = tmp_path / "diff.html"
    diff(archives(tmp_path, {}), "-o", str(page))
    assert allowed_parts(page) == ["style", "style"]


def test_a_page_shows_only_so_many_differences_and_counts_the_rest(tmp_path):
    modules = "".join(f"module{number} 1 0\n" for number in range(2003))
    where = archives(tmp_path, {"kernel/lsmod.txt": str(BASE["kernel/lsmod.txt"]) + modules})
    page = tmp_path / "diff.html"
    diff(where, "-o", str(page))
    assert page.read_text().count("<tr class=w3>") == 2000
    assert "<p>and 3 more: quendil-report --diff --text prints them." in page.read_text()
    assert diff(where).stdout.count("\n  + module") == 2003


def test_a_page_is_never_overwritten(tmp_path):
    where = archives(tmp_path, {})
    page = tmp_path / "diff.html"
    page.write_text("mine")
    done = report("--diff", "-o", page, *where)
    assert (done.status, done.stdout) == (2, "")
    assert done.stderr.startswith(f"quendil-report: {page}: ")
    assert page.read_text() == "mine"


def test_a_page_of_hostile_texts_has_no_markup_of_theirs(tmp_path):
    markup = "</code></table><script>alert(1)</script><img src=x onerror=alert(1)>"
    escape = "\x1b]0;x\x07\u202e\u2028"
    where = archives(tmp_path, {
        "package/dpkg_list.txt": f"ii  {markup} 1{escape} all\n",
        f"user/etc/{escape}<b>": "x\n",
        "kernel/lsmod.txt": f"{markup}: not installed on this machine\n",
        "log/<i>": f"{markup}\n",
        "memory/proc/vmstat": f"{markup}{escape}\n",
    })
    page = tmp_path / "diff.html"
    diff(where, "--all", "-o", str(page))
    text = page.read_text()
    assert text.count("alert(1)") > 3
    assert not re.search("[\x00-\x08\x0b-\x1f\x7f-\x9f\u202e\u2028]", text)
    tags = set(re.findall(r"<([a-z]\w*)", text.partition("<body>")[2]))
    assert not tags & {"script", "img", "i", "b"}
    policy = re.search(r'Content-Security-Policy content="([^"]*)"', text)
    assert policy is not None and policy[1].startswith("default-src 'none'; style-src 'sha256-")


@pytest.mark.parametrize(("arguments", "message"), [
    (["--diff", "OLD"], "--diff takes two results"),
    (["--diff", "OLD", "OLD", "OLD"], "--diff takes two results"),
    (["--all", "OLD"], "--all belongs to --diff"),
    (["--diff", "--text", "--json", "OLD", "OLD"], "exclude each other"),
    (["--diff", "--json", "-o", "x.html", "OLD", "OLD"], "-o belongs to a page"),
    (["--diff", "--text", "-o", "x.html", "OLD", "OLD"], "-o belongs to a page"),
    (["--diff", "--overview", "OLD", "OLD"], "exclude each other"),
    (["--diff", "--limit=3", "OLD", "OLD"], "--limit belongs to"),
    (["--print-rules", "--diff"], "--print-rules takes nothing else"),
])
def test_wrong_usage_is_refused(tmp_path, arguments, message):
    make_archive(tmp_path, BASE, OLD).rename(tmp_path / "OLD")
    done = report(*arguments, directory=tmp_path)
    assert (done.status, done.stdout) == (2, "")
    assert message in done.stderr and "--help" in done.stderr
    assert [path.name for path in tmp_path.iterdir()] == ["OLD"]


def test_what_is_no_archive_is_refused(tmp_path):
    good = make_archive(tmp_path, BASE, OLD)
    bad = tmp_path / "bad"
    bad.write_text("no archive\n")
    for where in [(good, bad), (bad, good), (good, tmp_path / "absent")]:
        done = report("--diff", *where)
        assert (done.status, done.stdout) == (2, "")
        assert done.stderr.startswith(f"quendil-report: {bad if bad in where else where[1]}: ")
