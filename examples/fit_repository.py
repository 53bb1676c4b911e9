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


def parse_arguments() -> argparse.Namespace:
    """Return the options of the command line."""
    parser = argparse.ArgumentParser(description=__doc__.partition("\n")[0])
    library = Path(os.__file__).parent
    option = parser.add_argument
    option("--repo", type=Path, default=library / "asyncio", help="folder of Python code")
    option("--page", default="module", metavar="TYPE", help="module, getting-started, ...")
    option("--budget", type=int, default=8000, help="tokens of the page")
    option("--symbols", type=int, default=180, help="most symbol blocks")
    option("--show", choices=("grounding", "answer"), help="print this result alone")
    args = parser.parse_args()
    args.read = repository.read_repository(args.repo.resolve())
    if not args.read.sources:
        passed_over = f"{args.read.passed_over} files passed over"
        parser.error(f"{args.repo.resolve()}: no Python code that can be read, {passed_over}")
    return args


def main() -> None:
    """Fit one page, and print the report or the result that was asked for."""
    args = parse_arguments()
    name = args.read.name
    sources = args.read.sources
    parts = host.page_parts(args.read, args.page, args.symbols)
    grounding = fit._assemble_grounding(parts, args.budget)[0]
    given = host.page_answer(name, args.page, sources, parts)
    answer = fit._fit_page_context(given, parts, args.budget)
    if args.show == "grounding":
        print(grounding)
    elif args.show == "answer":
        print(json.dumps(answer, indent=2, ensure_ascii=False))
    else:
        read = f"{len(sources)} files, {args.read.passed_over} passed over"
        print(f"{name[:40]}: {read}, {len(parts.blocks):,} symbols")
        report.print_path(
            "API path",
            "tokens",
            args.budget,
            report.grounding_rows(grounding, parts, estimate_tokens),
            "A piece counts what it adds to the estimate: its rounding falls to the next piece.",
        )
        report.print_path(
            "Agent path",
            "characters of JSON",
            fit._PAGE_CONTEXT_MAX_CHARS,
            report.answer_rows(given, answer, parts),
            f"truncated: {answer.get('truncated', 'no, the answer went back unchanged')}",
        )


if __name__ == "__main__":
    sys.stdout.reconfigure(encoding="utf-8", errors="backslashreplace")
    signal.signal(signal.SIGPIPE, signal.SIG_DFL)  # a reader such as `head` may leave early
    main()
