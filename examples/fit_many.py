"""Fit a page for every package of a repository, on both paths, on many cores or machines.

Each page is made by the worker that fits it, of the code that it reads itself; only the answer and
the page's main figures come back. Workers are processes of this machine, or those of a running
Dask scheduler. They see the repository under the same path, run the same version of CPython, and
have the built module and the project root on PYTHONPATH:

    python examples/fit_many.py --repo ~/code/app --workers 4
    python examples/fit_many.py --repo ~/code/app --dask tcp://scheduler:8786
"""

import argparse
import contextlib
import multiprocessing
import os
import pickle
import platform
import signal
import sys
from collections.abc import Iterator
from concurrent.futures import Executor, Future, ProcessPoolExecutor, as_completed
from dataclasses import dataclass
from pathlib import Path
from time import perf_counter

from examples.repository import packages

try:
    from tqdm import tqdm
except ImportError:
    tqdm = None

VERSION = f"{sys.version_info.major}.{sys.version_info.minor}"


@dataclass(frozen=True)
class Job:
    """One page to make: all that a worker is sent."""

    folder: str
    page: str
    budget: int  # tokens
    symbols: int
    version: str = VERSION  # of CPython


@dataclass(frozen=True)
class Fitted:
    """What comes back of a page: its answer, and the main figures of both paths."""

    answer: dict
    given_size: int  # JSON characters
    size: int  # JSON characters of the answer
    over: bool  # whether even the fitted answer is over the cap
    tokens: int  # of the grounding
    seconds: float


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
        from workers.context_builder import estimate_tokens
    except ImportError as error:
        raise RuntimeError(f"{worker}: {error}") from None
    read = repository.read_repository(Path(job.folder))
    page = host.fit_page(read, job.page, job.budget, job.symbols)
    given_size, size = (fit._json_size(answer) for answer in (page.given, page.answer))
    over = size > fit._PAGE_CONTEXT_MAX_CHARS
    tokens = estimate_tokens(page.grounding)
    return Fitted(page.answer, given_size, size, over, tokens, perf_counter() - started)


def completed(futures: dict[Future, str]) -> Iterator[Future]:
    """Yield the futures as they are done, and show how many are."""
    done = as_completed(futures)
    if tqdm:
        yield from tqdm(done, total=len(futures), unit="page")
        return
    for count, future in enumerate(done, 1):
        print(f"\r{count} of {len(futures)} pages", end="", file=sys.stderr, flush=True)
        yield future
    print(file=sys.stderr)


def run(executor: Executor, jobs: dict[str, Job]) -> Run:
    """Fit all pages; one that fails stops no other."""
    started = perf_counter()
    futures = {executor.submit(fit_package, job): name for name, job in jobs.items()}
    fitted = {}
    failed = {}
    for future in completed(futures):
        name = futures[future]
        if error := future.exception():
            failed[name] = f"{type(error).__name__}: {error}"
        else:
            fitted[name] = future.result()
    sent = sum(len(pickle.dumps(job)) for job in jobs.values())
    back = sum(len(pickle.dumps(page)) for page in fitted.values())
    return Run(fitted, failed, sent, back, perf_counter() - started)


@contextlib.contextmanager
def process_pool(workers: int) -> Iterator[Executor]:
    """Give processes that share nothing with this one, and end them at once on Ctrl-C."""
    apart = multiprocessing.get_context("spawn")
    interrupt = (signal.SIGINT, signal.SIG_DFL)
    pool = ProcessPoolExecutor(workers, apart, initializer=signal.signal, initargs=interrupt)
    with pool:
        try:
            yield pool
        except KeyboardInterrupt:
            for process in multiprocessing.active_children():
                process.terminate()  # else the pool would wait for their pages
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


def print_table(done: Run) -> None:
    """Show what was made, how fast, and what it took to send it about."""
    pages = done.fitted.values()
    print(f"{'pages':<16}{len(pages)}, {len(done.failed)} failed")
    if not pages:
        return
    sent, back = (total // len(pages) for total in (done.bytes_sent, done.bytes_back))
    slowest = max(done.fitted, key=lambda name: done.fitted[name].seconds)
    cut = sum(page.size < page.given_size for page in pages)
    print(f"{'pages a second':<16}{done.pages_a_second:.1f}, {done.seconds:.1f} s in all")
    print(f"{'bytes a page':<16}{sent:,} sent, {back:,} back")
    print(f"{'slowest page':<16}{slowest}, {done.fitted[slowest].seconds:.2f} s")
    print(f"{'over the cap':<16}{cut} before, {sum(page.over for page in pages)} after")


def main() -> int:
    """Fit all pages, name those that failed, and print the table."""
    parser = argparse.ArgumentParser(description=__doc__.partition("\n")[0])
    library = Path(os.__file__).parent
    option = parser.add_argument
    option("--repo", type=Path, default=library, help="folder with packages of Python code")
    option("--page", default="module", metavar="TYPE", help="module, getting-started, ...")
    option("--budget", type=int, default=8000, help="tokens of a page")
    option("--symbols", type=int, default=180, help="most symbol blocks of a page")
    option("--workers", type=int, default=os.cpu_count(), help="processes of this machine")
    option("--dask", metavar="ADDRESS", help="a Dask scheduler whose workers do it instead")
    args = parser.parse_args()
    jobs = {
        name: Job(str(folder), args.page, args.budget, args.symbols)
        for name, folder in packages(args.repo.resolve()).items()
    }
    if not jobs:
        parser.error(f"{args.repo.resolve()}: no packages")
    with dask_workers(args.dask) if args.dask else process_pool(args.workers) as executor:
        done = run(executor, jobs)
    for name, reason in sorted(done.failed.items()):
        print(f"{name}: {reason}")
    print_table(done)
    return 1 if done.failed else 0


if __name__ == "__main__":
    try:
        sys.exit(main())
    except KeyboardInterrupt:
        sys.exit(130)
