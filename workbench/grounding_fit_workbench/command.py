"""The command `grounding-fit-workbench`: asks about the pages that a host has saved."""

from __future__ import annotations

import argparse
import importlib
import io
import os
import signal
import sys
from collections.abc import Callable, Sequence
from concurrent.futures import BrokenExecutor
from typing import Any

from grounding_fit_workbench import commands, module
from grounding_fit_workbench.options import (
    TRIAL_HELP,
    Parser,
    add_comparison,
    readable,
    trial,
    writable,
)
from grounding_fit_workbench.terminal import safe

DESCRIPTION = """\
Shows what the fit of a host's wiki pages did and why, and tries what would have kept more. PAGES is
a file where the host saves its pages, by grounding_fit_workbench.save_page as it fits them."""
HOST_HELP = "a module of the host's, imported first: it puts in place what a fit takes of its host"


def main() -> int:
    """Run the command as a shell expects it to end."""
    signal.signal(signal.SIGPIPE, signal.SIG_DFL)  # a reader such as `head` may leave early
    if isinstance(sys.stdout, io.TextIOWrapper):
        sys.stdout.reconfigure(errors="backslashreplace")
    try:
        return run(sys.argv[1:])
    except KeyboardInterrupt:
        return 130
    except (OSError, BrokenExecutor) as error:  # a file, or a process that was killed
        print(f"grounding-fit-workbench: {safe(str(error))}", file=sys.stderr)
        return 2


def run(arguments: Sequence[str]) -> int:
    """Do what the arguments say; return 1 where a page failed or has a problem, else 0."""
    args = parse(arguments)
    take_host(args.parser, args.host)
    done: int = args.run(args)
    return done


def take_host(parser: Parser, host: str) -> None:
    """Import the host's module, then the one that fits pages; say in one line what they lack."""
    try:
        if host:
            sys.path.insert(0, os.getcwd())
            importlib.import_module(host)
    except Exception as error:  # it is the host's own code that runs
        parser.error(f"--host {host}: {type(error).__name__}: {error}")
    try:
        module.load()
    except Exception as error:
        hint = "" if host else "; --host MODULE names a module of the host's that puts it in place"
        parser.error(f"{error}{hint}")


class Commands:
    """The commands of a parser."""

    def __init__(self, parser: Parser) -> None:
        self.adders = parser.add_subparsers(metavar="COMMAND", required=True)

    def add(self, name: str, run: Callable[[Any], int], about: str, epilog: str = "") -> Parser:
        """Add a command on a file of pages."""
        command: Parser = self.adders.add_parser(
            name,
            help=about,
            description=f"{about[0].upper()}{about[1:]}.",
            epilog=epilog,
            formatter_class=argparse.RawDescriptionHelpFormatter,
        )
        hidden = argparse.SUPPRESS  # else its default would undo what stands before the command
        command.add_argument("--host", metavar="MODULE", default=hidden, help=HOST_HELP)
        command.add_argument("pages", type=readable, metavar="PAGES", help="a file of saved pages")
        command.set_defaults(run=run, parser=command)
        return command


def parse(arguments: Sequence[str]) -> Any:
    """Return the options of the command line."""
    parser = Parser(prog="grounding-fit-workbench", description=DESCRIPTION)
    parser.add_argument("--host", metavar="MODULE", default="", help=HOST_HELP)
    add = Commands(parser).add
    one = "of the page; not needed when there is one alone"
    page = add("page", commands.show_page, "tell what became of a page, and what would keep more")
    page.add_argument("name", nargs="?", help=one)
    page.add_argument("--html", type=writable, metavar="FILE", help="write it for the browser")
    found = add("ranges", commands.show_ranges, "tell from which token budget on what stands")
    found.add_argument("name", nargs="?", help=one)
    found.add_argument("--all", action="store_true", help="show every stretch and every symbol")
    add_comparison(
        add("compare", commands.compare_pages, "try other policies on all pages", TRIAL_HELP)
    )
    two = add("diff", commands.diff_pages, "compare two fits of the same pages", TRIAL_HELP)
    second = "the second fit: pages, or reports"
    two.add_argument("other", nargs="?", type=readable, metavar="OTHER", help=second)
    policy = "the second fit: the pages with this policy"
    two.add_argument("--try", dest="trial", type=trial, metavar="TRIAL", help=policy)
    add("problems", commands.show_problems, "list wrong values that pages would meet one day")
    return parser.parse_args(arguments)


if __name__ == "__main__":
    sys.exit(main())
