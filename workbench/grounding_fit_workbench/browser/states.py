"""The states that the knobs of a page go through: each fitted by the module, and kept in the page.

A knob is turned from the page as saved, so the other knob then has the page's own value. There are
MOST_BUDGETS and MOST_FLOORS states at most. Where more would differ, those stay that are nearest to
the page's own, and with each state stands how far it reaches.
"""

from __future__ import annotations

import json
from collections.abc import Iterable
from dataclasses import replace
from decimal import Decimal
from typing import Any

from grounding_fit_workbench import reasons
from grounding_fit_workbench.budget_ranges import Range, Ranges
from grounding_fit_workbench.cases import Advice
from grounding_fit_workbench.floor_ranges import FloorRange
from grounding_fit_workbench.page_lines import Page
from grounding_fit_workbench.pieces import (
    Costs,
    Fitted,
    agent_bar,
    api_bar,
    fit_agent,
    fit_api,
    shares_used,
)
from grounding_fit_workbench.remedies import Stretch, readable
from grounding_fit_workbench.summary import beside, left_out
from grounding_fit_workbench.trials import Trial

MOST_BUDGETS = 32
MOST_THRESHOLDS = 13  # among them, from which on the answer is another
MOST_FLOORS = 18
LEAST_TOP = 500  # tokens
NICE = (1, 1.5, 2, 2.5, 3, 4, 5, 6, 8, 10)  # steps that are read easily, and their tenfolds
Data = dict[str, Any]


def nice_step(least: float) -> int:
    """Return a round number of tokens, no smaller than this one."""
    power = 1
    while power * 10 < least:
        power *= 10
    return next(
        int(each * power) for each in NICE if each * power >= least and each * power % 1 == 0
    )


def budgets_of(own: int, thresholds: Iterable[int]) -> list[int]:
    """Return the token budgets of the states: the page's own, thresholds near to it, round ones."""
    near = sorted(set(thresholds) - {own}, key=lambda each: (abs(each - own), each))
    chosen = {own, *[each for each in near if each <= 2 * max(own, LEAST_TOP)][:MOST_THRESHOLDS]}
    steps = MOST_BUDGETS - len(chosen) - 1
    step = nice_step(2 * max(own, LEAST_TOP) / steps)
    return sorted(chosen | {step * at for at in range(steps + 1)})


def floors_of(own: float, found: list[FloorRange], wanted: list[float]) -> list[FloorRange]:
    """Return the ranges of code floors with a state: around the page's own, wanted ones, others."""
    if len(found) <= MOST_FLOORS:
        return found
    last = len(found) - 1
    at_own = [at for at, each in enumerate(found) if point_in(own, each)]
    near = [min(max(at + side, 0), last) for at in at_own for side in (0, -1, 1)]
    near += [at for floor in wanted for at, each in enumerate(found) if point_in(floor, each)]
    chosen = set(list(dict.fromkeys(near))[: MOST_FLOORS // 2])
    steps = MOST_FLOORS - len(chosen) - 1
    chosen.update(round(step * last / steps) for step in range(steps + 1))
    return [found[at] for at in sorted(chosen)]


def point_in(floor: float, within: FloorRange) -> bool:
    """Whether a code floor leads to the answer of a range."""
    return within.least <= floor <= within.most


def roundest(least: float, most: float) -> float:
    """Return the number of the fewest digits in a range of code floors."""
    for digits in range(18):
        unit = Decimal(1).scaleb(-digits)
        near = float((Decimal(least) / unit).to_integral_value(rounding="ROUND_CEILING") * unit)
        if least <= near <= most:
            return near
    return least


def digits_of(floor: float) -> str:
    """Return a code floor in digits that are read as the same one."""
    return repr(floor).removesuffix(".0")


class Numbered:
    """Values by number, each kept once."""

    def __init__(self) -> None:
        self.values: list[Any] = []
        self.numbers: dict[str, int] = {}

    def number(self, value: Any) -> int:
        """Return the number of a value, which is kept if it is new."""
        number = self.numbers.setdefault(json.dumps(value), len(self.values))
        if number == len(self.values):
            self.values.append(value)
        return number


class States:
    """Collects the states of a page, with what they share kept once."""

    def __init__(self, page: Page, costs: Costs, found: Ranges) -> None:
        self.page = page
        self.costs = costs
        self.found = found
        self.agents = Numbered()
        self.apis = Numbered()
        self.refusals = Numbered()
        self.sentences = Numbered()
        self.own_api = fit_api(page)
        self.own_reports = fit_agent(page).report, self.own_api.report

    def data(self, floors: list[FloorRange], advised: list[Advice]) -> Data:
        """Return the states of both knobs, and what they share."""
        changes = [change for each in advised for change in each.changes]
        tried = [int(one.exact) for one in changes if one.knob == "budget"]
        thresholds = [*tried, *(each.least for each in self.found.agent)]
        own_floor = float(self.page.parts.code_floor)
        wanted = [float(one.exact) for one in changes if one.knob == "code_floor"]
        stored = floors_of(own_floor, floors, wanted)
        return {
            "budgets": [
                self.with_budget(each) for each in budgets_of(self.page.budget, thresholds)
            ],
            "floors": self.with_floors(own_floor, stored) if len(floors) > 1 else [],
            "floor_ranges": len(floors),
            "agents": self.agents.values,
            "apis": self.apis.values,
            "refusals": self.refusals.values,
            "sentences": self.sentences.values,
        }

    def with_budget(self, budget: int) -> Data:
        """Return the state of a token budget, and between which budgets each path stays so."""
        page = replace(self.page, budget=budget)
        holds = [range_of(budget, self.found.agent), range_of(budget, self.found.api)]
        return {**self.state(page, fit_agent(page), fit_api(page)), "holds": holds}

    def with_floors(self, own: float, stored: list[FloorRange]) -> list[Data]:
        """Return the states of code floors; the page's own is one of them, wherever it is."""
        states: list[tuple[float, Stretch | None]] = []
        for each in stored:
            floor = own if point_in(own, each) else roundest(each.least, each.most)
            states.append((floor, (each.least, each.most)))
        if not any(floor == own for floor, _ in states):
            states.append((own, None))
        states.sort(key=lambda state: state[0] if state[0] == state[0] else -1)
        return [self.with_floor(floor, holds) for floor, holds in states]

    def with_floor(self, floor: float, holds: Stretch | None) -> Data:
        """Return the state of a code floor, and between which floors the answer stays so."""
        page = Trial("", code_floor=floor).changed(self.page)
        state = self.state(page, fit_agent(page), self.own_api)
        told = [digits_of(readable(end, holds)) for end in holds] if holds else []
        return {**state, "floor": digits_of(floor), "holds": holds, "told": told}

    def state(self, page: Page, agent: Fitted, api: Fitted) -> Data:
        """Return a state."""
        prior = bool(page.answer.get("prior_markdown"))
        return {
            "budget": page.budget,
            "said": left_out(agent.report, api.report, prior),
            "beside": beside(page.parts, self.own_reports, (agent.report, api.report)),
            "agent": self.agents.number(self.agent_data(page, agent)),
            "api": self.apis.number(self.api_data(page, api)),
        }

    def agent_data(self, page: Page, fitted: Fitted) -> Data:
        """Return what a state shows of the agent path, in JSON characters."""
        report = fitted.report
        bar = agent_bar(page.parts, fitted, self.costs)
        sizes = bar.sizes()
        facts = report.get("facts", [])
        everything = {"bodies": len(page.parts.blocks), "listed": 0}
        symbols = report.get("symbols", everything)
        return {
            "outcome": report["outcome"],
            "given": report["given"],
            "size": report["size"],
            "reserve": bar.reserve,
            "own_stuff": len(bar.segments) == 1,
            "sizes": [sizes["other"], sizes["note"], sizes["listing"]],
            "bodies": symbols["bodies"],
            "listed": symbols["listed"],
            "left": {
                index: self.refusal(fact, report)
                for index, fact in enumerate(facts)
                if not fact["kept"]
            },
            "shares": [[key, *used] for key, used in shares_used(facts).items()],
            "reasons": [*reasons.agent_reasons(page.parts, report)],
            "warnings": [*reasons.agent_warnings(page.parts, fitted)],
            "note": fitted.answer.get("truncated", "") if "note" in report else "",
        }

    def refusal(self, fact: Data, report: Data) -> int:
        """Return why a block was left out: by how much, verdict and sentence, and its values."""
        sentence, values = reasons.refusal(fact, report)
        told = self.sentences.number([reasons.verdict_words(fact), sentence])
        return self.refusals.number([fact["short_by"], told, *values])

    def api_data(self, page: Page, fitted: Fitted) -> Data:
        """Return what a state shows of the API path, in tokens."""
        report = fitted.report
        bar = api_bar(page.parts, fitted, self.costs)
        texts = [block.text for block in page.parts.prose]
        standing = [piece.index for piece in fitted.pieces if piece.part == "facts"]
        whole = fitted.whole("facts", texts)
        sizes = bar.sizes()
        return {
            "size": report["size"],
            "share": bar.reserve,
            "whole": len(whole),
            "cut": [index for index in standing if index not in whole],
            "sizes": [sizes["facts"], sizes["listing"], sizes["joins"]],
            "bodies": report["symbols"]["bodies"],
            "listed": report["symbols"]["listed"],
            "reasons": [*reasons.api_reasons(page.parts, report)],
            "warnings": [*reasons.api_warnings(report)],
        }


def range_of(budget: int, found: list[Range]) -> list[int | None]:
    """Return the first and the last budget of the range that a budget is in."""
    within = [each for each in found if each.least <= budget][-1]
    return [within.least, within.most]
