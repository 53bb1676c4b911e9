"""Trials: other policies, told in words such as `code_floor=.2 share:digest=.25 first=readme`."""

from __future__ import annotations

import re
from collections.abc import Callable, Iterable
from dataclasses import dataclass, field, replace
from typing import Any

from grounding_fit_workbench.module import fit
from grounding_fit_workbench.page_lines import Page

UNCHANGED = "unchanged"  # the name of the pages as they were saved
MOST_TOKENS = 2**63 - 1
WORDS = {
    "code_floor=NUMBER": "the fraction of the room held free for bodies while facts are chosen",
    "share:KIND=NUMBER": "the fraction of the room that blocks of a kind may cost; none: no limit",
    "first=KIND,KIND": "the kinds that stay whatever else must go, in place of the policy's own",
    "budget=TOKENS": "the token budget, which limits the bodies; 110%: so much of each page's own",
    "front=kept": "the blocks that always stay are moved to the front",
}


@dataclass(frozen=True)
class Trial:
    """Another policy to fit pages with; what is None or empty stays as each page has it."""

    name: str
    code_floor: float | None = None
    shares: dict[str, float | None] = field(default_factory=dict)  # by kind; None: no limit
    first: tuple[str, ...] | None = None
    budget: int | float | None = None  # tokens; a float: so many times the page's own
    front: bool = False

    @classmethod
    def parse(cls, words: str) -> Trial:
        """Return the trial of such words, which `NAME: ` may stand before.

        Raises ValueError for a word that is none of WORDS.
        """
        named = re.fullmatch(r"([^=]*?):\s+(.*)", words.strip(), re.DOTALL)
        name, rest = named.groups() if named else ("", words)
        changes: dict[str, Any] = {}
        for word in rest.split():
            read_word(word, changes)
        if not changes:
            raise ValueError(f"trial {words!r}: expected words such as code_floor=.2")
        return cls(name or " ".join(rest.split()), **changes)

    def order(self, page: Page) -> list[int]:
        """Return the page's fact blocks by index, as they stand in the changed page."""
        blocks = page.parts.prose
        order = list(range(len(blocks)))
        if self.front:
            policy = self.policy(page.parts.budget)
            order.sort(key=lambda index: not always_kept(blocks[index], policy))
        return order

    def policy(self, policy: fit.SectionBudget) -> fit.SectionBudget:
        """Return a policy with the changes made, itself when there are none."""
        if self.first is None and not self.shares:
            return policy
        first = policy.first if self.first is None else self.first
        shares = dict(policy.shares)
        for kind, share in self.shares.items():
            shares.pop(kind, None)
            if share is not None:
                shares[kind] = share
        return fit.SectionBudget(policy.readme_chars, first, shares, policy.document_chars)

    def tokens(self, budget: int) -> int:
        """Return a page's token budget with the change made."""
        if self.budget is None:
            return budget
        if isinstance(self.budget, float):
            return min(MOST_TOKENS, int(budget * self.budget))
        return self.budget

    def changed(self, page: Page) -> Page:
        """Return the page with the changes made."""
        parts = page.parts
        prose = [parts.prose[index] for index in self.order(page)] if self.front else parts.prose
        floor = parts.code_floor if self.code_floor is None else self.code_floor
        policy = self.policy(parts.budget)
        made = fit.GroundingParts(prose, parts.blocks, parts.files, floor, policy)
        return replace(page, parts=made, budget=self.tokens(page.budget))


def present_words(page: Page) -> dict[str, str]:
    """Return by knob the words of the trial that would change nothing of a page's policy."""
    policy = page.parts.budget
    shares = [f"share:{kind}={share}" for kind, share in policy.shares.items()]
    return {
        "code_floor": f"code_floor={page.parts.code_floor}",
        "share": " ".join(shares) or "no share",
        "first": f"first={','.join(map(str, policy.first))}" if policy.first else "no first",
    }


def always_kept(block: fit.FactBlock, policy: fit.SectionBudget) -> bool:
    """Whether no cap leaves a block out."""
    return block.text.startswith(fit._ALWAYS_KEPT) or (
        block.key != "" and block.key in policy.first
    )


def as_trials(trials: Iterable[str | Trial]) -> list[Trial]:
    """Return the trials, the unchanged pages first; raise ValueError when two have one name."""
    every = [Trial(UNCHANGED)]
    every += [Trial.parse(each) if isinstance(each, str) else each for each in trials]
    names = [each.name for each in every]
    for name in names:
        if names.count(name) > 1:
            raise ValueError(f"trial {name!r}: expected another name, this one is taken")
    return every


# --- words ---


def fraction(text: str) -> float:
    """Read a number from 0 to 1."""
    number = float(text)
    if not 0 <= number <= 1:
        raise ValueError
    return number


def share(text: str) -> float | None:
    """Read a share of the room; there may be no limit."""
    return None if text == "none" else fraction(text)


def kinds(text: str) -> tuple[str, ...]:
    """Read kinds of blocks, perhaps none."""
    return tuple(kind for kind in text.split(",") if kind)


def budget(text: str) -> int | float:
    """Read a token budget, or the part of each page's own that it is."""
    number = float(text.removesuffix("%")) / 100 if text.endswith("%") else int(text)
    if not 0 <= number <= MOST_TOKENS:
        raise ValueError
    return number


def front(text: str) -> bool:
    """Read what is moved to the front."""
    if text != "kept":
        raise ValueError
    return True


READERS: dict[str, tuple[Callable[[str], Any], str]] = {
    "code_floor": (fraction, "a number from 0 to 1"),
    "share": (share, "a number from 0 to 1, or none"),
    "first": (kinds, "kinds of blocks"),
    "budget": (budget, "tokens from 0 on, or a percentage such as 110%"),
    "front": (front, "front=kept"),
}


def read_word(word: str, changes: dict[str, Any]) -> None:
    """Add what a word changes; raise ValueError when it is none of WORDS, or told already."""
    knob, equals, text = word.partition("=")
    key, colon, kind = knob.partition(":")
    if not equals or key not in READERS or bool(kind) != (key == "share") or (colon and not kind):
        known = "code_floor=, share:KIND=, first=, budget= or front=kept"
        raise ValueError(f"trial word {word!r}: expected {known}")
    read, expected = READERS[key]
    told = changes.setdefault("shares", {}) if kind else changes
    if (kind or key) in told:
        raise ValueError(f"trial word {word!r}: expected {knob} once")
    try:
        told[kind or key] = read(text)
    except ValueError:
        raise ValueError(f"trial word {word!r}: expected {expected}") from None
