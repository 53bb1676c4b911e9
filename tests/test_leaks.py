"""Memory: blocks, and references to what is read, over calls that work and calls that fail."""

import contextlib
import copy
import gc
import pickle
import sys

import catalogue
from harness import HOST, UsualHost, fit

ROUNDS = 40
CALLS = 20  # of everything, in each round
REFUSALS = (TypeError, ValueError, KeyError, AttributeError, ZeroDivisionError)


class Leaks(UsualHost):
    def test_memory_stays_level(self):
        budget = fit.section_budget("getting-started")
        page = fit.GroundingParts([fit.FactBlock("## x\n" + "f" * 9000)], [], {"f"}, budget=budget)
        calls = catalogue.calls(fit)
        calls += [
            (lambda: pickle.loads(pickle.dumps(page)), []),
            (lambda: page == copy.deepcopy(page), []),
            (lambda: fit._fit_prose(page, lambda blocks, count: 1 / 0, 3), []),
        ]
        watched = catalogue.reached([page, *(given for _, given in calls)])
        watched += [fit.FactBlock, fit.GroundingParts, fit.SectionBudget]

        def once():
            for function, given in calls:
                with contextlib.suppress(*REFUSALS):
                    function(*given)
            HOST.calls.clear()

        gc.freeze()  # so that a collection goes through what was made since
        self.addCleanup(gc.unfreeze)
        rounds = []
        for _ in range(ROUNDS):
            blocks = sys.getallocatedblocks()
            for _ in range(CALLS):
                once()
            gc.collect()
            grown = sys.getallocatedblocks() - blocks
            rounds.append((grown, [sys.getrefcount(one) for one in watched]))
        # Python's own free lists fill for some rounds; a leak is a block in each call of them all.
        late = rounds[ROUNDS // 2 :]
        self.assertLess(min(grown for grown, _ in late), CALLS // 2)
        self.assertEqual(late[-1][1], late[0][1])
