"""Times calls by turns, in seconds."""

import statistics
import timeit
from collections.abc import Callable
from dataclasses import dataclass
from time import perf_counter

SAMPLE = 0.002  # seconds that a sample takes at least
ROUNDS = 5  # samples of a call at least


@dataclass(frozen=True)
class Timing:
    """What a call takes."""

    median: float
    least: float


def clock(seconds: float, *calls: Callable) -> list[Timing]:
    """Time the calls for so long, by turns, so that noise hits them all alike."""
    timers = [timeit.Timer(call) for call in calls]  # these keep the garbage collector off
    loops = [max(1, int(SAMPLE / min(timer.repeat(3, 1)))) for timer in timers]
    rounds = []
    end = perf_counter() + seconds
    while len(rounds) < ROUNDS or perf_counter() < end:
        rounds.append(
            [timer.timeit(loop) / loop for timer, loop in zip(timers, loops, strict=True)]
        )
    return [Timing(statistics.median(times), min(times)) for times in zip(*rounds, strict=True)]
