"""Results worked out by hand."""

import json

from harness import CAP, HOST, UsualHost, fit, parts
from pages import Source

Block = fit.FactBlock
NAN, INF = float("nan"), float("inf")
HEAD = "###  () — :L0"  # of a symbol of which nothing is known


class WorkedCases(UsualHost):
    def check(self, function, cases):
        for given, wanted in cases:
            with self.subTest(given=repr(given)[:80]):
                self.assertEqual(function(given), wanted)

    def test_citation_seeds(self):
        made = [fit.seed("a.py", *lines) for lines in [(10,), (10, 4), (10, 14), (0, 5), (-5,)]]
        self.assertEqual(
            [tuple(one.items()) for one in made],
            [
                (("path", "a.py"), ("line_start", start), ("line_end", end))
                for start, end in [(10, 10), (10, 10), (10, 14), (0, 5), (-5, 0)]
            ],
        )
        starts = [True, 1.7, 0.9, "12", None, "", -1, 0]
        kept = fit.citable({"line_start": start} for start in starts)
        self.assertEqual([one["line_start"] for one in kept], [True, 1.7, "12"])
        symbols = [
            {"file": "./f", "line": 7, "end_line": 3},
            {"file": "", "line": 1},
            {"file": "x"},
        ]
        self.assertEqual(fit.symbol_seeds(symbols), [fit.seed("f", 7)])
        edges = [1, 2**30, 2**63 - 2, 2**63 - 1, 2**63, 2**64]
        pairs = [(first, last) for first in edges for last in [*edges, -(2**63), -(2**64)]]
        symbols = [{"file": "f", "line": first, "end_line": last} for first, last in pairs]
        ends = [seed["line_end"] for seed in fit.symbol_seeds(symbols)]
        self.assertEqual(ends, [max(pair) for pair in pairs])
        floats = [2.0**62, 2.0**63, 1e19]
        seeds = fit.symbol_seeds([{"file": "f", "line": line} for line in floats])
        self.assertEqual([seed["line_start"] for seed in seeds], list(map(int, floats)))

    def test_labels(self):
        cases = [
            ("#  # Tests", "the 'Tests' block"),
            ("Dependencies(x) of it (y) (z)", "the 'Dependencies(x) of it' block"),
            ("## Title\r\nmore", "the 'Title\r' block"),
            ("#\tTests", "the '\tTests' block"),
            ("\n## a", "the '' block"),
            ("## (a) of b (c)", "the '(a) of b' block"),
            ("# Tests ", "the 'Tests ' block"),
        ]
        for edge in "\x7f\x80\xff\u0100\u01ff\uffff\U00010000":  # of the widths of texts
            cases.append((f"# {edge}\n😀", f"the '{edge}' block"))
        self.check(lambda text: Block(text).label(), cases)

    def test_symbol_blocks(self):
        cases = [
            ({}, HEAD),
            ({"line": 40.0}, "###  () — :L40.0"),
            ({"line": None}, "###  () — :LNone"),
            ({"callees": ("a", "", "b")}, f"{HEAD}\ncalls (static): a, , b"),
            ({"related": [{"fqn": "a"}, {}, {"fqn": "b"}]}, f"{HEAD}\nrelated: a, b"),
            (
                {"parameters": [{}, {"name": "a", "type": "T"}, {"type": "T"}, {"name": "b"}]},
                f"{HEAD}\nparams: a: T, b",
            ),
            ({"snippet_cut": 2}, HEAD),
            (
                {"snippet": "s", "snippet_cut": 2, "body_digest": "d"},
                f"{HEAD}\n```\ns\n```\nbody cut: 2 more lines, to L0",
            ),
        ]
        self.check(fit.render_symbol, cases)
        for lines, more in [(12, []), (13, ["... (1 more)"])]:
            digest = "\n".join("d" * lines)
            shown = fit.render_symbol({"body_digest": digest}).splitlines()
            self.assertEqual(shown, [HEAD, "logic skeleton:", "```", *"d" * 12, *more, "```"])

    def test_listed_lines(self):
        whole = "\u3000é\x1c" + "x" * 78
        cases = [
            ({"line": 12.9, "end_line": " 12 "}, "- `` () — :L12"),
            ({"line": -1.5, "end_line": -1}, "- `` () — :L-1"),
            ({"line": 2, "end_line": 3, "signature": "\n\n  a\r\nb"}, "- `` () — :L2-L3: a\r"),
            ({"docstring": "é" * 81}, f"- `` () — :L0: {'é' * 77}..."),
            ({"signature": whole}, f"- `` () — :L0: {whole[1:]}"),
        ]
        numbers = [
            9,
            10,
            99,
            100,
            1000,
            10**18,
            2**63 - 1,
            2**63,
            -10,
            -(2**63),
            -(2**70),
        ]
        cases += [({"line": n, "end_line": n}, f"- `` () — :L{n}") for n in numbers]
        self.check(fit._listed, cases)
        self.assertEqual([fit._listing(none) for none in (None, [], ())], ["", "", ""])

    def test_notes(self):
        start = "answer capped at 40000 characters; left out: "
        cases = [
            ([""], f"{start}nothing that can be left out."),
            (list("abcdef"), f"{start}a; b; c; d; e; f."),
            (list("abcdefg"), f"{start}a; b; c; d; e; f; 1 more blocks."),
        ]
        self.check(fit._cap_note, cases)
        [cut] = fit._code_cut(-(2**63), 2**63 - 1, 2**63 - 1)
        self.assertIn(f"of {2**64 - 1} of {2**63 - 1} ", cut.replace("bodies of", "of", 1))
        self.assertIn(f" {2**63} not at all", cut)
        [cut] = fit._code_cut(-(2**63), -(2**63), 2**63 - 1)
        self.assertIn(f" {2**64 + 2**63 - 1} not at all", cut)
        self.assertEqual([fit._code_cut(kept, 0, 4) for kept in (4, 5)], [[], []])

    def test_search(self):
        """It asks as rarely as it can, and never for nothing."""
        for most, wanted in [(7, [5, 8, 6, 7]), (0, [5, 2, 1]), (10, [5, 8, 9, 10])]:
            asked = []

            def fits(count):
                asked.append(count)
                return count <= most

            self.assertEqual(fit._most(10, fits), most)
            self.assertEqual(asked, wanted)
        cases = [(-1, 0), (0, 0), (1, 1), (2**63 - 1, 7)]
        self.check(lambda high: fit._most(high, lambda count: count <= 7), cases)

    def test_tokens_of_bodies(self):
        """What blocks cost in tokens stands in them; the code's floor is cut toward zero."""
        HOST.set(estimate=lambda text: int(text or 0))
        cases = [(180, [31, 31, 1], 2), (-10, [-1, -2, 1], 2), (1000, [900, 1], 1)]
        cases += [(2**63 - 1, [2**62, 2**62, 1], 1), (0, [-(2**63), -(2**63), 1], 3)]
        for budget, costs, kept in [*cases, (1000, [300, 50, 1], 2), (0, [], 0)]:
            page = parts([Block("5000")], [(str(cost), {}) for cost in costs])
            self.assertEqual(fit._blocks_within(page, budget), kept, budget)
        page = parts([Block("200"), Block("")], [("800", {}), ("0", {}), ("1", {})])
        self.assertEqual(fit._blocks_within(page, 1000), 2)

    def test_shares_are_compared_exactly(self):
        costs = [2400, 101, 100]
        prose = [Block("x" * (cost - 4), key="digest") for cost in costs]  # 4: its quotes, "[]"
        cases = [(0.25, [2400, 100]), (INF, costs), (NAN, []), (10**400, costs)]
        cases += [(-INF, []), (-(10**400), [])]
        for share, wanted in cases:
            budget = fit.SectionBudget(shares={"digest": share})
            page = parts(prose, budget=budget, code_floor=0)
            kept, _ = fit._fit_prose(page, lambda blocks, count: 30000, 0)
            self.assertEqual([len(block.text) + 4 for block in kept], wanted, share)

    def test_room_kept_for_code(self):
        """A block that is measured so beside 6000 characters of code, in a room of 10000."""
        cases = [(0.35, 36500, True), (0.35, 36501, False), (0, CAP, True), (0, CAP + 1, False)]
        cases += [(1e300, 34000, True), (1e300, 34001, False), (10**300, 34001, False)]
        cases += [(-1e300, 10**12, True), (True, 34000, True), (False, CAP, True)]
        for floor, with_block, fits in cases:

            def size(blocks, count):
                return 36000 if count else with_block if blocks else 30000

            kept, dropped = fit._fit_prose(parts([Block("f")], code_floor=floor), size, 1)
            self.assertEqual((len(kept), len(dropped)), (fits, not fits), (floor, with_block))

    def test_json_sizes(self):
        source = Source(1)
        numbers = [10**4000, -(10**19), 2**63, -(2**63), NAN, INF, -INF, -0.0, 5e-324]
        numbers += [1.7976931348623157e308, 123456789012345680.0, 1e15, 1e16]
        texts = ["".join(map(chr, range(0x120))), "\ud800\U0001f600"]
        nested = 0
        for _ in range(500):
            nested = [nested]
        drawn = [source.value(6) for _ in range(2000)]
        for value in [*drawn, *numbers, *texts, [[]] * 5000, ({},), nested]:
            self.assertEqual(fit._json_size(value), len(json.dumps(value, ensure_ascii=False)))
