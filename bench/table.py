"""A table of what was measured, as Markdown."""

import textwrap
from dataclasses import dataclass

Cell = str | int | float


@dataclass(frozen=True)
class Table:
    """A table, with a sentence that says what stands in it."""

    caption: str
    intro: str
    titles: list[str]
    rows: list[list[Cell]]

    def markdown(self) -> str:
        """Return the table as Markdown, its numbers to the right."""
        ruler = "|:--|" + "--:|" * (len(self.titles) - 1)
        head = [f"### {self.caption}", "", textwrap.fill(self.intro, 100), ""]
        return "\n".join([*head, row_text(self.titles), ruler, *map(row_text, self.rows)])


def row_text(cells: list[Cell]) -> str:
    """Return a row of a table as Markdown; fractions get one decimal."""
    shown = []
    for cell in cells:
        if isinstance(cell, str):
            shown.append(cell)
        else:
            shown.append(f"{cell:,.1f}" if isinstance(cell, float) else f"{cell:,}")
    return f"| {' | '.join(shown)} |"
