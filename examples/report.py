"""Draws on a terminal where the room of a fitted page went, and why."""

import os
import sys
import textwrap
from collections.abc import Iterable
from dataclasses import dataclass

import grounding_fit as fit
from examples import reasons
from examples.pieces import (
    Bar,
    Fitted,
    Measure,
    Segment,
    agent_bar,
    api_bar,
    fact_rows,
    symbol_name,
)

WIDTH = 98  # columns
NAME_WIDTH = 50
NAMED_SYMBOLS = 10  # of each outcome
INDENT = " " * 5


@dataclass(frozen=True)
class Ink:
    """How a part of a bar is drawn: a letter, or on a terminal a colour by its number."""

    letter: str
    meaning: str
    colour: int


INKS = {
    "other": Ink("O", "other fields", 97),
    "facts": Ink("F", "facts", 32),
    "seeds": Ink("S", "seeds of facts", 37),
    "note": Ink("N", "note", 167),
    "listing": Ink("L", "listing", 178),
    "bodies": Ink("B", "bodies", 71),
    "body seeds": Ink("C", "seeds of bodies", 65),
    "free": Ink(".", "free", 238),
}


def say(text: str) -> None:
    """Print a sentence, wrapped."""
    lines = textwrap.wrap(text, WIDTH - 2, break_on_hyphens=False, break_long_words=False)
    print(*(f"  {line}".replace("\xa0", " ") for line in lines), sep="\n")


def drawn(part: str, count: int = 1) -> str:
    """Return cells of a part: its letter, or its colour on a terminal."""
    ink = INKS[part]
    if os.environ.get("NO_COLOR") or not sys.stdout.isatty():
        return ink.letter * count
    return f"\x1b[48;5;{ink.colour}m{' ' * count}\x1b[0m"


def bar_cells(sizes: Iterable[int], scale: float) -> list[int]:
    """Share the bar out: what has a size gets a cell, the widest takes the rounding."""
    cells = [max(1, round(size * scale)) if size else 0 for size in sizes]
    widest = max(reversed(range(len(cells))), key=cells.__getitem__)
    cells[widest] += WIDTH - sum(cells)
    return cells


def print_bar(bar: Bar) -> None:
    """Print a bar to scale, below it what is kept for code, and the size of each part."""
    free = max(0, bar.room - bar.total)
    state = f"{bar.total - bar.room:,} OVER" if bar.total > bar.room else f"{free:,} free"
    print(f"\n{bar.title}: {bar.total:,} of {bar.room:,} {bar.unit}, {state}")
    scale = WIDTH / max(bar.total, bar.room, 1)
    sizes = dict.fromkeys(INKS, 0)
    for segment in [*bar.segments, Segment("free", "", free)]:
        sizes[segment.part] += segment.size
    cells = bar_cells(sizes.values(), scale)
    print("".join(drawn(part, count) for part, count in zip(sizes, cells)))
    legend = [
        f"{drawn(part)} {INKS[part].meaning} {size:,}" for part, size in sizes.items() if size
    ]
    if bar.reserve:
        start = round(max(0, bar.room - bar.reserve) * scale)
        print(" " * start + "/" * (round(bar.room * scale) - start))
        legend.append(f"/ {bar.reserved} {bar.reserve:,}")
    say("  ".join(entry.replace(" ", "\xa0") for entry in legend))


def shares_used(facts: list[dict]) -> dict[str, tuple[int, float]]:
    """Return the JSON characters used and the limit of each kind that has a share."""
    used = {}
    for fact in facts:
        if fact.get("share") is not None:
            before, limit = used.get(fact["key"], (0, fact["share"]))
            used[fact["key"]] = (before + fact["kept"] * (fact["text"] + fact["seeds"]), limit)
    return used


def print_shares(facts: list[dict], scale: float) -> None:
    """Print a bar for each kind of block that has a share, its limit as a tick, to scale."""
    for key, (used, limit) in shares_used(facts).items():
        tick = min(WIDTH - 1, max(0, round(limit * scale)))
        cells = max(1, round(used * scale)) if used else 0
        line = "=" * min(cells, tick) + " " * (tick - cells) + "|" + "=" * (cells - tick - 1)
        print(f"{line} {key}: {used:,} used of its share of {limit:,.0f}")


def print_words(warnings: Iterable[str], told: Iterable[str]) -> None:
    """Print what is to be warned of, then why a path kept what it did."""
    for warning in warnings:
        say(f"WARNING: {warning}.")
    for reason in told:
        say(reason)


def print_symbols(parts: fit.GroundingParts, symbols: dict) -> None:
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
        text = f"{ranks} {outcome}: {', '.join(names)}"
        lines = textwrap.wrap(text, WIDTH - 5, break_on_hyphens=False, break_long_words=False)
        print(f"{drawn(part)}    " + f"\n{INDENT}".join(lines))


def name_cell(name: str) -> str:
    """Return a name as wide as its column."""
    return f"{name[: NAME_WIDTH - 3]}..." if len(name) > NAME_WIDTH else f"{name:<{NAME_WIDTH}}"


def print_api(parts: fit.GroundingParts, fitted: Fitted, measure: Measure) -> None:
    """Print what the API path made of a page, in tokens."""
    bar = api_bar(parts, fitted, measure)
    print_bar(bar)
    print_words(reasons.api_warnings(fitted.report), reasons.api_reasons(parts, fitted.report))
    print(f"{INDENT}{name_cell('fact block')} {'':<14}{'tokens':>9}{'of':>9}")
    facts = [piece.index for piece in fitted.pieces if piece.part == "facts"]
    sizes = dict(zip(facts, bar.segments))
    whole = fitted.whole("facts", [block.text for block in parts.prose])
    for index, block in enumerate(parts.prose):
        size = sizes[index].size if index in sizes else 0
        outcome = "left out"
        if size:
            outcome = "whole" if index in whole else "cut"
        ink = drawn("facts") if size else " "
        cells = f"{outcome:<14}{size:>9,}{measure(block.text):>9,}"
        print(f"{ink}    {name_cell(block.label())} {cells}")
    print_symbols(parts, fitted.report["symbols"])


def print_agent(parts: fit.GroundingParts, fitted: Fitted) -> None:
    """Print what the agent path made of a page, in JSON characters."""
    report = fitted.report
    print_bar(agent_bar(parts, fitted))
    facts = fact_rows(parts, report)
    print_shares(facts, WIDTH / max(report["size"], report["cap"]))
    print_words(reasons.agent_warnings(parts, fitted), reasons.agent_reasons(parts, report))
    print(f"{INDENT}{name_cell('fact block')} {'':<14}{'text':>9}{'seeds':>9}{'short by':>9}")
    for fact in facts:
        print_fact(fact)
    everything = {"bodies": len(parts.blocks), "listed": 0, "total": len(parts.blocks)}
    print_symbols(parts, report.get("symbols", everything))
    say(f"truncated: {fitted.answer.get('truncated', 'no')}")


def print_fact(fact: dict) -> None:
    """Print the row of a fact block of an answer, and why it was left out."""
    ink = drawn("facts") if fact["kept"] else " "
    mark = "*" if fact["verdict"] in ("always kept", "kept first") else " "
    cells = f"{fact['verdict']:<14}{fact['text']:>9,}{fact['seeds']:>9,}"
    if not fact["kept"]:
        cells += f"{'unknown' if fact['short_by'] is None else format(fact['short_by'], ','):>9}"
    print(f"{ink} {mark}  {name_cell(fact['label'])} {cells}")
    for line in textwrap.wrap(reasons.fact_reason(fact), WIDTH - 7):
        print(f"{INDENT}  {line}")
