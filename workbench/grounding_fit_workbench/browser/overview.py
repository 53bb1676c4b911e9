"""Writes the overview of a comparison for the browser, from its records alone.

overview_data returns all that the browser shows, and overview_text writes it into the page, whose
script lists the pages behind a number and decides nothing:

- `said`: in a few sentences, what is left out, and which policies change most.
- `words`: those of a trial, with what they change. `present`: the unchanged pages' own.
- `policies`: of each its `name`, the pages by `outcomes`, the `median` of the bodies a page, the
  `fewest` on a page and the pages with `none`, the fact blocks `left` out, `won` and `lost`, the
  `bodies` won and lost, `within`: the blocks won and bodies lost in answers within the cap, and the
  blocks left out by `kinds`.
- `kinds`: of fact blocks that some policy leaves out, with how many are given, most left out first;
  then all others in one row, with their names.
- `pages`, most damaged first: `name`, `href` of its own page, `labels` and `kinds` of its fact
  blocks, and `results` by policy: `outcome`, by how much it is `over` the cap, `bodies`, the change
  of them as `more` and by `names`, whether there is `none`, and the blocks `left` out, `won` and
  `lost`, by index.
- `failed`: names and errors.
"""

from __future__ import annotations

from collections.abc import Callable, Iterator
from operator import attrgetter
from typing import Any

from grounding_fit_workbench.browser.writer import shown, written
from grounding_fit_workbench.cases import counted, listed
from grounding_fit_workbench.comparison import OVER, Comparison, PageRow, PolicyRow, Result
from grounding_fit_workbench.trials import WORDS

Link = Callable[[PageRow], str]  # where a page's own is written; "" where it is not
Data = dict[str, Any]
EACH_ITS_OWN = {
    "code_floor": "each page's own code_floor",
    "share": "shares of its page type",
    "first": "first of its page type",
}


def unchanged(found: Comparison) -> str:
    """Return in a sentence what the unchanged pages leave out."""
    first = found.policies[0]
    given = sum(kind.given for kind in first.kinds.values())
    symbols = sum(len(page.symbols) for page in found.pages)
    bodies = sum(page.by_policy[first.name].bodies for page in found.pages)
    over = first.outcomes[OVER]
    passed = f"{over:,} answers are" if over > 1 else "one answer is" if over else "no answer is"
    failed = f" ({len(found.failed):,} failed)" if found.failed else ""
    return (
        f"Unchanged, {len(found.pages):,} pages{failed} leave out {first.left_out:,} of "
        f"{given:,} fact blocks and the code of {symbols - bodies:,} of {symbols:,} symbols; "
        f"{passed} over the cap."
    )


def best_policies(found: Comparison) -> str:
    """Return in sentences which policies keep most, "" where there is no other one."""
    first, *others = found.policies
    if not others:
        return ""
    safe = [row for row in found.policies if row.outcomes[OVER] <= first.outcomes[OVER]]
    best = min(safe, key=attrgetter("left_out"))
    fewest = min(found.policies, key=attrgetter("left_out"))
    most = max(safe, key=lambda row: row.bodies_change)
    told = []
    if best is not first:
        told.append(f"The fewest fact blocks are left out with {beside(best)}.")
    if fewest.left_out < best.left_out:
        names = [page.name for page in found.pages if page.by_policy[fewest.name].excess]
        over = f"{counted(len(names), 'page')} over the cap"
        fewer = "Fewer still" if told else "Fewer fact blocks are left out"
        told.append(f"{fewer} with {beside(fewest)}, but {over}: {listed(names)}.")
    if most is not first:
        told.append(f"The most bodies stand with {beside(most)}.")
    return " ".join(told) or "No other policy keeps more fact blocks, or more bodies."


def beside(row: PolicyRow) -> str:
    """Return a policy's name, and what it changes beside the unchanged pages."""
    told = [
        *turned(row.won, "fact block", "won", row.won_within),
        *turned(row.lost, "fact block", "lost", row.lost),
        *turned(row.bodies_won, "body", "won", row.bodies_won),
        *turned(row.bodies_lost, "body", "lost", row.bodies_lost_within),
    ]
    return f"{row.name} ({'; '.join(told)})"


def turned(count: int, noun: str, how: str, within: int) -> Iterator[str]:
    """Yield how many were won or lost, if any, and how many of them in answers within the cap."""
    if count:
        beyond = f", {within or 'none'} of them within the cap" if within < count else ""
        yield f"{counted(count, noun)} {how}{beyond}"


def present_policy(pages: list[PageRow]) -> str:
    """Return what the unchanged pages are fitted with, as far as they share it."""
    if not pages:
        return ""
    told = []
    for knob, otherwise in EACH_ITS_OWN.items():
        words = {page.words[knob] for page in pages}
        told.append(words.pop() if len(words) == 1 else otherwise)
    budgets = [page.budget for page in pages]
    least, most = min(budgets), max(budgets)
    reach = f" to {most:,}" if most > least else ""
    return f"as saved: {', '.join(told)}, budget={least:,}{reach}"


def policy_data(row: PolicyRow, kinds: list[str]) -> Data:
    """Return what a policy makes of all pages."""
    return {
        "name": row.name,
        "outcomes": row.outcomes,
        "median": row.median_bodies,
        "fewest": row.fewest_bodies,
        "none": row.without_bodies,
        "left": row.left_out,
        "won": row.won,
        "lost": row.lost,
        "bodies": [row.bodies_won, row.bodies_lost],
        "within": [row.won_within, row.bodies_lost_within],
        "kinds": [*(row.kinds[kind].left_out for kind in kinds), 0],
    }


def kinds_data(found: Comparison, kinds: list[str]) -> list[list[Any]]:
    """Return the kinds that some policy leaves out, and in one row those that always stay."""
    given = {kind: counted.given for kind, counted in found.policies[0].kinds.items()}
    others = [kind for kind in given if kind not in kinds]
    rows = [[kind, given[kind], ""] for kind in kinds]
    staying = sum(given[kind] for kind in others)
    return (
        [*rows, ["stay with every policy", staying, listed(others)]] if kinds and others else rows
    )


def result_data(page: PageRow, now: Result, first: Result) -> Data:
    """Return what a policy makes of a page, beside what the first one makes of it."""
    changed = slice(*sorted((now.bodies, first.bodies)))
    return {
        "outcome": now.outcome,
        "over": now.excess,
        "bodies": now.bodies,
        "more": now.bodies - first.bodies,
        "names": listed(page.symbols[changed]),
        "none": bool(page.symbols) and not now.bodies,
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
        "kinds": [places.get(kind, len(kinds)) for kind in page.kinds],
        "results": [result_data(page, now, first) for now in page.by_policy.values()],
    }


def overview_data(found: Comparison, link: Link = lambda page: "") -> Data:
    """Return all that the browser shows of a comparison."""
    kinds = found.kinds_left_out()
    return {
        "said": f"{unchanged(found)} {best_policies(found)}".strip(),
        "words": list(WORDS.items()),
        "present": present_policy(found.pages),
        "policies": [policy_data(row, kinds) for row in found.policies],
        "kinds": kinds_data(found, kinds),
        "pages": [page_data(page, kinds, link) for page in found.pages],
        "failed": [[each.name, each.error] for each in found.failed],
    }


def overview_text(found: Comparison, link: Link = lambda page: "") -> str:
    """Return the overview; a number opens to the names of its pages, a name leads to its own."""
    return written("overview", shown(overview_data(found, link)))
