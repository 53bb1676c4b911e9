"""Measures `grounding_fit` beside the same rules in plain Python, on pages of real code.

The pages are made of the interpreter's own library, as the example makes them of a repository.
Both sides take the same pages by turns in one process and must give the same results: the run
fails when they do not. Whether a target is met is told, not enforced. With the built module's
folder, the project root and the tests' folder on PYTHONPATH:

    python bench/bench.py [--quick]
"""

import argparse
import os
import shutil
import subprocess
import sys
import textwrap
from collections.abc import Iterator
from pathlib import Path

import instructions
import pages
import tables
from instruction_tables import counted, profiled, whole_way
from peers import orjson, peers
from real_tokenizer import with_a_tokenizer
from sides import Sides
from table import Table
from tail import tail
from targets import targets

ROOT = Path(__file__).resolve().parent.parent


def machine() -> str:
    """Name the machine, the interpreter and the commit."""
    cpu = Path("/proc/cpuinfo").read_text().partition("model name\t: ")[2].partition("\n")[0]
    told = [cpu or "unnamed processor", f"{os.cpu_count()} cores"]
    told.append(f"CPython {sys.version.split()[0]}")
    command = ["git", "-C", str(ROOT), "rev-parse", "--short", "HEAD"]
    if shutil.which("git"):
        found = subprocess.run(command, capture_output=True, text=True, check=False)
        commit = found.stdout.strip()
        told += [f"commit {commit}"] if commit else []
    return ", ".join(told)


def heading(args: argparse.Namespace) -> str:
    """Return what stands above the tables: how they were made, and where."""
    flags = [f"--{name}" for name in ("quick", "peers") if getattr(args, name)]
    if args.against:
        flags.append("--against FOLDER")
    command = " ".join(["./dev bench --markdown docs/benchmarks.md", *flags])
    how = (
        f"`{command}` wrote this page, and repeats it. Module and plain Python take turns in one "
        "process on pages of the interpreter's own library, and must give the same results. Times "
        "vary with what else the machine does, ratios of the least times less, instructions hardly."
    )
    return f"# Benchmarks\n\n{textwrap.fill(how, 100)}\n\nMachine: {machine()}."


def counts_of(against: str | None, ratios: tables.Ratios) -> tuple[dict, list[Table | str]]:
    """Return the instructions of the calls and their tables, or why there are none."""
    if not shutil.which("valgrind"):
        return {}, ["Instructions were not counted: there is no valgrind."]
    counts = instructions.instructions()
    before = instructions.instructions(against) if against else None
    return counts, [whole_way(counts, ratios), counted(counts, before), profiled(counts)]


def measured(args: argparse.Namespace) -> Iterator[Table | str]:
    """Yield the parts of the page one by one, as they are measured."""
    yield heading(args)
    seconds = 0.2 if args.quick else 2.0
    library = pages.read_library()
    in_python = Sides("in Python", {}, pages.TOKENS, library)
    built_in = Sides("built in", pages.BUILT_IN, pages.CHARS, library)
    yield tables.answers(in_python)
    yield tables.answers(built_in)
    table, ratios = tables.times(in_python, seconds)
    yield table
    table, built_in_ratios = tables.times(built_in, seconds)
    yield table
    yield tables.one_core(in_python, seconds)
    yield tail(in_python)
    yield tables.many_workers()
    yield from with_a_tokenizer(library, seconds)
    table, _ = tables.scans(library, seconds / 2)
    yield table
    if args.peers:
        yield from peers(in_python, built_in, seconds)
    table, peak = tables.peaks()
    yield table
    counts, found = counts_of(args.against, built_in_ratios)
    yield from found
    yield targets(counts, ratios, built_in_ratios, peak)


def build_folder(text: str) -> str:
    """Return the folder of another build, which holds a module."""
    if not any(Path(text).glob("grounding_fit.*.so")):
        raise argparse.ArgumentTypeError(f"no module in {text}")
    return text


def main() -> None:
    """Print what is measured, and write it to a file where one is given."""
    parser = argparse.ArgumentParser(description=__doc__.partition("\n")[0])
    option = parser.add_argument
    option("--quick", action="store_true", help="fewer repeats, more noise")
    option("--markdown", type=Path, metavar="FILE", help="write the whole page into FILE")
    option("--peers", action="store_true", help="measure a tokenizer, JavaScript and encoders too")
    option(
        "--against",
        type=build_folder,
        metavar="FOLDER",
        help="count another build's instructions too",
    )
    args = parser.parse_args()
    if args.peers and not orjson:
        parser.error("--peers needs orjson and msgspec in this Python")
    parts = []
    for part in measured(args):
        text = part.markdown() if isinstance(part, Table) else part
        print(text, end="\n\n", flush=True)
        parts.append(text)
    if args.markdown:
        args.markdown.parent.mkdir(parents=True, exist_ok=True)
        args.markdown.write_text("\n\n".join(parts) + "\n", encoding="utf-8")


if __name__ == "__main__":
    main()
