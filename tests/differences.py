"""Tells where two results differ first, in a few lines however large they are."""

import reprlib

AROUND = 30  # code points of a text that are shown on either side of its first difference
SHORT = reprlib.Repr()
SHORT.maxstring = SHORT.maxother = 120
SHORT.maxlevel = 3


def shortened(value):
    """Return a value as repr() does, in a line or two."""
    return SHORT.repr(value)


def described(value):
    """Return a value in short, with its type."""
    return f"{shortened(value)} ({type(value).__name__})"


def text_difference(a, b):
    """Return where two unequal texts differ first, and what stands there."""
    pairs = enumerate(zip(a, b, strict=False))
    at = next((at for at, (one, other) in pairs if one != other), min(len(a), len(b)))
    near = slice(max(0, at - AROUND), at + AROUND)
    one, other = [f"{text[near]!r} of {len(text)} code points" for text in (a, b)]
    return f", from {at} on: {one}\nis not {other}"


def item_difference(a, b):
    """Return where two lists or tuples differ first; None where they are equal."""
    for at, (one, other) in enumerate(zip(a, b, strict=False)):
        if found := difference(one, other):
            return f"[{at}]{found}"
    if len(a) == len(b):
        return None
    beyond = max(a, b, key=len)[min(len(a), len(b))]
    return f": {len(a)} items, not {len(b)}; the first beyond: {described(beyond)}"


def difference(a, b):
    """Return the place where two results differ first, such as `[1]['size']: 12 is not 13`; None
    where they are equal, key order and every type included."""
    if a is b:
        return None
    if type(a) is not type(b):
        return f": {described(a)}\nis not {described(b)}"
    if isinstance(a, dict):
        if list(a) != list(b):
            return f", its keys{item_difference(list(a), list(b))}"
        for key, one in a.items():
            if found := difference(one, b[key]):
                return f"[{key!r}]{found}"
        return None
    if isinstance(a, (list, tuple)):
        return item_difference(a, b)
    if a == b:
        if isinstance(a, str) and a.isascii() != b.isascii():  # == goes by the units alone
            return f": {described(a)} is ASCII to Python and is not, or the other way round"
        return None
    if isinstance(a, str):
        return text_difference(a, b)
    return f": {shortened(a)} is not {shortened(b)}"
