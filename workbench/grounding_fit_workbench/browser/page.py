"""Writes a page for the browser: what a fitted page holds, why, and what its knobs change.

All that the browser shows is worked out here, by calls of the module. page_data returns it, and
page_text writes it into the page, whose script draws it and decides nothing:

- `head`: the lines above the page. `overview`: the file that leads to it, "" for none. `cap`: in
  JSON characters. `own`: the page's `budget` in tokens and its `floor`.
- `facts`: a row for each block: `label`, `key`, `cost` (what counts for its share: text and seeds),
  `adds` (what they add to an answer) and `tokens`; `always`, the verdict if it stays on the agent
  path whatever comes; `empty`, where it has no text; `advice`; and `runs`, the budgets with which
  it is whole on the API path, and kept on the agent path: exact [first, last], null for no end.
- `symbols`: by rank their `names`, `places`, `tokens`, `adds`, and the `least` budgets that keep
  their bodies on the API path; `bodies`, those on the agent path: exact [first, last, count].
- `next_body`: advice on the next body of the agent path, null when all stand.
- `states`: what the knobs go through; see states.py. `growth`: the charts; see growth.py.
- `texts`: those of all fact blocks, then of all symbols.
"""

from __future__ import annotations

from typing import Any

from grounding_fit_workbench.browser.growth import by_budget, by_floor, of_api
from grounding_fit_workbench.browser.states import States, digits_of
from grounding_fit_workbench.browser.writer import shown, written
from grounding_fit_workbench.budget_ranges import Range, Ranges, fact_spans, ranges
from grounding_fit_workbench.cases import Advice
from grounding_fit_workbench.floor_ranges import floors
from grounding_fit_workbench.module import fit
from grounding_fit_workbench.page_lines import Page
from grounding_fit_workbench.pieces import Costs, fact_rows, fit_agent, symbol_name
from grounding_fit_workbench.remedies import advice

ALWAYS = ("always kept", "kept first")
Data = dict[str, Any]


def fact_data(page: Page, costs: Costs, found: Ranges) -> list[Data]:
    """Return a row per fact block."""
    rows = fact_rows(page.parts, fit_agent(page).report)
    return [
        {
            "label": fact["label"],
            "key": fact["key"],
            "cost": [fact["text"], fact["seeds"]],
            "adds": [costs.facts[index].text, costs.facts[index].seeds],
            "tokens": costs.facts[index].tokens,
            "always": fact["verdict"] if fact["verdict"] in ALWAYS else "",
            "empty": not page.parts.prose[index].text,
            "runs": [fact_spans(path, index, "whole") for path in (found.api, found.agent)],
        }
        for index, fact in enumerate(rows)
    ]


def place_of(symbol: Any) -> str:
    """Return where a symbol is, as far as its record tells."""
    return ":".join(str(symbol[key]) for key in ("file", "line") if symbol.get(key))


def least_budgets(count: int, found: list[Range]) -> list[int | None]:
    """Return for each symbol the least token budget that keeps its body on the API path."""
    least: list[int | None] = []
    for each in found:
        least += [each.least] * (each.bodies - len(least))
    return [*least, *[None] * (count - len(least))]


def symbol_data(page: Page, costs: Costs, found: Ranges) -> Data:
    """Return what is told of symbols, by rank."""
    count = len(page.parts.blocks)
    return {
        "names": [symbol_name(page.parts, rank) for rank in range(count)],
        "places": [place_of(symbol) for _, symbol in page.parts.blocks],
        "tokens": [cost.tokens for cost in costs.bodies],
        "adds": [[cost.text, cost.seeds] for cost in costs.bodies],
        "least": least_budgets(count, found.api),
        "bodies": [[each.least, each.most, each.bodies] for each in found.agent],
    }


def advice_data(found: Advice) -> Data:
    """Return what would keep something, in words and as the value of a knob, and what would not."""
    changes = [{"knob": each.knob, "to": each.exact, "words": str(each)} for each in found.changes]
    return {"what": found.what, "changes": changes, "refused": found.refused}


def page_data(page: Page, head: list[str], overview: str = "") -> Data:
    """Return all that the browser shows of a page; overview: the file to lead back to."""
    costs = Costs.of(page.parts)
    found = ranges(page)
    found_floors = floors(page)
    advised = advice(page, found.agent)
    facts = fact_data(page, costs, found)
    for each in advised:
        if not each.is_body:
            facts[each.index]["advice"] = advice_data(each)
    states = States(page, costs, found).data(found_floors, advised)
    budgets = [state["budget"] for state in states["budgets"]]
    data = {
        "head": head,
        "overview": overview,
        "cap": fit._PAGE_CONTEXT_MAX_CHARS,
        "own": {"budget": page.budget, "floor": digits_of(float(page.parts.code_floor))},
        "facts": facts,
        "symbols": symbol_data(page, costs, found),
        "next_body": next((advice_data(each) for each in advised if each.is_body), None),
        "states": states,
        "growth": {
            "agent": by_budget(page, costs, found.agent),
            "floors": by_floor(page, costs, found_floors) if len(found_floors) > 1 else [],
            "api": of_api(page, budgets),
        },
    }
    texts = [block.text for block in page.parts.prose] + [text for text, _ in page.parts.blocks]
    return {**shown(data), "texts": texts}


def page_text(data: Data) -> str:
    """Return the page: the template with its style, its script and the data inlined."""
    return written("page", data)
