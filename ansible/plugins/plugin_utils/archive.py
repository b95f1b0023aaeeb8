# Copyright the quendil developers
# Apache-2.0 (see LICENSE or https://www.apache.org/licenses/LICENSE-2.0)
"""Checks an archive of quendil without unpacking it, and whatever its size in little memory."""

from __future__ import annotations

import gzip
import hashlib
import re
import zlib

BLOCK = 512
CHUNK = 1 << 20

#: HOST_YYMMDDhhmmss[_N], with the end that the result of a run has here.
NAME = re.compile(r"[A-Za-z0-9][A-Za-z0-9._-]{0,200}_[0-9]{12}(_[0-9]{1,6})?\.tar(\.gz)?(\.age)?")

#: age's header, as its format v1 defines it.
AGE_HEADER = b"age-encryption.org/v1\n"


class Damaged(Exception):
    """The file is no archive of quendil; the text says why."""


def sha256_of(path):
    """The checksum of a file, in hexadecimal digits."""
    digest = hashlib.sha256()
    with open(path, "rb") as file:
        while chunk := file.read(CHUNK):
            digest.update(chunk)
    return digest.hexdigest()


def verify(path, name, limit):
    """Raises Damaged unless a file is a complete archive with an index, of at most `limit` bytes unpacked.

    An archive that only its recipients can read has been checked before it was encrypted.
    """
    try:
        if name.endswith(".age"):
            with open(path, "rb") as file:
                if file.read(len(AGE_HEADER)) != AGE_HEADER:
                    raise Damaged("it is not encrypted")
        elif name.endswith(".gz"):
            with gzip.open(path) as file:
                read_tar(Content(file, limit))
        else:
            with open(path, "rb") as file:
                read_tar(Content(file, limit))
    except (EOFError, zlib.error, gzip.BadGzipFile) as error:
        raise Damaged(f"gzip: {error}") from error


class Content:
    """A stream with an upper bound."""

    def __init__(self, file, limit):
        self._file = file
        self._left = limit

    def read(self, size):
        """At most `size` bytes; fewer only at the end."""
        data = self._file.read(size)
        self._left -= len(data)
        if self._left < 0:
            raise Damaged("it is larger than an archive may be")
        return data

    def skip(self, size):
        """Reads so many bytes, in pieces."""
        while size > 0:
            data = self.read(min(size, CHUNK))
            if not data:
                raise Damaged("it ends too early")
            size -= len(data)


def read_tar(content):
    """Reads a tar to its end, as POSIX defines ustar: headers of 512 bytes, contents in whole blocks."""
    has_index = False
    while True:
        header = content.read(BLOCK)
        if len(header) < BLOCK:
            raise Damaged("it ends too early")
        if header == bytes(BLOCK):
            break
        check_sum(header)
        name = header[:100].split(b"\0")[0]
        size = number(header[124:136])
        has_index = has_index or re.fullmatch(rb"[^/]+/quendil_index", name) is not None
        content.skip(-(-size // BLOCK) * BLOCK)
    while content.read(CHUNK):
        pass  # what is after the end, and the checksum of gzip
    if not has_index:
        raise Damaged("it has no index")


def check_sum(header):
    """The checksum of a header counts its own eight bytes as blanks."""
    if sum(header[:148]) + sum(header[156:]) + 8 * 32 != number(header[148:156]):
        raise Damaged("a header is damaged")


def number(field):
    """A number of a header: octal digits, or GNU's binary form for large ones."""
    if field[0] == 0x80:
        return int.from_bytes(field[1:], "big")
    try:
        return int(field.rstrip(b"\0 ").lstrip(b" ") or b"0", 8)
    except ValueError:
        raise Damaged("a header is damaged") from None
