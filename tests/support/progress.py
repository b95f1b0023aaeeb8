"""A model of the progress line, to compare a terminal's bytes with.

The line is a label of eleven characters and a bar of 68 columns, redrawn in place with a carriage
return. Each phase owns a part of the bar: 4 columns for initializing, 52 for collecting, 10 for the
archive, 2 for cleaning up.
"""

from __future__ import annotations

WIDTH = 68
COLLECT_WIDTH = 52

INITIALIZE = "initialize:"
COLLECT = "collect   :"
ARCHIVE = "archive   :"
CLEANUP = "cleanup   :"


class Terminal:
    """What a run writes to the terminal: call the methods for the run's steps, then read `text`."""

    def __init__(self) -> None:
        self.text = ""
        self._label = ""
        self._stars = 0
        self._step = 0
        self._increments: list[int] = []
        self._items = 0
        self._shares = 0
        self._on_screen = False

    def init(self) -> Terminal:
        """The initializing phase begins: the bar appears, empty."""
        return self._begin(INITIALIZE, [1, 1, 1, 1])

    def collect(self, items: int) -> Terminal:
        """The collecting phase begins, for so many tools and data items."""
        self._finish()
        if items > 0:
            self._items, self._shares = items, 0
        return self._begin(COLLECT, self._increments)

    def archive(self) -> Terminal:
        """The making phase begins."""
        self._finish()
        return self._begin(ARCHIVE, [3, 2, 3, 2])

    def cleanup(self) -> Terminal:
        """The cleaning phase begins."""
        self._finish()
        return self._begin(CLEANUP, [2])

    def step(self, times: int = 1) -> Terminal:
        """The current phase advances."""
        for _ in range(times):
            if self._label == COLLECT:
                self._step_collect()
            elif self._label:
                self._advance()
        return self

    def end(self) -> Terminal:
        """The run is done: the bar is filled and its line ended."""
        self._draw(WIDTH)
        self.text += "\n"
        self._on_screen = False
        return self

    def newline(self) -> Terminal:
        """The bar's line ends, where the bar is on the screen."""
        if self._on_screen:
            self.text += "\n"
            self._on_screen = False
        return self

    def message(self, line: str) -> Terminal:
        """A message on the standard output, which never shares the bar's line."""
        self.newline()
        self.text += line + "\n"
        return self

    def _begin(self, label: str, increments: list[int]) -> Terminal:
        self._label, self._increments, self._step = label, increments, 0
        self._draw(self._stars)
        return self

    def _draw(self, stars: int) -> None:
        if self._label:
            self.text += self._label + "*" * stars + "_" * (WIDTH - stars) + "\r"
            self._on_screen = True

    def _advance(self) -> None:
        self._stars += self._increments[self._step] if self._step < len(self._increments) else 0
        self._draw(self._stars)
        self._step += 1

    def _step_collect(self) -> None:
        if self._items == 0 or self._step > self._items:
            return
        self._step += 1
        self._shares += COLLECT_WIDTH
        if self._shares >= self._items:
            new, self._shares = divmod(self._shares, self._items)
            self._stars += new
            self._draw(self._stars)

    def _finish(self) -> None:
        """Takes the columns that the phase still owns; one that took no step gets none."""
        if self._label == COLLECT:
            self._draw(self._stars)
        else:
            while 1 <= self._step < WIDTH:
                self._advance()
        self._step = 0


def initialized() -> Terminal:
    """The terminal of a run that has passed its initializing phase."""
    return Terminal().init().step(4)


def complete(items: int) -> Terminal:
    """The terminal of a run that collected so many items and made its compressed archive."""
    run = initialized().collect(items).step(items)
    return run.archive().step(3).cleanup().step().end()


def screen(text: str) -> list[str]:
    """The lines that are finally visible: without what was overwritten after a carriage return."""
    lines = []
    for line in text.split("\n"):
        shown = ""
        for part in line.split("\r"):
            shown = part + shown[len(part):]
        lines.append(shown)
    return lines
