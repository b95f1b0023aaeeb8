"""Everything that the commands of this project use is in the packages that they install.

A developer's machine has far more than a minimal system, so a package that a command forgets to install is
missing only on another machine. These checks need no other machine: everything that is used
on this one must belong to a package that the command names, to one that such a package requires, or to a
minimal system. Recommended packages do not count, because the commands install none.
"""

from __future__ import annotations

import ast
import importlib.util
import os
import re
import shutil
import subprocess
import tempfile
from collections.abc import Iterator
from functools import cache
from pathlib import Path

import pytest
from support import shell_words
from support.packages import Packages, named_in, owners

ROOT = Path(__file__).resolve().parents[2]
BUILD = Path(os.environ.get("QUENDIL_BUILD", ROOT / "build"))
TESTS = ROOT / "tests"
BENCH = [*(ROOT / "bench").glob("*.py"), ROOT / "bench/run", ROOT / "bench/check"]

#: What each preset links: one program of every kind.
LINKED = {
    "release": ["src/quendil", "src/quendil-report"],
    "portable": ["src/quendil", "src/quendil-report"],
    "clang": ["src/quendil"],
    "sanitize": ["src/quendil", "tests/IGCmnStr_test", "tests/behave", "tests/fail_nth.so"],
    "fuzz": ["fuzz/fuzz_word"],
}

#: The commands, with the presets that each builds.
COMMANDS = {
    "scripts/run": ["release"],
    "scripts/package": ["portable"],
    "scripts/test": ["release", "portable", "clang", "sanitize", "fuzz"],
}

#: Programs that other programs start, and what the tests name in tables of their own.
STARTED_BY_BUILD = {"ld": "the compilers", "ar": "cmake", "ranlib": "cmake", "/bin/tar": "quendil",
                    "/bin/gzip": "quendil"}
STARTED_BY_CPACK = {name: "cpack" for name in ("dpkg-deb", "rpmbuild", "strip")}
STARTED_BY_TESTS = {
    "make": "scripts/test",
    "/usr/share/i18n/charmaps/ISO-8859-1.gz": "tests/package/test_install_script.py",
    "mandoc": "tests/tree/test_manual.py",
    "groff": "tests/tree/test_manual.py",
    "/usr/bin/sudo": "tests/support/fleet_host.py",
    **{name: "tests/cli/test_tool_run.py"
       for name in ("gawk", "busybox", "dash", "bash", "awk", "ss")},
    "sudo": "tests/harness/test_fleet.py",
    "ansible-playbook": "tests/fleet",
    **{name: "tests/fleet/test_object_storage.py" for name in ("curl", "rclone")},
    "/usr/share/i18n/locales/de_DE": "tests/cli/test_run_control.py",
    "/usr/share/locale/de/LC_MESSAGES/libc.mo": "tests/cli/test_run_control.py",
}
STARTED = {
    "scripts/run": STARTED_BY_BUILD,
    "scripts/package": STARTED_BY_BUILD | STARTED_BY_CPACK,
    "scripts/test": STARTED_BY_BUILD | STARTED_BY_CPACK | STARTED_BY_TESTS,
}

#: Used only where they are installed; nothing needs them.
NOT_NEEDED = {"sudo", "git", "systemctl"}

#: What may be there without a package of the distribution: tests that need it are skipped without it.
FROM_ELSEWHERE = {"npm", "node"}

#: Modules that no test imports, but that pytest's options need.
MODULES = {"xdist"}

#: The functions through which a test starts a program of this machine, or finds one.
STARTERS = {"run", "output", "subprocess.run", "subprocess.Popen", "shutil.which"}

Uses = dict[str, str]  # a path, or the name of a program that is not installed; and what uses it


# ---- What is used --------------------------------------------------------------------------------


def located(program: str) -> str:
    """A program's path, as the command itself would find it."""
    return shutil.which(program) or program


def programs_of_scripts(command: str) -> Uses:
    """The programs that the command's own script names, with those that it runs."""
    scripts = [ROOT / command, ROOT / "scripts/support.sh"]
    if command == "scripts/test":
        scripts += [ROOT / ".ci/run", TESTS / "support/private_machine"]
    functions = set(re.findall(r"^(\w+)\(\)", scripts[1].read_text(), re.M))
    return {located(program): str(script.relative_to(ROOT)) for script in scripts
            for program in shell_words.programs(script.read_text()) - functions - NOT_NEEDED}


def programs_of_cmake() -> Uses:
    """The programs that the build and the installation start by their names."""
    return {located(program): str(file.relative_to(ROOT)) for file in (ROOT / "cmake").iterdir()
            for program in re.findall(r"COMMAND ([a-z][\w-]*)\b", file.read_text())}


def programs_found_by_cmake(preset: str) -> Uses:
    """The programs that were found when a preset was configured."""
    names = "CMAKE_C_COMPILER|CMAKE_CXX_COMPILER|CMAKE_MAKE_PROGRAM|CLANG_TIDY|PKG_CONFIG_EXECUTABLE"
    cache_text = (BUILD / preset / "CMakeCache.txt").read_text()
    found = re.findall(rf"^(?:{names}):\w+=(.*)$", cache_text, re.M)
    assert len(found) >= 3, found
    return {located(path): f"build/{preset}" for path in found}


def headers(preset: str) -> Uses:
    """The headers that the compiler read, as it reported to ninja."""
    lines = output(BUILD / preset, "ninja", "-t", "deps").splitlines()
    paths = {os.path.normpath(line.strip()) for line in lines if line.startswith("    /")}
    found = {path: f"build/{preset}" for path in paths if not Path(path).is_relative_to(ROOT)}
    assert len(found) > 50, lines
    return found


def libraries(preset: str, target: str) -> Uses:
    """What the linker reads besides our own objects, and what the program loads when it starts."""
    directory = BUILD / preset
    link = output(directory, "ninja", "-t", "commands", target).splitlines()[-1]
    assert link.count(f" -o {target} ") == 1, link
    with tempfile.TemporaryDirectory() as scratch:
        traced = link.replace(f" -o {target} ", f" -o {scratch}/linked -Wl,--trace ")
        read = re.findall(r"^\(?(/[^()\s]+)", output(directory, "/bin/sh", "-c", traced), re.M)
    loaded = re.findall(r"(?:^|=> )\s*(/\S+) \(", output(directory, "ldd", target), re.M)
    assert any("libc" in path for path in read), traced
    return {os.path.normpath(path): f"build/{preset}/{target}" for path in (*read, *loaded)
            if not Path(path).is_relative_to(ROOT)}


def used_by_tests() -> Uses:
    """The programs that Python code of the tests starts, and the modules that it imports."""
    found: Uses = {}
    for file in [*TESTS.rglob("*.py"), ROOT / "scripts/item-table", *BENCH]:
        for node in ast.walk(ast.parse(file.read_text())):
            for path in (*started(node), *imported(node)):
                if Path(path).name not in FROM_ELSEWHERE:
                    found[path] = str(file.relative_to(ROOT))
    for name in MODULES:
        found[origin(name) or name] = "pytest"
    return found


def started(node: ast.AST) -> Iterator[str]:
    """The programs that a text names by a full path, or a call by the first of a command's words."""
    if isinstance(node, ast.Constant) and isinstance(node.value, str):
        if re.fullmatch(r"(/usr)?/s?bin/[\w.-]+", node.value):
            yield node.value
    elif isinstance(node, ast.Call) and node.args and ast.unparse(node.func) in STARTERS:
        word = node.args[0]
        if isinstance(word, (ast.List, ast.Tuple)) and word.elts:
            word = word.elts[0]
        if isinstance(word, ast.Constant) and re.fullmatch(r"[a-z][\w.+-]*", str(word.value)):
            yield located(word.value)


def imported(node: ast.AST) -> Iterator[str]:
    """The files of the modules that a statement imports, those of the project left out."""
    if isinstance(node, ast.Import):
        names = [alias.name for alias in node.names]
    elif isinstance(node, ast.ImportFrom) and node.level == 0 and node.module:
        names = [node.module]
    else:
        return
    for name in names:
        path = origin(name)
        if path and not Path(path).is_relative_to(ROOT):
            yield path


@cache
def origin(module: str) -> str | None:
    """The file of a module; None for one that is part of the interpreter."""
    found = importlib.util.find_spec(module)
    return found.origin if found and found.has_location else None


def output(directory: Path, *command: str) -> str:
    """What a command prints."""
    done = subprocess.run(command, capture_output=True, text=True, cwd=directory)
    assert done.returncode == 0, (command, done.stderr)
    return done.stdout


@cache
def uses(command: str) -> Uses:
    """Everything from outside that a command needs, by path."""
    found = {located(program): by for program, by in STARTED[command].items()}
    found |= programs_of_scripts(command) | programs_of_cmake()
    for preset in COMMANDS[command]:
        assert (BUILD / preset / "build.ninja").exists(), f"build the preset {preset} first: scripts/test"
        found |= programs_found_by_cmake(preset) | headers(preset)
        for target in LINKED[preset]:
            found |= libraries(preset, target)
    if command == "scripts/test":
        found |= used_by_tests()
    return found


# ---- To which package it belongs -----------------------------------------------------------------


def chosen(packages: Packages, names: list[str]) -> list[str]:
    """Of alternatives such as `a|b` the first that is installed, as the scripts choose."""
    return [next(filter(packages.is_installed, name.split("|")), name) for name in names]


def complaints(command: str, names: list[str], used: Uses) -> list[str]:
    """What a command uses and the named packages do not contain, in words."""
    packages = Packages()
    available = packages.minimal_system() | packages.with_dependencies(chosen(packages, names))
    said = []
    for path, belongs_to in sorted(owners(used).items()):
        what = f"{used[path]} uses {path}"
        if not os.path.exists(path):
            said.append(f"{what}, which is not on this machine")
        elif not belongs_to:
            said.append(f"{what}, which belongs to no package: install the distribution's own instead")
        elif not belongs_to & available:
            said.append(f"{what} of the package {' or '.join(sorted(belongs_to))}, "
                        f"which {command} neither names nor gets with one that it names")
    return said


@pytest.mark.parametrize("command", COMMANDS)
def test_what_a_command_uses_is_in_the_packages_that_it_names(command: str):
    said = complaints(command, named_in(ROOT / command), uses(command))
    assert not said, "\n".join(said)


@pytest.mark.parametrize("command", COMMANDS)
def test_a_package_that_a_command_does_not_name_is_reported(command: str):
    names = named_in(ROOT / command)
    names.remove("ninja-build")
    said = complaints(command, names, uses(command))
    assert any("ninja of the package ninja-build, which" in line for line in said), said


def test_what_belongs_to_no_package_is_reported(tmp_path: Path):
    own, missing = str(tmp_path / "own"), str(tmp_path / "missing")
    Path(own).touch()
    assert complaints("scripts/run", ["g++"], {own: "a", missing: "b", "/bin/sh": "c"}) == [
        f"b uses {missing}, which is not on this machine",
        f"a uses {own}, which belongs to no package: install the distribution's own instead"]


def test_no_package_is_named_for_nothing():
    packages = Packages()
    names = chosen(packages, named_in(ROOT / "scripts/test"))
    used = set().union(*owners(uses("scripts/test")).values())
    for name in names:
        others = packages.minimal_system() | packages.with_dependencies(set(names) - {name})
        own = packages.with_dependencies([name]) - others
        assert name in others or own & used, f"nothing uses {name}, or {__name__} does not know what"


@pytest.mark.parametrize("name, installed, known, missing", [
    ("a", "", "", "a"),
    ("a", "a", "", ""),
    ("a|b", "", "", "a"),  # a machine on which apt knows nothing yet
    ("a|b", "", "a b", "a"),
    ("a|b", "b", "a b", "a"),
    ("a|b", "", "b", "b"),
    ("a|b", "b", "b", ""),
    ("a|b", "a", "", ""),
])
def test_of_alternatives_the_first_that_the_distribution_has_is_installed(
        tmp_path: Path, name: str, installed: str, known: str, missing: str):
    for program, asked in (("dpkg-query", '" $INSTALLED " in *" $4 "*) echo installed ;; *) exit 1'),
                           ("apt-cache", '" $KNOWN " in *" $2 "*) ;; *) exit 1')):
        (tmp_path / program).write_text(f"#!/bin/sh\ncase {asked} ;; esac\n")
        (tmp_path / program).chmod(0o755)
    done = subprocess.run(
        ["/bin/sh", "-euc", '. scripts/support.sh; missing_packages "$1"', "sh", name],
        cwd=ROOT, capture_output=True, text=True, check=True,
        env={"PATH": f"{tmp_path}:/usr/bin:/bin", "INSTALLED": installed, "KNOWN": known})
    assert (done.stdout.split(), done.stderr) == (missing.split(), "")


def test_the_programs_of_a_shell_script_are_found():
    script = """#!/bin/sh
own() { first "$1" | second; }   # comment: none
variable=$(third "$(fourth 'it is; none')" | fifth >file 2>&1) || { sixth; exit 1; }
if ! seventh; then own none; fi
case $none in
    none | none) eighth ;;
esac
cat <<END
none; none
END
env NONE=none ninth none && exec /usr/bin/true; echo "none; none (none)" $(($(tenth) * 2))
"""
    assert shell_words.programs(script) == {
        "first", "second", "third", "fourth", "fifth", "sixth", "seventh", "eighth", "cat", "env",
        "ninth", "/usr/bin/true", "tenth"}
