"""The archive for any distribution: its contents, its installation, upgrade and removal, and its
programs on machines with almost no other programs and on old kernels.
"""

from __future__ import annotations

import os
import re
import stat
import subprocess
import tarfile
from pathlib import Path

import pytest
from support import behave, pattern_text
from support.machine import QUENDIL, Completed, Machine, environment_path

ROOT = Path(__file__).resolve().parents[2]
BUILD = Path(os.environ.get("QUENDIL_BUILD", ROOT / "build"))

TOP = "/tmp/root"
PROGRAM = "/opt/norvale/quendil/bin/quendil"
TOOL = "/opt/norvale/quendil/tool"
RECORD = "/opt/norvale/quendil/package"
CONFIG = "/etc/opt/norvale/quendil/config/quendil_conf"
PATTERN = "/etc/opt/norvale/quendil/pattern"
ASIDE = "/etc/opt/norvale/quendil/aside"
DATA = "/var/opt/norvale/quendil/data"
LOG = "/var/opt/norvale/quendil/log"
COMPANIONS = sorted(page.stem for page in (ROOT / "man").glob("quendil-*.8"))
SHIPPED = sorted(path.name for path in (ROOT / "patterns").iterdir())

DEMO = pattern_text.pattern(pattern_text.tool("/bin/uname -s", "%d%/uname.txt"),
                            pattern_text.data("%d%/uname.txt"), pattern_text.data("/etc/motd"))


def output(*command: str | Path) -> str:
    """What a command of the host prints."""
    return subprocess.run(command, capture_output=True, text=True, check=True).stdout


@pytest.fixture(scope="module", name="archive")
def fixture_archive() -> Path:
    """The archive."""
    found = list((BUILD / "packages").glob("quendil-*-linux-*.tar.gz"))
    assert len(found) == 1, f"scripts/test makes the archive in {BUILD / 'packages'}; found {found}"
    return found[0]


@pytest.fixture(scope="module", name="members")
def fixture_members(archive: Path) -> list[tarfile.TarInfo]:
    """The entries of the archive, in their order."""
    with tarfile.open(archive) as opened:
        return opened.getmembers()


# ---- Contents -----------------------------------------------------------------------------------


def described(member: tarfile.TarInfo) -> str:
    """Type and mode of an entry as `ls -l` shows them."""
    return stat.filemode(member.mode | {
        tarfile.REGTYPE: stat.S_IFREG, tarfile.DIRTYPE: stat.S_IFDIR,
        tarfile.SYMTYPE: stat.S_IFLNK}[member.type])


def tree_of(members: list[tarfile.TarInfo]) -> dict[str, tuple[str, str]]:
    """Mode and link target of every entry that is installed, by its path there."""
    top = members[0].name + "/root"
    return {member.name.removeprefix(top): (described(member), member.linkname)
            for member in members if member.name.startswith(f"{top}/")}


def test_the_archive_is_named_after_its_version_and_machine(archive: Path,
                                                            members: list[tarfile.TarInfo]):
    version = re.search(r"project\(quendil VERSION (\S+)", (ROOT / "CMakeLists.txt").read_text())
    assert version
    name = f"quendil-{version[1]}-linux-{os.uname().machine}"
    assert archive.name == f"{name}.tar.gz"
    assert members[0].name == name
    own = {member.name.removeprefix(f"{name}/") for member in members if "/root" not in member.name}
    assert own == {name, "install.sh", "list", "machine"}


def test_the_archive_holds_what_the_debs_hold(members: list[tarfile.TarInfo]):
    debs = list((BUILD / "packages").glob("*.deb"))
    assert len(debs) == 2
    rows = re.findall(r"^(\S+) \S+ +\d+ \S+ \S+ \.(/.*?)(?: -> (.*))?$",
                      "".join(output("dpkg-deb", "-c", deb) for deb in debs), re.M)
    in_debs = {name.rstrip("/"): (mode, target) for mode, name, target in rows if name != "/"}
    # On other distributions zsh has another directory of completions: the archive fills both.
    zsh = {name.replace("/vendor-completions", "/site-functions"): entry
           for name, entry in in_debs.items() if "/vendor-completions" in name}
    assert len(zsh) == 5
    assert tree_of(members) == in_debs | zsh


def test_the_same_commit_gives_the_same_archive(archive: Path, members: list[tarfile.TarInfo]):
    assert archive.read_bytes()[3:8] == bytes(5)  # gzip: no name, no time
    names = [member.name for member in members]
    assert names == sorted(names, key=lambda name: name.split("/"))
    assert {(member.uid, member.gid, member.uname, member.gname) for member in members} == {
        (0, 0, "root", "root")}
    assert len({member.mtime for member in members}) == 1


def test_the_list_names_everything_that_is_installed(archive: Path,
                                                     members: list[tarfile.TarInfo]):
    with tarfile.open(archive) as opened:
        text = opened.extractfile(f"{members[0].name}/list").read().decode()
    listed = {path: (kind, word) for kind, word, path in map(str.split, text.splitlines())}
    system = {path for path, (mode, _) in tree_of(members).items()
              if mode.startswith("d") and "norvale" not in path and "quendil" not in path}
    kinds = {"d": "d", "-": "f", "l": "l"}
    modes = {"rwxr-xr-x": "755", "rw-r--r--": "644", "rwx------": "700"}
    assert listed == {path: (kinds[mode[0]], target or modes[mode[1:]])
                      for path, (mode, target) in tree_of(members).items() if path not in system}


# ---- Installation, upgrade and removal -----------------------------------------------------------


class BareRoot:
    """A root directory with BusyBox and the given programs, and no others."""

    def __init__(self, machine: Machine, archive: Path, *programs: str) -> None:
        self.machine = machine
        for name in ("proc", "tmp", "etc", "dev"):
            machine.directory(f"{TOP}/{name}")
        machine.mount("--rbind", "/proc", f"{TOP}/proc")
        machine.file(f"{TOP}/dev/null")
        machine.mount("--bind", "/dev/null", f"{TOP}/dev/null")
        machine.file(f"{TOP}/etc/motd", "hello\n")
        for program in ("/bin/busybox", *programs):
            self._install(program)
        for name in output("busybox", "--list").split():
            if not machine.exists(f"{TOP}/bin/{name}"):
                machine.link(f"{TOP}/bin/{name}", "busybox")
        self.unpack(archive)

    def _install(self, program: str) -> None:
        """Copies a program with its libraries."""
        libraries = re.findall(r"(?:^|=> )\s*(/\S+) \(", output("ldd", program), re.M)
        for path in (program, *libraries):
            self.machine.install(Path(path), f"{TOP}{path}")

    def unpack(self, archive: Path) -> None:
        """Unpacks the archive to /tmp/quendil, under a strict umask."""
        self.machine.install(archive, f"{TOP}/tmp/quendil.tar.gz", 0o644)
        self.script("umask 077; cd /tmp && rm -rf quendil && tar xzf quendil.tar.gz && "
                    "mv quendil-* quendil")

    def script(self, text: str, check: bool = True, user: int = 0) -> Completed:
        """Runs a script in this root."""
        change = ["/usr/sbin/chroot", f"--userspec={user}:{user}", TOP]
        return self.machine.exec([*change, "/bin/sh", "-c", text], check=check)

    def install(self) -> str:
        """Installs or upgrades, from a strict umask; returns the output."""
        return self.script("umask 077; /tmp/quendil/install.sh").stdout

    def uninstall(self) -> str:
        """Uninstalls, with the script that the installation has kept; returns the output."""
        return self.script(f"{RECORD}/install.sh --uninstall").stdout

    def file(self, path: str, text: str) -> None:
        """Makes or replaces a file."""
        self.machine.file(f"{TOP}{path}", text)

    def remove(self, path: str) -> None:
        """Removes a file or a tree."""
        self.machine.remove(f"{TOP}{path}")

    def read(self, path: str) -> str:
        """The text of a file."""
        return self.machine.read(f"{TOP}{path}")

    def list(self, path: str) -> list[str]:
        """The names in a directory."""
        return self.machine.list(f"{TOP}{path}")

    def exists(self, path: str) -> bool:
        """Whether there is an entry of that name."""
        return self.machine.exists(f"{TOP}{path}")

    def change(self, name: str, text: str) -> None:
        """Changes a file of the unpacked archive, so that it is another version's."""
        self.file(f"/tmp/quendil/root{name}", text)

    def left(self) -> list[str]:
        """The files that are below the directories of an installation."""
        found = self.script("cd /; find opt etc/opt var/opt usr ! -type d 2>/dev/null", check=False)
        return sorted(f"/{name}" for name in found.stdout.split())


@pytest.fixture(name="root")
def fixture_root(machine: Machine, archive: Path) -> BareRoot:
    """A root directory with the unpacked archive in it."""
    return BareRoot(machine, archive)


@pytest.mark.parametrize("programs", [(), ("/bin/tar", "/bin/gzip")], ids=["busybox", "gnu"])
def test_an_installation_on_a_bare_machine_collects(machine: Machine, archive: Path,
                                                    members: list[tarfile.TarInfo],
                                                    programs: tuple[str, ...]):
    root = BareRoot(machine, archive, *programs)
    assert root.install() == f"== quendil is installed: {PROGRAM}\n"
    for path, (mode, target) in tree_of(members).items():
        status = machine.status(f"{TOP}{path}")
        assert (stat.filemode(status.st_mode), status.st_uid, status.st_gid) == (mode, 0, 0), path
        assert not target or os.readlink(machine.path(f"{TOP}{path}")) == target
    assert COMPANIONS
    for name in COMPANIONS:
        root.script(f"/usr/bin/{name} --version", user=1000)
    root.file(f"{PATTERN}/99_own", DEMO)
    done = root.script("/usr/sbin/quendil -g demo", check=False)
    assert (done.status, done.stderr) == (0, ""), done
    name, = root.list(DATA)
    with tarfile.open(machine.path(f"{TOP}{DATA}/{name}")) as opened:
        top = name.removesuffix(".tar.gz")
        texts = [opened.extractfile(f"{top}/{path}").read() for path in ("uname.txt", "etc/motd")]
    assert texts == [b"Linux\n", b"hello\n"]
    assert "ZEPA1" not in root.read(f"{LOG}/quendil.log")


def test_the_commands_for_patterns_work_on_a_bare_machine(root: BareRoot):
    root.install()
    root.file("/etc/secret", "password=hunter2\nname=me\n")
    root.file(f"{PATTERN}/99_own", pattern_text.pattern(
        pattern_text.tool(f"{TOOL}/run -m cat /etc/secret", "%d%/run.txt", timeout=20),
        pattern_text.tool(f"{TOOL}/show /etc/secret", "%d%/show.txt", timeout=20),
        pattern_text.data("%d%/*.txt")))
    assert root.script("quendil -g demo", check=False).status == 0
    name, = root.list(DATA)
    with tarfile.open(root.machine.path(f"{TOP}{DATA}/{name}")) as opened:
        for file in ("run.txt", "show.txt"):
            text = opened.extractfile(f"{name.removesuffix('.tar.gz')}/{file}").read().decode()
            assert "name=me" in text and "hunter2" not in text, text


def test_an_upgrade_renews_what_is_not_edited_and_removes_what_is_no_longer_shipped(root: BareRoot):
    root.install()
    root.change(f"{PATTERN}/{SHIPPED[0]}", "# of the later version\n")
    root.change(CONFIG, "# of the later version\n")
    gone = ("/opt/norvale/quendil/tool/each", f"/usr/bin/{COMPANIONS[0]}")
    for name in (f"{PATTERN}/{SHIPPED[1]}", *gone):
        root.remove(f"/tmp/quendil/root{name}")
        text = root.read("/tmp/quendil/list")
        root.file("/tmp/quendil/list", re.sub(rf"^.* {name}\n", "", text, flags=re.M))
    assert root.install() == f"== quendil is installed: {PROGRAM}\n"
    assert root.read(f"{PATTERN}/{SHIPPED[0]}") == "# of the later version\n"
    assert root.read(CONFIG) == "# of the later version\n"
    assert root.list(PATTERN) == [SHIPPED[0], *SHIPPED[2:]]
    assert [name for name in gone if root.exists(name)] == []
    assert not root.exists(ASIDE)


def test_an_upgrade_keeps_what_was_edited_added_or_removed(root: BareRoot):
    root.install()
    root.file(f"{PATTERN}/{SHIPPED[0]}", DEMO)
    root.file(CONFIG, "QUENDIL_CLEANUP=OFF\n")
    root.file(f"{PATTERN}/99_own", DEMO)
    root.remove(f"{PATTERN}/{SHIPPED[1]}")
    root.change(f"{PATTERN}/{SHIPPED[1]}", "# of the later version\n")
    assert root.install() == f"== quendil is installed: {PROGRAM}\n"
    assert root.list(PATTERN) == [SHIPPED[0], *SHIPPED[2:], "99_own"]
    assert root.read(f"{PATTERN}/{SHIPPED[0]}") == DEMO
    assert root.read(CONFIG) == "QUENDIL_CLEANUP=OFF\n"
    assert not root.exists(ASIDE)


def test_the_new_version_of_an_edited_file_is_put_aside_and_not_read(root: BareRoot):
    root.install()
    edited = {f"{PATTERN}/{SHIPPED[0]}": DEMO, CONFIG: "QUENDIL_CLEANUP=OFF\n"}
    for path, text in edited.items():
        root.file(path, text)
        root.change(path, "# of the later version\n")
    assert root.install().splitlines() == [
        *(f"== kept: {path} (edited by you); the new version is {ASIDE}/{Path(path).name}.new"
          for path in sorted(edited)),
        f"== quendil is installed: {PROGRAM}"]
    assert root.list(PATTERN) == SHIPPED
    assert {path: root.read(path) for path in edited} == edited
    for name in (SHIPPED[0], "quendil_conf"):
        assert root.read(f"{ASIDE}/{name}.new") == "# of the later version\n"
    root.file(f"{PATTERN}/{SHIPPED[0]}", "# of the later version\n")
    root.file(CONFIG, "# of the later version\n")
    root.uninstall()
    assert root.left() == []


def test_files_that_no_archive_has_placed_count_as_edited(root: BareRoot):
    root.file(f"{PATTERN}/{SHIPPED[0]}", DEMO)
    root.file(CONFIG, "QUENDIL_CLEANUP=OFF\n")
    assert root.install().count("== kept: ") == 2
    assert root.read(f"{PATTERN}/{SHIPPED[0]}") == DEMO
    assert root.read(CONFIG) == "QUENDIL_CLEANUP=OFF\n"
    assert root.list(ASIDE) == [f"{SHIPPED[0]}.new", "quendil_conf.new"]


def test_a_removal_without_data_leaves_nothing(root: BareRoot):
    root.install()
    root.file("/opt/norvale/quendil/bin/.quendil.lck", "")
    root.file("/opt/norvale/quendil/bin/.quendil_hist.lck", "")
    assert root.uninstall() == "== quendil is removed\n"
    assert root.left() == []
    directories = ("/opt", "/etc/opt", "/var/opt", "/usr/share/doc")
    assert [root.list(name) for name in directories] == [[], [], [], []]


def test_a_removal_keeps_and_names_what_was_edited_added_collected_or_logged(root: BareRoot):
    root.install()
    kept = [CONFIG, f"{PATTERN}/{SHIPPED[0]}", f"{PATTERN}/99_own", f"{DATA}/host.tar.gz",
            f"{LOG}/quendil.log", "/opt/norvale/quendil/tool/mine"]
    for path in kept:
        root.file(path, "# mine\n")
    assert root.uninstall() == """\
== kept: /opt/norvale/quendil/tool (files that quendil has not placed)
== kept: /etc/opt/norvale/quendil/config (edited or added by you)
== kept: /etc/opt/norvale/quendil/pattern (edited or added by you)
== kept: /var/opt/norvale/quendil/data (collected data)
== kept: /var/opt/norvale/quendil/log (logs)
== quendil is removed
"""
    assert root.left() == sorted(kept)


def test_an_installation_below_a_directory_touches_nothing_else(root: BareRoot):
    root.script("DESTDIR=/tmp/image /tmp/quendil/install.sh")
    assert root.exists(f"/tmp/image{PROGRAM}") and root.left() == []
    root.script("DESTDIR=/tmp/image /tmp/quendil/install.sh --uninstall")
    assert not root.exists("/tmp/image/opt/norvale")


def test_the_script_finds_its_archive_by_a_relative_path(root: BareRoot):
    reported = root.script("mkdir -p /tmp/other/quendil; export CDPATH=/tmp/other; cd /tmp; "
                           "sh quendil/install.sh").stdout
    assert reported == f"== quendil is installed: {PROGRAM}\n"


def test_a_directory_that_cannot_be_made_ends_the_installation(root: BareRoot):
    root.script("mkdir -p /usr; touch /usr/sbin")  # the link to the program is in /usr/sbin
    done = root.script("/tmp/quendil/install.sh", check=False)
    assert done.status != 0 and "is installed" not in done.stdout


@pytest.mark.parametrize("before, command, reported", [
    ("echo vax >/tmp/quendil/machine", "/tmp/quendil/install.sh",
     f"this archive is for vax, and this machine is {os.uname().machine}"),
    ("", "/tmp/quendil/install.sh --help", "usage: /tmp/quendil/install.sh [--uninstall]"),
    ("", "/tmp/quendil/install.sh --uninstall", "quendil was not installed from an archive"),
    ("rm /tmp/quendil/machine", "/tmp/quendil/install.sh",
     "/tmp/quendil/install.sh is not in an unpacked archive of quendil"),
    (f"echo '[ \"$1 $2\" = \"-S {PROGRAM}\" ]' >/bin/dpkg-query; chmod 755 /bin/dpkg-query",
     "/tmp/quendil/install.sh",
     "quendil was installed as a package: apt-get remove quendil"),
    (f"echo '[ \"$1 $2\" = \"-qf {PROGRAM}\" ]' >/bin/rpm; chmod 755 /bin/rpm",
     "/tmp/quendil/install.sh",
     "quendil was installed as a package: rpm -e quendil"),
], ids=["machine", "usage", "not_installed", "not_unpacked", "deb", "rpm"])
def test_what_cannot_be_done_is_reported_and_nothing_is_changed(root: BareRoot, before: str,
                                                                command: str, reported: str):
    root.script(f"rm -f /bin/rpm; {before or ':'}")  # BusyBox may have one
    done = root.script(command, check=False)
    assert (done.status, done.stdout, done.stderr) == (1, "", f"{reported}\n")
    assert root.left() == []


def test_only_root_installs(root: BareRoot):
    root.script("chmod -R a+rX /tmp/quendil")
    done = root.script("/tmp/quendil/install.sh", check=False, user=1000)
    assert (done.status, done.stderr) == (1, "run this as root: sudo /tmp/quendil/install.sh\n")
    assert root.left() == []


# ---- The packed program --------------------------------------------------------------------------


@pytest.fixture(name="portable")
def fixture_portable(machine: Machine) -> Machine:
    """A machine on which the programs are the packed ones."""
    for path in (QUENDIL, *(f"{TOOL}/{name}" for name in ("escape", "mask", "show"))):
        machine.remove(path)
        machine.install(BUILD / "portable/src" / Path(path).name, path)
    return machine


def old_kernel(machine: Machine) -> str:
    """Installs the program that acts as an old kernel; returns its path."""
    helper = environment_path("QUENDIL_BEHAVE").with_name("old_kernel")
    return machine.install(helper, "/opt/old_kernel")


def test_the_old_kernel_of_the_tests_lacks_what_is_newer(machine: Machine):
    lacks = machine.exec([old_kernel(machine), "/usr/bin/python3", "-c", """
import ctypes, errno, os
call = ctypes.CDLL(None, use_errno=True).syscall
for number, arguments in ((434, (os.getpid(), 0)), (436, (9, 9, 0)), (437, (0, b"/", 0, 0))):
    print(call(number, *arguments), errno.errorcode[ctypes.get_errno()])
print(os.getpid() == call(39 if os.uname().machine == "x86_64" else 172))
"""])
    assert lacks.stdout == "-1 ENOSYS\n" * 3 + "True\n"


def test_a_collection_on_an_old_kernel_is_complete(portable: Machine):
    machine = portable
    machine.directory("/opt/d")
    machine.file("/opt/d/text", "of mine\n", owner=(1000, 1000))
    machine.path("/opt/d").chmod(0o777)  # its files are copied, and no link on the way is followed
    machine.file("/opt/d/login", "password=Zq7c06pX4w\n", owner=(1000, 1000))
    escaped = machine.file(
        "/opt/escaped", f"#!/bin/sh\nprintf 'a\\033b\\n' | {TOOL}/escape\n", 0o755)
    slow = machine.tool(behave.out("begun\n"), behave.report("/tmp/report"), behave.forever())
    machine.pattern("10_demo", pattern_text.pattern(
        pattern_text.tool(slow, "%d%/slow.txt", timeout=1),
        pattern_text.tool("/bin/uname -s", "%d%/uname.txt", timeout=10),
        pattern_text.tool(f"{TOOL}/show /opt/d/login", "%d%/shown.txt", timeout=10),
        pattern_text.tool(escaped, "%d%/escaped.txt", timeout=10),
        pattern_text.data("%d%/*.txt"), pattern_text.data("/opt/d"),
        pattern_text.data("/proc/version")))
    start = machine.file(
        "/opt/start", f"#!/bin/sh\nexec {old_kernel(machine)} \"$@\" 9</dev/null\n", 0o755)
    run = machine.run(QUENDIL, "-g", "demo", program=start)
    assert run.status == 0, run
    assert run.archive.read("uname.txt") == b"Linux\n"
    assert run.archive.read("slow.txt") == b"begun\n"
    assert run.archive.read("shown.txt") == b"==> /opt/d/login\npassword=********\n\n"
    assert run.archive.read("escaped.txt") == b"a\\033b\n"
    assert run.archive.read("opt/d/text") == b"of mine\n"
    assert run.archive.read("proc/version") == Path("/proc/version").read_bytes()
    warnings = re.findall(r"^(ZEPA1\d\d-[EW])", run.log, re.M)
    assert warnings == ["ZEPA126-W"], run.log
    descriptors = {name for name in machine.report("/tmp/report") if name.startswith("fd")}
    assert descriptors == {"fd0", "fd1", "fd2"}


def test_a_locale_with_another_character_set_loads_nothing(portable: Machine):
    machine = portable
    machine.directory("/opt/locale")
    machine.exec(["/usr/bin/localedef", "-i", "de_DE", "-f", "ISO-8859-1",
                  "/opt/locale/de_DE.ISO-8859-1"], check=False)
    locale = {"LOCPATH": "/opt/locale", "LC_ALL": "de_DE.ISO-8859-1"}
    # The locale works: a dynamic program uses its character set.
    shown = machine.exec(["/usr/bin/env", *(f"{name}={value}" for name, value in locale.items()),
                          "/usr/bin/locale", "charmap"])
    assert shown.stdout == "ISO-8859-1\n"
    machine.pattern("10_demo", DEMO)
    run = machine.run("-g", "demo", "-o", "/tmp/gr\u00fcn", env=locale)
    assert run.status == 0 and machine.exists("/tmp/gr\u00fcn.tar.gz"), run
    latin = machine.file(
        "/opt/latin", f"#!/bin/sh\nexec {QUENDIL} -g demo -o /tmp/gr\u00fcn\n".encode("latin-1"),
        0o755)
    refused = machine.run(program=latin, env=locale)
    assert refused.status == 255
    assert "system call name = mbstowcs, error code = 84" in refused.stderr
