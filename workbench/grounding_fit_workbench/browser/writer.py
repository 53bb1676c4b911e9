"""Writes a file for the browser that fetches nothing: style, script and data stand in it.

The script is modules of one concern each. A file opened from a disk cannot import its neighbours,
so they are joined into one: each as a function that gives what it exports, behind those that it
imports.
"""

from __future__ import annotations

import json
import re
import zlib
from base64 import b64encode
from hashlib import sha256
from pathlib import Path
from typing import Any

from grounding_fit_workbench.palette import css_names
from grounding_fit_workbench.terminal import safe

FOLDER = Path(__file__).parent
IMPORT = re.compile(r'^import (\{[^}]*\}) from "\./(\w+)\.js";$', re.MULTILINE)
EXPORT = re.compile(r"^export ((?:async )?(?:const|class|function) (\w+))", re.MULTILINE)
MARK = re.compile(r"/\*([A-Z_]+)\*/")
MOST_PACKED = 700_000  # characters of a page's texts, as they are packed
MOST_TEXT = 40_000  # code points of a text that are shown


def joined_script(entry: str) -> str:
    """Return a module and all that it imports as one script."""
    done: dict[str, str] = {}

    def add(name: str) -> None:
        if name in done:
            return
        source = (FOLDER / "scripts" / f"{name}.js").read_text("utf-8")
        for _, imported in IMPORT.findall(source):
            add(imported)
        exported = ", ".join(export for _, export in EXPORT.findall(source))
        body = EXPORT.sub(r"\1", IMPORT.sub(r"const \1 = $\2;", source)).strip()
        done[name] = f"const ${name} = (() => {{\n{body}\nreturn {{ {exported} }};\n}})();"

    add(entry)
    return "\n\n".join(done.values())


def colours() -> str:
    """Return the palette as variables of a style sheet."""
    light, dark = (
        "".join(f"--{name}: {pair[at]}; " for name, *pair in css_names()) for at in (0, 1)
    )
    in_dark = "@media screen and (prefers-color-scheme: dark)"
    return f":root {{ {light}}}\n{in_dark} {{ :root {{ {dark}}} }}\n"


def style(name: str) -> str:
    """Return the style of all pages, and that of one kind."""
    sheets = [(FOLDER / "styles" / f"{each}.css").read_text("utf-8") for each in ("base", name)]
    return "\n".join([colours(), *sheets])


def source_hash(text: str) -> str:
    """Return what allows an inlined script or style, and no other, in a content policy."""
    return f"'sha256-{b64encode(sha256(text.encode()).digest()).decode()}'"


def packed(texts: list[str]) -> str:
    """Return texts as the browser unpacks them; where they are too large, of each its beginning.

    Each is a pair: the code points that it has in all, and as many of them as are shown.
    """
    most = MOST_TEXT
    while True:
        shown = [[len(text), text[:most]] for text in texts]
        made = b64encode(zlib.compress(json.dumps(shown).encode(), 9)).decode()
        if len(made) <= MOST_PACKED or most <= 100:
            return made
        most //= 2


def shown(value: Any) -> Any:
    """Return a value in whose texts nothing turns the direction of what stands beside them."""
    if isinstance(value, str):
        return safe(value)
    if isinstance(value, dict):
        return {key: shown(item) for key, item in value.items()}
    return [shown(item) for item in value] if isinstance(value, (list, tuple)) else value


def as_json(data: Any) -> str:
    """Return data as JSON that no element of a page ends within."""
    return json.dumps(data, allow_nan=False, separators=(",", ":")).replace("<", "\\u003c")


def written(name: str, data: dict[str, Any]) -> str:
    """Return a page of a kind, with its data."""
    plain = {key: value for key, value in data.items() if key != "texts"}
    script, styles = joined_script(name), style(name)
    inlined = {
        "POLICY": f"default-src 'none'; style-src {source_hash(styles)}; "
        f"script-src {source_hash(script)}",
        "STYLE": styles,
        "SCRIPT": script,
        "DATA": as_json(plain),
        "TEXTS": packed(data.get("texts", [])),
    }
    template = (FOLDER / f"{name}.html").read_text("utf-8")
    return MARK.sub(lambda mark: inlined[mark[1]], template)
