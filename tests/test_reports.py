"""What a report says a block fell short by is true: a block given that much is kept, and with one
character less it is not."""

import fractions
import math
from operator import is_
from unittest import mock

from harness import HOST, UsualHost, fit, model, over, parts
from pages import Source

PAGES = 600


def nudged(value, product_reaches):
    """Return the least double, at or above a value that is near it, whose product reaches."""
    while product_reaches(value):
        value = math.nextafter(value, -math.inf)
    while not product_reaches(value):
        value = math.nextafter(value, math.inf)
    return value


class Reports(UsualHost):
    def rebuilt(self):
        """Yield pages whose answers were rebuilt: their source, their arguments and their report."""
        for seed in range(PAGES):
            source = Source(seed)
            page = source.answer(), source.parts(), source.tokens()
            try:
                report = fit.explain_page_context(*page)[1]
            except (ValueError, KeyError):
                continue
            if "facts" in report:
                yield page, report

    def test_a_cap_is_as_short_as_it_says(self):
        tried = 0
        for page, report in self.rebuilt():
            refused = [
                n for n, one in enumerate(report["facts"]) if one["verdict"] == "over the cap"
            ]
            if not refused:
                continue
            at = refused[tried % len(refused)]
            short_by = report["facts"][at]["short_by"]
            with mock.patch.object(model, "_fit_prose", wraps=model._fit_prose) as called:
                model._fit_page_context(*page)
            parts, size, total = called.call_args.args
            kept = [block for block, one in zip(parts.prose, report["facts"]) if one["kept"]]
            before = sum(one["kept"] for one in report["facts"][:at])
            candidate = [*kept[:before], parts.prose[at]]
            for less, stays in [(short_by, True), (short_by - 1, False)]:

                def measure(blocks, count):
                    same = len(blocks) == len(candidate) and all(map(is_, blocks, candidate))
                    return size(blocks, count) - less * (same and count == 0)

                now = fit._fit_prose(parts, measure, total)[0]
                self.assertEqual(any(one is parts.prose[at] for one in now), stays)
            tried += 1
        self.assertGreater(tried, 30)

    def test_a_share_is_as_short_as_it_says(self):
        tried = 0
        for (answer, parts, tokens), report in self.rebuilt():
            room = report["room"]
            facts = report["facts"]
            over = [n for n, one in enumerate(facts) if one["verdict"] == "over its share"]
            if not over or not room or facts[over[0]]["short_by"] is None:
                continue
            one = facts[over[0]]
            cost = one["share_used"] + one["text"] + one["seeds"]
            enough = fractions.Fraction(one["share"]) + one["short_by"]
            reaches = nudged(float(enough / room), lambda share: share * room >= enough)
            below = math.nextafter(
                nudged(cost / room, lambda share: share * room >= cost), -math.inf
            )
            for share, still_over in [(reaches, False), (below, True)]:
                shares = {**parts.budget.shares, one["key"]: share}
                policy = fit.SectionBudget(0, parts.budget.first, shares)
                page = fit.GroundingParts(
                    parts.prose, parts.blocks, parts.files, parts.code_floor, policy
                )
                now = fit.explain_page_context(answer, page, tokens)[1]["facts"][over[0]]
                self.assertEqual(now["verdict"] == "over its share", still_over)
            tried += 1
        self.assertGreater(tried, 15)

    def test_a_share_far_below_nothing(self):
        """By how much it is too small is told as long as a double tells one from the next."""
        told = set()
        for share in (-1e11, -2.2e11, -2.4e11, -1e12, -1e300, -math.inf):
            budget = fit.SectionBudget(shares={"digest": share})
            page = parts([fit.FactBlock("d", key="digest")], budget=budget)
            report = fit.explain_page_context(over(), page, 1)[1]
            self.assertEqual(report, model.explain_page_context(over(), page, 1)[1])
            told.add(report["facts"][0]["short_by"] is None)
        self.assertEqual(told, {False, True})

    def test_two_estimates_more(self):
        parts = fit.GroundingParts([fit.FactBlock("f" * 90)], [("code", {})], set())
        fit._assemble_grounding(parts, 20)
        calls = list(HOST.calls)
        HOST.calls.clear()
        (grounding, *_), report = fit.explain_grounding(parts, 20)
        self.assertEqual(HOST.calls[: len(calls)], calls)
        cut = grounding.removesuffix("\n\ncode")
        self.assertEqual(HOST.calls[len(calls) :], [("estimate", cut), ("estimate", grounding)])
        self.assertEqual(report["facts"]["kept"], len(cut) // 4)
