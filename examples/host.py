"""Plays the module's host: makes a page's grounding and its answer of a repository."""

import ast
from collections import Counter
from collections.abc import Iterable, Iterator
from dataclasses import dataclass

import grounding_fit as fit
from examples.repository import (
    Definition,
    Repository,
    Source,
    Text,
    definitions,
    import_table,
    is_readme,
)

SHOWN_LINES = 40  # of a body
QUOTED_TEXTS = 12  # of a kind
BLANK_LINE = "\n\n"
Span = tuple[str, int, int]  # path, first and last line


@dataclass(frozen=True)
class Entry:
    """One line of a fact block, and the places in the code that it stands on."""

    line: str
    spans: list[Span]


@dataclass(frozen=True)
class FittedPage:
    """A page before it is fitted, and what each path makes of it."""

    parts: fit.GroundingParts
    given: dict
    grounding: str
    answer: dict


def list_block(heading: str, entries: list[Entry]) -> fit.FactBlock:
    """Make a fact block with a line per entry, which cites the entries' places."""
    text = "\n".join([heading, *(f"- {entry.line}" for entry in entries)])
    return fit.FactBlock(text, [fit.seed(*span) for entry in entries for span in entry.spans])


def file_card(source: Source) -> Entry:
    """Describe a file by its size in lines and the first line of its docstring."""
    last = len(source.lines)
    summary = source.doc.partition("\n")[0]
    first = min(1, last)  # line 0: an empty file cannot be cited
    line = f"{source.path} ({last} lines): {summary}"
    return Entry(line.rstrip(": "), [(source.path, first, last)])


def quote_block(key: str, text: Text, quoted: str) -> fit.FactBlock:
    """Make a fact block of what is quoted from the start of a text."""
    last = text.line + quoted.count("\n")
    heading = f"## {key.capitalize()}: {text.path}"
    seeds = [fit.seed(text.path, text.line, last)]
    return fit.FactBlock(f"{heading}\n{quoted}", seeds, f"the {key} of {text.path}", key)


def quotes(key: str, texts: list[Text], room: int) -> Iterator[fit.FactBlock]:
    """Quote the first texts of a kind while there is room, in code points."""
    for text in texts[:QUOTED_TEXTS]:
        quoted = text.text[:room].rstrip()
        if quoted:
            room -= len(quoted)
            yield quote_block(key, text, quoted)


def import_blocks(sources: list[Source], table: dict) -> Iterator[fit.FactBlock]:
    """Say who uses the repository's modules, and which modules of others it uses."""
    own = {source.module for source in sources}
    entries = {}
    for module, users in sorted(table.items()):
        spans = [(path, line, line) for path, line in users.items()]
        entries[module] = Entry(f"{module}: {', '.join(users)}", spans)
    consumers = [entry for module, entry in entries.items() if module in own]
    dependencies = [entry for module, entry in entries.items() if module not in own]
    yield list_block("## Consumers", consumers)
    yield list_block("## Dependencies", dependencies)


def digest(source: Source) -> fit.FactBlock:
    """Tell a module in short: its docstring, and what it defines for others, with their lines."""
    head = quote_block(
        fit.DIGEST, Text(source.path, source.tree.body[0].lineno, source.doc), source.doc
    )
    defined = [
        Entry(signature(node), [(source.path, node.lineno, node.end_lineno)])
        for node in source.tree.body
        if isinstance(node, Definition) and not node.name.startswith("_")
    ]
    block = list_block(head.text, defined)
    return fit.FactBlock(block.text, head.seeds + block.seeds, head.name, fit.DIGEST)


def digests(sources: list[Source], table: dict) -> list[fit.FactBlock]:
    """Return the digests of the modules that are imported most, of those with a docstring."""
    told = [source for source in sources if source.doc and not source.is_test]
    told.sort(key=lambda source: (-len(table.get(source.module, ())), source.path))
    return [digest(source) for source in told[:QUOTED_TEXTS]]


def fact_blocks(repository: Repository, policy: fit.SectionBudget) -> Iterator[fit.FactBlock]:
    """Make the fact blocks in reading order; each has a first line that no other one has."""
    sources = repository.sources
    cards, requested = fit._ALWAYS_KEPT
    table = import_table(sources)
    yield list_block(cards, [file_card(source) for source in sources])
    request = f"What to know before a change to these {len(sources)} files."
    yield fit.FactBlock(f"{requested}\n{request}")
    yield from import_blocks(sources, table)
    yield list_block("## Tests", [file_card(source) for source in sources if source.is_test])
    readmes = [text for text in repository.texts if is_readme(text.path)]
    documents = [text for text in repository.texts if text not in readmes[:1]]
    yield from digests(sources, table)
    yield from quotes(fit.README, readmes[:1], policy.readme_chars)
    yield from quotes(fit.DOCUMENT, documents, policy.document_chars)


def signature(node: Definition) -> str:
    """Return the first line of a definition as code, without decorators."""
    head = type(node)(**{**vars(node), "body": [], "decorator_list": []})
    return ast.unparse(head).strip().rstrip(":")


def parameters(node: Definition) -> list[dict]:
    """Return the name and, where it is given, the type of each parameter; classes have none."""
    found = ast.iter_child_nodes(node.args) if hasattr(node, "args") else []
    return [
        {"name": each.arg, "type": each.annotation and ast.unparse(each.annotation)}
        for each in found
        if isinstance(each, ast.arg)
    ]


def callees(node: Definition) -> list[str]:
    """Return the last names of what a definition calls, each once."""
    called = [call.func for call in ast.walk(node) if isinstance(call, ast.Call)]
    names = dict.fromkeys(getattr(func, "id", getattr(func, "attr", "")) for func in called)
    return [name for name in names if name]


def describe(source: Source, fqn: str, node: Definition) -> dict:
    """Make a definition's symbol record, as far as its own file tells."""
    body = source.lines[node.lineno - 1 : node.end_lineno]
    return {
        "fqn": fqn,
        "kind": "class" if isinstance(node, ast.ClassDef) else "function",
        "file": source.path,
        "line": node.lineno,
        "end_line": node.end_lineno,
        "signature": signature(node),
        "parameters": parameters(node),
        "docstring": (ast.get_docstring(node) or "").partition(BLANK_LINE)[0],
        "snippet": "\n".join(body[:SHOWN_LINES]),
        "snippet_cut": max(0, len(body) - SHOWN_LINES),
        "callees": callees(node),
        "inside_refs": source.references[node.name],
    }


def count_references(sources: Iterable[Source]) -> Counter:
    """Count how often the sources mention each name."""
    counts = Counter()
    for source in sources:
        counts.update(source.references)
    return counts


def symbol_records(sources: list[Source], most: int) -> list[dict]:
    """Describe what other files mention most by name; of equals, the longer comes first."""
    code = [source for source in sources if not source.is_test]
    in_code = count_references(code)
    in_tests = count_references(source for source in sources if source.is_test)
    found = []
    for source in code:
        for fqn, node in definitions(source.tree, source.module):
            if not node.name.startswith("__"):
                fan_in = in_code[node.name] - source.references[node.name]
                found.append((fan_in, source, fqn, node))
    found.sort(key=lambda each: (-each[0], each[3].lineno - each[3].end_lineno))
    return [
        {**describe(source, fqn, node), "fan_in": fan_in, "has_tests": node.name in in_tests}
        for fan_in, source, fqn, node in found[: max(0, most)]
    ]


def symbol_blocks(symbols: Iterable[dict]) -> list[tuple[str, dict]]:
    """Render each symbol, and give its record along."""
    return [(fit.render_symbol(symbol), symbol) for symbol in symbols]


def always_kept(block: fit.FactBlock, policy: fit.SectionBudget) -> bool:
    """Whether no cap leaves a block out."""
    return block.text.startswith(fit._ALWAYS_KEPT) or block.key in policy.first


def page_parts(repository: Repository, page: str, most_symbols: int) -> fit.GroundingParts:
    """Make the whole grounding of a page of this type."""
    policy = fit.section_budget(page)
    blocks = fact_blocks(repository, policy)
    facts = [block for block in blocks if "\n" in block.text]  # a bare heading tells nothing
    # A block that fits may take the room of an always-kept one that stands after it.
    facts.sort(key=lambda block: not always_kept(block, policy))
    symbols = symbol_records(repository.sources, most_symbols)
    files = {source.path for source in repository.sources}
    return fit.GroundingParts(facts, symbol_blocks(symbols), files, budget=policy)


def page_answer(name: str, page: str, sources: list[Source], parts: fit.GroundingParts) -> dict:
    """Make the whole `page_context` answer that the cap then cuts."""
    symbols = [symbol for _, symbol in parts.blocks]
    earlier = [f"# {name}", *(source.doc for source in sources if source.doc)]
    texts = [block.text for block in parts.prose] + [code for code, _ in parts.blocks]
    return {
        "page_id": f"{page}-{name}",
        "type": page,
        "title": f"{name}: {page}",
        "stale": True,
        "prior_markdown": BLANK_LINE.join(earlier),
        "grounding": BLANK_LINE.join(texts),
        "symbols": [symbol["fqn"] for symbol in symbols],
        "citation_seeds": parts.seeds + fit.symbol_seeds(symbols),
        "revision": 7,
    }


def fit_page(repository: Repository, page: str, budget: int, most_symbols: int) -> FittedPage:
    """Make a page of a repository and fit it on both paths; the budget is in tokens."""
    if not repository.sources:
        passed_over = f"{repository.passed_over} files passed over"
        raise ValueError(f"no Python code that can be read, {passed_over}")
    parts = page_parts(repository, page, most_symbols)
    given = page_answer(repository.name, page, repository.sources, parts)
    grounding = fit._assemble_grounding(parts, budget)[0]
    return FittedPage(parts, given, grounding, fit._fit_page_context(given, parts, budget))
