"""The page of a usual archive: what it shows, and everything that a reader does with it."""

from __future__ import annotations

from pathlib import Path

import pytest
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from support.report_archive import Archive, Tool
from support.report_page import Page, make_page

DMESG = "".join(f"[{i:5}.000000] message {i} of the kernel\n" for i in range(1, 601))


def usual_archive() -> Archive:
    archive = Archive()
    archive.member(archive.top + "/", kind=b"5")
    archive.member(f"{archive.top}/kernel/", kind=b"5")
    archive.file("kernel/dmesg.txt", DMESG, "Messages of the kernel since boot")
    archive.file("kernel/uname.txt", "Linux web-7 6.1.0 x86_64\n", "Kernel release")
    archive.file("storage/df.txt", "Filesystem Type Size Used Avail Use% Mounted on\n"
                 "/dev/vda1 ext4 10G 9.9G 0 100% /\n", "Space of mounted file systems")
    archive.file("network/etc/hosts", "127.0.0.1\tlocalhost\n::1\tlocalhost", "Names of hosts")
    archive.file("network/empty.txt", "", "An item without content")
    archive.file("process/maps.txt", "".join(f"Needle number {i}\n" for i in range(5)))
    archive.finish([
        Tool("/opt/norvale/quendil/tool/run -m uname -a", "kernel/uname.txt"),
        Tool("/opt/norvale/quendil/tool/run -m true"),
        Tool("/usr/bin/df -h", "storage/df.txt", 0, 7),
        Tool("/usr/bin/sleep 90", "", 7, 12, 15, timed_out=True),
        Tool("/usr/bin/lsof <all>", "", 20, 3)],
        ["/etc/missing.conf", "/etc/<b>other</b>"])
    return archive


@pytest.fixture(scope="module")
def made(tmp_path_factory: pytest.TempPathFactory) -> tuple[Path, Archive]:
    archive = usual_archive()
    return make_page(archive, tmp_path_factory.mktemp("page")), archive


def test_it_shows_the_machine_and_its_sections(page: Page):
    assert page.browser.title == "web-7 - quendil report"
    assert page.text("h1") == "web-7"
    assert page.texts("main > section:not([hidden]) > h2")[:2] == ["Findings", "Summary"]
    assert "2026/11/23 16:25:38" in page.text("#summary")


def test_every_item_opens_with_exactly_its_bytes(page: Page):
    expected = {info.name.partition("/")[2]: content for info, content in page.archive.members
                if info.isfile()}
    assert page.contents() == expected


def test_every_item_is_shown_with_exactly_its_lines(page: Page):
    for info, content in page.archive.members:
        if info.isfile():
            page.view(page.item(info.name.partition("/")[2]))
            assert page.text("#vt") == info.name.partition("/")[2]
            lines = content.split(b"\n")
            assert page.rows()[:200] == (lines[:-1] if lines[-1] == b"" else lines)[:200]
            assert page.numbers()[:200] == list(range(1, len(page.numbers()[:200]) + 1))


def test_an_empty_item_says_so(page: Page):
    page.view(page.item("network/empty.txt"))
    assert page.text("#vb") == "This item is empty."


def test_the_list_has_names_sizes_and_descriptions(page: Page):
    entry = f"#i{page.item('network/etc/hosts')} > "
    assert [page.text(entry + tag) for tag in ("a", "i", "span")] == [
        "etc/hosts", "33 B", "Names of hosts"]
    assert page.texts("#items h3") == ["/", "kernel", "network", "process", "storage"]


def test_a_link_to_a_line_goes_there_and_marks_it(page: Page):
    page.view(page.item("kernel/dmesg.txt"), 517)
    assert page.texts("#vb .m a") == ["517"]
    assert page.texts("#vb .m code") == ["[  517.000000] message 517 of the kernel"]
    assert page.status() == "Line 517 of 600 lines"
    assert page.run("const row = document.querySelector('.m').getBoundingClientRect();"
                    "const body = document.getElementById('vb').getBoundingClientRect();"
                    "return body.top <= row.top && row.bottom <= body.bottom")


def test_the_address_of_a_line_opens_it(page: Page):
    item = page.item("kernel/dmesg.txt")
    page.open(f"#i{item}L300")
    page.wait(lambda: page.texts("#vb .m a") == ["300"])


def test_a_line_that_is_not_there_is_named(page: Page):
    page.view(page.item("kernel/uname.txt"), 7)
    assert page.status() == "There is no line 7: the item has 1 line."
    assert page.texts("#vb .m") == []


def test_a_finding_leads_to_the_line_that_it_cites(page: Page):
    link = next(link for link in page.all("article a") if link.text == "storage/df.txt:2")
    link.click()
    page.wait(lambda: page.texts("#vb .m a") == ["2"])
    assert page.texts("#vb .m code") == ["/dev/vda1 ext4 10G 9.9G 0 100% /"]


def test_a_message_leads_to_its_line_and_back_closes_the_viewer(page: Page):
    page.run("document.querySelectorAll('details').forEach((node) => { node.open = true; })")
    link = next(link for link in page.all("#messages li a"))
    line = link.text
    link.click()
    page.wait(lambda: page.texts("#vb .m a") == [line])
    assert "/etc/missing.conf" in page.text("#vb .m code") or "timeout" in page.text("#vb .m code")
    page.browser.back()
    page.wait(lambda: not page.run("return document.getElementById('v').open"))
    assert page.run("return location.hash") == ""


def test_a_number_of_a_line_is_its_address(page: Page):
    item = page.item("kernel/dmesg.txt")
    page.view(item)
    page.all("#vb .z a")[2].click()
    page.wait(lambda: page.texts("#vb .m a") == ["3"])
    assert page.run("return location.hash") == f"#i{item}L3"


def test_escape_closes_the_viewer_and_the_focus_returns(page: Page):
    link = page.one(f"#i{page.item('kernel/uname.txt')} > a")
    link.send_keys(Keys.ENTER)
    page.wait(lambda: page.numbers() == [1])
    page.one("#vb").send_keys(Keys.ESCAPE)
    page.wait(lambda: not page.run("return document.getElementById('v').open"))
    page.wait(lambda: page.run("return location.hash") == "")
    assert page.browser.switch_to.active_element == link


def test_next_and_previous_go_through_the_list(page: Page):
    page.view(page.item("kernel/dmesg.txt"))
    page.one("#vn").click()
    page.wait(lambda: page.text("#vt") == "kernel/uname.txt")
    page.one("#vb").send_keys("k")
    page.wait(lambda: page.text("#vt") == "kernel/dmesg.txt")


def test_the_field_for_a_line_goes_to_it(page: Page):
    page.view(page.item("kernel/dmesg.txt"))
    page.one("#vl").send_keys("444", Keys.ENTER)
    page.wait(lambda: page.texts("#vb .m a") == ["444"])


def test_find_marks_the_text_and_goes_through_its_lines(page: Page):
    page.view(page.item("kernel/dmesg.txt"))
    page.one("#vf").send_keys("MESSAGE 55")
    page.wait(lambda: page.status() == "1 of 11 lines with it")
    assert page.texts("#vb .m a") == ["55"]
    assert page.texts("#vb .m mark") == ["message 55"]
    page.one("#vf").send_keys(Keys.ENTER)
    page.wait(lambda: page.status() == "2 of 11 lines with it")
    assert page.texts("#vb .m a") == ["550"]
    page.one("#vf").send_keys("5555")
    page.wait(lambda: page.status() == "Not found")


def test_wrap_shows_the_whole_of_a_long_line(page: Page):
    page.size(400, 900)
    page.view(page.item("quendil.log"))
    overflow = ("const body = document.getElementById('vb');"
                "return body.scrollWidth > body.clientWidth")
    page.run("document.getElementById('vw').checked || document.getElementById('vw').click()")
    assert not page.run(overflow)
    page.one("#vw").click()
    assert page.run(overflow)


def test_save_gives_exactly_the_bytes(page: Page, tmp_path: Path):
    page.browser.execute_cdp_cmd("Browser.setDownloadBehavior", {
        "behavior": "allow", "downloadPath": str(tmp_path)})
    page.view(page.item("network/etc/hosts"))
    page.one("#vs").click()
    saved = tmp_path / "network_etc_hosts"
    page.wait(saved.exists)
    assert saved.read_bytes() == page.archive.content("network/etc/hosts")


def test_the_search_finds_items_by_name_and_description(page: Page):
    page.search("kernel")
    names = page.run("return [...document.querySelectorAll('#items li:not([hidden]) > a')]"
                     ".map((node) => node.textContent)")
    assert names == ["dmesg.txt", "uname.txt"]
    assert page.text("#n").startswith("2 of 8 items.")


def test_the_search_finds_lines_of_contents(page: Page):
    page.search("nEEdle")
    item = page.item("process/maps.txt")
    assert page.text("#hs") == "5 lines in 1 item"
    links = page.run("return [...document.querySelectorAll('#hl li a')]"
                     ".map((node) => node.getAttribute('href'))")
    assert links == [f"#i{item}L{line}" for line in range(1, 6)]
    assert page.texts("#hl mark") == ["Needle"] * 5
    page.all("#hl li a")[3].click()
    page.wait(lambda: page.texts("#vb .m code") == ["Needle number 3"])


def test_typing_on_searches_anew(page: Page):
    page.search("needle number")
    page.one("#s").send_keys(" 4")
    page.wait(lambda: page.text("#hs") == "1 line in 1 item")
    page.one("#s").send_keys(Keys.ESCAPE)
    page.wait(lambda: not page.one("#hits").is_displayed())
    assert page.one("#findings").is_displayed()
    assert page.all("#items li[hidden]") == []


def test_a_search_for_characters_of_expressions_is_plain(page: Page):
    page.search("100% /")
    assert page.text("#hs") == "1 line in 1 item"
    page.search(".*")
    assert page.text("#hs") == "0 lines in 0 items"


def test_keys_lead_to_the_search_and_through_the_links(page: Page):
    page.one("body").send_keys("/")
    assert page.browser.switch_to.active_element.get_attribute("id") == "s"
    page.one("#s").send_keys(Keys.TAB)
    page.run("document.activeElement.blur()")
    page.one("body").send_keys("j")
    first = page.browser.switch_to.active_element
    assert first.tag_name == "a"
    first.send_keys("j")
    second = page.browser.switch_to.active_element
    assert second.tag_name == "a" and second != first
    second.send_keys("k")
    assert page.browser.switch_to.active_element == first


def test_single_key_shortcuts_can_be_turned_off(page: Page):
    page.one("#sk").click()
    page.one("body").send_keys("/")
    assert page.browser.switch_to.active_element.get_attribute("id") != "s"


def test_the_time_line_has_tools_in_the_order_of_their_start(page: Page):
    rows = [row.split("\n")[0] for row in page.texts("#tools tbody tr td:last-child")]
    assert rows[0] == "2 tools that took less than a second each"
    assert rows[1] == "/usr/bin/df -h"
    assert rows[2].startswith("/usr/bin/sleep 90 time-out after 10 s")
    assert rows[3] == "/usr/bin/lsof <all>"
    assert page.texts("#tools tbody tr:nth-child(3) td")[:3] == ["7 s", "12 s", "15"]


def test_the_time_line_can_begin_with_the_slowest(page: Page):
    button = page.one("#ts")
    button.click()
    assert button.get_attribute("aria-pressed") == "true"
    assert page.texts("#tools tbody td:nth-child(2)") == ["12 s", "7 s", "3 s", "0 s"]
    button.click()
    assert page.texts("#tools tbody td:nth-child(2)") == ["0 s", "7 s", "12 s", "3 s"]


def test_the_quick_tools_are_listed_on_demand(page: Page):
    page.one("#ta").click()
    page.wait(lambda: page.all("#tools .q li"))
    assert page.texts("#tools .q li") == [
        "16:25:38 run -m uname -a", "16:25:38 run -m true"]
    page.one("#tools .q li a + a").click()
    page.wait(lambda: page.text("#vt") == "kernel/uname.txt")


def test_it_reads_without_a_script(page: Page):
    page.without_script(True)
    try:
        page.open(script=False)
        text = page.one("main").text
        page.without_script(False)  # only to read what was shown
        for part in ("Findings", "Summary", "2026/11/23 16:25:38", "Time line", "/usr/bin/df -h",
                     "Messages", "ZEPA129-W", "Items", "dmesg.txt", "Space of mounted file systems",
                     "need JavaScript"):
            assert part in text, part
        assert page.run("return [...document.querySelectorAll('main > section')]"
                        ".map((node) => node.id)") == [
            "findings", "summary", "charts", "tools", "messages", "items", "hits"]
        assert not page.one("#s").is_displayed()
        assert not page.one("#ts").is_displayed()
    finally:
        page.without_script(False)


def test_it_is_light_and_dark(page: Page):
    colours = []
    for scheme in ("light", "dark"):
        page.scheme(scheme)
        colours.append(page.run("return getComputedStyle(document.documentElement)"
                                ".backgroundColor.match(/\\d+/g).map(Number)"))
    assert min(colours[0]) > 200
    assert max(colours[1]) < 60


@pytest.mark.parametrize("width", [400, 700, 1280, 3840])
def test_it_fits_every_width(page: Page, width: int):
    page.size(width, 900)
    page.run("document.querySelectorAll('details').forEach((node) => { node.open = true; })")
    overflow = "return document.documentElement.scrollWidth"
    assert page.run(overflow) <= width
    page.search("needle")
    assert page.run(overflow) <= width
    page.view(page.item("kernel/dmesg.txt"))
    assert page.run("const box = document.getElementById('v').getBoundingClientRect();"
                    "return box.left >= 0 && box.right <= innerWidth")
    assert page.run("return document.getElementById('vb').clientHeight") > 300


def test_printing_has_findings_and_no_controls(page: Page):
    page.browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {"media": "print"})
    try:
        shown = [page.one(selector).is_displayed() for selector in
                 ("#findings", "#summary", "#s", "nav", "#ts")]
    finally:
        page.browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {"media": ""})
    assert shown == [True, True, False, False, False]


def test_a_browser_that_cannot_decompress_says_so(page: Page):
    script = page.browser.execute_cdp_cmd("Page.addScriptToEvaluateOnNewDocument", {
        "source": "delete globalThis.DecompressionStream"})
    try:
        page.open(script=False)
        page.wait(lambda: "DecompressionStream" in page.text("#w"))
        assert page.one("#w").find_element(By.TAG_NAME, "p").is_displayed()
    finally:
        page.browser.execute_cdp_cmd("Page.removeScriptToEvaluateOnNewDocument", script)
