"""Fit the grounding of a wiki page to what its writer can be given.

A page's grounding is its fact blocks, each with citation seeds, and its rendered code symbols,
best first (GroundingParts). There is never room for all of it. Two paths decide what stays:

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
    "_json_size",
    "_cap_note",
    "_code_cut",
    "_most",
    "_fit_prose",
    "_fit_page_context",
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
_SYM_BUDGET_FLOOR: Final = 0.35  # share of the room that code is sure of
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

_Parameter = TypedDict("_Parameter", {"name": str | None, "type": str | None}, total=False)
_Related = TypedDict("_Related", {"fqn": str | None}, total=False)

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

class _PageContext(TypedDict, total=False):
    """The fields of an answer that are read or written.

    A host's own TypedDict is taken as well, with those of the fields that it has. At run time it
    is a class of the host's: this one cannot be derived from there.
    """

    page_id: str | int
    prior_markdown: str | None
    grounding: str
    symbols: list[str]
    citation_seeds: list[_CitationSeed]
    truncated: str

class _Object(TypedDict):
    """No key asked for: every TypedDict is one, and no mapping but a dict can be."""

_T = TypeVar("_T")
_Array: TypeAlias = list[_T] | tuple[_T, ...]
_Seed: TypeAlias = _CitationSeed | dict[str, Any]
_Symbol: TypeAlias = _SymbolRecord | dict[str, Any]
# What lists and dicts hold is not checked: they are invariant, and would refuse a list[str].
_JsonValue: TypeAlias = (
    None | bool | int | float | str | list[Any] | tuple[Any, ...] | dict[str, Any] | _Object
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
    """One fact block of a grounding: its text, the citation seeds it stands on, its name in notes.

    Immutable and positional: it unpacks, iterates and indexes as its four fields."""

    __match_args__: Final = ("text", "seeds", "name", "key")
    def __new__(
        cls, text: str, seeds: _Array[_SeedT] = (), name: str = "", key: str = ""
    ) -> FactBlock: ...
    @property
    def text(self) -> str:
        """The block's text; its first line is normally a Markdown heading."""
    @property
    def seeds(self) -> _Array[_Seed]:
        """The citation seeds the block stands on, citable or not."""
    @property
    def name(self) -> str:
        """How a note names the block; empty: after its heading."""
    @property
    def key(self) -> str:
        """The block's kind: README, DIGEST, DOCUMENT, or any other."""
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
    """A page's grounding before it is fitted to a budget.

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
        """Paths of the files the fact blocks stand on."""
    @property
    def code_floor(self) -> float:
        """The share of a capped answer's room kept for symbol blocks."""
    @property
    def budget(self) -> SectionBudget:
        """How the page's type spends the room."""
    @property
    def seeds(self) -> list[_CitationSeed]:
        """The citable seeds of every fact block, in order: a new list at every reading."""

@final
class SectionBudget:
    """How a page type spends the room of its grounding; sizes in code points.

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
        """Code points of the README the page reads."""
    @property
    def first(self) -> _Array[str]:
        """Keys of the fact blocks kept before any other, beside the file cards."""
    @property
    def shares(self) -> Mapping[str, float]:
        """Block key to the most of a capped answer's room its blocks may take."""
    @property
    def document_chars(self) -> int:
        """Code points of the page's own documents it reads, shared among them."""

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
    parts: GroundingParts,
    budget: int,
) -> tuple[str, list[str], list[str], list[_CitationSeed]]:
    """Return (grounding, symbols, files, seeds): a page's grounding under a budget in tokens."""

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
    """Return a page_context answer of at most _PAGE_CONTEXT_MAX_CHARS JSON characters.

    result: given back itself when it fits. budget: the page's, in tokens. A capped answer is a
    new dict whose `truncated` says what was left out."""
