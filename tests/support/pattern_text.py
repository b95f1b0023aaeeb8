"""Pattern files and configuration lines, written out from a few words of Python."""

from __future__ import annotations

from collections.abc import Iterable


def quoted(text: str) -> str:
    """A value between double quotes, with its own quotes escaped, as in a pattern file."""
    escaped = text.replace("\\", "\\\\").replace('"', '\\"')
    return f'"{escaped}"'


def tool(command: str, redirect: str | None = None, timeout: int | None = None,
         signal: int | None = None, wait: int | None = None) -> str:
    """A TOOL_BLOCK; what is None is left out."""
    settings = [
        ("COMMAND_LINE", quoted(command)),
        ("REDIRECT_PATH", None if redirect is None else quoted(redirect)),
        ("TIMEOUT", timeout), ("TIMEOUT_SIGNAL", signal), ("WAIT_TERMINATION", wait),
    ]
    given = [f"{key} = {value}" for key, value in settings if value is not None]
    return _block("TOOL_BLOCK", given)


def data(path: str, *descriptions: str, file_type: str | None = None) -> str:
    """A DATA_BLOCK."""
    lines = [f"DESCRIPTION = {quoted(description)}" for description in descriptions]
    if file_type is not None:
        lines.append(f"FILE_TYPE = {file_type}")
    return _block("DATA_BLOCK", [*lines, f"PATH_NAME = {quoted(path)}"])


def block(*items: str, targets: Iterable[str] = ()) -> str:
    """A BLOCK of tools and data items."""
    return _block("BLOCK", [*(f"TARGET = {target}" for target in targets), *items])


def pattern(*items: str, groups: Iterable[str] = ("demo",), name: str = "demo") -> str:
    """A pattern file. Items that are not blocks yet go into one block without a target."""
    blocks = [item for item in items if item.startswith("BLOCK")]
    loose = [item for item in items if not item.startswith("BLOCK")]
    if loose:
        blocks.append(block(*loose))
    head = ["FORMAT_VERSION = 1.0", "PP_VRS = 1.0", f"PP_NAME = {quoted(name)}"]
    head += [f"PP_GROUP = {quoted(group)}" for group in groups]
    return "\n".join([*head, *blocks]) + "\n"


def _block(keyword: str, lines: Iterable[str]) -> str:
    inner = "\n".join(lines).replace("\n", "\n    ")
    return f"{keyword} {{\n    {inner}\n}}"
