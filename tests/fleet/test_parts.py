"""The parts of the collection that meet what a host sends, without a host."""

from __future__ import annotations

import gzip
import importlib
import io
import json
import resource
import signal
import subprocess
import sys
import tarfile
import time
from collections.abc import Callable, Iterator
from pathlib import Path
from types import ModuleType

import pytest
from support.fleet import ROOT

@pytest.fixture(scope="module")
def parts(tmp_path_factory: pytest.TempPathFactory) -> Iterator[Callable[[str], ModuleType]]:
    """Imports a module of the collection. Not under the name that it has for Ansible, whose loader would want to
    know the whole collection."""
    root = tmp_path_factory.mktemp("parts")
    (root / "collection_parts").symlink_to(ROOT / "ansible/plugins/plugin_utils")
    sys.path.insert(0, str(root))
    yield lambda name: importlib.import_module(f"collection_parts.{name}")
    sys.path.remove(str(root))


@pytest.fixture
def archive(parts) -> ModuleType:
    return parts("archive")


@pytest.fixture
def host(parts) -> ModuleType:
    return parts("host")


@pytest.fixture
def store(parts) -> ModuleType:
    return parts("store")


@pytest.fixture
def bounds(parts) -> ModuleType:
    return parts("bounds")


# ---- Archives ----------------------------------------------------------------------------------------


def tar_of(*names: str, size: int = 5) -> bytes:
    """A tar with files of these names."""
    out = io.BytesIO()
    with tarfile.open(fileobj=out, mode="w", format=tarfile.GNU_FORMAT) as tar:
        for name in names:
            member = tarfile.TarInfo(name)
            member.size = size
            tar.addfile(member, io.BytesIO(b"x" * size))
    return out.getvalue()


GOOD = tar_of("run/quendil_index", "run/" + "long/" * 50 + "name", "run/file")


def judged(archive: ModuleType, path: Path, content: bytes, name: str = "a.tar.gz", limit: int = 1 << 30) -> str:
    """What is said of an archive; empty if it is good."""
    path.write_bytes(content)
    try:
        archive.verify(path, name, limit)
    except archive.Damaged as damage:
        return str(damage)
    return ""


def test_a_good_archive_is_good(archive, tmp_path):
    assert judged(archive, tmp_path / "a", gzip.compress(GOOD)) == ""
    assert judged(archive, tmp_path / "a", GOOD, "a.tar") == ""


def test_every_byte_of_a_compressed_archive_counts(archive, tmp_path):
    good = gzip.compress(GOOD, mtime=0)
    for place in range(10, len(good)):  # before that are flags and times, which hold nothing
        bad = good[:place] + bytes([good[place] ^ 0x41]) + good[place + 1:]
        assert judged(archive, tmp_path / "a", bad), place
    for length in range(len(good)):
        assert judged(archive, tmp_path / "a", good[:length]), length


def test_a_tar_that_is_cut_is_damaged(archive, tmp_path):
    end = len(GOOD.rstrip(b"\0"))
    for length in range(0, end, 100):
        assert judged(archive, tmp_path / "a", GOOD[:length], "a.tar") == "it ends too early"


@pytest.mark.parametrize("content, said", [
    (tar_of("run/file"), "it has no index"),
    (tar_of("quendil_index"), "it has no index"),
    (tar_of("a/b/quendil_index"), "it has no index"),
    (GOOD[:150] + b"9" + GOOD[151:], "a header is damaged"),
    (b"\x01" * 1024, "a header is damaged"),
    (GOOD[:124] + b"\x80" + b"\xff" * 11 + GOOD[136:], "a header is damaged"),
    (b"", "it ends too early"),
], ids=map(str, range(7)))
def test_what_is_no_archive_is_refused(archive, tmp_path, content, said):
    assert judged(archive, tmp_path / "a", content, "a.tar") == said


def test_a_size_of_many_exabytes_ends_with_the_file(archive, tmp_path):
    header = bytearray(GOOD[:512])
    header[124:136] = b"\x80" + b"\x7f" * 11
    header[148:156] = b"%06o\0 " % (sum(header[:148]) + sum(header[156:]) + 256)
    assert judged(archive, tmp_path / "a", bytes(header) + bytes(4096), "a.tar") == "it ends too early"


def test_a_bomb_is_given_up_at_its_limit(archive, tmp_path):
    bomb = gzip.compress(tar_of("run/quendil_index", size=50 << 20))
    assert len(bomb) < 100_000
    assert judged(archive, tmp_path / "a", bomb, limit=len(bomb) * 10) == "it is larger than an archive may be"


def test_an_encrypted_archive_is_encrypted(archive, tmp_path):
    assert judged(archive, tmp_path / "a", b"age-encryption.org/v1\n-> X", "a.tar.gz.age") == ""
    assert judged(archive, tmp_path / "a", gzip.compress(GOOD), "a.tar.gz.age") == "it is not encrypted"


@pytest.mark.parametrize("name", ["web_261123001724.tar.gz", "web-01.local_261123001724_2.tar",
                                  "a_261123001724.tar.gz.age"])
def test_names_of_results_are_accepted(archive, name):
    assert archive.NAME.fullmatch(name)


@pytest.mark.parametrize("name", [
    "", ".", "..", "x", ".x_261123001724.tar", "-x_261123001724.tar", "a b_261123001724.tar",
    "x_261123001724.tar\n", "x/y_261123001724.tar", "x_261123001724.tgz", "x_26112300172.tar",
    "é_261123001724.tar", "x" * 300 + "_261123001724.tar"])
def test_other_names_are_not(archive, name):
    assert not archive.NAME.fullmatch(name)


# ---- Answers -----------------------------------------------------------------------------------------


def test_an_answer_is_read_whatever_the_login_shell_prints(host):
    text = "Welcome\r\n\r\nquendil state finished\r\nquendil bytes 12\nquendil cause two words \nquendil end\nmore"
    assert host.parsed(text) == {"state": "finished", "bytes": 12, "cause": "two words"}


@pytest.mark.parametrize("text, said", [
    ("", "no complete answer: nothing"),
    ("quendil state finished\n", "no complete answer: quendil state finished"),
    ("quendil state stopped\nquendil end", "strange answer: quendil state stopped"),
    ("quendil bytes -1\nquendil end", "strange answer"),
    ("quendil bytes 1234567890123456\nquendil end", "strange answer"),
    ("quendil other 1\nquendil end", "strange answer"),
    ("quendil cause \x1b[2J\nquendil end", "strange answer: quendil cause ?[2J"),
    ("quendil cause " + "x" * 1501 + "\nquendil end", "strange answer"),
    ("quendil path relative\nquendil end", "strange answer"),
    ("\x1b" * 300, "no complete answer: " + "?" * 200),
], ids=str.split("empty cut state negative long_number key control long relative garbage"))
def test_any_other_answer_is_refused(host, text, said):
    with pytest.raises(host.Failed, match="^the host has given") as failure:
        host.parsed(text)
    assert said in str(failure.value)


@pytest.mark.parametrize("work, request_, said", [
    ("relative", "r", "work_directory"), ("/a/../b", "r", "work_directory"), ("/a/", "r", "work_directory"),
    ("/a\nb", "r", "work_directory"), ("/a", "", "request"), ("/a", "../x", "request"),
    ("/a", ".x", "request"), ("/a", "x/y", "request"), ("/a", "x" * 65, "request")])
def test_names_that_could_lead_elsewhere_are_refused(host, work, request_, said):
    with pytest.raises(host.Failed, match=said):
        host.request_settings({"work_directory": work, "request": request_})


def test_a_shell_reads_back_what_was_quoted(host, tmp_path):
    value = "it's \"a\" $(text) `of`\nlines \\ ; * ?"
    text = host.script_text('printf "%s|" "$step" "$value" "$@"', {"step": "x", "value": value}, ["-g", value])
    done = subprocess.run(["sh", "-c", 'eval "$(cat)"'], input=text, capture_output=True, text=True, check=True)
    assert done.stdout == f"x|{value}|-g|{value}|"


# ---- Results -----------------------------------------------------------------------------------------


@pytest.mark.parametrize("name, directory", [
    ("web01.example", "web01.example"), ("..", "%2E."), (".x", "%2Ex"), ("a/b", "a%2Fb"), ("a%2Fb", "a%252Fb"),
    ("ü", "%C3%BC"), ("fe80::1", "fe80%3A%3A1"), ("a\nb", "a%0Ab")])
def test_every_host_has_a_directory_of_its_own(store, name, directory):
    assert store.host_name(name) == directory


def test_the_last_line_of_a_host_counts_and_others_are_left_out(store, tmp_path):
    lines = [{"host": "a", "status": "failed"}, {"host": "ab", "status": "ok"}, {"host": "a", "status": "ok"}]
    for record in lines:
        store.append(tmp_path, record)
    results = tmp_path / "results.jsonl"
    assert results.stat().st_mode & 0o777 == 0o600
    with results.open("a") as file:
        file.write('[1]\n{"host": 1}\n{"host": "a", "sta')
    assert store.last_of(tmp_path) == {"a": lines[2], "ab": lines[1]}
    assert store.last_of(tmp_path, "a") == {"a": lines[2]}
    store.rewrite(tmp_path, store.last_of(tmp_path))
    assert [json.loads(line) for line in results.read_text().splitlines()] == [lines[2], lines[1]]
    assert sorted(path.name for path in tmp_path.iterdir()) == [".lock", "results.jsonl"]


def test_a_line_that_a_full_disk_has_cut_off_costs_no_other_one(store, tmp_path):
    (tmp_path / "results.jsonl").write_text('{"host": "a", "sta')
    store.append(tmp_path, {"host": "b"})
    store.append(tmp_path, {"host": "c"})
    assert store.last_of(tmp_path) == {"b": {"host": "b"}, "c": {"host": "c"}}


def test_the_directory_of_a_request_is_private(store, tmp_path):
    path = Path(store.request_directory({"destination": str(tmp_path / "a/b"), "request": "r"}))
    assert path == tmp_path / "a/b/r"
    assert path.stat().st_mode & 0o777 == 0o700


# ---- Bounds ------------------------------------------------------------------------------------------


def test_work_ends_at_its_deadline_with_what_it_has_started(bounds):
    began = time.monotonic()
    others = bounds.children()  # such as those of other tests' fixtures
    with pytest.raises(bounds.TooLate):
        with bounds.deadline(1):
            child = subprocess.Popen(["sleep", "600"])
            child.wait()
    assert time.monotonic() - began < 30
    assert sorted(bounds.children()) == sorted(others)
    assert signal.alarm(0) == 0


@pytest.mark.parametrize("seconds", [100, 900])
def test_the_alarm_of_a_task_is_kept(bounds, seconds):
    def ring(*_: object) -> None:
        """Never called."""

    former = signal.signal(signal.SIGALRM, ring)
    try:
        signal.alarm(500)
        with bounds.deadline(seconds):
            assert (signal.getsignal(signal.SIGALRM) is ring) == (seconds > 500)
            assert signal.getitimer(signal.ITIMER_REAL)[0] <= min(seconds, 500)
        assert signal.getsignal(signal.SIGALRM) is ring
        assert 400 < signal.getitimer(signal.ITIMER_REAL)[0] <= 500
    finally:
        signal.alarm(0)
        signal.signal(signal.SIGALRM, former)


def test_work_that_catches_everything_ends_too(bounds):
    began = time.monotonic()
    with pytest.raises(bounds.TooLate):
        with bounds.deadline(0.2):
            while True:
                try:
                    time.sleep(600)
                except Exception:
                    pass
    assert time.monotonic() - began < 30


def test_a_file_ends_at_its_size(bounds, tmp_path):
    with bounds.file_bounds(60, 1000):
        done = subprocess.run(["dd", "if=/dev/zero", f"of={tmp_path}/file", "bs=100", "count=100"],
                              capture_output=True)
    assert done.returncode != 0
    assert (tmp_path / "file").stat().st_size == 1000
    assert resource.getrlimit(resource.RLIMIT_FSIZE)[0] == resource.RLIM_INFINITY


def test_an_answer_without_end_does_not_take_all_memory(bounds):
    code = """if True:
        from collection_parts import bounds
        with bounds.answer_bounds(60):
            kept = bytearray(bounds.ANSWER_BYTES // 2)
            try:
                bytearray(bounds.ANSWER_BYTES)
            except MemoryError:
                print("no more")
        bytearray(bounds.ANSWER_BYTES)
    """
    done = subprocess.run([sys.executable, "-B", "-c", code], capture_output=True, text=True,
                          env={"PYTHONPATH": str(Path(bounds.__file__).parents[1])})
    assert (done.returncode, done.stdout) == (0, "no more\n"), done.stderr
