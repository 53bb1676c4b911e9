"""Counts the processor's instructions that a call takes, which repeats where times do not.

The pages are made at full speed and pickled; a child process under valgrind loads them and calls
the module over a host whose utilities are built in. Its processor is valgrind's, which has AVX2 and
no AVX-512. With the built module's folder, the project root and the tests' folder on PYTHONPATH:

    python bench/instructions.py
"""

import argparse
import gc
import importlib
import os
import pickle
import subprocess
import sys
import tempfile
from collections.abc import Callable
from dataclasses import dataclass
from functools import partial
from itertools import repeat
from pathlib import Path
from unittest import mock

from calls import PARTS_OF_IT, WHOLE_WAY, operations

# The calls that are counted, those of one operation in a row. The plain model's repeat as exactly,
# and take so long under valgrind that one of them has to do.
PLAIN = "in plain Python"
COUNTED = dict.fromkeys((*PARTS_OF_IT, WHOLE_WAY), 20) | {PLAIN: 1}
WARM_UP = 5  # calls before the counted ones, so that hashes and caches are there
MARK = "getppid"  # a function of libc that nothing else calls; valgrind dumps before each call


class PagePickler(pickle.Pickler):
    """Pickles names apart, so that they are interned again when they are loaded."""

    def persistent_id(self, value: object) -> str | None:
        """Return a string that may be a name, as the keys of the records are."""
        return value if isinstance(value, str) and value.isidentifier() else None


class PageUnpickler(pickle.Unpickler):
    """Loads what `PagePickler` wrote; interned keys are found as those of a real host are."""

    def persistent_load(self, name: str) -> str:
        """Return the interned string."""
        return sys.intern(name)


def make(path: str) -> None:
    """Pickle the utilities, the budget and the pages into a file."""
    import pages  # reads the whole example, which would take long under valgrind

    fit = pages.load(pages.BUILT_IN)[0]
    library = pages.read_library()
    made = [pages.make_page(fit, count, library) for count in pages.SIZES]
    with open(path, "wb") as file, mock.patch.dict(sys.modules, grounding_fit=fit):
        pickle.dump((pages.BUILT_IN, pages.CHARS), file)
        PagePickler(file).dump(made)
    for page in made:
        print(page.name)


def marked(call: Callable, warm_up: int, counted: int) -> None:
    """Make the calls that count between two marks."""
    for _ in range(warm_up):
        call()
    gc.collect()
    os.getppid()  # a mark
    for _ in repeat(None, counted):
        call()
    os.getppid()


def count(path: str) -> None:
    """Make the marked calls on the pages of a file; only valgrind sees what they cost."""
    homes = [
        importlib.import_module(f"workers.{home}")
        for home in ("context_builder", "wiki.repo_facts")
    ]
    with open(path, "rb") as file:
        utilities, budget = pickle.load(file)
        for home in homes:
            vars(home).update(utilities)  # before the modules are loaded, which keep them
        fit = importlib.import_module("grounding_fit")
        plain = importlib.import_module("plain_model")
        made = PageUnpickler(file).load()
    gc.disable()
    for page in made:
        calls = operations(fit, page, budget)
        for name, counted in COUNTED.items():
            if name == PLAIN:
                marked(operations(plain, page, budget)[WHOLE_WAY], 0, counted)
            else:
                marked(calls[name], WARM_UP, counted)


@dataclass(frozen=True)
class Count:
    """The instructions of a call, and the percents of them that each kind of work takes."""

    instructions: float
    shares: dict[str, float]


def read_dump(dump: Path, counted: int) -> Count:
    """Return what a dump of so many marked calls holds, a call."""
    command = ["awk", "-f", str(Path(__file__).with_name("profile.awk")), str(dump)]
    said = subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True).stdout
    shares = {
        name: float(share) for name, share in (line.split("\t") for line in said.splitlines())
    }
    totals = [line for line in dump.read_text().splitlines() if line.startswith("totals:")]
    return Count(int(totals[0].split()[1]) / counted, shares)


def instructions(build: str | None = None) -> dict[tuple[str, str], Count]:
    """Return the instructions of a call by operation and page, of another build if one is given."""
    environment = {**os.environ, "PYTHONHASHSEED": "0"}
    if build:
        environment["PYTHONPATH"] = os.pathsep.join([build, environment["PYTHONPATH"]])
    run = partial(subprocess.run, env=environment, check=True, stdout=subprocess.PIPE, text=True)
    script = [sys.executable, __file__]
    with tempfile.TemporaryDirectory() as folder:
        file = f"{folder}/pages"
        names = run([*script, "--make", file]).stdout.splitlines()
        valgrind = ["valgrind", "--quiet", "--tool=callgrind", "--compress-strings=no"]
        valgrind += [f"--dump-before={MARK}", f"--callgrind-out-file={folder}/out"]
        run([*valgrind, *script, "--count", file])
        dumps = sorted(Path(folder).glob("out.*"), key=lambda dump: int(dump.suffix[1:]))
        keys = [(operation, name) for name in names for operation in COUNTED]
        if len(dumps) != 2 * len(keys):
            raise SystemExit(f"valgrind marked {len(dumps)} stretches, not {2 * len(keys)}")
        # Every other dump leads up to the first call of a kind.
        stretches = zip(keys, dumps[1::2], strict=True)
        return {key: read_dump(dump, COUNTED[key[0]]) for key, dump in stretches}


def main() -> None:
    """Print the instructions of a call for every page."""
    parser = argparse.ArgumentParser(description=__doc__.partition("\n")[0])
    parser.add_argument("--make", metavar="FILE", help=argparse.SUPPRESS)
    parser.add_argument("--count", metavar="FILE", help=argparse.SUPPRESS)
    args = parser.parse_args()
    if args.make:
        make(args.make)
    elif args.count:
        count(args.count)
    else:
        print(f"{'operation':<20} {'page':>9} {'instructions':>12}")
        for (operation, page), counted in sorted(instructions().items(), key=lambda row: row[0][0]):
            print(f"{operation:<20} {page:>9} {counted.instructions:>12,.0f}")


if __name__ == "__main__":
    main()
