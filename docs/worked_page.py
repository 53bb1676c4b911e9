"""Makes the numbers and the picture of the page that `docs/fitting.md` works through.

The page is made up, so that it is the same everywhere; the stand-ins of this repository are its
host. Between the lines `<!-- worked: NAME -->` and `<!-- end -->` the document holds what this
program writes. With the built module's folder and the project root on PYTHONPATH:

    python docs/worked_page.py            # writes the numbers and the picture
    python docs/worked_page.py --check    # fails when either is out of date
"""

import argparse
import itertools
import json
import math
import re
import sys
import textwrap
from dataclasses import dataclass
from pathlib import Path

import grounding_fit as fit
from worked_picture import picture

DOCUMENT = Path(__file__).with_name("fitting.md")
PICTURE = DOCUMENT.with_name("worked_page.svg")
CAP = fit._PAGE_CONTEXT_MAX_CHARS
POLICY = fit.section_budget("getting-started")
BUDGET = 12_000  # tokens of the page that is worked through
SMALL_BUDGET = 4_000  # of the page whose report is shown
MODULES = ("quay", "berth", "cargo", "crane", "tide", "pilot", "ledger", "manifest")
VERBS = "load moor check plan weigh clear route stow list call tie log".split()
SENTENCES = (
    "Ferry plans which ship lies at which quay, and when.",
    "A plan is made for one tide and never changed: a new tide gets a new plan.",
    "Every crane takes one cargo at a time, so the order of the cargo is the plan.",
    "What does not fit today waits in the ledger and comes first tomorrow.",
)


@dataclass(frozen=True)
class Run:
    """The worked page at one budget: its parts, the answer given, and what each path made."""

    budget: int
    parts: fit.GroundingParts
    given: dict
    grounding: tuple
    tokens: dict  # the report of the API path
    answer: dict
    characters: dict  # the report of the agent path


def prose(length: int) -> str:
    """Return so many code points of text about nothing in particular, in lines of at most 90."""
    words = itertools.cycle(" ".join(SENTENCES).split())
    text = " ".join(itertools.islice(words, length // 3))
    return textwrap.fill(text, 90)[:length].rstrip()


def list_block(heading: str, lines: int, about: str) -> fit.FactBlock:
    """Return a fact block of that many lines, each with a seed of its own."""
    paths = [f"ferry/{MODULES[i % len(MODULES)]}.py" for i in range(lines)]
    text = "\n".join([heading, *(f"- {path}: {about}" for path in paths)])
    return fit.FactBlock(text, [fit.seed(path, 12 * i + 1) for i, path in enumerate(paths)])


def digest(page: str) -> fit.FactBlock:
    """Return the digest of another page."""
    text = f"## Digest: {page}\n{prose(2400)}"
    return fit.FactBlock(
        text, [fit.seed(f"ferry/{page}.py", 1, 90)], f"the {page} digest", "digest"
    )


def symbol(i: int) -> dict:
    """Return the record of the symbol at that rank."""
    module = MODULES[i % len(MODULES)]
    name = f"{VERBS[i // len(MODULES) % len(VERBS)]}_{module}"
    step = "    plan = plan.then(crane.take(cargo, at=tide.turn()))"
    body = "\n".join([f"def {name}(plan, tide):", *[step] * (8 + 5 * i % 7), "    return plan"])
    return {
        "fqn": f"ferry.{module}.{name}",
        "kind": "function",
        "file": f"ferry/{module}.py",
        "line": 20 * i + 5,
        "end_line": 20 * i + 5 + body.count("\n"),
        "signature": f"def {name}(plan, tide)",
        "snippet": body,
        "callees": ["crane.take", "tide.turn"],
    }


def make_parts(call_sites: int, policy: fit.SectionBudget) -> fit.GroundingParts:
    """Return the grounding of the page; one of its fact blocks has that many call sites."""
    symbols = [symbol(i) for i in range(90)]
    sites = list_block("## Call sites", 160, "a plan is made")
    facts = [
        list_block("## File cards", len(MODULES), "a part of the plan of a day"),
        fit.FactBlock(
            f"## README\n{prose(6000)}", [fit.seed("README.md", 1, 80)], "the README", "readme"
        ),
        list_block("## Consumers", 40, "asks for the plan of a day"),
        *map(digest, ("quay", "cargo", "tide")),
        fit.FactBlock(sites.text, sites.seeds[:call_sites]),
        list_block("## Tests", 10, "holds a plan against the tide"),
    ]
    blocks = [(fit.render_symbol(each), each) for each in symbols]
    return fit.GroundingParts(facts, blocks, {seed["path"] for seed in sites.seeds}, budget=policy)


def run(
    budget: int,
    call_sites: int = 160,
    policy: fit.SectionBudget = POLICY,
) -> Run:
    """Fit the page on both paths."""
    parts = make_parts(call_sites, policy)
    symbols = [record for _, record in parts.blocks]
    texts = [block.text for block in parts.prose] + [text for text, _ in parts.blocks]
    given = {
        "page_id": "getting-started-ferry",
        "title": "Ferry: getting started",
        "prior_markdown": "# Ferry\n" + prose(5000),
        "grounding": "\n\n".join(texts),
        "symbols": [each["fqn"] for each in symbols],
        "citation_seeds": parts.seeds + fit.symbol_seeds(symbols),
    }
    made = fit.explain_grounding(parts, budget)
    return Run(budget, parts, given, *made, *fit.explain_page_context(given, parts, budget))


# ---- the numbers, section by section -------------------------------------------------------------


def table(titles: list[str], rows: list[list]) -> str:
    """Return a table in Markdown, its numbers to the right and with commas."""
    numbers = [all(isinstance(row[i], int) for row in rows) for i in range(len(titles))]
    ruler = ["--:" if is_number else ":--" for is_number in numbers]
    shown = [[f"{cell:,}" if isinstance(cell, int) else cell for cell in row] for row in rows]
    return "\n".join(f"| {' | '.join(row)} |" for row in [titles, ruler, *shown])


def steps(rows: list[tuple[str, int, str]]) -> str:
    """Return named numbers with a word on each, a line each."""
    width = max(len(name) for name, _, _ in rows)
    lines = [f"{name:<{width}} {value:>8,}   {told}".rstrip() for name, value, told in rows]
    return "\n".join(["```text", *lines, "```"])


def label(block: fit.FactBlock) -> str:
    """Return the name of a block, short enough for a table."""
    return block.label().removeprefix("the ").removesuffix(" block").strip("'")


def page_section(page: Run) -> str:
    """Show what the page is made of."""
    rows = [
        [
            label(block),
            block.key or "none",
            len(block.text),
            fact["text"],
            len(block.seeds),
            fact["seeds"],
        ]
        for block, fact in zip(page.parts.prose, page.characters["facts"], strict=True)
    ]
    titles = ["fact block", "key", "code points", "text as JSON", "seeds", "seeds as JSON"]
    sizes = [len(text) for text, _ in page.parts.blocks]
    told = (
        f"Beside them it has {len(sizes)} symbol blocks of {min(sizes):,} to {max(sizes):,} code "
        f"points each, and an old text of {len(page.given['prior_markdown']):,} code points. "
        f"The answer that the host gives takes {page.characters['given']:,} JSON characters."
    )
    return f"{table(titles, rows)}\n\n{textwrap.fill(told, 100)}"


def tokens_section(page: Run) -> str:
    """Show the API path."""
    report = page.tokens
    facts = report["facts"]
    symbols = report["symbols"]
    left = report["budget"] - facts["whole"]
    return steps(
        [
            ("budget", report["budget"], ""),
            ("whole", facts["whole"], "all fact texts together, before any cut"),
            ("floor", report["floor"], f"{fit._SYM_BUDGET_FLOOR} of the budget"),
            ("left", left, f"{report['budget']:,} less {facts['whole']:,}"),
            ("share", report["share"], "of the code: the larger of the two"),
            ("used", report["used"], f"by the first {symbols['bodies']} bodies, one by one"),
            ("short_by", symbols.get("short_by_tokens", 0), "for one body more"),
            ("listed", symbols["listed"], f"lines; {symbols['not_shown']} symbols are not shown"),
            ("code", report["code"], "bodies and listing joined"),
            ("room", facts["room"], f"for the facts: {report['budget']:,} less {report['code']:,}"),
            ("kept", facts["kept"], f"of the {facts['whole']:,} tokens of facts"),
            ("size", report["size"], "of the whole text"),
            ("over", report["over"], "by which it passes the budget"),
        ]
    )


def room_section(page: Run) -> str:
    """Show the room of the answer, and what is kept for code."""
    report = page.characters
    within = report["symbols"]["within_tokens"]
    share = f"{page.parts.code_floor} of the room, cut to an integer"
    return steps(
        [
            (
                "base",
                report["base"],
                "always-kept facts, 30 listed lines, the placeholder, no body",
            ),
            ("room", report["room"], f"{CAP:,} less {report['base']:,}"),
            ("floor", report["floor"], share),
            ("all_bodies", report["all_bodies"], f"what {within} bodies would add to the base"),
            ("reserve", report["reserve"], "the smaller of the two"),
        ]
    )


def reason(fact: dict, tried: int, reserve: int) -> str:
    """Return the arithmetic of a verdict; `tried` is the answer with the block and no body."""
    if fact["verdict"] in ("always kept", "kept first"):
        return "part of the base"
    if fact["verdict"] == "over its share":
        cost = fact["text"] + fact["seeds"]
        return f"{fact['share_used']:,} + {cost:,} is above {fact['share']:,.2f}"
    sign = "≤" if fact["kept"] else ">"
    return f"{tried:,} + {reserve:,} = {tried + reserve:,} {sign} {CAP:,}"


def added(fact: dict) -> int:
    """Return the JSON characters that a block adds to an answer: a blank line before its text."""
    return fact["text"] - 2 + 4 + fact["citable_seeds"]


def facts_section(page: Run) -> str:
    """Show the choice of the fact blocks, one by one."""
    report = page.characters
    rows = []
    so_far = report["base"]
    for block, fact in zip(page.parts.prose, report["facts"], strict=True):
        tried = so_far + added(fact)
        if fact["verdict"] == "over the cap":
            assert tried + report["reserve"] - CAP == fact["short_by"]
        if fact["verdict"] == "fits":
            so_far = tried
        why = reason(fact, tried, report["reserve"])
        rows.append([label(block), fact["verdict"], why, fact["short_by"]])
    return table(["fact block", "verdict", "why", "short by"], rows)


def bodies_section(page: Run) -> str:
    """Show the search for the number of bodies."""
    symbols = page.characters["symbols"]
    tried = []

    def fits(bodies: int) -> bool:
        is_fit = bodies <= symbols["bodies"]
        tried.append(f"{bodies} {'fit' if is_fit else 'do not'}")
        return is_fit

    fit._most(symbols["within_tokens"], fits)
    told = (
        f"Of {symbols['within_tokens']} bodies that the tokens allow: {', '.join(tried)}. With "
        f"{symbols['bodies'] + 1} the answer would be {symbols['short_by_characters']:,} JSON "
        f"characters over the cap."
    )
    return textwrap.fill(told, 100)


def note_section(page: Run) -> str:
    """Show the note and the size of the answer."""
    report = page.characters
    note = report["note"]
    assert not note["bodies_taken_off"] + note["lines_taken_off"]
    told = (
        f"It takes {note['size']:,} JSON characters of the {len(fit._NOTE_PLACEHOLDER)} that were "
        f"held for it, so nothing comes off. The answer takes {report['size']:,}."
    )
    text = textwrap.fill(page.answer["truncated"], 98, break_long_words=False)
    return f"```text\n{text}\n```\n\n{textwrap.fill(told, 100)}"


def report_section(page: Run) -> str:
    """Show a report as JSON, a fact block on two lines."""
    lines = []
    for key, value in page.characters.items():
        text = json.dumps(value)
        if key == "facts":
            facts = [json.dumps(fact).replace(', "text"', ',\n     "text"') for fact in value]
            text = "[\n    " + ",\n    ".join(facts) + "]"
        if key == "symbols":
            text = text.replace(', "stopped_by"', ',\n   "stopped_by"')
        lines.append(f'  "{key}": {text}')
    return "```json\n{\n" + ",\n".join(lines) + "\n}\n```"


def verdict_of(page: Run, name: str) -> dict:
    """Return what became of the fact block of that name."""
    return next(fact for fact in page.characters["facts"] if name in fact["label"])


def changes_section(page: Run) -> str:
    """Make the three usual changes to the page of the report, and show what they do."""
    refused = verdict_of(page, "Call sites")
    fewer = fit._most(160, lambda seeds: verdict_of(run(page.budget, seeds), "Call sites")["kept"])
    over = verdict_of(page, "tide digest")
    least = (over["share_used"] + over["text"] + over["seeds"]) / page.characters["room"]
    share = math.ceil(100 * least) / 100
    wider = fit.SectionBudget(28_000, ("readme",), {"digest": share})
    short = page.characters["symbols"]["short_by_tokens"]
    more = page.budget + math.ceil(short / fit._SYM_BUDGET_FLOOR)
    with_fewer = verdict_of(run(page.budget, fewer), "Call sites")
    with_share = verdict_of(run(page.budget, policy=wider), "tide digest")
    bodies = [one.characters["symbols"]["bodies"] for one in (page, run(more))]
    rows = [
        ["Call sites", f"{fewer} seeds instead of 160", refused["verdict"], with_fewer["verdict"]],
        [
            "tide digest",
            f"a share of {share} instead of 0.25",
            over["verdict"],
            with_share["verdict"],
        ],
        ["bodies", f"{more:,} tokens instead of {page.budget:,}", *map(str, bodies)],
    ]
    return table(["of what", "the change", "before", "after"], rows)


def sections() -> tuple[dict[str, str], str]:
    """Return what stands between the marks of the document by name, and the picture."""
    page = run(BUDGET)
    small = run(SMALL_BUDGET)
    made = {
        "page": page_section(page),
        "tokens": tokens_section(page),
        "room": room_section(page),
        "facts": facts_section(page),
        "bodies": bodies_section(page),
        "note": note_section(page),
        "report": report_section(small),
        "changes": changes_section(small),
    }
    return made, picture(page, [label(block) for block in page.parts.prose], added)


def filled(document: Path, made: dict[str, str]) -> str:
    """Return a document with its marked parts replaced; each of them must be there once."""
    marked = re.compile(r"(<!-- worked: (\w+) -->\n).*?(?=<!-- end -->)", re.DOTALL)
    text = document.read_text(encoding="utf-8")
    names = [match[2] for match in marked.finditer(text)]
    if sorted(names) != sorted(made):
        raise SystemExit(f"{document.name} marks {sorted(names)}, and there are {sorted(made)}")
    return marked.sub(lambda match: f"{match[1]}\n{made[match[2]]}\n\n", text)


def main() -> None:
    """Write the document and the picture, or tell whether they are up to date."""
    parser = argparse.ArgumentParser(description=__doc__.partition("\n")[0])
    parser.add_argument("--check", action="store_true", help="write nothing; fail when out of date")
    check = parser.parse_args().check
    made, drawn = sections()
    document = filled(DOCUMENT, made)
    stale = []
    for path, text in ((DOCUMENT, document), (PICTURE, drawn)):
        if path.exists() and path.read_text(encoding="utf-8") == text:
            continue
        stale.append(path.name)
        if not check:
            path.write_text(text, encoding="utf-8")
    if check and stale:
        sys.exit(f"out of date: {', '.join(stale)}; ./dev docs makes them anew")
    print(f"{'written' if stale else 'up to date'}: {', '.join(stale) or 'everything'}")


if __name__ == "__main__":
    main()
