"""What a report says a block fell short by is true: a block given that much is kept, and with one
character less it is not."""

import fractions
import math
from operator import is_

import catalogue
from harness import HOST, LINES, UsualHost, exchanged, fit, model, over, parts
from pages import Source

PAGES = 600


def rebuilt():
    """Return the seed, the arguments and the report of the pages whose answers are rebuilt."""
    found = []
    for seed in range(PAGES):
        source = Source(seed)
        page = source.answer(), source.parts(), source.tokens()
        try:
            report = fit.explain_page_context(*page)[1]
        except (ValueError, KeyError):
            continue
        if "facts" in report:
            found.append((seed, page, report))
    return found


class Asked(Exception):
    """The plain model has come to its choice of fact blocks."""


def measure_of(page):
    """Return what the plain model hands to `_fit_prose` to measure the answers of a page: a
    function, here one that measures each answer once, and how many bodies there are at most."""
    LINES.made.clear()
    sizes = {}

    def choose(_, *asked):
        raise Asked(*asked)

    try:
        with exchanged(model, _fit_prose=choose):
            model._fit_page_context(*page)
    except Asked as asked:
        size, total = asked.args

    def measure(blocks, count):
        key = count, *map(id, blocks)
        if key not in sizes:
            sizes[key] = size(blocks, count)
        return sizes[key]

    return measure, total


def at_verdict(report, verdict):
    """Return which of the facts have it."""
    return [at for at, one in enumerate(report["facts"]) if one["verdict"] == verdict]


def nudged(value, product_reaches):
    """Return the least double, at or above a value that is near it, whose product reaches."""
    while product_reaches(value):
        value = math.nextafter(value, -math.inf)
    while not product_reaches(value):
        value = math.nextafter(value, math.inf)
    return value


class Reports(UsualHost):
    @classmethod
    def setUpClass(cls):
        HOST.set()
        cls.rebuilt = rebuilt()

    def test_a_cap_is_as_short_as_it_says(self):
        tried = 0
        for seed, page, report in self.rebuilt:
            if refused := at_verdict(report, "over the cap"):
                with self.subTest(seed=seed), exchanged(model, _listed=LINES):
                    self.assert_short_of_cap(page, report["facts"], refused[tried % len(refused)])
                tried += 1
        self.assertGreater(tried, 30)

    def assert_short_of_cap(self, page, facts, at):
        """Assert that a fact block stays when measured as so much less, and not with one more."""
        size, total = measure_of(page)
        prose = page[1].prose
        before = [block for block, one in zip(prose, facts[:at], strict=False) if one["kept"]]
        candidate = [*before, prose[at]]
        short_by = facts[at]["short_by"]
        for less, stays in [(short_by, True), (short_by - 1, False)]:

            def measure(blocks, count):
                same = len(blocks) == len(candidate) and all(map(is_, blocks, candidate))
                return size(blocks, count) - less * (same and count == 0)

            now = fit._fit_prose(page[1], measure, total)[0]
            self.assertEqual(any(one is prose[at] for one in now), stays, (at, less))

    def test_a_share_is_as_short_as_it_says(self):
        tried = 0
        for seed, page, report in self.rebuilt:
            over = at_verdict(report, "over its share")
            if over and report["room"] > 0 and report["facts"][over[0]]["short_by"] is not None:
                with self.subTest(seed=seed):
                    self.assert_short_of_share(page, report["room"], report["facts"], over[0])
                tried += 1
        self.assertGreater(tried, 15)

    def assert_short_of_share(self, page, room, facts, at):
        """Assert that a fact is within the least share that reaches, and over the one below it."""
        answer, parts, tokens = page
        one = facts[at]
        cost = one["share_used"] + one["text"] + one["seeds"]
        enough = fractions.Fraction(one["share"]) + one["short_by"]
        reaches = nudged(float(enough / room), lambda share: share * room >= enough)
        least = nudged(cost / room, lambda share: share * room >= cost)
        for share, still_over in [(reaches, False), (math.nextafter(least, -math.inf), True)]:
            shares = {**parts.budget.shares, one["key"]: share}
            policy = fit.SectionBudget(0, parts.budget.first, shares)
            changed = fit.GroundingParts(
                parts.prose, parts.blocks, parts.files, parts.code_floor, policy
            )
            now = fit.explain_page_context(answer, changed, tokens)[1]["facts"][at]
            self.assertEqual(now["verdict"] == "over its share", still_over, (at, share))

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

    def test_seeds_that_fail_to_be_read(self):
        """Of a block over its share only the report reads them, and no more than an error of theirs
        may be passed over."""

        def fail():
            if armed:
                raise error

        armed = []
        seed = {catalogue.odd_text(fail)("line_start"): 1}
        page = parts(
            [fit.FactBlock("f", [seed], key="k")], budget=fit.SectionBudget(shares={"k": 0})
        )
        armed.append(1)
        error = LookupError("the host's own")
        [told] = fit.explain_page_context(over(), page, 9)[1]["facts"]
        self.assertEqual((told["verdict"], told["citable_seeds"]), ("over its share", None))
        error = KeyboardInterrupt()
        self.assertRaises(KeyboardInterrupt, fit.explain_page_context, over(), page, 9)

    def test_a_floor_beyond_any_size(self):
        page = [fit.FactBlock("f" * 900)], [("t" * 900, {})] * 9
        for floor in (-1e300, -1.0, -1, 1e300):
            given = over(), parts(*page, code_floor=floor), 900
            report = fit.explain_page_context(*given)[1]
            self.assertEqual(report, model.explain_page_context(*given)[1])

    def test_numbers_beyond_64_bits(self):
        HOST.set(estimate=lambda text: 2**62)
        page = parts([fit.FactBlock("f")], [("a", {}), ("b", {})])
        report = fit.explain_grounding(page, -(2**63))[1]
        self.assertEqual(report, model.explain_grounding(page, -(2**63))[1])
        self.assertEqual(report["over"], 2**62 + 2**63)

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
