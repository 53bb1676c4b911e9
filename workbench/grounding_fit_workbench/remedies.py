"""What would have kept a block, or one body more: the least change of one knob.

Each change is worked out from the numbers of reports, then made, and told only if the fit of the
changed page keeps the block. A change that drives an answer over its cap keeps nothing.
"""

from __future__ import annotations

import math
from collections.abc import Callable
from decimal import ROUND_CEILING, ROUND_FLOOR, Decimal
from typing import Any

from grounding_fit_workbench.budget_ranges import Range, agent_ranges, body_counts
from grounding_fit_workbench.cases import Advice, Case
from grounding_fit_workbench.floor_ranges import (
    FloorRange,
    Report,
    floors,
    least_factor,
    report_of,
    share_steps,
)
from grounding_fit_workbench.module import fit
from grounding_fit_workbench.page_lines import Page
from grounding_fit_workbench.trials import Trial

DIGITS = range(4, 18)  # of a fraction that is told; so many tell every double
Stretch = tuple[Any, Any]  # the first and the last value that do


def advice(page: Page, by_budget: list[Range] | None = None) -> list[Advice]:
    """Return what would keep each fact block that the agent path left out, and one body more.

    by_budget: the page's ranges on the agent path, where they are known already.
    """
    report = report_of(page)
    if "facts" not in report:
        return []
    if by_budget is None:
        by_budget = agent_ranges(page, body_counts(page.parts))
    by_floor = floors(page)
    cases = [
        Case(page, report, index, is_body=False)
        for index, fact in enumerate(report["facts"])
        if not fact["kept"]
    ]
    for case in cases:
        if report["facts"][case.index]["verdict"] == "over its share":
            turn_share(case)
        else:
            turn_floor(case, by_floor)
            turn_budget(case, by_budget)
        turn_first(case)
        turn_place(case)
        turn_seeds(case)
    if report["symbols"]["bodies"] < len(page.parts.blocks):
        cases.append(Case(page, report, report["symbols"]["bodies"], is_body=True))
        turn_floor(cases[-1], by_floor)
        turn_budget(cases[-1], by_budget)
    return [case.advice for case in cases]


def stretches(
    found: list[tuple[Any, Any, Report]], holds: Callable[[Report], bool]
) -> list[Stretch]:
    """Return the first and the last value of each stretch of ranges for which something holds."""
    merged: list[Stretch] = []
    held = False
    for least, most, report in found:
        now = holds(report)
        if now:
            merged.append((merged.pop()[0] if held else least, most))
        held = now
    return merged


def readable(exact: float, stretch: Stretch) -> float:
    """Return a number of few digits within a stretch, near to the end of it that is exact."""
    rounding = ROUND_FLOOR if exact == stretch[1] else ROUND_CEILING
    for digits in DIGITS:
        near = float(Decimal(exact).quantize(Decimal(1).scaleb(-digits), rounding))
        if stretch[0] <= near <= stretch[1]:
            return near
    return exact


def turn_floor(case: Case, found: list[FloorRange]) -> None:
    """Try the code floor: for a block the nearest one below, for a body above, else the other."""
    by_tokens = case.is_body and case.report["symbols"]["stopped_by"] == "tokens"
    if len(found) == 1 or by_tokens or (not case.is_body and case.report["reserve"] <= 0):
        return  # it does nothing here
    now = float(case.page.parts.code_floor)
    ranges = [(each.least, each.most, each.report) for each in found]
    good = stretches(ranges, case.keeps)
    below = [each for each in good if each[1] < now][-1:]
    above = [each for each in good if each[0] > now][:1]
    preferred = above + below if case.is_body else below + above
    if not preferred:
        floor = 1 if case.is_body else 0
        failed = case.failed_by(report_of(case.with_floor(floor)))
        case.advice.refused.append(f"refused even at a code floor of {floor}{failed}")
        return
    stretch = preferred[0]
    down = stretch[1] < now
    exact, other = stretch[::-1] if down else stretch
    told = readable(exact, stretch)
    reach = "" if other in (0.0, 1.0) else f" to {readable(other, stretch):.15g}"
    words = f"a code floor from {told:.15g} {'down' if down else 'up'}{reach} (now {now:.15g})"
    case.offer("code_floor", words, (told, exact), case.with_floor)


def short(fact: Report) -> str:
    """Return the end of a sentence, which says by how much a block was refused if that is known."""
    return "" if fact["short_by"] is None else f", by {fact['short_by']:,}"


def turn_share(case: Case) -> None:
    """Try a larger share for the blocks of its kind."""
    fact = case.report["facts"][case.index]
    kind = fact["key"]
    room = case.report["room"]
    steps = share_steps(case.page, kind)
    for at, (limit, report) in enumerate(steps):
        if case.keeps(report):
            least = least_factor(room, limit)
            above = steps[at + 1][0] if at + 1 < len(steps) else room + 1
            stretch = (least, math.nextafter(least_factor(room, above), 0))
            told = readable(least, stretch)
            now = case.page.parts.budget.shares[kind]
            case.offer(
                "share",
                f"a share of {told:.15g} for {kind!r} (now {now:.15g})",
                (told, least),
                lambda share: Trial("", shares={kind: share}).changed(case.page),
            )
            return
    last = steps[-1][1] if steps else case.report
    fact = last["facts"][case.index]
    if fact["verdict"] == "over the cap":
        failed = f"a larger share for {kind!r} does not do: there is no room"
    else:
        failed = f"refused even if {kind!r} had the whole room"
        fact = {"short_by": fact["share_used"] + fact["text"] + fact["seeds"] - room}
    case.advice.refused.append(f"{failed}{short(fact)}")


def turn_first(case: Case) -> None:
    """Try to name its key among those that stay first, which keeps all blocks of that key."""
    key = case.page.parts.prose[case.index].key
    if not key:
        return
    changed = Trial("", first=(*case.page.parts.budget.first, key)).changed(case.page)
    if not case.offer("first", f"{key!r} in first", (key, key), lambda _: changed):
        report = report_of(changed)
        excess = report["size"] - report["cap"]
        case.advice.refused.append(
            f"with {key!r} in first, the answer passes its cap by {excess:,}"
        )


def turn_place(case: Case) -> None:
    """Try places further up in reading order, where fewer blocks have taken room before it."""
    prose = case.page.parts.prose

    def order(place: int) -> list[int]:
        others = [index for index in range(len(prose)) if index != case.index]
        return [*others[:place], case.index, *others[place:]]

    def moved(place: int) -> Page:
        return case.page.with_parts(prose=[prose[index] for index in order(place)])

    def kept(place: int) -> bool:
        return bool(report_of(moved(place))["facts"][place]["kept"])

    if case.index == 0:
        return
    if not kept(0):
        fact = report_of(moved(0))["facts"][0]
        case.advice.refused.append(f"refused even as the first block{short(fact)}")
        return
    place = fit._most(case.index - 1, kept)
    up = case.index - place
    words = f"{up} {'place' if up == 1 else 'places'} further up, before {prose[place].label()}"
    if not case.offer("place", words, (place, place), moved, order(place)):
        case.advice.refused.append(f"{words}, it drives the answer over its cap")


def turn_seeds(case: Case) -> None:
    """Try fewer seeds, from the first on."""
    prose = list(case.page.parts.prose)
    block = prose[case.index]
    seeds = list(block.seeds)

    def with_seeds(count: int) -> Page:
        fewer = fit.FactBlock(block.text, seeds[:count], block.name, block.key)
        return case.page.with_parts(
            prose=[*prose[: case.index], fewer, *prose[case.index + 1 :]],
        )

    if not seeds:
        return
    bare = report_of(with_seeds(0))
    if not case.keeps(bare):
        case.advice.refused.append(f"refused even without its seeds{case.failed_by(bare)}")
        return
    most = fit._most(len(seeds), lambda count: case.keeps(report_of(with_seeds(count))))
    words = f"{most:,} {'seed' if most == 1 else 'seeds'} (now {len(seeds):,})"
    case.offer("seeds", words, (most, most), with_seeds)


def last(each: Range) -> float:
    """Return the last budget of a range."""
    return math.inf if each.most is None else each.most


def turn_budget(case: Case, found: list[Range]) -> None:
    """Try other token budgets, and tell the nearest that does."""
    if len(found) == 1:
        return  # it does nothing here
    now = case.page.budget
    ranges = [(each.least, last(each), each.report) for each in found]
    nearest = [most if most < now else least for least, most in stretches(ranges, case.keeps)]
    if not nearest:
        failed = min(filter(None, (case.short_in(each.report) for each in found)), default=None)
        least = "" if failed is None else f", by {failed:,} at the least"
        case.advice.refused.append(f"refused at every token budget{least}")
        return
    budget = min((abs(each - now), each) for each in nearest)[1]
    words = f"a budget of {budget:,} tokens (now {now:,})"
    case.offer("budget", words, (budget, budget), case.with_budget)
