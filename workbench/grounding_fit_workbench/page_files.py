"""Pages files: a host appends its pages where it fits them, and reads them back."""

from __future__ import annotations

import os
from collections.abc import Mapping
from dataclasses import dataclass
from typing import Any, cast

from grounding_fit_workbench.module import fit
from grounding_fit_workbench.page_lines import Page, line_of, page_of

File = str | os.PathLike[str]


@dataclass(frozen=True)
class Refused:
    """A line of a file that could not be read, and why."""

    line: int  # from 1
    reason: str

    def __str__(self) -> str:
        return f"line {self.line}: {self.reason}"


class Pages(list[Page]):
    """The pages of a file in order; `refused` tells of the lines that could not be read."""

    def __init__(self) -> None:
        super().__init__()
        self.refused: list[Refused] = []


def save_page(
    file: File,
    answer: Mapping[str, object],
    parts: fit.GroundingParts,
    budget: int,
    *,
    name: str,
    page_type: str = "",
) -> None:
    """Append a page to a file as one line of JSON; the budget is in tokens.

    To be called where the page is fitted, with the same arguments. Several processes may append to
    one file. Raises TypeError, ValueError or RecursionError, and writes nothing, where a value has
    no JSON form that reads back as the same.
    """
    page = Page(name, page_type, cast(dict[str, Any], answer), parts, budget)
    append(file, line_of(page))


def append(file: File, line: str) -> None:
    """Append a line to a file by one call of the system, so that no other line comes between."""
    text = line.encode("ascii") + b"\n"
    with open(file, "a+b", buffering=0) as target:
        if target.seekable() and target.tell():
            target.seek(-1, os.SEEK_END)
            if target.read(1) != b"\n":  # of a line that was broken off
                text = b"\n" + text
        written = target.write(text)
    if written != len(text):
        raise OSError(f"{os.fspath(file)}: {written} of {len(text)} bytes of a page were written")


def read_line(number: int, line: bytes) -> Page | Refused:
    """Return the page of a line, or the reason why there is none."""
    try:
        return page_of(line)
    except ValueError as error:
        return Refused(number, str(error))


def load_pages(file: File) -> Pages:
    """Return the pages of a file; their fits and reports are those of the pages that were saved."""
    pages = Pages()
    with open(file, "rb") as lines:
        for number, line in enumerate(lines, 1):
            each = read_line(number, line) if line.strip() else None
            if isinstance(each, Page):
                pages.append(each)
            elif each:
                pages.refused.append(each)
    return pages
