"""Draws on a terminal where the room of a fitted page went, why, and what would have kept more."""

from __future__ import annotations

from collections.abc import Iterable

from grounding_fit_workbench import reasons
from grounding_fit_workbench.cases import Advice
from grounding_fit_workbench.module import fit, tokens_of
from grounding_fit_workbench.page_lines import Page
from grounding_fit_workbench.palette import INKS
from grounding_fit_workbench.pieces import (
    Bar,
    Costs,
    Fitted,
    Report,
    Segment,
    agent_bar,
    api_bar,
    fact_rows,
    fit_agent,
    fit_api,
    shares_used,
    symbol_name,
)
from grounding_fit_workbench.remedies import advice
from grounding_fit_workbench.terminal import cell, drawn, print_entries, say, width

NAMED_SYMBOLS = 10  # of each outcome
MOST_NAME = 60  # columns of a fact block's name
INDENT = " " * 5


Whole = tuple[Fitted, Fitted, list[Advice]]  # on the API path, on the agent path, what would keep


def fit_whole(page: Page) -> Whole:
    """Fit a page on both paths, and find what would have kept more."""
    return fit_api(page), fit_agent(page), advice(page)


def print_page(page: Page, fitted: Whole, head: Iterable[str]) -> None:
    """Print what both paths make of a page, and what would have kept more on the agent path."""
    for line in head:
        say(line, "")
    api, agent, found = fitted
    print_api(page, api)
    print_agent(page, agent, found)


def bar_cells(sizes: Iterable[int], scale: float) -> list[int]:
    """Share the bar out: what has a size gets a cell, the widest takes the rounding."""
    cells = [max(1, round(size * scale)) if size else 0 for size in sizes]
    widest = max(reversed(range(len(cells))), key=cells.__getitem__)
    cells[widest] += width() - sum(cells)
    return cells


def print_bar(bar: Bar) -> None:
    """Print a bar to scale, below it what is kept for code, and the size of each part."""
    free = max(0, bar.room - bar.total)
    state = f"{bar.total - bar.room:,} OVER" if bar.total > bar.room else f"{free:,} free"
    print(f"\n{bar.title}: {bar.total:,} of {bar.room:,} {bar.unit}, {state}")
    scale = width() / max(bar.total, bar.room, 1)
    sizes = dict.fromkeys(INKS, 0)
    for segment in [*bar.segments, Segment("free", "", free)]:
        sizes[segment.part] += segment.size
    cells = bar_cells(sizes.values(), scale)
    print("".join(drawn(part, count) for part, count in zip(sizes, cells, strict=True)))
    legend = [
        (drawn(part), f"{INKS[part].meaning} {size:,}") for part, size in sizes.items() if size
    ]
    if bar.reserve:
        start = round(max(0, bar.room - bar.reserve) * scale)
        print(" " * start + "/" * (round(bar.room * scale) - start))
        legend.append(("/", f"{bar.reserved} {bar.reserve:,}"))
    print_entries(legend)


def print_shares(facts: list[Report], scale: float) -> None:
    """Print a bar for each kind of block that has a share, its limit as a tick, to scale."""
    for key, (used, limit) in shares_used(facts).items():
        tick = int(min(width() - 1, max(0, limit * scale)))
        cells = max(1, round(used * scale)) if used else 0
        print("=" * min(cells, tick) + " " * (tick - cells) + "|" + "=" * (cells - tick - 1))
        say(f"| {key}: {used:,} used of its share of {limit:,.0f}")


def print_words(warnings: Iterable[str], told: Iterable[str]) -> None:
    """Print what is to be warned of, then why a path kept what it did."""
    for warning in warnings:
        say(f"WARNING: {warning}.")
    for reason in told:
        say(reason)


def print_symbols(parts: fit.GroundingParts, symbols: Report) -> None:
    """Print the symbols of each outcome, by name, with their ranks."""
    bodies = symbols["bodies"]
    shown = bodies + symbols["listed"]
    runs = [
        ("bodies", 0, bodies, "kept whole"),
        ("listing", bodies, shown, "listed by a line each"),
        ("free", shown, symbols["total"], "not shown"),
    ]
    for part, first, last, outcome in runs:
        if first == last:
            continue
        names = [
            symbol_name(parts, each) for each in range(first, min(last, first + NAMED_SYMBOLS))
        ]
        if last - first > len(names):
            names.append(f"and {last - first - len(names):,} more")
        ranks = f"symbols {first + 1:,}-{last:,}" if last > first + 1 else f"symbol {last:,}"
        print(drawn(part), end="")
        say(f"{ranks} {outcome}: {', '.join(names)}", INDENT, len(INDENT) - 1)


def print_row(mark: str, name: str, cells: str) -> None:
    """Print the row of a fact block: its name takes what its numbers leave of the width."""
    room = min(MOST_NAME, width() - len(INDENT) - len(cells) - 2)
    print(f"{mark}{cell(name, room)} {cells}")


def print_api(page: Page, fitted: Fitted) -> None:
    """Print what the API path made of a page, in tokens."""
    parts = page.parts
    bar = api_bar(parts, fitted, Costs.of(parts))
    print_bar(bar)
    print_words(reasons.api_warnings(fitted.report), reasons.api_reasons(parts, fitted.report))
    print_row(INDENT, "fact block", f"{'':<14}{'tokens':>9}{'of':>9}")
    facts = [piece.index for piece in fitted.pieces if piece.part == "facts"]
    sizes = dict(zip(facts, bar.segments, strict=False))
    whole = fitted.whole("facts", [block.text for block in parts.prose])
    for index, block in enumerate(parts.prose):
        size = sizes[index].size if index in sizes else 0
        outcome = "left out"
        if size:
            outcome = "whole" if index in whole else "cut"
        mark = f"{drawn('facts') if size else ' '}    "
        print_row(mark, block.label(), f"{outcome:<14}{size:>9,}{tokens_of(block.text):>9,}")
    print_symbols(parts, fitted.report["symbols"])


def print_agent(page: Page, fitted: Fitted, found: list[Advice]) -> None:
    """Print what the agent path made of a page, in JSON characters, and what would keep more."""
    report = fitted.report
    parts = page.parts
    print_bar(agent_bar(parts, fitted, Costs.of(parts)))
    facts = fact_rows(parts, report)
    print_shares(facts, width() / max(report["size"], report["cap"]))
    print_words(reasons.agent_warnings(parts, fitted), reasons.agent_reasons(parts, report))
    if found:
        say(
            "Below what is left out: + what alone would keep it, - what alone would not; all tried."
        )
    of_fact = {each.index: each for each in found if not each.is_body}
    print_row(INDENT, "fact block", f"{'':<14}{'text':>9}{'seeds':>9}{'short by':>9}")
    for index, fact in enumerate(facts):
        print_fact(fact, report)
        print_advice(of_fact.get(index))
    everything = {"bodies": len(parts.blocks), "listed": 0, "total": len(parts.blocks)}
    print_symbols(parts, report.get("symbols", everything))
    for each in found:
        if each.is_body:
            say(f"For the body of {each.what}:", INDENT)
            print_advice(each)
    say(f"truncated: {fitted.answer.get('truncated', 'no')}")


def print_fact(fact: Report, report: Report) -> None:
    """Print the row of a fact block of an answer, and why it was left out."""
    ink = drawn("facts") if fact["kept"] else " "
    mark = "*" if fact["verdict"] in ("always kept", "kept first") else " "
    cells = f"{reasons.verdict_words(fact):<14}{fact['text']:>9,}{fact['seeds']:>9,}"
    short = ""
    if not fact["kept"]:
        short = "unknown" if fact["short_by"] is None else f"{fact['short_by']:,}"
    print_row(f"{ink} {mark}  ", fact["label"], f"{cells}{short:>9}")
    say(reasons.fact_reason(fact, report), INDENT + "  ")


def print_advice(found: Advice | None) -> None:
    """Print what would keep something, and what would not."""
    if found is None:
        return
    for change in found.changes:
        say(f"+ {change}", INDENT + "  ")
    for words in found.refused:
        say(f"- {words}", INDENT + "  ")
