"""Measures both paths over a real tokenizer, a byte-level BPE, as a host would call it."""

import re
from collections.abc import Callable
from dataclasses import dataclass, field
from functools import partial
from pathlib import Path

from calls import Page
from pages import LIBRARY, TOKENS, Library
from sides import Sides
from table import Cell, Table
from timing import clock

try:
    import tokenizers
except ImportError:
    tokenizers = None

ENTRIES = 32_000  # of the tokenizer's vocabulary
NOT_READ = {"test", "tests", "site-packages"}  # folders of the library
PATHS = ("_fit_page_context", "_assemble_grounding")
MIDDLE = ("120/25", "400/60")
BY_LENGTH, BARE, KEPT = "a quarter of the length", "no memo", "memo, kept"
Before = Callable[[], None] | None
INTERFACE = Path(__file__).resolve().parent.parent / "docs/interface.md"


@dataclass
class Asked:
    """The texts that a call hands to the host's estimator, and those that it has cut."""

    estimated: list[str] = field(default_factory=list)
    cut: list[str] = field(default_factory=list)

    def watch(self, utilities: dict[str, Callable]) -> dict[str, Callable]:
        """Return utilities that do the same and write down what they are asked."""
        estimate, truncate = utilities["estimate_tokens"], utilities["_truncate_to_tokens"]

        def watched_estimate(text: str) -> int:
            self.estimated.append(text)
            return estimate(text)

        def watched_truncate(text: str, budget: int) -> str:
            self.cut.append(text)
            return truncate(text, budget)

        return {"estimate_tokens": watched_estimate, "_truncate_to_tokens": watched_truncate}


def trained() -> Callable[[str], object]:
    """Return the encoding of a tokenizer that is trained on the standard library's sources."""
    paths = sorted(LIBRARY.rglob("*.py"))
    files = [str(path) for path in paths if NOT_READ.isdisjoint(path.parts)]
    tokenizer = tokenizers.Tokenizer(tokenizers.models.BPE())
    tokenizer.pre_tokenizer = tokenizers.pre_tokenizers.ByteLevel(add_prefix_space=False)
    trainer = tokenizers.trainers.BpeTrainer(
        vocab_size=ENTRIES,
        initial_alphabet=tokenizers.pre_tokenizers.ByteLevel.alphabet(),
        show_progress=False,
    )
    tokenizer.train(files, trainer)
    if tokenizer.get_vocab_size() != ENTRIES:
        raise SystemExit(f"a tokenizer of {tokenizer.get_vocab_size()} entries")
    return tokenizer.encode


def token_starts(encode: Callable, text: str) -> list[int]:
    """Return where each token of a text starts, in code points."""
    return [start for start, _ in encode(text).offsets]


def without_memo(encode: Callable) -> dict[str, Callable]:
    """Return the host's utilities as they read a text anew each time."""

    def truncate(text: str, budget: int) -> str:
        starts = token_starts(encode, text)
        return text if len(starts) <= budget else text[: starts[budget]]

    return {"estimate_tokens": lambda text: len(encode(text)), "_truncate_to_tokens": truncate}


def with_memo(encode: Callable) -> tuple[dict[str, Callable], Callable]:
    """Return the utilities that the documents recommend, and what empties their memo."""
    blocks = re.findall(r"^```python\n(.*?)^```", INTERFACE.read_text(), re.DOTALL | re.MULTILINE)
    [recipe] = [block for block in blocks if "known_starts" in block]
    names = {}
    exec(recipe, names)
    names["token_starts"] = partial(token_starts, encode)
    utilities = {name: names[name] for name in ("estimate_tokens", "_truncate_to_tokens")}
    return utilities, names["known_starts"].cache_clear


def asked_of_the_host(encode: Callable, library: Library) -> Table:
    """Say what a fit hands to the estimator, and how exactly facts are cut."""
    asked = Asked()
    sides = Sides("with a tokenizer", asked.watch(without_memo(encode)), TOKENS, library)
    rows: list[list[Cell]] = []
    for page in sides.pages:
        for path in PATHS:
            asked.estimated, asked.cut = [], []
            sides.calls(path, page)[0]()
            row = [f"`{path}` {page.name}", len(asked.estimated), sum(map(len, asked.estimated))]
            row += [len(set(asked.estimated)), sum(map(len, asked.cut))]
            rows.append(row)
        facts = sides.module.explain_grounding(page.parts, TOKENS)[1]["facts"]
        if facts["kept"] > facts["room"] or facts["kept"] < min(facts["whole"], facts["room"]):
            raise SystemExit(f"{page.name}: the cut of the facts is not exact: {facts}")
    return Table(
        "What a fit hands to the tokenizer",
        "Calls of the estimator in one fit, the characters in them, and how many of the texts are "
        "different; and the characters of the text that is cut. The cut keeps as many tokens as "
        "there is room for, or the bench fails.",
        ["operation", "calls", "characters", "different texts", "characters to cut"],
        rows,
    )


def timed(sides: Sides, page: Page, path: str, seconds: float, before: Before) -> list[float]:
    """Return the median times of both sides, in µs, when something is done before each call."""
    sides.agreed(path, page)

    def prepared(call: Callable) -> None:
        before()
        call()

    calls = sides.calls(path, page)
    measured = [partial(prepared, call) for call in calls] if before else calls
    return [1e6 * timing.median for timing in clock(seconds, *measured)]


def hosts_of(encode: Callable) -> dict[str, tuple[dict[str, Callable], Before]]:
    """Return the hosts to compare: their utilities, and what is done before each call."""
    memo, empty = with_memo(encode)
    return {
        BY_LENGTH: ({}, None),
        BARE: (without_memo(encode), None),
        "memo, emptied each time": (memo, empty),
        KEPT: (memo, None),
    }


def summary(times: dict[tuple, list[float]]) -> str:
    """Say where the module's speed counts."""
    path, page = PATHS[0], MIDDLE[0]
    rough, bare, kept = (times[host, path, page] for host in (BY_LENGTH, BARE, KEPT))
    return (
        f"At {page} the agent path takes {bare[0] / 1000:,.1f} ms where the host reads each text "
        f"with the tokenizer. The module's own part is about {rough[0]:,.0f} µs of it, or "
        f"{100 * rough[0] / bare[0]:.1f} %: the tokenizer is all of it, and the fit in plain "
        f"Python takes {bare[1] / bare[0]:.1f} times as long. So the module's speed counts where "
        "the host estimates by length, or remembers what it has read. With the memo kept the same "
        f"fit takes {kept[0]:,.0f} µs, and plain Python {kept[1] / kept[0]:,.0f} times as long."
    )


def fits(encode: Callable, library: Library, seconds: float) -> Table:
    """Time both paths over hosts with and without a memo, on both sides."""
    times = {}
    for host, (utilities, before) in hosts_of(encode).items():
        sides = Sides(host, utilities, TOKENS, library)
        for path in PATHS:
            for page in sides.pages:
                if page.name in MIDDLE:
                    times[host, path, page.name] = timed(sides, page, path, seconds, before)
    rows = [
        [host, f"`{path}` {page}", ours, plain, plain / ours]
        for (host, path, page), (ours, plain) in times.items()
    ]
    return Table(
        "Times in µs with a real tokenizer",
        f"{summary(times)} A byte-level BPE of {ENTRIES:,} entries (tokenizers "
        f"{tokenizers.__version__}), trained on the standard library's sources when the bench "
        "runs; the utilities and the memo are those of interface.md. Medians.",
        ["the host's estimate", "operation", "module", "plain Python", "ratio"],
        rows,
    )


def with_a_tokenizer(library: Library, seconds: float) -> list[Table | str]:
    """Return what is told of a real tokenizer, or that there is none."""
    if not tokenizers:
        return ["Real tokenizer: not installed (`--peers` brings it along)."]
    encode = trained()
    return [asked_of_the_host(encode, library), fits(encode, library, seconds)]
