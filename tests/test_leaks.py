"""Memory: blocks, and references to what is read, over calls that work and calls that fail."""

import copy
import gc
import pickle
import sys

from harness import HOST, UsualHost, fit, over, parts

Block = fit.FactBlock


class Leaks(UsualHost):
    def test_memory_stays_level(self):
        symbol = {"fqn": "F", "file": "./f", "line": 3}
        digests = [Block("x" * 3000, [fit.seed("g", 2)], key="digest")] * 9
        facts = [Block("## Files", [fit.seed("f", 1)]), *digests]
        guide = fit.section_budget("getting-started")
        page = parts(facts, [("c" * 2000, symbol)] * 40, budget=guide)
        bad = parts([Block("f", [{"line_start": "x"}])], [("t", {"file": "f", "line": "y"})])
        answer = over(prior_markdown="p" * 99)
        rest = [b"junk", {1: 2}, object()]
        calls = [
            lambda: fit._fit_page_context(answer, page, 8000),
            lambda: fit._assemble_grounding(page, 8000),
            lambda: fit._fit_page_context(over(prior_markdown=3), page, 8000),
            lambda: fit._assemble_grounding(bad, 8),
            lambda: fit._fit_prose(page, lambda blocks, count: len(blocks) * 3000, 3),
            lambda: fit._fit_prose(page, lambda blocks, count: 1 / 0, 3),
            lambda: fit._fit_page_context(over(), bad, 8),
            lambda: fit._fit_page_context(over(x=rest), page, 8),
            lambda: fit._json_size(rest),
            lambda: page.seeds,
            lambda: bad.seeds,
            lambda: fit.seed("a", 1, wrong=1),
            lambda: pickle.loads(pickle.dumps(page.budget)),
            lambda: repr(page),
            lambda: page == copy.deepcopy(page),
            lambda: Block(3),
            lambda: fit.GroundingParts([], [], set(), "x"),
            lambda: fit.render_symbol({"callees": [1]}),
            lambda: fit._listing([symbol] * 3),
            lambda: fit.citable(iter([{}, {"line_start": 1}])),
            lambda: fit._most(9, lambda count: count < 4),
            lambda: fit._cap_note(["a"] * 9),
        ]
        watched = [page, page.prose, page.blocks, symbol, facts[0].seeds, answer, Block]

        def once():
            for call in calls:
                try:
                    call()
                except (TypeError, ValueError, ZeroDivisionError):
                    pass
            HOST.calls.clear()

        rounds = []
        for _ in range(20):
            blocks = sys.getallocatedblocks()
            for _ in range(60):
                once()
            gc.collect()
            references = [sys.getrefcount(one) for one in watched]
            rounds.append((sys.getallocatedblocks() - blocks, references))
        # The host's own free lists fill for some rounds; a leak is a block in each call of them all.
        self.assertLess(min(grown for grown, _ in rounds[10:]), 30)
        self.assertEqual(rounds[-1][1], rounds[10][1])
