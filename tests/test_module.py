"""What the differential test does not show: worked cases, records, loading, errors, hostile use."""

import copy
import gc
import inspect
import json
import math
import os
import pickle
import re
import subprocess
import sys
import threading
import types
import unittest
import warnings
import weakref
from pathlib import Path

import differential
from harness import HOST, HOMES, MODULES, Host, find, fit, load, model
from pages import Array, Integer, Mapping, Real, Source, Text

ROOT = Path(__file__).resolve().parent.parent
CAP = fit._PAGE_CONTEXT_MAX_CHARS
NAN, INF = float("nan"), float("inf")
Block, Parts, Budget = fit.FactBlock, fit.GroundingParts, fit.SectionBudget


def parts(prose=(), blocks=(), **rest):
    return Parts(list(prose), list(blocks), rest.pop("files", set()), **rest)


def over(**fields):
    """Return an answer over the cap."""
    return {"page_id": "p", "old": 1, "grounding": "g" * CAP, **fields}


class Host1(unittest.TestCase):
    """Every test starts on the usual host."""

    def setUp(self):
        HOST.set()
        HOST.calls.clear()


class Cases(Host1):
    def test_worked_cases(self):
        head = lambda text: fit.render_symbol(text)  # noqa: E731
        cases = [
            (fit.seed("a.py", 10, 4), {"path": "a.py", "line_start": 10, "line_end": 10}),
            (fit.seed("a.py", -5)["line_end"], 0),
            (list(fit.seed("a.py", 0, 5).items()),
             [("path", "a.py"), ("line_start", 0), ("line_end", 5)]),
            (fit.citable({"line_start": n} for n in (True, 1.7, 0.9, "12", None, "", -1)),
             [{"line_start": True}, {"line_start": 1.7}, {"line_start": "12"}]),
            (fit.symbol_seeds([{"file": "./f", "line": 7, "end_line": 3}, {"file": ""},
                               {"file": "x"}]),
             [fit.seed("f", 7)]),
            (head({}), "###  () — :L0"),
            (head({"line": 40.0}), "###  () — :L40.0"),
            (head({"line": None}), "###  () — :LNone"),
            (head({"body_digest": "a\n" * 12}).count("... (1 more)\n```"), 1),
            (head({"body_digest": "\n".join("a" * 12)}).count("more"), 0),
            (head({"callees": ("a", "", "b")}), "###  () — :L0\ncalls (static): a, , b"),
            (head({"snippet": "s", "snippet_cut": 2}),
             "###  () — :L0\n```\ns\n```\nbody cut: 2 more lines, to L0"),
            (fit._listed({"line": 12.9, "end_line": " 12 "}), "- `` () — :L12"),
            (fit._listed({"signature": "\n\n  a\r\nb", "line": 2, "end_line": 3}),
             "- `` () — :L2-L3: a\r"),
            (fit._listed({"docstring": "é" * 81})[-80:], "é" * 77 + "..."),
            (fit._listed({"signature": "\u3000é\x1c" + "x" * 78}),
             "- `` () — :L0: é\x1c" + "x" * 78),
            (fit._listing(None), ""),
            (fit._json_size({"path": "a.py", "line_start": 3, "line_end": 3}), 48),
            (fit._cap_note([""]),
             "answer capped at 40000 characters; left out: nothing that can be left out."),
            (fit._cap_note("abcdefg" and list("abcdefg"))[44:],
             " a; b; c; d; e; f; 1 more blocks."),
            (fit._code_cut(-(2**63), 2**63 - 1, 2**63 - 1)[0][:33],
             "the bodies of 18446744073709551615"[:33]),
            (Block("#  # Tests").label(), "the 'Tests' block"),
            (Block("# Plain\n😀").label(), "the 'Plain' block"),  # narrower than its text
            (Block("Dependencies(x) (y)").label(), "the 'Dependencies(x)' block"),
            (Block("## Title\r\nmore").label(), "the 'Title\r' block"),
            (Block("\n## a").label(), "the '' block"),
            ([fit._most(n, lambda c: c <= 7) for n in (-1, 0, 1, 10, 2**63 - 1)], [0, 0, 1, 7, 7]),
        ]  # fmt: skip
        for number, (got, wanted) in enumerate(cases):
            with self.subTest(number=number):
                self.assertEqual(got, wanted)

    def test_search_asks_as_rarely_as_it_can(self):
        for most, wanted in [(7, [5, 8, 6, 7]), (0, [5, 2, 1]), (10, [5, 8, 9, 10])]:
            asked = []
            fit._most(10, lambda n: asked.append(n) or n <= most)
            self.assertEqual(asked, wanted)

    def test_empty_block_text(self):
        page = parts([Block("F")], [("", {}), ("code", {})])
        self.assertEqual(fit._assemble_grounding(page, 10**6)[0], "F\n\ncode")
        self.assertIn(("estimate", "\n\ncode"), HOST.calls)
        self.assertEqual(fit._fit_page_context(over(), page, 10**6)["grounding"], "F\n\n\n\ncode")

    def test_shares_are_compared_exactly(self):
        texts = ["x" * (n - 4) for n in (2400, 101, 100)]  # 4: the quotes, and no seeds' brackets
        prose = [Block(text, key="digest") for text in texts]
        for share, wanted in [(0.25, [0, 2]), (INF, [0, 1, 2]), (NAN, []), (-INF, []),
                              (10**400, [0, 1, 2])]:
            page = parts(prose, budget=Budget(shares={"digest": share}), code_floor=0)
            kept, _ = fit._fit_prose(page, lambda blocks, count: 30000, 0)
            self.assertEqual([prose.index(block) for block in kept], wanted, share)

    def test_floors_beyond_64_bits(self):
        size = lambda blocks, count: 30000 + 6000 * count  # noqa: E731
        for floor, kept in [(1e300, 0), (-1e300, 1), (10**300, 0)]:
            page = parts([Block("f")], code_floor=floor)
            self.assertEqual(len(fit._fit_prose(page, size, 1)[0]), kept if floor < 0 else 1, floor)
        page = parts([Block("f")], code_floor=0.35)

        def at(limit):
            return lambda blocks, count: 36000 if count else limit if blocks else 30000

        self.assertEqual([len(fit._fit_prose(page, at(n), 1)[0]) for n in (36500, 36501)], [1, 0])

    def test_json_sizes(self):
        source = Source(1)
        values = [source.value(6) for _ in range(2000)] + [
            "".join(map(chr, range(0x120))), "\ud800\U0001f600", 10**4000, -(10**19), 2**63,
            -(2**63),
            NAN, INF, -INF, -0.0, 5e-324, 1.7976931348623157e308, 123456789012345680.0, [[]] * 3,
            ({},),
        ]  # fmt: skip
        nested = 0
        for _ in range(500):
            nested = [nested]
        for value in [*values, nested]:
            self.assertEqual(fit._json_size(value), len(json.dumps(value, ensure_ascii=False)))


class Answers(Host1):
    def test_invariants(self):
        """What holds of every answer, whatever the page."""
        checked = 0
        for seed in range(700):
            source = Source(seed)
            page, answer, tokens = source.parts(), source.answer(), source.tokens()
            prose = [Block(f"## Fact {i}\n{b.text}", b.seeds, f"<{i}>", b.key) for i,
                     b in enumerate(page.prose)]
            blocks = [(f"### S{i}\n{text}", {"fqn": f"S{i}", **sym}) for i,
                      (text, sym) in enumerate(page.blocks)]
            page = parts(prose, blocks, code_floor=page.code_floor, budget=page.budget)
            try:
                result = fit._fit_page_context(answer, page, tokens)
            except (ValueError, KeyError):
                continue
            size = fit._json_size(result)
            note = result.get("truncated", "")
            self.assertTrue(size <= CAP or note.endswith("the other fields alone exceed it."), seed)
            if result is answer or "Ask for code" not in note:
                continue
            checked += 1
            grounding = result["grounding"]
            kept = [block for block in prose if block.text in grounding]
            bodies = sum(text in grounding for text, _ in blocks)
            listed = grounding.partition(fit._LISTED_HEADING)[2].count("\n- `")
            cut = re.search(r"the bodies of (\d+) of (\d+) .*?; (\d+) of them .*?, (\d+) not", note)
            self.assertEqual(bool(cut), bodies < len(blocks))
            if cut:
                counts = len(blocks) - bodies, len(blocks), listed, len(blocks) - bodies - listed
                self.assertEqual(tuple(map(int, cut.groups())), counts, seed)
            more = int((re.search(r"(\d+) more blocks", note) or [0, 0])[1])
            named = sum(block.label() in note for block in prose if block not in kept)
            self.assertEqual(len(kept) + named + more, len(prose), seed)
            self.assert_full(answer, result, page, tokens, kept, bodies, seed)
        self.assertGreater(checked, 150)

    def assert_full(self, answer, result, page, tokens, kept, bodies, seed):
        """With the next body, the answer would pass the cap or the token budget's count."""
        if bodies == fit._blocks_within(page, tokens) or len(json.dumps(result["truncated"])) > 602:
            return
        symbols = [symbol for _, symbol in page.blocks]
        shown = [text for text, _ in page.blocks[: bodies + 1]]
        listing = fit._listing(symbols[bodies + 1 : bodies + 31])
        texts = [block.text for block in kept] + shown + [listing] * bool(listing)
        seeds = fit.citable(one for block in kept for one in block.seeds)
        seeds += fit.symbol_seeds(symbols[: bodies + 1])
        names = [str(s["fqn"]) for s in symbols[: bodies + 31] if s["fqn"]]
        more = {**result, "grounding": "\n\n".join(texts), "symbols": names,
                "citation_seeds": seeds}
        more["truncated"] = fit._NOTE_PLACEHOLDER
        self.assertGreater(fit._json_size(more), CAP, seed)

    def test_the_same_objects(self):
        seeds = [{"path": "a", "line_start": 1}, {"path": "b", "line_start": 0}]
        page = parts([Block("## Files", seeds)])
        small, big = {"a": 1}, over(keep=seeds)
        self.assertIs(fit._fit_page_context(small, page, 1), small)
        result = fit._fit_page_context(big, page, 1)
        self.assertIs(result["citation_seeds"][0], seeds[0])
        self.assertIs(result["keep"], seeds)
        self.assertEqual(list(result),
                         ["page_id", "old", "keep", "grounding", "symbols", "citation_seeds",
                          "truncated"])
        self.assertEqual(fit._fit_page_context({"p": "x" * (CAP - 9)}, page, 1),
                         {"p": "x" * (CAP - 9)})
        self.assertIsNot(page.seeds, page.seeds)

    def test_cap_is_exact(self):
        for extra in (0, 1):
            answer = {"prior_markdown": "m", "page_id": 7, "p": "x" * (CAP - 46 + extra)}
            self.assertEqual(fit._json_size(answer), CAP + extra)
            result = fit._fit_page_context(answer, parts(), 1)
            self.assertEqual(result is answer, not extra)
            if extra:
                self.assertEqual((result["prior_markdown"], list(result)[-1]), (None, "truncated"))


RECORDS = [
    (Block, ("text", [1], "name", "key"), {"seeds": (), "name": "", "key": ""}),
    (Parts, ([], (), {"f"}, 1, Budget()), {"code_floor": 0.35, "budget": fit._DEFAULT_BUDGET}),
    (Budget, (1, ("a",), {"b": 0.5}, 2),
     {"readme_chars": 4000, "first": (), "shares": {}, "document_chars": 0}),
]  # fmt: skip


class Records(Host1):
    def test_every_record(self):
        for kind, values, defaults in RECORDS:
            with self.subTest(kind.__name__):
                names = kind.__match_args__
                record = kind(*values)
                self.assertEqual(record, kind(**dict(zip(names, values))))
                self.assertEqual([getattr(record, name) for name in names], list(values))
                self.assertTrue(all(getattr(record, n) is v for n, v in zip(names, values)))
                least = kind(*values[: len(names) - len(defaults)])
                self.assertEqual({name: getattr(least, name) for name in defaults}, defaults)
                self.assertEqual(eval(repr(record), vars(fit)), record)
                for again in (copy.copy(record), copy.deepcopy(record),
                              pickle.loads(pickle.dumps(record))):
                    self.assertEqual(again, record)
                    self.assertIs(type(again), kind)
                for name in [*names, "new"]:
                    self.assertRaises(AttributeError, setattr, record, name, 1)
                    self.assertRaises(AttributeError, delattr, record, name)
                self.assertRaises(TypeError, type, "Derived", (kind,), {})
                self.assertRaises(TypeError, setattr, kind, "text", 1)
                self.assertNotEqual(record, values)
                self.assertRaises(TypeError, hash, record)
                self.assertRaises(TypeError, fit._json_size, record)
                for index, wrong in enumerate([object()] * len(names)):
                    self.assertRaisesRegex(
                        TypeError, rf"^{kind.__name__}\(\): {names[index]}: expected ",
                        kind, *values[:index], wrong, *values[index + 1 :])  # fmt: skip
                self.assertRaises(TypeError, kind, *values, 1)
                self.assertRaises(TypeError, kind, *values[:1], **{names[0]: values[0]})
                self.assertRaises(TypeError, kind, *values, wrong=1)
        self.assertRaises(TypeError, Block)
        self.assertRaises(TypeError, Parts, [], [])

    def test_fact_block_is_positional(self):
        block = Block("t", (), "n", "k")
        text, seeds, name, key = block
        self.assertEqual((text, seeds, name, key), block[:])
        self.assertEqual((block[-1], block[0], block[1:3], len(block), list(block)[3]),
                         ("k", "t", ((), "n"), 4, "k"))
        for wrong, error in [(4, IndexError), (-5, IndexError), ("a", TypeError),
                             (2**70, IndexError)]:
            self.assertRaises(error, lambda: block[wrong])
        self.assertNotIsInstance(block, tuple)
        self.assertEqual(hash(block), hash(Block("t", (), "n", "k")))
        match block:
            case Block(text, _, "n"):
                self.assertEqual(text, "t")

    def test_defaults_are_shared_or_fresh(self):
        self.assertIs(parts().budget, fit._DEFAULT_BUDGET)
        self.assertIsNot(Budget().shares, Budget().shares)
        self.assertIs(fit.section_budget("decisions"), fit._BUDGETS["decisions"])
        again = pickle.loads(pickle.dumps(fit._DEFAULT_BUDGET))
        self.assertEqual(again, fit._DEFAULT_BUDGET)
        self.assertIsNot(again, fit._DEFAULT_BUDGET)
        self.assertEqual(list(fit._BUDGETS), ["getting-started", "decisions"])
        with self.assertRaises(TypeError):
            fit._BUDGETS["new"] = Budget()
        with self.assertRaises(TypeError):
            del fit._BUDGETS["decisions"]

    def test_cycles(self):
        seeds = []
        block = Block("t", seeds)
        seeds.append(block)
        self.assertIn("FactBlock(...)", repr(block))
        class Marker:
            pass

        marker = Marker()
        seeds.append(marker)
        gone = weakref.ref(marker)
        del block, seeds, marker
        gc.collect()
        self.assertIsNone(gone(), "a cycle through a record is not collected")


class Loading(unittest.TestCase):
    def modules(self, **changes):
        """Return the host's modules; a name given as None is taken out, another is exchanged."""
        modules = Host().modules()
        for home, names in HOMES.items():
            for name in names:
                if name in changes:
                    vars(modules[home]).pop(name)
                    if changes[name] is not None:
                        setattr(modules[home], name, changes[name])
        return modules

    def test_utilities(self):
        for name in (name for names in HOMES.values() for name in names):
            with self.assertRaisesRegex(ImportError,
                                        f"needs {name} of its host; looked in workers.con"):
                load(self.modules(**{name: None}))
            with self.assertRaisesRegex(TypeError, rf"{name}: expected a (callable|string), got 7"):
                load(self.modules(**{name: 7}))
        with self.assertRaisesRegex(ValueError, "FILE_CARDS_HEADING"):
            load(self.modules(FILE_CARDS_HEADING=""))

    def test_first_home_wins_and_later_ones_stay_unread(self):
        modules = self.modules()
        first = modules["workers.context_builder"]
        first._norm = lambda path: "first"
        first.FILE_CARDS_HEADING = first.REQUESTED_CONTEXT_HEADING = "H"
        loaded = load({"workers.context_builder": first})
        first._norm = None  # too late to be seen
        self.assertEqual(loaded.render_symbol({}), "###  () — first:L0")
        self.assertEqual(loaded._ALWAYS_KEPT, ("H", "H"))

    def test_other_import_errors_pass_through(self):
        for body, error in [("import not_there_at_all", "not_there_at_all"),
                            ("raise LookupError('x')", "LookupError: x"),
                            ("import grounding_fit as g; g.render_symbol({})", "is not loaded")]:
            script = f"""
                import sys, types, importlib.abc, importlib.util
                class Finder(importlib.abc.MetaPathFinder, importlib.abc.Loader):
                    def find_spec(self, name, path=None, target=None):
                        if name in ("workers", "workers.context_builder"):
                            return importlib.util.spec_from_loader(
                                name, self, is_package=name == "workers")
                    def exec_module(self, module):
                        if module.__name__ != "workers": exec({body!r})
                sys.meta_path.insert(0, Finder())
                import grounding_fit"""
            lines = inspect.cleandoc(script)
            done = subprocess.run([sys.executable, "-c", lines], capture_output=True, text=True)
            self.assertIn(error, done.stderr.splitlines()[-1])

    def test_either_name_and_again(self):
        for name in ("grounding_fit", "workers.wiki.grounding_fit"):
            loaded = load(self.modules(), name)
            self.assertEqual(loaded.FactBlock.__module__, name)
            self.assertIsNot(load(self.modules(), name).FactBlock, loaded.FactBlock)
            with self.assertRaisesRegex(TypeError, "GroundingParts of this module"):
                loaded._blocks_within(parts(), 1)
        gone = weakref.ref(loaded.FactBlock)
        del loaded
        gc.collect()
        self.assertIsNone(gone(), "a module's types outlive it")


class Errors(Host1):
    def test_places(self):
        deep = parts([Block("f")] * 2, [("t", {})] * 3 + [("t", {"file": "f", "line": "x"})])
        bad_seed = parts([Block("f", [{}, {"line_start": [1]}])])
        cases = [
            (lambda: fit._assemble_grounding(deep, 100), ValueError,
             r"parts.blocks[3][1]['line']: expected an integer, got 'x'"),
            (lambda: fit._fit_page_context(over(), deep, 100), ValueError,
             r"_fit_page_context(): parts.blocks[3][1]['line']: expected an integer, got 'x'"),
            (lambda: bad_seed.seeds, ValueError,
             "GroundingParts.seeds(): parts.prose[0].seeds[1]['line_start']: expected an integer"),
            (lambda: fit.citable([{"line_start": NAN}]), ValueError,
             "citable(): seeds[0]['line_start']: expected an integer, got nan"),
            (lambda: fit._json_size({"a": [1, {"b": {2}}]}), TypeError,
             "_json_size(): value['a'][1]['b']: expected a JSON value, got set"),
            (lambda: fit._json_size([{1: 2}]), TypeError,
             "_json_size(): value[0]: expected string keys, got 1"),
            (lambda: fit.render_symbol({"parameters": [{"name": 3}]}), TypeError,
             "sym['parameters'][0]['name']: expected a string, got 3"),
            (lambda: fit._blocks_within(parts((), [("a",)]), 1), TypeError,
             "parts.blocks[0]: expected a pair (tuple or list of two), got 1 items"),
            (lambda: fit._blocks_within(parts([3]), 1), TypeError,
             "parts.prose[0]: expected a FactBlock of this module, got 3"),
            (lambda: fit._fit_page_context(over(), 3, 4), TypeError,
             "parts: expected a GroundingParts of this module, got 3"),
            (lambda: fit._fit_page_context([], parts(), 4), TypeError,
             "result: expected an object (dict), got list"),
            (lambda: fit._blocks_within(parts(), 2**63), OverflowError,
             "budget: expected an integer of at most 64 bits"),
            (lambda: fit._fit_page_context(over(prior_markdown=[1]), parts(), 4), TypeError,
             "result['prior_markdown']: expected a string, got list"),
            (lambda: fit._fit_page_context(over(), parts(code_floor=NAN), 4), ValueError,
             "parts.code_floor: expected a number whose product"),
            (lambda: fit._fit_prose(parts([Block("", key="k")], budget=Budget(shares={"k": None})),
                                    lambda *_: 1, 1), TypeError,
                                    "parts.budget.shares['k']: expected a float or integer, got None"),
            (lambda: fit._fit_prose(parts(), lambda *_: "x", 1), TypeError,
             "_fit_prose(): result of size: expected an integer, got 'x'"),
            (lambda: fit._cap_note(["a", 1]), TypeError, "left_out[1]: expected a string, got 1"),
            (lambda: fit._cap_note("text"), TypeError,
             "left_out: expected a list or tuple, got 'text'"),
            (lambda: fit._most(1, None), TypeError, "_most(): fits: expected a callable, got None"),
            (lambda: fit.citable(5), TypeError, "citable(): seeds: expected an iterable, got 5"),
            (lambda: fit.seed("a", 1.0), TypeError, "seed(): start: expected an integer, got 1.0"),
            (lambda: fit.seed("a"), TypeError, "seed(): start: missing argument"),
            (lambda: fit.seed("a", 1, path=2), TypeError, "seed(): path: given twice"),
            (lambda: fit.seed("a", 1, wrong=2), TypeError, "seed(): unexpected argument 'wrong'"),
            (lambda: fit._most(1, 2, 3), TypeError, "_most(): expected at most 2 arguments"),
        ]  # fmt: skip
        for call, error, words in cases:
            with self.subTest(words), self.assertRaisesRegex(error, re.escape(words)):
                call()
        with self.assertRaises(KeyError) as caught:
            fit._fit_page_context({"prior_markdown": "x" * CAP}, parts(), 1)
        self.assertEqual(caught.exception.args, ("page_id",))

    def test_line_numbers(self):
        for value in (INF, -INF, NAN, b"1", b"", "x", "1.0", "", [1], {"a": 1}, object(), {1},
                      "1" * 5000):
            if value == "":
                continue
            for call in (fit._listed, lambda sym: fit.symbol_seeds([{"file": "f", **sym}])):
                with self.assertRaises(ValueError):
                    call({"line": value})
        self.assertIn(":L" + "9" * 40, fit._listed({"line": "9" * 40}))
        self.assertRaises(ValueError, fit._listed, {"line": 10**5000})

    def test_what_the_host_raises_passes_through(self):
        page = parts([Block("f" * 99)], [("t", {"file": "f", "line": 1})] * 2)
        calls = [lambda: fit._assemble_grounding(page, 5),
                 lambda: fit._fit_page_context(over(), page, 5),
                 lambda: fit._most(3, utility),
                 lambda: fit._fit_prose(page, utility, 1)]  # fmt: skip
        error = LookupError("the host's own")

        def utility(*args):
            raise error

        for names in ({"estimate": utility}, {"truncate": utility, "norm": utility}):
            HOST.set(**names)
            for call in calls:
                with self.assertRaises(LookupError) as caught:
                    call()
                self.assertIs(caught.exception, error)

    def test_wrong_results_of_the_host(self):
        page = parts([Block("f" * 99)], [("t", {"file": "f", "line": 1})] * 2)
        for names, error in [({"estimate": lambda _: "x"}, TypeError),
                             ({"estimate": lambda _: 2**63}, OverflowError),
                             ({"norm": lambda _: 3}, TypeError),
                             ({"norm": lambda _: []}, TypeError)]:  # fmt: skip
            HOST.set(**names)
            self.assertRaises(error, fit._assemble_grounding, page, 5)
            self.assertRaises(error, fit._fit_page_context, over(), page, 5)
        HOST.set(truncate=lambda *_: None)
        self.assertRaises(TypeError, fit._assemble_grounding, page, 5)


EVERY = {name: getattr(fit, name) for name in fit.__all__ if callable(getattr(fit, name))}


class Hostile(Host1):
    def test_anything_anywhere(self):
        """Every name with any kind of value in any place: an error of the value, or a result."""
        source = Source(3)
        allowed = (TypeError, ValueError, OverflowError, LookupError)
        good = {"section_budget": ["x"], "seed": ["p", 1, 2], "citable": [[]], "symbol_seeds": [[]],
                "render_symbol": [{}], "_listed": [{}], "_listing": [[{}]],
                "_assemble_blocks": [["a"], 1],
                "_blocks_within": [parts(), 1], "_assemble_grounding": [parts(), 1],
                "_json_size": [1],
                "_cap_note": [["a"], True], "_code_cut": [1, 2, 3], "_most": [3, bool],
                "_fit_prose": [parts(), lambda *_: 1, 2], "_fit_page_context": [over(), parts(), 1],
                "FactBlock": ["t", [], "n", "k"], "GroundingParts": [[], [], set(), 0.5, Budget()],
                "SectionBudget": [1, (), {}, 2]}  # fmt: skip
        self.assertEqual(set(good), set(EVERY))
        for name, arguments in good.items():
            self.assertIsNotNone(EVERY[name](*arguments))
            for place in range(len(arguments)):
                for _ in range(60):
                    given = list(arguments)
                    given[place] = source.r.choice([source.wrong(), [source.wrong()],
                                                    {"line": source.wrong()}])
                    try:
                        EVERY[name](*given)
                    except allowed:
                        pass
            for given in ([], [None] * 9):
                self.assertRaises(TypeError, EVERY[name],
                                  *given) if given or name != "SectionBudget" else None

    def test_hosts_that_change_what_is_walked(self):
        import fuzz

        for seed in range(0, 600, 2):
            with self.subTest(seed=seed):
                fuzz.one_case(seed, 0.5)

    def test_depth_and_cycles(self):
        deep, bush = [], {}
        for _ in range(200_000):
            deep, bush = [deep], {"a": bush}
        ring, wheel = [], {}
        ring.append(ring)
        wheel["w"] = (wheel,)
        before = sys.getrecursionlimit()
        try:
            for limit in (before, 1_000_000):
                sys.setrecursionlimit(limit)
                for value in (deep, bush, ring, wheel):
                    self.assertRaises(RecursionError, fit._json_size, value)
                    self.assertRaises(RecursionError, fit._fit_page_context, {"v": value}, parts(),
                                      1)
        finally:
            sys.setrecursionlimit(before)
            while deep:
                deep = deep.pop()
            while bush:
                bush = bush.pop("a")

    def test_derived_types_read_as_plain(self):
        plain = {"fqn": "f", "file": "./x", "line": 3, "end_line": 9.5, "fan_in": 2,
                 "callees": ["a"], "signature": " s "}
        odd = Mapping({key: {str: Text, int: Integer, float: Real, list: Array}[type(value)](value)
                       for key, value in plain.items()})  # fmt: skip
        HOST.set(norm=lambda path: str.replace(path, "./", ""), estimate=lambda text: 7)
        for name in ("render_symbol", "_listed", "_json_size"):
            self.assertEqual(EVERY[name](odd), EVERY[name](plain), name)
        self.assertEqual(fit.symbol_seeds(Array([odd])), fit.symbol_seeds([plain]))
        page = lambda record: Parts([Block(Text("## Files"), Array([odd]))],
                                    Array([(Text("t"), record)]), set())  # noqa: E731
        answer = Mapping(over(symbols=Array([odd])))
        self.assertEqual(fit._fit_page_context(answer, page(odd), Integer(9)),
                         fit._fit_page_context(over(), page(plain), 9))
        self.assertEqual(fit._most(Integer(5), bool), 5)

    def test_strings_of_the_old_interface(self):
        try:
            from _testcapi import unicode_legacy_string as legacy
        except ImportError:
            self.skipTest("this interpreter makes none")
        warnings.simplefilter("ignore", DeprecationWarning)
        for text in ("a\"\n", "é—", "😀\x01"):
            self.assertEqual(fit._json_size(legacy(text)), fit._json_size(text))
            self.assertEqual(fit.render_symbol({legacy("fqn"): legacy(text)}),
                             fit.render_symbol({"fqn": text}))
            self.assertEqual(Block(legacy("# " + text)).label(), Block("# " + text).label())

    def test_side_by_side(self):
        pages = [(Source(seed).answer(), Source(seed).parts(), 900) for seed in range(60)]
        call = lambda page: differential.outcome(fit._fit_page_context, *page)[0]  # noqa: E731
        alone = [call(page) for page in pages]
        found = []
        work = lambda: found.extend(differential.same(call(p), a) for _ in range(5) for p,
                                    a in zip(pages, alone))  # noqa: E731
        threads = [threading.Thread(target=work) for _ in range(6)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        self.assertEqual((len(found), all(found)), (6 * 5 * 60, True))

    def test_sub_interpreters(self):
        try:
            import _interpreters as interpreters
        except ImportError:
            try:
                import _xxsubinterpreters as interpreters
            except ImportError:
                self.skipTest("no sub-interpreters")
        if sys.version_info < (3, 12):
            self.skipTest("no lock of their own")
        script = (f"import sys; sys.path[:0] = {sys.path[:4] + [str(ROOT)]!r}\n"
                  "import grounding_fit as g\nassert g._json_size({'a': 1}) == 8\n"
                  "assert g.GroundingParts([], [], set()).budget is g._DEFAULT_BUDGET")  # fmt: skip
        for _ in range(3):
            made = interpreters.create()
            try:
                self.assertIsNone(interpreters.run_string(made, script))
            finally:
                interpreters.destroy(made)


class Leaks(Host1):
    def test_memory_stays_level(self):
        """Blocks of memory, and references to what is read, over calls that work and fail."""
        page = parts([Block("## Files", [fit.seed("f", 1)])] + [Block("x" * 3000,
            [fit.seed("g", 2)], key="digest")] * 9,
                     [("c" * 2000, {"fqn": "F", "file": "./f", "line": 3})] * 40,
                     budget=fit.section_budget("getting-started"))
        bad = parts([Block("f", [{"line_start": "x"}])], [("t", {"file": "f", "line": "y"})])
        answer, rest = over(prior_markdown="p" * 99), [b"junk", {1: 2}, object()]
        calls = [
            lambda: fit._fit_page_context(answer, page, 8000),
            lambda: fit._assemble_grounding(page, 8000),
            lambda: fit._fit_page_context(over(prior_markdown=3), page, 8000),
            lambda: fit._assemble_grounding(bad, 8),
            lambda: fit._fit_prose(page, lambda b, c: len(b) * 3000, 3),
            lambda: fit._fit_prose(page, lambda b, c: 1 / 0, 3),
            lambda: fit._fit_page_context(over(), bad, 8),
            lambda: fit._fit_page_context(over(x=rest), page, 8),
            lambda: fit._json_size(rest), lambda: page.seeds, lambda: bad.seeds,
            lambda: fit.seed("a", 1, wrong=1),
            lambda: pickle.loads(pickle.dumps(page.budget)), lambda: repr(page),
            lambda: page == copy.deepcopy(page),
            lambda: Block(3), lambda: Parts([], [], set(), "x"),
            lambda: fit.render_symbol({"callees": [1]}),
            lambda: fit._listing([page.blocks[0][1]] * 3),
            lambda: fit.citable(iter([{}, {"line_start": 1}])),
            lambda: fit._most(9, lambda n: n < 4), lambda: fit._cap_note(["a"] * 9),
        ]  # fmt: skip

        def once():
            for call in calls:
                try:
                    call()
                except (TypeError, ValueError, ZeroDivisionError):
                    pass
            HOST.calls.clear()

        watched = [page, page.prose, page.blocks, page.blocks[0][1], page.prose[0].seeds, answer,
                   fit.FactBlock, None, "file"]
        counts = []
        for _ in range(7):
            for _ in range(60):
                once()
            gc.collect()
            counts.append((sys.getallocatedblocks(),
                           [sys.getrefcount(one) for one in watched[:-2]]))
        # The host's own lists move a little; a leak is a block in each of the last 120 rounds.
        self.assertLess(counts[-1][0] - counts[4][0], 100)
        self.assertEqual(counts[-1][1], counts[4][1])


class Contract(Host1):
    def test_every_name_is_told(self):
        self.assertEqual(set(fit.__all__),
                         {name for name in vars(fit) if not name.startswith("__")})
        for name, one in EVERY.items():
            with self.subTest(name):
                signature = inspect.signature(one)
                self.assertNotIn("args", signature.parameters)
                self.assertGreater(len(inspect.getdoc(one).splitlines()), 2)
                if name in vars(model):
                    plain = inspect.signature(getattr(model, name))
                    self.assertEqual(str(signature), str(plain).replace("ask=False", "ask=False"))
        for name in [*(r[0].__match_args__ for r in RECORDS)][0]:
            self.assertTrue(getattr(Block, name).__doc__)

    def test_named_arguments(self):
        self.assertEqual(fit._code_cut(total=4, kept=0, listed=0), fit._code_cut(0, 0, 4))
        self.assertEqual(fit._fit_page_context(budget=1, result={}, parts=parts()), {})

    def test_readme(self):
        """The examples run as they stand, and the table names every public name."""
        readme = (ROOT / "README.md").read_text(encoding="utf-8")
        table = readme.partition("## Names")[2].partition("\n## ")[0]
        named = {name for row in table.splitlines() if row.startswith("|")
                 for name in re.findall(r"`(\w+)", row.split("|")[1])}  # fmt: skip
        self.assertEqual(named, set(fit.__all__))
        examples = re.findall(r"```python\n(.*?)```", readme, re.DOTALL)
        self.assertGreater(len(examples), 0)
        for example in examples:
            path = os.pathsep.join([str(Path(find()).parent), str(ROOT)])
            done = subprocess.run([sys.executable, "-c", example],
                                  env={**os.environ, "PYTHONPATH": path},
                                  capture_output=True, text=True, encoding="utf-8")  # fmt: skip
            said = re.findall(r"#> (.*)", example)
            self.assertEqual(done.stdout.splitlines(), said, done.stderr)


class Example(unittest.TestCase):
    def test_pages_of_a_real_repository(self):
        """The report of the example adds up, for a page of each kind."""
        path = os.pathsep.join([str(Path(find()).parent), str(ROOT)])
        for options in (["--symbols", "3"], ["--budget", "300", "--page", "getting-started"],
                        ["--page", "decisions"]):
            command = [sys.executable, str(ROOT / "examples/fit_repository.py"), *options]
            env = {**os.environ, "PYTHONPATH": path, "PYTHONIOENCODING": "utf-8"}
            report = subprocess.run(command, env=env, capture_output=True, text=True,
                                    encoding="utf-8")
            self.assertEqual(report.returncode, 0, report.stderr)
            shown = subprocess.run([*command, "--show", "answer"], env=env, capture_output=True,
                                   text=True, encoding="utf-8")
            size = fit._json_size(json.loads(shown.stdout))
            self.assertIn(f"Agent path: {size:,} of 40,000", report.stdout)


if __name__ == "__main__":
    unittest.main()
