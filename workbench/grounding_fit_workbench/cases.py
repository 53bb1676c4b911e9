"""Something that an answer lacks, and the changes of one knob that keep it, each tried."""

from __future__ import annotations

from collections.abc import Callable
from dataclasses import dataclass, field
from typing import Any

from grounding_fit_workbench.floor_ranges import Report, report_of
from grounding_fit_workbench.page_lines import Page
from grounding_fit_workbench.pieces import symbol_name
from grounding_fit_workbench.trials import Trial

OVER = "over the cap"
NAMED = 3  # labels of a list in a sentence


@dataclass(frozen=True)
class Change:
    """A knob turned no further than needed, and what else that changes."""

    knob: str  # "code_floor", "share", "first", "place", "seeds" or "budget"
    words: str  # what is changed to what
    value: float | int | str  # as told: a share or floor is rounded to where it still does
    exact: float | int | str  # the last one that does, to the last double
    page: Page  # with the change made
    won: list[str]  # labels of blocks that are kept too, and were not
    lost: list[str]  # labels of blocks that are not kept any more
    bodies: int  # so many more stand whole, or fewer

    def __str__(self) -> str:
        return "; ".join([self.words, *changes_told(self.won, self.lost, self.bodies, " too")])


@dataclass(frozen=True)
class Advice:
    """What would keep one thing that an answer lacks."""

    what: str  # the label of a fact block, or the name of the next symbol
    index: int  # of the fact block; of the symbol, when `is_body`
    is_body: bool
    changes: list[Change] = field(default_factory=list)
    refused: list[str] = field(default_factory=list)  # the knobs that cannot alone, and how far off


def listed(labels: list[str]) -> str:
    """Return the first few of many labels, and how many more there are."""
    named = labels[:NAMED]
    if len(labels) > NAMED:
        named.append(f"{len(labels) - NAMED:,} more")
    return ", ".join(named)


def counted(count: int, noun: str) -> str:
    """Return a number with its noun, of which there may be many."""
    many = "bodies" if noun == "body" else f"{noun}s"
    return f"{count:,} {noun if count == 1 else many}"


def changes_told(won: list[str], lost: list[str], bodies: int, besides: str = "") -> list[str]:
    """Return in words which blocks are kept now and were not, or the other way, and bodies more."""
    told = []
    if won:
        told.append(f"keeps {listed(won)}{besides}")
    if lost:
        told.append(f"loses {listed(lost)}")
    if bodies:
        told.append(f"{counted(abs(bodies), 'body')} {'more' if bodies > 0 else 'fewer'}")
    return told


class Case:
    """Something that an answer lacks, and the changes that would keep it."""

    def __init__(self, page: Page, report: Report, index: int, is_body: bool) -> None:
        self.page = page
        self.report = report
        self.index = index
        self.is_body = is_body
        name = symbol_name(page.parts, index) if is_body else page.parts.prose[index].label()
        self.advice = Advice(name, index, is_body)

    def keeps(self, report: Report, order: list[int] | None = None) -> bool:
        """Whether it is kept in a page whose blocks stand in this order, by its report."""
        if report["outcome"] == OVER != self.report["outcome"]:
            return False
        if self.is_body:
            return bool(report["symbols"]["bodies"] > self.index)
        return bool(report["facts"][order.index(self.index) if order else self.index]["kept"])

    def short_in(self, report: Report) -> int | None:
        """Return by how many JSON characters it is refused in a report, if that is told."""
        if not self.is_body:
            short: int | None = report["facts"][self.index]["short_by"]
            return short
        symbols = report["symbols"]
        return symbols.get("short_by_characters") if symbols["bodies"] == self.index else None

    def failed_by(self, report: Report) -> str:
        """Return the end of a sentence that says it is refused, with what a report tells of it."""
        if report["outcome"] == OVER:
            return ", and the answer is over its cap"
        short = self.short_in(report)
        return f", by {short:,}" if short else ""

    def with_floor(self, floor: float) -> Page:
        """Return the page with another code floor."""
        return Trial("", code_floor=floor).changed(self.page)

    def with_budget(self, tokens: int) -> Page:
        """Return the page with another token budget."""
        return Trial("", budget=tokens).changed(self.page)

    def offer(
        self,
        knob: str,
        words: str,
        values: tuple[Any, Any],
        change: Callable[[Any], Page],
        order: list[int] | None = None,
    ) -> bool:
        """Make a change with the value to tell and with the exact one; add it if both do."""
        pages = [change(value) for value in values]
        reports = [report_of(page) for page in pages]
        if not all(self.keeps(report, order) for report in reports):
            return False
        facts = reports[0]["facts"]
        now = {
            index: fact["kept"]
            for index, fact in zip(order or range(len(facts)), facts, strict=True)
        }
        before = [fact["kept"] for fact in self.report["facts"]]
        labels = [block.label() for block in self.page.parts.prose]
        changed = [n for n in now if now[n] != before[n] and (self.is_body or n != self.index)]
        won = [labels[n] for n in sorted(changed) if now[n]]
        lost = [labels[n] for n in sorted(changed) if before[n]]
        bodies = reports[0]["symbols"]["bodies"] - self.report["symbols"]["bodies"]
        self.advice.changes.append(Change(knob, words, *values, pages[0], won, lost, bodies))
        return True
