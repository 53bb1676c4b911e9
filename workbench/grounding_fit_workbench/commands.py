"""What each command does."""

from __future__ import annotations

import json
import sys
from collections.abc import Callable
from functools import partial
from pathlib import Path
from typing import Any, TypeVar

from grounding_fit_workbench.browser.overview import overview_text
from grounding_fit_workbench.browser.page import page_data, page_text
from grounding_fit_workbench.budget_ranges import ranges
from grounding_fit_workbench.comparison import Comparison, Failed, PageRow, summed, tried_on
from grounding_fit_workbench.difference import Diff, diff, diff_reports, load_reports
from grounding_fit_workbench.mistakes import problems
from grounding_fit_workbench.options import Parser
from grounding_fit_workbench.page_files import Pages, Refused, load_pages
from grounding_fit_workbench.page_lines import Page
from grounding_fit_workbench.reasons import policy_line
from grounding_fit_workbench.report import fit_whole, print_page
from grounding_fit_workbench.tables import print_comparison, print_diff, print_ranges
from grounding_fit_workbench.terminal import progress, safe
from grounding_fit_workbench.trials import Trial
from grounding_fit_workbench.workers import lines_of, over_pages

Made = TypeVar("Made")
OVERVIEW = "index.html"


def write(file: Path, text: str) -> None:
    """Write a text that a host's names may stand in, and tell where."""
    try:
        file.write_text(text, "utf-8", "backslashreplace")
    except OSError as error:
        raise OSError(f"{file}: {error.strerror}") from None
    print(file)


# --- one page ---


def page_of(parser: Parser, file: Path, name: str | None) -> Page:
    """Return the page of a name, the last one when there are several."""
    pages = load_pages(file)
    for refused in pages.refused:
        print(f"{file}: {safe(str(refused))}", file=sys.stderr)
    names = list(dict.fromkeys(page.name for page in pages))
    if name is None and len(names) == 1:
        return pages[-1]
    if not names:
        parser.error(f"{file}: no pages")
    if name not in names:
        some = ", ".join(names[:10]) + (", ..." if len(names) > 10 else "")
        parser.error(f"{file}: name one of its {len(names):,} pages: {some}")
    return [page for page in pages if page.name == name][-1]


def head_of(page: Page) -> list[str]:
    """Return the lines above a page."""
    kind = f"a {page.page_type} page" if page.page_type else "a page"
    return [
        f"{page.name}: {kind} within {page.budget:,} tokens",
        f"{len(page.parts.prose):,} fact blocks, {len(page.parts.blocks):,} symbols",
        policy_line(page.page_type, page.parts.budget),
    ]


def made(args: Any, make: Callable[[Page], Made]) -> tuple[Page, Made]:
    """Return the page of the options and what is made of it; one that fails is told in a line."""
    parser: Parser = args.parser
    page = page_of(parser, args.pages, args.name)
    try:
        return page, make(page)
    except Exception as error:  # the host's utilities may raise anything
        parser.error(f"{page.name}: {type(error).__name__}: {error}")


def show_page(args: Any) -> int:
    """Print a page, or write it for the browser."""
    if args.html:
        _, text = made(args, lambda page: page_text(page_data(page, head_of(page))))
        write(args.html, text)
    else:
        page, fitted = made(args, fit_whole)
        print_page(page, fitted, head_of(page))
    return 0


def show_ranges(args: Any) -> int:
    """Print from which token budget on what stands in a page."""
    page, found = made(args, ranges)
    print_ranges(page, found, most=0 if args.all else 20)
    return 0


def show_problems(args: Any) -> int:
    """Print what is wrong with the pages of a file."""
    pages = load_pages(args.pages)
    told = [str(refused) for refused in pages.refused]
    for page in pages:
        told += [f"{page.name}: {problem}" for problem in problems(page.answer, page.parts)]
    for line in told:
        print(safe(line))
    print(f"{len(told):,} problems in {len(pages):,} pages", file=sys.stderr)
    return 1 if told else 0


# --- all pages ---


def compare_pages(args: Any) -> int:
    """Try policies on the pages of a file."""
    found = compare_file(args.pages, args.parser.trials(args.trials), args)
    return 1 if found.failed else 0


def compare_file(file: Path, trials: list[Trial], args: Any) -> Comparison:
    """Try policies on the pages of a file, and show what came of it as the options ask."""
    host = getattr(args, "host", "")
    lines = lines_of(file)
    rows = over_pages(file, lines, partial(tried_on, trials=trials), args.workers, host)
    found = summed(progress(rows, len(lines), "pages compared"), trials)
    if args.html:
        compared = {row.number for row in found.pages}
        lines = [line for line in lines if line[0] in compared]
        work = partial(write_page, folder=args.html)
        written = over_pages(file, lines, work, args.workers, host)
        write_overview(found, args.html, dict(progress(written, len(lines), "pages written")))
    if args.json:
        write(args.json, json.dumps(found.as_json(), indent=1))
    print_comparison(found, args.most)
    return found


def page_file(number: int) -> str:
    """Return the name of the file for the browser of a page, by its line."""
    return f"page-{number}.html"


def write_overview(found: Comparison, folder: Path, done: dict[int, Failed | None]) -> None:
    """Write the overview of a comparison, which leads to the pages that were written."""
    found.failed.extend(failed for failed in done.values() if failed)

    def link(page: PageRow) -> str:
        return "" if done[page.number] else page_file(page.number)

    write(folder / OVERVIEW, overview_text(found, link))


def write_page(number: int, page: Page | Refused, *, folder: Path) -> tuple[int, Failed | None]:
    """Write a page for the browser; return what failed."""
    if isinstance(page, Refused):
        return number, None
    try:
        text = page_text(page_data(page, head_of(page), OVERVIEW))
        (folder / page_file(number)).write_text(text, "utf-8")
    except Exception as error:  # the host's utilities may raise anything
        return number, Failed(page.name, f"{type(error).__name__}: {error}")
    return number, None


def diff_pages(args: Any) -> int:
    """Compare the pages of two files, or with another policy, or two files of reports."""
    if (args.other is None) == (args.trial is None):
        args.parser.error("expected OTHER, or --try TRIAL")
    found = diff_of_reports(args) if args.other else None
    if found is None:
        before = load_pages(args.pages)
        after = load_pages(args.other) if args.other else changed(before, args.trial)
        found = diff(with_refused(before), with_refused(after))
    print_diff(found)
    return 1 if found.failed else 0


def changed(pages: Pages, trial: Trial) -> Pages:
    """Return pages with another policy."""
    made = Pages()
    made.extend(trial.changed(page) for page in pages)
    return made


def with_refused(pages: Pages) -> list[Page | Refused]:
    """Return the pages of a file, and the lines that are none."""
    return [*pages, *pages.refused]


def diff_of_reports(args: Any) -> Diff | None:
    """Compare two files of reports by their order; None if they hold none."""
    before, after = load_reports(args.pages), load_reports(args.other)
    if before is None or after is None:
        return None
    numbered = enumerate(zip(before, after, strict=False), 1)
    pages = [diff_reports(one, other, f"report {number}") for number, (one, other) in numbered]
    names = [f"report {number + 1}" for number in range(max(len(before), len(after)))]
    only = [names[len(pages) : len(side)] for side in (before, after)]
    return Diff(pages, only[0], only[1], [])
