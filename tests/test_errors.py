"""Errors: what they say and where, and that the host's own pass through."""

import pathlib
import re
import types

import catalogue
from harness import CAP, HOST, UsualHost, fit, load, model, over, parts

Block = fit.FactBlock
within, context, prose = fit._blocks_within, fit._fit_page_context, fit._fit_prose
NAN, INF = float("nan"), float("inf")


class Errors(UsualHost):
    def check(self, error, cases):
        """Each case is a part of what the error says, the function, and its arguments."""
        for words, function, *arguments in cases:
            with self.subTest(words), self.assertRaisesRegex(error, re.escape(words)):
                function(*arguments)

    def test_places(self):
        limited = parts([Block("", key="k")], budget=fit.SectionBudget(shares={"k": None}))
        parameter = {"parameters": [{"name": 3}]}
        deep = {"a": [1, {"b": {2}}]}
        single, three = (parts((), [("a", {}, 1)[:count]]) for count in (1, 3))
        prior = over(prior_markdown=[1])
        cases = [
            (
                "_json_size(): value['a'][1]['b']: expected a JSON value, got set",
                fit._json_size,
                deep,
            ),
            ("value[0]: expected string keys, got 1", fit._json_size, [{1: 2}]),
            ("result: expected string keys, got 1", context, {1: 2}, parts(), 4),
            ("['parameters'][0]['name']: expected a string, got 3", fit.render_symbol, parameter),
            ("blocks[0]: expected a pair (tuple or list of two), got 1 items", within, single, 1),
            ("blocks[0]: expected a pair (tuple or list of two), got 3 items", within, three, 1),
            ("prose[0]: expected a FactBlock of this module, got 3", within, parts([3]), 1),
            ("parts: expected a GroundingParts of this module, got 3", context, over(), 3, 4),
            ("result: expected an object (dict), got list", context, [], parts(), 4),
            ("['prior_markdown']: expected a string, got list", context, prior, parts(), 4),
            ("shares['k']: expected a float or integer, got None", prose, limited, lambda *_: 1, 1),
            ("result of size: expected an integer, got 'x'", prose, parts(), lambda *_: "x", 1),
            ("left_out[1]: expected a string, got 1", fit._cap_note, ["a", 1]),
            ("blocks[0]: expected a string, got list", fit._assemble_blocks, [[]], 9),
            ("left_out: expected a list or tuple, got 'text'", fit._cap_note, "text"),
            ("_listing(): symbols: expected a list or tuple, got False", fit._listing, False),
            ("_most(): fits: expected a callable, got None", fit._most, 1, None),
            ("_most(): expected at most 2 arguments", fit._most, 1, 2, 3),
            ("citable(): seeds: expected an iterable, got 5", fit.citable, 5),
            ("seed(): start: expected an integer, got 1.0", fit.seed, "a", 1.0),
            ("seed(): start: missing argument", fit.seed, "a"),
        ]
        self.check(TypeError, cases)
        for wrong, words in [("path", "path: given twice"), ("x", "unexpected argument 'x'")]:
            with self.assertRaisesRegex(TypeError, re.escape(f"seed(): {words}")):
                fit.seed("a", 1, **{wrong: 2})

    def test_places_of_wrong_values(self):
        late = parts([Block("f")] * 2, [("body", {})] * 3 + [("t", {"file": "f", "line": "x"})])
        line = "parts.blocks[3][1]['line']: expected an integer, got 'x'"
        seeds = parts([Block("f", [{}, {"line_start": [1]}])])
        start = "parts.prose[0].seeds[1]['line_start']: expected an integer"
        odd, long = ({"line_start": value} for value in (NAN, "x" * 41))
        endless = parts(code_floor=NAN)
        cases = [
            (f"_assemble_grounding(): {line}", fit._assemble_grounding, late, 100),
            (f"_assemble_grounding(): {line}", fit._assemble_grounding, late, 0),
            (f"_fit_page_context(): {line}", context, over(), late, 100),
            (f"GroundingParts.seeds(): {start}", getattr, seeds, "seeds"),
            ("seeds[0]['line_start']: expected an integer, got nan", fit.citable, [odd]),
            (f"expected an integer, got '{'x' * 40}'...", fit.citable, [long]),
            ("code_floor: expected a number whose product", context, over(), endless, 4),
        ]
        self.check(ValueError, cases)
        words = "budget: expected an integer of at most 64 bits"
        self.check(OverflowError, [(words, within, parts(), 2**63)])
        for function in (context, fit.explain_page_context):
            with self.assertRaises(KeyError) as caught:
                function({"prior_markdown": "x" * CAP}, parts(), 1)
            self.assertEqual(caught.exception.args, ("page_id",))
            [said] = getattr(caught.exception, "__notes__", [function.__name__])  # from 3.11 on
            self.assertIn(function.__name__, said)

    def test_what_else_a_message_says(self):
        """Which utility gave the value, and how to put it right."""
        HOST.set(norm=lambda path: b"")
        twin = load(HOST.modules(), "workers.wiki.grounding_fit")
        file = "['file']: result of _norm: expected a"
        twice = "which was imported twice, under two names: got one of 'grounding_fit'"
        path = pathlib.PurePosixPath("f")
        cases = [
            (f"symbols[0]{file} string, got bytes", fit.symbol_seeds, [{"file": "f", "line": 1}]),
            (f"_listed(): sym{file} JSON value, got bytes", fit._listed, {}),
            (f"render_symbol(): sym{file} JSON value, got bytes", fit.render_symbol, {}),
            ("text: expected a string, got PurePosixPath; pass str(path)", Block, path),
            (
                "files: expected a set or frozenset, got list; pass set(files)",
                fit.GroundingParts,
                [],
                [],
                [],
            ),
            (twice, twin._blocks_within, parts(), 1),
        ]
        self.check(TypeError, cases)

    def test_the_first_of_two_wrong_arguments(self):
        page, wrong, big = parts(), object(), 2**63
        cases = [
            ("parts", fit._assemble_grounding, wrong, big),
            ("parts", fit.explain_grounding, wrong, big),
            ("parts", within, wrong, big),
            ("blocks", fit._assemble_blocks, wrong, big),
            ("parts", context, wrong, wrong, big),
            ("result", context, wrong, page, big),
            ("parts", fit.explain_page_context, wrong, wrong, big),
            ("size", prose, page, wrong, 1),
            ("path", fit.seed, wrong, wrong, wrong),
            ("start", fit.seed, "a", wrong, wrong),
            ("kept", fit._code_cut, wrong, big, big),
            ("high", fit._most, wrong, wrong),
        ]
        for name, function, *arguments in cases:
            with self.assertRaisesRegex(TypeError, rf"\(\): {name}: expected "):
                function(*arguments)

    def test_the_first_of_two_wrong_values(self):
        """An answer is put together before it is measured: its lines, then the seeds of facts."""
        line, start = {"line": "x"}, {"line_start": "x"}
        formless = {"line_start": 1, "x": object()}  # which JSON has no form for
        two = [Block("## Files", [seed]) for seed in (formless, start)]
        cases = [
            ("blocks[0][1]['line']", parts([Block("## Files", [start])], [("t", line)])),
            ("prose[1].seeds[0]['line_start']", parts(two)),
        ]
        for place, page in cases:
            words = re.escape(f"parts.{place}: expected an integer")
            for function in (context, fit.explain_page_context):
                self.assertRaisesRegex(ValueError, words, function, over(), page, 5)
            self.assertRaises(ValueError, model._fit_page_context, over(), page, 5)

    def test_a_refusal_runs_no_code_of_the_value(self):
        """Its type may have names whose equality runs code, or lack those that most have."""
        acted = []
        text = catalogue.odd_text(lambda: acted.append(1))
        for name in ("Path", "grounding_fit.GroundingParts"):
            odd = type(name, (), {text("__fspath__"): 1, text("__module__"): "m", text("y"): 2})
            bare = eval(f"type({name!r}, (), {{}})", {"type": type})  # in a module without a name
            self.assertNotIn("__module__", vars(bare))
            for value in (odd(), odd, bare(), bare):
                acted.clear()
                for words, function in [("expected a string", Block), ("GroundingParts", within)]:
                    with self.assertRaises(TypeError) as caught:
                        function(value, *[1][: function is within])
                    self.assertIn(words, str(caught.exception))
                self.assertEqual(acted, [])

    def test_an_equality_that_raises(self):
        """A key whose equality fails is not absent, wherever keys are looked for."""

        def fail():
            if armed:
                raise error

        text = catalogue.odd_text(fail)
        for error in (LookupError("the host's own"), KeyError("the host's own")):
            armed = []
            symbol, seed, name = ({text(key): 1} for key in ("file", "line_start", "name"))
            budget = fit.SectionBudget(shares={text("k"): 1.0})
            viewed = fit.SectionBudget(shares=types.MappingProxyType(catalogue.Odd(fail)))
            cited = parts([Block("f", [seed], key="k")])
            limited, seen = (parts(cited.prose, budget=one) for one in (budget, viewed))
            calls = [
                (fit.render_symbol, symbol),
                (fit.render_symbol, {"parameters": [name]}),
                (fit._listed, symbol),
                (fit.symbol_seeds, [symbol]),
                (fit.citable, [seed]),
                (prose, limited, lambda *_: 1, 1),
                (prose, seen, lambda *_: 1, 1),
                (context, over(), cited, 9),
                (fit._assemble_grounding, cited, 9),
            ]
            armed.append(1)
            for function, *arguments in calls:
                with self.subTest(function), self.assertRaises(LookupError) as caught:
                    function(*arguments)
                self.assertIs(caught.exception, error)

    def test_line_numbers(self):
        wrong = [INF, -INF, NAN, b"1", b"", "x", "1.0", [1], {"a": 1}, object(), {1}, "1" * 5000]
        for value in wrong:
            record = {"file": "f", "line": value}
            self.assertRaises(ValueError, fit._listed, record)
            self.assertRaises(ValueError, fit.symbol_seeds, [record])
        self.assertIn(":L" + "9" * 40, fit._listed({"line": "9" * 40}))
        self.assertRaises(ValueError, fit._listed, {"line": 10**5000})
        self.assertRaises(ValueError, context, over(symbols=[10**5000]), parts(), 1)

    def test_what_the_host_raises_passes_through(self):
        page = parts([Block("f" * 99)], [("t", {"file": "f", "line": 1})] * 2)
        error = LookupError("the host's own")

        def utility(*args):
            raise error

        calls = [(fit._assemble_grounding, page, 5), (context, over(), page, 5)]
        calls += [(fit._most, 3, utility), (prose, page, utility, 1)]
        for names in (["estimate"], ["truncate", "norm"]):
            HOST.set(**dict.fromkeys(names, utility))
            for function, *arguments in calls:
                with self.assertRaises(LookupError) as caught:
                    function(*arguments)
                self.assertIs(caught.exception, error)

    def test_wrong_results_of_the_host(self):
        page = parts([Block("f" * 99)], [("t", {"file": "f", "line": 1})] * 2)
        cases = [("estimate", "x", TypeError), ("estimate", 2**63, OverflowError)]
        cases += [("norm", 3, TypeError), ("norm", [], TypeError)]
        for name, result, error in cases:
            HOST.set(**{name: lambda _: result})
            self.assertRaises(error, fit._assemble_grounding, page, 5)
            self.assertRaises(error, context, over(), page, 5)
        HOST.set(truncate=lambda *_: None)
        self.assertRaises(TypeError, fit._assemble_grounding, page, 5)
