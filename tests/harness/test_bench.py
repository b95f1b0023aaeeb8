"""The commands that measure the program: bench/run and bench/check."""

from __future__ import annotations

import fcntl
import gzip
import hashlib
import json
import os
import re
import signal
import subprocess
import sys
from collections.abc import Callable
from importlib.machinery import SourceFileLoader
from importlib.util import module_from_spec, spec_from_loader
from pathlib import Path
from types import ModuleType

import pytest
from support.machine import QUENDIL, environment_path
from support.run import wait_until

ROOT = Path(__file__).resolve().parents[2]
BENCH = ROOT / "bench"
sys.path += [str(BENCH), str(ROOT / "tests/support")]

import box  # noqa: E402
import data  # noqa: E402
import peak  # noqa: E402
import workloads  # noqa: E402

LOOP_CTL_GET_FREE = 0x4C82


def has_loop_devices() -> bool:
    """Whether this machine has a loop device to use, which a container may not have."""
    try:
        with open("/dev/loop-control", "rb") as control:
            return fcntl.ioctl(control, LOOP_CTL_GET_FREE) >= 0
    except OSError:
        return False


needs_loop_devices = pytest.mark.skipif(not has_loop_devices(), reason="there is no loop device")
needs_valgrind = pytest.mark.skipif(not os.access("/usr/bin/valgrind", os.X_OK),
                                    reason="valgrind is not installed")


def script(name: str) -> ModuleType:
    """A command of bench as a module."""
    loader = SourceFileLoader(f"bench_{name}", str(BENCH / name))
    spec = spec_from_loader(loader.name, loader)
    assert spec is not None
    module = module_from_spec(spec)
    loader.exec_module(module)
    return module


def bench(name: str, *arguments: str) -> subprocess.CompletedProcess[str]:
    """Runs a command of bench."""
    return subprocess.run([str(BENCH / name), *arguments], capture_output=True, text=True,
                          stdin=subprocess.DEVNULL, timeout=300)


@pytest.fixture
def stage() -> Path:
    """The tested installation."""
    return environment_path("QUENDIL_STAGE")


@pytest.fixture
def fake(tmp_path: Path) -> Callable[[str], str]:
    """Makes an installation whose program is a shell script; `$4` is its output directory."""
    def make(text: str) -> str:
        program = tmp_path / "stage" / QUENDIL.lstrip("/")
        program.parent.mkdir(parents=True)
        program.write_text(f"#!/bin/sh\nset -eu\n{text}\n")
        program.chmod(0o755)
        (tmp_path / "stage/etc/opt/norvale/quendil/pattern").mkdir(parents=True)
        return str(tmp_path / "stage")
    return make


def loop_devices_of(pid: int) -> list[str]:
    """The loop devices of a run of bench/run."""
    found = []
    for file in Path("/sys/block").glob("loop*/loop/backing_file"):
        try:
            if f"quendil-bench-{pid}." in file.read_text():
                found.append(str(file))
        except OSError:
            pass
    return found


def processes_below(pid: int) -> list[int]:
    """A process with all that it has started, as far as these have not lost their parent."""
    found = [pid]
    for parent in found:
        for file in Path(f"/proc/{parent}/task").glob("*/children"):
            found += [int(word) for word in file.read_text().split()]
    return found


# ---- The command line ----------------------------------------------------------------------------


@pytest.mark.parametrize("name, arguments", [
    ("run", ["nosuch"]), ("run", ["--rounds", "0"]), ("run", ["--rounds", "x"]),
    ("run", ["--scale", "-1"]), ("run", ["--goals", "--scale", "0.5"]), ("run", ["--wrong"]),
    ("check", ["word"]), ("check", ["--repeats", "0"]), ("check", ["--wrong"]),
])
def test_wrong_usage_is_reported(name: str, arguments: list[str]):
    done = bench(name, *arguments)
    assert (done.returncode, done.stdout) == (2, "")
    assert f"usage: bench/{name}" in done.stderr and f"bench/{name}: error: " in done.stderr


@pytest.mark.parametrize("name", ["run", "check"])
def test_help_names_every_option(name: str):
    done = bench(name, "--help")
    assert done.returncode == 0
    options = re.findall(r'add_argument\("(--\w+)', (BENCH / name).read_text())
    assert len(options) >= 3 and all(option in done.stdout for option in options)


def test_the_list_names_every_workload():
    done = bench("run", "--list")
    assert done.returncode == 0
    assert [line.split()[0] for line in done.stdout.splitlines()] == list(workloads.WORKLOADS)


@pytest.mark.parametrize("name", ["run", "check"])
def test_an_installation_without_the_program_is_reported(name: str, tmp_path: Path):
    done = bench(name, "--stage", str(tmp_path))
    assert (done.returncode, done.stdout) == (1, "")
    assert done.stderr == f"bench/{name}: {tmp_path} has no opt/norvale/quendil/bin/quendil\n"


def test_another_user_than_root_is_refused(monkeypatch: pytest.MonkeyPatch,
                                           capsys: pytest.CaptureFixture[str]):
    monkeypatch.setattr(os, "geteuid", lambda: 1000)
    with pytest.raises(SystemExit) as ended:
        box.require_root("bench/run")
    assert ended.value.code == 1 and "bench/run: run this as root" in capsys.readouterr().err


def test_the_document_has_every_figure_with_its_goal():
    rows = re.findall(r"^\| `([\w-]+)` \|.*\| ([^|]+) \|$",
                      (ROOT / "docs/performance.md").read_text(), re.MULTILINE)
    figures = [(one.name, f"{figure.goal:g} {figure.unit}".strip())
               for one in workloads.WORKLOADS.values() for figure in one.figures]
    assert rows == figures


# ---- Measuring -----------------------------------------------------------------------------------


@needs_loop_devices
def test_all_workloads_are_measured_and_nothing_is_left(stage: Path, tmp_path: Path):
    before = {tree: sorted(os.listdir(tree)) for tree in ("/opt", "/var/opt", "/etc/opt")}
    file = tmp_path / "figures.json"
    with subprocess.Popen(
            [str(BENCH / "run"), "--stage", str(stage), "--against", str(stage), "--scale", "0.002",
             "--rounds", "1", "--json", str(file), *workloads.WORKLOADS],
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True) as run:
        table = run.communicate(timeout=300)[0].splitlines()
    assert run.returncode == 0
    figures = [(one.name, figure.name) for one in workloads.WORKLOADS.values()
               for figure in one.figures]
    assert [line.split()[0] for line in table[2:]] == [name for name, _ in figures]
    works = json.loads(file.read_text())["works"]
    assert [(work, name) for work, result in works.items() for name in result["figures"]] == figures
    assert all(len(values) == 2 for result in works.values()
               for values in result["figures"].values())
    assert loop_devices_of(run.pid) == []
    mounts = Path("/proc/self/mounts").read_text()
    assert re.findall(r"^(?:bench|/dev/loop\d+) (/opt/bench.*)$", mounts, re.MULTILINE) == []
    assert {tree: sorted(os.listdir(tree)) for tree in before} == before


@needs_loop_devices
@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM, signal.SIGKILL])
def test_nothing_is_left_of_a_run_that_a_signal_ends(fake: Callable[[str], str],
                                                     number: signal.Signals):
    stage = fake("exec sleep 1000")
    with subprocess.Popen([str(BENCH / "run"), "small", "--stage", stage], stdin=subprocess.DEVNULL,
                          stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL) as run:
        wait_until(lambda: loop_devices_of(run.pid), 60, "a loop device")
        started = processes_below(run.pid)
        run.send_signal(number)
        status = run.wait(60)
    assert status == (-number if number == signal.SIGKILL else 128 + number)
    wait_until(lambda: not loop_devices_of(run.pid), 60, "the end of the loop device")
    wait_until(lambda: not any(os.path.exists(f"/proc/{pid}") for pid in started), 60,
               "the end of all processes")
    assert len(started) > 2


@needs_loop_devices
@pytest.mark.parametrize("text, says", [
    ("exit 3", "exit status 3, left []"),
    ("exit 0", "exit status 0, left []"),
    ("mkdir $4/data; cd $4; touch data/f; tar czf a.tar.gz data; rm -r data",
     "the archive has Files(count=0, size=0), expected Files(count=100, size=5242900)"),
    ("mkdir -p $4/x/opt/bench; cd $4; cp -r /opt/bench/data x/opt/bench;"
     " truncate -s 0 x/opt/bench/data/d0000/f000000.log; tar czf a.tar.gz x; rm -r x",
     "the archive has Files(count=100, size=5190471), expected"),
])
def test_a_program_that_does_not_collect_everything_is_not_measured(fake: Callable[[str], str],
                                                                   text: str, says: str):
    done = bench("run", "small", "--rounds", "1", "--stage", fake(text))
    assert done.returncode == 1 and says in done.stderr
    assert len(done.stdout.splitlines()) == 2  # what is measured, and the heads of the columns


#: Packs the data once and then gives the same archive again, far faster than tar and gzip.
FAST = """[ -e /tmp/a.tar.gz ] || tar -C / --transform s,^,x/, -czf /tmp/a.tar.gz opt/bench/data
cp /tmp/a.tar.gz $4"""


@needs_loop_devices
@pytest.mark.parametrize("text, status, last", [
    (FAST, 0, "small "), (f"{FAST}; sleep 3", 1, "not reached: small: ratio"),
])
def test_goals_are_checked_on_request(fake: Callable[[str], str], text: str, status: int,
                                      last: str):
    done = bench("run", "small", "--rounds", "1", "--goals", "--stage", fake(text))
    assert (done.returncode, done.stderr) == (status, "")
    assert done.stdout.splitlines()[-1].startswith(last)


def test_a_figure_is_the_median_of_its_values_in_each_round():
    rounds = [workloads.Round(1, 2), workloads.Round(2, 10), workloads.Round(10, 30)]
    assert workloads.ratio(1).value(rounds) == 3
    assert workloads.cost(10, 1).value(rounds) == 0.3
    assert workloads.extra("x", "ms", 1).value(rounds) == 8000


# ---- The data ------------------------------------------------------------------------------------


def content(top: Path) -> str:
    """A digest of all files below a directory, with their names."""
    digest = hashlib.sha256()
    for path in sorted(top.rglob("*")):
        digest.update(f"{path.relative_to(top)}\n".encode())
        if path.is_file():
            digest.update(path.read_bytes())
    return digest.hexdigest()


def test_the_data_is_the_same_each_time(tmp_path: Path):
    assert data.make_tree(tmp_path / "tree", 7, 100_000, 3) == data.Files(7, 700_000)
    assert sorted(os.listdir(tmp_path / "tree")) == ["d0000", "d0001", "d0002"]
    assert data.make_chain(tmp_path / "chain", 3, 2, 500) == data.Files(6, 3000)
    assert len(list((tmp_path / "chain/d/d/d").iterdir())) == 2
    assert content(tmp_path) == (
        "46d8403241c9b8a3a9ab209dd4d0fa303a3bcb6c6710e904e6dca23acc03380b")


def test_the_data_compresses_like_logs():
    text = data.LogText().take(1 << 20)
    assert 4 < len(text) / len(gzip.compress(text, 6)) < 8


def test_the_text_begins_again_after_its_end():
    text = data.LogText(size=1000).take(5000)
    again = text.index(text[:900], 1)
    assert 1000 <= again < 1200 and text == (text[:again] * 5)[:5000]


# ---- Memory --------------------------------------------------------------------------------------


@pytest.mark.parametrize("command, least, most", [
    (["/bin/dd", "if=/dev/zero", "of=/dev/null", "bs=64M", "count=1"], 64, 72),
    (["/bin/sh", "-c", "/bin/dd if=/dev/zero of=/dev/null bs=64M count=1; exit 0"], 0, 8),
])
def test_the_peak_memory_is_that_of_the_process_alone(command: list[str], least: int, most: int):
    held = bytearray(100 << 20)  # what this process has must not count either
    with open(os.devnull, "wb") as output:
        status, kib = peak.run_measured(command, {}, output.fileno())
    assert status == 0 and least <= kib / 1024 <= most and len(held) > 0


@pytest.mark.parametrize("line, status", [("exit 3", 3), ("kill -s TERM $$", -15)])
def test_the_end_of_a_measured_process_is_its_own(line: str, status: int):
    with open(os.devnull, "wb") as output:
        assert peak.run_measured(["/bin/sh", "-c", line], {}, output.fileno())[0] == status


# ---- Instructions --------------------------------------------------------------------------------


@needs_valgrind
def test_instructions_are_compared_with_recorded_numbers(stage: Path, tmp_path: Path):
    file = tmp_path / "numbers.json"
    done = bench("check", "--stage", str(stage), "--record", "--file", str(file))
    assert (done.returncode, done.stderr) == (0, "")
    record = json.loads(file.read_text())
    assert list(record["instructions"]) == list(workloads.COUNTED)
    assert min(record["instructions"].values()) > 1_000_000
    record["instructions"]["files"] = round(record["instructions"]["files"] / 1.05)
    record["instructions"]["items"] = round(record["instructions"]["items"] * 1.05)
    record["compiler"] = "another one"
    file.write_text(json.dumps(record))
    done = bench("check", "--stage", str(stage), "--file", str(file))
    lines = done.stdout.splitlines()
    assert (done.returncode, done.stderr) == (1, "")
    assert lines[0].startswith("the compiler differs, so the numbers may differ too: ")
    assert [line.split()[0] for line in lines[1:4]] == list(workloads.COUNTED)
    assert re.match(r"files: [45][.]\d % more instructions than recorded ", lines[4])
    assert re.match(r"items: [45][.]\d % fewer instructions than recorded ", lines[5])
    assert len(lines) == 6


@pytest.mark.parametrize("number, error", [
    (1000, None), (1030, None), (970, None),
    (1031, "x: 3.1 % more instructions than recorded (1,031, recorded 1,000)"),
    (969, "x: 3.1 % fewer instructions than recorded (969, recorded 1,000)"),
])
def test_three_percent_are_allowed(number: int, error: str | None):
    assert script("check").compare("x", number, 1000) == error


def test_a_run_without_a_recorded_number_is_an_error():
    assert script("check").compare("x", 1, None) == "x: no number is recorded"


def test_numbers_are_recorded_for_every_counted_run():
    record = json.loads((BENCH / "instructions.json").read_text())
    assert list(record) == ["compiler", "library", "processor", "instructions"]
    assert list(record["instructions"]) == list(workloads.COUNTED)
