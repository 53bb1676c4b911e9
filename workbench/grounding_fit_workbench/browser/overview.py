"""Writes the overview of a comparison for the browser: policies, kinds of blocks, and pages."""

from __future__ import annotations

from collections.abc import Callable, Iterable, Sequence
from html import escape
from pathlib import Path

from grounding_fit_workbench.browser.writer import style
from grounding_fit_workbench.comparison import Comparison, PageRow, Result
from grounding_fit_workbench.tables import signed

Link = Callable[[PageRow], str]  # where a page's own is written; "" where it is not


def overview_text(found: Comparison, link: Link = lambda page: "") -> str:
    """Return the overview; a count of pages opens to their names, a name leads to its own page."""
    folder = Path(__file__).parent
    page = (folder / "overview.html").read_text("utf-8")
    failed = f", {len(found.failed):,} that failed" if found.failed else ""
    sections = [
        section("Policies", policies_table(found, link)),
        section("Fact blocks left out, by kind", kinds_table(found)),
        section("Pages, most damaged first", pages_table(found, link)),
        section("Failed", failed_list(found)),
    ]
    inlined = {
        "STYLE": style("page"),
        "SUMMARY": f"{len(found.pages):,} pages{failed}, each fitted on the agent path. Changes are "
        "beside the first row: − lost or fewer, + won or more.",
        "SECTIONS": "\n".join(sections),
    }
    for name, text in inlined.items():
        page = page.replace(f"/*{name}*/", text)
    return page


def section(title: str, content: str) -> str:
    """Return a section, nothing when it has no content."""
    return f'<section><h2>{title}</h2><div class="scroll">{content}</div></section>' * bool(content)


def table(heads: Sequence[str], rows: Iterable[Sequence[str]]) -> str:
    """Return a table; cells are HTML, the first of a row names it."""
    head = "".join(f'<th scope="col">{each}</th>' for each in heads)
    body = "\n".join(
        f'<tr><th scope="row">{first}</th>{"".join(f"<td>{cell}</td>" for cell in cells)}</tr>'
        for first, *cells in rows
    )
    return f"<table><thead><tr>{head}</tr></thead><tbody>\n{body}\n</tbody></table>"


def named(page: PageRow, link: Link) -> str:
    """Return a page's name, which leads to its own page if there is one."""
    name = escape(page.name)
    return f'<a href="{escape(link(page))}">{name}</a>' if link(page) else name


def opened(count: int, pages: Iterable[PageRow], link: Link) -> str:
    """Return a count that opens to the names of its pages."""
    names = "".join(f"<li>{named(page, link)}</li>" for page in pages)
    return f"<details><summary>{count:,}</summary><ul>{names}</ul></details>" if count else "0"


def changed(number: int, pages: list[PageRow], link: Link) -> str:
    """Return a change of a number of blocks, and the pages that it is of."""
    return f"{signed(number)} {opened(len(pages), pages, link)}" if number else "="


def policies_table(found: Comparison, link: Link) -> str:
    """Return what each policy makes of all pages."""
    outcomes = list(found.policies[0].outcomes)
    rows = []
    for row in found.policies:
        cells = [
            opened(
                count,
                (page for page in found.pages if page.by_policy[row.name].outcome == outcome),
                link,
            )
            for outcome, count in row.outcomes.items()
        ]
        won = [page for page in found.pages if page.changes(row.name)[0]]
        lost = [page for page in found.pages if page.changes(row.name)[1]]
        left_out = sum(kind.left_out for kind in row.kinds.values())
        cells += [f"{row.median_bodies:,.1f}", f"{left_out:,}"]
        cells += [changed(row.won, won, link), changed(-row.lost, lost, link)]
        cells += [signed(row.bodies_change)]
        rows.append([escape(row.name), *cells])
    heads = ["policy", *outcomes, "median bodies", "blocks left out"]
    return table([*heads, "blocks won, on pages", "blocks lost, on pages", "bodies"], rows)


def kinds_table(found: Comparison) -> str:
    """Return how many blocks of each kind are left out by each policy."""
    first = found.policies[0]
    rows = [
        [
            escape(kind),
            f"{counted.given:,}",
            *(f"{row.kinds[kind].left_out:,}" for row in found.policies),
        ]
        for kind, counted in first.kinds.items()
        if any(row.kinds[kind].left_out for row in found.policies)
    ]
    return (
        table(["kind", "given", *(escape(row.name) for row in found.policies)], rows)
        if rows
        else ""
    )


def result_cell(page: PageRow, policy: str, result: Result) -> str:
    """Return what a policy makes of a page, and which blocks it leaves out."""
    won, lost, bodies = page.changes(policy)
    told = [signed(-lost)] * bool(lost) + [signed(won)] * bool(won)
    changes = (
        f" ({', '.join(told + [f'{bodies:+,} bodies'] * bool(bodies))})" if told or bodies else ""
    )
    labels = "".join(f"<li>{escape(label)}</li>" for label in result.left_out)
    count = f"{len(result.left_out)} left out"
    opens = f"<details><summary>{count}</summary><ul>{labels}</ul></details>"
    opens = opens if labels else f"{count}, "
    outcome = "" if result.outcome == "rebuilt" else f"<small>{result.outcome}</small>"
    return f"{opens}{result.bodies:,} bodies{changes}{outcome}"


def pages_table(found: Comparison, link: Link) -> str:
    """Return what each policy makes of each page."""
    rows = [
        [
            named(page, link),
            *(result_cell(page, policy, result) for policy, result in page.by_policy.items()),
        ]
        for page in found.pages
    ]
    return table(["page", *(escape(row.name) for row in found.policies)], rows)


def failed_list(found: Comparison) -> str:
    """Return the pages that were not tried, with their errors."""
    items = "".join(f"<li>{escape(each.name)}: {escape(each.error)}</li>" for each in found.failed)
    return f"<ul>{items}</ul>" * bool(items)
