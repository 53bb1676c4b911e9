"""The workbench's ranges and advice, held against plain calls on both sides of every threshold."""

import collections
import functools
import itertools
import math
import unittest
from dataclasses import replace

import harness  # loads the module before the workbench does
from grounding_fit_workbench import Page, Trial, advice, floors, ranges
from grounding_fit_workbench.budget_ranges import least_above
from grounding_fit_workbench.pieces import fit_api
from grounding_fit_workbench.reasons import fact_reason
from pages import Source

HOST, UsualHost, fit = harness.HOST, harness.UsualHost, harness.fit

SEEDS = range(60, 84)
Block = fit.FactBlock
GIVEN = "g" * 41_000


def explain(page):
    """Return the report of the agent path."""
    return fit.explain_page_context(page.answer, page.parts, page.budget)[1]


def api_state(page):
    """Return the bodies that the API path keeps, and what becomes of each fact block."""
    fitted = fit_api(page)
    texts = [block.text for block in page.parts.prose]
    facts = ["left out"] * len(texts)
    for piece in fitted.pieces:
        if piece.part == "facts":
            facts[piece.index] = "whole" if piece.text == texts[piece.index] else "cut"
    return fitted.report["symbols"]["bodies"], tuple(facts)


def with_seeds(page, index, count):
    """Return the page, one block of which has the first seeds alone."""
    prose = list(page.parts.prose)
    text, seeds, name, key = prose[index]
    prose[index] = Block(text, seeds[:count], name, key)
    return page.with_parts(prose=prose)


def moved(page, index, place):
    """Return the page with a block at another place."""
    prose = list(page.parts.prose)
    prose.insert(place, prose.pop(index))
    return page.with_parts(prose=prose)


def not_so_far(page, index, change):
    """Return the page with a knob turned a step less than a change does; None if none is less."""
    now = {"code_floor": page.parts.code_floor, "budget": page.budget}.get(change.knob)
    if change.knob == "code_floor":
        return Trial("", code_floor=math.nextafter(change.exact, now)).changed(page)
    if change.knob == "budget":
        return replace(page, budget=change.exact + (1 if now > change.exact else -1))
    if change.knob == "share":
        key = page.parts.prose[index].key
        return Trial("", shares={key: math.nextafter(change.exact, 0)}).changed(page)
    if change.knob == "place":
        return moved(page, index, change.exact + 1)
    return with_seeds(page, index, change.exact + 1) if change.knob == "seeds" else None


class Ranges(UsualHost):
    def setUp(self):
        super().setUp()
        HOST.calls = collections.deque(maxlen=0)  # there are very many
        self.addCleanup(setattr, HOST, "calls", [])

    def random_pages(self, odd_hosts=True):
        """Yield pages of all kinds, a third of them on hosts that estimate and cut oddly."""
        for seed in SEEDS:
            source = Source(seed, scale=0.5)
            page = Page("p", "", source.answer(), source.parts(), 900)
            HOST.set()
            if seed % 3 == 0 and odd_hosts:
                source.host()
            try:
                explain(page)
            except (KeyError, ValueError):
                continue
            yield page

    def check(self, found, state, last):
        """Hold ranges against what a budget gives: each, up to one, and around all thresholds."""
        state = functools.cache(state)
        self.assertEqual((found[0].least, found[-1].most), (0, None))
        budgets = set(range(last))
        for before, one in itertools.pairwise(found):
            self.assertEqual(before.most, one.least - 1)
            self.assertNotEqual(state(before.most), state(one.least), one.least)
            budgets |= {before.most, one.least}
        for budget in [*budgets, found[-1].least + 1, 2**60]:
            one = next(one for one in found[::-1] if one.least <= budget)
            self.assertEqual(state(budget), state(one.least), budget)
        return len(found)

    def test_of_the_agent_path(self):
        """An answer changes with each range, and nowhere else."""
        tried = 0
        for page in self.random_pages():
            found = ranges(page).agent
            fitted = functools.partial(fit._fit_page_context, page.answer, page.parts)
            tried += self.check(found, fitted, 150)
            for one in found[:3]:
                report = explain(replace(page, budget=one.least))
                kept = report.get("symbols", {"bodies": len(page.parts.blocks)})
                self.assertEqual((one.report, one.bodies), (report, kept["bodies"]))
        self.assertGreater(tried, 30)

    def test_of_the_api_path(self):
        tried = 0
        for page in self.random_pages():
            found = ranges(page)
            self.assertTrue(found.cut_is_monotone)
            tried += self.check(
                found.api, lambda budget: api_state(replace(page, budget=budget)), 60
            )
            for one in found.api[:20]:
                state = api_state(replace(page, budget=one.least))
                self.assertEqual((one.bodies, one.facts), state)
                self.assertEqual(one.report, fit.explain_grounding(page.parts, one.least)[1])
        self.assertGreater(tried, 300)

    def test_a_cut_that_keeps_less_for_more(self):
        """It is told, and every number of tokens is tried."""

        def cut(text, room):
            return text if 4 * room >= len(text) else text[: 4 * room if room % 5 else room]

        HOST.set(truncate=cut)
        prose = [Block(f"# {n}\n{'f' * 80}") for n in range(4)]
        page = Page("p", "", {}, fit.GroundingParts(prose, [("c" * 40, {})], set()), 1)
        found = ranges(page)
        self.assertFalse(found.cut_is_monotone)
        self.check(found.api, lambda budget: api_state(replace(page, budget=budget)), 200)

    def test_floors(self):
        """Numbers of characters that can be reserved, and both doubles of each threshold."""
        page = crowded()
        room = explain(page)["room"]
        found = floors(page)
        self.assertGreater(len(found), 10)
        self.assertEqual((found[0].least, found[-1].most), (0, 1))
        decisions = functools.cache(
            lambda floor: decided(Trial("", code_floor=floor).changed(page))
        )
        for before, one in itertools.pairwise(found):
            self.assertEqual(math.nextafter(before.most, 1), one.least)
            self.assertNotEqual(decisions(before.most), decisions(one.least))
            self.assertEqual(decided_by(one.report), decisions(one.most))
        for reserve in range(0, room, 3):
            floor = (reserve + 0.5) / room
            one = next(one for one in found if floor <= one.most)
            self.assertEqual(decisions(floor), decisions(one.least), reserve)
        only_without = sized(page, 6, lambda fact, report: report["reserve"] - fact["short_by"])
        kept = [one.report["facts"][6]["kept"] for one in floors(only_without)]
        self.assertEqual((kept[0], any(kept[1:])), (True, False))  # with nothing reserved alone
        for dull in (replace(page, answer={}), page.with_parts(blocks=[])):
            self.assertEqual([(one.least, one.most) for one in floors(dull)], [(0, 1)])

    def test_a_change_is_the_least_that_keeps(self):
        """Made again, it keeps the block with the effects that are told; a step less does not."""
        seen = collections.Counter()
        for page in [crowded(), *self.random_pages(odd_hosts=False)]:
            report = explain(page)
            advised = advice(page)
            by_floor, by_budget = (floors(page), ranges(page).agent) if advised else ([], [])
            for one in advised:
                for change in one.changes:
                    seen[change.knob, one.is_body] += 1
                    self.check_change(page, report, one, change)
                    found = by_floor if change.knob == "code_floor" else by_budget
                    self.check_nothing_nearer(page, one, change, found)
        knobs = {"code_floor", "budget", "share", "first", "place", "seeds"}
        wanted = {(knob, False) for knob in knobs} | {("code_floor", True), ("budget", True)}
        self.assertEqual(set(seen), wanted)

    def check_change(self, page, report, one, change):
        """Hold a change against the fit of the page with it, and with a step less of it."""
        now = explain(change.page)
        labels = [block.label() for block in change.page.parts.prose]
        at = change.exact if change.knob == "place" else one.index
        kept = [fact["kept"] for fact in now["facts"]]
        self.assertEqual(now["symbols"]["bodies"] - report["symbols"]["bodies"], change.bodies)
        self.assertTrue(now["symbols"]["bodies"] > one.index if one.is_body else kept[at], change)
        lost = [labels[n] for n in range(len(kept)) if not kept[n]]
        before = [fact["label"] for fact in report["facts"] if not fact["kept"]]
        own = [] if one.is_body else [one.what]
        self.assertEqual(
            collections.Counter(before + change.lost), collections.Counter(lost + change.won + own)
        )
        less = not_so_far(page, one.index, change)
        if less is not None:
            then = explain(less)
            at = change.exact + 1 if change.knob == "place" else one.index
            kept = then["facts"][at]["kept"] if not one.is_body else 0
            kept = kept or (one.is_body and then["symbols"]["bodies"] > one.index)
            self.assertFalse(kept and then["outcome"] != "over the cap", change)

    def check_nothing_nearer(self, page, one, change, found):
        """Hold that no range between a change and the page as it is keeps what the change keeps."""
        now = page.parts.code_floor if change.knob == "code_floor" else page.budget
        nearer = range(0)
        if change.knob in ("code_floor", "budget"):
            low, high = sorted((change.exact, now))
            nearer = [each.report for each in found if low < each.least <= high]
            nearer = nearer[:-1] if change.exact > now else nearer
        for report in nearer:
            kept, bodies = decided_by(report)
            fits = report["outcome"] != "over the cap"
            self.assertFalse(fits and (bodies > one.index if one.is_body else kept[one.index]))
        if change.knob in ("code_floor", "share") and page.answer["grounding"] == GIVEN:
            self.assertLess(len(str(change.value)), 8)

    def test_a_threshold_is_found_from_any_guess(self):
        for least in (1, 2, 7, 300, 2**63 - 1):
            for guess in (-5, 0, 1, 6, 7, 8, 290, 301, 2**62, 2**64):
                self.assertEqual(least_above(0, guess, lambda budget: budget >= least), least)
        self.assertIsNone(least_above(0, 9, lambda budget: False))

    def test_reasons_hold_at_their_edge(self):
        """A block as short as its seeds are long would fit without them."""
        page = sized(crowded(), 6, lambda fact, _: fact["citable_seeds"] - fact["short_by"])
        report = explain(page)
        fact = report["facts"][6]
        self.assertEqual(fact["short_by"], fact["citable_seeds"])
        self.assertIn("of seeds it would fit", fact_reason(fact, report))
        self.assertTrue(explain(with_seeds(page, 6, 0))["facts"][6]["kept"])
        bare = explain(Trial("", code_floor=0).changed(page))
        self.assertIn("nothing is reserved", fact_reason(bare["facts"][-1], bare))

    def test_what_no_knob_does(self):
        """By how much it is still refused is told, and holds; what does nothing is not offered."""
        page = crowded()
        huge, alone = (one for one in advice(page) if one.what in ("huge", "lone"))
        bare = explain(Trial("", code_floor=0).changed(page))["facts"][huge.index]["short_by"]
        self.assertIn(f"refused even at a code floor of 0, by {bare:,}", huge.refused)
        first = explain(moved(page, huge.index, 0))["facts"][0]["short_by"]
        self.assertIn(f"refused even as the first block, by {first:,}", huge.refused)
        self.assertNotIn("seeds", " ".join(huge.refused))
        self.assertEqual(huge.changes, [])
        self.assertIn("it drives the answer over its cap", " ".join(alone.refused))
        over = explain(Trial("", first=("lone",)).changed(page))
        told = f"with 'lone' in first, the answer passes its cap by {over['size'] - over['cap']:,}"
        self.assertIn(told, alone.refused)
        nothing_reserved = advice(Trial("", code_floor=0).changed(page))
        self.assertNotIn(
            "code floor", " ".join(each for one in nothing_reserved for each in one.refused)
        )
        self.assertEqual(advice(replace(page, answer={})), [])


def decided_by(report):
    """Return which fact blocks an answer keeps, and its bodies, by its report."""
    return [fact["kept"] for fact in report["facts"]], report["symbols"]["bodies"]


def decided(page):
    """Return which fact blocks an answer keeps, and its bodies."""
    return decided_by(explain(page))


def sized(page, index, more):
    """Return the page, one block of which is longer by a number told by the page's report."""
    report = explain(page)
    prose = list(page.parts.prose)
    text, *rest = prose[index]
    length = len(text) + more(report["facts"][index], report)
    prose[index] = Block(text.ljust(length, "t")[:length], *rest)
    return page.with_parts(prose=prose)


def crowded():
    """Return a page with little room, and more of everything than it holds."""
    files = Block(f"## Files\n{'f' * 33_000}")
    sizes = [700, 90, 1500, 400, 260, 800, 120, 600, 310]
    prose = [
        Block(
            f"# {n}\n{'t' * size}", [fit.seed("a.py", line + 1) for line in range(n)], f"block {n}"
        )
        for n, size in enumerate(sizes)
    ]
    prose += [Block("d" * 300, [fit.seed("d.py", 1)], f"digest {n}", "digest") for n in range(4)]
    prose += [Block("h" * 41_000, [], "huge"), Block("l" * 9000, [], "lone", "lone")]
    blocks = [("c" * (150 + 37 * n % 200), {"fqn": f"s{n}"}) for n in range(12)]
    policy = fit.SectionBudget(shares={"digest": 0.2})
    given = {"page_id": "p", "grounding": GIVEN}
    return Page(
        "p", "", given, fit.GroundingParts([files, *prose], blocks, set(), 0.35, policy), 20_000
    )


if __name__ == "__main__":
    unittest.main()
