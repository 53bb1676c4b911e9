"""Threads inside the module when the interpreter ends: they go quietly, as in plain Python."""

import os
import subprocess
import sys
import threading
import time
import unittest

RUNS = 6  # of each kind: whether a thread is caught in the module is a matter of chance


def entries(pause):
    """Return calls that enter the host in every way there is; it sleeps `pause` seconds."""
    from harness import HOST, fit

    def rest(*_):
        if pause:
            time.sleep(pause)
        return 1

    class Text(str):
        def __hash__(self):
            return rest() and str.__hash__(self)

        def __eq__(self, other):
            return rest() and str.__eq__(self, other)

    class Odd:
        __call__ = __eq__ = __hash__ = __del__ = __index__ = rest

        def __bool__(self):
            return bool(rest())

        def __repr__(self):
            return str(rest())

        def __iter__(self):
            yield {"line_start": rest()}

    HOST.set(
        estimate=lambda text: rest() + len(text),
        norm=lambda path: rest() and path,
        truncate=lambda text, budget: rest() and text[:budget],
    )
    facts = [fit.FactBlock("## x\n" + "f" * 400, [fit.seed("f", 1)], key=Text("digest"))]
    budget = fit.SectionBudget(shares={Text("digest"): 0.5})
    symbols = [("t", {"fqn": [Odd()], "file": "b", "line": 3})] * 9
    parts = fit.GroundingParts(facts, symbols, {Text("f")}, budget=budget)
    answer = {"p": 1, "grounding": "g" * 50000}
    block = fit.FactBlock("t", (Odd(),))
    return [
        lambda: fit._assemble_grounding(parts, 80),
        lambda: fit._fit_page_context(answer, parts, 80),
        lambda: fit._fit_prose(parts, Odd(), 3),
        lambda: fit._most(9, Odd()),
        lambda: fit._cap_note(["a"], Odd()),
        lambda: fit.citable(Odd()),
        lambda: fit.render_symbol({Text("fqn"): 1, "kind": [Odd()]}),
        lambda: fit.FactBlock("t", [Odd()]) and None,  # let go of: its finalizer runs
        lambda: repr(block),
        lambda: hash(block),
        lambda: block == fit.FactBlock("t", (Odd(),)),
        lambda: block[Odd()],
    ]


def child(pause, raise_first):
    """End the interpreter while a thread is busy with each of the entries."""
    from harness import fit

    def work(call):
        if raise_first:  # has the C++ runtime look for what it needs of an unwinder
            try:
                fit.seed(1, 2)
            except TypeError:
                pass
        while True:
            call()

    sys.setswitchinterval(0.0001)
    for call in entries(pause):
        threading.Thread(target=work, args=(call,), daemon=True).start()
    time.sleep(0.03)


class ProcessEnd(unittest.TestCase):
    def test_daemon_threads_end_quietly(self):
        for pause in ("0.0005", "0"):
            for raise_first in ("", "first"):
                command = [sys.executable, __file__, pause, raise_first]
                for _ in range(RUNS):
                    done = subprocess.run(command, capture_output=True, text=True, env=os.environ)
                    self.assertEqual((done.returncode, done.stderr), (0, ""), command)


if __name__ == "__main__":
    if len(sys.argv) == 3:
        child(float(sys.argv[1]), bool(sys.argv[2]))
    else:
        unittest.main()
