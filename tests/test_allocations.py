"""Every allocation fails in turn: the call ends in MemoryError or as ever, and nothing leaks."""

import _imp
import ctypes
import gc
import os
import shutil
import subprocess
import sys
import tempfile
import types
import unittest
from functools import partial
from pathlib import Path

import catalogue
from differences import shortened
from harness import find, load, loadable

try:
    import _testcapi
except ImportError:
    _testcapi = None

# Stands in for the C library's malloc, and lets chosen calls from one range of code fail: those of
# the module's own operator new, which Python's hooks do not see.
FAILING_MALLOC = """
#include <cstddef>
extern "C" void* __libc_malloc(std::size_t size);
static unsigned long first, last, from, to, count;
using word = unsigned long;
extern "C" void fail_in(word code, word end, word start, word stop) {
  first = code, last = end, from = start, to = stop, count = 0;
}
extern "C" void* malloc(std::size_t size) {
  const auto caller = reinterpret_cast<unsigned long>(__builtin_return_address(0));
  const bool fails = first <= caller && caller < last && count++ >= from && count <= to;
  return fails ? nullptr : __libc_malloc(size);
}
"""


ROUNDS, MOST_ROUNDS = 3, 60  # until Python's own free lists are full; a leak goes on in all
WARM_UP = 200  # calls, so that what the interpreter keeps for later is there


class Allocations(unittest.TestCase):
    def run_child(self, how, **environment):
        done = subprocess.run(
            [sys.executable, __file__, "--child", how],
            env={**os.environ, **environment},
            check=False,
            capture_output=True,
            text=True,
        )
        self.assertEqual((done.returncode, done.stderr[-3000:]), (0, ""), done.stdout[-300:])

    @unittest.skipUnless(hasattr(_testcapi, "set_nomemory"), "no hook in this interpreter")
    def test_of_python(self):
        self.run_child("python")

    @unittest.skipIf("LD_PRELOAD" in os.environ, "something else stands in for malloc")
    def test_of_the_module_itself(self):
        compiler = next(filter(shutil.which, ["c++", "g++", "clang++"]), None)
        if compiler is None:
            self.skipTest("no compiler")
        with tempfile.TemporaryDirectory() as folder:
            library = str(Path(folder, "failing_malloc.so"))
            command = [compiler, "-shared", "-fPIC", "-O1", "-o", library, "-x", "c++", "-"]
            subprocess.run(command, input=FAILING_MALLOC, text=True, check=True)
            self.run_child("module", LD_PRELOAD=library)


# ---- the child process --------------------------------------------------------------------------


# Of C functions alone: newer interpreters lose an error for which a frame of theirs has no memory.
UTILITIES = {
    "estimate_tokens": len,
    "_truncate_to_tokens": str.ljust,
    "_norm": str,
    "FILE_CARDS_HEADING": "## Files",
    "REQUESTED_CONTEXT_HEADING": "## Requested",
}


def load_module():
    """Return the module on a host of C functions, which stays known for further imports."""
    home = types.ModuleType("workers.context_builder")
    vars(home).update(UTILITIES)
    fit = load({home.__name__: home})
    sys.modules[home.__name__] = home
    return fit


def make_module(found):
    """Make and execute a copy of the module, as its import does; return how many names it has."""
    module = _imp.create_dynamic(found)
    _imp.exec_dynamic(module)
    return len(vars(module))


def calls(fit):
    """Return calls of everything that the module has, and one that makes it; and what they read."""
    made = [(function, *given) for function, given in catalogue.calls(fit)]
    held = catalogue.reached([given for _, *given in made])
    return [partial(*row) for row in [*made, (make_module, loadable())]], held


def outcome(call, arm, disarm, *when):
    """Return what a call gave or raised while allocations fail; None for a MemoryError."""
    arm(*when)
    try:
        result = call()
    except MemoryError:
        return None
    except Exception as error:
        disarm()
        return type(error), str(error), type(error.__cause__), getattr(error, "__notes__", ())
    finally:
        disarm()
    return result


def hooks(how):
    """Return two functions: one lets allocations fail, from a number to another, one stops it."""
    if how == "python":
        return _testcapi.set_nomemory, _testcapi.remove_mem_hooks
    with open("/proc/self/maps") as maps:
        ranges = [line.split()[0] for line in maps if line.rstrip().endswith(find())]
    ends = [int(end, 16) for one in ranges for end in one.split("-")]
    fail_in = ctypes.CDLL(None).fail_in
    fail_in.argtypes = [ctypes.c_ulong] * 4
    return partial(fail_in, min(ends), max(ends)), partial(fail_in, 0, 0, 0, 0)


def fail_all(call, wanted, arm, disarm):
    """Let each allocation of a call fail, alone and with all after it; return how many it has."""
    good = 0
    while True:
        alone = outcome(call, arm, disarm, good, good + 1)
        assert alone is None or alone == wanted, (good, alone, wanted)
        rest = outcome(call, arm, disarm, good, 2**30)
        assert rest is None or rest == wanted, (good, rest, wanted)
        if rest is not None:
            return good
        good += 1


def child(how):
    """Call everything while each of its allocations fails, and see that nothing is left behind."""
    fit = load_module()
    arm, disarm = hooks(how)
    made, watched = calls(fit)
    failures = 0
    gc.freeze()  # so that a collection goes through what was made since
    for number, call in enumerate(made):
        print(number, flush=True)
        for _ in range(WARM_UP):
            wanted = outcome(call, disarm, disarm)
        grown = []
        for at in range(MOST_ROUNDS):
            before = [sys.getrefcount(one) for one in watched]
            blocks = sys.getallocatedblocks()
            good = fail_all(call, wanted, arm, disarm)
            failures += good
            gc.collect()
            after = [sys.getrefcount(one) for one in watched]
            moved = [one for one, a, b in zip(watched, before, after, strict=True) if a != b]
            assert not moved, f"call {number} keeps or gives away references to {shortened(moved)}"
            grown.append(sys.getallocatedblocks() - blocks)
            # Of a module, the interpreter keeps a little for later for a long time.
            limit = good if call is made[-1] else 5
            if at >= ROUNDS and grown[-1] <= limit:
                break
        assert grown[-1] <= limit, (number, good, grown)
    print(failures, "allocations failed")
    assert failures > 1000


if __name__ == "__main__":
    if sys.argv[1:2] == ["--child"]:
        child(sys.argv[2])
    else:
        unittest.main()
