"""Work on the pages of a file, in this process or spread over several."""

from __future__ import annotations

import contextlib
import importlib
import multiprocessing
import signal
from collections.abc import Callable, Iterator, Sequence
from concurrent.futures import Executor, ProcessPoolExecutor
from pathlib import Path
from typing import TypeVar

from grounding_fit_workbench.page_files import Refused, read_line
from grounding_fit_workbench.page_lines import Page

CHUNK = 16  # lines that a process is sent at a time, at the most
CHUNKS = 8  # for each process, where there are as many lines
Made = TypeVar("Made")
Work = Callable[[int, Page | Refused], Made]  # of a line by its number, from 1
Lines = list[tuple[int, int]]  # their numbers, and where they begin in the file


def prepare(host: str) -> None:
    """Make a new process ready: Ctrl-C ends it at once, and the host's module is in place."""
    signal.signal(signal.SIGINT, signal.SIG_DFL)
    if host:
        importlib.import_module(host)


@contextlib.contextmanager
def process_pool(workers: int, host: str = "", preloaded: Sequence[str] = ()) -> Iterator[Executor]:
    """Give processes that share nothing with this one, and end them at once on Ctrl-C.

    With modules to load they are forked off a process that has loaded these and started no thread.
    """
    apart = multiprocessing.get_context("forkserver" if preloaded else "spawn")
    apart.set_forkserver_preload([*preloaded])
    pool = ProcessPoolExecutor(workers, apart, initializer=prepare, initargs=(host,))
    with pool:
        try:
            yield pool
        except KeyboardInterrupt:
            for process in multiprocessing.active_children():
                process.terminate()  # else the pool would wait for their pages
            raise


def lines_of(file: Path) -> Lines:
    """Return the lines of a file that are not blank."""
    found = []
    start = 0
    with open(file, "rb") as lines:
        for number, line in enumerate(lines, 1):
            if line.strip():
                found.append((number, start))
            start += len(line)
    return found


def made_of(file: Path, lines: Lines, work: Work[Made]) -> list[Made]:
    """Do the work on some lines."""
    made = []
    with open(file, "rb") as source:
        for number, start in lines:
            source.seek(start)
            made.append(work(number, read_line(number, source.readline())))
    return made


def over_pages(
    file: Path, lines: Lines, work: Work[Made], workers: int = 1, host: str = ""
) -> Iterator[Made]:
    """Yield what the work makes of each line, in their order.

    What processes are sent is where a page stands: to read it there is cheaper than to send it.
    """
    size = max(1, min(CHUNK, len(lines) // (CHUNKS * workers)))
    chunks = [lines[start : start + size] for start in range(0, len(lines), size)]
    if workers == 1 or len(chunks) < 2:
        for line in lines:
            yield from made_of(file, [line], work)
        return
    with process_pool(workers, host) as pool:
        futures = [pool.submit(made_of, file, chunk, work) for chunk in chunks]
        for future in futures:
            yield from future.result()
