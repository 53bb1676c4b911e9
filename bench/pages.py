"""Makes the bench's pages, of the interpreter's own library, and loads both sides that fit them."""

import ast
import importlib
import os
import sys
from collections.abc import Callable, Iterator
from dataclasses import dataclass
from heapq import nlargest
from pathlib import Path
from types import ModuleType
from unittest import mock

from calls import Page
from examples import host
from examples.repository import Source, definitions, read_repository
from workers import context_builder
from workers.wiki import repo_facts

PACKAGES = (
    "asyncio collections concurrent ctypes email html http importlib json logging "
    "multiprocessing unittest urllib wsgiref xml xmlrpc zoneinfo"
).split()
LIBRARY = Path(os.__file__).parent
SIZES = {12: 6, 40: 12, 120: 25, 400: 60, 1200: 250}  # symbols of a page: its fact blocks
FITS = 12  # symbols of the page whose answer fits
CUT = [count for count in SIZES if count != FITS]
TOKENS = 8000
CHARS = 32000  # as many bodies fit when a token is one character and not 4
# The host's utilities without Python in them, so that the module's own share shows:
BUILT_IN = {"estimate_tokens": len, "_truncate_to_tokens": str.ljust, "_norm": str}


@dataclass(frozen=True)
class Told:
    """What a scope says of itself and of its members, and where."""

    text: str
    seeds: list[dict]


@dataclass(frozen=True)
class Library:
    """The code, its symbol records (best first), and the longest texts on it."""

    sources: list[Source]
    symbols: list[dict]
    texts: list[Told]


def load(utilities: dict[str, Callable]) -> list[ModuleType]:
    """Load the module and the plain model anew, each for itself, over these host utilities."""
    names = ("grounding_fit", "plain_model")
    with (
        mock.patch.dict(vars(context_builder), utilities),
        mock.patch.dict(vars(repo_facts), utilities),
        mock.patch.dict(sys.modules),
    ):
        for name in names:
            sys.modules.pop(name, None)
        return [importlib.import_module(name) for name in names]


def told_by(source: Source) -> Iterator[Told]:
    """Yield what the module and each definition of a file tell in 200 code points or more."""
    scopes = [(source.module, source.tree), *definitions(source.tree, source.module)]
    for name, scope in scopes:
        documented = [
            ast.get_docstring(node)
            for node in [scope, *scope.body]
            if isinstance(node, (ast.Module, ast.ClassDef, ast.FunctionDef))
        ]
        heading = f"## {name} ({len(documented)} texts)"
        text = "\n\n".join([heading, *filter(None, documented)])[:4000]
        if len(text) >= 200:
            first = getattr(scope, "lineno", 1)
            last = getattr(scope, "end_lineno", len(source.lines))
            yield Told(text, [host.fit.seed(source.path, first, last)])


def read_library() -> Library:
    """Read the packages without their tests."""
    read = [source for name in PACKAGES for source in read_repository(LIBRARY / name).sources]
    sources = [source for source in read if not source.is_test]
    texts = [told for source in sources for told in told_by(source)]
    longest = nlargest(max(SIZES.values()) - 2, texts, key=lambda told: len(told.text))
    return Library(sources, host.symbol_records(sources, max(SIZES)), longest)


def bare_card(source: Source) -> host.Entry:
    """Describe a file by its size in lines."""
    last = len(source.lines)
    return host.Entry(f"{source.path} ({last} lines)", [(source.path, 1, last)])


def make_page(fit: ModuleType, count: int, library: Library) -> Page:
    """Make a page of so many symbols and as many texts as go with them, taken evenly from all."""
    symbols = library.symbols[:: len(library.symbols) // count][:count]
    files = {symbol["file"] for symbol in symbols}
    cards = [bare_card(source) for source in library.sources if source.path in files]
    facts = [tuple(host.list_block(fit._ALWAYS_KEPT[0], cards)), (fit._ALWAYS_KEPT[1],)]
    texts = library.texts
    told_count = SIZES[count] - len(facts)
    told = texts[:: len(texts) // told_count][:told_count]
    facts += sorted(((each.text, each.seeds) for each in told), key=lambda fact: fact[0])
    parts = fit.GroundingParts(
        [fit.FactBlock(*fact) for fact in facts],
        [(fit.render_symbol(symbol), symbol) for symbol in symbols],
        files,
        budget=fit.section_budget("module"),
    )
    answer = host.page_answer("library", "module", library.sources, parts)
    answer["prior_markdown"] = None if count == FITS else answer["prior_markdown"][:6000]
    return Page(f"{count:,}/{SIZES[count]}", symbols, facts, answer, parts)
