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
from dataclasses import dataclass
from functools import partial
from itertools import repeat
from pathlib import Path
from unittest import mock

OPERATIONS = ("_fit_page_context", "_assemble_grounding")
WARM_UP = 5  # calls before the counted ones, so that hashes and caches are there
COUNTED = 20
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
    """Pickle the utilities, the budget and the pages whose answers are cut into a file."""
    import pages  # reads the whole example, which would take long under valgrind

    fit = pages.load(pages.BUILT_IN)[0]
    library = pages.read_library()
    made = [pages.make_page(fit, count, library) for count in pages.CUT]
    with open(path, "wb") as file, mock.patch.dict(sys.modules, grounding_fit=fit):
        pickle.dump((pages.BUILT_IN, pages.CHARS), file)
        PagePickler(file).dump([(page.answer, page.parts) for page in made])
    for page in made:
        print(page.name)


def count(path: str) -> None:
    """Make the marked calls on the pages of a file; only valgrind sees what they cost."""
    homes = [
        importlib.import_module(f"workers.{home}")
        for home in ("context_builder", "wiki.repo_facts")
    ]
    with open(path, "rb") as file:
        utilities, budget = pickle.load(file)
        for home in homes:
            vars(home).update(utilities)  # before the module is loaded, which keeps them
        fit = importlib.import_module("grounding_fit")
        made = PageUnpickler(file).load()
    gc.disable()
    for answer, parts in made:
        for call in (
            partial(fit._fit_page_context, answer, parts, budget),
            partial(fit._assemble_grounding, parts, budget),
        ):
            for _ in range(WARM_UP):
                call()
            gc.collect()
            os.getppid()  # a mark
            for _ in repeat(None, COUNTED):
                call()
            os.getppid()


@dataclass(frozen=True)
class Count:
    """The instructions of a call, and the percents of them that each kind of work takes."""

    instructions: float
    shares: dict[str, float]


def read_dump(dump: Path) -> Count:
    """Return what a dump of the marked calls holds."""
    command = ["awk", "-f", str(Path(__file__).with_name("profile.awk")), str(dump)]
    said = subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True).stdout
    shares = {
        name: float(share) for name, share in (line.split("\t") for line in said.splitlines())
    }
    totals = [line for line in dump.read_text().splitlines() if line.startswith("totals:")]
    return Count(int(totals[0].split()[1]) / COUNTED, shares)


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
        keys = [(operation, name) for name in names for operation in OPERATIONS]
        if len(dumps) != 2 * len(keys):
            raise SystemExit(f"valgrind marked {len(dumps)} stretches, not {2 * len(keys)}")
        # Every other dump leads up to the first call of a kind.
        return {key: read_dump(dump) for key, dump in zip(keys, dumps[1::2], strict=True)}


def main() -> None:
    """Print the instructions of a call for every page whose answer is cut."""
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
