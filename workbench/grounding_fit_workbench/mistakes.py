"""Wrong values that a page would meet one day: what a path refuses, and what nobody means.

A path reads only what it needs, so a wrong value may go unnoticed until a page is large enough.
Each value is put into a small page of its own here, on which the path does read it; what is wrong
with it is what the module says of that page. Then it is mended and asked again, for what else is
wrong.
"""

from __future__ import annotations

import ast
import re
from collections.abc import Callable, Iterator
from dataclasses import dataclass
from functools import partial
from typing import Any

from grounding_fit_workbench.module import fit
from grounding_fit_workbench.trials import always_kept

CAPPED = {"page_id": "", "grounding": "g" * 40_000}  # an answer that has to be cut
SAID = re.compile(r"\w+\(\): (?:(.*?): )?(expected .*|containers nested .*)", re.DOTALL)
STEP = re.compile(r"""\[(\d+|'(?:[^'\\]|\\.)*'|"(?:[^"\\]|\\.)*")\]""")
MENDED = {"a string": "", "an object": {}, "a pair": ("", {}), "a float": 0}  # as errors call it


@dataclass(frozen=True)
class Problem:
    """A place of the arguments, and what is wrong there."""

    place: str
    what: str
    refused: bool  # by some path on some page; else allowed, but surely not meant

    def __str__(self) -> str:
        return f"{self.place}: {self.what}"


def problems(answer: object, parts: object) -> list[Problem]:
    """Return what is wrong with the arguments that a page is fitted with, nothing when all is well.

    For a host's own tests, which assert that `problems(answer, parts)` is empty.
    """
    if not isinstance(parts, fit.GroundingParts):
        what = f"expected a GroundingParts of this module, got {type(parts).__name__}"
        return [Problem("parts", what, True)]
    refused = [
        *answer_problems(answer),
        *prose_problems(parts),
        *code_problems(parts),
        *policy_problems(parts),
    ]
    places = {problem.place for problem in refused}
    unmeant = [problem for problem in not_meant(parts) if problem.place not in places]
    return [*dict.fromkeys(refused), *unmeant]


# --- what the module says ---


def said(call: Callable[[], object]) -> tuple[str, str] | None:
    """Return where the module refuses a value, if it does, and with which words."""
    try:
        call()
    except KeyError as error:
        if error.args == ("page_id",):
            return (
                "result['page_id']",
                "expected beside a prior_markdown, which a note tells to read",
            )
        return "", f"KeyError: {error}"
    except (
        Exception
    ) as error:  # the host's utilities are asked about it too, and may raise anything
        told = SAID.fullmatch(str(error))
        return (told[1] or "", told[2]) if told else ("", f"{type(error).__name__}: {error}")
    return None


def mended(value: Any, steps: list[Any], words: str) -> Any:
    """Return a value with what was refused in it taken out, or exchanged for what was expected."""
    if steps:
        copy: Any = dict(value) if isinstance(value, dict) else list(value)
        inner = copy.get(steps[0]) if isinstance(copy, dict) else copy[steps[0]]
        copy[steps[0]] = mended(inner, steps[1:], words)
        return copy
    if "string keys" in words:
        return {key: item for key, item in value.items() if isinstance(key, str)}
    return next((good for kind, good in MENDED.items() if f"expected {kind}" in words), None)


def refusals(
    value: object, place: str, called: str, call: Callable[[Any], object]
) -> Iterator[Problem]:
    """Yield each place of a value that a call refuses, in which the value is `called` so."""
    before = None
    while told := said(partial(call, value)):
        if told[0] == before:
            return  # and it cannot be mended
        before = told[0]
        if not told[0].startswith(called):
            yield Problem(place, told[1], True)
            return
        inner = told[0].removeprefix(called)
        yield Problem(place + inner, told[1], True)
        value = mended(value, [ast.literal_eval(step) for step in STEP.findall(inner)], told[1])


def small(**fields: Any) -> fit.GroundingParts:
    """Return the parts of a page that has nothing but these."""
    whole: dict[str, Any] = {"prose": (), "blocks": (), "files": set(), **fields}
    return fit.GroundingParts(**whole)


def cut(answer: Any, **fields: Any) -> None:
    """Fit an answer that has to be cut, with the parts of a small page."""
    fit.explain_page_context(answer, small(**fields), 0)


# --- the arguments, each on its small page ---


def answer_problems(answer: object) -> Iterator[Problem]:
    """Yield what is refused of an answer."""
    if not isinstance(answer, dict):
        yield from refusals(answer, "answer", "result", cut)
        return
    yield from refusals(answer, "answer", "value", fit._json_size)
    read = {key: answer[key] for key in ("prior_markdown", "page_id") if key in answer}
    whole = {"grounding": CAPPED["grounding"]}
    yield from refusals(read, "answer", "result", lambda read: cut({**read, **whole}))


def prose_problems(parts: fit.GroundingParts) -> Iterator[Problem]:
    """Yield what is refused of fact blocks and their files."""
    for index, block in enumerate(parts.prose):
        place = f"parts.prose[{index}]"
        if not isinstance(block, fit.FactBlock):
            yield from refusals(
                block, place, "parts.prose[0]", lambda one: cut(CAPPED, prose=[one])
            )
            continue
        yield from refusals(
            block.seeds,
            f"{place}.seeds",
            "parts.prose[0].seeds",
            lambda seeds: cut(CAPPED, prose=[fit.FactBlock("", seeds)]),
        )
    for file in parts.files:
        files = {file}
        yield from refusals(
            files, "parts.files", "parts.files", lambda files: assembled(files=files or set())
        )


def assembled(**fields: Any) -> None:
    """Fit a small page on the API path."""
    fit._assemble_grounding(small(**fields), 0)


def code_problems(parts: fit.GroundingParts) -> Iterator[Problem]:
    """Yield what is refused of symbol blocks, whole or listed."""
    for index, pair in enumerate(parts.blocks):
        place = f"parts.blocks[{index}]"
        yield from refusals(pair, place, "parts.blocks[0]", lambda pair: assembled(blocks=[pair]))
        record = pair[1] if isinstance(pair, (list, tuple)) and len(pair) == 2 else None
        if isinstance(record, dict):
            yield from refusals(record, f"{place}[1]", "sym", fit._listed)


def policy_problems(parts: fit.GroundingParts) -> Iterator[Problem]:
    """Yield what is refused of a policy and of a code floor."""
    floor = "parts.code_floor"
    yield from refusals(
        parts.code_floor, floor, floor, lambda one: cut(CAPPED, code_floor=one or 0)
    )
    first = "parts.budget.first"
    yield from refusals(
        parts.budget.first,
        first,
        first,
        lambda first: cut(CAPPED, budget=fit.SectionBudget(first=first)),
    )
    for kind, share in parts.budget.shares.items():
        if not isinstance(kind, str):
            continue  # which no block has
        place = f"parts.budget.shares[{kind!r}]"
        yield from refusals(share, place, place, partial(cut_with_share, kind))


def cut_with_share(kind: str, share: Any) -> None:
    """Fit a small page with a block of a kind that has a share."""
    cut(CAPPED, prose=[fit.FactBlock("", key=kind)], budget=fit.SectionBudget(shares={kind: share}))


# --- what is allowed, and surely not meant ---


def not_meant(parts: fit.GroundingParts) -> Iterator[Problem]:
    """Yield what no path refuses, and what yet does other than its writer thinks."""
    fractions: dict[str, Any] = {"parts.code_floor": parts.code_floor}
    for kind, share in parts.budget.shares.items():
        place = f"parts.budget.shares[{kind!r}]"
        fractions[place] = share
        if not isinstance(kind, str):
            yield Problem(place, "expected a str for a key, as blocks have", False)
    for place, fraction in fractions.items():
        if not isinstance(fraction, (int, float)) or not 0 <= fraction <= 1:
            yield Problem(
                place, f"expected a fraction of the room, from 0 to 1, got {fraction!r}", False
            )
    before = ""
    for index, block in enumerate(parts.prose):
        if not isinstance(block, fit.FactBlock):
            continue
        place = f"parts.prose[{index}]"
        if not block.name and not block.text.startswith("#"):
            what = "expected a name, or a heading as its first line, for a note to name it by"
            yield Problem(f"{place}.name", what, False)
        if not always_kept(block, parts.budget):
            before = before or block.label()
        elif before:
            what = f"expected before {before}, which may take its room: this block always stays"
            yield Problem(place, what, False)
