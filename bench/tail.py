"""Measures how long the slowest of many calls take, and what made them slow.

A call is timed by itself, with the collector on, as a host makes it. Whatever may come between is
written down with it.
"""

import gc
import resource
import sys
import threading
from collections import Counter
from collections.abc import Callable, Iterator
from contextlib import contextmanager
from dataclasses import dataclass
from functools import partial
from time import perf_counter_ns

from sides import Sides
from table import Cell, Table

CALLS = 10_000
PAGE = "120/25"
OPERATIONS = ("_fit_page_context", "_assemble_grounding")
ADDED_UP = 4_000  # numbers; it takes about as long as a fit
ALLOCATED = 200  # dicts that the second thread makes before it drops them
USUAL, SHORT = 0.005, 0.0005  # seconds after which a waiting thread asks for the lock
ALONE = "one thread"
CONDITIONS = {
    ALONE: None,
    "another allocates": USUAL,
    f"another, switch interval of {1000 * SHORT} ms": SHORT,
}
OTHER_THREAD = "the other thread had the lock"
TAKEN_AWAY = "the system ran something else on the processor"
FAULT = "the system gave memory"
COLLECTION = "garbage was collected"
NOTHING = "nothing could be seen"
CAUSES = (OTHER_THREAD, TAKEN_AWAY, FAULT, COLLECTION, NOTHING)
SLOW = 3  # times the median


@dataclass(frozen=True)
class Call:
    """One call: the ns that it took, and the first of the causes that came between."""

    took: int
    cause: str


class Allocating(threading.Thread):
    """A thread that makes and drops containers until it is stopped."""

    def __init__(self) -> None:
        super().__init__(daemon=True)
        self.rounds = 0
        self.stopped = False

    def run(self) -> None:
        """Allocate, and count the rounds."""
        while not self.stopped:
            _ = [{"round": self.rounds, "at": at} for at in range(ALLOCATED)]
            self.rounds += 1


class Nobody:
    """Stands in for a second thread where there is none."""

    rounds = 0


@contextmanager
def second_thread(wanted: bool) -> Iterator[Allocating | Nobody]:
    """Have a thread allocate for a while."""
    if not wanted:
        yield Nobody()
        return
    thread = Allocating()
    thread.start()
    try:
        yield thread
    finally:
        thread.stopped = True
        thread.join()


@contextmanager
def collections_counted() -> Iterator[list[str]]:
    """Have each collection add to a list for a while, with the collector on."""
    seen: list[str] = []

    def on_collection(phase: str, _: dict) -> None:
        seen.append(phase)

    gc.callbacks.append(on_collection)
    try:
        yield seen
    finally:
        gc.callbacks.remove(on_collection)


def one_by_one(call: Callable, other: Allocating | Nobody) -> list[Call]:
    """Time each of many calls by itself, and say what came between."""
    made = []
    with collections_counted() as collected:

        def noted() -> tuple[int, ...]:
            used = resource.getrusage(resource.RUSAGE_THREAD)
            return other.rounds, used.ru_nivcsw, used.ru_minflt, len(collected)

        for _ in range(CALLS):
            before = noted()
            start = perf_counter_ns()
            call()
            took = perf_counter_ns() - start
            changed = [now != then for now, then in zip(noted(), before, strict=True)]
            made.append(Call(took, CAUSES[[*changed, True].index(True)]))
    return made


def under(condition: str, call: Callable) -> list[Call]:
    """Time many calls under a condition."""
    interval = CONDITIONS[condition]
    sys.setswitchinterval(interval or USUAL)
    try:
        with second_thread(interval is not None) as other:
            return one_by_one(call, other)
    finally:
        sys.setswitchinterval(USUAL)


def worst_of(calls: list[Call], cause: str) -> Cell:
    """Return the longest of the calls with this cause, in µs."""
    took = [call.took for call in calls if call.cause == cause]
    return max(took) / 1000 if took else "none"


def summary(measured: dict[tuple, list[Call]]) -> str:
    """Say what the slow calls have in common."""
    slow = Counter()
    for calls in measured.values():
        middle = sorted(call.took for call in calls)[len(calls) // 2]
        slow.update(call.cause for call in calls if call.took > SLOW * middle)
    said = ", ".join(f"{slow[cause]:,} while {cause}" for cause in CAUSES if slow[cause])
    total = sum(map(len, measured.values()))
    return f"Of {total:,} calls, {sum(slow.values()):,} took over {SLOW} times the median: {said}."


def tail(sides: Sides) -> Table:
    """Show how slow the slowest calls are, and by what."""
    [page] = [page for page in sides.pages if page.name == PAGE]
    measured = {
        (operation, condition): under(condition, sides.calls(operation, page)[0])
        for operation in OPERATIONS
        for condition in CONDITIONS
    }
    said = summary(measured)
    # What the machine does to a call that has nothing of the module in it.
    measured["sum", ALONE] = under(ALONE, partial(sum, range(ADDED_UP)))
    rows = []
    for (operation, condition), calls in measured.items():
        took = sorted(call.took / 1000 for call in calls)
        quantiles = [took[len(took) // 2], took[len(took) * 99 // 100], took[-1]]
        worst = [worst_of(calls, cause) for cause in CAUSES]
        rows.append([f"`{operation}`, {condition}", *quantiles, *worst])
    return Table(
        f"The slowest of {CALLS:,} calls at {PAGE}, in µs, host {sides.host}",
        "Each call is timed by itself with the collector on, alone and beside a thread that "
        f"allocates. {said} A call gives the lock away only where Python code of the host's runs. "
        "Then, or right before or after the call, the other thread keeps it for the switch "
        "interval, 5 ms where nobody sets another, and longer where the system takes the processor "
        "from it. The columns on the right have the longest call of each cause; a call with "
        "several stands under the first. What a virtual machine loses to others cannot be seen "
        f"in it. In the last row Python's `sum` adds up {ADDED_UP:,} numbers: so much the machine "
        "does to any call.",
        ["operation", "p50", "p99", "worst", *CAUSES],
        rows,
    )
