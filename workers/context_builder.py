"""Token utilities of the host, in their smallest form.

A real host brings its own `workers.context_builder`; this one lets the module, its tests and
its examples run without it. `grounding_fit` asks only what the docstrings below promise.
"""

_CHARS_PER_TOKEN = 4


def estimate_tokens(text: str) -> int:
    """Return the tokens a text is taken to cost: the same integer for the same text."""
    return (len(text) + _CHARS_PER_TOKEN - 1) // _CHARS_PER_TOKEN


def _truncate_to_tokens(text: str, budget: int) -> str:
    """Return the longest prefix of whole lines that `budget` tokens (0 or more) hold."""
    room = budget * _CHARS_PER_TOKEN
    if len(text) <= room:
        return text
    return text[: text.rfind("\n", 0, room + 1) + 1].rstrip("\n")
