"""What the command shows of many pages, or of two fits, on a terminal."""

from __future__ import annotations

from collections.abc import Iterable, Sequence

from grounding_fit_workbench.budget_ranges import Range, Ranges, fact_spans
from grounding_fit_workbench.comparison import Comparison, Failed, PageRow
from grounding_fit_workbench.difference import Diff, PageDiff, Prefix
from grounding_fit_workbench.page_lines import Page
from grounding_fit_workbench.pieces import symbol_name
from grounding_fit_workbench.terminal import print_table, say

OUTCOME_HEADS = ("fits", "prior", "rebuilt", "over")
SHORT = {"fits": "fits", "fits without prior_markdown": "prior"}
STRETCHES = 3  # of budgets in a sentence


def print_failed(failed: Iterable[Failed]) -> None:
    """Name the pages that were not tried, with their errors."""
    for each in failed:
        say(f"FAILED: {each.name}: {each.error}", "")


def print_comparison(found: Comparison, most: int) -> None:
    """Print what policies make of all pages, of each kind of block, and of the pages."""
    print_failed(found.failed)
    if not found.pages:
        print("no pages")
        return
    for at, row in enumerate(found.policies):
        say(f"{at}: {row.name}", "")
    print_policies(found)
    print_kinds(found, most)
    print_pages(found, most)


def signed(number: int) -> str:
    """Return a change with its sign; an equals sign for none."""
    return f"{number:+,}" if number else "="


def print_policies(found: Comparison) -> None:
    """Print a row for each policy."""
    print(f"{len(found.pages):,} pages by outcome; blocks and bodies in all, beside the first row")
    heads = ["", *OUTCOME_HEADS, "median", "left", "won", "lost", "bodies", "policy"]
    rows = []
    for at, row in enumerate(found.policies):
        changes = [signed(row.won), signed(-row.lost), signed(row.bodies_change)]
        outcomes = [f"{count:,}" for count in row.outcomes.values()]
        cells = [str(at), *outcomes, f"{row.median_bodies:,.1f}", f"{row.left_out:,}", *changes]
        rows.append([*cells, row.name])
    print_table(heads, rows)
    say(
        "prior: fits without prior_markdown. over: the cap. median: of bodies a page. left, won, "
        "lost: fact blocks left out, and won and lost.",
        "",
    )
    for at, row in enumerate(found.policies):
        if (row.won, row.bodies_lost) != (row.won_within, row.bodies_lost_within):
            say(
                f"{at}: in answers within the cap, {row.won_within:,} of {row.won:,} blocks won "
                f"and {row.bodies_lost_within:,} of {row.bodies_lost:,} bodies lost.",
                "",
            )


def print_kinds(found: Comparison, most: int) -> None:
    """Print how many blocks of each kind are left out, those first that suffer most."""
    policies = found.policies
    kinds = found.kinds_left_out()
    if not kinds:
        return
    print("\nFact blocks left out, by kind and policy")
    rows = [
        [
            f"{policies[0].kinds[kind].given:,}",
            *(f"{row.kinds[kind].left_out:,}" for row in policies),
            kind,
        ]
        for kind in kinds
    ]
    print_table(["given", *map(str, range(len(policies))), "kind"], rows[: most or None])
    print_more(len(rows), most)


def print_more(count: int, most: int) -> None:
    """Say how many rows are not shown."""
    if most and count > most:
        print(f"and {count - most:,} more")


def page_cells(page: PageRow) -> list[str]:
    """Return what each policy makes of a page: signs tell better and worse apart."""
    cells = []
    for at, (policy, result) in enumerate(page.by_policy.items()):
        won, lost, bodies = page.changes(policy)
        changed = [f"-{lost}" * bool(lost) + f"+{won}" * bool(won)]
        changed.append(f"{bodies:+}b" if bodies else "")
        told = " ".join(filter(None, changed)) or "="
        if at == 0:
            told = SHORT.get(result.outcome, f"{len(result.left_out)} {result.bodies}b")
        cells.append(told + (f" OVER by {result.excess:,}" if result.excess else ""))
    return cells


def print_pages(found: Comparison, most: int) -> None:
    """Print a row for each page, most damaged first."""
    print("\nPages, most damaged first")
    pages = found.pages[: most or None]
    heads = [*map(str, range(len(found.policies))), "page"]
    print_table(heads, [[*page_cells(page), page.name] for page in pages])
    print_more(len(found.pages), most)
    say(
        "0: fact blocks left out, and bodies. The others: blocks lost (-) and won (+), and bodies "
        "fewer or more (b); = as in 0. OVER: over the cap, by so many JSON characters.",
        "",
    )


# --- two fits ---


def prefix_cells(prefix: Prefix | None) -> list[str]:
    """Return how much of a text stays the same."""
    if prefix is None:
        return ["", ""]
    return [f"{prefix.same:,}", f"{prefix.share:.1%}"]


def print_diff(found: Diff) -> None:
    """Print what differs between two fits of pages, and which pages only one side has."""
    print_failed(found.failed)
    if not found.pages:
        print("no page of one name on both sides")
    else:
        print("Pages, by how much of the text stays the same before its first change")
        heads = ["won", "lost", "bodies", "agent", "of it", "API", "of it", "page"]
        print_table(heads, [diff_cells(each) for each in found.pages])
        say("agent: code points of the answer's JSON text. API: of the grounding.", "")
    for each in found.pages:
        print_diff_words(each)
    for side, names in (("first", found.only_before), ("second", found.only_after)):
        if names:
            say(f"only in the {side}: {', '.join(names)}", "")


def diff_cells(each: PageDiff) -> list[str]:
    """Return the row of a page."""
    before, after = each.bodies
    bodies = "?" if before is None or after is None else signed(after - before)
    won, lost = signed(len(each.won)), signed(-len(each.lost))
    return [won, lost, bodies, *prefix_cells(each.agent), *prefix_cells(each.api), each.name]


def print_diff_words(each: PageDiff) -> None:
    """Print which blocks differ, if any does."""
    told = []
    if each.outcomes[0] != each.outcomes[1]:
        told.append(f"{each.outcomes[0]} before, {each.outcomes[1]} now")
    for word in ("won", "lost", "added", "removed"):
        labels = getattr(each, word)
        if labels:
            told.append(f"{word} {', '.join(labels)}")
    if told:
        say(f"{each.name}: {'; '.join(told)}", "")


# --- ranges ---


def spoken(found: Sequence[tuple[int, int | None]]) -> str:
    """Return stretches of budgets in words."""
    told = [f"{least:,} on" if most is None else f"{least:,}-{most:,}" for least, most in found]
    return ", ".join(told) or "no budget"


def print_ranges(page: Page, found: Ranges, most: int) -> None:
    """Print from which budget on what stands in a page."""
    print("Agent path, by token budget: bodies, and fact blocks left out")
    rows = []
    for each in found.agent:
        left_out = [
            block.label()
            for block, state in zip(page.parts.prose, each.facts, strict=True)
            if state == "left out"
        ]
        last = "on" if each.most is None else f"- {each.most:,}"
        rows.append([f"{each.least:,}", last, str(each.bodies), str(len(left_out))])
        rows[-1].append(", ".join(left_out))
    print_table(["from", "", "bodies", "left out", ""], rows)
    print("\nAPI path, by token budget: where each fact block is whole, and where in part")
    for index, block in enumerate(page.parts.prose):
        whole = fact_spans(found.api, index, "whole")
        part = fact_spans(found.api, index, "cut")
        say(f"{block.label()}: whole {few(whole, most)}; in part {few(part, most)}", "")
    if not found.cut_is_monotone:
        say("The host's cut keeps less for more tokens here and there; every number was tried.", "")
    print("\nAPI path: the least budget that keeps the body of a symbol, by rank")
    bodies = [least_budget(found.api, index) for index in range(len(page.parts.blocks))]
    rows = [
        [str(rank + 1), least, symbol_name(page.parts, rank)] for rank, least in enumerate(bodies)
    ]
    print_table(["rank", "from", "symbol"], rows[: most or None])
    print_more(len(rows), most)


def few(found: list[tuple[int, int | None]], most: int) -> str:
    """Return some stretches of budgets, and how many more there are."""
    shown = spoken(found[:STRETCHES] if most else found)
    more = len(found) - STRETCHES
    return f"{shown} and {more:,} stretches more" if most and more > 0 else shown


def least_budget(found: list[Range], index: int) -> str:
    """Return the least budget that keeps the body of a symbol on the API path."""
    return next((f"{each.least:,}" for each in found if each.bodies > index), "none")
