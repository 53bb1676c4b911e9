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
from dataclasses import dataclass
from pathlib import Path

import instructions
import pages
import tables
from tables import Table

ROOT = Path(__file__).resolve().parent.parent
MILLION = 1_000_000


@dataclass(frozen=True)
class Target:
    """A figure, and on which side of which limits it is to be."""

    what: str
    sign: str  # the good side: ≤ or ≥
    target: float
    wanted: float
    measured: float | None

    def row(self) -> list[str]:
        """Return the row of the table of targets."""
        limits = [f"{self.sign} {limit}" for limit in (self.target, self.wanted)]
        if self.measured is None:
            return [self.what, *limits, "not measured", ""]
        return [self.what, *limits, f"{self.measured:.2f}", self.met()]

    def met(self) -> str:
        """Say which of the limits the figure is within."""
        direction = {"≤": 1, "≥": -1}[self.sign]
        if direction * self.measured <= direction * self.wanted:
            return "wanted"
        if direction * self.measured <= direction * self.target:
            return "target"
        return "not met"


def targets(counts: dict, ratios: dict, built_in_ratios: dict, peak: float) -> Table:
    """Hold the figures of this run against their targets."""

    def millions(*key: str) -> float | None:
        return counts[key].instructions / MILLION if key in counts else None

    fit, assemble, size = "_fit_page_context", "_assemble_grounding", "_json_size"
    lowest = min(ratio for key, ratio in built_in_ratios.items() if key[0] == assemble)
    sizes = min(ratios[size, page] for page in ("120/25", "400/60"))
    found = [
        Target(f"`{fit}` 120/25, million instructions", "≤", 0.7, 0.6, millions(fit, "120/25")),
        Target(f"`{fit}` 400/60, million instructions", "≤", 1.05, 0.9, millions(fit, "400/60")),
        Target(
            f"`{assemble}` 120/25, million instructions",
            "≤",
            0.5,
            0.42,
            millions(assemble, "120/25"),
        ),
        Target(
            f"`{assemble}` 400/60, million instructions",
            "≤",
            1.25,
            1.05,
            millions(assemble, "400/60"),
        ),
        Target(
            f"`{fit}` 120/25, times as fast as plain Python", "≥", 200, 250, ratios[fit, "120/25"]
        ),
        Target(f"`{fit}` 400/60, times as fast", "≥", 300, 400, ratios[fit, "400/60"]),
        Target(f"`{assemble}`, host built in, lowest of all sizes", "≥", 10, 12, lowest),
        Target(f"`{size}`, lower of 120/25 and 400/60", "≥", 65, 80, sizes),
        Target("peak memory beyond the fact text, highest, in answers", "≤", 2.2, 2, peak),
    ]
    return Table(
        "Targets",
        "The host is in Python where nothing else is said.",
        ["operation", "target", "wanted", "measured", "met"],
        [each.row() for each in found],
    )


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


def counts_of(args: argparse.Namespace) -> tuple[dict, list[Table | str]]:
    """Return the instructions of the calls and their tables, or why there are none."""
    if not shutil.which("valgrind"):
        return {}, ["Instructions were not counted: there is no valgrind."]
    counts = instructions.instructions()
    before = instructions.instructions(args.against) if args.against else None
    return counts, [tables.counted(counts, before), tables.profiled(counts)]


def measured(args: argparse.Namespace) -> Iterator[Table | str]:
    """Yield the parts of the page one by one, as they are measured."""
    yield heading(args)
    seconds = 0.2 if args.quick else 2.0
    library = pages.read_library()
    in_python = tables.Sides("in Python", {}, pages.TOKENS, library)
    built_in = tables.Sides("built in", pages.BUILT_IN, pages.CHARS, library)
    yield tables.answers(in_python)
    yield tables.answers(built_in)
    table, ratios = tables.times(in_python, seconds)
    yield table
    table, built_in_ratios = tables.times(built_in, seconds)
    yield table
    yield tables.one_core(in_python, seconds)
    yield tables.many_workers()
    table, _ = tables.scans(library, seconds / 2)
    yield table
    if args.peers:
        yield tables.peers(in_python, seconds)
    table, peak = tables.peaks()
    yield table
    counts, found = counts_of(args)
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
    option("--peers", action="store_true", help="measure orjson and json too")
    option(
        "--against",
        type=build_folder,
        metavar="FOLDER",
        help="count another build's instructions too",
    )
    args = parser.parse_args()
    if args.peers and not tables.orjson:
        parser.error("--peers needs orjson in this Python")
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
