"""The colours of the parts of a page, said once: for the terminal, the browser and the picture.

Neighbours in a bar differ in lightness as well as in hue, and none is told by its colour alone:
on a terminal without colours a letter stands for it, in drawings a pattern or words.
"""

from __future__ import annotations

from dataclasses import dataclass

CUBE = (0, 95, 135, 175, 215, 255)  # what a terminal's 6 x 6 x 6 colours are made of, from 16 on


@dataclass(frozen=True)
class Ink:
    """How a part is drawn: by a letter, or in a colour on light ground and one on dark."""

    letter: str
    meaning: str
    light: str
    dark: str

    @property
    def colour(self) -> int:
        """The nearest of a terminal's 256 colours."""
        wanted = [int(self.light[at : at + 2], 16) for at in (1, 3, 5)]
        cube = [min(range(6), key=lambda step: abs(CUBE[step] - part)) for part in wanted]
        grey = min(range(24), key=lambda step: abs(8 + 10 * step - sum(wanted) / 3))
        distances = [sum((CUBE[step] - part) ** 2 for step, part in zip(cube, wanted, strict=True))]
        distances.append(sum((8 + 10 * grey - part) ** 2 for part in wanted))
        red, green, blue = cube
        return 16 + 36 * red + 6 * green + blue if distances[0] <= distances[1] else 232 + grey


INKS = {
    "other": Ink("O", "other fields", "#a7b0ba", "#5f6a75"),
    "facts": Ink("F", "facts", "#2f74b5", "#5a9fdc"),
    "seeds": Ink("S", "seeds of facts", "#a9cdf0", "#2c557f"),
    "note": Ink("N", "note", "#8565b3", "#a98bd4"),
    "listing": Ink("L", "listing", "#f2d272", "#a8842a"),
    "bodies": Ink("B", "bodies", "#d57a1f", "#e8973f"),
    "body seeds": Ink("C", "seeds of bodies", "#f4d0a6", "#774d1b"),
    "joins": Ink("J", "blank lines and rounding", "#4d545c", "#c9ced4"),
    "free": Ink(".", "free", "#eceef0", "#2a2f36"),
}
LEFT_OUT = ("#b3362a", "#ff8272")  # on light ground, on dark: what was refused, and limits


def css_names() -> list[tuple[str, str, str]]:
    """Return each colour's name in a style sheet, on light ground and on dark."""
    inks = [(part.replace(" ", "-"), ink.light, ink.dark) for part, ink in INKS.items()]
    return [*inks, ("left-out", *LEFT_OUT)]
