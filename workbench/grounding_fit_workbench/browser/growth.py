"""What the charts of a page draw: how both paths fill as the token budget or the code floor grows.

The agent path is exact, a step for each answer that there is. The API path, whose facts grow with
every token, is sampled: its lines are for the eye, and numbers are told by states alone.
"""

from __future__ import annotations

from collections.abc import Iterable
from dataclasses import replace
from typing import Any

from grounding_fit_workbench.budget_ranges import Range, grounding_report
from grounding_fit_workbench.floor_ranges import FloorRange
from grounding_fit_workbench.page_lines import Page
from grounding_fit_workbench.pieces import Costs, agent_bar, fit_agent
from grounding_fit_workbench.trials import Trial

PARTS = ("other", "facts", "seeds", "note", "listing", "bodies", "body seeds")
MOST_STEPS = 200
SAMPLES = 96
Row = list[Any]


def thinned(items: list[Any]) -> list[Any]:
    """Return so many items at most, spread evenly, the first and the last among them."""
    if len(items) <= MOST_STEPS:
        return items
    return [items[round(at * (len(items) - 1) / (MOST_STEPS - 1))] for at in range(MOST_STEPS)]


def parts_of(page: Page, costs: Costs) -> Row:
    """Return the JSON characters of each part of a page's answer."""
    sizes = agent_bar(page.parts, fit_agent(page), costs).sizes()
    return [sizes[part] for part in PARTS]


def by_budget(page: Page, costs: Costs, found: list[Range]) -> list[Row]:
    """Return each answer of the agent path: its first and last token budget, and its parts."""
    return [
        [each.least, each.most, *parts_of(replace(page, budget=each.least), costs)]
        for each in thinned(found)
    ]


def by_floor(page: Page, costs: Costs, found: list[FloorRange]) -> list[Row]:
    """Return each answer by the code floor: the first and the last one, and the answer's parts."""
    return [
        [each.least, each.most, *parts_of(Trial("", code_floor=each.most).changed(page), costs)]
        for each in thinned(found)
    ]


def of_api(page: Page, budgets: Iterable[int]) -> list[Row]:
    """Return what the API path makes of budgets: facts, listing, bodies, joints, in tokens."""
    last = max(budgets)
    rows = []
    for budget in sorted({*budgets, *(round(at * last / SAMPLES) for at in range(SAMPLES + 1))}):
        report = grounding_report(page, budget)
        kept, used = report["facts"]["kept"], report["used"]
        listing = report["code"] - used if report["symbols"]["listed"] else 0
        rows.append([budget, kept, listing, used, report["size"] - kept - listing - used])
    return rows
