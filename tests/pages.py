"""Random and hostile values, symbol records, pages and hosts, all from one seeded source."""

import copy
import gc
import math
import random

from harness import HOST, fit

ALPHABETS = ["abc XYZ/_.", 'a"\\\n\t\r\b\f\x00\x1f\x7f ', "é ÿ\xa0z", "— “x”\u2028\u3000"]
ALPHABETS += ["😀a\U0010ffff", "\ud800b\udfff"]
HEADINGS = ["## Files", "## Requésted", "# ", "## Title (3 files)"]
WORDS = [*HEADINGS, " (", "\n\n", "`", "x" * 77, "L1"]
KEYS = ["", "readme", "digest", "document", "other"]

# Values of any kind at all, for places that want one kind.
MISSING = [None, False, 0, 0.0, -0.0, "", [], {}, ()]
NUMBERS = [
    True,
    1,
    -3,
    12.9,
    1e16,
    5e-324,
    1e300,
    10**30,
    -(10**30),
    2**63,
    -(2**63),
    10**5000,
]
NUMBERS += [float("nan"), float("inf"), -float("inf")]
TEXTS = ["12", " -7\n", "+1_0", "x", "１２", "9" * 40, "\ud800"]
OTHERS = [b"", b"1", [1], {"a": 1}, (0,), set(), object()]
WRONG = [*MISSING, *NUMBERS, *TEXTS, *OTHERS]


class Text(str):
    """A text whose own methods are wrong; nothing may run them. The next are such values too."""

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
        """Return a text of about that many code points at most."""
        r = self.r
        if r.random() < 0.1:
            return r.choice(["", *WORDS])
        letters = r.choice(ALPHABETS) if r.random() < 0.4 else ALPHABETS[0]
        made = "".join(r.choices(letters, k=r.randrange(1, most + 2)))
        return made if r.random() < 0.8 else r.choice(WORDS) + made

    def wrong(self):
        """Return a value of any kind at all."""
        return copy.copy(self.r.choice(WRONG))

    def maybe(self, value):
        """Return the value, or by chance one that is wrong in its place."""
        return self.wrong() if self.r.random() < self.junk else value

    def line(self):
        """Return a line number as hosts write them."""
        r = self.r
        odd = [0, -1, True, "7", " 12 ", 3.9, -1.5, None, "", 10**25, -(10**25)]
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
        """Return a citation seed, citable or not."""
        made = {"path": self.text(12), "line_start": self.line(), "line_end": self.line()}
        if self.r.random() < 0.1:
            del made[self.r.choice(list(made))]
        if self.r.random() < 0.1:
            made[self.text(5)] = self.value(1)
        return self.maybe(made)

    def entry(self, *keys):
        """Return an entry of a symbol's parameters or related symbols."""
        return self.maybe({key: self.maybe(self.text(6)) for key in keys if self.r.random() < 0.8})

    def symbol(self):
        """Return a symbol record with some of its keys."""
        r = self.r
        made = {"fqn": self.text(), "kind": self.text(8), "file": f"./{r.choice('abcdef')}.py"}
        made |= {"line": self.line(), "end_line": self.line(), "signature": self.text(100)}
        made |= {"docstring": self.text(90), "snippet": self.text(60) * r.randrange(2)}
        made |= {"usage_example": self.text(), "has_tests": r.random() < 0.5}
        made["parameters"] = [self.entry("name", "type") for _ in range(r.randrange(3))]
        made["body_digest"] = "\n".join(["d"] * r.randrange(15))
        made["callees"] = [self.maybe(self.text(8)) for _ in range(r.randrange(4))]
        made["related"] = tuple(self.entry("fqn") for _ in range(r.randrange(3)))
        for key in ("fan_in", "inside_refs", "neighbour_refs", "snippet_cut"):
            made[key] = r.randrange(3)
        kept = {key: self.maybe(value) for key, value in made.items() if r.random() < 0.85}
        return self.maybe(kept)

    def fact(self, most, long_names):
        """Return a fact block of about `most` code points at most."""
        r = self.r
        heading = r.choice(HEADINGS if r.random() < 0.2 else HEADINGS[2:])
        text = heading + "\n" + self.text(20) * r.randrange(1, 2 + most // 12)
        name = self.text(20) if r.random() < 0.3 else ""
        if long_names:
            name = "name\n\x01" * r.randrange(10, 60)
        if r.random() < 0.05:
            text = ""
        seeds = [self.seed() for _ in range(r.choice([0, 1, 3]))]
        return fit.FactBlock(text, r.choice([list, tuple])(seeds), name, r.choice(KEYS))

    def budget(self):
        """Return a page type's policy: a real one, or one with odd shares."""
        r = self.r
        if r.random() < 0.5:
            return fit.section_budget(r.choice(["getting-started", "decisions", "module"]))
        shares = [0.0, 0.25, 1.0, 2, -1.0, 1e300, float("inf"), float("nan"), 10**400]
        picked = {key: self.maybe(r.choice(shares)) for key in KEYS if r.random() < 0.3}
        return fit.SectionBudget(0, [self.maybe(k) for k in KEYS if r.random() < 0.2], picked)

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
        files = {self.text(8) for _ in range(r.randrange(4))}
        if r.random() < self.junk:
            files.add(r.choice([3, None, b"f"]))
        floor = r.choice([0.35, 0] if self.full else [0.35, 0.35, 0, 1, 0.9, 1e300, -2.5])
        if r.random() < self.junk:
            floor = r.choice([float("nan"), float("inf"), 10**400])
        prose, blocks = self.sequence(prose), self.sequence(blocks)
        return fit.GroundingParts(prose, blocks, files, floor, self.budget())

    def sequence(self, values):
        """Return the values as a list or a tuple, by chance with a wrong one among them."""
        if self.r.random() < self.junk:
            values.insert(self.r.randrange(len(values) + 1), self.wrong())
        return values if self.r.random() < 0.7 else tuple(values)

    def answer(self):
        """Return a page_context answer: some fields small, one or two perhaps over the cap."""
        r = self.r
        big = r.choice([10, 500, 19000, 38000, 40500])
        prior = r.choice([None, "", "short", "é\n" * r.choice([100, 9000, 21000])])
        fields = {"kind": self.value(), "extra": self.value(4), "symbols": [self.text()]}
        fields["page_id"] = r.choice(["p42", 42, None, 'p"' * 200 if r.random() < 0.2 else "p1"])
        fields |= {"prior_markdown": self.maybe(prior), "truncated": "t" * 9}
        fields["grounding"] = "g" * r.choice([10, 30000, 45000])
        fields["citation_seeds"] = [{} if self.junk else self.seed()]
        fields["notes"] = self.text(1) * (big if r.random() < 0.3 else 10)
        if self.full:
            fields |= {"grounding": "g" * 45000, "notes": "", "prior_markdown": None}
        names = [name for name in fields if r.random() < 0.85]
        r.shuffle(names)
        return {name: fields[name] for name in names}

    def tokens(self):
        """Return a page's budget in tokens."""
        some = [0, 1, -10, 180, 900, 4000, 8000, 30000, 2**62]
        return 2**62 if self.full else self.r.choice(some)

    def host(self):
        """Set a host that does something else for every text, and always the same for one."""
        r = self.r
        salt = r.random()

        def fixed(text):
            return random.Random(f"{salt}{text!r}")

        def odd(usual):
            return lambda *args: self.odd_result(fixed(args), usual, args)

        counts = [len, lambda text: len(text) // 4, lambda text: 1]
        counts.append(lambda text: fixed(text).randrange(-5, 900))
        cuts = [lambda text, budget: text[:budget], lambda text, budget: ""]
        cuts.append(lambda text, budget: text + "…")
        norms = [str.upper, lambda path: path[2:], lambda path: "", lambda path: path + "—é😀"]
        utilities = [r.choice(kind) for kind in (counts, cuts, norms)]
        HOST.set(*(map(odd, utilities) if self.junk else utilities))

    def odd_result(self, chance, usual, args):
        """Return what the usual utility gives, or by chance something else, or raise an error."""
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
            self.owner = owner
            self.me = self

        def __del__(self):
            self.owner.act()

    def __init__(self, source):
        self.source = source
        self.r = source.r
        self.depth = 0
        given = source.parts()
        self.answer = source.answer()
        budget = copy.deepcopy(given.budget)  # the shared ones are everybody's
        self.parts = fit.GroundingParts(given.prose, given.blocks, given.files, budget=budget)
        self.held = [self.parts, self.answer]
        for record in self.records():
            if self.r.random() < 0.3:
                key = self.Key("x" + self.r.choice(["line", "file", "fqn", "line_start"]))
                key.owner = self
                record[key] = self.Bomb(self)
        utilities = [len, lambda text, budget: text[:budget], lambda path: path]
        HOST.set(*map(self.sabotaged, utilities))

    def facts(self):
        """Return the fact blocks."""
        return [block for block in self.parts.prose if isinstance(block, fit.FactBlock)]

    def records(self):
        """Return the symbol records and the seeds."""
        pairs = [pair for pair in self.parts.blocks if isinstance(pair, (list, tuple))]
        found = [pair[1] for pair in pairs if len(pair) > 1]
        for block in self.facts():
            found += block.seeds
        return [one for one in found if isinstance(one, dict)]

    def act(self):
        """Do something that no caller of a function would expect of its arguments."""
        page, r = self.parts, self.r
        containers = [page.prose, page.blocks, page.files, self.answer, page.budget.shares]
        containers += [block.seeds for block in self.facts()]
        containers += [*self.records(), *(one for one in page.blocks if isinstance(one, list))]
        victim = r.choice([one for one in containers if not isinstance(one, (tuple, frozenset))])
        choice = r.randrange(8)
        if choice < 3:
            victim.clear()
        elif choice == 3 and isinstance(victim, dict):
            victim[r.choice(["line", "file", "path", "line_start"])] = self.source.wrong()
        elif choice == 4 and isinstance(victim, list):
            victim[: r.randrange(3)] = [self.source.wrong()]
        elif choice == 5:
            self.Bomb(self)
            gc.collect()
        elif choice == 6 and self.depth < 3:
            self.depth += 1
            self.attempt(fit._fit_page_context, self.answer, page, 900)
            self.depth -= 1
        else:
            self.held.clear()

    def sabotaged(self, usual):
        """Return a utility that acts now and then, and now and then gives something odd."""

        def utility(*args):
            if self.r.random() < 0.2:
                self.act()
            if self.r.random() < 0.02:
                return self.source.odd_result(self.r, usual, args)
            return usual(*args)

        return utility

    def attempt(self, function, *args):
        """Call it; any of the errors that a value can cause will do, and no other."""
        try:
            function(*args)
        except (TypeError, ValueError, OverflowError, LookupError, RecursionError):
            pass
        except AssertionError as error:  # sizes that a change in the middle makes differ
            assert "a candidate measured as" in str(error)

    def run(self):
        """Call everything on this page, the collector running as often as it can."""
        before = gc.get_threshold()
        gc.set_threshold(1, 1, 1)
        page, tokens = self.parts, self.source.tokens()
        act = self.sabotaged(lambda *_: 30000)
        try:
            self.attempt(fit._fit_page_context, self.answer, page, tokens)
            self.attempt(fit._assemble_grounding, page, tokens)
            self.attempt(fit._fit_prose, page, act, 7)
            self.attempt(fit._most, 40, act)
            self.attempt(getattr, page, "seeds")
            self.attempt(fit.citable, (self.act() or one for one in self.records()))
            self.attempt(fit.symbol_seeds, self.records())
            self.attempt(fit._listing, self.records())
            for record in self.records()[:4]:
                self.attempt(fit.render_symbol, record)
            self.attempt(fit._json_size, self.answer)
        finally:
            gc.set_threshold(*before)
