"""Two fits compared: what was won and lost, and how much of the text stays the same from its start.

A model's prompt cache pays for the text before the first change, so that is what is measured.
"""

from __future__ import annotations

import json
from collections import Counter
from collections.abc import Iterable, Mapping, Sequence
from dataclasses import dataclass
from pathlib import Path
from typing import Any

from grounding_fit_workbench.comparison import Failed
from grounding_fit_workbench.module import fit
from grounding_fit_workbench.page_files import File, Refused
from grounding_fit_workbench.page_lines import Page
from grounding_fit_workbench.pieces import common_length

Numbered = tuple[str, int]  # a name, and how often it stood before


@dataclass(frozen=True)
class Prefix:
    """How much of a text was there before, from its start to the first change, in code points."""

    same: int
    before: int  # of the whole text
    after: int

    @property
    def share(self) -> float:
        """Return the part of the new text that was there before; 1 of an empty one."""
        return self.same / self.after if self.after else 1.0


@dataclass(frozen=True)
class PageDiff:
    """What differs between two fits of a page on the agent path, fact blocks by their labels.

    Of two reports it does not tell the texts; of one whose answer fitted, neither all blocks nor
    the bodies, which are None then.
    """

    name: str
    outcomes: tuple[str, str]
    won: list[str]  # left out before, and kept now
    lost: list[str]  # kept before, and left out now
    added: list[str]  # not given before, and kept now
    removed: list[str]  # kept before, and not given now
    bodies: tuple[int | None, int | None]
    agent: Prefix | None = None  # of the answer's JSON text
    api: Prefix | None = None  # of the grounding


@dataclass(frozen=True)
class Diff:
    """The pages that both sides have by name, in the order of the first, and what only one has."""

    pages: list[PageDiff]
    only_before: list[str]
    only_after: list[str]
    failed: list[Failed]


@dataclass(frozen=True)
class Fit:
    """What a diff knows of one side: whether each block it was given is kept, and the texts."""

    outcome: str
    kept: dict[Numbered, bool] | None  # None: all that there are, whichever these be
    bodies: int | None
    texts: tuple[str, str] | None  # the answer's JSON, and the grounding of the API path


def numbered(names: Iterable[str]) -> list[Numbered]:
    """Return names that may stand twice, each with how often it stood before."""
    count: Counter[str] = Counter()
    found = []
    for name in names:
        found.append((name, count[name]))
        count[name] += 1
    return found


def fit_of_report(report: Mapping[str, Any]) -> Fit:
    """Return what a report of `explain_page_context` tells."""
    if "outcome" not in report:
        raise ValueError("expected a report of explain_page_context, which has an outcome")
    if "facts" not in report:
        return Fit(report["outcome"], None, None, None)
    facts = report["facts"]
    labels = numbered(fact["label"] for fact in facts)
    kept = {label: fact["kept"] for label, fact in zip(labels, facts, strict=True)}
    return Fit(report["outcome"], kept, report["symbols"]["bodies"], None)


def fit_of_page(page: Page) -> Fit:
    """Fit a page on both paths."""
    answer, report = fit.explain_page_context(page.answer, page.parts, page.budget)
    grounding = fit._assemble_grounding(page.parts, page.budget)[0]
    texts = (json.dumps(answer, ensure_ascii=False), grounding)
    told = fit_of_report(report)
    if told.kept is not None:
        return Fit(told.outcome, told.kept, told.bodies, texts)
    whole = dict.fromkeys(numbered(block.label() for block in page.parts.prose), True)
    return Fit(told.outcome, whole, len(page.parts.blocks), texts)


def diff_of(name: str, before: Fit, after: Fit) -> PageDiff:
    """Return what differs between two fits."""
    old, new = before.kept, after.kept
    if old is None:
        old = dict.fromkeys(new or {}, True)
    if new is None:
        new = dict.fromkeys(old, True)
    prefixes: list[Prefix | None] = [None, None]
    if before.texts and after.texts:
        prefixes = [
            Prefix(common_length(one, other), len(one), len(other))
            for one, other in zip(before.texts, after.texts, strict=True)
        ]
    return PageDiff(
        name,
        (before.outcome, after.outcome),
        [label for label, at in new if new[label, at] and old.get((label, at)) is False],
        [label for label, at in old if old[label, at] and new.get((label, at)) is False],
        [label for label, at in new if new[label, at] and (label, at) not in old],
        [label for label, at in old if old[label, at] and (label, at) not in new],
        (before.bodies, after.bodies),
        *prefixes,
    )


def diff_reports(
    before: Mapping[str, Any], after: Mapping[str, Any], name: str = "report"
) -> PageDiff:
    """Return what differs between two reports of `explain_page_context`."""
    return diff_of(name, fit_of_report(before), fit_of_report(after))


def diff(before: Iterable[Page | Refused], after: Iterable[Page | Refused]) -> Diff:
    """Fit the pages of both sides, and return what differs between those of one name.

    Where a side has a name several times, its pages are paired in their order.
    """
    failed: list[Failed] = []
    sides = [by_name(pages, failed) for pages in (before, after)]
    pages = []
    for (name, at), page in sides[0].items():
        other = sides[1].get((name, at))
        if other is None:
            continue
        try:
            pages.append(diff_of(name, fit_of_page(page), fit_of_page(other)))
        except Exception as error:  # the host's utilities may raise anything
            failed.append(Failed(name, f"{type(error).__name__}: {error}"))
    only_before = [name for name, at in sides[0] if (name, at) not in sides[1]]
    only_after = [name for name, at in sides[1] if (name, at) not in sides[0]]
    return Diff(pages, only_before, only_after, failed)


def by_name(pages: Iterable[Page | Refused], failed: list[Failed]) -> dict[Numbered, Page]:
    """Return pages by their names; add the lines that are none to what failed."""
    read: Sequence[Page | Refused] = list(pages)
    failed += [
        Failed(f"line {each.line}", each.reason) for each in read if isinstance(each, Refused)
    ]
    found = [each for each in read if isinstance(each, Page)]
    return dict(zip(numbered(page.name for page in found), found, strict=True))


def load_reports(file: File) -> list[Any] | None:
    """Return the reports of a file, one JSON text or one in each line; None if it has none."""
    with open(file, "rb") as lines:
        try:
            first = json.loads(lines.readline())
            if "outcome" not in first:
                return None
            return [first, *(json.loads(line) for line in lines if line.strip())]
        except (ValueError, TypeError):
            pass
    try:
        whole = json.loads(Path(file).read_bytes())
    except ValueError:
        return None
    return [whole] if isinstance(whole, dict) and "outcome" in whole else None
