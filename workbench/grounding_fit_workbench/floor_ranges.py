"""From which code floor or share on a page's facts are chosen otherwise, to the last double.

Both are fractions of the room, of which only an integer counts: the characters reserved for code,
and the most that the blocks of a kind may cost. A report says by how many characters each block
failed. So the next integer at which any decision changes is known from it, and nothing is skipped.
"""

from __future__ import annotations

import math
from dataclasses import dataclass
from typing import Any

from grounding_fit_workbench.module import fit
from grounding_fit_workbench.page_lines import Page
from grounding_fit_workbench.trials import Trial

Report = Any  # of explain_page_context
Step = tuple[int, Report]  # an integer of JSON characters, and the report that it leads to


@dataclass(frozen=True)
class FloorRange:
    """Code floors from 0 to 1 with which a page's answer is the same."""

    least: float
    most: float
    report: dict[str, Any]  # of the module, with a floor in between


def least_factor(room: int, product: int) -> float:
    """Return the least double whose product with the room is a number of characters or more."""
    factor = max(0.0, product / room)
    while factor > 0 and math.nextafter(factor, 0) * room >= product:
        factor = math.nextafter(factor, 0)
    while factor * room < product:
        factor = math.nextafter(factor, math.inf)
    return factor


def report_of(page: Page) -> Report:
    """Return the report of a page on the agent path."""
    return fit.explain_page_context(page.answer, page.parts, page.budget)[1]


def short_by(report: Report) -> list[int]:
    """Return by how many characters each block failed that was refused for the cap."""
    facts = [fact for fact in report["facts"] if fact["verdict"] == "over the cap"]
    return [fact["short_by"] for fact in facts]


def reserve_steps(page: Page) -> list[Step]:
    """Return each reserve from which down the facts are chosen otherwise, and what it leads to.

    The first is the most that any floor from 0 to 1 reserves. Empty where no floor does anything.
    """
    report = report_of(page)
    if "facts" not in report:
        return []
    room = report["room"]
    reserve = min(room, report["all_bodies"])
    steps: list[Step] = []
    while reserve > 0 or (steps and reserve == 0):
        floor = min(1.0, (reserve + 0.5) / room)  # the product is cut to the reserve
        report = report_of(Trial("", code_floor=floor).changed(page))
        steps.append((reserve, report))
        reserve -= min(short_by(report), default=reserve + 1)
    return steps


def floors(page: Page) -> list[FloorRange]:
    """Return the code floors from 0 to 1 that lead to the same answer, in order."""
    steps = reserve_steps(page)
    if not steps:
        return [FloorRange(0.0, 1.0, report_of(page))]
    found = []
    most = 1.0
    for (_, report), (below, _) in zip(steps, [*steps[1:], (-1, None)], strict=True):
        least = least_factor(report["room"], below + 1)
        found.append(FloorRange(least, most, report))
        most = math.nextafter(least, 0)
    return found[::-1]


def share_steps(page: Page, kind: str) -> list[Step]:
    """Return each limit of a kind's share from which up its blocks are chosen otherwise.

    From the first one above the present limit, in JSON characters, to the whole room at most.
    """
    report = report_of(page)
    steps: list[Step] = []
    while True:
        over = [
            fact["share_used"] + fact["text"] + fact["seeds"]
            for fact in report["facts"]
            if fact["verdict"] == "over its share" and fact["key"] == kind
        ]
        limit = min(over, default=math.inf)
        if limit > report["room"]:
            return steps
        share = (limit + 0.5) / report["room"]
        report = report_of(Trial("", shares={kind: share}).changed(page))
        steps.append((int(limit), report))
