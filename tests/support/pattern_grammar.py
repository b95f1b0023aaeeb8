"""Pattern files made at random from their grammar, most of them with mistakes, and mutations of
real ones. A seed always gives the same files."""

from __future__ import annotations

from collections.abc import Iterator
from random import Random

TOP = ["PP_VRS", "PP_KATAMEI", "PP_NAME", "PP_GROUP", "FORMAT_VERSION", "REG0", "REG9"]
TOOL = ["TIMEOUT", "TIMEOUT_SIGNAL", "WAIT_TERMINATION", "COMMAND_LINE", "REDIRECT_PATH"]
DATA = ["DESCRIPTION", "FILE_TYPE", "PATH_NAME"]
BLOCKS = ["BLOCK", "TOOL_BLOCK", "DATA_BLOCK"]
KEYWORDS = [*TOP, "TARGET", *TOOL, *DATA, *BLOCKS, "UNKNOWN"]

NUMBERS = ["0", "1", "-1", "10", "36000", "36001", "600", "601", "010", "+5", "1e3", "0x10", "",
           "99999999999999999999", "2147483647", "2147483648", "10s"]
PATHS = ["/a", "\"/a b/c\"", "%d%/x.txt", "\"%d%/x y\"", "/%HOST%/%YY%", "a/b", "\"\"", "", "%",
         "%%", "/x%FOO%", "/x%HOST", "\"/x%HOST\"", "\"\\\"/q\\\"\"", "/" + "x" * 259,
         "/" + "x" * 260, "%reg0%/x", "\"/usr/bin/df -k\"", "/usr/bin/df -k", "\\\"/x", "/x\\"]
TEXTS = ["x", "\"a b\"", "a b", "", "\"\"", "100%%", "100%", "%HOST%", "%HOST", "%host%",
         "\"%FOO%\"", "a=b", "\"a=b{}#\"", "a{b", "a}b", "a#b", "a #b", "\"open", "a\"b c\"d",
         "y" * 256, "y" * 257, "v" * 10, "v" * 11, "t" * 20, "t" * 21, "\\", "\\#x", "\\%", "a\\",
         "text", "directory", "Text", "é", "a\tb", "\"a\tb\"", "\x01", "\"\\n\"", "%%%%", "%%%"]
VERSIONS = ["1.0", "\"1.0\"", "1.00", "1.1", "2.0", "0.9", "x", "", "%HOST%", "%", "1.0 # c",
            "1.0#c"]


class PatternMaker:
    """Makes pattern files with the random numbers of one seed."""

    def __init__(self, seed: int) -> None:
        self._random = Random(seed)

    def files(self, number: int) -> Iterator[bytes]:
        """So many files."""
        for _ in range(number):
            text = "".join(self._lines())
            if self._random.random() < 0.1:
                text = text.rstrip("\n")
            if self._random.random() < 0.05:
                text = text.replace("\n", "\r\n")
            data = text.encode()
            if self._random.random() < 0.1:
                data = self.mutation(data)
            yield data

    def _rarely(self) -> bool:
        return self._random.random() < 0.04

    def _any(self, values: list[str]) -> str:
        return self._random.choice(values)

    def _lines(self) -> Iterator[str]:
        if not self._rarely():
            yield self._statement("FORMAT_VERSION", VERSIONS)
        for _ in range(self._random.randrange(4)):
            yield self._statement(self._any(TOP[:4]), TEXTS)
        for _ in range(self._random.randrange(4)):
            yield from self._block()

    def _statement(self, keyword: str, values: list[str]) -> str:
        """A statement; seldom with a value that was not chosen for its keyword."""
        good = {"FORMAT_VERSION": "1.0", "TIMEOUT": "10", "COMMAND_LINE": "\"/bin/x y\""}
        if self._rarely():
            keyword = self._any(KEYWORDS)
        if self._random.random() < 0.2:
            keyword = keyword.lower()
        value = good.get(keyword, values[0]) if self._random.random() < 0.8 else self._any(values)
        equal = self._any(["=", " = ", "\t=", "= ", " "]) if self._rarely() else " = "
        end = self._any([" # comment", "#joined", "  ", "}", " x"]) if self._rarely() else ""
        return self._noise() + " " * self._random.randrange(5) + keyword + equal + value + end + "\n"

    def _noise(self) -> str:
        if not self._rarely():
            return ""
        return self._any(["\n", "# comment\n", "   \n", "é\n", "# é\n", "}\n", "{\n", "=\n", "\"x\"\n",
                          "x" * 1024 + "\n", "x" * 1025 + "\n", "#" + "c" * 1024 + "\n", "%HOST%\n"])

    def _open(self, keyword: str) -> str:
        brace = self._any(["\n{", "", " { # c", "{ {", " {x", "\t{ ", " = {"]) if self._rarely() else " {"
        return self._noise() + keyword + brace + "\n"

    def _close(self) -> str:
        return self._any(["", "}\n}\n", "} }\n", "} x\n"]) if self._rarely() else "}\n"

    def _block(self) -> Iterator[str]:
        yield self._open("BLOCK")
        for _ in range(self._random.randrange(3)):
            yield self._statement("TARGET", TEXTS)
        for _ in range(self._random.randrange(4)):
            yield from self._item()
        yield self._close()

    def _item(self) -> Iterator[str]:
        kind = self._any(["TOOL_BLOCK", "DATA_BLOCK"])
        values = {"TIMEOUT": NUMBERS, "TIMEOUT_SIGNAL": NUMBERS, "WAIT_TERMINATION": NUMBERS,
                  "DESCRIPTION": TEXTS, "FILE_TYPE": TEXTS}
        yield self._open(kind)
        required = "COMMAND_LINE" if kind == "TOOL_BLOCK" else "PATH_NAME"
        keywords = [] if self._rarely() else [required]
        keywords += self._random.sample(TOOL if kind == "TOOL_BLOCK" else DATA, 2)
        for keyword in keywords if self._rarely() else dict.fromkeys(keywords):
            yield self._statement(keyword, values.get(keyword, PATHS))
        yield self._close()

    def mutation(self, data: bytes) -> bytes:
        """The file with one change: of a byte, a piece or a line."""
        random = self._random
        at = random.randrange(len(data) + 1)
        piece = random.choice([b" ", b"\n", b"\"", b"{", b"}", b"=", b"%", b"#", b"\\", b"\r", b"\t",
                               b"\0", b"\xc3\xa9", b"\xff", b"x", b"9", b"-", b"%FOO%", b"x" * 300])
        lines = data.splitlines(keepends=True)
        row = random.randrange(len(lines)) if lines else 0
        match random.randrange(6):
            case 0:
                return data[:at] + data[at + 1:]
            case 1:
                return data[:at] + piece + data[at:]
            case 2:
                return data[:at] + piece + data[at + 1:]
            case 3:
                return b"".join(lines[:row] + lines[row + 1:])
            case 4:
                return b"".join(lines[:row + 1] + lines[row:])
            case _:
                return data[:at]
