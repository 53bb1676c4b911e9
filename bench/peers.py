"""Measures the module beside what others would do the same work with."""

import json
import shutil
import subprocess
from collections.abc import Callable
from functools import partial
from pathlib import Path

from calls import Page
from sides import Sides
from table import Table
from timing import clock

try:
    import msgspec
    import orjson
except ImportError:
    msgspec = orjson = None

PATHS = ("_fit_page_context", "_assemble_grounding")
SCRIPT = Path(__file__).with_name("peer.js")


def as_json(page: Page, headings: tuple[str, ...]) -> dict:
    """Return a page as the script reads it."""
    parts, policy = page.parts, page.parts.budget
    fields = ("text", "seeds", "name", "key")
    return {
        "answer": page.answer,
        "parts": {
            "prose": [{name: getattr(block, name) for name in fields} for block in parts.prose],
            "blocks": parts.blocks,
            "files": sorted(parts.files),
            "code_floor": parts.code_floor,
            "policy": {"first": policy.first, "shares": dict(policy.shares)},
            "always_kept": headings,
        },
    }


def node(given: str, ask: object) -> list[dict]:
    """Return what the script says of the given pages, by operation."""
    command = [shutil.which("node"), str(SCRIPT), str(ask)]
    said = subprocess.run(command, input=given, check=True, stdout=subprocess.PIPE, text=True)
    return json.loads(said.stdout)


def in_javascript(sides: Sides, seconds: float) -> Table | str:
    """Time both paths beside the same rules by hand in JavaScript, once their results agree."""
    if not shutil.which("node"):
        return "JavaScript by hand: there is no Node."
    headings = sides.module._ALWAYS_KEPT
    made = [as_json(page, headings) for page in sides.pages]
    given = json.dumps({"budget": sides.budget, "pages": made})
    for page, results in zip(sides.pages, node(given, "answers"), strict=True):
        for path in PATHS:
            expected = sides.calls(path, page)[0]()
            if json.dumps(results[path]) != json.dumps(expected):
                raise SystemExit(f"{path}, {page.name}: JavaScript makes something else")
    rows = []
    for page, theirs in zip(sides.pages, node(given, seconds), strict=True):
        for path in PATHS:
            [timing] = clock(seconds, sides.calls(path, page)[0])
            ours = 1e6 * timing.median
            rows.append([f"`{path}` {page.name}", ours, theirs[path], theirs[path] / ours])
    version = subprocess.run(["node", "--version"], check=True, stdout=subprocess.PIPE, text=True)
    return Table(
        f"Both paths beside JavaScript by hand, in µs, host {sides.host}",
        f"`bench/peer.js` follows the same rules under Node {version.stdout.strip()}: it measures "
        "each piece once, and bounds it by its length first. Its results are equal, or the bench "
        "fails. It checks no types, and its host's utilities are compiled along with it. Each side "
        "is timed in a process of its own, warm; medians.",
        ["operation", "module", "JavaScript", "ratio"],
        sorted(rows, key=lambda row: row[0].partition(" ")[0], reverse=True),
    )


def encoders(page: Page) -> dict[str, Callable[[], str | bytes]]:
    """Return the encoders whose text could be counted, by name."""
    return {
        "json": partial(json.dumps, page.answer, ensure_ascii=False),
        "orjson": partial(orjson.dumps, page.answer),
        "msgspec": partial(msgspec.json.encode, page.answer),
    }


def sizes(sides: Sides, seconds: float) -> Table:
    """Time `_json_size` beside encoders whose text is made to be counted."""
    rows = []
    for page in sides.pages:
        ours = sides.calls("_json_size", page)[0]
        others = encoders(page)
        if len(others["json"]()) != ours():
            raise SystemExit(f"{page.name}: the standard library counts other characters")
        own, *theirs = [timing.median for timing in clock(seconds, ours, *others.values())]
        times = [1e6 * each for each in (own, *theirs)]
        ratios = [each / own for each in theirs]
        rows.append([page.name, *times, *ratios, ours(), len(others["orjson"]())])
    return Table(
        "The size of an answer beside encoders, in µs",
        "`_json_size` counts characters of the text that `json.dumps(answer, ensure_ascii=False)` "
        f"makes. `orjson.dumps` ({orjson.__version__}) and `msgspec.json.encode` "
        f"({msgspec.__version__}) make UTF-8 without blanks between items: its length is in "
        "bytes, and another one.",
        [
            "symbols/fact blocks",
            "`_json_size`",
            *(f"`{name}`" for name in others),
            *(f"`{name}` ratio" for name in others),
            "characters",
            "bytes of UTF-8",
        ],
        rows,
    )


def peers(in_python: Sides, built_in: Sides, seconds: float) -> list[Table | str]:
    """Return what is told of others that do the same work."""
    return [in_javascript(built_in, seconds), sizes(in_python, seconds)]
