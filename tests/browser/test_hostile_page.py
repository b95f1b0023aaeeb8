"""The page of an archive from a hostile machine: everything is text."""

from __future__ import annotations

import tarfile
from collections.abc import Iterator
from pathlib import Path

import pytest
from support.report_archive import Archive, Tool
from support.report_page import Page, make_page

# Each would do something if it were markup, a script, or a character of a terminal or of a text that
# runs from right to left.
ATTACKS = {
    "image": b'"><img src=x onerror=alert(1)>',
    "single": b"'><svg onload=alert(2)>",
    "script": b"</script><script>alert(3)</script>",
    "style": b"</style><script>document.title='taken'</script>",
    "title": b"</title><title>taken</title>",
    "comment": b"<!-- <script> --> <!--> ]]> -->",
    "entity": b"&lt;script&gt;&#60;b&#62;&amp;amp;",
    "template": b"${alert(4)}`{{7*7}}",
    "terminal": b"\x1b]0;taken\x07\x1b[31mred\x1b[0m\x7f",
    "bidi": "safe\u202egnp.exe\u2066\u2069\u200f\u061c".encode(),
    "separators": "one\u2028two\u2029three\ufeff\x85".encode(),
    "invalid": b"\xff\xfe\xc3\x28 \xe2\x82 \xed\xa0\x80 \xf8\x88\x80\x80\x80 \xc0\xaf \xf4\x90\x80\x80",
    "tags": "hidden\U000e0041\U000e007f\ufff9".encode(),
    "json": b'"],"sizes":[9999999999]}',
    "base": b"<base href=https://example.org/><meta http-equiv=refresh content=0;url=//example.org>",
    "link": b"<a href=javascript:alert(5)>press</a> https://example.org/",
}
CONTENT = b"".join(attack + b"\n" for attack in ATTACKS.values())
NULS = bytes(range(256)) * 20
LONG = b"<b>" + b"x\xffy\x00" * 524288 + b"needle at the end</b>"  # one line of 2 MiB


def hostile_archive() -> Archive:
    # What the run writes into an index or a log is escaped there; a machine can write anything.
    archive = Archive(host="<b>'host'&")
    archive.member(archive.top + "/", tarfile.DIRTYPE)
    for name, attack in ATTACKS.items():
        text = attack.replace(b"/", b"|")  # a name has no other limit, but NUL
        archive.member(f"{archive.top}/names/{text.decode(errors='surrogateescape')}",
                       content=name.encode())
        archive.file(f"contents/{name}.txt", attack, "Attack")
    archive.file("contents/all.txt", CONTENT, "<img src=x onerror=alert(6)>")
    archive.file("contents/nuls", NULS)
    archive.file("contents/long", LONG)
    archive.member("/etc/absolute", content=b"absolute")
    archive.member("../../outside", content=b"outside")
    archive.member(f"{archive.top}/../inside", content=b"inside")
    archive.member(f"{archive.top}/links/symbolic", tarfile.SYMTYPE, target="/etc/passwd<b>")
    archive.member(f"{archive.top}/links/hard", tarfile.LNKTYPE,
                   target=f"{archive.top}/contents/all.txt")
    archive.member(f"{archive.top}/devices/null", tarfile.CHRTYPE)
    archive.member(f"{archive.top}/devices/fifo", tarfile.FIFOTYPE)
    archive.finish([Tool(attack.decode(errors="surrogateescape").replace("\n", " "), seconds=1)
                    for attack in ()], [])
    return archive


@pytest.fixture(scope="module")
def made(tmp_path_factory: pytest.TempPathFactory) -> tuple[Path, Archive]:
    archive = hostile_archive()
    log = "".join(
        'ZEPA206-I:Information collecting tool start.\n'
        f'    Command  = "{attack.decode("latin-1")}"\n    Start time = 2026/11/23 16:25:38\n'
        f'    Timeout = 10\nZEPA129-W:A system information({attack.decode("latin-1")}) is not found.\n'
        for attack in ATTACKS.values())
    info, content = archive.members[-1]
    content += log.encode("latin-1")
    info.size = len(content)
    archive.members[-1] = (info, content)
    return make_page(archive, tmp_path_factory.mktemp("hostile")), archive


@pytest.fixture
def page(browser, made: tuple[Path, Archive]) -> Iterator[Page]:
    page = Page(browser, *made)
    page.scheme("light")
    page.open()
    yield page
    assert page.problems() == []
    assert page.browser.title == "<b>'host'& - quendil report"


def test_no_text_becomes_markup(page: Page):
    elements = page.run("return [...new Set([...document.querySelectorAll('*')]"
                        ".map((node) => node.localName))]")
    assert set(elements).isdisjoint({"img", "iframe", "object", "embed", "base", "template"})
    assert page.run("return document.querySelectorAll('title').length") == 1
    assert page.run("return document.querySelectorAll('meta[http-equiv=refresh]').length") == 0
    assert page.run("return [...document.querySelectorAll('a')].map((node) =>"
                    "node.getAttribute('href')).filter((to) => !/^#/.test(to))") == []


def test_no_element_has_a_script_or_a_style_of_its_own(page: Page):
    assert page.run(
        "return [...document.querySelectorAll('*')].flatMap((node) => node.getAttributeNames())"
        ".filter((name) => name.startsWith('on') || name === 'style')") == []


def test_the_policy_allows_nothing_but_the_page_itself(page: Page):
    policy = page.run("return document.querySelector('meta[http-equiv]').content")
    parts = dict(part.strip().split(" ", 1) for part in policy.split(";"))
    assert set(parts) == {"default-src", "script-src", "style-src", "base-uri", "form-action"}
    assert parts["default-src"] == parts["base-uri"] == parts["form-action"] == "'none'"
    for source in (parts["script-src"] + " " + parts["style-src"]).split():
        assert source.startswith("'sha256-"), source


def test_a_script_of_another_origin_of_text_does_not_run(page: Page):
    page.run("const script = document.createElement('script');"
             "script.textContent = 'document.title = 1'; document.body.append(script);")
    refused = [entry for entry in page.browser.get_log("browser")
               if "Content Security Policy" in entry["message"]]
    assert len(refused) == 1


def test_no_character_is_invisible(page: Page):
    found = page.run(
        "return document.documentElement.outerHTML.match("
        "/[\\x00-\\x08\\x0b-\\x1f\\x7f-\\x9f\\u061c\\u200e\\u200f\\u2028-\\u202e\\u2066-\\u2069"
        "\\ufeff\\ufffd]/g)")
    assert found is None


def test_every_item_opens_with_exactly_its_bytes(page: Page):
    contents = sorted(page.contents().values())
    assert contents == sorted(content for info, content in page.archive.members if info.isreg())


@pytest.mark.parametrize("name", ATTACKS)
def test_an_attack_is_shown_as_text(page: Page, name: str):
    page.view(page.item(f"contents/{name}.txt"))
    assert page.rows() == [ATTACKS[name]]
    marks = page.texts("#vb .z s")
    hidden = name in ("terminal", "bidi", "separators", "invalid", "tags")
    assert bool(marks) == hidden
    assert all(mark.isascii() and mark.isprintable() for mark in marks)


def test_all_bytes_are_shown(page: Page):
    page.view(page.item("contents/nuls"))
    assert b"\n".join(page.rows()) == NULS


def test_a_line_of_two_mebibytes_is_shown_in_parts(page: Page):
    page.view(page.item("contents/long"))
    button = page.one("#vb .z button")
    assert button.text == f"{len(LONG) - 4000:,} bytes more"
    assert page.rows() == [LONG[:4000]]
    page.run("arguments[0].click()", button)
    assert page.rows() == [LONG[:44000]]


def test_the_search_finds_the_end_of_a_line_of_two_mebibytes(page: Page):
    page.search("needle AT the end")
    assert page.text("#hs") == "1 line in 1 item"
    assert page.texts("#hl mark") == ["needle at the end"]


def test_a_search_shows_attacks_as_text(page: Page):
    page.search("alert(")
    assert "alert(3)" in page.text("#hl")
    assert page.run("return document.querySelectorAll('#hl script, #hl img').length") == 0


def test_links_and_devices_are_named_and_do_not_open(page: Page):
    entries = {entry[0]: entry[1:] for entry in page.run(
        "return [...document.querySelectorAll('#items li > b')].map((node) => "
        "[...node.parentNode.children].map((each) => each.textContent))")}
    assert entries["symbolic"] == ["link", "to /etc/passwd<b>"]
    assert entries["null"][0] == entries["fifo"][0] == "special file"


def test_it_reads_without_a_script(page: Page):
    page.without_script(True)
    try:
        page.open(script=False)
    finally:
        page.without_script(False)
    assert "<img src=x onerror=alert(6)>" in page.text("#items")
    assert page.run("return document.querySelectorAll('img').length") == 0
