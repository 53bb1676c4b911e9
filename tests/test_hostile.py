"""Values, hosts and threads that no one would wish for: an error or a result, never a crash."""

import importlib
import sys
import threading
import unittest
import warnings

import differential
import fuzz
from harness import HOST, ROOT, UsualHost, fit, over, parts
from pages import Array, Integer, Mapping, Real, Source, Text

try:
    from _testcapi import unicode_legacy_string
except ImportError:
    unicode_legacy_string = None

# Arguments that every function and constructor accepts.
GOOD = {
    "section_budget": ["x"],
    "seed": ["p", 1, 2],
    "citable": [[]],
    "symbol_seeds": [[]],
    "render_symbol": [{}],
    "_listed": [{}],
    "_listing": [[{}]],
    "_assemble_blocks": [["a"], 1],
    "_blocks_within": [parts(), 1],
    "_assemble_grounding": [parts(), 1],
    "_json_size": [1],
    "_cap_note": [["a"], True],
    "_code_cut": [1, 2, 3],
    "_most": [3, bool],
    "_fit_prose": [parts(), lambda *_: 1, 2],
    "_fit_page_context": [over(), parts(), 1],
    "explain_page_context": [over(), parts(), 1],
    "explain_grounding": [parts(), 1],
    "FactBlock": ["t", [], "n", "k"],
    "GroundingParts": [[], [], set(), 0.5, fit.SectionBudget()],
    "SectionBudget": [1, (), {}, 2],
}


class Hostile(UsualHost):
    def test_anything_anywhere(self):
        """Every name with any kind of value in any place: an error of the value, or a result."""
        source = Source(3)
        allowed = (TypeError, ValueError, OverflowError, LookupError)
        self.assertEqual({name for name in fit.__all__ if callable(getattr(fit, name))}, set(GOOD))
        for name, arguments in GOOD.items():
            function = getattr(fit, name)
            self.assertIsNotNone(function(*arguments))
            for place in range(len(arguments)):
                for _ in range(60):
                    odd = [source.wrong(), [source.wrong()], {"line": source.wrong()}]
                    given = [*arguments[:place], source.r.choice(odd), *arguments[place + 1 :]]
                    try:
                        function(*given)
                    except allowed:
                        pass
            self.assertRaises(TypeError, function, *[None] * 9)
            if name != "SectionBudget":
                self.assertRaises(TypeError, function)

    def test_hosts_that_change_what_is_walked(self):
        for seed in range(0, 600, 2):
            with self.subTest(seed=seed):
                fuzz.one_case(seed, 0.5)

    def test_depth_and_cycles(self):
        deep = []
        bush = {}
        for _ in range(200_000):
            deep = [deep]
            bush = {"a": bush}
        ring = []
        ring.append(ring)
        wheel = {}
        wheel["w"] = (wheel,)
        before = sys.getrecursionlimit()
        try:
            for limit in (before, 1_000_000):
                sys.setrecursionlimit(limit)
                for value in (deep, bush, ring, wheel):
                    self.assertRaises(RecursionError, fit._json_size, value)
                    answer = {"v": value}
                    self.assertRaises(RecursionError, fit._fit_page_context, answer, parts(), 1)
        finally:
            sys.setrecursionlimit(before)
            while deep:
                deep = deep.pop()
            while bush:
                bush = bush.pop("a")

    def test_derived_types_read_as_plain(self):
        plain = {"fqn": "f", "file": "./x", "line": 3, "end_line": 9.5, "fan_in": 2}
        plain |= {"callees": ["a"], "signature": " s "}
        derived = {str: Text, int: Integer, float: Real, list: Array}
        odd = Mapping({key: derived[type(value)](value) for key, value in plain.items()})
        HOST.set(norm=lambda path: str.replace(path, "./", ""), estimate=lambda text: 7)
        for function in (fit.render_symbol, fit._listed, fit._json_size):
            self.assertEqual(function(odd), function(plain), function)
        self.assertEqual(fit.symbol_seeds(Array([odd])), fit.symbol_seeds([plain]))

        def page(record):
            prose = Array([fit.FactBlock(Text("## Files"), Array([odd]))])
            return fit.GroundingParts(prose, Array([(Text("t"), record)]), set())

        answer = Mapping(over(symbols=Array([odd])))
        result = fit._fit_page_context(answer, page(odd), Integer(9))
        self.assertEqual(result, fit._fit_page_context(over(), page(plain), 9))
        self.assertEqual(fit._most(Integer(5), bool), 5)

    @unittest.skipIf(unicode_legacy_string is None, "this interpreter makes none")
    def test_strings_of_the_old_interface(self):
        warnings.simplefilter("ignore", DeprecationWarning)
        for text in ('a"\n', "é—", "😀\x01"):
            old = unicode_legacy_string
            self.assertEqual(fit._json_size(old(text)), fit._json_size(text))
            rendered = fit.render_symbol({old("fqn"): old(text)})
            self.assertEqual(rendered, fit.render_symbol({"fqn": text}))
            label = fit.FactBlock(old("# " + text)).label()
            self.assertEqual(label, fit.FactBlock("# " + text).label())

    def test_side_by_side(self):
        pages = [(Source(seed).answer(), Source(seed).parts(), 900) for seed in range(60)]
        found = []

        def call(page):
            return differential.outcome(fit, "_fit_page_context", *page)[0]

        def work():
            for _ in range(5):
                found.extend(differential.same(call(page), one) for page, one in zip(pages, alone))

        alone = [call(page) for page in pages]
        threads = [threading.Thread(target=work) for _ in range(6)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        self.assertEqual((len(found), all(found)), (6 * 5 * 60, True))

    @unittest.skipIf(sys.version_info < (3, 12), "no lock of their own")
    def test_sub_interpreters(self):
        newer = sys.version_info >= (3, 13)
        interpreters = importlib.import_module("_interpreters" if newer else "_xxsubinterpreters")
        script = f"""import sys
sys.path[:0] = {sys.path[:4] + [str(ROOT)]!r}
import grounding_fit as g
assert g._json_size({{'a': 1}}) == 8
assert g.GroundingParts([], [], set()).budget is g._DEFAULT_BUDGET"""
        for _ in range(3):
            made = interpreters.create()
            try:
                self.assertIsNone(interpreters.run_string(made, script))
            finally:
                interpreters.destroy(made)
