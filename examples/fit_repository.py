"""Ground a wiki page in a repository of Python code, fit it on both paths, show where room went.

As the module's host does, it makes fact blocks and ranked symbol blocks of the code, and fits them
to a token budget (API path) and to the cap of a `page_context` answer (agent path). The report is
read back from the results. With the built module's folder and the project root on PYTHONPATH:

    python examples/fit_repository.py --repo ~/code/app --page getting-started --budget 4000
"""

import argparse
import ast
import json
import os
import signal
import sys
import textwrap
from collections import Counter, defaultdict, namedtuple
from collections.abc import Callable, Iterator
from pathlib import Path

try:
    import grounding_fit as fit
    from workers.context_builder import estimate_tokens
except ImportError as error:
    print(f"{error}; PYTHONPATH: the built module's folder and the project root", file=sys.stderr)
    sys.exit(2)

SHOWN, QUOTED, WIDTH = 40, 8, 98  # lines of a body, texts of a kind, columns of a bar
SEPARATOR = "\n\n"
PARTS = {"F": ("facts", 32), "B": ("bodies", 71), "L": ("listing", 178), "O": ("other", 97),
         "N": ("note", 167), ".": ("free", 238)}  # of a bar: letter, meaning, terminal colour
Source = namedtuple("Source", "path module is_test lines tree doc refs")  # refs: names it mentions
Row = namedtuple("Row", "part name outcome size whole", defaults=[0])  # whole: its size if kept


def parse(path: str, text: str) -> Source:
    tree, is_test = ast.parse(text), "/test" in f"/{path}"  # a file or folder named test...
    module = path[:-3].replace("/", ".").removesuffix(".__init__")
    lines = text.removesuffix("\n").split("\n") if text else []
    refs = Counter(getattr(node, "id", getattr(node, "attr", "")) for node in ast.walk(tree))
    return Source(path, module, is_test, lines, tree, ast.get_docstring(tree) or "", refs)


def read_repository(root: Path) -> tuple[list[Source], list[tuple], int]:
    """Return the code, the texts as (path, first line, text), and how many files do not read."""
    base = root.parent if (root / "__init__.py").is_file() else root  # paths name the package
    sources, texts, skipped = [], [], 0
    for file in sorted(root.rglob("*.*"), key=lambda file: (len(file.parts), file)):
        path, hidden = file.relative_to(base).as_posix(), "/." in str(file)[len(str(root)):]
        try:
            if file.suffix == ".py" and not hidden:
                sources.append(parse(path, file.read_text("utf-8-sig")))
            elif file.suffix in (".md", ".rst", ".txt") and not hidden:
                texts.append((path, 1, file.read_text("utf-8-sig")))
        except (OSError, SyntaxError, ValueError, RecursionError, MemoryError):
            skipped += 1
    return sources, texts, skipped


def import_table(sources: list[Source]) -> dict[str, dict[str, int]]:
    """Say which files import each module, and on which line first: {module: {path: line}}."""
    table = defaultdict(dict)
    for source in sources:
        for node in ast.walk(source.tree):
            if isinstance(node, (ast.Import, ast.ImportFrom)):
                dots, module = getattr(node, "level", 0), getattr(node, "module", None)
                above = source.path.split("/")[:-dots] if dots else []
                for name in [module] if module else [alias.name for alias in node.names]:
                    table[".".join([*above, name])].setdefault(source.path, node.lineno)
    return table


def list_block(heading: str, entries: list[tuple[str, list]]) -> fit.FactBlock:
    """Make a fact block with a line per entry, standing on the entries' (path, start, end)."""
    text = "\n".join([heading, *(f"- {line}" for line, _ in entries)])
    return fit.FactBlock(text, [fit.seed(*span) for _, spans in entries for span in spans])


def quotes(key: str, texts: list[tuple], room: int) -> Iterator[fit.FactBlock]:
    """Quote the first texts, each (path, first line, text), while there is room for characters."""
    for path, line, text in texts[:QUOTED]:
        if chunk := text[:room].rstrip():
            room -= len(chunk)
            seeds, name = [fit.seed(path, line, line + chunk.count("\n"))], f"the {key} of {path}"
            yield fit.FactBlock(f"## {key.capitalize()}: {path}\n{chunk}", seeds, name, key)


def fact_blocks(sources: list[Source], texts: list[tuple], policy: fit.SectionBudget) -> Iterator:
    """Make the fact blocks in reading order; each has a first line that no other one has."""
    cards, requested = fit._ALWAYS_KEPT
    files = [(f"{path} ({len(lines)} lines): {doc.partition(chr(10))[0]}".rstrip(": "),
              [(path, min(1, len(lines)), len(lines))])  # line 0: an empty file cannot be cited
             for path, _, _, lines, _, doc, _ in sources]
    yield list_block(cards, files)
    yield fit.FactBlock(f"{requested}\nWhat to know before a change to these {len(files)} files.")
    table, modules = import_table(sources), {source.module for source in sources}
    imports = [(name, (f"{name}: {', '.join(users)}", users.items()))
               for name, users in sorted(table.items())]
    yield list_block("## Consumers", [entry for name, entry in imports if name in modules])
    yield list_block("## Dependencies", [entry for name, entry in imports if name not in modules])
    yield list_block("## Tests", [file for file, each in zip(files, sources) if each.is_test])
    told = sorted((-len(table[source.module]), source.path, source.tree.body[0].lineno, source.doc)
                  for source in sources if "\n" in source.doc and not source.is_test)
    readme = [text for text in texts if Path(text[0]).stem.upper() == "README"][:1]
    documents = [text for text in texts if text not in readme]
    yield from quotes(fit.DIGEST, [entry[1:] for entry in told], sys.maxsize)
    yield from quotes(fit.README, readme, policy.readme_chars)
    yield from quotes(fit.DOCUMENT, documents, policy.document_chars)


def definitions(scope: ast.AST, prefix: str) -> Iterator[tuple[str, ast.AST]]:
    """Yield each definition with its qualified name, but for those inside functions."""
    for node in scope.body:
        if isinstance(node, (ast.FunctionDef, ast.AsyncFunctionDef, ast.ClassDef)):
            yield f"{prefix}.{node.name}", node
        if isinstance(node, ast.ClassDef):
            yield from definitions(node, f"{prefix}.{node.name}")


def describe(source: Source, fqn: str, node: ast.AST) -> dict:
    """Make a definition's symbol record, as far as its own file tells."""
    body = source.lines[node.lineno - 1 : node.end_lineno]
    head = type(node)(**{**vars(node), "body": [], "decorator_list": []})  # its first line alone
    arguments = ast.iter_child_nodes(node.args) if hasattr(node, "args") else []
    calls = [call.func for call in ast.walk(node) if isinstance(call, ast.Call)]
    callees = dict.fromkeys(getattr(func, "id", getattr(func, "attr", "")) for func in calls)
    return {
        "fqn": fqn, "kind": "class" if isinstance(node, ast.ClassDef) else "function",
        "file": source.path, "line": node.lineno, "end_line": node.end_lineno,
        "signature": ast.unparse(head).strip().rstrip(":"),
        "parameters": [{"name": each.arg, "type": each.annotation and ast.unparse(each.annotation)}
                       for each in arguments if isinstance(each, ast.arg)],
        "docstring": (ast.get_docstring(node) or "").partition(SEPARATOR)[0],
        "snippet": "\n".join(body[:SHOWN]), "snippet_cut": max(0, len(body) - SHOWN),
        "callees": [*filter(None, callees)], "inside_refs": source.refs[node.name],
    }


def symbol_records(sources: list[Source], most: int) -> list[dict]:
    """Describe what other files mention most by name; of equals, the longer comes first."""
    code, tests = Counter(), Counter()
    for source in sources:
        (tests if source.is_test else code).update(source.refs)
    found = [(code[node.name] - source.refs[node.name], source, fqn, node)
             for source in sources if not source.is_test
             for fqn, node in definitions(source.tree, source.module) if node.name[:2] != "__"]
    found.sort(key=lambda each: (-each[0], each[3].lineno - each[3].end_lineno))
    return [{**describe(source, fqn, node), "fan_in": fan_in, "has_tests": node.name in tests}
            for fan_in, source, fqn, node in found[:max(0, most)]]


def page_answer(name: str, page: str, sources: list[Source], parts: fit.GroundingParts) -> dict:
    """Make the whole `page_context` answer that the cap then cuts."""
    symbols = [symbol for _, symbol in parts.blocks]
    earlier = [f"# {name}", *(source.doc for source in sources if source.doc)]
    texts = [block.text for block in parts.prose] + [code for code, _ in parts.blocks]
    return {"page_id": f"{page}-{name}", "type": page, "title": f"{name}: {page}", "stale": True,
            "prior_markdown": SEPARATOR.join(earlier), "grounding": SEPARATOR.join(texts),
            "symbols": [symbol["fqn"] for symbol in symbols],
            "citation_seeds": parts.seeds + fit.symbol_seeds(symbols), "revision": 7}


def grounding_rows(text: str, parts: fit.GroundingParts, measure: Callable) -> list[Row]:
    """Follow the pieces through a grounding; each counts what it adds to the text before it."""
    def added(start: int, end: int) -> int:
        return measure(text[:end]) - measure(text[:start])

    def after(at: int, piece: str) -> int:  # `at` itself when the piece does not stand there whole
        piece += SEPARATOR
        return at + len(piece) if (text + SEPARATOR).startswith(piece, at) else at

    rows, at, kept, wholes = [], 0, 0, [measure(block) for block, _ in parts.blocks]
    for block in parts.prose:
        start, at = at, after(at, block.text)
        outcome = "kept" if at > start else "left out"
        rows.append(Row("F", block.label(), outcome, added(start, at), measure(block.text)))
    openings = [parts.blocks[0][0], fit._LISTED_HEADING] if parts.blocks else []
    code = next((found for each in openings if (found := text.find(each, at)) >= 0), len(text))
    if code > at:  # before the code stands the head of the first fact block that is not whole
        cut = [row.outcome for row in rows].index("left out")
        rows[cut], at = rows[cut]._replace(outcome="cut", size=added(at, code)), code
    while kept < len(parts.blocks) and (end := after(at, parts.blocks[kept][0])) > at:
        kept, at = kept + 1, end
    shown = kept + text.count("\n", at)  # below its heading, the listing has a line per symbol
    runs = [("B", 0, kept, "kept whole", added(code, at)),
            ("L", kept, shown, "listed", added(at, len(text))),
            ("L", shown, len(wholes), "left out", 0)]
    return rows + [Row(part, f"symbols {first + 1:,}-{last:,}", *told, sum(wholes[first:last]))
                   for part, first, last, *told in runs if first < last]


def answer_rows(given: dict, answer: dict, parts: fit.GroundingParts) -> list[Row]:
    """Say what every character of an answer's JSON text is spent on."""
    size = fit._json_size
    rows = grounding_rows(answer["grounding"], parts, lambda text: size(text) - len('""'))
    for field in ("prior_markdown", "symbols", "citation_seeds"):
        whole, now = given[field], answer[field]
        outcome = "kept" if now == whole else "cut" if now else "left out"
        rows.append(Row("O", field, outcome, size(now), size(whole)))
    if "truncated" in answer:
        rows.append(Row("N", "truncated", "added", size(answer["truncated"])))
    rest = size(answer) - sum(row.size for row in rows)
    return [*rows, Row("O", "all other fields, names and punctuation", "kept", rest)]


def print_path(title: str, unit: str, room: int, rows: list[Row], remark: str) -> None:
    """Print a bar to scale (each part has a cell, the widest takes the rounding) and its rows."""
    plain = os.environ.get("NO_COLOR") or not sys.stdout.isatty()
    ink = {part: part if plain else f"\x1b[48;5;{PARTS[part][1]}m \x1b[0m" for part in PARTS}
    sizes = {part: sum(row.size for row in rows if row.part == part) for part in PARTS}
    total = sum(sizes.values())
    sizes["."] = max(0, room - total)
    scale = WIDTH / max(total, room, 1)
    cells = Counter({part: max(1, round(sizes[part] * scale)) for part in PARTS if sizes[part]})
    cells[max(cells, key=cells.get, default=".")] += WIDTH - sum(cells.values())
    state = f"{sizes['.']:,} free" if total <= room else f"{total - room:,} OVER"
    print(f"\n{title}: {total:,} of {room:,} {unit}, {state}")
    print("".join(ink[part] * count for part, count in cells.items()))
    print("  ".join(f"{ink[part]} {PARTS[part][0]} {sizes[part]:,}" for part in cells))
    for part, name, outcome, size, whole in rows:
        name = name if len(name) <= 54 else f"{name[:51]}..."
        of_whole = f" of {whole:,}" if whole and "kept" not in outcome else ""
        print(f"{ink[part] if size else ' '} {name:<54} {outcome:<10} {size:>9,}{of_whole}")
    print(textwrap.fill(remark, WIDTH, break_on_hyphens=False))


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__.partition("\n")[0])
    option, library = parser.add_argument, Path(os.__file__).parent
    option("--repo", type=Path, default=library / "asyncio", help="folder of Python code")
    option("--page", default="module", metavar="TYPE", help="module, getting-started, ...")
    option("--budget", type=int, default=8000, help="tokens of the page")
    option("--symbols", type=int, default=180, help="most symbol blocks")
    option("--show", choices=("grounding", "answer"), help="print this result alone")
    args = parser.parse_args()
    root, policy = args.repo.resolve(), fit.section_budget(args.page)
    sources, texts, skipped = read_repository(root)
    if not sources:
        parser.error(f"{root}: no Python code that can be read, {skipped} files passed over")
    facts = [each for each in fact_blocks(sources, texts, policy) if "\n" in each.text]  # not bare
    blocks = [(fit.render_symbol(each), each) for each in symbol_records(sources, args.symbols)]
    parts = fit.GroundingParts(facts, blocks, {each.path for each in sources}, budget=policy)
    grounding = fit._assemble_grounding(parts, args.budget)[0]
    given = page_answer(root.name, args.page, sources, parts)
    answer = fit._fit_page_context(given, parts, args.budget)
    if args.show:
        shown = json.dumps(answer, indent=2, ensure_ascii=False)
        return print(grounding if args.show == "grounding" else shown)
    print(f"{root.name[:40]}: {len(sources)} files, {skipped} passed over, {len(blocks):,} symbols")
    print_path("API path", "tokens", args.budget, grounding_rows(grounding, parts, estimate_tokens),
               "A piece counts what it adds to the estimate: its rounding falls to the next piece.")
    note = answer.get("truncated", "no, the answer went back unchanged")
    print_path("Agent path", "characters of JSON", fit._PAGE_CONTEXT_MAX_CHARS,
               answer_rows(given, answer, parts), f"truncated: {note}")


if __name__ == "__main__":
    sys.stdout.reconfigure(encoding="utf-8", errors="backslashreplace")
    signal.signal(signal.SIGPIPE, signal.SIG_DFL)  # a reader such as `head` may leave early
    main()
