"""Loading on a host: what it takes of it, from where, and what it says when that fails."""

import builtins
import ctypes
import gc
import importlib.util
import inspect
import subprocess
import sys
import unittest
import weakref
from functools import partial

from harness import HOMES, Host, exchanged, installed, load, loadable, parts


def host_modules(**changes):
    """Return the host's modules; a name given as None is taken out, another is exchanged."""
    modules = Host().modules()
    for home, names in HOMES.items():
        for name in changes.keys() & set(names):
            delattr(modules[home], name)
            if changes[name] is not None:
                setattr(modules[home], name, changes[name])
    return modules


def clear_slot(module):
    """Clear a module as the collector does."""
    definition = ctypes.pythonapi.PyModule_GetDef
    definition.argtypes, definition.restype = [ctypes.py_object], ctypes.c_void_p
    members = ctypes.cast(definition(module), ctypes.POINTER(ctypes.c_void_p))
    ctypes.PYFUNCTYPE(ctypes.c_int, ctypes.py_object)(members[11])(module)


class Loading(unittest.TestCase):
    def test_utilities(self):
        for home, name in [(home, name) for home, names in HOMES.items() for name in names]:
            words = f"needs {name} of its host; looked in workers.con"
            with self.assertRaisesRegex(ImportError, words):
                load(host_modules(**{name: None}))
            words = f"^import of grounding_fit: {home}.{name}: expected a (callable|string), got 7"
            with self.assertRaisesRegex(TypeError, words):
                load(host_modules(**{name: 7}))
        for name in ("FILE_CARDS_HEADING", "REQUESTED_CONTEXT_HEADING"):
            with self.assertRaisesRegex(ValueError, name):
                load(host_modules(**{name: ""}))

    def test_first_home_wins_and_later_ones_stay_unread(self):
        first = host_modules()["workers.context_builder"]
        first._norm = lambda path: "first"
        first.FILE_CARDS_HEADING = first.REQUESTED_CONTEXT_HEADING = "H"
        loaded = load({"workers.context_builder": first})
        first._norm = None  # too late to be seen
        self.assertEqual(loaded.render_symbol({}), "###  () — first:L0")
        self.assertEqual(loaded._ALWAYS_KEPT, ("H", "H"))

    def test_other_import_errors_pass_through(self):
        cases = [
            ("import not_there_at_all", "not_there_at_all"),
            ("raise LookupError('x')", "LookupError: x"),
            ("import grounding_fit as g; g.render_symbol({})", "is not loaded"),
        ]
        for body, error in cases:
            script = f"""
                import sys, types, importlib.abc, importlib.util
                class Finder(importlib.abc.MetaPathFinder, importlib.abc.Loader):
                    def find_spec(self, name, path=None, target=None):
                        if name in ("workers", "workers.context_builder"):
                            return importlib.util.spec_from_loader(
                                name, self, is_package=name == "workers")
                    def exec_module(self, module):
                        if module.__name__ != "workers": exec({body!r})
                sys.meta_path.insert(0, Finder())
                import grounding_fit"""
            command = [sys.executable, "-c", inspect.cleandoc(script)]
            done = subprocess.run(command, capture_output=True, text=True, check=False)
            self.assertIn(error, done.stderr.splitlines()[-1])

    def test_either_name_and_again(self):
        for name in ("grounding_fit", "workers.wiki.grounding_fit"):
            loaded = load(host_modules(), name)
            self.assertEqual(loaded.FactBlock.__module__, name)
            self.assertIsNot(load(host_modules(), name).FactBlock, loaded.FactBlock)
            with self.assertRaisesRegex(TypeError, "GroundingParts of this module"):
                loaded._blocks_within(parts(), 1)
        gone = weakref.ref(loaded.FactBlock)
        del loaded
        gc.collect()
        self.assertIsNone(gone(), "a module's types outlive it")

    def load_refused(self, kind, error_for):
        """Load while Python's import function raises an error for each of the host's modules;
        return the names that it was asked for."""
        asked = []

        def importer(name, *rest, usual=__import__):
            if name.startswith("workers"):
                asked.append(name)
                raise error_for(name)
            return usual(name, *rest)

        with exchanged(builtins, __import__=importer), self.assertRaises(kind):
            load(host_modules())
        return asked

    def test_modules_known_by_their_full_names_only(self):
        loaded = load({"workers": None, **host_modules()})
        self.assertEqual(loaded.render_symbol({}), "###  () — :L0")

    def test_a_package_that_is_not_there(self):
        """The module below it is not there either, and its names may be elsewhere."""
        first, _, last = host_modules().values()
        vars(first).update({"_norm": str, "FILE_CARDS_HEADING": "F"})
        loaded = load({first.__name__: first, "workers.wiki": None, last.__name__: last})
        self.assertEqual(loaded._ALWAYS_KEPT, ("F", last.REQUESTED_CONTEXT_HEADING))

    def test_what_is_let_go_of(self):
        """A module that goes keeps nothing of its host, and one that is cleared calls nothing."""
        modules = host_modules(_norm=Host().modules)
        norm = modules["workers.wiki.repo_facts"]._norm
        kept = [modules["workers.context_builder"].estimate_tokens, norm]

        def counts():
            gc.collect()
            return [sys.getrefcount(one) for one in kept]

        before = counts()
        loaded = load(modules)
        record = loaded.FactBlock("t")
        page = loaded.GroundingParts([record], [], set())
        clear_slot(loaded)
        calls = [record.label, partial(loaded.render_symbol, {}), partial(getattr, page, "seeds")]
        for call in calls:
            self.assertRaisesRegex(ImportError, "is not loaded", call)
        self.assertEqual(repr(record), "FactBlock(text='t', seeds=(), name='', key='')")
        del loaded, record, page, call, calls
        load(modules)
        half = importlib.util.module_from_spec(loadable())
        loader = half.__loader__
        vars(half).clear()  # so that it goes with its last reference, without the collector
        half.__name__ = "half"
        del modules["workers.wiki_types"].REQUESTED_CONTEXT_HEADING
        with installed(modules), self.assertRaisesRegex(ImportError, "needs REQUESTED"):
            loader.exec_module(half)
        del half
        self.assertEqual(counts(), before)

    def test_an_import_function_that_hides_them(self):
        asked = self.load_refused(ImportError, lambda name: ModuleNotFoundError(name=name))
        self.assertEqual(asked, list(HOMES))

    def test_what_else_is_missing(self):
        """A module that a host's own needs and that is not there is the host's to know of."""
        for name in ("workers.con", "workers.context_builder.more", None, 7):
            asked = self.load_refused(
                ModuleNotFoundError, lambda _, name=name: ModuleNotFoundError(name=name)
            )
            self.assertEqual(asked, ["workers.context_builder"])

    def test_an_error_that_cannot_be_read(self):
        class Missing(ModuleNotFoundError):
            @property
            def name(self):
                raise KeyboardInterrupt

        self.load_refused(KeyboardInterrupt, lambda _: Missing())
