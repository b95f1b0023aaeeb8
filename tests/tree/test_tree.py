"""Checks of the tree itself: its layers, its form, and what the built programs may need."""

import json
import os
import re
import subprocess
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
BUILD = Path(os.environ.get("QUENDIL_BUILD", ROOT / "build"))

# The layers of src from which each layer may include files, besides itself.
BELOW = {
    "common/base": set(),
    "common/report": {"common/base"},
    "common/file": {"common/base", "common/report"},
}
COMMON = set(BELOW)
BELOW |= {
    "process": COMMON,
    "ini": COMMON,
    "collect": COMMON | {"ini", "process"},
    "main": COMMON | {"ini", "process", "collect"},
    "tool": COMMON,
    "companion": COMMON,
    "check": COMMON | {"ini", "process", "collect", "tool", "companion"},
    "view": COMMON | {"companion"},
}
# The layers of the companion commands, which may use what the collector does without.
COMPANIONS = {"companion", "check", "view"}
# The lowest layer reports failures with the messages of the next one.
REPORTS = "common/report/IGCmnMessage.h"
# Units that include each other: the messages allocate memory, and memory that runs out is a message.
CYCLES = [{"IGCmnMemory", "IGCmnMessage"}]

# The programs that are installed.
PROGRAMS = ["quendil", "quendil-check", "quendil-report", "escape", "mask", "show"]

# All that the signal handler may call: async-signal-safe functions and what the compiler itself adds.
HANDLER_MAY_CALL = {
    "kill",
    "waitid",
    "waitpid",
    "select",
    "sigaction",
    "__errno_location",
    "__stack_chk_fail",
    "_GLOBAL_OFFSET_TABLE_",
    # data of the run, not calls
    "run_state",
    "crnt_child",
}

def run(*command):
    return subprocess.run(command, capture_output=True, text=True, check=True, cwd=ROOT).stdout

def tracked(*patterns):
    # git accepts a repository of another user, such as the one who called sudo, only if it is named.
    return [ROOT / name for name in run("git", "--git-dir=.git", "ls-files", "--", *patterns).split()]

def sources():
    files = tracked("src/*.cpp", "src/*.h", "src/*.inc")
    assert files
    return files

def layer_of(path):
    return str(path.parent.relative_to(ROOT / "src"))

def included(path):
    return re.findall(r'^#include "([^"]+)"', path.read_text(), re.M)

def test_every_source_is_in_a_layer():
    assert {layer_of(path) for path in sources()} == set(BELOW)

@pytest.mark.parametrize("layer", BELOW)
def test_no_file_includes_one_from_a_layer_above_it(layer):
    files = [path for path in sources() if layer_of(path) == layer]
    assert files
    for path in files:
        above = {name for name in included(path)
                 if str(Path(name).parent) not in {layer, *BELOW[layer]}}
        assert above <= ({REPORTS} if layer == "common/base" else set()), path

def cycles(graph):
    """The groups of units that reach each other."""
    reached = {unit: set(next_ones) for unit, next_ones in graph.items()}
    changed = True
    while changed:
        changed = False
        for unit, units in reached.items():
            more = set().union(*(reached[other] for other in units)) - units
            units |= more
            changed = changed or bool(more)
    groups = {frozenset(other for other in reached[unit] if unit in reached[other])
              for unit in graph}
    return [set(group) for group in groups if len(group) > 1]

def test_no_units_include_each_other():
    graph = {}
    for path in sources():
        names = {Path(name).stem for name in included(path)}
        graph.setdefault(path.stem, set()).update(names - {path.stem})
    assert len(graph) > 80
    assert cycles(graph) == CYCLES

def test_the_sources_have_the_form_that_the_formatter_gives_them():
    code = tracked("src/*.cpp", "src/*.h", "tests/*.cpp", "tests/*.h", "tests/*.c")
    formatter = subprocess.run(
        ["clang-format", "--dry-run", "-Werror", *code], capture_output=True, text=True
    )
    assert formatter.returncode == 0, formatter.stderr

def test_the_collector_uses_no_exceptions_and_no_standard_containers():
    containers = re.compile(
        r"#include <(vector|string|map|set|list|deque|unordered_\w+|memory|functional|iostream)>"
        r"|\b(throw|catch|dynamic_cast|typeid)\b(?=.*[;({])"
    )
    for path in sources():
        code = re.sub(r"//.*", "", path.read_text())
        assert layer_of(path) in COMPANIONS or not containers.search(code), path

def test_the_collector_reads_no_environment_variable():
    for path in sources():
        if path.name == "IGMainRoot.cpp" or layer_of(path) in COMPANIONS:
            continue  # that one chooses which variables of another user's environment the tools get
        assert not re.search(r"\bgetenv\b|\benviron\b", path.read_text()), path

def test_the_signal_handler_calls_async_signal_safe_functions_only():
    library = BUILD / "release/src/libquendil_process.a"
    symbols = run("nm", "--format=posix", library)
    undefined, defined = set(), set()
    for unit in ("IGMainSignal", "IGCurrentChild"):
        for line in symbols.split(f"[{unit}.cpp.o]:")[1].split("[", 1)[0].splitlines():
            name, *kind = line.split() or [""]
            if kind:
                (undefined if kind[0] == "U" else defined).add(name)
    assert {"kill", "waitpid"} <= undefined  # the right objects were read
    assert undefined - defined <= HANDLER_MAY_CALL

@pytest.mark.parametrize("program", PROGRAMS)
def test_an_installed_binary_needs_only_the_c_library(program):
    dynamic = run("readelf", "-dW", BUILD / "release/src" / program)
    needed = set(re.findall(r"NEEDED.*\[(.*)\]", dynamic))
    needed -= {"ld-linux-x86-64.so.2", "ld-linux-aarch64.so.1", "libm.so.6"}  # parts of the C library
    assert needed == {"libc.so.6"}

@pytest.mark.parametrize("program", PROGRAMS)
def test_a_packed_binary_needs_no_library_and_no_loader(program):
    binary = BUILD / "portable/src" / program
    assert "NEEDED" not in run("readelf", "-dW", binary)
    segments = run("readelf", "-lW", binary)
    assert "INTERP" not in segments and "LOAD" in segments

@pytest.mark.parametrize("preset", ["release", "portable"])
@pytest.mark.parametrize("program", PROGRAMS)
def test_an_installed_binary_has_pie_relro_and_no_executable_stack(program, preset):
    binary = BUILD / preset / "src" / program
    assert re.search(r"FLAGS_1.* NOW PIE", run("readelf", "-dW", binary))
    segments = run("readelf", "-lW", binary)
    assert "GNU_RELRO" in segments and re.search(r"GNU_STACK .* RW  ", segments)

@pytest.mark.parametrize("program", PROGRAMS)
def test_an_installed_binary_runs_with_the_c_library_of_the_oldest_supported_system(program):
    versions = re.findall(
        r"\bGLIBC_(\d+)\.(\d+)", run("readelf", "-VW", BUILD / "release/src" / program)
    )
    assert versions
    assert max((int(major), int(minor)) for major, minor in versions) <= (2, 36)

def test_the_program_and_its_packages_have_the_same_version():
    of_packages = re.search(r"^project\(quendil VERSION (\d+)\.(\d+) ",
                            (ROOT / "CMakeLists.txt").read_text(), re.M)
    shown = re.search(r'QUENDIL_VERSION = "(\d\d)-(\d\d)";',
                      (ROOT / "src/common/report/IGCmnMessage.h").read_text())
    assert of_packages and shown
    assert [int(part) for part in of_packages.groups()] == [int(part) for part in shown.groups()]

def test_the_installed_binary_has_its_null_pointer_assertions():
    binary = (BUILD / "release/src/quendil").read_bytes()
    # No program calls the functions of this unit, so none links it.
    code = "".join(path.read_text() for path in sources() if path.name != "IGCmnUser.cpp")
    names = set(re.findall(r"IG_ASSERT_NOT_NULL\((\w+)\);", code))
    assert len(names) > 40
    for name in names:
        assert f"{name} != ((void *)0)".encode() in binary, name

def test_the_readme_names_the_commands_and_they_are_executable():
    readme = (ROOT / "README.md").read_text()
    for command in ("scripts/run", "scripts/test"):
        assert os.access(ROOT / command, os.X_OK)
        assert f"sudo {command}" in readme

def test_documents_name_existing_files_and_presets():
    places = "|".join(path.name for path in ROOT.iterdir() if path.is_dir() and path.name[0] != ".")
    presets = {row["name"] for row in json.loads((ROOT / "CMakePresets.json").read_text())[
        "configurePresets"]}
    for document in [ROOT / "README.md", ROOT / "CONTRIBUTING.md", *(ROOT / "docs").glob("*.md")]:
        text = document.read_text()
        links = re.findall(r"\]\(([^):#]+)\)", text)
        named = re.findall(rf"(?<![\w./])((?:{places})/[\w./-]*\w)", text)
        for name in [*(document.parent / link for link in links), *(ROOT / name for name in named)]:
            assert name.exists() or name.is_relative_to(ROOT / "build"), (document.name, name)
        assert set(re.findall(r"--preset (\w+)", text)) <= presets

def test_shell_scripts_are_clean():
    scripts = tracked("scripts/*", ".ci/run", "packaging/deb/*", "packaging/rpm/*",
                      "packaging/archive/*", "completions/*.bash",
                      "tools/*", "ansible/roles/collect/files/*", "docs/examples/upload", "docs/examples/receive",
                      "tests/soak/run", "tests/measure_coverage",
                      "tests/bare_machine", "tests/booted_machine", "tests/support/private_machine")
    scripts = [path for path in scripts if "python" not in path.read_text().partition("\n")[0]]
    assert len(scripts) > 8
    checked = subprocess.run(["shellcheck", "-x", *scripts], capture_output=True, text=True, cwd=ROOT)
    assert (checked.returncode, checked.stdout) == (0, "")

def test_no_test_file_is_long():
    files = tracked("tests/*.py", "tests/*.cpp", "tests/*.h", "tests/*.c")
    lengths = {str(path.relative_to(ROOT)): len(path.read_text().splitlines()) for path in files
               if path.is_file()}
    assert {name: lines for name, lines in lengths.items() if lines > 800} == {}
    assert len(lengths) > 100

def test_no_test_file_has_the_name_of_another_one():
    names = [path.name for path in tracked("tests/*.py") if path.name.startswith("test_")]
    assert sorted(names) == sorted(set(names))  # pytest can not load both


def test_no_test_has_the_name_of_another_one_in_its_file():
    for path in tracked("tests/*.py"):
        if path.is_file():
            names = re.findall(r"^def (test_\w+)", path.read_text(), re.M)
            assert len(set(names)) == len(names), path

def test_no_binary_file_is_tracked_but_pictures():
    for path in tracked():
        if path.is_file() and not path.match("docs/pictures/*.png"):
            assert b"\0" not in path.read_bytes(), path
