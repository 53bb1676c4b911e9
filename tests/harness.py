"""Loads the module beside the plain model, both on a host whose utilities a test can exchange."""

import contextlib
import importlib.machinery
import importlib.util
import os
import subprocess
import sys
import types
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
HOMES = {
    "workers.context_builder": ("estimate_tokens", "_truncate_to_tokens"),
    "workers.wiki.repo_facts": ("_norm", "FILE_CARDS_HEADING"),
    "workers.wiki_types": ("REQUESTED_CONTEXT_HEADING",),
}
HOST_NAMES = [name for names in HOMES.values() for name in names]


class Host:
    """The host's utilities. The functions handed out stay; what they do is a test's to set."""

    FILE_CARDS_HEADING = "## Files"
    REQUESTED_CONTEXT_HEADING = "## Requésted"

    def __init__(self):
        self.calls = []
        self.set()

    def set(self, estimate=None, truncate=None, norm=None):
        """Exchange what the utilities do; what is not given becomes the usual."""
        self.do = {
            "estimate": estimate or (lambda text: len(text) // 4),
            "truncate": truncate or (lambda text, budget: text[: 4 * budget]),
            "norm": norm or (lambda path: path.removeprefix("./")),
        }

    def _call(self, name, *args):
        self.calls.append((name, *args))
        return self.do[name](*args)

    def modules(self):
        """Return the modules that define the utilities, by name."""
        parts = {
            "estimate_tokens": lambda text: self._call("estimate", text),
            "_truncate_to_tokens": lambda text, budget: self._call("truncate", text, budget),
            "_norm": lambda path: self._call("norm", path),
            "FILE_CARDS_HEADING": self.FILE_CARDS_HEADING,
            "REQUESTED_CONTEXT_HEADING": self.REQUESTED_CONTEXT_HEADING,
        }
        made = {}
        for home, names in HOMES.items():
            made[home] = types.ModuleType(home)
            vars(made[home]).update({name: parts[name] for name in names})
        return made


@contextlib.contextmanager
def installed(modules):
    """Put modules into sys.modules for a while, and the packages above them but those that are
    given as None."""
    packages = {name: types.ModuleType(name) for name in ("workers", "workers.wiki")}
    for package in packages.values():
        package.__path__ = []
    before = {name: one for name, one in sys.modules.items() if name.split(".")[0] == "workers"}
    for name in before:
        del sys.modules[name]
    there = (packages | modules).items()
    sys.modules.update({name: module for name, module in there if module})
    try:
        yield
    finally:
        for name in [name for name in sys.modules if name.split(".")[0] == "workers"]:
            del sys.modules[name]
        sys.modules.update(before)


@contextlib.contextmanager
def exchanged(module, **attributes):
    """Exchange attributes of a module for a while."""
    before = {name: getattr(module, name) for name in attributes}
    vars(module).update(attributes)
    try:
        yield
    finally:
        vars(module).update(before)


def find(name="grounding_fit"):
    """Return where the extension module is: the first on the path."""
    return importlib.machinery.PathFinder.find_spec(name).origin


def loadable(name="grounding_fit"):
    """Return what Python's import goes by to load the extension module under a name."""
    loader = importlib.machinery.ExtensionFileLoader(name, find())
    return importlib.util.spec_from_loader(name, loader)


def load(modules, name="grounding_fit", register=False):
    """Return a new copy of the extension module on these host modules."""
    with installed(modules):
        module = importlib.util.module_from_spec(loadable(name))
        module.__loader__.exec_module(module)
    if register:
        sys.modules[name] = module
    return module


def load_model(modules):
    """Return the plain model on these host modules."""
    with installed(modules):
        sys.modules.pop("plain_model", None)
        return importlib.import_module("plain_model")


HOST = Host()
fit = load(HOST.modules(), register=True)
model = load_model(HOST.modules())
CAP = fit._PAGE_CONTEXT_MAX_CHARS


class Lines:
    """Stands in for `_listed` of the plain model, which makes a line anew for every answer that it
    tries. While symbols stay as they are, one line a symbol is enough."""

    def __init__(self, make):
        self.make = make
        self.made = {}

    def __call__(self, sym):
        if id(sym) not in self.made:
            self.made[id(sym)] = self.make(sym)
        return self.made[id(sym)]


LINES = Lines(model._listed)


class UsualHost(unittest.TestCase):
    """Tests that each start on the usual host."""

    def setUp(self):
        HOST.set()
        HOST.calls.clear()


def parts(prose=(), blocks=(), files=frozenset(), **rest):
    """Return a page's grounding; what is not given is empty."""
    return fit.GroundingParts(list(prose), list(blocks), files, **rest)


def over(**fields):
    """Return an answer over the cap."""
    return {"page_id": "p", "old": 1, "grounding": "g" * CAP, **fields}


def run_python(*arguments):
    """Run a CPython like this one beside the module and the host's stand-ins; return the run."""
    path = os.pathsep.join([str(Path(find()).parent), str(ROOT)])
    env = {**os.environ, "PYTHONPATH": path, "PYTHONIOENCODING": "utf-8"}
    command = [sys.executable, *map(str, arguments)]
    streams = {"capture_output": True, "text": True, "encoding": "utf-8"}
    return subprocess.run(command, env=env, check=False, **streams)
