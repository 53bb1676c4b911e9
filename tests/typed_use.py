"""A program that uses every public name: type checkers accept it, and refuse its wrong uses."""

from __future__ import annotations

import re
from pathlib import Path
from types import MappingProxyType
from typing import TYPE_CHECKING, Any, TypedDict

import grounding_fit as fit

if TYPE_CHECKING:
    from grounding_fit import _CitationSeed, _PageContext, _SymbolRecord
else:

    class _SymbolRecord(TypedDict):
        """Stands for the stub's type, which the module does not have."""


SYMBOL: _SymbolRecord = {
    "fqn": "app.save",
    "file": "./app.py",
    "line": 4,
    "parameters": [{"name": "item", "type": "Item"}],
    "callees": ("app.put",),
    "docstring": None,
}
LOOSE: dict[str, Any] = {"fqn": "app.load", "file": "app.py", "line": 12, "owner": "core"}
SEEDS: list[_CitationSeed] = fit.symbol_seeds([SYMBOL])
CARDS, TESTS = fit.FactBlock(fit._ALWAYS_KEPT[0]), fit.FactBlock("## Tests (2)", SEEDS, key="t")
PARTS = fit.GroundingParts((CARDS, TESTS), [(fit.render_symbol(SYMBOL), SYMBOL)] * 2, {"a.py"})


class OwnedSymbol(_SymbolRecord, total=False):
    """A symbol record with a key of the host's own."""

    owner: str


class Found(TypedDict):
    """A symbol record with the few keys that a host has."""

    fqn: str
    file: str
    line: int


class Maybe(TypedDict, total=False):
    """The same where the host may lack any."""

    fqn: str
    docstring: str | None


class Answer(TypedDict, total=False):
    """An answer as a host of its own describes it, with few of the fields that are read."""

    page_id: str
    owner: str
    grounding: str
    truncated: str


def size(blocks: list[fit.FactBlock], count: int, listed: int | None = None) -> int:
    """Return JSON characters that leave room for one fact block only."""
    return sum(fit._json_size(block.text) for block in blocks) + 30_000 * len(blocks) + count


USED = set(re.findall(r"fit\.(\w+)", Path(__file__).read_text()))
assert fit.__version__ and set(fit.__all__) <= USED, "a public name is not used here"
assert SEEDS == [fit.seed("app.py", 4, end=3)] == fit.citable(seed for seed in PARTS.seeds)
assert (TESTS[0], TESTS[1], TESTS[2:], len(TESTS)) == (TESTS.text, SEEDS, ("", "t"), 4)
match TESTS:
    case fit.FactBlock(text, seeds, key=key):
        assert (text.upper(), seeds[0]["path"], key) == ("## TESTS (2)", "app.py", "t")
GUIDE: fit.SectionBudget = fit.section_budget("getting-started")
assert GUIDE is fit._BUDGETS["getting-started"] is not fit._DEFAULT_BUDGET is PARTS.budget
assert fit.SectionBudget(28_000, [fit.README], {fit.DIGEST: 0.25}).shares == GUIDE.shares
assert fit.SectionBudget(shares=GUIDE.shares).shares == GUIDE.shares
assert fit.section_budget("decisions").first == (fit.DOCUMENT,)
assert (PARTS.code_floor, fit._SKELETON_LINES, fit._LISTED_MAX) == (fit._SYM_BUDGET_FLOOR, 12, 30)
assert fit._listing([LOOSE]) == f"{fit._LISTED_HEADING}\n{fit._listed(LOOSE)}"
assert f"{'s' * (fit._LISTED_CHARS - 3)}..." in fit._listed(LOOSE | {"signature": "s" * 81})
assert fit._assemble_blocks(("block",), 0) == ["block"]
assert fit._blocks_within(fit.GroundingParts([], [("block", LOOSE)], frozenset()), 0) == 1
owned: OwnedSymbol = {"fqn": "app.drop", "owner": "core"}
found: list[Found] = [{"fqn": "app.find", "file": "app.py", "line": 4}]
maybe: Maybe = {"docstring": "Find it."}
assert fit.render_symbol(owned) == fit.render_symbol({"fqn": "app.drop"})
assert fit.symbol_seeds(found) == [fit.seed("app.py", 4)] != fit.symbol_seeds([owned])
assert fit._listing([*found]).endswith(fit._listed(found[0])) and fit._listed(maybe)
pages = [fit.GroundingParts([], [(fit.render_symbol(one), one)], set()) for one in found]
assert fit._blocks_within(fit.GroundingParts([], [("text", maybe)], set()), 9) == len(pages)
grounding, symbols, files, cited = fit._assemble_grounding(PARTS, budget=900)
assert (symbols, files, cited) == (["app.save"] * 2, ["a.py", "app.py"], SEEDS * 3)
assert SYMBOL["fqn"] in grounding
assert fit._most(fit._NOTE_ITEMS, lambda count: count < 4) == 3
assert fit._fit_prose(PARTS, size, 2) == ([CARDS], [TESTS.label()])
answer: _PageContext = {"page_id": "p", "prior_markdown": "m" * fit._PAGE_CONTEXT_MAX_CHARS}
assert '"p"' in fit._fit_page_context(answer, PARTS, 900).get("truncated", "")
own: Answer = {"page_id": "p", "owner": "core", "grounding": "g" * 40_000}
assert fit._fit_page_context(own, PARTS, 900)["owner"] == "core"
explained, report = fit.explain_page_context({"x": ["x" * 40_000]} | LOOSE, PARTS, 900)
assert (report["outcome"], report.get("facts", [])[0]["verdict"]) == ("over the cap", "always kept")
assert fit.explain_grounding(PARTS, 900)[1]["symbols"]["stopped_by"] == "nothing"
whole: dict[str, Any] = fit._fit_page_context({"x": ["x" * 40_000]} | LOOSE, PARTS, 900)
assert set(fit._FITTED_FIELDS) < whole.keys() and len(fit._NOTE_PLACEHOLDER) == 600
note = fit._cap_note([*fit._code_cut(0, 0, 2), TESTS.label()], ask=True)
assert whole["truncated"].startswith(note) and whole["symbols"] == []

if TYPE_CHECKING:
    TESTS.name = "tests"  # type: ignore[misc]

    class Derived(fit.FactBlock):  # type: ignore[misc]
        pass

    fit.README = "read"  # type: ignore[misc]
    fit._BUDGETS["module"] = GUIDE  # type: ignore[index]
    GUIDE.shares["digest"] = 0.5  # type: ignore[index]
    fit.FactBlock()  # type: ignore[call-arg]
    fit.FactBlock("text", iter(SEEDS))  # type: ignore[arg-type]
    fit.GroundingParts([], [("text", "record")], set())  # type: ignore[type-var]
    fit.GroundingParts([], [], ["a.py"])  # type: ignore[arg-type]
    fit.SectionBudget(shares=MappingProxyType({}))
    fit.SectionBudget(shares=[("digest", 0.5)])  # type: ignore[arg-type]
    SYMBOL["callers"]  # type: ignore[typeddict-item]
    fit.seed("a.py", "1")  # type: ignore[arg-type]
    fit.render_symbol(SEEDS[0])  # type: ignore[arg-type]
    owned["callers"]  # type: ignore[typeddict-item]
    fit.GroundingParts([], [("text", SEEDS[0])], set())  # type: ignore[type-var]
    fit._cap_note("one")  # type: ignore[arg-type]
    fit._json_size({1, 2})  # type: ignore[arg-type]
    fit._most(3, size)  # type: ignore[arg-type]
    fit._fit_prose(PARTS, fit._cap_note, 2)  # type: ignore[arg-type]
    fit._fit_page_context(MappingProxyType(LOOSE), PARTS, 900)  # type: ignore[type-var]
