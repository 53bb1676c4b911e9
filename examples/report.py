"""Draws where the room of a fitted page went, as it is read back from the results."""

import os
import sys
import textwrap
from collections import Counter
from collections.abc import Callable, Iterator
from dataclasses import dataclass, replace

import grounding_fit as fit

WIDTH = 98  # columns
NAME_WIDTH = 54
BLANK_LINE = "\n\n"
Measure = Callable[[str], int]


@dataclass(frozen=True)
class Part:
    """What a share of a result is spent on, and its colour number on a terminal."""

    meaning: str
    colour: int


PARTS = {
    "F": Part("facts", 32),
    "B": Part("bodies", 71),
    "L": Part("listing", 178),
    "O": Part("other", 97),
    "N": Part("note", 167),
    ".": Part("free", 238),
}


@dataclass(frozen=True)
class Row:
    """One piece of a result; sizes are tokens or JSON characters, as the result is measured."""

    part: str
    name: str
    outcome: str
    size: int
    whole: int = 0  # its size if it had been kept whole


class GroundingReader:
    """Follows the pieces through a grounding; each counts what it adds to the text before it."""

    def __init__(self, text: str, parts: fit.GroundingParts, measure: Measure):
        self.text = text
        self.parts = parts
        self.measure = measure
        self.at = 0

    def added(self, start: int) -> int:
        """Return what the text from an offset, in code points, to here adds."""
        return self.measure(self.text[: self.at]) - self.measure(self.text[:start])

    def take(self, piece: str) -> bool:
        """Step over a piece when it stands here whole, and say whether it does."""
        found = (self.text + BLANK_LINE).startswith(piece + BLANK_LINE, self.at)
        if found:
            self.at += len(piece + BLANK_LINE)
        return found

    def fact_rows(self) -> list[Row]:
        """Return a row per fact block; before the code may stand the head of one that was cut."""
        rows = []
        for block in self.parts.prose:
            start = self.at
            outcome = "kept" if self.take(block.text) else "left out"
            whole = self.measure(block.text)
            rows.append(Row("F", block.label(), outcome, self.added(start), whole))
        start = self.at
        self.at = self.code_start()
        if self.at > start:
            cut = [row.outcome for row in rows].index("left out")
            rows[cut] = replace(rows[cut], outcome="cut", size=self.added(start))
        return rows

    def code_start(self) -> int:
        """Return where the first body or the listing begins, else the end of the text."""
        if self.parts.blocks:
            for opening in (self.parts.blocks[0][0], fit._LISTED_HEADING):
                found = self.text.find(opening, self.at)
                if found >= 0:
                    return found
        return len(self.text)

    def code_rows(self) -> Iterator[Row]:
        """Yield a row for the symbols kept whole, for those listed, for those left out."""
        blocks = self.parts.blocks
        start = self.at
        kept = 0
        while kept < len(blocks) and self.take(blocks[kept][0]):
            kept += 1
        bodies_size = self.added(start)
        start = self.at
        self.at = len(self.text)
        shown = kept + self.text.count("\n", start)  # below its heading, a line per symbol
        runs = [
            ("B", 0, kept, "kept whole", bodies_size),
            ("L", kept, shown, "listed", self.added(start)),
            ("L", shown, len(blocks), "left out", 0),
        ]
        for part, first, last, outcome, size in runs:
            if first < last:
                whole = sum(self.measure(code) for code, _ in blocks[first:last])
                yield Row(part, f"symbols {first + 1:,}-{last:,}", outcome, size, whole)


def grounding_rows(text: str, parts: fit.GroundingParts, measure: Measure) -> list[Row]:
    """Return what every piece of a grounding was spent on."""
    reader = GroundingReader(text, parts, measure)
    return [*reader.fact_rows(), *reader.code_rows()]


def text_size(text: str) -> int:
    """Return the JSON characters of a text within its quotes."""
    return fit._json_size(text) - len('""')


def answer_rows(given: dict, answer: dict, parts: fit.GroundingParts) -> list[Row]:
    """Say what every JSON character of an answer is spent on."""
    rows = grounding_rows(answer["grounding"], parts, text_size)
    for field in ("prior_markdown", "symbols", "citation_seeds"):
        outcome = "cut" if answer[field] else "left out"
        if answer[field] == given[field]:
            outcome = "kept"
        sizes = fit._json_size(answer[field]), fit._json_size(given[field])
        rows.append(Row("O", field, outcome, *sizes))
    if "truncated" in answer:
        rows.append(Row("N", "truncated", "added", fit._json_size(answer["truncated"])))
    rest = fit._json_size(answer) - sum(row.size for row in rows)
    return [*rows, Row("O", "all other fields, names and punctuation", "kept", rest)]


def inks() -> dict[str, str]:
    """Return how a cell of each part is drawn: its letter, or a colour on a terminal."""
    if os.environ.get("NO_COLOR") or not sys.stdout.isatty():
        return {letter: letter for letter in PARTS}
    return {letter: f"\x1b[48;5;{part.colour}m \x1b[0m" for letter, part in PARTS.items()}


def bar_cells(sizes: dict[str, int], scale: float) -> Counter:
    """Share the bar out: each part that has a size gets a cell, the widest takes the rounding."""
    cells = Counter({part: max(1, round(size * scale)) for part, size in sizes.items() if size})
    cells[max(cells, key=cells.get, default=".")] += WIDTH - sum(cells.values())
    return cells


def row_line(row: Row, ink: str) -> str:
    """Return the line of the report for a piece."""
    name = row.name
    if len(name) > NAME_WIDTH:
        name = f"{name[:NAME_WIDTH - 3]}..."
    line = f"{ink if row.size else ' '} {name:<{NAME_WIDTH}} {row.outcome:<10} {row.size:>9,}"
    if row.whole and "kept" not in row.outcome:
        line += f" of {row.whole:,}"
    return line


def print_path(title: str, unit: str, room: int, rows: list[Row], remark: str) -> None:
    """Print a bar to scale, what its letters mean, a row per piece, and a remark."""
    sizes = {part: sum(row.size for row in rows if row.part == part) for part in PARTS}
    total = sum(sizes.values())
    sizes["."] = max(0, room - total)
    state = f"{sizes['.']:,} free" if total <= room else f"{total - room:,} OVER"
    cells = bar_cells(sizes, WIDTH / max(total, room, 1))
    ink = inks()
    print(f"\n{title}: {total:,} of {room:,} {unit}, {state}")
    print("".join(ink[part] * count for part, count in cells.items()))
    print("  ".join(f"{ink[part]} {PARTS[part].meaning} {sizes[part]:,}" for part in cells))
    for row in rows:
        print(row_line(row, ink[row.part]))
    print(textwrap.fill(remark, WIDTH, break_on_hyphens=False))
