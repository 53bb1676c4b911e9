"""Draws the page that `docs/fitting.md` works through: what each path decides, step by step."""

from collections.abc import Callable
from html import escape

import grounding_fit as fit
from grounding_fit_workbench.palette import css_names

LEFT, WIDTH, RIGHT = 150, 520, 250  # of the names, the bars and the words beside them
ROW = 24
STYLE = """
text { font: 12px system-ui, sans-serif; fill: var(--text) }
.title { font-size: 14px; font-weight: 600 }
.name { text-anchor: end }
.ground { fill: var(--ground) }
.free { fill: none; stroke: var(--edge) }
.refused { fill: none; stroke: var(--left-out); stroke-width: 1.5; stroke-dasharray: 4 2 }
.limit { stroke: var(--left-out); stroke-width: 1.5 }
.reserve { fill: url(#hatch); stroke: var(--text) }
#hatch path { stroke: var(--text); stroke-width: 1.2 }
"""
GROUND = [  # on light ground and on dark, beside the palette
    ("text", "#1c2733", "#dfe6ee"),
    ("ground", "#ffffff", "#12181f"),
    ("edge", "#7d8a97", "#7d8a97"),
]
PARTS = ("other", "facts", "seeds", "bodies", "listing", "note")


def style() -> str:
    """Return the style of the picture: the workbench's palette, on light ground and on dark."""
    light, dark = (
        " ".join(f"--{name}: {pair[at]};" for name, *pair in [*css_names(), *GROUND])
        for at in (0, 1)
    )
    parts = "".join(f".{part} {{ fill: var(--{part}) }}\n" for part in PARTS)
    in_dark = f"@media (prefers-color-scheme: dark) {{ svg {{ {dark} }} }}\n"
    return f"\nsvg {{ {light} }}\n{in_dark}{STYLE.lstrip()}{parts}"


class Drawing:
    """An SVG that grows downwards; bars of one part share a scale."""

    def __init__(self):
        self.shapes = []
        self.y = 10
        self.scale = 1.0

    def text(self, x: float, words: str, kind: str = "") -> None:
        """Write words on the current row."""
        self.shapes.append(
            f'<text class="{kind}" x="{x:.1f}" y="{self.y + 14}">{escape(words)}</text>'
        )

    def start(self, title: str, whole: int) -> None:
        """Begin a part, whose bars are as wide as the whole at most."""
        self.y += 6
        self.text(LEFT, title, "title")
        self.y += ROW
        self.scale = WIDTH / whole

    def piece(self, kind: str, start: int, size: int) -> None:
        """Draw a piece of the current row's bar."""
        x = LEFT + self.scale * start
        width = self.scale * size
        box = f'x="{x:.1f}" y="{self.y}" width="{width:.1f}" height="18"'
        self.shapes.append(f'<rect class="{kind}" {box}/>')

    def row(self, name: str, pieces: list[tuple[str, int]], words: str, start: int = 0) -> None:
        """Draw a bar of pieces from `start` on, named on the left and explained on the right."""
        self.text(LEFT - 8, name, "name")
        for kind, size in pieces:
            self.piece(kind, start, size)
            start += size
        self.text(LEFT + WIDTH + 10, words)
        self.y += ROW

    def limit(self, at: int, top: int) -> None:
        """Draw a line from a height down to the current row."""
        x = LEFT + self.scale * at
        line = f'x1="{x:.1f}" x2="{x:.1f}" y1="{top}" y2="{self.y - 6}"'
        self.shapes.append(f'<line class="limit" {line}/>')

    def legend(self, *kinds: tuple[str, str]) -> None:
        """Say what the colours mean."""
        x = LEFT
        for kind, words in kinds:
            self.shapes.append(
                f'<rect class="{kind}" x="{x}" y="{self.y + 4}" width="12" height="12"/>'
            )
            self.text(x + 17, words)
            x += 34 + 6 * len(words)
        self.y += ROW

    def svg(self) -> str:
        """Return the whole picture."""
        size = f"{LEFT + WIDTH + RIGHT} {self.y + 8}"
        hatch = (
            '<pattern id="hatch" width="6" height="6" patternUnits="userSpaceOnUse">'
            '<path d="M0 6 6 0"/></pattern>'
        )
        head = f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {size}" role="img">'
        title = "<title>The worked page: what each path keeps, and where its room goes</title>"
        ground = '<rect class="ground" width="100%" height="100%"/>'
        parts = [head, title, f"<style>{style()}</style>", f"<defs>{hatch}</defs>", ground]
        return "\n".join([*parts, *self.shapes, "</svg>"]) + "\n"


def draw_tokens(to: Drawing, report: dict) -> None:
    """Draw the API path."""
    budget = report["budget"]
    facts = report["facts"]
    used = report["used"]
    whole = facts["whole"]
    listing = report["code"] - used
    reach = max(budget, whole + report["code"], report["size"])
    to.start(f"API path: {budget:,} tokens", reach)
    top = to.y
    to.row(
        "share", [("facts", whole), ("free", report["share"])], "facts whole, and the code's share"
    )
    bodies = f"{report['symbols']['bodies']} bodies fit into the share"
    to.row("bodies", [("bodies", used)], bodies, start=whole)
    told = f"{report['symbols']['listed']} lines come on top of it"
    to.row("listing", [("listing", listing)], told, start=whole + used)
    cut = f"facts are cut to the rest: {facts['kept']:,}"
    to.row("text", [("facts", facts["kept"]), ("bodies", used), ("listing", listing)], cut)
    to.limit(budget, top)


def draw_choice(to: Drawing, report: dict, names: list[str], added: Callable) -> None:
    """Draw the room of the answer, and the fact blocks that were tried in it."""
    cap = report["cap"]
    base = report["base"]
    reserve = report["reserve"]
    reach = base + sum(added(fact) for fact in report["facts"] if fact["verdict"] == "fits")
    widest = max(added(fact) for fact in report["facts"] if not fact["kept"])
    to.start(f"Agent path: {cap:,} JSON characters", max(cap, reach + widest))
    top = to.y
    free = [("other", base), ("free", cap - base - reserve), ("reserve", reserve)]
    to.row("base and room", free, "hatched: reserved for bodies")
    so_far = base
    for name, fact in zip(names, report["facts"], strict=True):
        if fact["verdict"] in ("always kept", "kept first"):
            to.row(name, [], f"{fact['verdict']}: in the base")
            continue
        seeds = fact["citable_seeds"]
        pieces = [("facts", added(fact) - seeds), ("seeds", seeds)]
        if not fact["kept"]:
            pieces = [("refused", size) for _, size in pieces]
        short = f" by {fact['short_by']:,}" if fact["short_by"] else ""
        to.row(name, pieces, fact["verdict"] + short, start=so_far)
        so_far += added(fact) if fact["kept"] else 0
    to.limit(cap - reserve, top)
    to.limit(cap, top)


def draw_answer(to: Drawing, page: object, added: Callable) -> None:
    """Draw the answer on the scale of the choice."""
    report = page.characters
    symbols = report["symbols"]
    note = report["note"]["size"]
    bodies = page.parts.blocks[: symbols["bodies"]]
    records = [record for _, record in page.parts.blocks]
    listed = records[symbols["bodies"] :][: symbols["listed"]]
    code = sum(fit._json_size(text) - 2 + 4 for text, _ in bodies)
    code += sum(fit._json_size(seed) + 2 for seed in fit.symbol_seeds([one for _, one in bodies]))
    listing = fit._json_size(fit._listing(listed)) - 2 + 4
    facts = [fact for fact in report["facts"] if fact["kept"]]
    seeds = sum(fact["citable_seeds"] for fact in facts)
    texts = sum(added(fact) for fact in facts) - seeds
    rest = report["size"] - code - listing - texts - seeds - note
    sizes = [("other", rest), ("facts", texts), ("seeds", seeds), ("bodies", code)]
    sizes += [("listing", listing), ("note", note), ("free", report["cap"] - report["size"])]
    to.row("answer", sizes, f"{symbols['bodies']} bodies, {symbols['listed']} lines")
    to.legend(
        ("other", "other fields, names"),
        ("facts", "facts"),
        ("seeds", "their seeds"),
        ("bodies", "bodies"),
        ("listing", "listing"),
        ("note", "note"),
        ("refused", "left out"),
    )


def picture(page: object, names: list[str], added: Callable) -> str:
    """Return the picture of the page as SVG."""
    to = Drawing()
    draw_tokens(to, page.tokens)
    draw_choice(to, page.characters, names, added)
    draw_answer(to, page, added)
    return to.svg()
