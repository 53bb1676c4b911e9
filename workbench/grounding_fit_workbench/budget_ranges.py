"""From which token budget on what stands in a page: exact, for every budget from 0 on.

On the agent path an answer depends on the token budget only through the number of bodies that the
tokens allow. So there is one range for each such number, and neighbours with the same answer are one.
On the API path the code depends on that number alone, and the facts on the tokens that it leaves.
"""

from __future__ import annotations

from bisect import bisect_right
from collections.abc import Callable
from dataclasses import dataclass
from itertools import accumulate, pairwise
from typing import Any, TypeVar

from grounding_fit_workbench.module import fit, tokens_of
from grounding_fit_workbench.page_lines import Page
from grounding_fit_workbench.pieces import BLANK_LINE, common_length
from grounding_fit_workbench.trials import MOST_TOKENS

State = TypeVar("State")
Changes = list[tuple[int, State]]  # each state with the least number that has it


@dataclass(frozen=True)
class Range:
    """Token budgets with which the same stands in a page."""

    least: int
    most: int | None  # None: from `least` on
    bodies: int  # symbols that stand whole, from the best on
    facts: tuple[str, ...]  # "whole", "cut" or "left out", by the page's fact blocks
    report: dict[str, Any]  # of the module, with a budget of `least`


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


def changes(least: int, most: int, state: Callable[[int], State]) -> Changes[State]:
    """Return the states from `least` to `most`, if none of them comes back once it is gone."""
    found = [(least, state(least))]

    def search(low: int, at_low: State, high: int, at_high: State) -> None:
        if at_low == at_high:
            return
        if high == low + 1:
            found.append((high, at_high))
            return
        middle = (low + high) // 2
        at_middle = state(middle)
        search(low, at_low, middle, at_middle)
        search(middle, at_middle, high, at_high)

    search(*found[0], most, state(most))
    return found


def body_counts(parts: fit.GroundingParts) -> Changes[int]:
    """Return how many bodies the tokens allow, which is never fewer for a larger budget."""
    most = 1
    while most < MOST_TOKENS and fit._blocks_within(parts, most) < len(parts.blocks):
        most = min(2 * most, MOST_TOKENS)
    return changes(0, most, lambda budget: fit._blocks_within(parts, budget))


# --- the agent path ---


def agent_ranges(page: Page, counts: Changes[int]) -> list[Range]:
    """Return the ranges of the agent path: one for each answer."""
    found: list[tuple[int, dict[str, Any], Any]] = []
    for least, _ in counts:
        answer, report = fit.explain_page_context(page.answer, page.parts, least)
        if not found or answer != found[-1][1]:
            found.append((least, answer, report))
        if "facts" not in report:
            break  # nothing was rebuilt, so that the budget was not asked
    most = [least - 1 for least, _, _ in found[1:]]
    return [
        Range(least, last, *agent_state(page.parts, report), report)
        for (least, _, report), last in zip(found, [*most, None])
    ]


def agent_state(parts: fit.GroundingParts, report: Any) -> tuple[int, tuple[str, ...]]:
    """Return how many bodies an answer has, and what became of each fact block."""
    if "facts" not in report:
        return len(parts.blocks), ("whole",) * len(parts.prose)
    facts = tuple("whole" if fact["kept"] else "left out" for fact in report["facts"])
    return report["symbols"]["bodies"], facts


# --- the API path ---


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
        cut = fit._assemble_grounding(self.alone, room + self.no_code)[0]
        kept = common_length(self.text, cut)
        self.kept[room] = kept
        return bisect_right(self.begun, kept) + bisect_right(self.ends, kept)

    def facts(self, standing: int) -> tuple[str, ...]:
        """Return what became of each block; those without a text are not there."""
        states = ["left out"] * self.blocks
        for at, index in enumerate(self.told):
            if 2 * at < standing:
                states[index] = "whole" if 2 * at + 1 < standing else "cut"
        return tuple(states)


def api_ranges(page: Page, counts: Changes[int], cuts: FactCuts) -> list[Range]:
    """Return the ranges of the API path: for each number of bodies, as the facts are cut."""
    found: list[tuple[int, int, tuple[str, ...]]] = []
    rooms = [room for room, _ in cuts.changes]
    states = [cuts.facts(standing) for _, standing in cuts.changes]
    lasts = [least - 1 for least, _ in counts[1:]]
    for (least, bodies), last in zip(counts, [*lasts, MOST_TOKENS]):
        code = grounding_report(page, least)["code"]
        at = bisect_right(rooms, max(0, least - code)) - 1
        starts = [least, *(code + room for room in rooms[at + 1 :])]
        found += [
            (start, bodies, states[at + n]) for n, start in enumerate(starts) if start <= last
        ]
    most = [least - 1 for least, _, _ in found[1:]]
    return [
        Range(least, last, bodies, facts, grounding_report(page, least))
        for (least, bodies, facts), last in zip(found, [*most, None])
    ]


def grounding_report(page: Page, budget: int) -> Any:
    """Return the report of the API path for another budget."""
    return fit.explain_grounding(page.parts, budget)[1]
