"""The calls that are measured, on a page as both paths take it.

Only what a page itself consists of is needed here, so that valgrind has little to load.
"""

from collections.abc import Callable
from dataclasses import dataclass
from functools import partial
from types import ModuleType

WHOLE_WAY = "whole_way"  # the name of the function below
PARTS_OF_IT = ("render_symbol", "symbol_seeds", "_assemble_grounding", "_fit_page_context")


@dataclass(frozen=True)
class Page:
    """A page of so many symbols and fact blocks, as both paths take it."""

    name: str
    symbols: list[dict]
    facts: list[tuple]  # what each fact block is made of
    answer: dict
    parts: object


def whole_way(side: ModuleType, page: Page, budget: int) -> tuple:
    """Return the results of both paths, of a page's symbol records and fact texts.

    The plain model has no records of its own: both sides take the module's. The joined text of the
    answer before it is fitted stays as it is, since joining it is the host's work.
    """
    fact_block, parts_of = type(page.parts.prose[0]), type(page.parts)
    prose = [fact_block(*fact) for fact in page.facts]
    texts = map(side.render_symbol, page.symbols)
    blocks = list(zip(texts, page.symbols, strict=True))
    parts = parts_of(prose, blocks, page.parts.files, budget=page.parts.budget)
    seeds = parts.seeds + side.symbol_seeds(page.symbols)
    answer = {**page.answer, "citation_seeds": seeds}
    api = side._assemble_grounding(parts, budget)
    return api, side._fit_page_context(answer, parts, budget)


def operations(side: ModuleType, page: Page, budget: int) -> dict[str, Callable]:
    """Return the calls to compare, by name; the rendering is of all symbols of the page."""
    return {
        "_fit_page_context": partial(side._fit_page_context, page.answer, page.parts, budget),
        "_assemble_grounding": partial(side._assemble_grounding, page.parts, budget),
        "_json_size": partial(side._json_size, page.answer),
        "render_symbol": lambda: list(map(side.render_symbol, page.symbols)),
        "symbol_seeds": partial(side.symbol_seeds, page.symbols),
        WHOLE_WAY: partial(whole_way, side, page, budget),
    }
