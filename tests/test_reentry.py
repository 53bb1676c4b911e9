"""Host code that runs within a call: it empties what is being read, or calls again without end."""

import gc
import operator
import subprocess
import sys
import threading
import unittest
from functools import partial

import catalogue
from harness import CAP, HOST, UsualHost, fit, parts


class Emptied(UsualHost):
    def test_records_while_a_text_is_written(self):
        records = []
        odd = catalogue.Odd(lambda: [one.clear() for one in records])
        for call in (fit._listing, lambda records: fit.render_symbol(records[0])):
            records[:] = [{"fqn": "f", "kind": [odd], "file": "x", "line": 3} for _ in range(9)]
            self.assertIn(" ([odd]) — ", call(records))

    def test_the_text_that_a_line_was_measured_with(self):
        records = [{"fqn": f"f{i}", "file": f"f{i}", "line": 1} for i in range(60)]

        def norm(path):
            for one in records:
                if one["file"] != path:
                    one["fqn"] = "y" * 20000
            return path

        HOST.set(norm=norm)
        page = parts(blocks=[("t" * 900, one) for one in records])
        result = fit._fit_page_context({"grounding": "g" * CAP}, page, 30000)
        self.assertTrue(fit._json_size(result) <= CAP or "alone exceed it." in result["truncated"])


class Crashes(unittest.TestCase):
    def test_in_a_process_of_its_own(self):
        command = [sys.executable, __file__, "--child"]
        done = subprocess.run(command, capture_output=True, text=True, check=False)
        said = done.stdout[-200:]
        self.assertEqual((done.returncode, done.stderr[-2000:]), (0, ""), said)


# ---- what the child process does ----------------------------------------------------------------


def empty_a_seed():
    """Empty, while a path is hashed, every seed that holds it."""

    class Path(str):
        def __hash__(self):
            for holder in gc.get_referrers(self):
                if isinstance(holder, dict) and "line_start" in holder:
                    holder.clear()
            return str.__hash__(self)

    path = Path("p")
    HOST.set(norm=lambda _: path)
    page = parts(blocks=[("t", {"file": "f", "line": 1})] * 9)
    assert fit._assemble_grounding(page, 80)[2] == ["p"]


def nested(levels):
    """Return fact blocks within fact blocks."""
    block = fit.FactBlock("t")
    for _ in range(levels):
        block = fit.FactBlock("t", (block,))
    return block


class Again:
    """What the host does: the call that led there, once more."""

    call = None

    def __call__(self):
        if self.call:
            self.call()


def endless_calls(again):
    """Return, with a name each, calls that call themselves or walk what is too deep."""
    HOST.set(**catalogue.acting_utilities(again))
    ways = catalogue.entries(fit, again)
    calls = [(f"{name}, {at}", way) for name in ways for at, way in enumerate(ways[name])]
    deep, deeper, equal = map(nested, (3000, 30000, 30000))
    walks = [(repr, deep), (repr, deeper), (hash, deeper), (operator.eq, deeper, equal)]
    return calls + [(f"nested, {at}", partial(*walk)) for at, walk in enumerate(walks)]


def see_them_end(again, calls):
    """See every call end in RecursionError."""
    for name, call in calls:
        print(name, flush=True)
        again.call = call
        try:
            call()
        except RecursionError:
            continue
        raise AssertionError(f"{name}: no RecursionError")


def child():
    """Do what may crash; the last thing that was printed names it."""
    print("an emptied seed", flush=True)
    empty_a_seed()
    again = Again()
    calls = endless_calls(again)
    for limit in (sys.getrecursionlimit(), 1_000_000):
        sys.setrecursionlimit(limit)
        see_them_end(again, calls)
        thread = threading.Thread(target=see_them_end, args=(again, calls))
        thread.start()  # its stack is the usual one
        thread.join()


if __name__ == "__main__":
    if sys.argv[1:] == ["--child"]:
        child()
    else:
        unittest.main()
