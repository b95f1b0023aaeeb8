"""quendil-report --overview: a page with a row for each result below a directory."""

from __future__ import annotations

import html
import os
import re
import stat
import subprocess
from pathlib import Path
from urllib.parse import unquote

import pytest
from support.reporting import (
    PATIENCE,
    REPORT,
    Files,
    Reported,
    make_archive,
    make_directory,
    memory,
    report,
    tar_bytes,
)

#: One critical finding: a failed unit.
FAILED: Files = {
    "service/failed_units.txt":
        "  UNIT          LOAD   ACTIVE SUB    DESCRIPTION\n"
        "* eater.service loaded failed failed /usr/bin/tail /dev/zero\n\n1 loaded units listed.\n",
}
QUIET: Files = {"service/failed_units.txt": "  UNIT LOAD ACTIVE SUB DESCRIPTION\n0 loaded units listed.\n"}


def overview(*arguments: str | Path, status: int = 0, **how) -> Reported:
    done = report("--overview", *arguments, **how)
    assert done.status == status, done.stderr
    return done


def rows(page: Path) -> list[list[str]]:
    """The texts of the cells of each row, as a reader sees them."""
    body = page.read_text().partition("<tbody>")[2].partition("</table>")[0]
    return [[html.unescape(re.sub(r"<[^>]*>", " ", cell)).strip()
             for cell in re.split(r"<t[dh][^>]*>", row)[1:]]
            for row in body.split("<tr>")[1:]]


def links(page: Path) -> list[str]:
    return [html.unescape(link) for link in re.findall(r'<a href="([^"]*)"', page.read_text())]


def squeezed(text: str) -> str:
    return " ".join(text.split())


def test_it_has_a_row_for_each_result_the_worst_first(tmp_path):
    make_archive(tmp_path, QUIET, "good_261123162538")
    (tmp_path / "a/b").mkdir(parents=True)
    make_archive(tmp_path / "a/b", FAILED, "bad_261123162538", gzip=False)
    directory = make_directory(tmp_path / "a", {**QUIET, "quendil_index": "quendil [Ver. 01-02]\n"},
                               "dir_261123162538")
    make_archive(directory, FAILED, "inside_261123162538")
    done = overview(tmp_path)
    assert (done.stdout, done.stderr) == (f"{tmp_path}/index.html\n", "")
    table = rows(tmp_path / "index.html")
    assert [row[0] for row in table] == ["bad", "dir", "good"]
    assert [row[2] for row in table] == ["not compressed", "not packed", "complete"]
    assert squeezed(table[0][1]) == "2026/11/23 16:25:38 quendil -g linux"
    assert squeezed(table[0][3]).startswith("1 critical")
    assert "Failed units" in table[0][3] and "Failed units" not in table[1][3]
    assert all(int(row[4]) > 0 for row in table)
    assert [row[6] for row in table] == [f"{tmp_path}/a/b/bad_261123162538.tar", str(directory),
                                         f"{tmp_path}/good_261123162538.tar.gz"]
    assert stat.S_IMODE((tmp_path / "index.html").stat().st_mode) == 0o600


def test_the_pages_of_the_results_are_made_and_linked(tmp_path):
    (tmp_path / "sub").mkdir()
    make_archive(tmp_path / "sub", FAILED, "one_261123162538")
    make_archive(tmp_path, QUIET, "two_261123162538")
    overview(tmp_path)
    found = links(tmp_path / "index.html")
    assert found == ["sub/one_261123162538.html", "two_261123162538.html"]
    for link in found:
        page = tmp_path / link
        assert "<title>" in page.read_text() and stat.S_IMODE(page.stat().st_mode) == 0o600
        alone = report("-o", tmp_path / "alone.html", page.with_suffix(".tar.gz"))
        assert alone.status == 0
        assert (tmp_path / "alone.html").read_bytes() == page.read_bytes()
        (tmp_path / "alone.html").unlink()


def cell(page: Path, archive: Path) -> str:
    """How the run of a result has ended, and why it has no page."""
    (row,) = [row for row in rows(page) if row[-1] == str(archive)]
    return squeezed(row[2])


def test_no_file_is_overwritten(tmp_path):
    archive = make_archive(tmp_path, QUIET, "one_261123162538")
    page = tmp_path / "one_261123162538.html"
    page.write_text("mine")
    index = tmp_path / "index.html"
    index.write_text("mine too")
    done = overview(tmp_path, status=2)
    assert done.stdout == "" and f"{index}: " in done.stderr
    other = tmp_path / "other.html"
    again = overview(tmp_path, "-o", other, status=1)
    reason = f"{page.name} was not made from this result as it is now"
    assert (again.stdout, again.stderr) == (
        f"{other}\n", f"quendil-report: {archive}: it has no page: {reason}\n")
    assert (page.read_text(), index.read_text()) == ("mine", "mine too")
    assert links(other) == [] and cell(other, archive) == f"complete No page: {reason}"


def test_a_page_is_linked_as_long_as_its_result_is_the_same(tmp_path):
    archive = make_archive(tmp_path, QUIET, "one_261123162538")
    directory = make_directory(tmp_path, {**QUIET, "quendil_index": "", "x": "1"}, "two_261123162538")
    assert report(archive).status == report(f"{directory}/").status == 0
    both = ["one_261123162538.html", "two_261123162538.html"]
    for number in range(2):
        index = tmp_path / f"{number}.html"
        overview(tmp_path, "-o", index)
        assert sorted(links(index)) == both
    make_archive(tmp_path, FAILED, "one_261123162538")
    (directory / "x").write_text("12")
    overview(tmp_path, "-o", tmp_path / "changed.html", status=1)
    assert links(tmp_path / "changed.html") == []
    for path in (archive, directory):
        assert cell(tmp_path / "changed.html", path).endswith(
            "was not made from this result as it is now")


def test_a_page_that_is_older_than_its_result_is_not_linked(tmp_path):
    archive = make_archive(tmp_path, QUIET, "one_261123162538")
    assert report(archive).status == 0
    page = tmp_path / "one_261123162538.html"
    for difference, status in ((0, 0), (-1, 1)):
        os.utime(page, ns=(0, archive.stat().st_mtime_ns + difference))
        index = tmp_path / f"{status}.html"
        overview(tmp_path, "-o", index, status=status)
        assert links(index) == ([] if status else [page.name])
    assert cell(index, archive) == f"complete No page: {page.name} is older than the result"


def test_an_archive_does_not_get_the_page_of_another_one(tmp_path):
    packed = make_archive(tmp_path, QUIET, "r")
    assert report(packed).stdout == f"{tmp_path}/r.html\n"
    plain = make_archive(tmp_path, QUIET, "r", gzip=False)
    overview(tmp_path, status=1)
    index = tmp_path / "index.html"
    assert links(index) == ["r.html"] and cell(index, packed) == "complete"
    assert cell(index, plain).endswith("No page: r.html was not made from this result as it is now")


@pytest.mark.parametrize("kind, reason", [
    ("link", " is a link"), ("dangling", " is a link"), ("fifo", " is no file"),
    ("directory", " is no file"), ("other's", " is a file of another user")])
def test_what_somebody_has_put_there_is_not_linked(tmp_path, kind, reason):
    (tmp_path / "in").mkdir()
    archive = make_archive(tmp_path / "in", QUIET, "a")
    page = tmp_path / "in/a.html"
    assert report(archive).status == 0  # a true page, but not at its place or not one's own
    if kind == "other's":
        if os.geteuid() != 0:
            pytest.skip("needs root")
        os.chown(page, 65534, 65534)
    else:
        page.rename(tmp_path / "true.html")
        if kind == "fifo":
            os.mkfifo(page)
        elif kind == "directory":
            page.mkdir()
        else:
            page.symlink_to(tmp_path / ("true.html" if kind == "link" else "nowhere"))
    overview(tmp_path / "in", status=1)
    index = tmp_path / "in/index.html"
    assert links(index) == [] and cell(index, archive) == f"complete No page: a.html{reason}"


def test_pages_that_cannot_be_completed_are_named(tmp_path):
    large = make_archive(tmp_path, {"a": os.urandom(300000)}, "large_261123162538")
    make_archive(tmp_path, QUIET, "small_261123162538")
    program = Path(os.environ["QUENDIL_STAGE"]) / REPORT
    done = subprocess.run(["/bin/sh", "-c", 'ulimit -f 200; exec "$@"', "sh", program, "--overview", tmp_path],
                          capture_output=True, text=True, check=False, timeout=PATIENCE)
    reason = "large_261123162538.html: File too large"
    assert (done.returncode, done.stdout) == (1, f"{tmp_path}/index.html\n")
    assert done.stderr == f"quendil-report: {large}: it has no page: {reason}\n"
    assert links(tmp_path / "index.html") == ["small_261123162538.html"]
    assert cell(tmp_path / "index.html", large) == f"complete No page: {reason}"


@pytest.mark.parametrize("path", [".", "../run_261123162538", "../run_261123162538/", "sub/.."])
def test_a_directory_that_is_a_result_itself_has_a_page_beside_it(tmp_path, path):
    directory = make_directory(tmp_path, {**QUIET, "quendil_index": "", "sub/x": ""}, "run_261123162538")
    overview(path, "-o", "../index.html", directory=directory)
    assert links(tmp_path / "index.html") == ["run_261123162538.html"]
    assert (tmp_path / "run_261123162538.html").is_file()


def test_a_page_that_cannot_be_made_is_not_linked(tmp_path):
    (tmp_path / "sub").mkdir()
    make_archive(tmp_path / "sub", QUIET, "one_261123162538")
    (tmp_path / "sub/one_261123162538.html").mkdir()
    overview(tmp_path, status=1)
    assert links(tmp_path / "index.html") == []
    assert len(rows(tmp_path / "index.html")) == 1


def test_two_results_do_not_share_a_page(tmp_path):
    make_archive(tmp_path, QUIET, "one_261123162538")
    make_archive(tmp_path, FAILED, "one_261123162538", gzip=False)
    named = make_archive(tmp_path, QUIET, "index")
    overview(tmp_path, status=1)
    assert cell(tmp_path / "index.html", named) == "complete No page: index.html is this overview"
    assert links(tmp_path / "index.html") == ["one_261123162538.html"]
    linked = [row for row in (tmp_path / "index.html").read_text().split("<tr>") if "<a " in row]
    assert len(linked) == 1 and "one_261123162538.tar<" in linked[0]
    assert len(rows(tmp_path / "index.html")) == 3


def test_a_bad_archive_has_a_row_and_ends_nothing(tmp_path):
    make_archive(tmp_path, FAILED, "z_261123162538")
    whole = tar_bytes({**QUIET, "log/x": "x" * 100000}, "cut_261123162538", gzip=False)
    (tmp_path / "cut.tar").write_bytes(whole[:20000])
    (tmp_path / "text.tar.gz").write_text("no archive\n")
    (tmp_path / "empty.tar").write_bytes(b"")
    (tmp_path / "other.tar").write_bytes(tar_bytes({"quendil.log": ""}, "x", gzip=False)
                                         .replace(b"quendil.log", b"somebody.log"))
    overview(tmp_path, status=1)
    table = {Path(row[-1]).name: row for row in rows(tmp_path / "index.html")}
    status = {name: squeezed(row[2]) for name, row in table.items()}
    assert status["z_261123162538.tar.gz"] == "complete"
    assert status["cut.tar"].startswith("damaged log/x could not be read to its end")
    assert status["text.tar.gz"].startswith("unreadable it is no tar archive")
    assert status["empty.tar"].startswith("unreadable ")
    assert len(table) == 5
    assert sorted(links(tmp_path / "index.html")) == ["cut.html", "z_261123162538.html"]
    assert "<b>4</b> damaged or no result" in (tmp_path / "index.html").read_text()


def test_an_archive_of_something_else_is_no_result(tmp_path):
    make_archive(tmp_path, QUIET, "z_261123162538")
    done = subprocess.run(["tar", "cf", tmp_path / "other.tar", "-C", "/etc", "hostname"], check=True)
    assert done.returncode == 0
    overview(tmp_path)
    row = next(row for row in rows(tmp_path / "index.html") if row[-1].endswith("other.tar"))
    assert squeezed(row[2]) == "no result of quendil it has neither quendil.log nor quendil_index"
    assert links(tmp_path / "index.html") == ["z_261123162538.html"]
    assert not (tmp_path / "other.html").exists()


def test_links_are_not_followed(tmp_path):
    outside = tmp_path / "outside"
    outside.mkdir()
    archive = make_archive(outside, QUIET, "one_261123162538")
    inside = tmp_path / "inside"
    inside.mkdir()
    make_archive(inside, QUIET, "two_261123162538")
    (inside / "link.tar.gz").symlink_to(archive)
    (inside / "directory").symlink_to(outside)
    overview(inside)
    assert [Path(row[-1]).name for row in rows(inside / "index.html")] == ["two_261123162538.tar.gz"]
    assert [path.name for path in outside.iterdir()] == [archive.name]


def test_hostile_names_and_contents_stay_texts(tmp_path):
    names = ['"><script>alert(1)</script>_261123162538', "javascript:alert(1)", "a?b#c%41&amp;",
             "\x1b]0;x\x07", "\u202e\u2028 x", "'onload='x"]
    for name in names:
        # A slash cannot be in the name of a file.
        make_archive(tmp_path, FAILED, name.replace("/", "\u2215"))
    (tmp_path / b"\xff\xfe.tar".decode("utf-8", "surrogateescape")).write_bytes(
        tar_bytes({"quendil.log": "ZEPA204-I:quendil argument is \"<b>\x1b[31m\".\n"},
                  "<img src=x onerror=alert(1)>", gzip=False))
    done = overview(tmp_path)
    assert not re.search(r"[\x00-\x08\x0b-\x1f\x7f-\x9f]", done.stdout + done.stderr)
    text = (tmp_path / "index.html").read_text()
    assert not re.search("[\x00-\x08\x0b-\x1f\x7f-\x9f\u202e\u2028]", text)
    tags = set(re.findall(r"<([a-z]\w*)", text.partition("<body>")[2]))
    assert tags <= {"header", "h1", "h2", "p", "main", "section", "ul", "li", "b", "table", "thead",
                    "tbody", "tr", "th", "td", "a", "small", "span", "footer"}
    assert "<script" not in text and "style=" not in text
    found = links(tmp_path / "index.html")
    assert len(found) == len(names) + 1
    for link in found:
        assert re.fullmatch(r"[A-Za-z0-9._~%-]+", link)
        assert (tmp_path / unquote(link, errors="surrogateescape")).is_file()


def test_the_policy_allows_nothing_but_its_styles(tmp_path):
    make_archive(tmp_path, QUIET)
    overview(tmp_path)
    text = (tmp_path / "index.html").read_text()
    policy = re.search(r'Content-Security-Policy content="([^"]*)"', text)
    assert policy is not None
    assert re.fullmatch(r"default-src 'none'; style-src( 'sha256-[A-Za-z0-9+/]{43}='){2}; "
                        r"base-uri 'none'; form-action 'none'", policy[1])
    assert "http" not in text.replace("http-equiv", "")


def test_an_index_elsewhere_links_to_the_pages(tmp_path):
    (tmp_path / "results").mkdir()
    (tmp_path / "page s").mkdir()
    make_archive(tmp_path / "results", QUIET)
    overview("results", "-o", "page s/x.html", directory=tmp_path)
    (link,) = links(tmp_path / "page s/x.html")
    assert link == "../results/vm_261123162538.html"
    assert (tmp_path / "page s" / link).is_file()


def test_rules_of_the_user_count_too(tmp_path):
    rules = tmp_path / "rules.json"
    rules.write_text("""{"version": 1, "rules": [{"name": "mine", "weight": "critical",
        "title": "My title", "text": "found", "remedy": "none", "items": "x.txt", "find": "y"}]}""")
    (tmp_path / "d").mkdir()
    make_archive(tmp_path / "d", {**QUIET, "x.txt": "y\n"})
    overview(f"--rules={rules}", tmp_path / "d")
    (row,) = rows(tmp_path / "d/index.html")
    assert "My title" in row[3]


def test_a_directory_without_a_result_gives_no_page(tmp_path):
    (tmp_path / "x.txt").write_text("")
    done = overview(tmp_path, status=2)
    assert done.stdout == "" and f"{tmp_path}: there is no result of a run" in done.stderr
    assert not (tmp_path / "index.html").exists()
    assert overview(tmp_path / "absent", status=2).stdout == ""


@pytest.mark.parametrize(("arguments", "message"), [
    (["--overview"], "--overview takes one directory"),
    (["--overview", ".", "."], "--overview takes one directory"),
    (["--overview", "--text", "."], "--overview makes a page"),
    (["--overview", "--json", "."], "--overview makes a page"),
    (["--overview", "--all", "."], "--all belongs to --diff"),
])
def test_wrong_usage_is_refused(tmp_path, arguments, message):
    done = report(*arguments, directory=tmp_path)
    assert (done.status, done.stdout) == (2, "")
    assert message in done.stderr
    assert list(tmp_path.iterdir()) == []


@pytest.mark.plain_binary
def test_its_memory_does_not_grow_with_the_archives(tmp_path):
    for number in range(8):
        make_archive(tmp_path, {f"log/{name}.txt": f"line {name} of a log\n" * 200000
                                for name in range(4)}, f"m{number}_261123162538")
    assert memory("--overview", tmp_path) < 64 * 1024
    assert len(rows(tmp_path / "index.html")) == 8
