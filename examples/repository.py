"""Reads a repository of Python code: its sources, its texts, what it defines and imports."""

import ast
from collections import Counter
from collections.abc import Iterator
from dataclasses import dataclass
from pathlib import Path

NO_PAGES = (".", "test", "site-packages")  # beginnings of folders that get no page
TEXT_SUFFIXES = (".md", ".rst")
BUILT_FOLDERS = ("build", "dist")  # at the root; what is built there is no part of the code
Definition = ast.FunctionDef | ast.AsyncFunctionDef | ast.ClassDef


@dataclass(frozen=True)
class Source:
    """One file of Python code."""

    path: str
    module: str
    lines: list[str]
    tree: ast.Module
    references: Counter  # how often the file mentions each name
    imports: list[ast.Import | ast.ImportFrom]

    @property
    def doc(self) -> str:
        """The docstring of the module, perhaps empty."""
        return ast.get_docstring(self.tree) or ""

    @property
    def is_test(self) -> bool:
        """Whether a file or folder of the path is named test..."""
        return "/test" in f"/{self.path}"


@dataclass(frozen=True)
class Text:
    """A text that can be quoted, and the line of the file on which it begins."""

    path: str
    line: int
    text: str


@dataclass(frozen=True)
class Repository:
    """What was read of a repository, in the order of its paths, nearest to the root first."""

    name: str
    sources: list[Source]
    texts: list[Text]
    passed_over: int  # files that cannot be read


def is_readme(path: str) -> bool:
    """Whether a file is named README, with any suffix or none."""
    return Path(path).stem.upper() == "README"


def parse(path: str, text: str) -> Source:
    """Parse one file of Python code."""
    tree = ast.parse(text)
    module = path.removesuffix(".py").replace("/", ".").removesuffix(".__init__")
    lines = text.removesuffix("\n").split("\n") if text else []
    nodes = list(ast.walk(tree))
    names = Counter(getattr(node, "id", getattr(node, "attr", "")) for node in nodes)
    imports = [node for node in nodes if isinstance(node, (ast.Import, ast.ImportFrom))]
    return Source(path, module, lines, tree, names, imports)


def read_repository(root: Path) -> Repository:
    """Read the code and the texts below a folder, but for hidden files and what was built."""
    base = root
    if (root / "__init__.py").is_file():
        base = root.parent  # so that paths and modules name the package
    sources = []
    texts = []
    passed_over = 0
    for file in sorted(root.rglob("*"), key=lambda file: (len(file.parts), file)):
        parts = file.relative_to(root).parts
        if parts[0] in BUILT_FOLDERS or any(part.startswith(".") for part in parts):
            continue
        path = file.relative_to(base).as_posix()
        try:
            if file.suffix == ".py":
                sources.append(parse(path, file.read_text("utf-8-sig")))
            elif file.suffix in TEXT_SUFFIXES or is_readme(path):
                texts.append(Text(path, 1, file.read_text("utf-8-sig")))
        except (OSError, SyntaxError, ValueError, RecursionError, MemoryError):
            passed_over += 1
    return Repository(root.name, sources, texts, passed_over)


def import_table(sources: list[Source]) -> dict[str, dict[str, int]]:
    """Say which files import each module, and on which line first: {module: {path: line}}."""
    table = {}
    for source in sources:
        for node in source.imports:
            for module in imported_modules(source, node):
                table.setdefault(module, {}).setdefault(source.path, node.lineno)
    return table


def imported_modules(source: Source, node: ast.Import | ast.ImportFrom) -> list[str]:
    """Return the full names of the modules that a statement imports."""
    if isinstance(node, ast.Import):
        return [alias.name for alias in node.names]
    above = source.path.split("/")[: -node.level] if node.level else []
    names = [node.module] if node.module else [alias.name for alias in node.names]
    return [".".join([*above, name]) for name in names]


def definitions(scope: ast.Module | ast.ClassDef, prefix: str) -> Iterator[tuple[str, Definition]]:
    """Yield each definition with its qualified name, but for those inside functions."""
    for node in scope.body:
        if isinstance(node, Definition):
            yield f"{prefix}.{node.name}", node
        if isinstance(node, ast.ClassDef):
            yield from definitions(node, f"{prefix}.{node.name}")


def packages(root: Path) -> dict[str, Path]:
    """Return the folders of the packages by name, but for hidden ones and tests."""
    found = {}
    for file in sorted(root.rglob("__init__.py")):
        folder = file.parent
        parts = folder.relative_to(root).parts
        if not any(part.startswith(NO_PAGES) for part in parts):
            found[".".join(parts) or root.name] = folder
    return found
