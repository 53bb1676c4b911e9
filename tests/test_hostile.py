"""Values, hosts and threads that no one would wish for: an error or a result, never a crash."""

import contextlib
import gc
import importlib
import sys
import threading
import unittest

import catalogue
import fuzz
from differences import difference
from differential import outcome
from harness import ROOT, UsualHost, fit, parts
from pages import Source


class Hostile(UsualHost):
    def test_anything_anywhere(self):
        """Every name with any kind of value in any place: an error of the value, or a result."""
        source = Source(3)
        allowed = (TypeError, ValueError, OverflowError, LookupError)
        for name, arguments in catalogue.working(fit).items():
            function = catalogue.function(fit, name)
            self.assertIsNotNone(function(*arguments))
            for place in range(len(arguments)):
                for _ in range(60):
                    odd = [source.wrong(), [source.wrong()], {"line": source.wrong()}]
                    given = [*arguments[:place], source.r.choice(odd), *arguments[place + 1 :]]
                    with contextlib.suppress(*allowed):
                        function(*given)
            self.assertRaises(TypeError, function, *[None] * 9)
            if name != "SectionBudget":
                self.assertRaises(TypeError, function)

    def test_hosts_that_change_what_is_walked(self):
        gc.freeze()  # so that the many collections go through the pages alone
        self.addCleanup(gc.unfreeze)
        for seed in range(0, 600, 2):
            with self.subTest(seed=seed):
                fuzz.one_case(seed, 0.5)

    def test_depth_and_cycles(self):
        deep = []
        bush = {}
        gc.disable()  # it would go through all of them again and again
        for _ in range(100_000):
            deep = [deep]
            bush = {"a": bush}
        gc.enable()
        ring = []
        ring.append(ring)
        wheel = {}
        wheel["w"] = (wheel,)
        before = sys.getrecursionlimit()
        try:
            for limit in (before, 1_000_000):
                sys.setrecursionlimit(limit)
                for value in (deep, bush, ring, wheel):
                    answer = {"v": value}, parts(), 1
                    for call in [(fit._json_size, value), (fit._fit_page_context, *answer)]:
                        self.assertRaisesRegex(RecursionError, "^.{,99}$", *call)  # no place in it
        finally:
            sys.setrecursionlimit(before)
            while deep:
                deep = deep.pop()
            while bush:
                bush = bush.pop("a")

    def test_side_by_side(self):
        pages = [(Source(seed).answer(), Source(seed).parts(), 900) for seed in range(60)]
        found = []

        def call(page):
            return outcome(fit, "_fit_page_context", *page).result

        def work():
            for _ in range(5):
                found.extend(map(difference, map(call, pages), alone))

        alone = [call(page) for page in pages]
        threads = [threading.Thread(target=work) for _ in range(6)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        self.assertEqual((len(found), set(found)), (6 * 5 * 60, {None}))

    @unittest.skipIf(sys.version_info < (3, 12), "no lock of their own")
    def test_sub_interpreters(self):
        newer = sys.version_info >= (3, 13)
        interpreters = importlib.import_module("_interpreters" if newer else "_xxsubinterpreters")
        script = f"""import sys
sys.path[:0] = {[*sys.path[:4], str(ROOT)]!r}
import grounding_fit as g
assert g._json_size({{'a': 1}}) == 8
assert g.GroundingParts([], [], set()).budget is g._DEFAULT_BUDGET"""
        for _ in range(3):
            made = interpreters.create()
            try:
                self.assertIsNone(interpreters.run_string(made, script))
            finally:
                interpreters.destroy(made)
