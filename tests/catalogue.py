"""Every function, constructor and method of the module: arguments that work and that fail, and the
ways in which a call of it runs code of the host."""

import gc
import operator
import types
from functools import partial


def public(fit):
    """Return the names of all functions and types, and of what the types have besides fields."""
    names = {name for name in fit.__all__ if callable(getattr(fit, name))}
    for kind in (fit.FactBlock, fit.GroundingParts, fit.SectionBudget):
        members = {name for name in vars(kind) if not name.startswith("__")}
        names |= {f"{kind.__name__}.{name}" for name in members.difference(kind.__match_args__)}
    return names


def rich_symbol():
    """Return a symbol record with a value of every kind of what is written of it."""
    symbol = {"fqn": "a.b", "kind": ["k"], "file": "./f", "line": 3, "end_line": " 12 "}
    symbol |= {"fan_in": 10**30, "signature": "é" * 99, "callees": ["c"], "has_tests": True}
    return symbol | {"parameters": [{"name": "n", "type": {"t": 1.5}}], "related": [{"fqn": "r"}]}


def rich_page(fit):
    """Return an answer, a page's grounding and a budget of which neither path can show all."""
    seeds = [fit.seed("f.py", 1), fit.seed("g.py", 0)]
    large = {"line_start": 2.0**70}  # so that memory is needed to read it
    facts = [fit.FactBlock("## Files", seeds)]
    facts.append(fit.FactBlock("# B\n" + "f" * 9000, [large], key="digest"))
    budget = fit.SectionBudget(1, [fit.README], {"digest": 0.25}, 2)
    blocks = [("t" * 2000, rich_symbol())] * 12
    answer = {"page_id": 7, "prior_markdown": "m" * 9, "grounding": "g" * 50000, "x": [{"y": 2.5}]}
    return answer, fit.GroundingParts(facts * 3, blocks, {"f.py"}, 0.35, budget), 9000


def working(fit):
    """Return arguments that work, made anew, by the name of what takes them."""
    answer, page, tokens = rich_page(fit)
    symbol = rich_symbol()
    seeds = [fit.seed("f.py", 1), fit.seed("g.py", 0)]
    return {
        "section_budget": ["decisions"],
        "seed": ["a", 1, 2],
        "citable": [dict(enumerate(seeds)).values()],
        "symbol_seeds": [[symbol]],
        "render_symbol": [symbol],
        "_listed": [symbol],
        "_listing": [[symbol] * 3],
        "_assemble_blocks": [["a", "b"], 9],
        "_blocks_within": [page, tokens],
        "_assemble_grounding": [page, tokens],
        "explain_grounding": [page, tokens],
        "_json_size": [answer],
        "_cap_note": [["a"] * 9, True],
        "_code_cut": [1, 2, 9],
        "_most": [9, (4).__ge__],
        "_fit_prose": [page, operator.countOf, 4],
        "_fit_page_context": [answer, page, 30000],
        "explain_page_context": [answer, page, 30000],
        "FactBlock": ["t", seeds, "n", "k"],
        "FactBlock.label": [fit.FactBlock("# Title")],
        "GroundingParts": [page.prose, page.blocks, {"f.py"}, 0.5, page.budget],
        "GroundingParts.seeds": [page],
        "SectionBudget": [1, ("a",), {"k": 2}, 3],
    }


def failing(fit):
    """Return pairs of a name and arguments that are refused after something was made of them."""
    unreadable = {"file": "f", "line": "x", "line_start": "x"}
    wrong = fit.GroundingParts([fit.FactBlock("t", [unreadable])], [("t", unreadable)] * 3, set())
    answer, page, tokens = rich_page(fit)
    return [
        ("citable", [[unreadable]]),
        ("symbol_seeds", [[unreadable]]),
        ("render_symbol", [{"callees": [1]}]),
        ("_listed", [unreadable]),
        ("_listing", [[unreadable]]),
        ("_assemble_grounding", [wrong, tokens]),
        ("_json_size", [[10**30, {1: 2}]]),
        ("_fit_prose", [page, enumerate, 4]),
        ("_fit_page_context", [answer, wrong, 30000]),
        ("_fit_page_context", [answer | {"x": [b"junk", object()]}, page, 30000]),
        ("_fit_page_context", [answer | {"prior_markdown": 3}, page, 30000]),
        ("_fit_page_context", [{"prior_markdown": "m" * 50000}, page, 30000]),
        ("GroundingParts.seeds", [wrong]),
        ("FactBlock", [b"t"]),
        ("GroundingParts", [[], [], set(), "x"]),
    ]


def function(fit, name):
    """Return what is called by a name; of a property, what reads it."""
    found = operator.attrgetter(name)(fit)
    return found if callable(found) else found.__get__


def others(fit):
    """Return pairs of a function and its arguments: what can be done with records, and what the
    functions do in another way."""
    block, other = [fit.FactBlock("t", [fit.seed("f.py", 1)]) for _ in range(2)]
    bare = fit.FactBlock("t")  # short of memory, repr() within repr() is no longer sure of itself
    _, page, tokens = rich_page(fit)
    return [
        (repr, [bare]),
        (hash, [bare]),
        (operator.eq, [block, other]),
        (operator.getitem, [block, slice(1, 3)]),
        (tuple, [block]),
        (len, [block]),
        (partial(setattr, block, "text", 1), []),
        (fit._DEFAULT_BUDGET.__reduce__, []),
        (partial(fit.SectionBudget, wrong=1), []),
        (partial(fit.seed, "a", start=1), []),
        (fit.FactBlock, ["t"]),
        (fit.GroundingParts, [[], [], set()]),
        (fit.SectionBudget, [1]),
        (fit._fit_page_context, [{"page_id": 7, "prior_markdown": "m" * 50000}, page, tokens]),
    ]


def calls(fit):
    """Return pairs of a function and its arguments, for all of the above."""
    named = [*working(fit).items(), *failing(fit)]
    return [(function(fit, name), given) for name, given in named] + others(fit)


def reached(values):
    """Return the objects that arguments are made of, each once, without those of which Python has
    one for all: types, numbers, what is empty, and texts of one character."""
    found = {}
    while values:
        new = [one for one in values if one and not isinstance(one, (type, int, float))]
        found |= {id(one): one for one in new if not isinstance(one, str) or len(one) > 1}
        within = gc.get_referents(*(one for one in new if not callable(one)))
        values = [one for one in within if id(one) not in found]
    return list(found.values())


class Odd:
    """A value that acts whenever one of its methods is run."""

    def __init__(self, act):
        self.act = act

    def __call__(self, *_):
        self.act()
        return 1

    __eq__ = __hash__ = __index__ = __getitem__ = __call__

    def __bool__(self):
        self.act()
        return True

    def __contains__(self, _):
        return bool(self)

    def __repr__(self):
        self.act()
        return "odd"

    def __iter__(self):
        self.act()
        return iter([{"line_start": 1}])


def odd_text(act):
    """Return a type of texts that act when they are hashed or compared."""

    class Text(str):
        def __hash__(self):
            act()
            return str.__hash__(self)

        def __eq__(self, other):
            act()
            return str.__eq__(self, other)

    return Text


def acting_page(fit, act):
    """Return an answer, a page's grounding and a budget that act wherever a page's values can."""
    odd, text = Odd(act), odd_text(act)
    facts = [fit.FactBlock("## x\n" + "f" * 400, [{text("line_start"): 1}], key="k")]
    budget = fit.SectionBudget(shares=types.MappingProxyType(odd))
    blocks = [("t", {text("fqn"): 1, "kind": [odd], "file": "b", "line": 3})] * 9
    answer = {text("prior_markdown"): None, "grounding": "g" * 50000}
    return answer, fit.GroundingParts(facts, blocks, {text("f")}, budget=budget), 80


def acting_utilities(act):
    """Return what the host's utilities do: they act first."""

    def after(usual):
        def utility(*args):
            act()
            return usual(*args)

        return utility

    cut = after(lambda facts, budget: facts[:budget])
    return {"estimate": after(len), "truncate": cut, "norm": after(str)}


def entries(fit, act):
    """Return, by name, the calls that run `act` in code of the host, one for each way to it; none
    for what runs no such code. The host has the acting utilities."""
    odd, text = Odd(act), odd_text(act)
    answer, page, tokens = acting_page(fit, act)
    plain = fit.GroundingParts([fit.FactBlock("f")], [("t", {})] * 3, set())
    keyed, seeds = {text("fqn"): 1}, [{text("line_start"): 1}]
    block, other = fit.FactBlock("t", (odd,)), fit.FactBlock("t", (Odd(act),))
    ways = {
        "citable": [partial(fit.citable, odd), partial(fit.citable, seeds)],
        "symbol_seeds": [partial(fit.symbol_seeds, [{"file": "f"}])],
        "_assemble_blocks": [partial(fit._assemble_blocks, ["a"], 80)],
        "_blocks_within": [partial(fit._blocks_within, plain, 80)],
        "_assemble_grounding": [partial(fit._assemble_grounding, page, tokens)],
        "explain_grounding": [partial(fit.explain_grounding, page, tokens)],
        "_cap_note": [partial(fit._cap_note, ["a"], odd)],
        "_most": [partial(fit._most, 9, odd), partial(fit._most, 9, lambda _: odd)],
        "_fit_prose": [partial(fit._fit_prose, one, odd, 3) for one in (page, plain)],
        "_fit_page_context": [partial(fit._fit_page_context, answer, page, tokens)],
        "explain_page_context": [partial(fit.explain_page_context, answer, page, tokens)],
        "GroundingParts.seeds": [lambda: page.seeds],
        "operations": [
            lambda: repr(fit.FactBlock("t", (odd,))),  # not itself once more, which ends at once
            partial(hash, block),
            partial(operator.eq, block, other),
            partial(operator.getitem, block, odd),
        ],
    }
    for name in ("render_symbol", "_listed"):
        ways[name] = [partial(function(fit, name), one) for one in ({}, {"fqn": [odd]}, keyed)]
    ways["_listing"] = [partial(fit._listing, [one]) for one in ({}, {"kind": [odd]}, keyed)]
    enters_nowhere = ["section_budget", "seed", "_json_size", "_code_cut", "FactBlock"]
    enters_nowhere += ["FactBlock.label", "GroundingParts", "SectionBudget"]
    return ways | {name: [] for name in enters_nowhere}
