"""What is shown on a terminal: its width, its colours, tables, and how far a long run has come."""

from __future__ import annotations

import os
import re
import shutil
import sys
import textwrap
import time
import unicodedata
from collections.abc import Callable, Iterable, Iterator, Sequence
from typing import TextIO, TypeVar

from grounding_fit_workbench.palette import INKS

LEAST_WIDTH = 40  # columns
QUIET_SECONDS = 2.0  # of a run, before it shows how far it has come
LINE_SECONDS = 5.0  # between two lines of that where there is no terminal
UNSEEN = re.compile(r"\x1b\[[0-9;]*m")  # what sets a colour
NAME_WIDTH = 14  # of a table's last column, at the least
Item = TypeVar("Item")


def width() -> int:
    """Return the columns that there are; 80 where no terminal tells."""
    return max(LEAST_WIDTH, shutil.get_terminal_size((80, 24)).columns)


def has_colours() -> bool:
    """Whether colours are shown."""
    return sys.stdout.isatty() and not os.environ.get("NO_COLOR")


def drawn(part: str, count: int = 1) -> str:
    """Return cells of a part: its letter, or its colour on a terminal."""
    ink = INKS[part]
    if not has_colours() or not count or part == "free":
        return ink.letter * count  # room that is free has no colour: it is the terminal's ground
    return f"\x1b[48;5;{ink.colour}m{' ' * count}\x1b[0m"


# --- texts ---


def safe(text: str, kept: str = "") -> str:
    """Return a text of the host's in which nothing steers the terminal, but for what is kept."""
    if text.isprintable():
        return text
    shown = (
        char if char.isprintable() or char in kept else char.encode("unicode_escape").decode()
        for char in text
    )
    return "".join(shown)


def columns(text: str) -> int:
    """Return how many columns a text takes."""
    if text.isascii():
        return len(text)
    wide = sum(unicodedata.east_asian_width(char) in "WF" for char in text)
    return len(text) + wide - sum(unicodedata.combining(char) != 0 for char in text)


def fitted(text: str, most: int) -> str:
    """Return a text of the host's in so many columns at most."""
    text = safe(text)
    if columns(text) <= most:
        return text
    while text and columns(text) > most - 3:
        text = text[: min(len(text) - 1, most - 3)]
    return f"{text}..."


def cell(text: str, most: int) -> str:
    """Return a text of the host's in exactly so many columns."""
    text = fitted(text, most)
    return text + " " * (most - columns(text))


def say(text: str, indent: str = "  ", begun: int = 0) -> None:
    """Print a sentence, wrapped and indented; of its first line so many columns are printed."""
    lines = textwrap.wrap(
        safe(text),
        width() - 1,
        initial_indent=indent,
        subsequent_indent=indent,
        break_on_hyphens=False,
    )
    if lines:
        print("\n".join(lines)[begun:])


def print_entries(entries: Iterable[tuple[str, str]], indent: str = "  ") -> None:
    """Print entries of a legend, each a part's cell and a text, as many in a line as fit."""
    line = ""
    for mark, text in entries:
        at = columns(UNSEEN.sub("", line))
        entry = f"{mark} {safe(text)}"
        if line and at + 2 + columns(UNSEEN.sub("", entry)) >= width():
            print(line)
            line = ""
        line += f"  {entry}" if line else f"{indent}{entry}"
    print(line)


def print_table(heads: Sequence[str], rows: Sequence[Sequence[str]]) -> None:
    """Print cells to the right and, last in a row, a name; what is too wide goes below it."""
    widths = [max(len(row[at]) for row in [heads, *rows]) + 2 for at in range(len(heads) - 1)]
    start = 0
    while start < len(widths):
        end = start + 1
        while end < len(widths) and sum(widths[start : end + 1]) + NAME_WIDTH <= width():
            end += 1
        left = width() - sum(widths[start:end]) - 1
        for row in [heads, *rows]:
            cells = (f"{row[at]:>{widths[at] - 2}}  " for at in range(start, end))
            print("".join(cells) + fitted(row[-1], left))
        start = end


# --- long runs ---


def progress(
    items: Iterable[Item],
    total: int,
    unit: str,
    to: TextIO | None = None,
    clock: Callable[[], float] = time.monotonic,
) -> Iterator[Item]:
    """Yield items, and show after a while how many are done: in place, or in lines to a file."""
    to = to or sys.stderr
    in_place = to.isatty()
    started = shown = clock()
    for count, item in enumerate(items, 1):
        yield item
        now = clock()
        if now - started < QUIET_SECONDS or (not in_place and now - shown < LINE_SECONDS):
            continue
        shown = now
        print(f"{count:,} of {total:,} {unit}", end="\r" if in_place else "\n", file=to, flush=True)
    if in_place and shown > started:
        print("\x1b[K", end="", file=to, flush=True)
