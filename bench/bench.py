"""Time `grounding_fit` beside the same rules in plain Python, on pages of real code.

The pages are made of the interpreter's own library, as the example makes them of a repository.
Both sides take the same pages by turns in one process and must give the same results: the run
fails when they do not. Whether a target is met is told, not enforced. With the built module's
folder, the project root and the tests' folder on PYTHONPATH:

    python bench/bench.py [--quick]
"""

import argparse
import ast
import ctypes
import importlib
import json
import os
import statistics
import subprocess
import sys
import timeit
from collections import namedtuple
from collections.abc import Callable
from functools import partial
from heapq import nlargest
from pathlib import Path
from time import perf_counter
from types import ModuleType
from unittest import mock

from workers import context_builder
from workers.wiki import repo_facts

sys.path.append(str(Path(__file__).resolve().parent.parent / "examples"))
import fit_repository as example  # noqa: E402

PACKAGES = ("asyncio collections concurrent ctypes email html http importlib json logging "
            "multiprocessing unittest urllib wsgiref xml xmlrpc zoneinfo")
SIZES = {12: 6, 40: 12, 120: 25, 400: 60, 1200: 250}  # symbols of a page: its fact blocks
FITS = 12  # symbols of the page whose answer fits; the other answers are cut
TOKENS, CHARS = 8000, 32000  # budgets that keep as many bodies; a token is 4 characters
# The host's utilities without Python in them, so that the module's own share shows:
BUILT_IN = {"estimate_tokens": len, "_truncate_to_tokens": str.ljust, "_norm": str}
WIDEST = {1: ("é", "latin-1"), 2: ("—", "utf-16-le"), 4: ("😀", "utf-32-le")}
SCANNED = [(2, 24), (2, 200), (2, 2_000), (2, 40_000), (2, 1_000_000),  # bytes of a character,
           (1, 200), (1, 40_000), (4, 200), (4, 40_000)]  # characters
SAMPLE, ROUNDS = 0.002, 5  # seconds that a sample takes at least, samples of a call at least
HEAP = {"PYTHONMALLOC": "malloc", "MALLOC_MMAP_MAX_": "0", "MALLOC_TOP_PAD_": "0",
        "MALLOC_TRIM_THRESHOLD_": str(1 << 40)}  # environment in which one heap has everything

Timing = namedtuple("Timing", "median least")
Page = namedtuple("Page", "name symbols answer parts")


def load(utilities: dict[str, Callable]) -> list[ModuleType]:
    """Load the module and the plain model anew, each for itself, over these host utilities."""
    names = ("grounding_fit", "plain_model")
    with mock.patch.dict(vars(context_builder), utilities), \
            mock.patch.dict(vars(repo_facts), utilities), mock.patch.dict(sys.modules):
        for name in names:
            sys.modules.pop(name, None)
        return [importlib.import_module(name) for name in names]


def read_library() -> tuple[list, list[dict], list[tuple]]:
    """Return the code, its symbol records (best first), its longest texts on itself, with seeds."""
    read = [source for name in PACKAGES.split()
            for source in example.read_repository(Path(os.__file__).parent / name)[0]]
    sources, texts = [source for source in read if not source.is_test], []
    for source in sources:
        scopes = [(source.module, source.tree), *example.definitions(source.tree, source.module)]
        for name, scope in scopes:
            said = [ast.get_docstring(node) for node in [scope, *scope.body]
                    if isinstance(node, (ast.Module, ast.ClassDef, ast.FunctionDef))]
            text = "\n\n".join([f"## {name} ({len(said)} texts)", *filter(None, said)])[:4000]
            lines = getattr(scope, "lineno", 1), getattr(scope, "end_lineno", len(source.lines))
            if len(text) >= 200:
                texts.append((text, [example.fit.seed(source.path, *lines)]))
    longest = nlargest(max(SIZES.values()) - 2, texts, key=lambda fields: len(fields[0]))
    return sources, example.symbol_records(sources, max(SIZES)), longest


def make_page(fit: ModuleType, count: int, sources: list, records: list, texts: list) -> Page:
    """Make a page of so many symbols and as many texts as go with them, taken evenly from all."""
    symbols, told = records[:: len(records) // count][:count], SIZES[count] - 2
    files = {symbol["file"] for symbol in symbols}
    cards = [(f"{each.path} ({len(each.lines)} lines)", [(each.path, 1, len(each.lines))])
             for each in sources if each.path in files]
    prose = [example.list_block(fit._ALWAYS_KEPT[0], cards), (fit._ALWAYS_KEPT[1],),
             *sorted(texts[:: len(texts) // told][:told])]
    parts = fit.GroundingParts([fit.FactBlock(*fields) for fields in prose],
                               [(fit.render_symbol(symbol), symbol) for symbol in symbols],
                               files, budget=fit.section_budget("module"))
    answer = example.page_answer("library", "module", sources, parts)
    answer["prior_markdown"] = None if count == FITS else answer["prior_markdown"][:6000]
    return Page(f"{count:,}/{SIZES[count]}", symbols, answer, parts)


def operations(side: ModuleType, page: Page, budget: int) -> dict[str, Callable]:
    return {
        "_fit_page_context": partial(side._fit_page_context, page.answer, page.parts, budget),
        "_assemble_grounding": partial(side._assemble_grounding, page.parts, budget),
        "_json_size": partial(side._json_size, page.answer),
        "render_symbol": lambda: list(map(side.render_symbol, page.symbols)),  # of all symbols
    }


def clock(seconds: float, *calls: Callable) -> list[Timing]:
    """Time the calls by turns, so that noise hits them all alike."""
    timers = [timeit.Timer(call) for call in calls]  # these keep the garbage collector off
    loops = [max(1, int(SAMPLE / min(timer.repeat(3, 1)))) for timer in timers]
    rounds, end = [], perf_counter() + seconds
    while len(rounds) < ROUNDS or perf_counter() < end:
        rounds.append([timer.timeit(loop) / loop for timer, loop in zip(timers, loops)])
    return [Timing(statistics.median(times), min(times)) for times in zip(*rounds)]


def table(caption: str, titles: str, rows: list[list]) -> None:
    print(f"\n### {caption}\n\n| {titles} |\n|:--|{'--:|' * titles.count(' | ')}")
    for name, *cells in rows:
        shown = (each if isinstance(each, str) else f"{each:,}" if isinstance(each, int)
                 else f"{each:,.1f}" for each in cells)
        print(f"| {name} | {' | '.join(shown)} |")


def kept(page: Page, answer: dict) -> list:
    """Return what an answer keeps of its page; fail when that is not what the page is for."""
    code = sum(text in answer["grounding"] for text, _ in page.parts.blocks)
    facts = sum(block.text in answer["grounding"] for block in page.parts.prose)
    cut = 0 < code < len(page.symbols) and 0 < facts < len(page.parts.prose)
    if not (answer is page.answer if len(page.symbols) == FITS else cut):
        raise SystemExit(f"{page.name}: {code} bodies and {facts} fact blocks stay")
    sizes = (len(json.dumps(each, ensure_ascii=False)) for each in (page.answer, answer))
    return [page.name, *sizes, code, facts]


def compare(host: str, utilities: dict, budget: int, library: tuple, seconds: float) -> dict:
    """Print what both sides give and take over one host; return the ratios of their times."""
    sides = load(utilities)
    pages = [make_page(sides[0], count, *library) for count in SIZES]
    ratios, rows, stays = {}, [], []
    for name in operations(sides[0], pages[0], budget):
        for page in pages:
            calls = [operations(side, page, budget)[name] for side in sides]
            result, expected = (call() for call in calls)
            texts = json.dumps(result), json.dumps(expected)  # in which the order of keys shows
            if texts[0] != texts[1]:
                at = len(os.path.commonprefix(texts))
                near = [text[max(0, at - 60):at + 60] for text in texts]
                raise SystemExit(f"{name}, {page.name}: ...{near[0]}... is not ...{near[1]}...")
            if name == "_fit_page_context":
                stays.append(kept(page, result))
            ours, plain = clock(seconds, *calls)
            ratio = ratios[name, page.name] = plain.median / ours.median
            rows.append([f"`{name}` {page.name}", *(1e6 * each for each in (*ours, *plain)),
                         ratio, plain.least / ours.least])
    table(f"Answers cut with a budget of {budget:,}, host {host}",
          "symbols/fact blocks | characters given | given back | bodies kept | facts kept", stays)
    table(f"Times in µs, host {host}",
          "operation | module, median | least | plain, median | least | ratio | of the least", rows)
    cuts = [operations(sides[0], page, budget)["_fit_page_context"] for page in pages]
    small, large = clock(2 * seconds, cuts[-3], cuts[-1])
    return {**ratios, "growth": large.median / small.median}


def scan(code: str, width: int, length: int, seconds: float) -> list[float]:
    """Return the ns that a text's measure, and a search of all its memory, take above nothing."""
    (widest, encoding), size = WIDEST[width], example.fit._json_size
    text = widest + (code * (length // len(code) + 1))[:length - 1]
    memory, absent = text.encode(encoding), b"\xff"
    if size(text) != len(json.dumps(text, ensure_ascii=False)) or absent in memory:
        raise SystemExit(f"a text of {length} characters is not measured as its JSON text")
    calls = [(size, text), (size, ""), (memory.find, absent), (b"".find, absent)]
    times = clock(seconds, *(partial(*call) for call in calls))
    return [1e9 * (whole.median - empty.median) for whole, empty in zip(times[::2], times[1::2])]


def heap_growth(call: Callable) -> tuple[int, object]:
    """Return by how many bytes the heap grows at the peak of a call, and the call's result.

    Under HEAP, all that C++ and the interpreter allocate comes from the one heap that ends at
    `sbrk(0)`, and the end never moves back. Memory freed before could serve the call unseen, so it
    is taken first, from large pieces to small.
    """
    libc = ctypes.CDLL(None)
    libc.sbrk.restype = libc.malloc.restype = ctypes.c_size_t
    libc.sbrk.argtypes, libc.malloc.argtypes = [ctypes.c_ssize_t], [ctypes.c_size_t]
    for size in [*(1 << power for power in range(24, 10, -1)), *range(1040, 8, -16)]:
        end = libc.sbrk(0)
        while libc.sbrk(0) == end:
            libc.malloc(size)
    end = libc.sbrk(0)
    result = call()
    return libc.sbrk(0) - end, result


def peaks() -> list[list]:
    """Return bytes by page: its answer's texts, what its cut adds at the peak on either side.

    The text of all facts, which the host must be given, is not counted. The host holds on to it, so
    that its memory serves nothing else later in the call.
    """
    given, known = [], heap_growth(partial(bytes, 1_000_000))[0]
    if abs(known - 1_000_000) > 8192:  # a page at either end
        raise SystemExit(f"the heap grew by {known} bytes for a million: it tells no peaks")
    sides = load({"estimate_tokens": lambda text: given.append(text) or -(-len(text) // 4)})
    library, rows = read_library(), []
    for page in [make_page(sides[0], count, *library) for count in SIZES if count != FITS]:
        added = []
        for side in sides:
            cut = operations(side, page, TOKENS)["_fit_page_context"]
            cut()  # not counted: what the first call of all sets up
            given.clear()
            growth, answer = heap_growth(cut)
            added.append(growth - max(map(sys.getsizeof, given)))
        texts = [text for text in answer.values() if isinstance(text, str)]
        rows.append([page.name, sum(map(sys.getsizeof, texts)), *added])
    return rows


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__.partition("\n")[0])
    parser.add_argument("--quick", action="store_true", help="fewer repeats, more noise")
    parser.add_argument("--peaks", action="store_true", help=argparse.SUPPRESS)
    args = parser.parse_args()
    if args.peaks:
        return print(json.dumps(peaks()))
    seconds, library = 0.2 if args.quick else 2.0, read_library()
    cpu = Path("/proc/cpuinfo").read_text().partition("model name\t: ")[2].partition("\n")[0]
    print(f"{cpu or 'Unnamed processor'}, {os.cpu_count()} cores, CPython {sys.version.split()[0]}")
    ratios = compare("in Python", {}, TOKENS, library, seconds)
    inner = compare("built in", BUILT_IN, CHARS, library, seconds)

    code = "\n\n".join(symbol["snippet"] for symbol in library[1])
    code = code[code.index('\n    """'):].encode("ascii", "replace").decode()  # starts with escapes
    scans = {key: scan(code, *key, seconds / 2) for key in SCANNED}
    table("Text scan in ns, above the same call on nothing",
          "characters | bytes of each | `_json_size` | `bytes.find` | ratio",
          [[f"{length:,}", width, sized, found, sized / found]
           for (width, length), (sized, found) in scans.items()])

    child = subprocess.run([sys.executable, __file__, "--peaks"], env={**os.environ, **HEAP},
                           check=True, stdout=subprocess.PIPE)
    rows = [[*row, row[2] / row[1]] for row in json.loads(child.stdout)]
    table("Peak memory of `_fit_page_context` beyond the one text of all facts, in bytes",
          "symbols/fact blocks | texts of the answer | module | plain | module/answer", rows)

    def lowest(name: str) -> float:
        return min(ratio for key, ratio in inner.items() if key[0] == name)

    targets = [  # what, its value, target, wanted: the wanted value is on the good side
        ("`_fit_page_context` 120/25", ratios["_fit_page_context", "120/25"], 120, 200),
        ("`_fit_page_context` 400/60", ratios["_fit_page_context", "400/60"], 200, 400),
        ("its growth from 120/25 to 1,200/250", ratios["growth"], 11, 10),
        ("text scan, 40,000 of 2 bytes", scans[2, 40_000][0] / scans[2, 40_000][1], 3, 2),
        ("`_fit_page_context` 12/6, which fits", ratios["_fit_page_context", "12/6"], 20, 35),
        ("`_json_size` 120/25", ratios["_json_size", "120/25"], 40, 60),
        ("`_json_size` 400/60", ratios["_json_size", "400/60"], 40, 60),
        ("text scan, 24 of 2 bytes, in ns", scans[2, 24][0], 30, 15),
        ("`render_symbol`, host built in, lowest", lowest("render_symbol"), 10, 15),
        ("`_assemble_grounding`, host built in, lowest", lowest("_assemble_grounding"), 10, 20),
        ("peak memory, module/answer, highest", max(row[-1] for row in rows), 3, 2),
    ]
    table("Targets", "ratio | measured | target | wanted", [
        [what, value, *(
            f"≥ {limit}: {'met' if value >= limit else 'not met'}" if wanted > target else
            f"≤ {limit}: {'met' if value <= limit else 'not met'}" for limit in (target, wanted))]
        for what, value, target, wanted in targets])


if __name__ == "__main__":
    main()
