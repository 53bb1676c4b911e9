"""Other policies over all pages: what each makes of every page, beside the unchanged ones.

Only the agent path is asked: policies are for it alone.
"""

from __future__ import annotations

from collections.abc import Iterable, Sequence
from dataclasses import dataclass, field
from typing import Any

from grounding_fit_workbench.module import fit
from grounding_fit_workbench.page_files import Refused
from grounding_fit_workbench.page_lines import Page
from grounding_fit_workbench.pieces import symbol_name
from grounding_fit_workbench.trials import Trial, as_trials, present_words

OVER = "over the cap"
OUTCOMES = ("fits", "fits without prior_markdown", "rebuilt", OVER)


@dataclass(frozen=True)
class Result:
    """What a policy makes of a page."""

    outcome: str
    left_out: list[str]  # labels of fact blocks
    bodies: int
    size: int  # JSON characters of the answer
    blocks: frozenset[int]  # those left out, by their index in the unchanged page

    @property
    def excess(self) -> int:
        """Return by how many JSON characters the answer is over the cap."""
        return max(0, self.size - fit._PAGE_CONTEXT_MAX_CHARS)


@dataclass(frozen=True)
class PageRow:
    """A page under each policy, by the policy's name; the unchanged page comes first."""

    number: int  # of the page among those compared, or of its line, from 1
    name: str
    by_policy: dict[str, Result]
    kinds: list[str]  # of its fact blocks: the key, or else the label
    labels: list[str]  # of its fact blocks
    symbols: list[str]  # their names, best first
    budget: int  # tokens of the unchanged page
    words: dict[str, str]  # of the unchanged page's policy, by knob

    def changes(self, policy: str) -> tuple[int, int, int]:
        """Return the blocks won and lost, and how many more bodies stand, beside the first row."""
        first = next(iter(self.by_policy.values()))
        now = self.by_policy[policy]
        won, lost = len(first.blocks - now.blocks), len(now.blocks - first.blocks)
        return won, lost, now.bodies - first.bodies

    def damage(self) -> tuple[int, int, int, int]:
        """Return how much policies take from the page; what is worse is greater."""
        results = list(self.by_policy.values())
        over = sum(result.outcome == OVER for result in results)
        changes = [self.changes(policy) for policy in self.by_policy]
        net_lost = max(lost - won for won, lost, _ in changes)
        bodies_lost = max(-bodies for _, _, bodies in changes)
        return over, net_lost, len(results[0].blocks), bodies_lost


@dataclass(frozen=True)
class Failed:
    """A page that a policy could not be tried on, or a line that is no page; it is in no row."""

    name: str
    error: str


@dataclass
class Kind:
    """How many fact blocks of a kind the pages have, and how many were left out of answers."""

    given: int = 0
    left_out: int = 0


@dataclass
class PolicyRow:
    """What a policy makes of all pages, with changes beside the first row."""

    name: str
    outcomes: dict[str, int] = field(default_factory=lambda: dict.fromkeys(OUTCOMES, 0))
    median_bodies: float = 0
    kinds: dict[str, Kind] = field(default_factory=dict)  # of fact blocks, by key or else label
    won: int = 0  # fact blocks
    lost: int = 0
    bodies_won: int = 0
    bodies_lost: int = 0
    won_within: int = 0  # of the fact blocks won, those in answers within the cap
    bodies_lost_within: int = 0  # of the bodies lost, those missing in answers within the cap
    fewest_bodies: int = 0  # on a page that has symbols
    without_bodies: int = 0  # pages that have symbols

    @property
    def left_out(self) -> int:
        """Return how many fact blocks are left out of all pages together."""
        return sum(kind.left_out for kind in self.kinds.values())

    @property
    def bodies_change(self) -> int:
        """Return how many more bodies stand in all pages together."""
        return self.bodies_won - self.bodies_lost


@dataclass(frozen=True)
class Comparison:
    """All policies, the first of which changes nothing, over all pages, most damaged first."""

    policies: list[PolicyRow]
    pages: list[PageRow]
    failed: list[Failed]

    def kinds_left_out(self) -> list[str]:
        """Return the kinds of fact blocks that some policy leaves out, most left out first."""
        most = {
            kind: max(row.kinds[kind].left_out for row in self.policies)
            for kind in self.policies[0].kinds
        }
        return sorted(filter(most.__getitem__, most), key=lambda kind: (-most[kind], kind))

    def as_json(self) -> dict[str, Any]:
        """Return what `json.dumps` takes."""
        return {
            "policies": [policy_json(each) for each in self.policies],
            "pages": [page_json(each) for each in self.pages],
            "failed": [vars(each) for each in self.failed],
        }


def compare(pages: Iterable[Page | Refused], trials: Iterable[str | Trial] = ()) -> Comparison:
    """Fit all pages with each policy, and unchanged.

    Trials are told in words, such as `code_floor=.2`. A page that fails stops no other.
    """
    tried = as_trials(trials)
    rows = [tried_on(number, page, trials=tried) for number, page in enumerate(pages, 1)]
    return summed(rows, tried)


def tried_on(number: int, page: Page | Refused, *, trials: Sequence[Trial]) -> PageRow | Failed:
    """Fit a page with each policy."""
    if isinstance(page, Refused):
        return Failed(f"line {page.line}", page.reason)
    results: dict[str, Result] = {}
    for trial in trials:
        try:
            results[trial.name] = result_of(page, trial)
        except Exception as error:  # the host's utilities may raise anything
            return Failed(page.name, f"{trial.name}: {type(error).__name__}: {error}")
    labels = [block.label() for block in page.parts.prose]
    kinds = [block.key or label for block, label in zip(page.parts.prose, labels, strict=True)]
    symbols = [symbol_name(page.parts, rank) for rank in range(len(page.parts.blocks))]
    words = present_words(page)
    return PageRow(number, page.name, results, kinds, labels, symbols, page.budget, words)


def result_of(page: Page, trial: Trial) -> Result:
    """Fit a page with a policy."""
    now = trial.changed(page)
    _, report = fit.explain_page_context(now.answer, now.parts, now.budget)
    if "facts" not in report:
        return Result(report["outcome"], [], len(page.parts.blocks), report["size"], frozenset())
    facts = report["facts"]
    places = [place for place, fact in enumerate(facts) if not fact["kept"]]
    labels = [facts[place]["label"] for place in places]
    if trial.front:
        order = trial.order(page)
        places = [order[place] for place in places]
    bodies = report["symbols"]["bodies"]
    return Result(report["outcome"], labels, bodies, report["size"], frozenset(places))


def summed(rows: Iterable[PageRow | Failed], trials: Sequence[Trial]) -> Comparison:
    """Return the comparison of pages that the policies were tried on."""
    found = list(rows)
    pages = [row for row in found if isinstance(row, PageRow)]
    failed = [row for row in found if isinstance(row, Failed)]
    pages.sort(key=PageRow.damage, reverse=True)
    return Comparison([policy_row(trial.name, pages) for trial in trials], pages, failed)


def policy_row(name: str, pages: list[PageRow]) -> PolicyRow:
    """Return what a policy makes of all pages."""
    row = PolicyRow(name)
    for page in pages:
        result = page.by_policy[name]
        row.outcomes[result.outcome] += 1
        won, lost, bodies = page.changes(name)
        row.won += won
        row.lost += lost
        row.bodies_won += max(0, bodies)
        row.bodies_lost += max(0, -bodies)
        if not result.excess:
            row.won_within += won
            row.bodies_lost_within += max(0, -bodies)
        for index, kind in enumerate(page.kinds):
            counted = row.kinds.setdefault(kind, Kind())
            counted.given += 1
            counted.left_out += index in result.blocks
    bodies_of = sorted(page.by_policy[name].bodies for page in pages)
    middle = bodies_of[(len(pages) - 1) // 2 : len(pages) // 2 + 1]
    row.median_bodies = sum(middle) / len(middle) if middle else 0
    with_symbols = [page.by_policy[name].bodies for page in pages if page.symbols]
    row.fewest_bodies = min(with_symbols, default=0)
    row.without_bodies = with_symbols.count(0)
    return row


def policy_json(row: PolicyRow) -> dict[str, Any]:
    """Return what a policy makes of all pages for `json.dumps`."""
    return {
        "name": row.name,
        "outcomes": row.outcomes,
        "median_bodies": row.median_bodies,
        "kinds": {kind: vars(counted) for kind, counted in row.kinds.items()},
        "won": row.won,
        "lost": row.lost,
        "bodies_change": row.bodies_change,
        "won_within_cap": row.won_within,
        "bodies_lost": row.bodies_lost,
        "bodies_lost_within_cap": row.bodies_lost_within,
        "fewest_bodies": row.fewest_bodies,
        "pages_without_bodies": row.without_bodies,
    }


def page_json(row: PageRow) -> dict[str, Any]:
    """Return what each policy makes of a page for `json.dumps`."""
    told = ("outcome", "left_out", "bodies", "size")
    by_policy = {
        name: {field: getattr(result, field) for field in told}
        for name, result in row.by_policy.items()
    }
    return {"name": row.name, "by_policy": by_policy}
