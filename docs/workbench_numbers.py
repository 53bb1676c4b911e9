"""Makes the numbers of `docs/workbench.md`, of the page that `docs/fitting.md` works through.

Between the lines `<!-- worked: NAME -->` and `<!-- end -->` the document holds what this program
writes. With the built module's folder, the project root and its folder workbench on PYTHONPATH:

    python docs/workbench_numbers.py            # writes the numbers
    python docs/workbench_numbers.py --check    # fails when they are out of date
"""

import argparse
import sys
from dataclasses import replace
from pathlib import Path

import grounding_fit as fit
import worked_page
from grounding_fit_workbench import Page, Trial, advice, diff

DOCUMENT = Path(__file__).with_name("workbench.md")
BUDGET = 8_000  # tokens
STEP = 500  # tokens, of stepped budgets


def page_of(budget: int) -> Page:
    """Return the page with a budget in tokens."""
    run = worked_page.run(budget)
    return Page("ferry", "getting-started", run.given, run.parts, budget)


def advice_section() -> str:
    """Show what would keep each block that the small page left out, and its next body."""
    page = page_of(worked_page.SMALL_BUDGET)
    lines = []
    for each in advice(page):
        lines.append(each.what)
        lines += [f"  + {change}" for change in each.changes]
        lines += [f"  - {words}" for words in each.refused]
    return "\n".join(["```text", *lines, "```"])


def with_fact(page: Page, index: int) -> Page:
    """Return the page with one fact block longer by a character, at its end."""
    prose = list(page.parts.prose)
    text, *rest = prose[index]
    prose[index] = fit.FactBlock(f"{text}.", *rest)
    return page.with_parts(prose=prose)


def prefixes_section() -> str:
    """Show how much of the text stays the same before its first change, by what changes."""
    page = page_of(BUDGET)
    more = BUDGET * 101 // 100
    blocks = page.parts.blocks
    note_first = {"truncated": "", **page.answer}
    first, *others = page.parts.prose
    changes = {
        f"a budget of {more:,} instead of {BUDGET:,} tokens": (page, replace(page, budget=more)),
        f"the same, rounded down to a multiple of {STEP}": (
            page,
            replace(page, budget=more // STEP * STEP),
        ),
        "a code floor of 0.3 instead of 0.35": (page, Trial("", code_floor=0.3).changed(page)),
        "the first fact block longer by a character": (page, with_fact(page, 0)),
        "the same, with that block moved to the end": (
            page.with_parts(prose=[*others, first]),
            with_fact(page.with_parts(prose=[*others, first]), len(others)),
        ),
        "the two best symbols exchanged": (
            page,
            page.with_parts(blocks=[blocks[1], blocks[0], *blocks[2:]]),
        ),
        "the lowest symbol gone": (page, page.with_parts(blocks=blocks[:-1])),
        "the same, where the host's answer begins with `truncated`": (
            replace(page, answer=note_first),
            replace(page, answer=note_first).with_parts(blocks=blocks[:-1]),
        ),
    }
    rows = []
    for what, (before, after) in changes.items():
        told = diff([before], [after]).pages[0]
        rows.append([what, *(f"{each.share:.0%}" for each in (told.agent, told.api))])
    return worked_page.table(["what changes", "agent path", "API path"], rows)


def main() -> None:
    """Write the document, or tell whether it is up to date."""
    parser = argparse.ArgumentParser(description=__doc__.partition("\n")[0])
    parser.add_argument("--check", action="store_true", help="write nothing; fail when out of date")
    check = parser.parse_args().check
    made = {"advice": advice_section(), "prefixes": prefixes_section()}
    before = DOCUMENT.read_text(encoding="utf-8")
    now = worked_page.filled(DOCUMENT, made)
    if check and now != before:
        sys.exit(f"out of date: {DOCUMENT.name}; docs/workbench_numbers.py makes its numbers anew")
    DOCUMENT.write_text(now, encoding="utf-8")
    print("up to date" if now == before else f"written: {DOCUMENT.name}")


if __name__ == "__main__":
    main()
