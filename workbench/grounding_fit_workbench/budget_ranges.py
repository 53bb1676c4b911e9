"""From which token budget on what stands in a page: exact, for every budget from 0 on.

On the agent path an answer depends on the token budget only through the number of bodies that the
tokens allow. So there is a range for each such number, and neighbours with the same answer are one.
On the API path the code depends on that number alone, and the facts on the tokens that it leaves.
"""

from __future__ import annotations

import math
from bisect import bisect_left, bisect_right
from collections.abc import Callable
from dataclasses import dataclass, field
from functools import cached_property, partial
from itertools import accumulate, pairwise
from typing import Any

from grounding_fit_workbench.module import fit, tokens_of
from grounding_fit_workbench.page_lines import Page
from grounding_fit_workbench.pieces import BLANK_LINE, common_length
from grounding_fit_workbench.trials import MOST_TOKENS

Report = dict[str, Any]
Counts = list[tuple[int, Report]]  # for each number of bodies, its least budget and API report


@dataclass(frozen=True)
class Range:
    """Token budgets with which the same stands in a page."""

    least: int
    most: int | None  # None: from `least` on
    bodies: int  # symbols that stand whole, from the best on
    facts: tuple[str, ...]  # "whole", "cut" or "left out", by the page's fact blocks
    explain: Callable[[], Report] = field(repr=False, compare=False)

    @cached_property
    def report(self) -> Report:
        """The report of the module, with a budget of `least`."""
        return self.explain()


@dataclass(frozen=True)
class Ranges:
    """The ranges of a page on both paths, each from a budget of 0 on without a gap.

    On the agent path the answer changes with every range. Within a range of the API path only the
    one fact block that is cut may grow. `cut_is_monotone` is False when the host's cut was seen to
    keep less of the facts for more tokens; then every number of tokens was tried.
    """

    agent: list[Range]
    api: list[Range]
    cut_is_monotone: bool


def ranges(page: Page) -> Ranges:
    """Return from which token budget on what stands in a page, on both paths."""
    counts = body_counts(page.parts)
    cuts = FactCuts(page.parts)
    return Ranges(agent_ranges(page, counts), api_ranges(page, counts, cuts), cuts.monotone)


def spans(found: list[Range], holds: Callable[[Range], bool]) -> list[tuple[int, int | None]]:
    """Return the budgets, first and last, of each stretch of ranges for which something holds."""
    merged: list[tuple[int, int | None]] = []
    for each in found:
        if not holds(each):
            continue
        if merged and merged[-1][1] == each.least - 1:
            merged[-1] = (merged[-1][0], each.most)
        else:
            merged.append((each.least, each.most))
    return merged


def fact_spans(found: list[Range], index: int, state: str) -> list[tuple[int, int | None]]:
    """Return the budgets with which a fact block is "whole", "cut" or "left out"."""
    return spans(found, lambda each: each.facts[index] == state)


def body_counts(parts: fit.GroundingParts) -> Counts:
    """Return from which budget on the tokens allow how many bodies, never fewer for more."""
    counts: Counts = []
    least: int | None = 0
    while least is not None:
        report: Any = fit.explain_grounding(parts, least)[1]
        counts.append((least, report))
        least = next_count(parts, least, report)
    return counts


def next_count(parts: fit.GroundingParts, budget: int, report: Report) -> int | None:
    """Return the least budget that allows more bodies than a report tells, None for none."""
    symbols = report["symbols"]
    if symbols["stopped_by"] == "nothing":
        return None
    share = report["share"] + symbols["short_by_tokens"]
    from_facts = share + report["facts"]["whole"]
    guess = min(from_facts, math.ceil(share / fit._SYM_BUDGET_FLOOR))
    bodies: int = symbols["bodies"]
    return least_above(budget, guess, lambda more: fit._blocks_within(parts, more) > bodies)


def least_above(low: int, guess: int, holds: Callable[[int], bool]) -> int | None:
    """Return the least budget above one from which on something holds, looked for near a guess."""
    high = max(low + 1, min(guess, MOST_TOKENS))
    step = 1
    while not holds(high):
        if high == MOST_TOKENS:
            return None
        low, high, step = high, min(high + step, MOST_TOKENS), 2 * step
    step = 1
    while high - step > low and holds(high - step):
        high, step = high - step, 2 * step
    low = max(low, high - step)
    return low + 1 + bisect_left(range(low + 1, high), True, key=holds)


# --- the agent path ---


def agent_ranges(page: Page, counts: Counts) -> list[Range]:
    """Return the ranges of the agent path: one for each answer."""
    found: list[tuple[int, dict[str, Any], Report]] = []
    for least, _ in counts:
        answer, told = fit.explain_page_context(page.answer, page.parts, least)
        report: Any = told
        if not found or answer != found[-1][1]:
            found.append((least, answer, report))
        if "facts" not in report:
            break  # nothing was rebuilt, so that the budget was not asked
    lasts = [least - 1 for least, _, _ in found[1:]]
    return [
        Range(least, last, *agent_state(page.parts, report), partial(known, report))
        for (least, _, report), last in zip(found, [*lasts, None], strict=True)
    ]


def known(report: Report) -> Report:
    """Return a report that there is already."""
    return report


def agent_state(parts: fit.GroundingParts, report: Report) -> tuple[int, tuple[str, ...]]:
    """Return how many bodies an answer has, and what became of each fact block."""
    if "facts" not in report:
        return len(parts.blocks), ("whole",) * len(parts.prose)
    facts = tuple("whole" if fact["kept"] else "left out" for fact in report["facts"])
    return report["symbols"]["bodies"], facts


# --- the API path ---


def changes(least: int, most: int, state: Callable[[int], int]) -> list[tuple[int, int]]:
    """Return each state with the least number that has it, if none comes back once it is gone."""
    found = [(least, state(least))]

    def search(low: int, high: int) -> None:
        if state(low) == state(high):
            return
        if high == low + 1:
            found.append((high, state(high)))
            return
        middle = (low + high) // 2
        search(low, middle)
        search(middle, high)

    search(least, most)
    return found


class FactCuts:
    """What the host's cut leaves of the fact blocks, by the tokens that there are for them."""

    def __init__(self, parts: fit.GroundingParts) -> None:
        self.blocks = len(parts.prose)
        self.told = [index for index, block in enumerate(parts.prose) if block.text]
        texts = [parts.prose[index].text for index in self.told]
        self.alone = fit.GroundingParts([fit.FactBlock(text) for text in texts], (), set())
        self.no_code = tokens_of("")
        self.text = BLANK_LINE.join(texts)
        ends = list(accumulate(len(text) + len(BLANK_LINE) for text in texts))
        self.ends = [end - len(BLANK_LINE) for end in ends]
        self.begun = [end + 1 for end in [0, *ends[:-1]]]
        self.kept: dict[int, int] = {}  # code points, by tokens
        enough = 2 * max(1, tokens_of(self.text))
        most = enough
        while most < MOST_TOKENS // 4 and self.standing(most) < 2 * len(texts):
            most *= 2
        self.changes = changes(0, most, self.standing)
        kept = [self.kept[room] for room in sorted(self.kept)]
        self.monotone = kept == sorted(kept)
        if not self.monotone:
            every = [(room, self.standing(room)) for room in range(enough + 1)]
            changed = (now for before, now in pairwise(every) if before[1] != now[1])
            self.changes = [every[0], *changed]

    def standing(self, room: int) -> int:
        """Return how many blocks begin, and how many end, before the cut, taken together."""
        if room not in self.kept:
            cut = fit._assemble_grounding(self.alone, room + self.no_code)[0]
            self.kept[room] = common_length(self.text, cut)
        kept = self.kept[room]
        return bisect_right(self.begun, kept) + bisect_right(self.ends, kept)

    def facts(self, standing: int) -> tuple[str, ...]:
        """Return what became of each block; those without a text are not there."""
        states = ["left out"] * self.blocks
        for at, index in enumerate(self.told):
            if 2 * at < standing:
                states[index] = "whole" if 2 * at + 1 < standing else "cut"
        return tuple(states)


def api_ranges(page: Page, counts: Counts, cuts: FactCuts) -> list[Range]:
    """Return the ranges of the API path: for each number of bodies, as the facts are cut."""
    found: list[tuple[int, int, tuple[str, ...]]] = []
    rooms = [room for room, _ in cuts.changes]
    states = [cuts.facts(standing) for _, standing in cuts.changes]
    ends = [least - 1 for least, _ in counts[1:]]
    for (least, report), end in zip(counts, [*ends, MOST_TOKENS], strict=True):
        bodies = report["symbols"]["bodies"]
        at = bisect_right(rooms, max(0, least - report["code"])) - 1
        starts = [least, *(report["code"] + room for room in rooms[at + 1 :])]
        found += [(start, bodies, states[at + n]) for n, start in enumerate(starts) if start <= end]
    lasts = [least - 1 for least, _, _ in found[1:]]
    return [
        Range(least, last, bodies, facts, partial(grounding_report, page, least))
        for (least, bodies, facts), last in zip(found, [*lasts, None], strict=True)
    ]


def grounding_report(page: Page, budget: int) -> Any:
    """Return the report of the API path for another budget."""
    return fit.explain_grounding(page.parts, budget)[1]
