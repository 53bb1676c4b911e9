"""Holds the module against the plain model: results, errors, calls to the host.

First on pages that are moved until every comparison of the rules has stood at its edge, one below
and one above, then on random ones."""

import argparse
import collections
import contextlib
import copy
import gc
import json
import sys
import time
from unittest import mock

import edges
from harness import HOST, fit, model
from pages import Source


def outcome(module, name, *args):
    """Return what a call gave, the kind of its error, and the calls it made to the host."""
    HOST.calls.clear()
    try:
        result = getattr(module, name)(*args)
    except (TypeError, ValueError, OverflowError, LookupError) as error:
        result = type(error)
    except AttributeError:
        if module is fit:
            raise
        result = TypeError  # what a value of another type is to the plain model
    return result, list(HOST.calls)


def same(a, b):
    """Tell whether two results are equal, key order and every type included."""
    if type(a) is not type(b):
        return False
    if isinstance(a, dict):
        return list(a) == list(b) and all(same(a[key], b[key]) for key in a)
    if isinstance(a, (list, tuple)):
        return len(a) == len(b) and all(map(same, a, b))
    return a is b or a == b


def split_norms(calls):
    """Return the calls to _norm, and the others."""
    norms = [call for call in calls if call[0] == "norm"]
    return norms, [call for call in calls if call[0] != "norm"]


def agree(name, *args, agent=False):
    """Call both sides and compare; return the result."""
    mine, my_calls = outcome(fit, name, *args)
    plain, plain_calls = outcome(model, name, *args)
    assert same(mine, plain), f"{name}: {mine!r}\nis not {plain!r}"
    if agent:  # which asks for a path once, where the plain model asks at every candidate
        my_norms, my_calls = split_norms(my_calls)
        plain_norms, plain_calls = split_norms(plain_calls)
        assert len(my_norms) == len(set(my_norms)), f"{name}: asked twice: {my_norms}"
        odd = set(my_norms) ^ set(plain_norms)
        assert not odd, f"{name}: asked by one side alone: {odd}"
    assert my_calls == plain_calls, f"{name}: {my_calls}\nis not {plain_calls}"
    return mine


def size_of(blocks, count):
    """Return a size for `_fit_prose` that has nothing to do with an answer, and keep the call."""
    HOST.calls.append(("size", blocks, count))
    return len(json.dumps([block.text for block in blocks])) + 300 * count


def both_paths(given, parts, tokens):
    """Compare both paths on one page."""
    answer = agree("_fit_page_context", given, parts, tokens, agent=True)
    made = agree("_assemble_grounding", parts, tokens)
    explained = agree("explain_page_context", given, parts, tokens, agent=True)
    assert_same_result(explained, answer)
    explained = agree("explain_grounding", parts, tokens)
    if isinstance(explained, tuple):  # else one of its two estimates more has failed
        assert_same_result(explained, made)


def assert_same_result(explained, result):
    """See that an explained call gave the usual result, and a report that JSON can hold."""
    if isinstance(explained, tuple):
        json.dumps(explained[1], allow_nan=False)
        explained = explained[0]
    assert same(explained, result), f"{explained!r}\nis not {result!r}"


def one_page(seed, junk, scale=1.0):
    """Compare everything on one page."""
    source = Source(seed, junk, scale)
    source.host()
    parts, answer, tokens = source.parts(), source.answer(), source.tokens()
    before = None if junk else copy.deepcopy((parts, answer))
    both_paths(answer, parts, tokens)
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
            assert block.label() == model.label(block)
    if not junk:
        agree("_json_size", source.value(6))
        agree("_assemble_blocks", [text for text, _ in parts.blocks], tokens)
        assert same(parts.seeds, model.part_seeds(parts))
        assert (parts, answer) == before, "an input was changed"


@contextlib.contextmanager
def watched(options):
    """Watch the comparisons of the plain model; say how to run again what fails in here."""
    watch = edges.Watch()
    try:
        with mock.patch.object(model, "at_most", watch):
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

            def gaps(page):
                watch.gaps.clear()
                both_paths(*page.build())
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
        return count_references(options.pages)
    started = time.perf_counter()
    met = run_edges(options.edges, options.first)
    missed = edges.missed(met, edges.SOUGHT)
    assert options.edges < 20 or not missed, f"edges that were sought and never met: {missed}"
    rarest = min(met.values(), default=0)
    met += run(options.pages, options.first)
    missed = edges.missed(met)
    assert options.edges < 20 or options.pages < 500 or not missed, f"edges never met: {missed}"
    print(f"{options.pages} random pages and {options.edges} that were moved to every edge: alike")
    print(f"rarest of the edges: {rarest} times, {time.perf_counter() - started:.1f} s")


if __name__ == "__main__":
    main()
