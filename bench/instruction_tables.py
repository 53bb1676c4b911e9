"""The tables of what callgrind counted."""

from calls import PARTS_OF_IT, WHOLE_WAY
from instructions import PLAIN, Count
from table import Table

OWN_WORK = ("reading records", "checking and measuring values", "the module's other work")
PROFILED = [
    (operation, page)
    for operation in ("_fit_page_context", "_assemble_grounding", "render_symbol")
    for page in ("120/25", "400/60")
]
Counts = dict[tuple[str, str], Count]  # by operation and page


def counted(counts: Counts, before: Counts | None) -> Table:
    """Show the instructions of a call, beside those of another build where it was counted too."""
    rows = []
    for operation in PARTS_OF_IT:
        for page in pages_of(counts):
            now = counts[operation, page].instructions
            row = [f"`{operation}` {page}", round(now)]
            if before:
                then = before[operation, page].instructions
                row += [round(then), f"{100 * (now / then - 1):+.1f} %"]
            rows.append(row)
    titles = ["operation", "instructions", "before", "change"]
    return Table(
        "Instructions of a call, host built in",
        "Counted by valgrind's callgrind, whose processor has AVX2 and no AVX-512. `render_symbol` "
        "is called for each symbol of the page.",
        titles[: 4 if before else 2],
        rows,
    )


def pages_of(counts: Counts) -> list[str]:
    """Return the names of the pages, from small to large."""
    return list(dict.fromkeys(page for _, page in counts))


def four_calls(counts: Counts, page: str) -> float:
    """Return the instructions that a page's four calls take together."""
    return sum(counts[part, page].instructions for part in PARTS_OF_IT)


def whole_way(counts: Counts, ratios: dict[tuple, float]) -> Table:
    """Show what a page's whole way takes, part by part, beside plain Python."""
    rows = []
    largest = {}
    for page in pages_of(counts):
        whole, plain = (counts[key, page].instructions for key in (WHOLE_WAY, PLAIN))
        parts = {part: counts[part, page].instructions for part in PARTS_OF_IT}
        largest[page] = max(parts, key=parts.get)
        between = whole - sum(parts.values())
        shown = [round(each) for each in (whole, *parts.values(), between, plain)]
        rows.append([page, *shown, plain / whole, ratios[WHOLE_WAY, page]])
    said = ", ".join(
        f"`{part}` at {' and '.join(page for page in largest if largest[page] == part)}"
        for part in dict.fromkeys(largest.values())
    )
    return Table(
        "A page's whole way in instructions, host built in",
        "From symbol records and fact texts to the results of both paths: every symbol is "
        "rendered, the symbols' seeds are made, and both paths fit the page. Between these four "
        "calls its records are made, its seeds joined and its results released. The last columns "
        "are ratios of the instructions and of the median times of plain Python. The largest part "
        f"is {said}.",
        [
            "symbols/fact blocks",
            "the whole way",
            *(f"`{part}`" for part in PARTS_OF_IT),
            "between them",
            "plain Python",
            "ratio",
            "of times",
        ],
        rows,
    )


def profiled(counts: Counts) -> Table:
    """Say what the instructions of the two middle pages are spent on, in percent."""
    rows = [
        [kind, *(counts[key].shares[kind] for key in PROFILED)]
        for kind in counts[PROFILED[0]].shares
    ]
    least = [100 - sum(counts[key].shares[kind] for kind in OWN_WORK) for key in PROFILED]
    return Table(
        "Where the instructions go, in percent",
        "By the names of the functions, their own instructions alone, host built in. The last row "
        "estimates the least that the rules allow: whatever the module does, the host's functions "
        "are called, every key is looked up, each text is copied or read once, and the dicts, "
        f"lists and texts of the result are made. What remains is {', '.join(OWN_WORK)}.",
        ["spent on", *(f"`{name}` {page}" for name, page in PROFILED)],
        [*rows, ["all but the module's own work", *least]],
    )
