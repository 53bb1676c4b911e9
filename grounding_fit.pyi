"""Fit the grounding of a wiki page to what its writer can be given.

A page's grounding is its fact blocks, each with citation seeds, and its rendered code symbols,
best first (GroundingParts). There is seldom room for all of it. Two paths decide what stays:

- API path, in tokens: _assemble_grounding(parts, budget).
- Agent path, in JSON characters: _fit_page_context(result, parts, budget).

Objects are dicts with string keys; wherever an array is read, a list or a tuple will do. A value
of the wrong type raises TypeError, a line number that cannot be read ValueError.
"""
# The underscored types and protocols are known to type checkers alone: the module does not have
# them, so import them, and derive from them, under TYPE_CHECKING only.

from collections.abc import Iterable, Iterator, Mapping
from types import MappingProxyType
from typing import (
    Any,
    Final,
    Literal,
    Protocol,
    SupportsIndex,
    TypeAlias,
    TypedDict,
    TypeVar,
    final,
    overload,
)

from typing_extensions import NotRequired

__all__ = [
    "section_budget",
    "seed",
    "citable",
    "symbol_seeds",
    "render_symbol",
    "_listed",
    "_listing",
    "_assemble_blocks",
    "_blocks_within",
    "_assemble_grounding",
    "explain_grounding",
    "_json_size",
    "_cap_note",
    "_code_cut",
    "_most",
    "_fit_prose",
    "_fit_page_context",
    "explain_page_context",
    "FactBlock",
    "GroundingParts",
    "SectionBudget",
    "README",
    "DIGEST",
    "DOCUMENT",
    "_SYM_BUDGET_FLOOR",
    "_ALWAYS_KEPT",
    "_DEFAULT_BUDGET",
    "_BUDGETS",
    "_SKELETON_LINES",
    "_LISTED_CHARS",
    "_LISTED_HEADING",
    "_LISTED_MAX",
    "_PAGE_CONTEXT_MAX_CHARS",
    "_NOTE_ITEMS",
    "_FITTED_FIELDS",
    "_NOTE_PLACEHOLDER",
]
__version__: Final[str]

README: Final = "readme"  # block keys: FactBlock.key, SectionBudget.first and .shares
DIGEST: Final = "digest"
DOCUMENT: Final = "document"
_SYM_BUDGET_FLOOR: Final = 0.35  # fraction that is code's by default
_ALWAYS_KEPT: Final[tuple[str, str]]  # headings of the fact blocks that no cap leaves out
_DEFAULT_BUDGET: Final[SectionBudget]
_BUDGETS: Final[MappingProxyType[str, SectionBudget]]  # by page type; the others have the default
_SKELETON_LINES: Final = 12  # lines of a logic skeleton that a block shows
_LISTED_CHARS: Final = 80  # code points of signature or documentation in a listed line
_LISTED_HEADING: Final[str]
_LISTED_MAX: Final = 30  # symbols listed after the whole blocks
_PAGE_CONTEXT_MAX_CHARS: Final = 40000  # JSON characters of an answer
_NOTE_ITEMS: Final = 6  # items that a note names, before it counts
_FITTED_FIELDS: Final[tuple[Literal["grounding"], Literal["symbols"], Literal["citation_seeds"]]]
_NOTE_PLACEHOLDER: Final[str]  # stands for the note while answers are measured

class _CitationSeed(TypedDict):
    path: str
    line_start: int  # from 1; 0 names no line
    line_end: int

class _Parameter(TypedDict, total=False):
    name: str | None
    type: str | None

class _Related(TypedDict, total=False):
    fqn: str | None

class _SymbolRecord(TypedDict, total=False):
    """One code symbol. A missing value leaves its line out of the block."""

    fqn: str
    kind: str
    file: str
    line: int
    end_line: int
    signature: str | None
    parameters: _Array[_Parameter] | None
    docstring: str | None
    fan_in: int | None
    inside_refs: int | None
    neighbour_refs: int | None
    snippet: str | None
    snippet_cut: int | None
    body_digest: str | None
    callees: _Array[str] | None
    usage_example: str | None
    related: _Array[_Related] | None
    has_tests: bool | None

# A host's own TypedDict is accepted with whatever keys it has beside this one. A type with more
# keys would refuse a TypedDict that lacks any of them, so what they hold is not checked.
class _Named(TypedDict):
    fqn: str

class _MaybeNamed(TypedDict, total=False):
    fqn: str

class _PageContext(TypedDict, total=False):
    """The fields of an answer that are read or written.

    A host's own TypedDict is accepted too, with any of these fields. This class is there for type
    checkers alone, so nothing can derive from it at run time.
    """

    page_id: str | int
    prior_markdown: str | None
    grounding: str
    symbols: list[str]
    citation_seeds: list[_CitationSeed]
    truncated: str

class _FactReport(TypedDict):
    """What became of one fact block, sizes in JSON characters."""

    label: str
    key: str
    verdict: Literal["always kept", "kept first", "fits", "over its share", "over the cap"]
    kept: bool
    text: int  # of the text as a string; with `seeds`, what the block costs
    seeds: int  # of all seeds as an array
    citable_seeds: int | None  # that the citable ones add to the answer; None if unreadable
    share: NotRequired[float | None]  # the most its kind may cost; None if that is not finite
    share_used: NotRequired[int]  # of it, by blocks before this one
    short_by: int | None  # 0 for a block that is kept; None if no number tells it

class _SymbolsReport(TypedDict):
    """How many symbols are shown, and what kept out the next body."""

    total: int
    within_tokens: int  # bodies that the token budget allows
    bodies: int
    listed: int
    not_shown: int
    stopped_by: Literal["nothing", "tokens", "note", "cap"]
    short_by_tokens: NotRequired[int]  # with "tokens"
    short_by_characters: NotRequired[int]  # with "cap" and "note"

class _NoteReport(TypedDict):
    size: int  # JSON characters between its quotes
    bodies_taken_off: int
    lines_taken_off: int

class _PageReport(TypedDict):
    """Every decision of a page_context answer, sizes in JSON characters."""

    outcome: Literal["fits", "fits without prior_markdown", "rebuilt", "over the cap"]
    cap: int
    given: int
    size: int
    note: NotRequired[_NoteReport]  # unless the answer fits
    base: NotRequired[int]  # this and what follows: of a rebuilt answer, or one over the cap
    room: NotRequired[int]
    floor: NotRequired[int]
    all_bodies: NotRequired[int]
    reserve: NotRequired[int]
    facts: NotRequired[list[_FactReport]]
    symbols: NotRequired[_SymbolsReport]

class _FactTokens(TypedDict):
    whole: int  # of the fact text before it is cut
    room: int  # that the code leaves
    kept: int  # of the fact text as it was cut

class _GroundingReport(TypedDict):
    """Every decision of a grounding, sizes in tokens."""

    budget: int
    size: int
    floor: int
    share: int  # that the bodies get
    used: int  # of the share, by the bodies that are kept
    code: int  # bodies and listing
    facts: _FactTokens
    symbols: _SymbolsReport
    over: int  # by how much the text passes its budget

class _Object(TypedDict):
    """Matches every TypedDict, since it requires no key, and no mapping but a dict."""

_T = TypeVar("_T")
_Array: TypeAlias = list[_T] | tuple[_T, ...]
_Seed: TypeAlias = _CitationSeed | dict[str, Any]
_Symbol: TypeAlias = _SymbolRecord | _Named | _MaybeNamed | dict[str, Any]
# What lists and dicts hold is not checked: they are invariant, and would refuse a list[str].
_JsonValue: TypeAlias = (
    bool | int | float | str | list[Any] | tuple[Any, ...] | dict[str, Any] | _Object | None
)
# Bound variables, so that a list of either side of the union will do.
_SeedT = TypeVar("_SeedT", bound=_Seed)
_SymbolT = TypeVar("_SymbolT", bound=_Symbol)
_BlockT = TypeVar("_BlockT", bound=tuple[str, _Symbol])
_AnswerT = TypeVar("_AnswerT", bound=_Object | dict[str, Any])

class _Fits(Protocol):
    def __call__(self, count: int, /) -> object: ...

class _Size(Protocol):
    def __call__(self, blocks: list[FactBlock], count: int, /) -> int: ...

@final
class FactBlock:
    """Prose for a page's writer, with the citation seeds behind it.

    Immutable and positional: it unpacks, iterates and indexes as its four fields."""

    __match_args__: Final = ("text", "seeds", "name", "key")
    def __new__(
        cls, text: str, seeds: _Array[_SeedT] = (), name: str = "", key: str = ""
    ) -> FactBlock: ...
    @property
    def text(self) -> str:
        """What the block puts into the grounding, usually under a Markdown heading."""
    @property
    def seeds(self) -> _Array[_Seed]:
        """The lines that the text rests on, citable or not."""
    @property
    def name(self) -> str:
        """What a note calls the block when it is left out; empty: its heading."""
    @property
    def key(self) -> str:
        """What kind of block it is to a policy: README, DIGEST, DOCUMENT, or any other."""
    def label(self) -> str:
        """Return how a note names the block when it is left out: its name, else its heading."""
    def __len__(self) -> Literal[4]: ...
    def __iter__(self) -> Iterator[str | _Array[_Seed]]: ...
    @overload
    def __getitem__(self, key: Literal[0, 2, 3, -4, -2, -1], /) -> str: ...
    @overload
    def __getitem__(self, key: Literal[1, -3], /) -> _Array[_Seed]: ...
    @overload
    def __getitem__(self, key: SupportsIndex, /) -> str | _Array[_Seed]: ...
    @overload
    def __getitem__(self, key: slice, /) -> tuple[str | _Array[_Seed], ...]: ...

@final
class GroundingParts:
    """All that was gathered for a page, before anything is cut.

    Immutable; the sequences stay the caller's own."""

    __match_args__: Final = ("prose", "blocks", "files", "code_floor", "budget")
    def __new__(
        cls,
        prose: _Array[FactBlock],
        blocks: _Array[_BlockT],
        files: set[str] | frozenset[str],
        code_floor: float = 0.35,
        budget: SectionBudget = ...,
    ) -> GroundingParts: ...
    @property
    def prose(self) -> _Array[FactBlock]:
        """The fact blocks in reading order."""
    @property
    def blocks(self) -> _Array[tuple[str, _Symbol]]:
        """Pairs of a symbol block's text and its symbol record, best first."""
    @property
    def files(self) -> set[str] | frozenset[str]:
        """Paths of the files behind the fact blocks."""
    @property
    def code_floor(self) -> float:
        """The fraction of a capped answer's room held free for code while facts are chosen."""
    @property
    def budget(self) -> SectionBudget:
        """The policy of the page's type."""
    @property
    def seeds(self) -> list[_CitationSeed]:
        """The citable seeds of every fact block, in order: a new list at every reading."""

@final
class SectionBudget:
    """The policy of a page type: what the host quotes, and which blocks always stay.

    Immutable. shares: a dict, or a read-only view of one; without it, a new empty dict."""

    __match_args__: Final = ("readme_chars", "first", "shares", "document_chars")
    def __new__(
        cls,
        readme_chars: int = 4000,
        first: _Array[str] = (),
        shares: Mapping[str, float] = {},
        document_chars: int = 0,
    ) -> SectionBudget: ...
    @property
    def readme_chars(self) -> int:
        """How much of the README the host quotes, in code points."""
    @property
    def first(self) -> _Array[str]:
        """Keys of the blocks that stay whatever else must go."""
    @property
    def shares(self) -> Mapping[str, float]:
        """By block key, what part of the room all blocks of that key may cost."""
    @property
    def document_chars(self) -> int:
        """How much of the page's own documents the host quotes in all, in code points."""

def section_budget(type_id: str | None) -> SectionBudget:
    """Return the SectionBudget of a page type; _DEFAULT_BUDGET when it has none of its own."""

def seed(path: str, start: int, end: int = 0) -> _CitationSeed:
    """Return a citation seed over lines start to end: start alone when end is not greater."""

def citable(seeds: Iterable[_SeedT]) -> list[_SeedT]:
    """Return the seeds that name real lines, those whose line_start reads as 1 or more."""

def symbol_seeds(symbols: _Array[_SymbolT]) -> list[_CitationSeed]:
    """Return a citation seed over each symbol's lines, for those that have a file and a line."""

def render_symbol(sym: _Symbol) -> str:
    """Return the text of one symbol block: a head line, then what is known of the symbol."""

def _listed(sym: _Symbol) -> str:
    """Return the line that lists one symbol, up to _LISTED_CHARS of its signature in it."""

def _listing(symbols: _Array[_SymbolT] | None) -> str:
    """Return _LISTED_HEADING and one listed line a symbol; '' for no symbols or None."""

def _assemble_blocks(blocks: _Array[str], budget: int) -> list[str]:
    """Return the blocks, from the first on, that a token budget keeps whole; the first always."""

def _blocks_within(parts: GroundingParts, budget: int) -> int:
    """Return how many symbol blocks a page's budget, in tokens, keeps whole."""

def _assemble_grounding(
    parts: GroundingParts, budget: int
) -> tuple[str, list[str], list[str], list[_CitationSeed]]:
    """Return (grounding, symbols, files, seeds): a page's grounding under a budget in tokens."""

def explain_grounding(
    parts: GroundingParts, budget: int
) -> tuple[tuple[str, list[str], list[str], list[_CitationSeed]], _GroundingReport]:
    """Return (grounding, report): the tuple of _assemble_grounding, and why it is as it is."""

def _json_size(value: _JsonValue) -> int:
    """Return the length of a value's JSON text in code points, without making the text."""

def _cap_note(left_out: _Array[str], ask: bool = False) -> str:
    """Return the `truncated` note of a capped answer; ask: it asks the agent to fetch more."""

def _code_cut(kept: int, listed: int, total: int) -> list[str]:
    """Return the note item, if any, that counts the symbol blocks left without their body."""

def _most(high: int, fits: _Fits) -> int:
    """Return the largest count from 0 to high for which fits(count) is true, by bisection."""

def _fit_prose(parts: GroundingParts, size: _Size, total: int) -> tuple[list[FactBlock], list[str]]:
    """Return (kept, labels): the fact blocks a capped answer keeps, and the names of the others.

    size(blocks, count) gives the JSON characters of an answer with those and count bodies."""

def _fit_page_context(result: _AnswerT, parts: GroundingParts, budget: int) -> _AnswerT:
    """Return a page_context answer within _PAGE_CONTEXT_MAX_CHARS JSON characters, where it can be.

    result: given back itself when it fits. budget: the page's, in tokens. A capped answer is a
    new dict whose `truncated` says what was left out, and says so when all that can be was left
    out and the answer is over the cap nevertheless."""

def explain_page_context(
    result: _AnswerT, parts: GroundingParts, budget: int
) -> tuple[_AnswerT, _PageReport]:
    """Return (answer, report): what _fit_page_context gives, and every decision that made it."""
