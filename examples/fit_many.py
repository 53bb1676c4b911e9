"""Fit a page for every package of a repository, on both paths, on many cores or machines.

Each page is made by the worker that fits it, of the code that it reads itself; its answer and main
figures come back, and for the workbench the page as a line of JSON. Workers are processes of this
machine, interpreters of this process, or those of a running Dask scheduler. They see the
repository under the same path, run the same version of CPython, and have the built module, the
project root and its folder workbench on PYTHONPATH:

    python examples/fit_many.py --repo ~/code/app --workers 4 --try code_floor=.2
    python examples/fit_many.py --repo ~/code/app --interpreters
    python examples/fit_many.py --repo ~/code/app --dask tcp://scheduler:8786
"""

import argparse
import contextlib
import importlib
import os
import pickle
import platform
import sys
import tempfile
from collections.abc import Iterator, Sequence
from concurrent.futures import Executor, as_completed
from dataclasses import dataclass
from pathlib import Path
from time import perf_counter

from examples.repository import packages
from grounding_fit_workbench.options import (
    TRIAL_HELP,
    Parser,
    add_comparison,
    at_least,
    folder,
    writable,
)
from grounding_fit_workbench.terminal import progress, say
from grounding_fit_workbench.workers import process_pool

# What a process needs for its first page, loaded once and forked.
PRELOADED = ["grounding_fit", "examples.host", "examples.repository", "workers.context_builder"]
VERSION = f"{sys.version_info.major}.{sys.version_info.minor}"


@dataclass(frozen=True)
class Job:
    """One page to make: all that a worker is sent."""

    folder: str
    page: str
    budget: int  # tokens
    symbols: int
    version: str = VERSION  # of CPython
    line_as: str = ""  # the name under which the page comes back too, as a line of JSON


@dataclass(frozen=True)
class Fitted:
    """What comes back of a page: its answer, and the main figures of both paths."""

    answer: dict
    given_size: int  # JSON characters
    size: int  # JSON characters of the answer
    over: tuple[bool, bool]  # whether the answer is over the cap, before and after
    tokens: int  # of the grounding
    seconds: float
    line: str = ""  # of JSON, where it was asked for


@dataclass(frozen=True)
class Run:
    """The pages by package, or why there is none."""

    fitted: dict[str, Fitted]
    failed: dict[str, str]
    bytes_sent: int
    bytes_back: int
    seconds: float

    @property
    def pages_a_second(self) -> float:
        """Return the pages that all workers together made in a second."""
        return len(self.fitted) / self.seconds


def fit_package(job: Job) -> Fitted:
    """Make a package's page and fit it; a worker that lacks something says what."""
    started = perf_counter()
    worker = f"worker {platform.node()}"
    running = platform.python_version()
    if not running.startswith(f"{job.version}."):
        raise RuntimeError(f"{worker}: CPython {running}, not {job.version}")
    if not Path(job.folder).is_dir():
        raise RuntimeError(f"{worker}: no folder {job.folder}")
    try:
        import grounding_fit as fit  # here, where a worker without it can say so
        from examples import host, repository
        from grounding_fit_workbench.page_lines import Page, line_of
        from workers.context_builder import estimate_tokens
    except ImportError as error:
        raise RuntimeError(f"{worker}: {error}") from None
    read = repository.read_repository(Path(job.folder))
    page = host.fit_page(read, job.page, job.budget, job.symbols)
    given_size, size = (fit._json_size(answer) for answer in (page.given, page.answer))
    over = given_size > fit._PAGE_CONTEXT_MAX_CHARS, size > fit._PAGE_CONTEXT_MAX_CHARS
    tokens = estimate_tokens(page.grounding)
    line = ""
    if job.line_as:
        line = line_of(Page(job.line_as, job.page, page.given, page.parts, job.budget))
    return Fitted(page.answer, given_size, size, over, tokens, perf_counter() - started, line)


def run(executor: Executor, jobs: dict[str, Job]) -> Run:
    """Fit all pages; one that fails stops no other."""
    started = perf_counter()
    futures = {executor.submit(fit_package, job): name for name, job in jobs.items()}
    fitted = {}
    failed = {}
    for future in progress(as_completed(futures), len(futures), "pages made"):
        name = futures[future]
        if error := future.exception():
            failed[name] = f"{type(error).__name__}: {error}"
        else:
            fitted[name] = future.result()
    sent = sum(len(pickle.dumps(job)) for job in jobs.values())
    back = sum(len(pickle.dumps(page)) for page in fitted.values())
    return Run(fitted, failed, sent, back, perf_counter() - started)


@contextlib.contextmanager
def interpreter_pool(workers: int) -> Iterator[Executor]:
    """Give interpreters of this process; on Ctrl-C those at work finish their page."""
    try:
        from concurrent.futures import InterpreterPoolExecutor
    except ImportError:
        sys.exit(f"--interpreters: CPython 3.14 or newer is needed, and this is {VERSION}")
    with InterpreterPoolExecutor(workers) as pool:
        try:
            yield pool
        except KeyboardInterrupt:
            pool.shutdown(wait=False, cancel_futures=True)
            raise


def check_versions(client: object, address: str) -> None:
    """End the program when a part of the cluster could not even load what it is sent."""
    versions = client.get_versions()
    if not versions["workers"]:
        sys.exit(f"{address} has no workers")
    running = {address: versions["scheduler"], **versions["workers"]}
    pythons = {part: told["host"]["python"] for part, told in running.items()}
    wrong = [
        f"{part}: CPython {python}, not {VERSION}"
        for part, python in pythons.items()
        if not python.startswith(f"{VERSION}.")
    ]
    if wrong:
        sys.exit("\n".join(wrong))


@contextlib.contextmanager
def dask_workers(address: str) -> Iterator[Executor]:
    """Give the workers of a running scheduler."""
    try:
        from distributed import Client  # only who asks for it needs it

        client = Client(address)
    except (ImportError, OSError) as error:
        sys.exit(f"{address}: {error}")
    with client:
        check_versions(client, address)
        executor = client.get_executor(pure=False)
        try:
            yield executor
        finally:
            executor.shutdown(wait=False)  # what is still to be done is not wanted any more


def workers_of(args: argparse.Namespace) -> contextlib.AbstractContextManager[Executor]:
    """Return the workers that were asked for."""
    if args.dask:
        return dask_workers(args.dask)
    if args.interpreters:
        return interpreter_pool(args.workers)
    return process_pool(args.workers, preloaded=PRELOADED if args.forkserver else ())


def print_table(done: Run) -> None:
    """Show what was made, how fast, and what it took to send it about."""
    pages = done.fitted.values()
    print(f"{'pages':<16}{len(pages)}, {len(done.failed)} failed")
    if not pages:
        return
    sent, back = (total // len(pages) for total in (done.bytes_sent, done.bytes_back))
    slowest = max(done.fitted, key=lambda name: done.fitted[name].seconds)
    print(f"{'pages a second':<16}{done.pages_a_second:.1f}, {done.seconds:.1f} s in all")
    print(f"{'bytes a page':<16}{sent:,} sent, {back:,} back")
    print(f"{'slowest page':<16}{slowest}, {done.fitted[slowest].seconds:.2f} s")
    for at, when in enumerate(("before", "after")):
        over = sorted(name for name, page in done.fitted.items() if page.over[at])
        names = f": {', '.join(over)}" if over else ""
        say(f"{'over the cap':<16}{len(over)} {when}{names}", "")


def parse_arguments(arguments: Sequence[str]) -> argparse.Namespace:
    """Return the options of the command line, and the jobs that they ask for."""
    about = __doc__.partition("\n")[0]
    raw = argparse.RawDescriptionHelpFormatter
    parser = Parser(prog="many", description=about, epilog=TRIAL_HELP, formatter_class=raw)
    library = Path(os.__file__).parent
    option = parser.add_argument
    option("--repo", type=folder, default=library, help="folder with packages of Python code")
    option("--page", default="module", metavar="TYPE", help="module, getting-started, ...")
    option("--budget", type=at_least(0), default=8000, help="tokens of a page (default: 8000)")
    option("--symbols", type=at_least(0), default=180, help="most symbol blocks (default: 180)")
    which = parser.add_mutually_exclusive_group().add_argument
    which("--dask", metavar="ADDRESS", help="a Dask scheduler whose workers make the pages")
    which("--interpreters", action="store_true", help="interpreters in place of processes")
    which("--forkserver", action="store_true", help="processes forked off one that is ready")
    option(
        "--save", type=writable, metavar="FILE", help="keep the pages in a file, for the workbench"
    )
    add_comparison(parser)
    parser.set_defaults(workers=os.cpu_count())
    args = parser.parse_args(arguments)
    args.trials = parser.trials(args.trials)
    args.jobs = {
        name: Job(str(path), args.page, args.budget, args.symbols, line_as=name)
        for name, path in packages(args.repo.resolve()).items()
    }
    if not args.jobs:
        parser.error(f"{args.repo.resolve()}: no packages")
    return args


def main(arguments: Sequence[str]) -> int:
    """Fit all pages, name those that failed, and compare the policies that were asked for."""
    from grounding_fit_workbench.commands import compare_file  # here, for workers need none of it

    args = parse_arguments(arguments)
    with workers_of(args) as executor:
        done = run(executor, args.jobs)
    for name, reason in sorted(done.failed.items()):
        say(f"{name}: {reason}", "")
    print_table(done)
    with tempfile.TemporaryDirectory() as scratch:
        file = args.save or Path(scratch, "pages")
        file.write_text("".join(f"{page.line}\n" for _, page in sorted(done.fitted.items())))
        print()
        compared = compare_file(file, args.trials, args)
    return 1 if done.failed or compared.failed else 0


if __name__ == "__main__":
    # Interpreters hand on what they all can import, and that the main program is not.
    importable = importlib.import_module("examples.fit_many")
    try:
        sys.exit(importable.main(sys.argv[1:]))
    except KeyboardInterrupt:
        sys.exit(130)
    except OSError as error:
        print(f"many: {error}", file=sys.stderr)
        sys.exit(2)
