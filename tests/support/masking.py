"""Replaces what differs from run to run, so that whole texts can be compared.

Every mask is as narrow as the text allows: a line number in a file that the test wrote is behaviour
and stays; a line number in the program's own source is not and goes.
"""

from __future__ import annotations

import re
from datetime import datetime

TIME = re.compile(r"\d{4}/\d{2}/\d{2} \d{2}:\d{2}:\d{2}")
NAME_STAMP = re.compile(r"(?<=_)\d{12}(?!\d)")
DATE_STAMP = re.compile(r"(?<=DATE:)\d{12}$", re.MULTILINE)
SOURCE_LINE = re.compile(r"(source = \w+, line no = )\d+")
PROCESS = re.compile(r"(An attempt to wait or stop a process \(|PID = )\d+")
ARCHIVE_SIZE = re.compile(r"((?:Output|Archive) file = .*\. size = )\d+(?= bytes\.)")


def mask_times(text: str) -> str:
    """Times such as 2026/11/15 09:53:18."""
    return TIME.sub("<TIME>", text)


def mask_stamps(text: str) -> str:
    """The twelve digits of an output name and of a DATE line."""
    return DATE_STAMP.sub("<STAMP>", NAME_STAMP.sub("<STAMP>", text))


def mask_source_lines(text: str) -> str:
    """Line numbers in the program's own source."""
    return SOURCE_LINE.sub(r"\1<LINE>", text)


def mask_processes(text: str) -> str:
    """Process ids."""
    return PROCESS.sub(r"\1<PID>", text)


def mask_archive_sizes(text: str) -> str:
    """Sizes of archives; sizes of collected files are known to the test and stay."""
    return ARCHIVE_SIZE.sub(r"\1<SIZE>", text)


def mask(text: str) -> str:
    """All of these."""
    for one in (mask_times, mask_stamps, mask_source_lines, mask_processes, mask_archive_sizes):
        text = one(text)
    return text


def decode(data: bytes) -> str:
    """Bytes as text, losing nothing: what is not UTF-8 becomes lone surrogates."""
    return data.decode("utf-8", "surrogateescape")


def times(text: str) -> list[datetime]:
    """The times that a text holds, in its order, to check what the mask hides."""
    return [datetime.strptime(found, "%Y/%m/%d %H:%M:%S") for found in TIME.findall(text)]


def stamps(text: str) -> list[datetime]:
    """The stamps that a text holds: those of names, then those of DATE lines."""
    found = NAME_STAMP.findall(text) + DATE_STAMP.findall(text)
    return [datetime.strptime(stamp, "%y%m%d%H%M%S") for stamp in found]
