"""Fits a page on both paths, and takes each result apart with the module's report of it."""

from __future__ import annotations

from collections.abc import Iterator
from dataclasses import dataclass
from typing import Any

from grounding_fit_workbench.module import fit, tokens_of
from grounding_fit_workbench.page_lines import Page

BLANK_LINE = "\n\n"
QUOTES = 2  # JSON characters around a text, and around the items of a list
Report = dict[str, Any]  # of explain_page_context, or of explain_grounding


@dataclass(frozen=True)
class Piece:
    """A fact block, a body or the listing, as it stands in a grounding; a fact block may be cut."""

    part: str
    index: int  # of its block; of the first symbol listed
    text: str


@dataclass(frozen=True)
class Segment:
    """A length of a bar, in tokens or JSON characters."""

    part: str
    name: str
    size: int


@dataclass(frozen=True)
class Bar:
    """Where the room of one path went, in tokens or JSON characters."""

    title: str
    unit: str
    room: int
    segments: list[Segment]
    reserved: str  # what the end of the room is kept for
    reserve: int

    @property
    def total(self) -> int:
        """What all segments take."""
        return sum(segment.size for segment in self.segments)


@dataclass(frozen=True)
class Fitted:
    """What one path makes of a page, and why."""

    text: str  # the grounding
    report: Report
    pieces: list[Piece]  # in reading order; blank lines join them
    answer: dict[str, Any]  # of the agent path; empty on the other one
    tail: int = 0  # code points of a blank line that a cut has left behind the facts

    def whole(self, part: str, texts: list[str]) -> set[int]:
        """Return which blocks of a part, with these texts, stand whole."""
        pieces = [piece for piece in self.pieces if piece.part == part]
        return {piece.index for piece in pieces if piece.text == texts[piece.index]}

    def fill(self) -> list[int]:
        """Return the code points of facts, bodies, listing and blank lines, of all, and tokens."""
        lengths = dict.fromkeys(("facts", "bodies", "listing"), 0)
        for piece in self.pieces:
            lengths[piece.part] += len(piece.text)
        blank = len(BLANK_LINE) * max(0, len(self.pieces) - 1) + self.tail
        tokens = tokens_of(self.text) if self.answer else self.report["size"]
        return [*lengths.values(), blank, len(self.text), tokens]


def symbol_name(parts: fit.GroundingParts, index: int) -> str:
    """Return the qualified name of a symbol by its rank, from 0."""
    return str(parts.blocks[index][1].get("fqn") or f"symbol {index + 1}")


def code_pieces(parts: fit.GroundingParts, bodies: int, listed: int) -> Iterator[Piece]:
    """Yield the bodies and the listing that this many symbols make."""
    for index, (code, _) in enumerate(parts.blocks[:bodies]):
        yield Piece("bodies", index, code)
    listing = fit._listing([symbol for _, symbol in parts.blocks[bodies : bodies + listed]])
    if listing:
        yield Piece("listing", bodies, listing)


def common_length(one: str, other: str) -> int:
    """Return how many code points two texts have in common from their start on."""
    least, most = 0, min(len(one), len(other))
    while least < most:
        middle = (least + most + 1) // 2
        if one[least:middle] == other[least:middle]:
            least = middle
        else:
            most = middle - 1
    return least


def cut_pieces(parts: fit.GroundingParts, cut: str) -> Iterator[Piece]:
    """Yield the fact blocks that stand in a cut fact text; the last one may be cut."""
    told = [(index, block.text) for index, block in enumerate(parts.prose) if block.text]
    same = common_length(BLANK_LINE.join(text for _, text in told), cut)
    start = 0
    for index, text in told:
        end = start + len(text)
        if start >= same:
            return
        yield Piece("facts", index, cut[start : end if end <= same else None])
        start = end + len(BLANK_LINE)


def fit_api(page: Page) -> Fitted:
    """Fit a page on the API path."""
    parts = page.parts
    (text, *_), told = fit.explain_grounding(parts, page.budget)
    report: Any = told
    symbols = report["symbols"]
    shown = code_pieces(parts, symbols["bodies"], symbols["listed"])
    code = [piece for piece in shown if piece.text]  # an answer shows empty ones, a grounding not
    cut = text
    if code:
        below = BLANK_LINE.join(piece.text for piece in code)
        cut = text.removesuffix(below).removesuffix(BLANK_LINE)
    facts = list(cut_pieces(parts, cut))
    tail = len(cut) - len(BLANK_LINE.join(piece.text for piece in facts))
    return Fitted(text, report, [*facts, *code], {}, tail)


def fit_agent(page: Page) -> Fitted:
    """Fit a page's answer, which may hold all of its blocks, on the agent path."""
    parts = page.parts
    answer, told = fit.explain_page_context(page.answer, parts, page.budget)
    report: Any = told
    kept = [True] * len(parts.prose)
    bodies = len(parts.blocks)
    listed = 0
    if "facts" in report:
        kept = [fact["kept"] for fact in report["facts"]]
        bodies = report["symbols"]["bodies"]
        listed = report["symbols"]["listed"]
    facts = [
        Piece("facts", index, block.text)
        for index, block in enumerate(parts.prose)
        if kept[index] and block.text
    ]
    pieces = [*facts, *code_pieces(parts, bodies, listed)]
    return Fitted(str(answer.get("grounding", "")), report, pieces, answer)


def fact_rows(parts: fit.GroundingParts, report: Report) -> list[Report]:
    """Return what a page report says of each fact block; of an answer that fitted, its sizes."""
    if "facts" in report:
        rows: list[Report] = report["facts"]
        return rows
    return [
        {
            "label": block.label(),
            "key": block.key,
            "verdict": "fits",
            "kept": True,
            "text": fit._json_size(block.text),
            "seeds": fit._json_size(block.seeds),
            "short_by": 0,
        }
        for block in parts.prose
    ]


def text_size(text: str) -> int:
    """Return the JSON characters of a text within its quotes."""
    return fit._json_size(text) - QUOTES


def piece_name(parts: fit.GroundingParts, piece: Piece) -> str:
    """Return how a report names a piece."""
    if piece.part == "facts":
        return parts.prose[piece.index].label()
    return symbol_name(parts, piece.index) if piece.part == "bodies" else "the listing"


def api_segments(parts: fit.GroundingParts, fitted: Fitted) -> list[Segment]:
    """Return what each piece adds to the estimate of the text up to it: facts, listing, bodies."""
    segments = []
    end = 0
    before = tokens_of("")
    last_fact = sum(piece.part == "facts" for piece in fitted.pieces) - 1
    for at, piece in enumerate(fitted.pieces):
        end += len(piece.text) + (fitted.tail if at == last_fact else 0)
        tokens = tokens_of(fitted.text[:end])
        segments.append(Segment(piece.part, piece_name(parts, piece), tokens - before))
        before = tokens
        end += len(BLANK_LINE)
    return sorted(segments, key=lambda each: each.part == "bodies")


def seeds_size(seeds: list[Any]) -> int:
    """Return the JSON characters of seeds and of the commas between them and behind them."""
    return fit._json_size(seeds) - QUOTES + len(", ") if seeds else 0


def agent_segments(parts: fit.GroundingParts, fitted: Fitted) -> list[Segment]:
    """Return what each JSON character of an answer is spent on: bodies last, before them the rest.

    The facts stand so that they end where the room begins that is reserved for code.
    """
    facts = []
    bodies = []
    listing = []
    for piece in fitted.pieces:
        name = piece_name(parts, piece)
        segment = Segment(piece.part, name, text_size(piece.text))
        if piece.part == "listing":
            listing.append(segment)
            continue
        if piece.part == "facts":
            seeds = seeds_size(fit.citable(parts.prose[piece.index].seeds))
            facts += [segment, Segment("seeds", f"the seeds of {name}", seeds)]
        else:
            seeds = seeds_size(fit.symbol_seeds([parts.blocks[piece.index][1]]))
            bodies += [segment, Segment("body seeds", f"the seed of {name}", seeds)]
    note = text_size(fitted.answer.get("truncated", ""))
    noted = [Segment("note", "the note in truncated", note)]
    told = sum(segment.size for segment in [*facts, *bodies, *listing, *noted])
    rest = fit._json_size(fitted.answer) - told
    other = Segment("other", "other fields, names, punctuation", rest)
    return [other, *facts, *noted, *listing, *bodies]


def api_bar(parts: fit.GroundingParts, fitted: Fitted) -> Bar:
    """Return the bar of the API path."""
    report = fitted.report
    segments = api_segments(parts, fitted)
    share = max(0, report["share"])
    return Bar("API path", "tokens", report["budget"], segments, "the code's share", share)


def agent_bar(parts: fit.GroundingParts, fitted: Fitted) -> Bar:
    """Return the bar of the agent path."""
    report = fitted.report
    segments = agent_segments(parts, fitted)
    reserve = max(0, report.get("reserve", 0))
    title = "Agent path"
    return Bar(title, "characters of JSON", report["cap"], segments, "reserved for bodies", reserve)
