"""Writes a page for the browser: what a fitted page holds, why, and how its budget changes that."""

import bisect
import functools
import itertools
import json
from collections.abc import Iterable
from dataclasses import dataclass
from pathlib import Path

import grounding_fit as fit
from examples import reasons
from examples.pieces import (
    BLANK_LINE,
    Fitted,
    Measure,
    agent_bar,
    api_bar,
    fact_rows,
    fit_agent,
    fit_api,
    symbol_name,
)

LEAST_BUDGET = 250  # tokens, of the run
DOUBLINGS = 7
STEPS = 30  # of a doubling


@dataclass(frozen=True)
class Page:
    """A page as both paths fit it, to its own budget and to each of the run."""

    parts: fit.GroundingParts
    api: Fitted
    agent: Fitted
    runs: tuple[list[Fitted], list[Fitted]]  # on the API path, on the agent path


def run_budgets(budget: int) -> list[int]:
    """Return the budgets of the run, in tokens: even steps of their logarithm, and the page's own."""
    budgets = {round(LEAST_BUDGET * 2 ** (step / STEPS)) for step in range(DOUBLINGS * STEPS + 1)}
    if min(budgets) <= budget <= max(budgets):
        budgets.add(budget)
    return sorted(budgets)


def stretches(flags: Iterable[bool]) -> list[list[int]]:
    """Return the first and last index of each stretch of true flags."""
    found = []
    for flag, group in itertools.groupby(enumerate(flags), key=lambda pair: pair[1]):
        indices = [index for index, _ in group]
        if flag:
            found.append([indices[0], indices[-1]])
    return found


def least_budgets(parts: fit.GroundingParts, measure: Measure) -> list[int]:
    """Return the least budget, in tokens from 0 on, that keeps each body on the API path."""
    kept = functools.cache(functools.partial(fit._blocks_within, parts))
    facts = BLANK_LINE.join(block.text for block in parts.prose if block.text)
    enough = measure(facts) + sum(measure(code) for code, _ in parts.blocks)
    least = [0]
    for count in range(1, len(parts.blocks) + 1):
        least.append(bisect.bisect_left(range(enough), count, lo=least[-1], key=kept))
    return least[1:]


def fact_data(page: Page, measure: Measure) -> list[dict]:
    """Return a row per fact block."""
    texts = [block.text for block in page.parts.prose]
    runs = [[fitted.whole("facts", texts) for fitted in run] for run in page.runs]
    standing = {piece.index for piece in page.api.pieces if piece.part == "facts"}
    whole = page.api.whole("facts", texts)
    rows = []
    for index, fact in enumerate(fact_rows(page.parts, page.agent.report)):
        cut = "cut" if index in standing else "left out"
        row = {
            "text": texts[index],
            "tokens": measure(texts[index]),
            "api": "whole" if index in whole else cut,
            "reason": reasons.fact_reason(fact),
            "runs": [stretches(index in kept for kept in run) for run in runs],
        }
        rows.append({"report": fact, **row})
    return rows


def symbol_data(page: Page, measure: Measure) -> list[dict]:
    """Return a row per symbol."""
    texts = [code for code, _ in page.parts.blocks]
    run = [fitted.whole("bodies", texts) for fitted in page.runs[1]]
    least = least_budgets(page.parts, measure)
    return [
        {
            "name": symbol_name(page.parts, index),
            "text": code,
            "tokens": measure(code),
            "least": least[index],
            "api": outcome(page.api, index),
            "agent": outcome(page.agent, index),
            "runs": [stretches(index in kept for kept in run)],
        }
        for index, code in enumerate(texts)
    ]


def outcome(fitted: Fitted, index: int) -> str:
    """Return what became of a symbol by its rank, from 0."""
    symbols = fitted.report.get("symbols")
    if symbols is None or index < symbols["bodies"]:
        return "body"
    return "listed" if index < symbols["bodies"] + symbols["listed"] else "not shown"


def bar_data(page: Page, measure: Measure) -> list[dict]:
    """Return the bar of each path with what is said of it."""
    parts = page.parts
    api = page.api.report
    agent = page.agent.report
    bars = [
        {
            **vars(api_bar(parts, page.api, measure)),
            "reasons": [*reasons.api_reasons(parts, api)],
            "warnings": [*reasons.api_warnings(api)],
        },
        {
            **vars(agent_bar(parts, page.agent)),
            "reasons": [*reasons.agent_reasons(parts, agent)],
            "warnings": [*reasons.agent_warnings(parts, page.agent)],
            "note": page.agent.answer.get("truncated", ""),
        },
    ]
    return [{**bar, "segments": [vars(each) for each in bar["segments"]]} for bar in bars]


def page_data(
    given: dict, parts: fit.GroundingParts, budget: int, measure: Measure, head: list[str]
) -> dict:
    """Return all that the page shows of a fitted page, its budget in tokens."""
    budgets = run_budgets(budget)
    runs = (
        [fit_api(parts, each) for each in budgets],
        [fit_agent(given, parts, each) for each in budgets],
    )
    page = Page(parts, fit_api(parts, budget), fit_agent(given, parts, budget), runs)
    return {
        "head": head,
        "budget": budget,
        "bars": bar_data(page, measure),
        "facts": fact_data(page, measure),
        "symbols": symbol_data(page, measure),
        "budgets": budgets,
        "fills": [[fitted.fill(measure) for fitted in run] for run in runs],
    }


def page_text(data: dict) -> str:
    """Return the page: the template with its style, its script and the data inlined."""
    folder = Path(__file__).parent
    page = (folder / "browser_page.html").read_text("utf-8")
    inlined = {
        "STYLE": (folder / "browser_page.css").read_text("utf-8"),
        "SCRIPT": (folder / "browser_page.js").read_text("utf-8"),
        "DATA": json.dumps(data, allow_nan=False).replace("<", "\\u003c"),
    }
    for name, text in inlined.items():
        page = page.replace(f"/*{name}*/", text)
    return page
