"""Random and hostile values, symbol records, pages and hosts, all from one seeded source."""

import copy
import gc
import math
import random

from harness import HOST, fit

ALPHABETS = ["abc XYZ/_.", "a\"\\\n\t\r\b\f\x00\x1f\x7f ", "é ÿ\xa0z", "— “x”\u2028\u3000",
             "😀a\U0010ffff", "\ud800b\udfff"]
WORDS = ["## Files", "## Requésted", "# ", "## Title (3 files)", " (", "\n\n", "`", "x" * 77, "L1"]


class Text(str):
    """A text whose own methods are wrong; nothing may run them."""

    def wrong(self, *_):
        raise AssertionError("a method of a derived type was run")

    __repr__ = __str__ = __len__ = __iter__ = __getitem__ = strip = startswith = __int__ = wrong


class Integer(int):
    __int__ = __index__ = __str__ = __repr__ = __lt__ = __gt__ = __bool__ = Text.wrong


class Real(float):
    __int__ = __float__ = __str__ = __repr__ = __mul__ = __bool__ = __trunc__ = Text.wrong


class Mapping(dict):
    __getitem__ = __iter__ = get = items = keys = __len__ = __bool__ = __contains__ = Text.wrong


class Array(list):
    __getitem__ = __iter__ = __len__ = __bool__ = Text.wrong


class Source:
    """One seed's worth of values. `junk` is the chance that a value is not what it should be;
    a smaller `scale` makes smaller pages of the same seed."""

    def __init__(self, seed, junk=0.0, scale=1.0):
        self.r = random.Random(seed)
        self.junk = junk
        self.scale = scale
        self.full = self.r.random() < 0.1  # a long note over an answer full of blocks

    def text(self, most=30):
        r = self.r
        if r.random() < 0.1:
            return r.choice(["", *WORDS])
        letters = r.choice(ALPHABETS) if r.random() < 0.4 else ALPHABETS[0]
        made = "".join(r.choices(letters, k=r.randrange(1, most + 2)))
        return made if r.random() < 0.8 else r.choice(WORDS) + made

    def wrong(self):
        """Return a value of any kind at all."""
        r = self.r
        return r.choice([
            None, True, False, 0, 0.0, -0.0, "", [], {}, (), 1, -3, 12.9, "12", " -7\n", "+1_0",
            "x",
            "１２", 10**30, -(10**30), "9" * 40, 1e300, float("nan"), float("inf"), -float("inf"),
            b"", b"1", [1], {"a": 1}, (0,), set(), object(),
            10**5000, "\ud800", 2**63, -(2**63), 1e16,
            5e-324,
        ])  # fmt: skip

    def maybe(self, value):
        return self.wrong() if self.r.random() < self.junk else value

    def line(self):
        r = self.r
        odd = [0, -1, True, "7", " 12 ", 3.9, None, "", 10**25]
        return self.maybe(r.randrange(1, 400) if r.random() < 0.85 else r.choice(odd))

    def value(self, depth=3):
        """Return a value that has a JSON form."""
        r = self.r
        kind = r.randrange(8 if depth else 5)
        if kind == 0:
            return r.choice([None, True, False, 0, -1, 10**20, r.randrange(-(10**9), 10**9)])
        if kind == 1:
            return r.choice([0.1, -0.0, 1e16, 1e15, 1e-5, 1e-4, 1e22, r.uniform(-1e6, 1e6)])
        if kind < 5:
            return self.text()
        if kind < 7:
            items = [self.value(depth - 1) for _ in range(r.randrange(4))]
            return items if kind == 5 else tuple(items)
        return {self.text(8): self.value(depth - 1) for _ in range(r.randrange(4))}

    def seed(self):
        made = {"path": self.text(12), "line_start": self.line(), "line_end": self.line()}
        if self.r.random() < 0.1:
            del made[self.r.choice(list(made))]
        if self.r.random() < 0.1:
            made[self.text(5)] = self.value(1)
        return self.maybe(made)

    def symbol(self):
        """Return a symbol record with some of its keys."""
        r = self.r
        texts = lambda: [self.maybe(self.text(8)) for _ in range(r.randrange(4))]  # noqa: E731

        def entry(*keys):
            return {key: self.maybe(self.text(6)) for key in keys if r.random() < 0.8}

        made = {
            "fqn": self.text(), "kind": self.text(8), "file": f"./{r.choice('abcdef')}.py",
            "line": self.line(), "end_line": self.line(), "signature": self.text(100),
            "parameters": [self.maybe(entry("name", "type")) for _ in range(r.randrange(3))],
            "docstring": self.text(90), "fan_in": r.randrange(3), "inside_refs": r.randrange(3),
            "neighbour_refs": r.randrange(3), "snippet": self.text(60) * r.randrange(2),
            "snippet_cut": r.randrange(3), "body_digest": "\n".join(["d"] * r.randrange(15)),
            "callees": texts(), "usage_example": self.text(),
            "related": tuple(self.maybe(entry("fqn")) for _ in range(r.randrange(3))),
            "has_tests": r.random() < 0.5,
        }  # fmt: skip
        kept = {key: self.maybe(value) for key, value in made.items() if r.random() < 0.85}
        return self.maybe(kept)

    def fact(self, most, long_names):
        r = self.r
        heading = r.choice(WORDS[:4] if r.random() < 0.2 else WORDS[2:4])
        text = heading + "\n" + self.text(20) * r.randrange(1, 2 + most // 12)
        name = self.text(20) if r.random() < 0.3 else ""
        if long_names:
            name = "name\n\x01" * r.randrange(10, 60)
        seeds = [self.seed() for _ in range(r.choice([0, 1, 3]))]
        key = r.choice(["", "readme", "digest", "document", "other"])
        return fit.FactBlock("" if r.random() < 0.05 else text, r.choice([list, tuple])(seeds),
                             name, key)

    def budget(self):
        r = self.r
        if r.random() < 0.5:
            return fit.section_budget(r.choice(["getting-started", "decisions", "module"]))
        shares = [0.0, 0.25, 1.0, 2, -1.0, 1e300, float("inf"), float("nan"), 10**400]
        keys = ["", "readme", "digest", "document", "other"]
        picked = {key: self.maybe(r.choice(shares)) for key in keys if r.random() < 0.3}
        return fit.SectionBudget(0, [self.maybe(k) for k in keys if r.random() < 0.2], picked)

    def parts(self):
        """Return a page's grounding, small or far too large."""
        r = self.r
        long_names = r.random() < 0.15
        size = r.choice([60, 600, 3000, 9000])
        facts, symbols = r.choice([0, 1, 3, 8, 20]), r.choice([0, 1, 2, 5, 12, 40, 80])
        width = r.choice([1, 8, 40, 400, 3000])
        if self.full:
            long_names, size, facts, symbols, width = True, 9000, 20, 80, r.choice([400, 3000])
        facts, symbols = math.ceil(facts * self.scale), math.ceil(symbols * self.scale)
        prose = [self.fact(size, long_names) for _ in range(facts)]
        blocks = []
        for _ in range(symbols):
            text = self.text(20) * r.randrange(0, 1 + width // 8) if r.random() < 0.9 else ""
            pair = (self.maybe(text), self.symbol())
            blocks.append(self.maybe(pair if r.random() < 0.8 else list(pair)))
        files = {self.maybe_hashable(self.text(8)) for _ in range(r.randrange(4))}
        floor = r.choice([0.35, 0] if self.full else [0.35, 0.35, 0, 1, 0.9, 1e300, -2.5])
        if r.random() < self.junk:
            floor = r.choice([float("nan"), float("inf"), 10**400])
        return fit.GroundingParts(self.maybe_in(prose), self.maybe_in(blocks), files, floor,
                                  self.budget())

    def maybe_hashable(self, value):
        return self.r.choice([3, None, b"f"]) if self.r.random() < self.junk else value

    def maybe_in(self, values):
        if self.r.random() < self.junk:
            values.insert(self.r.randrange(len(values) + 1), self.wrong())
        return values if self.r.random() < 0.7 else tuple(values)

    def answer(self):
        """Return a page_context answer: some fields small, one or two perhaps over the cap."""
        r = self.r
        big = r.choice([10, 500, 19000, 38000, 40500])
        prior = r.choice([None, "", "short", "é\n" * r.choice([100, 9000, 21000])])
        fields = {
            "page_id": r.choice(["p42", 42, None, 'p"' * 200 if r.random() < 0.2 else "p1"]),
            "kind": self.value(), "prior_markdown": self.maybe(prior),
            "grounding": "g" * r.choice([10, 30000, 45000]), "symbols": [self.text()],
            "citation_seeds": [self.seed() if not self.junk else {}], "truncated": "t" * 9,
            "notes": self.text(1) * (big if r.random() < 0.3 else 10), "extra": self.value(4),
        }  # fmt: skip
        if self.full:
            fields |= {"grounding": "g" * 45000, "notes": "", "prior_markdown": None}
        names = [name for name in fields if r.random() < 0.85]
        r.shuffle(names)
        return {name: fields[name] for name in names}

    def tokens(self):
        return 2**62 if self.full else self.r.choice([0, 1, -10, 180, 900, 4000, 8000, 30000,
                                                      2**62])

    def host(self):
        """Set a host that does something else for every text, and always the same for one."""
        r = self.r
        salt = r.random()
        fixed = lambda text: random.Random(f"{salt}{text!r}")  # noqa: E731
        counts = [len, lambda text: len(text) // 4, lambda text: 1,
                  lambda text: fixed(text).randrange(-5, 900)]
        norms = [str.upper, lambda path: path[2:], lambda path: "", lambda path: path + "—é😀"]
        cuts = [lambda text, budget: text[:budget], lambda text, budget: "", lambda text,
                budget: text + "…"]
        if self.junk:
            odd = lambda usual: lambda *args: self.odd_result(fixed(args), usual,
                args)  # noqa: E731
            counts, norms, cuts = [[odd(one) for one in kind] for kind in (counts, norms, cuts)]
        HOST.set(r.choice(counts), r.choice(cuts), r.choice(norms))

    def odd_result(self, chance, usual, args):
        if chance.random() > self.junk:
            return usual(*args)
        if chance.random() < 0.3:
            raise LookupError(args)
        return chance.choice([None, 7, True, 2.5, "text", ["a"], 2**63, -(2**63), 2**62])


class Saboteur:
    """A host that changes what is being walked, from every place where its code can run."""

    class Key(str):
        """A key that must be compared to be told from a plain one, and acts when it is."""

        owner = None

        def __hash__(self):
            return hash(str(self)[1:])

        def __eq__(self, other):
            self.owner.act()
            return False

    class Bomb:
        """Garbage in a cycle that acts when it is collected."""

        def __init__(self, owner):
            self.owner, self.me = owner, self

        def __del__(self):
            self.owner.act()

    def __init__(self, source):
        self.source, self.r = source, source.r
        self.depth = 0
        parts, self.answer = source.parts(), source.answer()
        budget = copy.deepcopy(parts.budget)  # the shared ones are everybody's
        self.parts = fit.GroundingParts(parts.prose, parts.blocks, parts.files, budget=budget)
        self.held = [self.parts, self.answer]
        for record in self.records():
            if self.r.random() < 0.3:
                key = self.Key("x" + self.r.choice(["line", "file", "fqn", "line_start"]))
                key.owner = self
                record[key] = self.Bomb(self)
        HOST.set(*(self.sabotaged(usual) for usual in (len, lambda t, n: t[:n], lambda path: path)))

    def records(self):
        pairs = [pair for pair in self.parts.blocks if isinstance(pair,
            (list, tuple)) and len(pair) > 1]
        found = [pair[1] for pair in pairs]
        for block in self.parts.prose:
            found += block.seeds if isinstance(block, fit.FactBlock) else []
        return [one for one in found if isinstance(one, dict)]

    def act(self):
        """Do something that no caller of a function would expect of its arguments."""
        parts, r = self.parts, self.r
        containers = [parts.prose, parts.blocks, parts.files, self.answer, parts.budget.shares]
        containers += [block.seeds for block in parts.prose if isinstance(block, fit.FactBlock)]
        containers += [*self.records(), *(one for one in parts.blocks if isinstance(one, list))]
        victim = r.choice([one for one in containers if not isinstance(one, (tuple, frozenset))])
        choice = r.randrange(8)
        if choice < 3:
            victim.clear()
        elif choice == 3 and isinstance(victim, dict):
            victim.update({r.choice(["line", "file", "path", "line_start"]): self.source.wrong()})
        elif choice == 4 and isinstance(victim, list):
            victim[: r.randrange(3)] = [self.source.wrong()]
        elif choice == 5:
            self.Bomb(self)
            gc.collect()
        elif choice == 6 and self.depth < 3:
            self.depth += 1
            self.attempt(fit._fit_page_context, self.answer, parts, 900)
            self.depth -= 1
        else:
            self.held.clear()

    def sabotaged(self, usual):
        def utility(*args):
            if self.r.random() < 0.2:
                self.act()
            return usual(*args) if self.r.random() < 0.98 else self.source.odd_result(self.r, usual,
                args)

        return utility

    def attempt(self, function, *args):
        """Call it; any of the errors that a value can cause will do, and no other."""
        try:
            return function(*args)
        except (TypeError, ValueError, OverflowError, LookupError, RecursionError):
            return None
        except AssertionError as error:  # sizes that a change in the middle makes differ
            assert "a candidate measured as" in str(error)

    def run(self):
        """Call everything on this page, the collector running as often as it can."""
        before = gc.get_threshold()
        gc.set_threshold(1, 1, 1)
        try:
            act = self.sabotaged(lambda *_: 30000)
            for function, *args in [
                (fit._fit_page_context, self.answer, self.parts, self.source.tokens()),
                (fit._assemble_grounding, self.parts, self.source.tokens()),
                (fit._fit_prose, self.parts, act, 7), (fit._most, 40, act),
                (getattr, self.parts, "seeds"),
                (fit.citable, (self.act() or one for one in self.records())),
                (fit.symbol_seeds, self.records()), (fit._listing, self.records()),
                *((fit.render_symbol, one) for one in self.records()[:4]),
                (fit._json_size, self.answer),
            ]:  # fmt: skip
                self.attempt(function, *args)
        finally:
            gc.set_threshold(*before)
