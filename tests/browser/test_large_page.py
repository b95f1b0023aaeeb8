"""The page of a large archive: it stays usable, and what is left out is marked."""

from __future__ import annotations

from collections.abc import Iterator
from pathlib import Path

import pytest
from support.report_archive import Archive
from support.report_page import Page, make_page

LINES = 400_000
CUT_LINES = 120_000
SMALL_FILES = 3000


def line(number: int) -> str:
    return f"{number:07} {number * 2654435761 % 2**32:08x}"


@pytest.fixture(scope="module")
def made(tmp_path_factory: pytest.TempPathFactory) -> tuple[Path, Archive]:
    archive = Archive()
    for number in range(SMALL_FILES):
        archive.file(f"process/{number}/status", f"Pid: {number}\nName: daemon-{number % 7}\n",
                     f"State of process {number}")
    archive.file("log/big.txt", "".join(f"{line(i)}\n" for i in range(1, LINES + 1)), "A log")
    archive.finish()
    return make_page(archive, tmp_path_factory.mktemp("large")), archive


@pytest.fixture(scope="module")
def cut(tmp_path_factory: pytest.TempPathFactory) -> tuple[Path, Archive]:
    archive = Archive(host="cut")
    archive.file("log/big.txt", "".join(f"{line(i)}\n" for i in range(1, CUT_LINES + 1)))
    archive.file("log/small.txt", "one\ntwo\n")
    archive.finish()
    return make_page(archive, tmp_path_factory.mktemp("cut"), "--limit=1"), archive


@pytest.fixture
def page(browser, made: tuple[Path, Archive]) -> Iterator[Page]:
    page = Page(browser, *made)
    page.open()
    yield page
    assert page.problems() == []


@pytest.fixture
def cut_page(browser, cut: tuple[Path, Archive]) -> Iterator[Page]:
    page = Page(browser, *cut)
    page.open()
    yield page
    assert page.problems() == []


def test_every_item_opens_with_exactly_its_bytes(page: Page):
    assert page.contents() == {info.name.partition("/")[2]: content
                               for info, content in page.archive.members}


@pytest.mark.parametrize("number", [1, 49_999, 50_000, 50_001, 250_000, LINES])
def test_a_link_leads_to_any_line_of_a_large_file(page: Page, number: int):
    page.view(page.item("log/big.txt"), number)
    assert page.texts("#vb .m a") == [str(number)]
    assert page.texts("#vb .m code") == [line(number)]
    assert len(page.numbers()) < 3000


def test_rows_appear_as_one_scrolls(page: Page):
    page.view(page.item("log/big.txt"))
    page.run("document.getElementById('vb').scrollTop = 400000")
    page.wait(lambda: page.run(
        "const box = document.getElementById('vb').getBoundingClientRect();"
        "const node = document.elementFromPoint(box.left + 200, box.top + box.height / 2);"
        "return node.closest('.z > div') !== null"))
    assert len(page.numbers()) < 3000


def test_the_sections_of_a_large_file_follow_one_another(page: Page):
    page.view(page.item("log/big.txt"), 50_000)
    page.run("arguments[0].click()", page.all("#vb .turn")[-1])
    page.wait(lambda: page.numbers()[:1] == [50_001])
    page.run("arguments[0].click()", page.all("#vb .turn")[0])
    page.wait(lambda: page.numbers()[:1] == [1])


def test_the_search_ends_at_a_thousand_lines(page: Page):
    page.search("Pid")
    assert page.text("#hs") == "The first 1,000 lines, in 1,000 items. There are more."
    assert len(page.all("#hl li")) == 1000


def test_the_search_finds_a_line_far_within(page: Page):
    page.search(line(398_765))
    assert page.texts("#hl li a") == ["398765"]


def test_find_reaches_the_last_line(page: Page):
    page.view(page.item("log/big.txt"))
    page.one("#vf").send_keys(line(LINES))
    page.wait(lambda: page.status() == "1 of 1 line with it")
    assert page.texts("#vb .m a") == [str(LINES)]


def test_the_gap_of_a_cut_item_is_marked(cut_page: Page):
    content = cut_page.archive.content("log/big.txt")
    data = cut_page.run("return quendil.data")
    item, head, skipped, lines = data["cut"][0]
    assert item == cut_page.item("log/big.txt") and len(data["cut"]) == 1
    tail = data["sizes"][item] - head
    assert head + skipped + tail == len(content)
    assert content[head:head + skipped].count(b"\n") == lines
    bytes_ = cut_page.contents()["log/big.txt"]
    assert bytes_ == content[:head] + content[head + skipped:]
    cut_page.view(item, CUT_LINES // 2)
    assert cut_page.status() == f"Line {CUT_LINES // 2:,} is in the part that is left out."
    assert cut_page.text("#vb .gap") == (f"{skipped:,} bytes with {lines:,} line feeds are left "
                                         "out here: the page is limited.")


@pytest.mark.parametrize("number", [1, 100, CUT_LINES - 100, CUT_LINES])
def test_lines_beside_the_gap_have_their_numbers(cut_page: Page, number: int):
    cut_page.view(cut_page.item("log/big.txt"), number)
    assert cut_page.texts("#vb .m a") == [str(number)]
    assert cut_page.texts("#vb .m code") == [line(number)]
    assert cut_page.status() == f"Line {number:,} of {CUT_LINES:,} lines"


def test_the_search_knows_the_numbers_after_the_gap(cut_page: Page):
    cut_page.search(line(CUT_LINES - 5))
    assert cut_page.texts("#hl li a") == [str(CUT_LINES - 5)]


def test_an_item_within_the_limit_is_whole(cut_page: Page):
    cut_page.view(cut_page.item("log/small.txt"))
    assert cut_page.rows() == [b"one", b"two"]
    assert cut_page.all("#vb .gap") == []
