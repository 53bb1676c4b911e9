"""Tells what C++ files have that they must not have, and fails if there is anything.

Folders may include only those that stand before them; CPython is for two of them, and what differs
between its versions for one file; no file and no class is too long. Of the further files only the
length is asked. A function's length is for clang-tidy to see.

    python layers.py FOLDER [FILE...]
"""

import re
import sys
from collections.abc import Iterator
from pathlib import Path

FOLDERS = (
    "text python grounding_model symbol_rendering token_fitting answer_capping binding".split()
)
KNOW_PYTHON = ("python", "binding")
KNOWS_VERSIONS = "python/version.hpp"
FILE_LINES = 300
CLASS_LINES = 120


def includes(folder: str, line: str) -> Iterator[str]:
    """Includes run one way, and a header of our own is written with its folder."""
    found = re.match(r'\s*#\s*include\s*([<"])(.*?)[>"]', line)
    if not found:
        return
    quoted, target = found[1] == '"', found[2].split("/")
    of = target[0]
    if quoted and (len(target) != 2 or of not in FOLDERS):
        yield 'an include is written "folder/file.hpp"'
    elif not quoted and of in FOLDERS:
        yield "a header of our own is included in quotes"
    elif quoted and FOLDERS.index(of) > FOLDERS.index(folder):
        yield f"{folder} stands before {of} and cannot include it"


def layers(path: Path, lines: list[str]) -> Iterator[tuple[int, str]]:
    """Find what a file below the sources must not know."""
    folder = path.parts[0]
    if len(path.parts) != 2 or folder not in FOLDERS:
        yield 1, "in none of the folders that have a place in the order"
        return
    if path.suffix not in (".cpp", ".hpp"):
        yield 1, "neither a .cpp nor a .hpp file"
    for number, line in enumerate(lines, 1):
        for wrong in includes(folder, line):
            yield number, wrong
        if folder not in KNOW_PYTHON and re.search(r"\bPy[A-Z_]|\b_Py|Python\.h", line):
            yield number, f"the C API of CPython is for {' and '.join(KNOW_PYTHON)} alone"
        if path.as_posix() != KNOWS_VERSIONS and re.search(
            r"PY_(VERSION_HEX|(MAJOR|MINOR|MICRO)_VERSION)|^\s*#\s*(el)?if.*P[yY]", line
        ):
            yield number, f"what differs between CPythons is for {KNOWS_VERSIONS} alone"


def lengths(lines: list[str]) -> Iterator[tuple[int, str]]:
    """Find what is too long; the formatter closes a body in the column where its head begins."""
    if len(lines) > FILE_LINES:
        yield len(lines), f"above {FILE_LINES} lines"
    heads: list[tuple[int, int]] = []  # column and number of the bodies that are open
    for number, line in enumerate(lines, 1):
        column = len(line) - len(line.lstrip(" "))
        if re.match(r" *(class|struct|union)\b", line) and not re.search(r";\s*(//.*)?$", line):
            heads.append((column, number))
        elif line.startswith("}", column):
            while heads and heads[-1][0] >= column:
                at, begun = heads.pop()
                if at == column and number - begun - 1 > CLASS_LINES:
                    yield number, f"a body of {number - begun - 1} lines, above {CLASS_LINES}"


def main() -> int:
    """Print all that is wrong."""
    sources, further = Path(sys.argv[1]), map(Path, sys.argv[2:])
    files = sorted(path for path in sources.rglob("*") if path.is_file())
    found = 0 if files else 1
    for path in [*files, *further]:
        lines = path.read_text(encoding="utf-8").splitlines()
        inside = layers(path.relative_to(sources), lines) if path in files else ()
        for number, wrong in [*inside, *lengths(lines)]:
            print(f"{path}:{number}: {wrong}")
            found += 1
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
