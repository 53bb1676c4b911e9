"""Count the processor's instructions that a call takes, which repeats where times do not.

The pages are made at full speed and pickled; a child process under valgrind loads them and calls
the module over a host whose utilities are built in. Its processor is valgrind's, which has AVX2 and
no AVX-512. With the built module's folder, the project root and the tests' folder on PYTHONPATH:

    python bench/instructions.py
"""

import argparse
import gc
import os
import pickle
import subprocess
import sys
import tempfile
from functools import partial
from itertools import repeat
from pathlib import Path
from unittest import mock

WARM_UP = 5  # calls before the counted ones, so that hashes and caches are there
COUNTED = 20
OPERATIONS = ("_fit_page_context", "_assemble_grounding")
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


def count(path: str) -> None:
    """Make the marked calls on the pages of a file; only valgrind sees what they cost."""
    from workers import context_builder
    from workers.wiki import repo_facts

    with open(path, "rb") as file:
        utilities, budget = pickle.load(file)
        for module in (context_builder, repo_facts):
            for name in utilities.keys() & vars(module).keys():
                setattr(module, name, utilities[name])
        fit = __import__("grounding_fit")
        pages = PageUnpickler(file).load()
    gc.disable()
    for _, answer, parts in pages:
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


def make(path: str) -> None:
    """Pickle the pages whose answers are cut, the utilities and the budget into a file."""
    import bench

    fit = bench.load(bench.BUILT_IN)[0]
    library = bench.read_library()
    pages = [bench.make_page(fit, size, *library) for size in bench.SIZES if size != bench.FITS]
    with open(path, "wb") as file, mock.patch.dict(sys.modules, grounding_fit=fit):
        pickle.dump((bench.BUILT_IN, bench.CHARS), file)
        PagePickler(file).dump([(page.name, page.answer, page.parts) for page in pages])


def instructions(names: list[str]) -> dict[tuple[str, str], float]:
    """Return the instructions of a call by operation and page."""
    environment = {**os.environ, "PYTHONHASHSEED": "0"}
    with tempfile.TemporaryDirectory() as folder:
        pages = f"{folder}/pages"
        script = [sys.executable, __file__]
        subprocess.run([*script, "--make", pages], env=environment, check=True)
        valgrind = ["valgrind", "--quiet", "--tool=callgrind", f"--dump-before={MARK}"]
        valgrind.append(f"--callgrind-out-file={folder}/out")
        subprocess.run([*valgrind, *script, "--count", pages], env=environment, check=True)
        dumps = sorted(Path(folder).glob("out.*"), key=lambda file: int(file.suffix[1:]))
        totals = [
            int(line.split()[1])
            for dump in dumps
            for line in dump.read_text().splitlines()
            if line.startswith("totals:")
        ]
    counted = [total / COUNTED for total in totals[1::2]]  # the others are between two calls
    keys = [(operation, name) for name in names for operation in OPERATIONS]
    if len(totals) != 2 * len(keys):
        raise SystemExit(f"valgrind marked {len(totals)} stretches, not {2 * len(keys)}")
    return dict(zip(keys, counted))


def main() -> None:
    """Print the instructions of a call for every page whose answer is cut."""
    parser = argparse.ArgumentParser(description=__doc__.partition("\n")[0])
    parser.add_argument("--make", metavar="FILE", help=argparse.SUPPRESS)
    parser.add_argument("--count", metavar="FILE", help=argparse.SUPPRESS)
    args = parser.parse_args()
    if args.make:
        return make(args.make)
    if args.count:
        return count(args.count)
    print(f"{'operation':<20} {'page':>9} {'instructions':>12}")
    names = ["40/12", "120/25", "400/60", "1,200/250"]
    counts = instructions(names)
    for operation in OPERATIONS:
        for name in names:
            print(f"{operation:<20} {name:>9} {counts[operation, name]:>12,.0f}")


if __name__ == "__main__":
    main()
