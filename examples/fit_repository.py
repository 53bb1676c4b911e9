"""Ground a wiki page in a repository of Python code, fit it on both paths, show where room went.

As the module's host does, it makes fact blocks and ranked symbol blocks of the code, and fits them
to a token budget (API path) and to the cap of a `page_context` answer (agent path). The workbench
shows what became of them. With the built module's folder, the project root and its folder workbench
on PYTHONPATH:

    python examples/fit_repository.py --repo ~/code/app --page getting-started --budget 4000
"""

import argparse
import json
import signal
import sys
from collections.abc import Sequence
from pathlib import Path

try:
    import grounding_fit as fit
    import grounding_fit_workbench as workbench
    from examples import host, repository
    from grounding_fit_workbench.browser.page import page_data, page_text
    from grounding_fit_workbench.options import Parser, at_least, folder, writable
    from grounding_fit_workbench.reasons import policy_line
    from grounding_fit_workbench.report import fit_whole, print_page
    from grounding_fit_workbench.terminal import safe
except ImportError as error:
    needed = "the built module's folder, the project root and its folder workbench"
    print(f"{error}; PYTHONPATH: {needed}", file=sys.stderr)
    sys.exit(2)

PAGE_TYPES = ("module", *fit._BUDGETS)  # the first has the default policy


def parse_arguments(arguments: Sequence[str]) -> argparse.Namespace:
    """Return the options of the command line."""
    parser = Parser(prog="run", description=__doc__.partition("\n")[0])
    project = Path(__file__).resolve().parent.parent
    option = parser.add_argument
    option(
        "--repo", type=folder, default=project, help="folder of Python code (default: this one's)"
    )
    types = f"{', '.join(PAGE_TYPES)}; any other has the policy of module"
    option("--page", default="module", metavar="TYPE", help=f"type of the page: {types}")
    option("--budget", type=at_least(0), default=8000, help="tokens of the page (default: 8000)")
    option("--symbols", type=at_least(0), default=180, help="most symbol blocks (default: 180)")
    option("--show", choices=("grounding", "answer"), help="print this result alone")
    option("--html", type=writable, metavar="FILE", help="write a page that shows it in a browser")
    option("--save", type=writable, metavar="FILE", help="append it to a file of the workbench's")
    args = parser.parse_args(arguments)
    if args.page not in PAGE_TYPES:
        print(f"--page {args.page}: not known, so it has the policy of module", file=sys.stderr)
    args.read = repository.read_repository(args.repo.resolve())
    if not args.read.sources:
        passed_over = f"{args.read.passed_over} files passed over"
        parser.error(f"{args.repo.resolve()}: no Python code that can be read, {passed_over}")
    return args


def shown(page: workbench.Page, result: str) -> str:
    """Return what was asked for of a fitted page."""
    if result == "grounding":
        return fit._assemble_grounding(page.parts, page.budget)[0]
    answer = fit._fit_page_context(page.answer, page.parts, page.budget)
    return json.dumps(answer, indent=2, ensure_ascii=False)


def main(arguments: Sequence[str]) -> None:
    """Fit one page, and show the report or what else was asked for."""
    args = parse_arguments(arguments)
    read = args.read
    parts = host.page_parts(read, args.page, args.symbols)
    given = host.page_answer(read.name, args.page, read.sources, parts)
    page = workbench.Page(read.name, args.page, given, parts, args.budget)
    symbols = f"{len(parts.blocks):,} symbols"
    head = [
        f"{read.name[:40]}: a {args.page} page within {args.budget:,} tokens",
        f"{len(read.sources)} files of code, {read.passed_over} passed over, {symbols}",
        policy_line(args.page, parts.budget),
    ]
    if args.save:
        workbench.save_page(
            args.save, given, parts, args.budget, name=read.name, page_type=args.page
        )
    if args.html:
        args.html.write_text(page_text(page_data(page, head)), "utf-8")
        print(args.html, file=sys.stderr if args.show else sys.stdout)
    if args.show:
        text = shown(page, args.show)
        print(safe(text, kept="\n\t") if sys.stdout.isatty() else text)
    elif not args.html:
        print_page(page, fit_whole(page), head)


if __name__ == "__main__":
    sys.stdout.reconfigure(encoding="utf-8", errors="backslashreplace")
    signal.signal(signal.SIGPIPE, signal.SIG_DFL)  # a reader such as `head` may leave early
    try:
        main(sys.argv[1:])
    except OSError as error:
        sys.exit(f"run: {error}")
