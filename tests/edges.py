"""Moves the fillers of a page until a decision of the rules stands at its edge.

Random pages seldom come near: sizes go to tens of thousands, and one character decides. The plain
model tells how far a page is from each edge, so a filler can be moved by just as much.
"""

import collections
import inspect
import math
import random
import re
from dataclasses import dataclass, replace

from harness import fit, model, parts

# What fillers repeat, in each width of text: 5 code points that take 12 JSON characters; and 12
# that take as many, so that a text's least size stands at the edge as well.
UNITS = ['é"a\n\x01', "—\\b\t\x1f", '😀"c\r\x00', "a line of 12"]
UNIT_SIZE = 12

EDGE = (-1, 0, 1)
FRACTION = (-0.5, 0.5)  # of a character, on either side
STEPS = {"facts": 1, "symbols": 1, "share": 1e-3, "floor": 1e-3}  # else a unit of text
TRIES = 6

# What is moved to bring which comparisons of the rules to their edge.
MOVES = {
    "grounding": ["given answer", "answer without its prior markdown"],
    "answer": ["room", "fact block", "bodies", "listed lines", "answer with its note"],
    "fact": ["share"],
    "body": ["bodies"],
    "note": ["answer with its note"],
    "share": ["share"],
    "floor": ["room kept for code", "fact block"],
    "tokens": ["code's share of the tokens", "tokens of bodies", "tokens left for facts"],
    "facts": ["items of a note"],
    "symbols": ["listed symbols"],
}
NEVER = {("symbols to take off", -1), ("bodies to take off", -1)}  # counts, and 0 their limit
SOUGHT = {rule for rules in MOVES.values() for rule in rules}


@dataclass(frozen=True)
class Page:
    """What can be moved of a page, texts in JSON characters; all else is drawn from the seed."""

    seed: int
    grounding: int  # as the host gave it
    answer: int  # a field of the host's
    fact: int  # the text of a fact block whose kind has a share
    body: int  # the text of the best symbol block
    note: int  # the name of a fact block that is always left out
    share: float  # of two fact blocks' kind, one of which is always kept
    floor: float
    tokens: int
    facts: int
    symbols: int

    def build(self):
        """Return the answer, the grounding and the budget in tokens."""
        r = random.Random(self.seed)
        unit = r.choice(UNITS)
        width = r.choice([100, 400, 1000, 4000, 20000])

        def fill(size):
            return unit * (size // UNIT_SIZE) + "x" * (size % UNIT_SIZE)

        def block(heading, size, key, name=""):
            seeds = [fit.seed(fill(r.randrange(40)), r.randrange(3)) for _ in range(r.randrange(4))]
            return fit.FactBlock(heading + fill(size), seeds, name, key)

        def symbol(size, name):
            record = {"fqn": fill(name), "kind": unit, "file": f"./{r.randrange(9)}"}
            record |= {"line": r.choice([0, 7, 120]), "end_line": r.choice([0, 9, 3000])}
            return fill(size), record | {"signature": fill(r.randrange(150))}

        answer = {
            "page_id": 'p"1',
            "prior_markdown": r.choice([None, fill(9000), fill(9000)]),
            "notes": fill(self.answer),
            "grounding": fill(self.grounding),
            "symbols": ["s"],
        }
        prose = [
            block("## Files\n", 600, "digest"),
            block("# Never", 200, "never", fill(self.note)),
            block("# Digest (1)\n", self.fact, "digest"),
            block("", 0, ""),
            block("## Requésted", 0, ""),
        ]
        for _ in range(self.facts):
            size, key = r.choice([0, 1500, 6000]), r.choice(["", "", "other"])
            prose.append(block("Fact", size, key, "a fact"))  # no escape but those of the unit
        prose.append(block("## Read me\n", 500, "readme"))
        shares = {"digest": self.share, "never": 0, "other": 0.3}
        budget = fit.SectionBudget(first=["readme"], shares=shares)
        blocks = [symbol(self.body, 2000)]  # its line may take more than its body
        for _ in range(1, self.symbols):
            blocks.append(symbol(width + r.randrange(width), r.randrange(60)))
        grounding = parts(prose, blocks, code_floor=self.floor, budget=budget)
        return answer, grounding, self.tokens

    def for_api_path(self):
        """Return the page without what the API path does not read."""
        return replace(self, grounding=0, answer=0, note=0, share=0.0, floor=0.0)


def draw(seed):
    """Return a page that may come near some edges."""
    r = random.Random(seed)
    answer = r.choice([50, 9000, 20000, 33000])
    return Page(
        seed,
        grounding=41000 - answer,
        answer=answer,
        fact=r.choice([900, 3000]),
        body=r.choice([0, 300, 5000, 20000]),
        note=r.choice([10, 700, 1200, 2500]),
        share=r.choice([0.1, 0.25, 0.6]),
        floor=r.choice([0.35, 0.35, 0.6, 0.9, 2.0, -0.5]),
        tokens=r.choice([300, 9000, 50000, 60000]),
        facts=r.choice([1, 3, 7]),
        symbols=r.choice([2, 8, 31, 33]),
    )


class Watch:
    """Stands in for the comparison of the plain model, and keeps how far each was from its edge."""

    def __init__(self):
        self.gaps = collections.defaultdict(list)
        self.met = collections.Counter()

    def __call__(self, rule, value, limit):
        gap = value - limit
        self.gaps[rule].append(gap)
        if -1 <= gap <= 1:
            self.met[rule, gap if gap in EDGE else math.copysign(0.5, gap)] += 1
        return value <= limit


def rules():
    """Return the names of all comparisons that the plain model makes."""
    return set(re.findall(r'(?:at_most|fits)\(\s*"(.*?)"', inspect.getsource(model)))


def edges_of(some):
    """Return every edge of some rules."""
    wanted = {(rule, gap) for rule in some for gap in EDGE}
    return wanted.union({("share", gap) for gap in FRACTION if "share" in some}) - NEVER


def missed(met, some):
    """Return the edges of some rules that were not met."""
    return sorted(edges_of(some) - met.keys())


def seek(page, filler, rule, gaps):
    """Move the filler until the rule's comparison nearest to its edge stands there, and beside it.

    `gaps(page)` compares a page, and returns by rule how far from its edge each comparison was."""
    value = getattr(page, filler)
    step = STEPS.get(filler, UNIT_SIZE)

    def gaps_at(value):
        return gaps(replace(page, **{filler: value}))[rule]

    before = gaps_at(value)
    after = gaps_at(value + step)
    moving = [i for i, (a, b) in enumerate(zip(before, after, strict=False)) if a != b]
    if not moving:
        return
    place = min(moving, key=lambda i: abs(before[i]))
    gap = before[place]
    slope = (after[place] - gap) / step
    for target in EDGE + FRACTION if filler == "share" else EDGE:
        for _ in range(TRIES):
            by = (target - gap) / slope
            if isinstance(value, int):
                by = max(round(by), -value)
            if by == 0:
                break
            found = gaps_at(value + by)
            if place >= len(found) or found[place] == gap:
                return  # the comparison is no longer made, or moves no more
            slope = (found[place] - gap) / by
            value += by
            gap = found[place]
        else:
            return
