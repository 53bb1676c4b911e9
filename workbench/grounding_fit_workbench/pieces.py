"""Fits a page on both paths, and takes each result apart with the module's report of it."""

from __future__ import annotations

from collections import Counter
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

    def sizes(self) -> Counter[str]:
        """Return what each part takes."""
        sizes: Counter[str] = Counter()
        for segment in self.segments:
            sizes[segment.part] += segment.size
        return sizes


@dataclass(frozen=True)
class Fitted:
    """What one path makes of a page, and why."""

    text: str  # the grounding
    report: Report
    pieces: list[Piece]  # in reading order; blank lines join them
    answer: dict[str, Any]  # of the agent path; empty on the other one

    def whole(self, part: str, texts: list[str]) -> set[int]:
        """Return which blocks of a part, with these texts, stand whole."""
        pieces = [piece for piece in self.pieces if piece.part == part]
        return {piece.index for piece in pieces if piece.text == texts[piece.index]}

    def shows_pieces(self) -> bool:
        """Whether the pieces stand in the answer; a host's own may lack them."""
        rebuilt = "facts" in self.report
        return rebuilt or all(piece.text in self.text for piece in self.pieces)


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
    return Fitted(text, report, [*cut_pieces(parts, cut), *code], {})


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


def shares_used(facts: list[Report]) -> dict[str, tuple[int, float]]:
    """Return the JSON characters used and the limit of each kind that has a share."""
    used: dict[str, tuple[int, float]] = {}
    for fact in facts:
        if fact.get("share") is not None:
            before, limit = used.get(fact["key"], (0, fact["share"]))
            used[fact["key"]] = (before + fact["kept"] * (fact["text"] + fact["seeds"]), limit)
    return used


def text_size(text: str) -> int:
    """Return the JSON characters of a text within its quotes."""
    return fit._json_size(text) - QUOTES


def piece_name(parts: fit.GroundingParts, piece: Piece) -> str:
    """Return how a report names a piece."""
    if piece.part == "facts":
        return parts.prose[piece.index].label()
    return symbol_name(parts, piece.index) if piece.part == "bodies" else "the listing"


def seeds_size(seeds: list[Any]) -> int:
    """Return the JSON characters of seeds and of the commas between them and behind them."""
    return fit._json_size(seeds) - QUOTES + len(", ") if seeds else 0


@dataclass(frozen=True)
class Cost:
    """What a fact block or a body takes by itself, measured once for all bars of a page."""

    text: int  # JSON characters in an answer, without the quotes
    seeds: int  # JSON characters of its citable seeds in an answer, with a comma behind each
    tokens: int


@dataclass(frozen=True)
class Costs:
    """What each block of a page takes."""

    facts: list[Cost]
    bodies: list[Cost]

    @classmethod
    def of(cls, parts: fit.GroundingParts) -> Costs:
        """Measure all blocks of a page."""
        facts = [cost_of(block.text, fit.citable(block.seeds)) for block in parts.prose]
        bodies = [cost_of(text, fit.symbol_seeds([symbol])) for text, symbol in parts.blocks]
        return cls(facts, bodies)


def cost_of(text: str, seeds: list[Any]) -> Cost:
    """Measure a text and its citable seeds."""
    return Cost(text_size(text), seeds_size(seeds), tokens_of(text))


def api_segments(parts: fit.GroundingParts, fitted: Fitted, costs: Costs) -> list[Segment]:
    """Return what the text's tokens are spent on: facts, listing, bodies, and what joins them.

    Facts, bodies and listing add up to what the report says of each, so that both tell the same.
    """
    report = fitted.report
    symbols = report["symbols"]
    whole = fitted.whole("facts", [block.text for block in parts.prose])
    facts = []
    left = report["facts"]["kept"]
    for piece in fitted.pieces:
        if piece.part == "facts":
            name = piece_name(parts, piece)
            cut = piece.index not in whole
            size = left if cut else costs.facts[piece.index].tokens
            facts.append(Segment("facts", f"what stands of {name}" if cut else name, size))
            left -= size
    if left > 0:
        facts.append(Segment("facts", "blank lines between fact blocks", left))
    listing = report["code"] - report["used"] if symbols["listed"] else 0
    listed = Segment("listing", "the listing", listing)
    bodies = [
        Segment("bodies", symbol_name(parts, rank), costs.bodies[rank].tokens)
        for rank in range(symbols["bodies"])
    ]
    told = sum(segment.size for segment in [*facts, listed, *bodies])
    return [*facts, listed, *bodies, Segment("joins", "joints", report["size"] - told)]


def agent_segments(parts: fit.GroundingParts, fitted: Fitted, costs: Costs) -> list[Segment]:
    """Return what each JSON character of an answer is spent on: bodies last, before them the rest.

    The facts stand so that they end where the room begins that is reserved for code.
    """
    size = fitted.report["size"]
    facts, listing, bodies = [], [], []
    for piece in fitted.pieces:
        name = piece_name(parts, piece)
        if piece.part == "listing":
            listing.append(Segment("listing", name, text_size(piece.text)))
        elif piece.part == "facts":
            cost = costs.facts[piece.index]
            facts.append(Segment("facts", name, cost.text))
            facts.append(Segment("seeds", f"the seeds of {name}", cost.seeds))
        else:
            cost = costs.bodies[piece.index]
            bodies.append(Segment("bodies", name, cost.text))
            bodies.append(Segment("body seeds", f"the seed of {name}", cost.seeds))
    note = text_size(fitted.answer.get("truncated", ""))
    noted = [Segment("note", "the note in truncated", note)]
    rest = size - sum(segment.size for segment in [*facts, *bodies, *listing, *noted])
    if rest < 0 or not fitted.shows_pieces():
        return [Segment("other", "the answer as the host gave it", size)]
    other = Segment("other", "other fields, names, punctuation", rest)
    return [other, *facts, *noted, *listing, *bodies]


def api_bar(parts: fit.GroundingParts, fitted: Fitted, costs: Costs) -> Bar:
    """Return the bar of the API path."""
    report = fitted.report
    segments = api_segments(parts, fitted, costs)
    share = max(0, report["share"])
    return Bar("API path", "tokens", report["budget"], segments, "the code's share", share)


def agent_bar(parts: fit.GroundingParts, fitted: Fitted, costs: Costs) -> Bar:
    """Return the bar of the agent path."""
    report = fitted.report
    segments = agent_segments(parts, fitted, costs)
    reserve = max(0, report.get("reserve", 0))
    title = "Agent path"
    return Bar(title, "characters of JSON", report["cap"], segments, "reserved for bodies", reserve)
