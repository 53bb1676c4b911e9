"""Writes a page for the browser: what a fitted page holds, why, and how its budget changes that.

All that the browser shows is worked out here, by calls of the module. page_data returns it, and
page_text writes it into the page, whose script draws it and decides nothing:

- `head`: the lines above the page. `budget`: the page's own, in tokens.
- `bars`: of the API path and of the agent path, each with its `segments` in order (`part`, `name`
  and `size`, in the bar's `unit`), the `room`, what its end is `reserved` for and the `reserve`,
  and in words the `reasons` and `warnings`; of the agent path the `note` too.
- `facts`: a row for each block: its row of the `report`, its `text` and `tokens`, what became of it
  on the `api` path, the `reason` why it was left out, its `advice`, and `runs`, the budgets with
  which it is whole on the API path, and kept on the agent path: exact [first, last], null for last
  where it never ends.
- `symbols`: a row for each symbol: `name`, `text`, `tokens`, what became of it on either path, the
  `least` budget that keeps its body on the API path, and `runs` of the agent path.
- `next_body`: advice on the next body of the agent path, null when all stand.
- `budgets`: those of the charts, in tokens, and `fills`: for either path and each of them the code
  points of facts, bodies, listing and blank lines, of the whole text, and its tokens. These are
  samples to draw lines by; whatever is told in numbers is exact.
"""

from __future__ import annotations

import json
from bisect import bisect_right
from dataclasses import replace
from pathlib import Path
from typing import Any

from grounding_fit_workbench import reasons
from grounding_fit_workbench.budget_ranges import Range, Ranges, ranges, spans
from grounding_fit_workbench.cases import Advice
from grounding_fit_workbench.module import tokens_of
from grounding_fit_workbench.page_lines import Page
from grounding_fit_workbench.pieces import (
    Fitted,
    agent_bar,
    api_bar,
    fact_rows,
    fit_agent,
    fit_api,
    symbol_name,
)
from grounding_fit_workbench.remedies import advice

LEAST_BUDGET = 250  # tokens, of the charts
DOUBLINGS = 7
STEPS = 30  # of a doubling
Data = dict[str, Any]


def chart_budgets(budget: int) -> list[int]:
    """Return the budgets of the charts, in tokens: even steps of their logarithm, and the page's."""
    budgets = {round(LEAST_BUDGET * 2 ** (step / STEPS)) for step in range(DOUBLINGS * STEPS + 1)}
    if min(budgets) <= budget <= max(budgets):
        budgets.add(budget)
    return sorted(budgets)


def whole_spans(found: list[Range], index: int) -> list[tuple[int, int | None]]:
    """Return the budgets with which a fact block stands whole."""
    return spans(found, lambda each: each.facts[index] == "whole")


def fact_data(page: Page, api: Fitted, agent: Fitted, found: Ranges) -> list[Data]:
    """Return a row per fact block."""
    texts = [block.text for block in page.parts.prose]
    standing = {piece.index for piece in api.pieces if piece.part == "facts"}
    whole = api.whole("facts", texts)
    return [
        {
            "report": fact,
            "text": texts[index],
            "tokens": tokens_of(texts[index]),
            "api": "whole" if index in whole else "cut" if index in standing else "left out",
            "reason": reasons.fact_reason(fact, agent.report),
            "runs": [whole_spans(found.api, index), whole_spans(found.agent, index)],
        }
        for index, fact in enumerate(fact_rows(page.parts, agent.report))
    ]


def symbol_data(page: Page, api: Fitted, agent: Fitted, found: Ranges) -> list[Data]:
    """Return a row per symbol."""
    return [
        {
            "name": symbol_name(page.parts, index),
            "text": code,
            "tokens": tokens_of(code),
            "least": next((each.least for each in found.api if each.bodies > index), None),
            "api": outcome(api, index),
            "agent": outcome(agent, index),
            "runs": [spans(found.agent, lambda each: each.bodies > index)],
        }
        for index, (code, _) in enumerate(page.parts.blocks)
    ]


def outcome(fitted: Fitted, index: int) -> str:
    """Return what became of a symbol by its rank, from 0."""
    symbols = fitted.report.get("symbols")
    if symbols is None or index < symbols["bodies"]:
        return "body"
    return "listed" if index < symbols["bodies"] + symbols["listed"] else "not shown"


def bar_data(page: Page, api: Fitted, agent: Fitted) -> list[Data]:
    """Return the bar of each path with what is said of it."""
    parts = page.parts
    bars = [
        {
            **vars(api_bar(parts, api)),
            "reasons": [*reasons.api_reasons(parts, api.report)],
            "warnings": [*reasons.api_warnings(api.report)],
        },
        {
            **vars(agent_bar(parts, agent)),
            "reasons": [*reasons.agent_reasons(parts, agent.report)],
            "warnings": [*reasons.agent_warnings(parts, agent)],
            "note": agent.answer.get("truncated", ""),
        },
    ]
    return [{**bar, "segments": [vars(each) for each in bar["segments"]]} for bar in bars]


def advice_data(found: Advice | None) -> Data | None:
    """Return what would keep something, in words, and what would not."""
    if found is None:
        return None
    changes = [{"knob": each.knob, "words": str(each)} for each in found.changes]
    return {"what": found.what, "changes": changes, "refused": found.refused}


def fill_data(page: Page, budgets: list[int], found: Ranges) -> list[list[list[int]]]:
    """Return what fills the text of either path with each budget; see Fitted.fill."""
    api = [fit_api(replace(page, budget=budget)).fill() for budget in budgets]
    least = [each.least for each in found.agent]
    answers = [fit_agent(replace(page, budget=budget)).fill() for budget in least]
    return [api, [answers[bisect_right(least, budget) - 1] for budget in budgets]]


def page_data(page: Page, head: list[str]) -> Data:
    """Return all that the browser shows of a page."""
    budgets = chart_budgets(page.budget)
    found = ranges(page)
    advised = advice(page, found.agent)
    api = fit_api(page)
    agent = fit_agent(page)
    facts = fact_data(page, api, agent, found)
    of_fact = {each.index: each for each in advised if not each.is_body}
    for index, fact in enumerate(facts):
        fact["advice"] = advice_data(of_fact.get(index))
    return {
        "head": head,
        "budget": page.budget,
        "bars": bar_data(page, api, agent),
        "facts": facts,
        "symbols": symbol_data(page, api, agent, found),
        "next_body": advice_data(next((each for each in advised if each.is_body), None)),
        "budgets": budgets,
        "fills": fill_data(page, budgets, found),
    }


def page_text(data: Data) -> str:
    """Return the page: the template with its style, its script and the data inlined."""
    folder = Path(__file__).parent
    page = (folder / "page.html").read_text("utf-8")
    inlined = {
        "STYLE": (folder / "page.css").read_text("utf-8"),
        "SCRIPT": (folder / "page.js").read_text("utf-8"),
        "DATA": json.dumps(data, allow_nan=False).replace("<", "\\u003c"),
    }
    for name, text in inlined.items():
        page = page.replace(f"/*{name}*/", text)
    return page
