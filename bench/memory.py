"""Measures by how much a call raises the peak of the memory in use, in bytes.

Run as a program, it prints the rows of `peaks` as JSON.
"""

import ctypes
import json
import os
import subprocess
import sys
from collections.abc import Callable
from dataclasses import astuple, dataclass
from functools import partial

import calls
import pages

PROBE = 1_000_000
HEAP = {  # environment in which one heap has everything
    "PYTHONMALLOC": "malloc",
    "MALLOC_MMAP_MAX_": "0",
    "MALLOC_TOP_PAD_": "0",
    "MALLOC_TRIM_THRESHOLD_": str(1 << 40),
}


@dataclass(frozen=True)
class Peak:
    """Bytes of a page: the texts of its answer, and what its cut adds at the peak."""

    page: str
    texts: int
    module: int
    plain: int


def heap_growth(call: Callable) -> tuple[int, object]:
    """Return by how many bytes the heap grows at the peak of a call, and the call's result.

    Under HEAP, all that C++ and the interpreter allocate comes from the one heap that ends at
    `sbrk(0)`, and the end never moves back. Memory freed before could serve the call unseen, so it
    is taken first, from large pieces to small.
    """
    libc = ctypes.CDLL(None)
    libc.sbrk.restype = libc.malloc.restype = ctypes.c_size_t
    libc.sbrk.argtypes = [ctypes.c_ssize_t]
    libc.malloc.argtypes = [ctypes.c_size_t]
    for size in [*(1 << power for power in range(24, 10, -1)), *range(1040, 8, -16)]:
        end = libc.sbrk(0)
        while libc.sbrk(0) == end:
            libc.malloc(size)
    end = libc.sbrk(0)
    result = call()
    return libc.sbrk(0) - end, result


def measure() -> list[Peak]:
    """Measure the pages whose answers are cut, in a process that has HEAP as its environment.

    The text of all facts, which the host must be given, is not counted. The host holds on to it, so
    that its memory serves nothing else later in the call.
    """
    known = heap_growth(partial(bytes, PROBE))[0]
    if abs(known - PROBE) > 8192:  # a page at either end
        raise SystemExit(f"the heap grew by {known} bytes for {PROBE}: it tells no peaks")
    given = []

    def estimate(text: str) -> int:
        given.append(text)
        return -(-len(text) // 4)

    sides = pages.load({"estimate_tokens": estimate})
    library = pages.read_library()
    rows = []
    for count in pages.CUT:
        page = pages.make_page(sides[0], count, library)
        added = []
        for side in sides:
            cut = calls.operations(side, page, pages.TOKENS)["_fit_page_context"]
            cut()  # not counted: what the first call of all sets up
            given.clear()
            growth, answer = heap_growth(cut)
            added.append(growth - max(map(sys.getsizeof, given)))
        texts = [text for text in answer.values() if isinstance(text, str)]
        rows.append(Peak(page.name, sum(map(sys.getsizeof, texts)), *added))
    return rows


def peaks() -> list[Peak]:
    """Measure in a process of its own."""
    command = [sys.executable, __file__]
    child = subprocess.run(command, env={**os.environ, **HEAP}, check=True, stdout=subprocess.PIPE)
    return [Peak(*row) for row in json.loads(child.stdout)]


if __name__ == "__main__":
    found = measure() if HEAP.items() <= os.environ.items() else peaks()
    print(json.dumps([astuple(row) for row in found]))
