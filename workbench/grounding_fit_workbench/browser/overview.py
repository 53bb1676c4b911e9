"""Writes the overview of a comparison for the browser, from its records alone.

overview_data returns all that the browser shows, and overview_text writes it into the page, whose
script lists the pages behind a number and decides nothing:

- `said`: in a sentence or two, what is left out, and which policies change most.
- `policies`: of each its `name`, the pages by `outcomes`, the `median` of the bodies a page, the
  fact blocks `left` out, `won` and `lost`, the `bodies` won and lost, and the blocks left out by
  `kinds`.
- `kinds`: of fact blocks that some policy leaves out, with how many are given; most left out first.
- `pages`, most damaged first: `name`, `href` of its own page, `labels` and `kinds` of its fact
  blocks, and `results` by policy: `outcome`, `bodies`, the change of them as `more`, and the blocks
  `left` out, `won` and `lost`, by index.
- `failed`: names and errors.
"""

from __future__ import annotations

from collections.abc import Callable
from typing import Any

from grounding_fit_workbench.browser.writer import shown, written
from grounding_fit_workbench.cases import changes_told
from grounding_fit_workbench.comparison import OVER, Comparison, PageRow, PolicyRow, Result

Link = Callable[[PageRow], str]  # where a page's own is written; "" where it is not
Data = dict[str, Any]


def left_out(row: PolicyRow) -> int:
    """Return how many fact blocks a policy leaves out."""
    return sum(kind.left_out for kind in row.kinds.values())


def as_they_are(found: Comparison) -> str:
    """Return in a sentence what the pages as they are leave out."""
    first = found.policies[0]
    given = sum(kind.given for kind in first.kinds.values())
    symbols = sum(page.symbols for page in found.pages)
    bodies = sum(page.by_policy[first.name].bodies for page in found.pages)
    over = first.outcomes[OVER]
    passed = f"{over:,} answers are" if over > 1 else "one answer is" if over else "no answer is"
    failed = f" ({len(found.failed):,} failed)" if found.failed else ""
    return (
        f"As they are, {len(found.pages):,} pages{failed} leave out {left_out(first):,} of "
        f"{given:,} fact blocks and the code of {symbols - bodies:,} of {symbols:,} symbols; "
        f"{passed} over the cap."
    )


def best_policies(found: Comparison) -> str:
    """Return in a sentence which policies keep most, "" where there is no other one."""
    first, *others = found.policies
    if not others:
        return ""
    told = []
    fewest = min(found.policies, key=left_out)
    if fewest is not first:
        told.append(f"fewest fact blocks are left out with {beside(fewest, first)}")
    most = max(found.policies, key=lambda row: row.bodies_change)
    if most is not first:
        told.append(f"most bodies stand with {beside(most, first)}")
    if not told:
        return "No other policy keeps more fact blocks, or more bodies."
    words = "; ".join(told)
    return f"{words[0].upper()}{words[1:]}."


def beside(row: PolicyRow, first: PolicyRow) -> str:
    """Return a policy's name and what it changes."""
    told = [f"fact blocks: {row.won:,} won, {row.lost:,} lost"]
    told += changes_told([], [], row.bodies_change)
    if row.outcomes[OVER] > first.outcomes[OVER]:
        told.append(f"{row.outcomes[OVER]:,} over the cap")
    return f"{row.name} ({'; '.join(told)})"


def policy_data(row: PolicyRow, kinds: list[str]) -> Data:
    """Return what a policy makes of all pages."""
    return {
        "name": row.name,
        "outcomes": row.outcomes,
        "median": row.median_bodies,
        "left": left_out(row),
        "won": row.won,
        "lost": row.lost,
        "bodies": [row.bodies_won, row.bodies_lost],
        "kinds": [row.kinds[kind].left_out for kind in kinds],
    }


def kinds_left_out(found: Comparison) -> list[str]:
    """Return the kinds of fact blocks that some policy leaves out, most left out first."""
    most = {
        kind: max(row.kinds[kind].left_out for row in found.policies)
        for kind in found.policies[0].kinds
    }
    return sorted(filter(most.get, most), key=lambda kind: (-most[kind], kind))


def result_data(now: Result, first: Result) -> Data:
    """Return what a policy makes of a page, beside what the first one makes of it."""
    return {
        "outcome": now.outcome,
        "bodies": now.bodies,
        "more": now.bodies - first.bodies,
        "left": sorted(now.blocks),
        "won": sorted(first.blocks - now.blocks),
        "lost": sorted(now.blocks - first.blocks),
    }


def page_data(page: PageRow, kinds: list[str], link: Link) -> Data:
    """Return what each policy makes of a page."""
    first = next(iter(page.by_policy.values()))
    places = {kind: place for place, kind in enumerate(kinds)}
    return {
        "name": page.name,
        "href": link(page),
        "labels": page.labels,
        "kinds": [places.get(kind) for kind in page.kinds],
        "results": [result_data(now, first) for now in page.by_policy.values()],
    }


def overview_data(found: Comparison, link: Link = lambda page: "") -> Data:
    """Return all that the browser shows of a comparison."""
    kinds = kinds_left_out(found)
    given = found.policies[0].kinds
    return {
        "said": f"{as_they_are(found)} {best_policies(found)}".strip(),
        "policies": [policy_data(row, kinds) for row in found.policies],
        "kinds": [[kind, given[kind].given] for kind in kinds],
        "pages": [page_data(page, kinds, link) for page in found.pages],
        "failed": [[each.name, each.error] for each in found.failed],
    }


def overview_text(found: Comparison, link: Link = lambda page: "") -> str:
    """Return the overview; a number opens to the names of its pages, a name leads to its own."""
    return written("overview", shown(overview_data(found, link)))
