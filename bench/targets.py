"""What is asked of the figures, and whether they are within it."""

from dataclasses import dataclass

from calls import WHOLE_WAY
from instruction_tables import Counts, four_calls, pages_of
from table import Table

MILLION = 1_000_000
FIT, ASSEMBLE, RENDER, SIZE = (
    "_fit_page_context",
    "_assemble_grounding",
    "render_symbol",
    "_json_size",
)


@dataclass(frozen=True)
class Target:
    """A figure, and on which side of a limit it is to be."""

    what: str
    sign: str  # the good side: ≤ or ≥
    limit: float
    measured: float | None
    wanted: float | None = None  # a limit beyond the first

    def within(self, limit: float) -> bool:
        """Tell whether the figure is on the good side of a limit."""
        return self.measured <= limit if self.sign == "≤" else self.measured >= limit

    def row(self) -> list[str]:
        """Return the row of the table of targets."""
        wanted = "" if self.wanted is None else f"{self.sign} {self.wanted:,}"
        limits = [self.what, f"{self.sign} {self.limit:,}", wanted]
        if self.measured is None:
            return [*limits, "not measured", ""]
        met = "met" if self.within(self.limit) else "not met"
        if self.wanted is not None and self.within(self.wanted):
            met = "met, as wanted"
        return [*limits, f"{self.measured:,.2f}", met]


def counted(counts: Counts) -> list[Target]:
    """Hold the instructions against their targets; without counts they are not measured."""

    def millions(name: str, page: str) -> float | None:
        return counts[name, page].instructions / MILLION if counts else None

    def four(page: str) -> float | None:
        return four_calls(counts, page) / MILLION if counts else None

    symbols = {page: int(page.partition("/")[0].replace(",", "")) for page in pages_of(counts)}
    rendered = [counts[RENDER, page].instructions / symbols[page] for page in symbols]
    limits = [(FIT, 0.54, 0.84), (ASSEMBLE, 0.49, 1.25)]
    return [
        Target(
            f"`{RENDER}`, instructions a symbol, highest",
            "≤",
            6500,
            max(rendered, default=None),
            5000,
        ),
        *(
            Target(f"`{name}` {page}, million instructions", "≤", limit, millions(name, page))
            for name, *both in limits
            for page, limit in zip(("120/25", "400/60"), both, strict=True)
        ),
        Target(
            "the four calls of the whole way 120/25, million instructions",
            "≤",
            1.75,
            four("120/25"),
        ),
        Target(
            "the four calls of the whole way 400/60, million instructions", "≤", 5.6, four("400/60")
        ),
    ]


def targets(counts: Counts, ratios: dict, built_in_ratios: dict, peak: float) -> Table:
    """Hold the figures of this run against their targets."""
    middle = ("120/25", "400/60")
    lowest = min(ratio for key, ratio in built_in_ratios.items() if key[0] == ASSEMBLE)
    whole = min(built_in_ratios[WHOLE_WAY, page] for page in middle)
    sizes = min(ratios[SIZE, page] for page in middle)
    found = [
        *counted(counts),
        Target(
            "the whole way, host built in, times as fast as plain Python, lower", "≥", 20, whole
        ),
        Target(f"`{FIT}` 120/25, times as fast", "≥", 200, ratios[FIT, "120/25"], 250),
        Target(f"`{FIT}` 400/60, times as fast", "≥", 300, ratios[FIT, "400/60"], 400),
        Target(f"`{ASSEMBLE}`, host built in, times as fast, lowest", "≥", 10, lowest, 12),
        Target(f"`{SIZE}`, times as fast, lower", "≥", 65, sizes, 80),
        Target("peak memory beyond the fact text, in answers, highest", "≤", 2.2, peak, 2),
    ]
    return Table(
        "Targets",
        "The host is built in where instructions are counted, and in Python where nothing else is "
        "said. The lower of two is that of 120/25 and 400/60, the highest and the lowest are those "
        "of all pages.",
        ["figure", "target", "wanted", "measured", "met"],
        [each.row() for each in found],
    )
