"""Ground a wiki page in a repository of Python code, fit it on both paths, show where room went.

As the module's host does, it makes fact blocks and ranked symbol blocks of the code, and fits them
to a token budget (API path) and to the cap of a `page_context` answer (agent path). The report is
drawn from the module's own reports. With the built module's folder and the project root on
PYTHONPATH:

    python examples/fit_repository.py --repo ~/code/app --page getting-started --budget 4000
"""

import argparse
import json
import signal
import sys
from pathlib import Path

try:
    import grounding_fit as fit
    from examples import browser_page, host, pieces, reasons, report, repository
    from workers.context_builder import estimate_tokens
except ImportError as error:
    print(f"{error}; PYTHONPATH: the built module's folder and the project root", file=sys.stderr)
    sys.exit(2)

PAGE_TYPES = ("module", *fit._BUDGETS)  # the first has the default policy


def parse_arguments() -> argparse.Namespace:
    """Return the options of the command line."""
    parser = argparse.ArgumentParser(description=__doc__.partition("\n")[0])
    project = Path(__file__).resolve().parent.parent
    option = parser.add_argument
    option("--repo", type=Path, default=project, help="folder of Python code (default: this one's)")
    types = f"{', '.join(PAGE_TYPES)}; any other has the policy of module"
    option("--page", default="module", metavar="TYPE", help=f"type of the page: {types}")
    option("--budget", type=int, default=8000, help="tokens of the page (default: 8000)")
    option("--symbols", type=int, default=180, help="most symbol blocks (default: 180)")
    option("--show", choices=("grounding", "answer"), help="print this result alone")
    option("--html", type=Path, metavar="FILE", help="write a page that shows it in a browser")
    args = parser.parse_args()
    if args.budget < 0:
        parser.error(f"--budget {args.budget}: a budget has 0 tokens or more")
    if args.page not in PAGE_TYPES:
        print(f"--page {args.page}: not known, so it has the policy of module", file=sys.stderr)
    args.read = repository.read_repository(args.repo.resolve())
    if not args.read.sources:
        passed_over = f"{args.read.passed_over} files passed over"
        parser.error(f"{args.repo.resolve()}: no Python code that can be read, {passed_over}")
    return args


def main() -> None:
    """Fit one page, and show the report or the result that was asked for."""
    args = parse_arguments()
    read = args.read
    parts = host.page_parts(read, args.page, args.symbols)
    given = host.page_answer(read.name, args.page, read.sources, parts)
    api = pieces.fit_api(parts, args.budget)
    agent = pieces.fit_agent(given, parts, args.budget)
    files = f"{len(read.sources)} files of code, {read.passed_over} passed over"
    head = [
        f"{read.name[:40]}: a {args.page} page within {args.budget:,} tokens",
        f"{files}, {len(parts.blocks):,} symbols",
        reasons.policy_line(args.page, parts.budget),
    ]
    if args.show == "grounding":
        print(api.text)
    elif args.show == "answer":
        print(json.dumps(agent.answer, indent=2, ensure_ascii=False))
    elif args.html:
        data = browser_page.page_data(given, parts, args.budget, estimate_tokens, head)
        args.html.write_text(browser_page.page_text(data), "utf-8")
        print(args.html)
    else:
        print(*head, sep="\n")
        report.print_api(parts, api, estimate_tokens)
        report.print_agent(parts, agent)


if __name__ == "__main__":
    sys.stdout.reconfigure(encoding="utf-8", errors="backslashreplace")
    signal.signal(signal.SIGPIPE, signal.SIG_DFL)  # a reader such as `head` may leave early
    main()
