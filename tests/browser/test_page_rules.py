"""The page by the rules of others: accessibility, HTML, types. And pictures of it, in two browsers."""

from __future__ import annotations

import struct
import subprocess
import zlib
from pathlib import Path

import pytest
from support.firefox import Firefox
from support.report_archive import Archive, Tool
from support.report_page import BUILD, ROOT, Page, make_page

RULES = ["wcag2a", "wcag2aa", "wcag21a", "wcag21aa", "best-practice"]


@pytest.fixture(scope="module")
def made(tmp_path_factory: pytest.TempPathFactory) -> tuple[Path, Archive]:
    archive = Archive(host="web-7")
    archive.file("kernel/dmesg.txt", "".join(
        f"[{i:5}.{i * 7919 % 1000000:06}] eth0: link is up, message {i}\n" for i in range(1, 300)) +
        "[  812.113000] Out of memory: Killed process 4321 (java) total-vm:8123456kB\n"
        "[  900.000000] escape \x1b[31m here\n", "Messages of the kernel since boot")
    archive.file("storage/df.txt",
                 "Filesystem     Type  Size  Used Avail Use% Mounted on\n"
                 "/dev/vda1      ext4   40G   14G   24G  37% /\n"
                 "/dev/vda2      ext4  9.8G  9.8G     0 100% /var\n", "Space of mounted file systems")
    for name, text in (("ps", "Processes"), ("lsof", "Open files"), ("cgroups", "Control groups")):
        archive.file(f"process/{name}.txt", f"{text}\n" * 40, text)
    archive.member(f"{archive.top}/link", b"2", target="process/ps.txt")
    archive.finish([
        Tool("/opt/norvale/quendil/tool/run -m dmesg", "kernel/dmesg.txt"),
        Tool("/opt/norvale/quendil/tool/run -m vmstat -w 1 4", "", 0, 3),
        Tool("/opt/norvale/quendil/tool/run -m df -hT", "storage/df.txt", 3, 10, 15,
             timed_out=True),
        Tool("/opt/norvale/quendil/tool/run -m lsof", "process/lsof.txt", 13, 2)],
        ["/etc/machine-info", "/proc/mdstat"])
    return make_page(archive, tmp_path_factory.mktemp("rules")), archive


def show_viewer(page: Page) -> None:
    page.view(page.item("kernel/dmesg.txt"), 300)


def show_search(page: Page) -> None:
    page.search("message")


def show_all(page: Page) -> None:
    page.run("document.querySelectorAll('details').forEach((node) => { node.open = true; })")
    page.one("#ta").click()
    page.wait(lambda: page.all("#tools .q li"))


@pytest.mark.parametrize("scheme", ["light", "dark"])
@pytest.mark.parametrize("show", [show_all, show_viewer, show_search])
@pytest.mark.parametrize("width", [1280, 400])
def test_it_is_accessible(page: Page, npm: Path, scheme: str, show, width: int):
    page.size(width, 900)
    page.scheme(scheme)
    show(page)
    page.run((npm / "axe-core/axe.min.js").read_text())
    found = page.later("""
        const result = await axe.run(document, {runOnly: given[0]});
        return [result.passes.length, result.violations.map((rule) => [rule.id,
            rule.nodes.map((node) => [node.html, node.failureSummary])])];""", RULES)
    assert found[0] > 20, found  # it has looked at something
    assert found[1] == []


def test_it_is_valid_html(made: tuple[Path, Archive], npm: Path):
    done = subprocess.run(
        [npm / ".bin/html-validate", "--config", ROOT / "tests/browser/html-validate.json",
         made[0]], capture_output=True, text=True, timeout=60, check=False)
    assert (done.returncode, done.stdout, done.stderr) == (0, "", "")


def test_its_scripts_have_correct_types(npm: Path):
    done = subprocess.run(
        [npm / ".bin/tsc", "--checkJs", "--allowJs", "--strict", "--noEmit", "--noUnusedLocals",
         "--noUnusedParameters", "--noImplicitReturns", "--target", "es2022",
         "--lib", "es2022,dom,dom.iterable",
         ROOT / "src/view/loader.js", ROOT / "src/view/page.js"],
        capture_output=True, text=True, timeout=60, check=False)
    assert (done.returncode, done.stdout) == (0, "")


def pixel_rows(picture: bytes) -> set[bytes]:
    """The different rows of a picture in the format PNG, as they are stored in it."""
    assert picture[:8] == b"\x89PNG\r\n\x1a\n"
    data, at, width, channels = b"", 8, 0, 0
    while at < len(picture):
        size, kind = struct.unpack_from(">I4s", picture, at)
        if kind == b"IHDR":
            width, _, depth, colour = struct.unpack_from(">IIBB", picture, at + 8)
            assert depth == 8
            channels = {2: 3, 6: 4}[colour]
        elif kind == b"IDAT":
            data += picture[at + 8:at + 8 + size]
        at += size + 12
    rows = zlib.decompress(data)
    stride = width * channels + 1
    return {rows[begin:begin + stride] for begin in range(0, len(rows), stride)}


def test_firefox_shows_it_and_opens_items(page: Page, tmp_path: Path):
    wait = """
        const until = async (condition) => {
            while (!condition()) {
                await new Promise((done) => setTimeout(done, 20));
            }
        };
        await until(() => quendil.bytesOf);
    """
    item = page.item("kernel/dmesg.txt")
    with Firefox(tmp_path) as firefox:
        sizes, picture = firefox.visit(page.address, wait + """
            const sizes = {};
            for (const link of document.querySelectorAll('#items li > a')) {
                const item = Number(link.getAttribute('href').slice(2));
                sizes[quendil.nameOf(item)] = (await quendil.bytesOf(item)).length;
            }
            return sizes;""")
        line, viewer = firefox.visit(f"{page.address}#i{item}L200", wait + """
            await until(() => document.querySelector('.m'));
            return document.querySelector('.m').textContent;""")
    assert sizes == {info.name.partition("/")[2]: len(content)
                     for info, content in page.archive.members if info.isreg()}
    assert line == "200[  200.583800] eth0: link is up, message 200"
    assert len(pixel_rows(picture)) > 200 and len(pixel_rows(viewer)) > 200


def test_pictures_for_the_documents(page: Page):
    directory = BUILD / "pictures"
    directory.mkdir(parents=True, exist_ok=True)
    page.size(1000, 640)
    for name, scheme, show in (("page", "light", None), ("page-dark", "dark", None),
                               ("page-viewer", "light", show_viewer)):
        page.scheme(scheme)
        if show:
            show(page)
        picture = page.browser.get_screenshot_as_png()
        (directory / f"{name}.png").write_bytes(picture)
        assert len(pixel_rows(picture)) > 200
        assert len(picture) < 150_000
