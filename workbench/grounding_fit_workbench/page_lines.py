"""A page as one line of JSON, and back: its fit and its report are the same on both sides."""

from __future__ import annotations

import json
import re
from collections.abc import Iterable, Iterator, Mapping
from dataclasses import dataclass, replace
from typing import Any

from grounding_fit_workbench.module import fit

SURROGATES = re.compile("[\ud800-\udbff][\udc00-\udfff]")  # JSON reads the two as one character
CONTAINERS = (list, tuple, dict)
READ_AS_TEXT = ("fqn", "kind", "file", "signature", "docstring")  # of a record, whatever they hold
PAGE = {"name": str, "page_type": str, "budget": int, "answer": dict, "prose": list}
PAGE |= {"blocks": list, "files": list, "code_floor": float, "policy": dict}
FACT = {"text": str, "seeds": list, "name": str, "key": str}
POLICY = {"readme_chars": int, "first": list, "shares": dict, "document_chars": int}
KINDS = {dict: "an object", list: "an array", str: "a string", float: "a number", int: "an integer"}


@dataclass(frozen=True)
class Page:
    """A page as a host gives it to the fit."""

    name: str
    page_type: str
    answer: dict[str, Any]
    parts: fit.GroundingParts
    budget: int  # tokens

    def with_parts(self, **changes: Any) -> Page:
        """Return the page with other fields of its parts."""
        fields = {field: getattr(self.parts, field) for field in self.parts.__match_args__}
        return replace(self, parts=fit.GroundingParts(**{**fields, **changes}))


# --- to a line ---


class NoForm(Exception):
    """A value without a JSON form: the error to raise, and the place, told from the inside out."""

    def __init__(self, error: type[Exception], what: str) -> None:
        self.error = error
        self.what = what
        self.place = ""


def require_scalar(value: object) -> None:
    """Raise NoForm for what is no container and has no JSON form either."""
    if isinstance(value, str):
        if not value.isascii() and SURROGATES.search(value):
            raise NoForm(ValueError, "a pair of surrogates, which JSON reads as one character")
    elif isinstance(value, int):
        try:
            int.__repr__(value)
        except ValueError as error:  # too many digits for this interpreter
            raise NoForm(ValueError, str(error)) from None
    elif not isinstance(value, float) and value is not None:
        raise NoForm(TypeError, f"expected a JSON value, got {type(value).__name__}")


def require_form(value: object) -> None:
    """Raise NoForm where a value cannot be written as JSON and read back as the same."""
    if not isinstance(value, CONTAINERS):
        require_scalar(value)
        return
    pairs: Iterable[tuple[object, object]]
    pairs = value.items() if isinstance(value, dict) else enumerate(value)
    for key, item in pairs:
        if isinstance(value, dict) and not isinstance(key, str):
            raise NoForm(TypeError, f"expected string keys, got {key!r}")
        try:
            require_scalar(key)
            require_form(item)
        except NoForm as error:
            error.place = f"[{key!r}]{error.place}"
            raise


def require_text_form(record: object, keys: Iterable[str]) -> None:
    """Raise NoForm where a fit would write an array or object as text, and other than as read."""
    if not isinstance(record, dict):
        return
    for key in keys:
        value = record.get(key)
        if isinstance(value, CONTAINERS) and str(value) != str(json.loads(json.dumps(value))):
            error = NoForm(TypeError, f"{type(value).__name__} where a fit reads a text")
            error.place = f"[{key!r}]"
            raise error


def require_kinds(page: Page) -> None:
    """Raise TypeError for an argument that is of another type altogether."""
    for field in ("name", "page_type", "budget", "answer"):
        value = getattr(page, field)
        if not isinstance(value, PAGE[field]):
            wanted = KINDS[PAGE[field]]
            raise TypeError(f"save_page(): {field}: expected {wanted}, got {type(value).__name__}")
    if not isinstance(page.parts, fit.GroundingParts):
        kind = type(page.parts).__name__
        raise TypeError(f"save_page(): parts: expected a GroundingParts, got {kind}")
    for index, block in enumerate(page.parts.prose):
        if not isinstance(block, fit.FactBlock):
            kind = type(block).__name__
            raise TypeError(f"save_page(): parts.prose[{index}]: expected a FactBlock, got {kind}")
    for path in page.parts.files:
        if not isinstance(path, str):
            raise TypeError(f"save_page(): parts.files: expected strings, got {path!r}")


def placed_values(page: Page) -> Iterator[tuple[str, object]]:
    """Yield all that is written of a page, each with its place among the arguments."""
    yield from [("name", page.name), ("page_type", page.page_type), ("budget", page.budget)]
    yield "answer", page.answer
    for index, block in enumerate(page.parts.prose):
        for field in FACT:
            yield f"parts.prose[{index}].{field}", getattr(block, field)
    yield "parts.blocks", page.parts.blocks
    yield "parts.files", list(page.parts.files)
    yield "parts.code_floor", page.parts.code_floor
    for field, value in policy_fields(page.parts.budget).items():
        yield f"parts.budget.{field}", value


def policy_fields(policy: fit.SectionBudget) -> dict[str, Any]:
    """Return the fields of a policy; shares may be a read-only view, which is no JSON value."""
    fields = {field: getattr(policy, field) for field in POLICY}
    return {**fields, "shares": dict(policy.shares)}


def require_page_form(page: Page) -> None:
    """Raise TypeError or ValueError at the place of the first value that has no JSON form."""
    place = ""
    try:
        for here, value in placed_values(page):
            place = here
            require_form(value)
        place = "answer"
        require_text_form(page.answer, ["page_id"])
        for index, pair in enumerate(page.parts.blocks):
            place = f"parts.blocks[{index}][1]"
            require_text_form(pair[-1] if pair else None, READ_AS_TEXT)
    except NoForm as error:
        raise error.error(f"save_page(): {place}{error.place}: {error.what}") from None
    except RecursionError:
        raise RecursionError(f"save_page(): {place}: nested too deep, or in a cycle") from None


def line_of(page: Page) -> str:
    """Return a page as a line of ASCII, without its end; refuse what has no JSON form."""
    require_kinds(page)
    require_page_form(page)
    line = {field: getattr(page, field) for field in ("name", "page_type", "budget", "answer")}
    line["prose"] = [dict(zip(FACT, block, strict=True)) for block in page.parts.prose]
    line["blocks"] = page.parts.blocks
    line["files"] = sorted(page.parts.files)
    line["code_floor"] = page.parts.code_floor
    line["policy"] = policy_fields(page.parts.budget)
    return json.dumps(line)


# --- from a line ---


def kind_of(value: object) -> str:
    """Return what a value of JSON is called."""
    if value is None or isinstance(value, bool):
        return json.dumps(value)
    return next(word for kind, word in KINDS.items() if isinstance(value, kind))


def fields_of(value: object, fields: Mapping[str, type], place: str = "") -> dict[str, Any]:
    """Return the fields of an object; raise ValueError where one is absent or of another kind."""
    if not isinstance(value, dict):
        raise ValueError(f"{place or 'line'}: expected an object, got {kind_of(value)}")
    for field, kind in fields.items():
        where = f"{place}.{field}" if place else field
        if field not in value:
            raise ValueError(f"{where}: expected {KINDS[kind]}, and it is not there")
        is_one = isinstance(value[field], (int, float) if kind is float else kind)
        if not is_one:
            raise ValueError(f"{where}: expected {KINDS[kind]}, got {kind_of(value[field])}")
    return {field: value[field] for field in fields}


def page_of(line: bytes | str) -> Page:
    """Return the page of a line; raise ValueError that says what was expected, and where."""
    try:
        read = json.loads(line)
    except (ValueError, RecursionError) as error:
        raise ValueError(f"expected an object of JSON: {error}") from None
    page = fields_of(read, PAGE)
    policy = fit.SectionBudget(**fields_of(page["policy"], POLICY, "policy"))
    prose = [
        fit.FactBlock(**fields_of(block, FACT, f"prose[{index}]"))
        for index, block in enumerate(page["prose"])
    ]
    for index, path in enumerate(page["files"]):
        if not isinstance(path, str):
            raise ValueError(f"files[{index}]: expected a string, got {kind_of(path)}")
    files = set(page["files"])
    parts = fit.GroundingParts(prose, page["blocks"], files, page["code_floor"], policy)
    return Page(page["name"], page["page_type"], page["answer"], parts, page["budget"])
