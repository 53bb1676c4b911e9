"""The immutable records: fields, defaults, values and ends; and those that all calls share."""

import copy
import gc
import pickle
import weakref

from harness import HOST, UsualHost, fit, load, parts

Block, Parts, Budget = fit.FactBlock, fit.GroundingParts, fit.SectionBudget


# A type of record, two values of each field, and the defaults of the fields that have one.
KINDS = [
    (Block, ("text", [1], "name", "key"), ("", [2], "eman", "yek"), ((), "", "")),
    (
        Parts,
        ([], (), {"f"}, 1, Budget()),
        ([1], (2,), {"g"}, 0.5, Budget(1)),
        (0.35, fit._DEFAULT_BUDGET),
    ),
    (Budget, (1, ("a",), {"b": 0.5}, 2), (2, ("b",), {"b": 0.25}, 3), (4000, (), {}, 0)),
]


class Records(UsualHost):
    def test_fields(self):
        for kind, values, _, defaults in KINDS:
            names = kind.__match_args__
            record = kind(*values)
            self.assertEqual(record, kind(**dict(zip(names, values, strict=True))))
            required = values[: len(names) - len(defaults)]
            self.assertEqual(kind(*required), kind(*required, *defaults))
            if required:
                self.assertRaises(TypeError, kind, *required[1:])
            self.assertRaises(TypeError, kind, *values, 1)
            self.assertRaises(TypeError, kind, *values, wrong=1)
            for index, name in enumerate(names):
                self.assertIs(getattr(record, name), values[index])
                self.assertRaises(AttributeError, setattr, record, name, 1)
                self.assertRaises(AttributeError, delattr, record, name)
                with self.assertRaisesRegex(TypeError, rf"^{kind.__name__}\(\): {name}: expected "):
                    kind(*values[:index], object(), *values[index + 1 :])
                with self.assertRaisesRegex(TypeError, f"{name}: given twice"):
                    kind(*values[: index + 1], **{name: values[index]})
            self.assertRaises(AttributeError, setattr, record, "new", 1)
            for name in (5, b"text", None):
                for change in (kind.__setattr__, kind.__delattr__):
                    given = [record, name, 1][: 3 - (change is kind.__delattr__)]
                    self.assertRaisesRegex(TypeError, "must be string, not", change, *given)
            self.assertRaises(TypeError, setattr, kind, names[0], 1)
            self.assertRaises(TypeError, type, "Derived", (kind,), {})

    def test_values(self):
        for kind, values, others, _ in KINDS:
            record = kind(*values)
            self.assertEqual(eval(repr(record), vars(fit)), record)
            pickled = pickle.loads(pickle.dumps(record))
            for again in (copy.copy(record), copy.deepcopy(record), pickled):
                self.assertEqual(again, record)
                self.assertIs(type(again), kind)
            for index, other in enumerate(others):
                self.assertNotEqual(kind(*values[:index], other, *values[index + 1 :]), record)
            self.assertNotEqual(record, values)
            self.assertRaises(TypeError, hash, record)
            self.assertRaises(TypeError, fit._json_size, record)

    def test_fact_block_is_positional(self):
        block = Block("t", (), "n", "k")
        text, seeds, name, key = block
        self.assertEqual((text, seeds, name, key), block[:])
        self.assertEqual((block[-1], block[0], block[1:3]), ("k", "t", ((), "n")))
        self.assertEqual((len(block), list(block)[3]), (4, "k"))
        self.assertEqual(list(reversed(block)), ["k", "n", (), "t"])
        for wrong in (4, -5, 2**70):
            self.assertRaises(IndexError, block.__getitem__, wrong)
        self.assertRaises(TypeError, block.__getitem__, "a")
        self.assertNotIsInstance(block, tuple)
        self.assertEqual(hash(block), hash(Block("t", (), "n", "k")))
        match block:
            case Block(text, _, "n"):
                self.assertEqual(text, "t")
            case _:
                self.fail("no match")

    def test_defaults_are_shared_or_fresh(self):
        self.assertIs(parts().budget, fit._DEFAULT_BUDGET)
        self.assertIsNot(Budget().shares, Budget().shares)
        again = pickle.loads(pickle.dumps(fit._DEFAULT_BUDGET))
        self.assertEqual(again, fit._DEFAULT_BUDGET)
        self.assertIsNot(again, fit._DEFAULT_BUDGET)

    def test_policies(self):
        guide = Budget(28000, (fit.README,), {fit.DIGEST: 0.25}, 0)
        decisions = Budget(4000, (fit.DOCUMENT,), {}, 24000)
        policies = {"getting-started": guide, "decisions": decisions}
        self.assertEqual(list(fit._BUDGETS.items()), list(policies.items()))
        for name in policies:
            self.assertIs(fit.section_budget(name), fit._BUDGETS[name])
        for name in ("Decisions", "decisions2", "", "module"):
            self.assertIs(fit.section_budget(name), fit._DEFAULT_BUDGET)
        with self.assertRaises(TypeError):
            fit._BUDGETS["new"] = Budget()
        with self.assertRaises(TypeError):
            del fit._BUDGETS["decisions"]

    def test_cycles(self):
        class Marker:
            pass

        seeds = []
        block = Block("t", seeds)
        seeds.append(block)
        self.assertIn("FactBlock(...)", repr(block))
        marker = Marker()
        seeds.append(marker)
        gone = weakref.ref(marker)
        del block, seeds, marker
        gc.collect()
        self.assertIsNone(gone(), "a cycle through a record is not collected")


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
            assert view == Greedy()
            assert view | Greedy()
        for _ in range(3):
            got += gc.get_referents(*got)
        mutable = {id(one): one for one in got if isinstance(one, (dict, list))}
        return [one for one in mutable.values() if "FactBlock" not in one and "__doc__" not in one]

    def test_nothing_that_a_caller_can_reach_changes_a_page(self):
        module = load(HOST.modules())
        facts = [module.FactBlock("x" * 9000, key=key) for key in ("digest", "readme", "document")]
        names = ("getting-started", "decisions", "other")

        def size(blocks, _):
            return 10000 + 9000 * len(blocks)

        def results():
            made = [module.section_budget(name) for name in names]
            pages = [module.GroundingParts(facts, [], set(), budget=one) for one in made]
            kept = [module._fit_prose(one, size, 0)[0] for one in pages]
            return list(map(id, made)), [[block.key for block in blocks] for blocks in kept]

        before = results()
        found = self.reached(module)
        self.assertGreaterEqual(len(found), 4)
        for one in found:
            one.clear()
            if isinstance(one, dict):
                one.update(dict.fromkeys((*names, "digest", "readme", "document"), -1.0))
        self.assertEqual(results(), before)

    def test_their_shares(self):
        for record in (fit._DEFAULT_BUDGET, *fit._BUDGETS.values()):
            with self.assertRaises(TypeError):
                record.shares["digest"] = -1.0
            again = pickle.loads(pickle.dumps(record))
            self.assertEqual((again, type(again.shares)), (record, dict))
            self.assertEqual(eval(repr(record), vars(fit)), record)
