"""The module that fits pages, loaded when it is first asked for something.

It takes the host's utilities when it is loaded, so that has to wait until they are in place: the
command imports the host's own module before. And a host may have laid it beside its own code, as
`workers.wiki.grounding_fit`. Each import name has record types of its own, so the one that the
process uses already is the one to take.
"""

from __future__ import annotations

import importlib
import sys
from types import ModuleType
from typing import TYPE_CHECKING

__all__ = ["fit", "load", "tokens_of"]

NAMES = ("grounding_fit", "workers.wiki.grounding_fit")


def load() -> ModuleType:
    """Return the module under the name that is in use, or else can be imported."""
    for name in NAMES:
        if name in sys.modules:
            return sys.modules[name]
    for name in NAMES:
        try:
            return importlib.import_module(name)
        except ModuleNotFoundError as error:
            if error.name is None or not f"{name}.".startswith(f"{error.name}."):
                raise  # it is there, and lacks something
    raise ImportError(f"neither {' nor '.join(NAMES)} is on the import path")


if TYPE_CHECKING:
    import grounding_fit as fit
else:

    class Loaded:
        """Looks like the module, and loads it at the first look."""

        def __getattr__(self, name):
            value = getattr(load(), name)
            setattr(self, name, value)
            return value

    fit = Loaded()


def tokens_of(text: str) -> int:
    """Return a text's size in tokens, as the host counts them for the module."""
    alone = fit.GroundingParts([fit.FactBlock(text)], (), set())
    return fit.explain_grounding(alone, 0)[1]["facts"]["whole"]
