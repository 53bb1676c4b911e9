"""Measures what the bench tells, a table at a time. Times are in µs where nothing else is said."""

import json
import pickle
import sys
from functools import partial
from unittest import mock

import grounding_fit
import memory
import pages
from calls import Page
from examples import fit_many
from pages import Library
from sides import Sides
from table import Cell, Table
from timing import clock

WIDEST = {1: ("é", "latin-1"), 2: ("—", "utf-16-le"), 4: ("😀", "utf-32-le")}
SCANNED = [(2, size) for size in (24, 200, 2_000, 40_000, 1_000_000)]  # bytes of a character, and
SCANNED += [(width, size) for width in (1, 4) for size in (200, 40_000)]  # how many characters
Ratios = dict[tuple, float]  # by what was measured: how often the module's time goes into the other


def kept(page: Page, answer: dict) -> list[Cell]:
    """Return what an answer keeps of its page; fail when that is not what the page is for."""
    bodies = sum(text in answer["grounding"] for text, _ in page.parts.blocks)
    facts = sum(block.text in answer["grounding"] for block in page.parts.prose)
    cut = 0 < bodies < len(page.symbols) and 0 < facts < len(page.parts.prose)
    as_meant = cut
    if len(page.symbols) == pages.FITS:
        as_meant = answer is page.answer
    if not as_meant:
        raise SystemExit(f"{page.name}: {bodies} bodies and {facts} fact blocks stay")
    sizes = [len(json.dumps(each, ensure_ascii=False)) for each in (page.answer, answer)]
    return [page.name, *sizes, bodies, facts]


def answers(sides: Sides) -> Table:
    """Say what the answers keep, once every result of the module is the plain model's too."""
    rows = []
    for page in sides.pages:
        results = {name: sides.agreed(name, page) for name in sides.operations}
        rows.append(kept(page, results["_fit_page_context"]))
    return Table(
        f"Answers cut with a budget of {sides.budget:,}, host {sides.host}",
        "What the pages are: both sides give exactly these answers, or the bench fails. The "
        "host in Python counts four code points as a token, the one built in a single one.",
        ["symbols/fact blocks", "characters given", "given back", "bodies kept", "facts kept"],
        rows,
    )


def times(sides: Sides, seconds: float) -> tuple[Table, Ratios]:
    """Time every operation on every page on both sides by turns."""
    ratios = {}
    rows = []
    for operation in sides.operations:
        for page in sides.pages:
            ours, plain = clock(seconds, *sides.calls(operation, page))
            ratio = ratios[operation, page.name] = plain.median / ours.median
            measured = [1e6 * each for each in (ours.median, ours.least, plain.median, plain.least)]
            least_ratio = plain.least / ours.least
            rows.append([f"`{operation}` {page.name}", *measured, ratio, least_ratio])
    table = Table(
        f"Times in µs, host {sides.host}",
        "Module and plain Python take turns in one process; the ratio is of the medians.",
        ["operation", "module, median", "least", "plain, median", "least", "ratio", "of the least"],
        rows,
    )
    return table, ratios


def one_core(sides: Sides, seconds: float) -> Table:
    """Time both paths beside the pickling of their whole page."""

    def pickled(page: Page) -> object:
        return pickle.loads(pickle.dumps((page.answer, page.parts), pickle.HIGHEST_PROTOCOL))

    rows = []
    for page in sides.pages:
        fit, assemble = (sides.calls(name, page)[0] for name in sides.operations[:2])
        with mock.patch.dict(sys.modules, grounding_fit=sides.module):
            size = len(pickle.dumps((page.answer, page.parts), pickle.HIGHEST_PROTOCOL))
            timings = clock(seconds, fit, assemble, partial(pickled, page))
        agent, api, sent = (timing.median for timing in timings)
        both = agent + api
        rows.append(
            [page.name, 1e6 * agent, 1e6 * both, int(1 / both), size, 1e6 * sent, sent / agent]
        )
    return Table(
        f"Pages a second of one core, host {sides.host}",
        "Beside fitting a page: what it costs to pickle and unpickle its answer and its parts, as "
        "sending them to another process would.",
        [
            "symbols/fact blocks",
            "agent path",
            "both paths",
            "pages a second",
            "bytes pickled",
            "pickled and back",
            "times the agent path",
        ],
        rows,
    )


def many_workers() -> Table:
    """Make and fit a page for each package of the library in one process, and in two."""
    packages = {name: pages.LIBRARY / name for name in pages.PACKAGES}
    jobs = {
        name: fit_many.Job(str(folder), "module", pages.TOKENS, 180)
        for name, folder in packages.items()
    }
    rows = []
    for workers in (1, 2):
        with fit_many.process_pool(workers) as executor:
            done = fit_many.run(executor, jobs)
        if done.failed:
            raise SystemExit(f"pages that failed: {done.failed}")
        sizes = [total // len(jobs) for total in (done.bytes_sent, done.bytes_back)]
        rows.append([str(workers), len(jobs), done.pages_a_second, *sizes])
    return Table(
        "Pages made and fitted by processes",
        "`examples/fit_many.py` on the packages that the other pages are made of. Reading the code "
        "takes most of the time; the start of the processes is counted too.",
        ["processes", "pages", "pages a second", "bytes sent a page", "bytes back a page"],
        rows,
    )


def scan(code: str, width: int, length: int, seconds: float) -> list[float]:
    """Return the ns that a text's measure, and a search of all its memory, take above nothing."""
    widest, encoding = WIDEST[width]
    size = grounding_fit._json_size
    text = widest + (code * (length // len(code) + 1))[: length - 1]
    memory_of_text = text.encode(encoding)
    absent = b"\xff"
    if size(text) != len(json.dumps(text, ensure_ascii=False)) or absent in memory_of_text:
        raise SystemExit(f"a text of {length} characters is not measured as its JSON text")
    calls = [(size, text), (size, ""), (memory_of_text.find, absent), (b"".find, absent)]
    measured = clock(seconds, *(partial(*call) for call in calls))
    sized, sized_nothing, found, found_nothing = (1e9 * timing.median for timing in measured)
    return [sized - sized_nothing, found - found_nothing]


def scans(library: Library, seconds: float) -> tuple[Table, Ratios]:
    """Measure texts of code in each width of a character."""
    code = "\n\n".join(symbol["snippet"] for symbol in library.symbols)
    code = code[code.index('\n    """') :]  # starts with escapes
    code = code.encode("ascii", "replace").decode()
    measured = {key: scan(code, *key, seconds) for key in SCANNED}
    table = Table(
        "Text scan in ns",
        "Both above the same call on nothing; `bytes.find` seeks an absent byte in as much memory.",
        ["characters", "bytes of each", "`_json_size`", "`bytes.find`", "ratio"],
        [
            [f"{length:,}", width, sized, found, sized / found]
            for (width, length), (sized, found) in measured.items()
        ],
    )
    return table, {key: sized / found for key, (sized, found) in measured.items()}


def peaks() -> tuple[Table, float]:
    """Measure peak memory; return the highest peak too, in times the answer."""
    measured = memory.peaks()
    ratios = [peak.module / peak.texts for peak in measured]
    table = Table(
        "Peak memory of `_fit_page_context` in bytes",
        "What a call adds at its peak, beyond the one text of all facts that the host is given.",
        ["symbols/fact blocks", "texts of the answer", "module", "plain", "module/answer"],
        [
            [peak.page, peak.texts, peak.module, peak.plain, ratio]
            for peak, ratio in zip(measured, ratios, strict=True)
        ],
    )
    return table, max(ratios)
