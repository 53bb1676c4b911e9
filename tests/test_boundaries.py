"""Where the module meets its host: odd values, re-entry, imports, what callers share, messages."""

import collections
import gc
import importlib.machinery
import importlib.util
import inspect
import pathlib
import pickle
import subprocess
import sys
import threading
import types
import unittest
from unittest import mock

from harness import CAP, HOST, UsualHost, find, fit, load, model, over
from harness import parts as page

MODULES = HOST.modules()
Block, Parts, Budget = fit.FactBlock, fit.GroundingParts, fit.SectionBudget


class Odd:
    """A value whose methods of every kind do what a test says."""

    def __init__(self, do):
        self.do = do

    def __call__(self, *_):
        return self.do()

    __repr__ = __eq__ = __hash__ = __bool__ = __index__ = __iter__ = __call__


class OddText(str):
    """A text whose equality does what a test says."""

    __hash__ = str.__hash__

    def __eq__(self, other):
        return self.do()


class Child(UsualHost):
    """Tests of what may crash, each in a child process."""

    def assert_survives(self, name):
        command = [sys.executable, __file__, "--child", name]
        done = subprocess.run(command, capture_output=True, text=True)
        self.assertEqual((done.returncode, done.stderr[-2000:]), (0, ""), name)


class TextForms(UsualHost):
    def test_arrays_and_objects(self):
        """They are written as str() writes them, wherever a text form is asked for."""
        for value in ([], {}, (), [1, "a"], {"k": [None, 2.5]}, ("é",)):
            with self.subTest(value=value):
                keys = ("fqn", "kind", "file", "signature", "docstring", "line", "usage_example")
                for symbol in [{key: value} for key in keys] + [{"parameters": [{"name": "n"}]}]:
                    symbol.get("parameters", [{}])[0]["type"] = value
                    self.assertEqual(fit.render_symbol(symbol), model.render_symbol(symbol))
                    if "line" not in symbol:
                        self.assertEqual(fit._listed(symbol), model._listed(symbol))
                HOST.set(norm=lambda path, value=value: value)
                self.assertIn(f" — {value}:L0", fit.render_symbol({}))
                self.assertIn(f" — {value}:L0", fit._listed({}))
                self.assertRaises(TypeError, fit.symbol_seeds, [{"file": "f", "line": 1}])
                listed = page([], [("top", {}), ("x" * CAP, {"file": "f", "line": 1})])
                said = fit._fit_page_context(over(), listed, 1)["grounding"]
                self.assertIn(f" — {value}:L1", said)
                HOST.set()
                answer = {"page_id": value, "prior_markdown": "m" * CAP}
                said = fit._fit_page_context(answer, page(), 1)["truncated"]
                self.assertIn(f'page_id="{value}")', said)
        for wrong in (set(), b"", object()):
            self.assertRaises(TypeError, fit.render_symbol, {"fqn": wrong})

    def test_host_code_in_them(self):
        """What they run may empty everything that is being read."""
        records = []
        odd = Odd(lambda: [one.clear() for one in records] and "odd")
        for call in (fit._listing, lambda records: fit.render_symbol(records[0])):
            records[:] = [{"fqn": "f", "kind": [odd], "file": "x", "line": 3} for _ in range(9)]
            self.assertIn(" ([odd]) — ", call(records))


class Arguments(UsualHost):
    def test_any_value_where_any_will_do(self):
        for value in (None, [], {}, 3, object(), "Decisions", b"decisions"):
            self.assertIs(fit.section_budget(value), fit._DEFAULT_BUDGET)
            size = mock.Mock(return_value=1)
            fit._fit_prose(page(), size, value)
            self.assertIs(size.call_args.args[1], value)

    def test_a_read_only_view_as_shares(self):
        prose = [Block("x" * 2400, key=key) for key in ("a", "b", "c")]
        shares = collections.defaultdict(float, a=0.1, b=0.9)
        for given in (
            shares,
            types.MappingProxyType(shares),
            types.MappingProxyType(collections.UserDict(shares)),
        ):
            budget = Budget(shares=given)
            kept, left = fit._fit_prose(page(prose, budget=budget), lambda *_: 30000, 0)
            self.assertEqual([block.key for block in kept], ["b", "c"])
            self.assertEqual(pickle.loads(pickle.dumps(budget)).shares, shares)
            self.assertEqual(
                eval(repr(Budget(shares=types.MappingProxyType({"a": 1}))), vars(fit)),
                Budget(shares={"a": 1}),
            )
        self.assertNotIn("c", shares)

    def test_an_ordered_dict_keeps_its_own_order(self):
        answer = collections.OrderedDict(page_id=1, a=2, b=3, grounding="g" * CAP, c=4)
        answer.move_to_end("page_id")
        answer.move_to_end("b", last=False)
        for prior in (None, "m" * CAP):
            answer["prior_markdown"] = prior
            result = fit._fit_page_context(answer, page(), 1)
            self.assertEqual(list(result), list(model._fit_page_context(answer, page(), 1)))
            self.assertEqual(list(result)[0], "b")

    def test_messages(self):
        path = pathlib.PurePosixPath("f")
        twin = load(MODULES, "workers.wiki.grounding_fit")
        cases = [
            (
                fit.symbol_seeds,
                [{"file": "f", "line": 1}],
                "symbol_seeds(): symbols[0]['file']: result of _norm: expected a string, got bytes",
            ),
            (fit._listed, {}, "sym['file']: result of _norm: expected a JSON value, got bytes"),
            (
                fit.render_symbol,
                {},
                "sym['file']: result of _norm: expected a JSON value, got byte",
            ),
            (fit.FactBlock, path, "text: expected a string, got PurePosixPath; pass str(path)"),
            (
                lambda files: Parts([], [], files),
                [],
                "files: expected a set or frozenset, got list; pass set(files)",
            ),
            (
                lambda parts: twin._blocks_within(parts, 1),
                page(),
                "parts: expected a GroundingParts of this module, which was imported twice, under "
                "two names: got one of 'grounding_fit'",
            ),
        ]
        HOST.set(norm=lambda path: b"")
        for call, argument, words in cases:
            with self.subTest(words), self.assertRaises(TypeError) as caught:
                call(argument)
            self.assertIn(words, str(caught.exception))

    def test_signatures(self):
        parameters = inspect.signature(Parts).parameters
        self.assertIs(parameters["budget"].default, fit._DEFAULT_BUDGET)
        self.assertEqual(str(inspect.signature(Block)), "(text, seeds=(), name='', key='')")
        attribute = vars(Parts)["__signature__"]
        for owner in (None, int, Block, unittest.TestCase):
            self.assertRaises(TypeError, attribute.__get__, Parts, owner)


class Import(unittest.TestCase):
    def load(self, modules):
        """Load a copy of the module with these and no other modules of the host's."""
        loader = importlib.machinery.ExtensionFileLoader("grounding_fit", find())
        found = importlib.util.spec_from_loader("grounding_fit", loader)
        with mock.patch.dict(sys.modules, {"workers": None, **modules}):
            module = importlib.util.module_from_spec(found)
            loader.exec_module(module)
        return module

    def test_modules_known_by_their_full_names_only(self):
        self.assertEqual(self.load(MODULES).render_symbol({}), "###  () — :L0")

    def test_the_import_function_of_the_host(self):
        hidden = []

        def importer(name, *rest, usual=__import__):
            if name.startswith("workers"):
                hidden.append(name)
                raise ModuleNotFoundError(name=name)
            return usual(name, *rest)

        with mock.patch("builtins.__import__", importer), self.assertRaises(ImportError):
            self.load(MODULES)
        self.assertEqual(hidden, list(MODULES))

    def test_errors(self):
        class Missing(ModuleNotFoundError):
            @property
            def name(self):
                raise KeyboardInterrupt

        def importer(name, *rest, usual=__import__):
            if name.startswith("workers"):
                raise Missing
            return usual(name, *rest)

        with mock.patch("builtins.__import__", importer):
            self.assertRaises(KeyboardInterrupt, self.load, MODULES)
        wrong = types.ModuleType("workers.context_builder")
        wrong.estimate_tokens = 7
        with self.assertRaisesRegex(
            TypeError,
            "^import of grounding_fit: workers.context_builder."
            "estimate_tokens: expected a callable, got 7",
        ):
            self.load({**MODULES, "workers.context_builder": wrong})


class Shared(UsualHost):
    def reached(self, module):
        """Return every dict and list that a caller can get at from what all calls share."""

        class Greedy(dict):
            def __eq__(self, other):
                got.append(other)
                return True

            __ror__ = __eq__

        got = [module._DEFAULT_BUDGET, module._BUDGETS, *module._BUDGETS.values()]
        for view in [module._BUDGETS] + [one.shares for one in got if one is not module._BUDGETS]:
            view == Greedy()
            view | Greedy()
        for _ in range(3):
            got += gc.get_referents(*got)
        mutable = {id(one): one for one in got if isinstance(one, (dict, list))}
        return [one for one in mutable.values() if "FactBlock" not in one and "__doc__" not in one]

    def test_nothing_that_a_caller_can_reach_changes_a_page(self):
        module = load(MODULES)
        facts = [module.FactBlock("x" * 9000, key=key) for key in ("digest", "readme", "document")]
        names = ("getting-started", "decisions", "other")

        def size(blocks, _):
            return 10000 + 9000 * len(blocks)

        def results():
            made = [module.section_budget(name) for name in names]
            parts = [module.GroundingParts(facts, [], set(), budget=one) for one in made]
            kept = [module._fit_prose(one, size, 0)[0] for one in parts]
            return list(map(id, made)), [[block.key for block in blocks] for blocks in kept]

        before = results()
        found = self.reached(module)
        self.assertGreaterEqual(len(found), 4)
        for one in found:
            one.clear()
            if isinstance(one, dict):
                one.update({key: -1.0 for key in (*names, "digest", "readme", "document")})
        self.assertEqual(results(), before)

    def test_shares_of_the_shared_records(self):
        for record in (fit._DEFAULT_BUDGET, *fit._BUDGETS.values()):
            with self.assertRaises(TypeError):
                record.shares["digest"] = -1.0
            again = pickle.loads(pickle.dumps(record))
            self.assertEqual((again, type(again.shares)), (record, dict))
            self.assertEqual(eval(repr(record), vars(fit)), record)


class Hold(Child):
    def test_a_path_that_empties_its_seed(self):
        self.assert_survives("emptied_seed")

    def test_the_text_that_a_line_was_measured_with(self):
        records = [{"fqn": f"f{i}", "file": f"f{i}", "line": 1} for i in range(60)]

        def norm(path):
            for one in records:
                if one["file"] != path:
                    one["fqn"] = "y" * 20000
            return path

        HOST.set(norm=norm)
        parts = page(blocks=[("t" * 900, one) for one in records])
        result = fit._fit_page_context({"grounding": "g" * CAP}, parts, 30000)
        self.assertTrue(fit._json_size(result) <= CAP or "alone exceed it." in result["truncated"])


class Reentry(Child):
    def test_without_end(self):
        for limit in ("usual", "high"):
            self.assert_survives(f"reentry_{limit}")


# ---- what a child process does ------------------------------------------------------------------


def child_emptied_seed():
    """Empty, while a path is hashed, every seed that holds it."""

    class Path(str):
        def __hash__(self):
            for holder in gc.get_referrers(self):
                if isinstance(holder, dict) and "line_start" in holder:
                    holder.clear()
            return str.__hash__(self)

    path = Path("p")
    HOST.set(norm=lambda _: path)
    parts = page(blocks=[("t", {"file": "f", "line": 1})] * 9)
    assert fit._assemble_grounding(parts, 80)[2] == ["p"]


def nested(levels):
    """Return fact blocks within fact blocks."""
    block = Block("t")
    for _ in range(levels):
        block = Block("t", (block,))
    return block


def endless_calls():
    """Return calls of which each makes itself again through its host."""
    parts = page([Block("f")], [("t", {"fqn": "a", "file": "b", "line": 3})] * 9)
    answer = {"grounding": "g" * CAP}

    def again(*_):
        return again.call()

    odd = Odd(again)
    OddText.do = again
    key = {OddText("fqn"): 1}
    return again, [
        lambda: fit._fit_page_context(answer, parts, 80),
        lambda: fit._assemble_grounding(parts, 80),
        lambda: fit._blocks_within(parts, 80),
        lambda: fit._assemble_blocks(["a"], 80),
        lambda: fit._fit_prose(parts, odd, 3),
        lambda: fit._most(9, odd),
        lambda: fit._cap_note(["a"], odd),
        lambda: fit.citable(odd),
        lambda: fit.symbol_seeds([{"file": "f"}]),
        lambda: fit.render_symbol({}),
        lambda: fit.render_symbol({"fqn": [odd]}),
        lambda: fit.render_symbol(key),
        lambda: fit._listed({}),
        lambda: Block("t")[odd],
        lambda: repr(Block("t", [odd])),
        lambda: hash(Block("t", (odd,))),
        lambda: Block("t", [odd]) == Block("t", [Odd(again)]),
        lambda: repr(nested(3000)),
        lambda: repr(nested(30000)),
        lambda: hash(nested(30000)),
        lambda: nested(30000) == nested(30000),
    ]


def child_reentry(limit):
    """See every endless call end in RecursionError, here and in a thread with the usual stack."""
    sys.setrecursionlimit(limit)
    again, calls = endless_calls()
    HOST.set(norm=again, estimate=again)
    ended = []

    def run():
        for number, call in enumerate(calls):
            again.call = call
            print(number, file=sys.stdout, flush=True)
            try:
                call()
            except RecursionError:
                ended.append(number)

    run()
    thread = threading.Thread(target=run)
    thread.start()
    thread.join()
    assert ended == 2 * list(range(len(calls))), ended


CHILDREN = {
    "emptied_seed": child_emptied_seed,
    "reentry_usual": lambda: child_reentry(sys.getrecursionlimit()),
    "reentry_high": lambda: child_reentry(1_000_000),
}

if __name__ == "__main__":
    if sys.argv[1:2] == ["--child"]:
        CHILDREN[sys.argv[2]]()
    else:
        unittest.main()
