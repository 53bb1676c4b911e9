"""Threads inside the module when the interpreter ends: they go quietly, as in plain Python."""

import contextlib
import gc
import itertools
import os
import subprocess
import sys
import threading
import time
import unittest

import catalogue
from harness import HOST, fit

RUNS = 3  # of each kind: whether a thread is caught in the module is a matter of chance
LONG_WAIT = 10  # seconds
SHORT_WAIT = 0.1  # where threads hang and never end: from 3.14 on, and in late versions of 3.13


class Lingering:
    """Holds up the interpreter's end, when it is let go of there, until no other thread is left:
    Python frees, in the end, what a thread still looks at that comes late, and crashes whatever the
    thread did."""

    longest = LONG_WAIT if sys.version_info < (3, 14) else SHORT_WAIT

    def __del__(self, threads=os.listdir, now=time.monotonic, sleep=time.sleep):
        until = now() + self.longest
        while len(threads("/proc/self/task")) > 1 and now() < until:
            sleep(0.001)


class Dying:
    """A value whose finalizer acts."""

    def __init__(self, act):
        self.act = act

    def __del__(self):
        self.act()


def entries(pause):
    """Return calls that enter the host in every way there is; it sleeps `pause` seconds."""

    def rest():
        if pause:
            time.sleep(pause)

    HOST.set(**catalogue.acting_utilities(rest))
    ways = itertools.chain(*catalogue.entries(fit, rest).values())
    return [*ways, lambda: fit.FactBlock("t", [Dying(rest)]) and None]


def keep_busy(calls, raise_first):
    """Have a thread busy with each of the calls, for a while."""

    def work(call):
        if raise_first:  # has the C++ runtime look for what it needs of an unwinder
            with contextlib.suppress(TypeError):
                fit.seed(1, 2)
        while not begun:
            time.sleep(0.0001)  # an event's lock could end with its thread, and hold up all others
        while True:
            call()

    begun = []
    for call in calls:
        threading.Thread(target=work, args=(call,), daemon=True).start()
    sys.setswitchinterval(0.0001)
    begun.append(True)
    time.sleep(0.01)


def child():
    """End copies of this process, each while threads are busy in the module."""
    gc.freeze()  # so that an end takes little time of the processor
    sys.lingering = Lingering()  # of all modules, sys is cleared for certain
    for pause in (0.0005, 0):
        calls = entries(pause)
        for raise_first in (False, True) * RUNS:
            started = time.monotonic()
            if not os.fork():
                keep_busy(calls, raise_first)
                return
            status = os.wait()[1]
            if time.monotonic() - started > LONG_WAIT:  # its threads hang, and so will all others
                Lingering.longest = SHORT_WAIT
            if status:
                sys.exit(f"pause {pause}, raise_first {raise_first}: ended with status {status}")


class ProcessEnd(unittest.TestCase):
    def test_daemon_threads_end_quietly(self):
        command = [sys.executable, __file__, "--child"]
        done = subprocess.run(command, capture_output=True, text=True, check=False)
        self.assertEqual((done.returncode, done.stderr[-2000:]), (0, ""))


if __name__ == "__main__":
    if sys.argv[1:] == ["--child"]:
        child()
    else:
        unittest.main()
