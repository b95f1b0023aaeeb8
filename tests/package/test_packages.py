"""The packages: their contents, and their installation, upgrade and removal.

They are installed in a root directory inside a machine, with its own package database; the programs
and libraries there are the host's, read-only.
"""

from __future__ import annotations

import os
import re
import stat
import subprocess
from pathlib import Path
from typing import Any

import pytest
from support import pattern_text
from support.machine import Completed, Machine

ROOT = Path(__file__).resolve().parents[2]
BUILD = Path(os.environ.get("QUENDIL_BUILD", ROOT / "build"))

PROGRAM = "opt/norvale/quendil/bin/quendil"
CONFIG = "etc/opt/norvale/quendil/config/quendil_conf"
UNATTENDED = "etc/opt/norvale/quendil/config/quendil_unattended"
PATTERN = "etc/opt/norvale/quendil/pattern"
ASIDE = "etc/opt/norvale/quendil/aside"
DATA = "var/opt/norvale/quendil/data"
LOG = "var/opt/norvale/quendil/log"

SHIPPED = sorted(path.name for path in (ROOT / "patterns").iterdir())
COMPLETIONS = "usr/share/bash-completion/completions"
#: Where zsh looks for completions, which is not the same on all distributions.
ZSH_OF_DEB, ZSH_OF_RPM = "usr/share/zsh/vendor-completions", "usr/share/zsh/site-functions"


def pages(pattern: str) -> list[str]:
    """The installed manual pages whose names match, of the package that has them."""
    return sorted(f"usr/share/man/man{page.suffix[1:]}/{page.name}.gz"
                  for page in (ROOT / "man").glob(pattern))


def completions(prefix: str) -> list[str]:
    """The installed completions of the package in which names begin so, as a .deb has them."""
    companion = prefix.endswith("-")
    names = {shell: {path.name for path in (ROOT / "completions" / shell).iterdir()
                     if path.name.lstrip("_").startswith("quendil-") == companion}
             for shell in ("zsh", "fish")}
    assert len(names["zsh"]) == 2 == len(names["fish"])
    functions = {name for name in names["fish"] if name.startswith("__")}
    return [*(f"{COMPLETIONS}/{path.stem}" for path in (ROOT / "completions").glob("*.bash")
              if path.stem.startswith("quendil-") == companion),
            *(f"{ZSH_OF_DEB}/{name}" for name in names["zsh"]),
            *(f"usr/share/fish/vendor_functions.d/{name}" for name in functions),
            *(f"usr/share/fish/vendor_completions.d/{name}" for name in names["fish"] - functions)]


def as_in_rpm(names: dict[str, Any]) -> dict[str, Any]:
    """Entries of a .deb, under the names that an .rpm has for them."""
    return {name.replace(ZSH_OF_DEB, ZSH_OF_RPM): value for name, value in names.items()}


PAGES = pages("quendil[!-]*")
#: The companion commands: each has a manual page.
COMPANIONS = sorted(page.stem for page in (ROOT / "man").glob("quendil-*.8"))
CONFFILES = [CONFIG, UNATTENDED, *(f"{PATTERN}/{name}" for name in SHIPPED)]
UNITS = sorted(f"usr/lib/systemd/system/{path.name}"
               for kind in ("service", "timer") for path in (ROOT / "systemd").glob(f"*.{kind}"))

#: Directories and links of the packages, with their modes and what links point to.
DIRECTORIES = {
    "opt/norvale": "drwxr-xr-x", "opt/norvale/quendil": "drwxr-xr-x",
    "opt/norvale/quendil/bin": "drwxr-xr-x", "opt/norvale/quendil/tool": "drwxr-xr-x",
    "opt/norvale/quendil/template": "drwxr-xr-x", "etc/opt/norvale": "drwxr-xr-x",
    "etc/opt/norvale/quendil": "drwxr-xr-x", "etc/opt/norvale/quendil/config": "drwxr-xr-x",
    PATTERN: "drwxr-xr-x", "var/opt/norvale": "drwxr-xr-x", "var/opt/norvale/quendil": "drwx------",
    DATA: "drwx------", LOG: "drwx------", "usr/share/doc/quendil": "drwxr-xr-x",
}
LINK = ("usr/sbin/quendil", "/opt/norvale/quendil/bin/quendil")

#: What quendil-tools has besides the directories of quendil and of the system.
TOOLS = {
    **{f"opt/norvale/quendil/bin/{name}": "-rwxr-xr-x" for name in COMPANIONS},
    **{f"usr/bin/{name}": "lrwxrwxrwx" for name in COMPANIONS},
    **dict.fromkeys(completions("quendil-"), "-rw-r--r--"),
    "usr/share/doc/quendil-tools": "drwxr-xr-x",
    "usr/share/doc/quendil-tools/NEWS.gz": "-rw-r--r--",
    "usr/share/doc/quendil-tools/copyright": "-rw-r--r--",
    **dict.fromkeys(pages("quendil-*"), "-rw-r--r--"),
}


def only(directory: Path, suffix: str, package: str = "quendil") -> Path:
    """The one file of a package in a directory."""
    found = list(directory.glob(f"{package}[-_][0-9]*.{suffix}"))
    assert len(found) == 1, f"scripts/test makes the .{suffix} in {directory}; found {found}"
    return found[0]


@pytest.fixture(scope="module")
def deb() -> Path:
    """The .deb of quendil."""
    return only(BUILD / "packages", "deb")


@pytest.fixture(scope="module")
def rpm() -> Path:
    """The .rpm of quendil."""
    return only(BUILD / "packages", "rpm")


@pytest.fixture(scope="module")
def tools_deb() -> Path:
    """The .deb of the companion commands."""
    return only(BUILD / "packages", "deb", "quendil-tools")


@pytest.fixture(scope="module")
def tools_rpm() -> Path:
    """The .rpm of the companion commands."""
    return only(BUILD / "packages", "rpm", "quendil-tools")


def output(*command: str | Path) -> str:
    """What a command of the host prints."""
    return subprocess.run(command, capture_output=True, text=True, check=True).stdout


def shipped_files() -> dict[str, str]:
    """Every regular file of quendil's packages but those of the tool and template directories."""
    plain = [*CONFFILES, *PAGES, *completions("quendil"), *UNITS, "usr/lib/tmpfiles.d/quendil.conf",
             "usr/share/doc/quendil/copyright", "usr/share/doc/quendil/NEWS.gz"]
    return {PROGRAM: "-rwxr-xr-x", **dict.fromkeys(plain, "-rw-r--r--")}


def without_tools(names: dict[str, str]) -> dict[str, str]:
    """The entries that are not in the tool or the template directory."""
    return {name: mode for name, mode in names.items()
            if not re.match("opt/norvale/quendil/(tool|template)/", name)}


# ---- Contents -----------------------------------------------------------------------------------


def deb_entries(package: Path) -> list[tuple[str, str, str, str]]:
    """Mode, owner, name and link target of every entry of a .deb."""
    rows = re.findall(r"^(\S+) (\S+) +\d+ \S+ \S+ \./(.*?)(?: -> (.*))?$",
                      output("dpkg-deb", "-c", package), re.M)
    return [(mode, owner, name.rstrip("/"), target) for mode, owner, name, target in rows]


def test_the_deb_holds_an_installation_and_nothing_else(deb: Path):
    entries = deb_entries(deb)
    assert {owner for _, owner, _, _ in entries} == {"root/root"}
    files = {name: mode for mode, _, name, _ in entries if mode.startswith("-")}
    assert without_tools(files) == shipped_files()
    assert [(name, target) for _, _, name, target in entries if target] == [LINK]
    own = {name: mode for mode, _, name, _ in entries
           if mode.startswith("d") and (name in DIRECTORIES or "quendil" in name)}
    assert own == DIRECTORIES


def test_the_deb_of_the_tools_holds_the_companion_commands_and_nothing_else(tools_deb: Path):
    entries = deb_entries(tools_deb)
    assert COMPANIONS
    assert {owner for _, owner, _, _ in entries} == {"root/root"}
    others = {name for mode, _, name, _ in entries if mode == "drwxr-xr-x"} - set(TOOLS)
    assert {name: mode for mode, _, name, _ in entries if name not in others} == TOOLS
    assert {name for name in others if "norvale" in name} == {
        "opt/norvale", "opt/norvale/quendil", "opt/norvale/quendil/bin"}
    assert {name: target for _, _, name, target in entries if target} == {
        f"usr/bin/{name}": f"/opt/norvale/quendil/bin/{name}" for name in COMPANIONS}


def test_the_system_directories_of_the_deb_have_the_mode_of_the_system(deb: Path):
    others = {mode for mode, _, name, _ in deb_entries(deb)
              if mode.startswith("d") and name not in DIRECTORIES}
    assert others == {"drwxr-xr-x"}


def test_the_deb_names_itself_and_what_it_needs(deb: Path):
    fields = dict(re.findall(r"^(\S+): (.*)", output("dpkg-deb", "-f", deb), re.M))
    version = re.search(r"project\(quendil VERSION (\S+)", (ROOT / "CMakeLists.txt").read_text())
    assert version and fields["Version"] == version[1]
    assert fields["Package"] == "quendil"
    assert fields["Architecture"] == output("dpkg", "--print-architecture").strip()
    assert fields["Depends"] == "tar, gzip"  # no version of the C library
    assert fields["Recommends"] == "quendil-tools"
    assert fields["Maintainer"].endswith(".invalid>")


@pytest.mark.parametrize("directory", ["packages", "packages-next"])
def test_the_deb_of_the_tools_needs_quendil_of_its_version_or_a_later_one(directory: str):
    text = output("dpkg-deb", "-f", only(BUILD / directory, "deb", "quendil-tools"))
    fields = dict(re.findall(r"^(\S+): (.*)", text, re.M))
    of_quendil = output("dpkg-deb", "-f", only(BUILD / directory, "deb"), "Version").strip()
    assert (fields["Package"], fields["Version"]) == ("quendil-tools", of_quendil)
    assert fields["Depends"] == f"quendil (>= {of_quendil})"
    assert "Recommends" not in fields


def test_configuration_and_patterns_are_marked_as_configuration_files(deb: Path, rpm: Path):
    assert output("dpkg-deb", "-I", deb, "conffiles").split() == [f"/{name}" for name in CONFFILES]
    assert output("rpm", "-qp", "--configfiles", rpm).split() == [f"/{name}" for name in CONFFILES]


def test_the_tools_have_no_configuration_and_none_of_the_scripts_of_quendil(
        tools_deb: Path, tools_rpm: Path, tmp_path: Path):
    output("dpkg-deb", "-e", tools_deb, tmp_path)
    assert sorted(path.name for path in tmp_path.iterdir()) == ["control", "md5sums"]
    assert output("rpm", "-qp", "--configfiles", tools_rpm) == ""
    assert output("rpm", "-qp", "--qf", "%{PREUN} %{POSTTRANS}", tools_rpm) == "(none) (none)"


@pytest.mark.parametrize("package", ["deb", "tools_deb"])
def test_the_deb_has_no_path_of_the_machine_that_built_it(package: str, tmp_path: Path,
                                                          request: pytest.FixtureRequest):
    output("dpkg-deb", "-R", request.getfixturevalue(package), tmp_path)
    for path in tmp_path.rglob("*"):
        if path.is_file() and not path.is_symlink():
            assert os.fsencode(ROOT) not in path.read_bytes(), path


def test_the_rpm_holds_what_the_deb_holds(deb: Path, rpm: Path):
    rows = [line.split() for line in output("rpm", "-qp", "--dump", rpm).splitlines()]
    listed = output("rpm", "-qp", "--list", rpm).split()
    assert listed == [row[0] for row in rows]
    assert {(row[5], row[6]) for row in rows} == {("root", "root")}
    kinds = {"04": "directory", "10": "file", "12": "link"}
    entries = {row[0].lstrip("/"): (kinds[row[4].zfill(7)[1:3]], row[4][-4:]) for row in rows}
    modes = {"-rwxr-xr-x": "0755", "-rw-r--r--": "0644", "drwxr-xr-x": "0755", "drwx------": "0700"}
    expected = {name: ("directory" if mode.startswith("d") else "file", modes[mode])
                for name, mode in as_in_rpm({**DIRECTORIES, **shipped_files()}).items()}
    links = {name: entry for name, entry in entries.items() if entry[0] == "link"}
    assert list(links) == [LINK[0]]
    assert [row[10] for row in rows if row[0] == f"/{LINK[0]}"] == [LINK[1]]
    assert without_tools({k: v for k, v in entries.items() if k not in links}) == expected
    in_deb = as_in_rpm({name: mode for mode, _, name, _ in deb_entries(deb)})
    assert set(entries) <= set(in_deb)


def test_the_rpm_of_the_tools_owns_no_directory_of_quendil_or_of_the_system(tools_rpm: Path):
    rows = [line.split() for line in output("rpm", "-qp", "--dump", tools_rpm).splitlines()]
    assert {(row[5], row[6]) for row in rows} == {("root", "root")}
    assert {row[0].lstrip("/"): stat.filemode(int(row[4], 8)) for row in rows} == as_in_rpm(TOOLS)
    assert {row[0]: row[10] for row in rows if row[10] != "X"} == {
        f"/usr/bin/{name}": f"/opt/norvale/quendil/bin/{name}" for name in COMPANIONS}


def test_an_edited_configuration_file_outlives_an_upgrade_of_the_rpm(rpm: Path):
    flags = output("rpm", "-qp", "--qf", "[%{FILENAMES} %{FILEFLAGS:fflags}\n]", rpm).splitlines()
    marked = [line.split() for line in flags if "c" in line.partition(" ")[2]]
    assert marked == [[f"/{name}", "cn"] for name in CONFFILES]  # n: noreplace


def needs(package: Path) -> set[str]:
    """What an .rpm requires, besides what rpm itself must be able to do."""
    lines = output("rpm", "-qp", "--requires", package).splitlines()
    return {line for line in lines if not line.startswith("rpmlib(")}


def test_the_rpm_names_itself_and_what_it_needs(rpm: Path):
    fields = "%{NAME} %{LICENSE} %{BUILDHOST}"
    assert output("rpm", "-qp", "--qf", fields, rpm) == "quendil Apache-2.0 localhost"
    assert needs(rpm) == {"/bin/sh", "tar", "gzip"}
    assert output("rpm", "-qp", "--recommends", rpm) == "quendil-tools\n"


def test_the_rpm_of_the_tools_needs_quendil_of_its_version_or_a_later_one(rpm: Path,
                                                                         tools_rpm: Path):
    version = output("rpm", "-qp", "--qf", "%{VERSION}", rpm)
    fields = "%{NAME} %{VERSION} %{LICENSE} %{BUILDHOST}"
    assert output("rpm", "-qp", "--qf", fields, tools_rpm) == (
        f"quendil-tools {version} Apache-2.0 localhost")
    assert needs(tools_rpm) == {"/bin/sh", f"quendil >= {version}"}
    assert output("rpm", "-qp", "--recommends", tools_rpm) == ""


def test_the_scripts_of_the_rpms_parse(rpm: Path, tools_rpm: Path):
    text = output("rpm", "-qp", "--qf", "%{PREUN}\n%{POSTTRANS}\n", rpm)
    assert ".quendil.lck" in text and ".rpmnew" in text
    text += output("rpm", "-qp", "--qf", "%{POSTUN}\n", tools_rpm)
    assert "rmdir " in text
    subprocess.run(["/bin/sh", "-n"], input=text, text=True, check=True)


def test_the_compressed_pages_are_those_of_the_tree(deb: Path, tools_deb: Path, tmp_path: Path):
    for package in (deb, tools_deb):
        output("dpkg-deb", "-x", package, tmp_path)
    for page in pages("*"):
        source = ROOT / "man" / Path(page).stem
        assert output("gzip", "-dc", tmp_path / page) == source.read_text()


# ---- Installation of the .debs ------------------------------------------------------------------

#: Packages that the database of the private root has, as the host has them; the first one owns the
#: system's directories.
THERE = ("base-files", "libc6", "tar", "gzip")
SYSTEM = ("etc", "etc/opt", "opt", "var", "var/opt", "usr", "usr/sbin", "usr/share")


class PrivateRoot:
    """A root directory with a package database, in which packages are installed and run."""

    top = "/tmp/root"
    programs = "programs"
    libraries = "libraries"

    def __init__(self, machine: Machine) -> None:
        self._machine = machine
        for name in (*SYSTEM, "tmp", "var/lib/dpkg/info", "var/lib/dpkg/updates"):
            machine.directory(f"{self.top}/{name}")
        # Packages put entries into these directories, so they cannot be the host's.
        own = {"usr/bin": self.programs, "usr/lib": self.libraries}
        for name in (*own, "usr/lib64", "proc", "dev"):
            if os.path.isdir(f"/{name}"):
                inside = f"{self.top}/{own.get(name, name)}"
                machine.directory(inside)
                machine.mount("--rbind", f"/{name}", inside)
        for directory, inside in own.items():
            for name in set(os.listdir(f"/{directory}")) - {"systemd", "tmpfiles.d"}:
                machine.link(f"{self.top}/{directory}/{name}", f"/{inside}/{name}")
        for name in ("bin", "lib", "lib64", "sbin"):
            machine.link(f"{self.top}/{name}", f"usr/{name}")
        format_ = "${Package} ${Version} ${Architecture}\n"
        version = output("dpkg-query", "-W", "-f", format_, *THERE)
        entries = ["Package: {}\nStatus: install ok installed\nVersion: {}\nArchitecture: {}\n"
                   "Maintainer: x\nDescription: x\n".format(*line.split())
                   for line in version.splitlines()]
        self.file("var/lib/dpkg/status", "\n".join(entries))
        # dpkg takes a package for replaced if all its entries belong to another one.
        self.file("etc/debian_version", "")
        for name in THERE:
            owned = (*SYSTEM, "etc/debian_version") if name == "base-files" else ()
            self.file(f"var/lib/dpkg/info/{name}.list", "".join(f"/{path}\n" for path in owned))

    def dpkg(self, *arguments: str, check: bool = True) -> Completed:
        """dpkg on this root; it has no input."""
        return self._machine.exec(["/usr/bin/dpkg", f"--root={self.top}", "--log=/dev/null",
                                   "--force-unsafe-io", *arguments], check=check)

    def install(self, package: Path, *options: str, check: bool = True) -> Completed:
        """Installs or upgrades."""
        inside = self._machine.install(package, f"/tmp/{package.name}", 0o644)
        return self.dpkg(*options, "-i", inside, check=check)

    def rpm(self, *arguments: str, check: bool = True) -> Completed:
        """rpm on this root."""
        return self._machine.exec(["/usr/bin/rpm", f"--root={self.top}", *arguments], check=check)

    def install_rpm(self, package: Path) -> None:
        """Installs, although the package database knows none of the system's packages."""
        inside = self._machine.install(package, f"/tmp/{package.name}", 0o644)
        self.rpm("--nodeps", "-i", inside)

    def missing_for_rpm(self, package: Path) -> list[str]:
        """What the package needs and no installed one provides."""
        inside = self._machine.install(package, f"/tmp/{package.name}", 0o644)
        refused = self.rpm("-i", "--test", inside, check=False)
        return re.findall(r"^\s*(.*) is needed by", refused.stderr, re.M)

    def script(self, text: str) -> None:
        """Runs a script in this root."""
        self._machine.exec(["/usr/sbin/chroot", self.top, "/bin/sh", "-c", text])

    def state(self, package: str = "quendil") -> str:
        """The state of a package: "installed", "config-files", "" unknown."""
        text = self._machine.read(f"{self.top}/var/lib/dpkg/status")
        found = re.search(rf"Package: {package}\nStatus: \w+ \w+ (\S+)", text)
        return found[1] if found else ""

    def run(self, *arguments: str) -> Completed:
        """Runs the installed program, by its name on root's path."""
        return self._machine.exec(["/usr/sbin/chroot", self.top, "quendil", *arguments],
                                  check=False)

    def companions_run(self) -> bool:
        """Whether a user can run each companion command, by its name on the path."""
        user = "--userspec=1000:1000"
        return all(self._machine.exec(["/usr/sbin/chroot", user, self.top, "/usr/bin/env",
                                       "PATH=/usr/bin", name, "--version"], check=False).status == 0
                   for name in COMPANIONS)

    def file(self, name: str, text: str) -> None:
        """Makes or replaces a file."""
        self._machine.file(f"{self.top}/{name}", text)

    def read(self, name: str) -> str:
        """The text of a file."""
        return self._machine.read(f"{self.top}/{name}")

    def exists(self, name: str) -> bool:
        """Whether there is an entry of that name."""
        return self._machine.exists(f"{self.top}/{name}")

    def list(self, name: str) -> list[str]:
        """The names in a directory."""
        return self._machine.list(f"{self.top}/{name}")

    def mode(self, name: str) -> str:
        """The permission bits of an entry."""
        return self._machine.mode(f"{self.top}/{name}")


@pytest.fixture
def root(machine: Machine) -> PrivateRoot:
    """A root directory without quendil."""
    return PrivateRoot(machine)


@pytest.fixture(scope="module")
def next_deb(tmp_path_factory: pytest.TempPathFactory) -> Path:
    """A later version, in which the first two patterns have changed."""
    tree = tmp_path_factory.mktemp("next") / "tree"
    output("dpkg-deb", "-R", only(BUILD / "packages-next", "deb"), tree)
    for name in SHIPPED[:2]:
        with (tree / PATTERN / name).open("a") as file:
            file.write("# of the later version\n")
    package = tree.with_suffix(".deb")
    output("dpkg-deb", "--root-owner-group", "-Znone", "-b", tree, package)
    return package


DEMO = pattern_text.pattern(pattern_text.tool("/bin/uname -s", "%d%/uname.txt"),
                            pattern_text.data("%d%/uname.txt"))


def test_an_installed_package_collects(root: PrivateRoot, deb: Path):
    root.install(deb)
    assert root.state() == "installed"
    assert root.list(PATTERN) == SHIPPED
    assert [root.mode(name) for name in (DATA, LOG, PROGRAM)] == ["0700", "0700", "0755"]
    root.file(f"{PATTERN}/99_demo", DEMO)
    done = root.run("-g", "demo")
    assert (done.status, done.stderr) == (0, "")
    assert "ZEPA214-I:Output file = /var/opt/norvale/quendil/data/" in done.stdout
    assert [Path(name).suffixes[-2:] for name in root.list(DATA)] == [[".tar", ".gz"]]


def test_an_upgrade_replaces_files_that_were_not_edited(root: PrivateRoot, deb: Path,
                                                        next_deb: Path):
    root.install(deb)
    root.install(next_deb)
    assert root.list(PATTERN) == SHIPPED
    assert root.read(f"{PATTERN}/{SHIPPED[0]}").endswith("# of the later version\n")
    assert not root.exists(ASIDE)


def test_an_upgrade_keeps_an_edited_file_that_has_not_changed(root: PrivateRoot, deb: Path,
                                                              next_deb: Path):
    root.install(deb)
    root.file(f"{PATTERN}/{SHIPPED[2]}", DEMO)
    root.file(CONFIG, "QUENDIL_CLEANUP=OFF\n")
    root.file(f"{PATTERN}/99_own", DEMO)
    root.install(next_deb)
    assert root.list(PATTERN) == [*SHIPPED, "99_own"]
    assert root.read(f"{PATTERN}/{SHIPPED[2]}") == DEMO
    assert root.read(CONFIG) == "QUENDIL_CLEANUP=OFF\n"


@pytest.mark.parametrize("choice, kept, put_aside", [
    ("--force-confdef", DEMO, ".dpkg-dist"), ("--force-confold", DEMO, ".dpkg-dist"),
    ("--force-confnew", "later version", ".dpkg-old"),
], ids=["unasked", "kept", "renewed"])
def test_the_version_that_is_not_used_is_put_aside_and_not_read(
        root: PrivateRoot, deb: Path, next_deb: Path, choice: str, kept: str, put_aside: str):
    root.install(deb)
    root.file(f"{PATTERN}/{SHIPPED[0]}", DEMO)
    root.install(next_deb, choice)
    assert root.list(PATTERN) == SHIPPED
    assert kept in root.read(f"{PATTERN}/{SHIPPED[0]}")
    assert root.list(ASIDE) == [SHIPPED[0] + put_aside]
    root.dpkg("--purge", "quendil")
    assert not root.exists("etc/opt/norvale")


def test_a_removal_keeps_data_logs_and_configuration(root: PrivateRoot, deb: Path):
    root.install(deb)
    root.file(f"{PATTERN}/99_own", DEMO)
    assert root.run("-g", "demo").status == 0
    root.dpkg("--remove", "quendil")
    assert root.state() == "config-files"
    assert len(root.list(DATA)) == 1
    assert {"quendil.log", "quendil_hist.log"} <= set(root.list(LOG))
    assert root.list(PATTERN) == [*SHIPPED, "99_own"]
    assert not root.exists("opt/norvale")
    assert root.list("usr/sbin") == []


def test_a_removal_without_data_leaves_the_configuration_only(root: PrivateRoot, deb: Path):
    root.install(deb)
    root.dpkg("--remove", "quendil")
    assert [root.exists(name) for name in ("opt/norvale", "var/opt/norvale")] == [False, False]
    assert root.list(PATTERN) == SHIPPED
    root.install(deb)
    assert root.state() == "installed" and root.mode(DATA) == "0700"


def test_a_purge_keeps_collected_data_and_files_of_others_only(root: PrivateRoot, deb: Path):
    root.install(deb)
    root.file(f"{PATTERN}/99_own", DEMO)
    assert root.run("-g", "demo").status == 0
    root.dpkg("--purge", "quendil")
    assert root.state() == ""
    assert len(root.list(DATA)) == 1
    assert root.list("var/opt/norvale/quendil") == ["data"]
    assert root.list(PATTERN) == ["99_own"]


def test_a_purge_without_data_leaves_nothing(root: PrivateRoot, deb: Path):
    root.install(deb)
    root.file(f"{LOG}/quendil.log", "x")
    root.dpkg("--purge", "quendil")
    for name in ("opt", "var/opt", "etc/opt", "usr/sbin"):
        assert root.list(name) == []


def test_the_tools_are_installed_after_quendil_and_removed_before_it(
        root: PrivateRoot, deb: Path, tools_deb: Path):
    root.install(deb)
    assert not root.companions_run()
    root.install(tools_deb)
    assert root.state("quendil-tools") == "installed" and root.companions_run()
    refused = root.dpkg("--remove", "quendil", check=False)
    assert refused.status != 0 and "quendil-tools depends on quendil" in refused.stderr
    root.dpkg("--remove", "quendil-tools")
    assert root.state("quendil-tools") == ""
    assert [name for name in TOOLS if root.exists(name)] == []
    assert root.state() == "installed" and "usage:" in root.run("-h").stdout


def test_the_tools_are_not_installed_without_quendil(root: PrivateRoot, tools_deb: Path):
    refused = root.install(tools_deb, check=False)
    assert refused.status != 0 and "quendil-tools depends on quendil (>= " in refused.stderr


def test_the_tools_are_upgraded_with_quendil(root: PrivateRoot, deb: Path, tools_deb: Path,
                                             next_deb: Path):
    next_tools = only(BUILD / "packages-next", "deb", "quendil-tools")
    root.install(deb)
    root.install(tools_deb)
    root.install(next_deb)  # alone: the tools of the earlier version still have what they need
    assert root.companions_run()
    root.install(next_tools)
    assert root.companions_run() and root.state("quendil-tools") == "installed"


def test_a_purge_of_both_packages_leaves_nothing(root: PrivateRoot, deb: Path, tools_deb: Path):
    root.install(deb)
    root.install(tools_deb)
    root.dpkg("--purge", "quendil", "quendil-tools")
    assert [name for name in (*TOOLS, "opt/norvale", "etc/opt/norvale", "var/opt/norvale")
            if root.exists(name)] == []


# ---- Installation of the .rpms ------------------------------------------------------------------


def test_an_installed_rpm_collects_and_its_removal_keeps_what_is_not_its_own(root: PrivateRoot,
                                                                            rpm: Path):
    root.install_rpm(rpm)
    assert [root.mode(name) for name in (DATA, LOG, PROGRAM)] == ["0700", "0700", "0755"]
    root.file(f"{PATTERN}/99_own", DEMO)
    root.file(f"{PATTERN}/{SHIPPED[0]}", DEMO)
    assert root.run("-g", "demo").status == 0
    root.rpm("-e", "quendil")
    assert len(root.list(DATA)) == 1
    assert {"quendil.log", "quendil_hist.log"} <= set(root.list(LOG))
    assert root.list(PATTERN) == [f"{SHIPPED[0]}.rpmsave", "99_own"]
    assert not root.exists("opt/norvale")
    assert root.list("usr/sbin") == []


def test_the_new_version_of_an_edited_pattern_is_put_aside_by_the_rpm(root: PrivateRoot,
                                                                     rpm: Path):
    root.install_rpm(rpm)
    root.file(f"{PATTERN}/{SHIPPED[0]}.rpmnew", DEMO)
    root.script(output("rpm", "-qp", "--qf", "%{POSTTRANS}", rpm))
    assert root.list(PATTERN) == SHIPPED
    assert root.list(ASIDE) == [f"{SHIPPED[0]}.rpmnew"]


def test_the_rpm_of_the_tools_is_installed_after_quendil_and_removed_before_it(
        root: PrivateRoot, rpm: Path, tools_rpm: Path):
    assert set(root.missing_for_rpm(tools_rpm)) == needs(tools_rpm)
    root.install_rpm(rpm)
    assert root.missing_for_rpm(tools_rpm) == ["/bin/sh"]
    root.install_rpm(tools_rpm)
    assert root.companions_run()
    refused = root.rpm("-e", "quendil", check=False)
    assert refused.status != 0 and "needed by (installed) quendil-tools" in refused.stderr
    root.rpm("-e", "quendil-tools")
    assert [name for name in as_in_rpm(TOOLS) if root.exists(name)] == []
    assert "usage:" in root.run("-h").stdout


@pytest.mark.parametrize("names", [("quendil", "quendil-tools"), ("quendil-tools", "quendil")],
                         ids=["quendil_first", "tools_first"])
def test_erasing_both_rpms_leaves_nothing(root: PrivateRoot, rpm: Path, tools_rpm: Path,
                                          names: tuple[str, ...]):
    root.install_rpm(rpm)
    root.install_rpm(tools_rpm)
    root.rpm("-e", *names)  # rpm may take them in this order, because one recommends the other
    assert [name for name in (*as_in_rpm(TOOLS), "opt/norvale", "etc/opt/norvale",
                             "var/opt/norvale") if root.exists(name)] == []
