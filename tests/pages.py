"""Random and hostile values, symbol records, pages and hosts, all from one seeded source."""

import copy
import math
import random
import zlib

from harness import HOST, fit

ALPHABETS = ["abc XYZ/_.", 'a"\\\n\t\r\b\f\x00\x1f\x7f ', "é ÿ\xa0z", "— “x”\u2028\u3000"]
ALPHABETS += ["😀a\U0010ffff", "\ud800b\udfff"]
SLICED = ["".join(random.Random(0).choices(letters, k=600)) for letters in ALPHABETS]
HEADINGS = ["## Files", "## Requésted", "# ", "## Title (3 files)"]
WORDS = [*HEADINGS, " (", "\n\n", "`", "x" * 77, "L1"]
KEYS = ["", "readme", "digest", "document", "other"]
DRAWN_SYMBOLS = 10  # of a page

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
    """One seed's worth of values; a source of random numbers will do as one. `junk` is the chance
    that a value is not what it should be; a smaller `scale` makes smaller pages of the same seed.
    """

    def __init__(self, seed, junk=0.0, scale=1.0):
        self.r = seed if isinstance(seed, random.Random) else random.Random(seed)
        self.junk = junk
        self.scale = scale
        self.full = self.r.random() < 0.1  # a long note over an answer full of blocks

    def below(self, limit):
        """Return one of the numbers from 0 on; texts ask so often that randrange() is too slow."""
        return int(self.r.random() * limit)

    def one_of(self, values):
        """Return one of the values of a list."""
        return values[self.below(len(values))]

    def text(self, most=30):
        """Return a text of about that many code points at most."""
        random = self.r.random
        if random() < 0.1:
            return self.one_of(["", *WORDS])
        drawn = self.one_of(SLICED) if random() < 0.4 else SLICED[0]
        start = self.below(len(drawn) - most)
        made = drawn[start : start + 1 + self.below(most + 1)]
        return made if random() < 0.8 else self.one_of(WORDS) + made

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
        return self.maybe(1 + self.below(400) if r.random() < 0.85 else self.one_of(odd))

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
        made = {"fqn": self.text(), "kind": self.text(8), "file": f"./{self.below(6)}.py"}
        made |= {"line": self.line(), "end_line": self.line(), "signature": self.text(100)}
        made |= {"docstring": self.text(90), "snippet": self.text(60) * self.below(2)}
        made |= {"usage_example": self.text(), "has_tests": r.random() < 0.5}
        made["parameters"] = [self.entry("name", "type") for _ in range(self.below(3))]
        made["body_digest"] = "\n".join(["d"] * self.below(15))
        made["callees"] = [self.maybe(self.text(8)) for _ in range(self.below(4))]
        made["related"] = tuple(self.entry("fqn") for _ in range(self.below(3)))
        for key in ("fan_in", "inside_refs", "neighbour_refs", "snippet_cut"):
            made[key] = self.below(3)
        kept = {key: self.maybe(value) for key, value in made.items() if r.random() < 0.85}
        return self.maybe(kept)

    def symbols(self, count):
        """Return symbol records: a few drawn whole, the others like one of these but for two keys,
        since drawing takes most of the time that a page takes."""
        drawn = [self.symbol() for _ in range(min(count, DRAWN_SYMBOLS))]
        usual = [one for one in drawn if isinstance(one, dict)] or [{}]
        for _ in range(len(drawn), count):
            drawn.append({**self.one_of(usual), "fqn": self.text(), "line": self.line()})
        return drawn

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
            return fit.section_budget(r.choice([*fit._BUDGETS, "module"]))
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
        for symbol in self.symbols(symbols):
            text = self.text(20) * r.randrange(0, 1 + width // 8) if r.random() < 0.9 else ""
            pair = (self.maybe(text), symbol)
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
        salt = r.getrandbits(32)

        def fixed(text):
            return zlib.crc32(text.encode("utf-8", "surrogatepass"), salt)

        def odd(usual):
            def utility(text, *rest):
                if fixed(text) >= self.junk * 2**32:
                    return usual(text, *rest)
                return self.odd_result(random.Random(fixed(text)), text)

            return utility

        counts = [len, lambda text: len(text) // 4, lambda text: 1]
        counts.append(lambda text: fixed(text) % 905 - 5)
        cuts = [lambda text, budget: text[:budget], lambda text, budget: ""]
        cuts.append(lambda text, budget: text + "…")
        norms = [str.upper, lambda path: path[2:], lambda path: "", lambda path: path + "—é😀"]
        utilities = [r.choice(kind) for kind in (counts, cuts, norms)]
        HOST.set(*(map(odd, utilities) if self.junk else utilities))

    def odd_result(self, chance, text):
        """Return what a utility may not give, or hardly ever does, or raise an error."""
        if chance.random() < 0.3:
            raise LookupError(text)
        return chance.choice([None, 7, True, 2.5, "text", ["a"], 2**63, -(2**63), 2**62])
