"""Loading on a host: what it takes of it, from where, and what it says when that fails."""

import builtins
import gc
import inspect
import subprocess
import sys
import unittest
import weakref

from harness import HOMES, Host, exchanged, load, parts


def host_modules(**changes):
    """Return the host's modules; a name given as None is taken out, another is exchanged."""
    modules = Host().modules()
    for home, names in HOMES.items():
        for name in changes.keys() & set(names):
            delattr(modules[home], name)
            if changes[name] is not None:
                setattr(modules[home], name, changes[name])
    return modules


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

    def test_an_import_function_that_hides_them(self):
        asked = self.load_refused(ImportError, lambda name: ModuleNotFoundError(name=name))
        self.assertEqual(asked, list(HOMES))

    def test_an_error_that_cannot_be_read(self):
        class Missing(ModuleNotFoundError):
            @property
            def name(self):
                raise KeyboardInterrupt

        self.load_refused(KeyboardInterrupt, lambda _: Missing())
