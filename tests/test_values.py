"""How values are read that stand for a text, a number, an array or an object."""

import collections
import pickle
import re
import types
import unittest
import warnings

from harness import CAP, HOST, UsualHost, fit, model, over, parts
from pages import Array, Integer, Mapping, Real, Text

try:
    from _testcapi import unicode_legacy_string
except ImportError:
    unicode_legacy_string = None


class Values(UsualHost):
    def test_arrays_and_objects_as_texts(self):
        """They are written as str() writes them, wherever a text form is asked for."""
        keys = ("fqn", "kind", "file", "signature", "docstring", "line", "usage_example")
        for value in ([], {}, (), [1, "a"], {"k": [None, 2.5]}, ("é",)):
            with self.subTest(value=value):
                for symbol in [{key: value} for key in keys] + [{"parameters": [{"name": "n"}]}]:
                    symbol.get("parameters", [{}])[0]["type"] = value
                    self.assertEqual(fit.render_symbol(symbol), model.render_symbol(symbol))
                    if "line" not in symbol:
                        self.assertEqual(fit._listed(symbol), model._listed(symbol))
                answer = {"page_id": value, "prior_markdown": "m" * CAP}
                said = fit._fit_page_context(answer, parts(), 1)["truncated"]
                self.assertIn(f'page_id="{value}")', said)
        shown = {"k": (1, None)}
        for function in (fit.render_symbol, fit._listed, fit._json_size):
            viewed = {"fqn": types.MappingProxyType(types.MappingProxyType(shown))}
            self.assertEqual(function(viewed), function({"fqn": shown}))
        nothing = {"signature": types.MappingProxyType({}), "docstring": "d"}
        self.assertEqual(fit._listed(nothing), fit._listed({"docstring": "d"}))
        for wrong in (set(), b"", object()):
            self.assertRaises(TypeError, fit.render_symbol, {"fqn": wrong})

    def test_a_zero_without_digits(self):
        """Up to 3.11 such an integer ends where the first digit of others stands."""
        zero = int.from_bytes(b"\0\0", "little")
        self.assertEqual(fit._json_size([zero]), 3)
        self.assertEqual(fit._listed({"line": zero}), "- `` () — :L0")
        self.assertEqual(fit.citable([{"line_start": zero}]), [])

    def test_arrays_and_objects_as_paths(self):
        """A path that is none can be written, and not be cited."""
        for value in ([], {}, (), [1, "a"], {"k": [None, 2.5]}, ("é",)):
            HOST.set(norm=lambda path, value=value: value)
            listed = parts([], [("top", {}), ("x" * CAP, {"file": "f", "line": 1})])
            for said, line in [
                (fit.render_symbol({}), 0),
                (fit._listed({}), 0),
                (fit._fit_page_context(over(), listed, 1)["grounding"], 1),
            ]:
                self.assertTrue(f" — {value}:L{line}" in said, value)
            self.assertRaises(TypeError, fit.symbol_seeds, [{"file": "f", "line": 1}])

    def test_any_value_where_any_will_do(self):
        for value in (None, [], {}, 3, object(), "Decisions", b"decisions"):
            self.assertIs(fit.section_budget(value), fit._DEFAULT_BUDGET)
            given = []
            fit._fit_prose(parts(), lambda _, count: given.append(count) or 1, value)
            self.assertIs(given[-1], value)

    def test_a_read_only_view_as_shares(self):
        prose = [fit.FactBlock("x" * 2400, key=key) for key in ("a", "b", "c")]
        shares = collections.defaultdict(float, a=0.1, b=0.9)
        views = [types.MappingProxyType(one) for one in (shares, collections.UserDict(shares))]
        for given in [shares, *views]:
            budget = fit.SectionBudget(shares=given)
            kept, _ = fit._fit_prose(parts(prose, budget=budget), lambda *_: 30000, 0)
            self.assertEqual([block.key for block in kept], ["b", "c"])
            self.assertEqual(pickle.loads(pickle.dumps(budget)).shares, shares)
        self.assertNotIn("c", shares)

        class Failing(collections.UserDict):
            def keys(self):
                raise LookupError("the host's own")

        budget = fit.SectionBudget(shares=types.MappingProxyType(Failing(a=1)))
        for function in (repr, pickle.dumps):
            self.assertRaisesRegex(LookupError, "the host's own", function, budget)
        viewed = fit.SectionBudget(shares=types.MappingProxyType({"a": 1}))
        self.assertEqual(eval(repr(viewed), vars(fit)), fit.SectionBudget(shares={"a": 1}))

    def test_files_are_the_hosts_own(self):
        path = Text("p")
        [file] = fit._assemble_grounding(parts(files={path}), 1)[2]
        self.assertIs(file, path)

    def test_paths_that_say_they_are_equal(self):
        """What _norm gave for a path is kept by its text, whatever the path says of itself."""

        class Path(str):
            def __hash__(self):
                return 1

            def __eq__(self, other):
                return True

        HOST.set(norm=str.upper)
        page = parts([], [("x" * CAP, {"file": Path(name), "line": 1}) for name in "abc"])
        shown = fit._fit_page_context(over(), page, 1)["grounding"]
        self.assertEqual(re.findall(r"— (\w):L1", shown), ["A", "B", "C"])

    def test_derived_types_read_as_plain(self):
        plain = {"fqn": "f", "file": "./x", "line": 3, "end_line": 9.5, "fan_in": 2}
        plain |= {"callees": ["a"], "signature": " s "}
        derived = {str: Text, int: Integer, float: Real, list: Array}
        odd = Mapping({key: derived[type(value)](value) for key, value in plain.items()})
        HOST.set(norm=lambda path: str.replace(path, "./", ""), estimate=lambda text: 7)
        for function in (fit.render_symbol, fit._listed, fit._json_size):
            self.assertEqual(function(odd), function(plain), function)
        self.assertEqual(fit.symbol_seeds(Array([odd])), fit.symbol_seeds([plain]))
        large = {"file": "f", "line": Integer(10**30), "end_line": Integer(10**31)}
        [seed] = fit.symbol_seeds([large])
        self.assertEqual([*map(type, seed.values())], [str, int, int])
        self.assertIn(f":L{10**30}-L{10**31}", fit._listed(large))

        def page(record):
            prose = Array([fit.FactBlock(Text("## Files"), Array([odd]))])
            return fit.GroundingParts(prose, Array([(Text("t"), record)]), set())

        answer = Mapping(over(symbols=Array([odd])))
        result = fit._fit_page_context(answer, page(odd), Integer(9))
        self.assertEqual(result, fit._fit_page_context(over(), page(plain), 9))
        self.assertEqual(fit._most(Integer(5), bool), 5)
        pair = collections.namedtuple("Pair", "text record")("t", {})
        self.assertEqual(fit._json_size(pair), fit._json_size(["t", {}]))
        self.assertEqual(fit._blocks_within(parts(blocks=[pair]), 1), 1)

    def test_items_that_are_counted_off(self):
        """What has neither __iter__ nor a length is gone through as Python does."""

        class Counted:
            def __getitem__(self, at):
                return [{"line_start": at}, {"line_start": at}, {"line_start": at}][at]

        self.assertEqual([one["line_start"] for one in fit.citable(Counted())], [1, 2])

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
