"""Ground a wiki page in a repository of Python code, fit it on both paths, show where room went.

As the module's host does, it makes fact blocks and ranked symbol blocks of the code, and fits them
to a token budget (API path) and to the cap of a `page_context` answer (agent path). The report is
read back from the results. With the built module's folder and the project root on PYTHONPATH:

    python examples/fit_repository.py --repo ~/code/app --page getting-started --budget 4000
"""

import argparse
import json
import os
import signal
import sys
from pathlib import Path

try:
    import grounding_fit as fit
    from examples import host, report, repository
    from workers.context_builder import estimate_tokens
except ImportError as error:
    print(f"{error}; PYTHONPATH: the built module's folder and the project root", file=sys.stderr)
    sys.exit(2)


def print_report(fitted: host.FittedPage, budget: int) -> None:
    """Show where the room went on both paths."""
    parts = fitted.parts
    report.print_path(
        "API path",
        "tokens",
        budget,
        report.grounding_rows(fitted.grounding, parts, estimate_tokens),
        "A piece counts what it adds to the estimate: its rounding falls to the next piece.",
    )
    report.print_path(
        "Agent path",
        "characters of JSON",
        fit._PAGE_CONTEXT_MAX_CHARS,
        report.answer_rows(fitted.given, fitted.answer, parts),
        f"truncated: {fitted.answer.get('truncated', 'no, the answer went back unchanged')}",
    )


def main() -> None:
    """Fit one page, and print the report or the result that was asked for."""
    parser = argparse.ArgumentParser(description=__doc__.partition("\n")[0])
    library = Path(os.__file__).parent
    option = parser.add_argument
    option("--repo", type=Path, default=library / "asyncio", help="folder of Python code")
    option("--page", default="module", metavar="TYPE", help="module, getting-started, ...")
    option("--budget", type=int, default=8000, help="tokens of the page")
    option("--symbols", type=int, default=180, help="most symbol blocks")
    option("--show", choices=("grounding", "answer"), help="print this result alone")
    args = parser.parse_args()
    read = repository.read_repository(args.repo.resolve())
    if not read.sources:
        passed_over = f"{read.passed_over} files passed over"
        parser.error(f"{args.repo.resolve()}: no Python code that can be read, {passed_over}")
    fitted = host.fit_page(read, args.page, args.budget, args.symbols)
    if args.show == "grounding":
        print(fitted.grounding)
    elif args.show == "answer":
        print(json.dumps(fitted.answer, indent=2, ensure_ascii=False))
    else:
        files = f"{len(read.sources)} files, {read.passed_over} passed over"
        print(f"{read.name[:40]}: {files}, {len(fitted.parts.blocks):,} symbols")
        print_report(fitted, args.budget)


if __name__ == "__main__":
    sys.stdout.reconfigure(encoding="utf-8", errors="backslashreplace")
    signal.signal(signal.SIGPIPE, signal.SIG_DFL)  # a reader such as `head` may leave early
    main()
