"""Holds the module against the plain model: results, errors, calls to the host.

On pages that are moved until every comparison of the rules has stood at its edge, one below and one
above, and on random ones."""

import argparse
import collections
import contextlib
import functools
import gc
import json
import pickle
import sys
import time
from dataclasses import dataclass, field

import edges
from differences import difference, shortened
from harness import HOST, LINES, exchanged, fit, model
from pages import Source

ENOUGH_PAGES = 500  # random ones, that meet every edge which no page is moved to
ENOUGH_MOVED = 20


@dataclass(frozen=True)
class Raised:
    """An error in place of a result: equal to another of its kind, whatever each says."""

    kind: type
    said: str = field(compare=False)


@dataclass(frozen=True)
class Outcome:
    """What a call gave or raised, and the calls it made to the host."""

    result: object
    calls: list


def outcome(module, name, *args):
    """Return the outcome of a call."""
    HOST.calls.clear()
    LINES.made.clear()
    try:
        result = getattr(module, name)(*args)
    except (TypeError, ValueError, OverflowError, LookupError) as error:
        result = Raised(type(error), str(error))
    except AttributeError as error:
        if module is fit:
            raise
        result = Raised(TypeError, str(error))  # what a value of another type is to the plain model
    return Outcome(result, list(HOST.calls))


def split_norms(calls):
    """Return the calls to _norm, and the others."""
    norms = [call for call in calls if call[0] == "norm"]
    return norms, [call for call in calls if call[0] != "norm"]


def compare(name, mine, plain):
    """See that the module's outcome is the plain model's."""
    found = difference(mine.result, plain.result)
    assert not found, f"{name}(){found}"
    my_calls, plain_calls = mine.calls, plain.calls
    if name.endswith("page_context"):  # asks for a path once, the plain model at every answer
        my_norms, my_calls = split_norms(my_calls)
        plain_norms, plain_calls = split_norms(plain_calls)
        asked = set(my_norms)
        assert len(my_norms) == len(asked), f"{name}(): asked twice: {shortened(my_norms)}"
        odd = asked ^ set(plain_norms)
        assert not odd, f"{name}(): asked by one side alone: {shortened(odd)}"
    found = difference(my_calls, plain_calls)
    assert not found, f"{name}(), its calls to the host{found}"


def agree(name, *args):
    """Call both sides and compare."""
    compare(name, outcome(fit, name, *args), outcome(model, name, *args))


def agree_explained(name, explaining, more, *args):
    """Compare a function and the one that explains it, which gives the same after the same calls to
    the host, and asks for `more` estimates in the end: so the plain model is asked once for both.
    What one refuses the other refuses in the same words.
    """
    plain = outcome(model, explaining, *args)
    explained, mine = (outcome(fit, one, *args) for one in (explaining, name))
    compare(explaining, explained, plain)
    if isinstance(plain.result, Raised):  # perhaps for the report alone
        plain = outcome(model, name, *args)
    else:
        result, report = plain.result
        json.dumps(report, allow_nan=False)
        plain = Outcome(result, plain.calls[: len(plain.calls) - more])
    compare(name, mine, plain)
    if isinstance(mine.result, Raised):
        said = explained.result.said.replace(explaining, name, 1)
        assert said == mine.result.said, f"{explaining}(): {said}\nis not {mine.result.said}"


def agree_on_agent_path(answer, parts, tokens):
    """Compare the agent path on one page."""
    agree_explained("_fit_page_context", "explain_page_context", 0, answer, parts, tokens)


def agree_on_api_path(parts, tokens):
    """Compare the API path on one page."""
    agree_explained("_assemble_grounding", "explain_grounding", 2, parts, tokens)


def size_of(blocks, count):
    """Return a size for `_fit_prose` that has nothing to do with an answer, and keep the call."""
    HOST.calls.append(("size", blocks, count))
    return sum(len(block.text) for block in blocks) + 300 * count


def one_page(seed, junk, scale=1.0):
    """Compare everything on one page."""
    source = Source(seed, junk, scale)
    source.host()
    parts, answer, tokens = source.parts(), source.answer(), source.tokens()
    before = None if junk else pickle.dumps((parts, answer))
    agree_on_agent_path(answer, parts, tokens)
    agree_on_api_path(parts, tokens)
    agree("_blocks_within", parts, tokens)
    agree("_fit_prose", parts, size_of, 20)
    agree("_code_cut", *(source.r.randrange(3) for _ in range(3)))
    for pair in parts.blocks[:3]:
        if isinstance(pair, (list, tuple)) and len(pair) == 2:
            agree("render_symbol", pair[1])
            agree("_listed", pair[1])
            agree("symbol_seeds", [pair[1]])
    for block in parts.prose[:3]:
        if isinstance(block, fit.FactBlock):
            agree("citable", block.seeds)
            found = difference(block.label(), model.label(block))
            assert not found, f"label(){found}"
    if not junk:
        agree("_json_size", source.value(6))
        agree("_assemble_blocks", [text for text, _ in parts.blocks], tokens)
        found = difference(parts.seeds, model.part_seeds(parts))
        assert not found, f"seeds{found}"
        assert pickle.dumps((parts, answer)) == before, "an input was changed"


@contextlib.contextmanager
def watched(options):
    """Watch the comparisons of the plain model; say how to run again what fails in here."""
    watch = edges.Watch()
    try:
        with exchanged(model, at_most=watch, _listed=LINES):
            yield watch
    except BaseException:
        print(f"differential: python differential.py {options}")
        raise


def run(pages, first=0):
    """Compare that many pages, a third of them with junk in them; return the edges met."""
    met = collections.Counter()
    for seed in range(first, first + pages):
        with watched(f"--first {seed} --pages 1 --edges 0") as watch:
            one_page(seed, [0.0, 0.0, 0.01][seed % 3])
        met += watch.met
    return met


def run_edges(pages, first=0):
    """Compare pages that are moved to every edge; return the edges met."""
    met = collections.Counter()
    HOST.set(estimate=len)
    for seed in range(first, first + pages):
        with watched(f"--first {seed} --pages 0 --edges 1") as watch:

            @functools.cache
            def compare_on_api_path(page):
                _, parts, tokens = page.build()
                agree_on_api_path(parts, tokens)

            @functools.cache
            def gaps(page):
                watch.gaps.clear()
                agree_on_agent_path(*page.build())
                compare_on_api_path(page.for_api_path())
                return watch.gaps.copy()

            for filler, rules in edges.MOVES.items():
                for rule in rules:
                    edges.seek(edges.draw(seed), filler, rule, gaps)
        met += watch.met
    return met


def count_references(pages):
    """Run the same pages again and again on a debug interpreter: its count of all references,
    which a call that keeps or gives away one too many would move, must stay level."""
    totals = []
    for _ in range(4):
        run(pages)
        HOST.calls.clear()
        LINES.made.clear()
        gc.collect()
        totals.append(sys.gettotalrefcount())
    print(f"references after each round of {pages} pages: {totals}")
    assert abs(totals[-1] - totals[-2]) < pages // 10, totals


def main():
    """Compare as many pages as the options say."""
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--pages", type=int, default=500, help="random pages")
    parser.add_argument("--edges", type=int, default=20, help="pages that are moved to every edge")
    parser.add_argument("--first", type=int, default=0, help="the seed of the first page")
    parser.add_argument("--count-references", action="store_true")
    options = parser.parse_args()
    if options.count_references:
        count_references(options.pages)
        return
    started = time.perf_counter()
    met = run_edges(options.edges, options.first)
    if options.edges >= ENOUGH_MOVED:
        missed = edges.missed(met, edges.SOUGHT)
        assert not missed, f"edges that were sought and never met: {missed}"
        rarest = min(met[edge] for edge in edges.edges_of(edges.SOUGHT))
        print(f"rarest of the edges: {rarest} times")
    met = run(options.pages, options.first)
    if options.pages >= ENOUGH_PAGES:
        missed = edges.missed(met, edges.rules() - edges.SOUGHT)
        assert not missed, f"edges that no random page has met: {missed}"
    print(f"{options.pages} random pages and {options.edges} that were moved to every edge: alike")
    print(f"{time.perf_counter() - started:.1f} s")


if __name__ == "__main__":
    main()
