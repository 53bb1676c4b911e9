"""Host code that runs within a call: it empties what is being read, or calls again without end."""

import gc
import operator
import subprocess
import sys
import threading
import unittest
from functools import partial

import catalogue
from harness import CAP, HOST, UsualHost, fit, over, parts

STACKS = (128, 512, 1024, 8192)  # KiB; the last is the usual one


class Emptied(UsualHost):
    def test_records_while_a_text_is_written(self):
        records = []
        odd = catalogue.Odd(lambda: [one.clear() for one in records])
        for call, shown in [
            (fit._listing, "- `f` ([odd]) — :L3"),  # the line was read before
            (lambda records: fit.render_symbol(records[0]), "### f ([odd]) — x:L0"),
        ]:
            records[:] = [{"fqn": "f", "kind": [odd], "file": "x", "line": 3} for _ in range(9)]
            self.assertIn(shown, call(records))

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

    def test_a_record_while_an_entry_of_it_is_read(self):
        """What its equality changes shows in all that is read later."""
        for key, name in [("parameters", "name"), ("related", "fqn")]:
            with self.subTest(key):

                def empty():
                    if armed and not later:
                        record.clear()
                        later.append([{}, {name: "later"}])  # perhaps where the entries were

                armed, later = [], []
                record = {key: [{catalogue.odd_text(empty)(name): "a"}], "has_tests": True}
                armed.append(1)
                shown = fit.render_symbol(record)
                self.assertEqual((len(later), "later" in shown), (1, False))
                self.assertNotIn("has_tests", shown)

    def test_a_key_in_the_place_of_a_freed_one(self):
        """The size of a key is remembered by the key, which must live for as long."""
        first = {"".join(["x"] * 9): 1}
        second = {}

        def size(blocks, _):
            if len(blocks) == 1 and first:
                place = id(*first)
                first.clear()
                made = ["".join(["\n"] * 9) for _ in range(500)]  # as long, so one may come there
                second[min(made, key=lambda key: id(key) != place)] = 1
            return 30000

        prose = [fit.FactBlock("", [first]), fit.FactBlock("", [second], key="k")]
        cost = fit._json_size("") + fit._json_size([{"\n" * 9: 1}])
        for limit, kept in [(cost + 0.5, 2), (cost - 0.5, 1)]:  # of a room of 10000
            budget = fit.SectionBudget(shares={"k": limit / 10000})
            first["".join(["x"] * 9)] = 1
            second.clear()
            page = parts(prose, budget=budget)
            self.assertEqual(len(fit._fit_prose(page, size, 0)[0]), kept)

    def test_seeds_in_the_place_of_freed_ones(self):
        """What an answer cites are the seeds as they stood when the first answer was tried."""
        seeds = [fit.seed("stood", line) for line in range(1, 9)]
        later = []

        def norm(path):
            if path == "39":  # the best 30 symbols were listed before, and the seeds taken
                seeds.clear()
                later.extend(fit.seed("later", line) for line in range(1, 9))
            return path

        HOST.set(norm=norm)
        blocks = [("t" * 2000, {"file": str(at), "line": 1}) for at in range(40)]
        page = parts([fit.FactBlock(fit._ALWAYS_KEPT[0], seeds)], blocks)
        cited = fit._fit_page_context(over(), page, 10**6)["citation_seeds"]
        self.assertEqual([one["path"] for one in cited[:9]], ["stood"] * 8 + ["0"])
        self.assertEqual(len(later), 8)


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


def walk_while_freed():
    """Free a record whose seed walks, in its finalizer, all that the collector can reach."""

    class Walker:
        def __del__(self):
            seen.extend(one.name for one in gc.get_objects() if type(one) is fit.FactBlock)

    seen = []
    kept, freed = (fit.FactBlock("t", [end], name) for end, name in [(0, "a"), (Walker(), "b")])
    del freed
    assert seen == [kept.name], seen


def dive(levels):
    """Call the module at every level of calls through C, each a first call of its thread."""
    fit._code_cut(1, 0, 4)
    if levels:
        next(map(dive, (levels - 1,)))


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


def on_stack(size, act, *arguments):
    """Do something on a thread with a stack of so many KiB; what it raises is raised again."""
    print("on a stack of", size, "KiB", flush=True)
    threading.stack_size(size << 10)
    raised = []

    def work():
        try:
            act(*arguments)
        except BaseException as error:
            raised.append(error)

    thread = threading.Thread(target=work)
    thread.start()
    thread.join()
    if raised:
        raise raised[0]


def child():
    """Do what may crash; the last thing that was printed names it."""
    for act in (empty_a_seed, walk_while_freed):
        print(act.__name__, flush=True)
        act()
    again = Again()
    calls = endless_calls(again)
    for limit in (sys.getrecursionlimit(), 1_000_000):
        sys.setrecursionlimit(limit)
        see_them_end(again, calls)
        for size in STACKS:
            on_stack(size, see_them_end, again, calls)
    on_stack(512, dive, 400)


if __name__ == "__main__":
    if sys.argv[1:] == ["--child"]:
        child()
    else:
        unittest.main()
