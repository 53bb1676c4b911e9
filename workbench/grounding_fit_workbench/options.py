"""What options of a command may be; what they may not be is refused before any work."""

from __future__ import annotations

import argparse
import os
from collections.abc import Callable, Iterable
from pathlib import Path
from typing import NoReturn

from grounding_fit_workbench.terminal import safe
from grounding_fit_workbench.trials import WORDS, Trial, as_trials

WORDS_HELP = "\n".join(f"{word:<21}{meaning}" for word, meaning in WORDS.items())
TRIAL_HELP = f"""\
A TRIAL is another policy, in words separated by blanks, which a name and a colon may stand before:

  --try "code_floor=.2 share:digest=.25"    --try "low: code_floor=.1"

{WORDS_HELP}"""


def readable(text: str) -> Path:
    """Return a file that can be read."""
    file = Path(text)
    try:
        with open(file, "rb"):
            return file
    except OSError as error:
        raise argparse.ArgumentTypeError(f"{text}: {error.strerror}") from None


def folder(text: str) -> Path:
    """Return a folder that is there."""
    path = Path(text)
    if not path.is_dir():
        raise argparse.ArgumentTypeError(f"{text}: expected a folder, and there is none")
    return path


def writable(text: str) -> Path:
    """Return a file that can be written, in a folder that is there."""
    file = Path(text)
    if file.is_dir():
        raise argparse.ArgumentTypeError(f"{text}: expected a file, got a folder")
    if not file.parent.is_dir():
        raise argparse.ArgumentTypeError(f"{text}: there is no folder {file.parent}")
    if not os.access(file if file.exists() else file.parent, os.W_OK):
        raise argparse.ArgumentTypeError(f"{text}: not to be written")
    return file


def writable_folder(text: str) -> Path:
    """Return a folder that can be written; it is made where the folder above it is there."""
    path = Path(text)
    if path.exists() and not path.is_dir():
        raise argparse.ArgumentTypeError(f"{text}: expected a folder, got a file")
    try:
        path.mkdir(exist_ok=True)
    except OSError as error:
        raise argparse.ArgumentTypeError(f"{text}: {error.strerror}") from None
    if not os.access(path, os.W_OK):
        raise argparse.ArgumentTypeError(f"{text}: not to be written")
    return path


def at_least(least: int) -> Callable[[str], int]:
    """Return a reader of integers from one on."""

    def read(text: str) -> int:
        try:
            number = int(text)
        except ValueError:
            number = least - 1
        if number < least:
            raise argparse.ArgumentTypeError(f"expected an integer from {least} on, got {text!r}")
        return number

    return read


def trial(text: str) -> Trial:
    """Return the policy that words tell."""
    try:
        return Trial.parse(text)
    except ValueError as error:
        raise argparse.ArgumentTypeError(str(error)) from None


class Parser(argparse.ArgumentParser):
    """Says what is wrong in one line."""

    def error(self, message: str) -> NoReturn:
        """End the program with a line that says what is wrong."""
        self.exit(2, f"{self.prog}: {safe(message)}\n")

    def trials(self, told: Iterable[Trial]) -> list[Trial]:
        """Return the policies to try, the unchanged pages first; refuse two of one name."""
        try:
            return as_trials(told)
        except ValueError as error:
            self.error(str(error))


def add_comparison(parser: Parser) -> None:
    """Add the options of a comparison."""
    parser.add_argument(
        "--try",
        dest="trials",
        type=trial,
        action="append",
        default=[],
        metavar="TRIAL",
        help="another policy; to be given as often as wanted",
    )
    parser.add_argument(
        "--html", type=writable_folder, metavar="DIR", help="write an overview and all pages there"
    )
    parser.add_argument("--json", type=writable, metavar="FILE", help="write it as JSON")
    parser.add_argument(
        "--workers", type=at_least(1), default=1, metavar="COUNT", help="processes (default: 1)"
    )
    parser.add_argument(
        "--most",
        type=at_least(0),
        default=20,
        metavar="ROWS",
        help="rows that a table shows (default: 20; 0: all)",
    )
