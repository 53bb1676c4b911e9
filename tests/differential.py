"""Holds the module against the plain model on random pages: results, errors, calls to the host."""

import argparse
import collections
import copy
import gc
import json
import sys
import time

from harness import HOST, fit, model
from pages import Source

# What a run must have seen of the agent path.
BRANCHES = ["fits", "fits without the prior markdown", "bodies with their window", "only lines"]
BRANCHES += ["nothing listed", "note takes bodies off", "note takes lines off", "over the cap"]
BRANCHES += ["an error"]


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


def branches(answer, result, passes):
    """Yield the names of the branches that a call of the agent path took."""
    if isinstance(result, type):
        yield "an error"
    elif result is answer:
        yield "fits"
    elif "Ask for code" not in result["truncated"]:
        yield "fits without the prior markdown"
    else:
        bodies = passes[0][0]
        count, listed, _ = passes[-1]
        yield "bodies with their window" if count else "only lines" if listed else "nothing listed"
        if len(passes) > 1 and bodies:
            yield "note takes bodies off"
        if len(passes) > 1 and not count:
            yield "note takes lines off"
        if result["truncated"].endswith("alone exceed it."):
            yield "over the cap"


def fit_both(answer, parts, tokens, seen):
    """Compare the agent path on one page, and count the branches that it takes."""
    passes = []
    count_cut = model._code_cut

    def recorded(*args):
        passes.append(args)
        return count_cut(*args)

    model._code_cut = recorded
    try:
        result = agree("_fit_page_context", answer, parts, tokens, agent=True)
    finally:
        model._code_cut = count_cut
    seen.update(branches(answer, result, passes))


def size_of(blocks, count):
    """Return a size for `_fit_prose` that has nothing to do with an answer."""
    return len(json.dumps([block.text for block in blocks])) + 300 * count


def one_page(seed, junk, seen, scale=1.0):
    """Compare everything on one page."""
    source = Source(seed, junk, scale)
    source.host()
    parts, answer, tokens = source.parts(), source.answer(), source.tokens()
    before = None if junk else copy.deepcopy((parts, answer))
    fit_both(answer, parts, tokens, seen)
    agree("_assemble_grounding", parts, tokens)
    agree("_blocks_within", parts, tokens)
    agree("_fit_prose", parts, size_of, 20)
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
        assert same(parts.seeds, model.part_seeds(parts))
        assert (parts, answer) == before, "an input was changed"


def run(pages, first=0, need_all=True):
    """Compare that many pages, a third of them with junk in them; return the branches seen."""
    seen = collections.Counter()
    for seed in range(first, first + pages):
        try:
            one_page(seed, [0.0, 0.0, 0.01][seed % 3], seen)
        except BaseException:
            print(f"differential: seed {seed}: python differential.py --first {seed} --pages 1")
            raise
    missed = [name for name in BRANCHES if not seen[name]]
    assert not (need_all and missed), f"never reached: {missed}"
    return seen


def count_references(pages):
    """Run the same pages again and again on a debug interpreter: its count of all references,
    which a call that keeps or gives away one too many would move, must stay level."""
    totals = []
    for _ in range(4):
        run(pages, need_all=False)
        HOST.calls.clear()
        gc.collect()
        totals.append(sys.gettotalrefcount())
    print(f"references after each round of {pages} pages: {totals}")
    assert abs(totals[-1] - totals[-2]) < pages // 10, totals


if __name__ == "__main__":
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--pages", type=int, default=500)
    parser.add_argument("--first", type=int, default=0)
    parser.add_argument("--count-references", action="store_true")
    options = parser.parse_args()
    if options.count_references:
        sys.exit(count_references(options.pages))
    started = time.perf_counter()
    reached = run(options.pages, options.first, need_all=options.pages >= 500)
    print(f"{options.pages} pages alike in {time.perf_counter() - started:.1f} s: {dict(reached)}")
