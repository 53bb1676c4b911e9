"""The module and the plain model, on the same pages over the same host."""

import json
import os
from collections.abc import Callable

import pages
from calls import Page, operations
from pages import Library


class Sides:
    """The module and the plain model over one host, and the pages that both fit."""

    def __init__(self, host: str, utilities: dict[str, Callable], budget: int, library: Library):
        self.host = host
        self.budget = budget
        self.module, self.plain = pages.load(utilities)
        self.pages = [pages.make_page(self.module, count, library) for count in pages.SIZES]
        self.operations = list(operations(self.module, self.pages[0], budget))

    def calls(self, operation: str, page: Page) -> list[Callable]:
        """Return the module's call and the plain model's."""
        sides = (self.module, self.plain)
        return [operations(side, page, self.budget)[operation] for side in sides]

    def agreed(self, operation: str, page: Page) -> object:
        """Return the result of both sides; the bench ends when they differ."""
        result, expected = (call() for call in self.calls(operation, page))
        texts = json.dumps(result), json.dumps(expected)  # in which the order of keys shows
        if texts[0] != texts[1]:
            at = len(os.path.commonprefix(texts))
            near = [text[max(0, at - 60) : at + 60] for text in texts]
            raise SystemExit(f"{operation}, {page.name}: ...{near[0]}... is not ...{near[1]}...")
        return result
