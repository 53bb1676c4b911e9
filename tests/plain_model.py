"""The rules of `grounding_fit` in plain Python: what the extension module is checked against."""

import fractions
import json
import math

from workers.context_builder import _truncate_to_tokens, estimate_tokens
from workers.wiki.repo_facts import FILE_CARDS_HEADING, _norm
from workers.wiki_types import REQUESTED_CONTEXT_HEADING

_SYM_BUDGET_FLOOR = 0.35
_ALWAYS_KEPT = (FILE_CARDS_HEADING, REQUESTED_CONTEXT_HEADING)
_SKELETON_LINES = 12
_LISTED_CHARS = 80
_LISTED_HEADING = "## More declarations (lines and signature only; ask for a body with query=)"
_LISTED_MAX = 30
_PAGE_CONTEXT_MAX_CHARS = 40000
_NOTE_ITEMS = 6
_FITTED_FIELDS = ("grounding", "symbols", "citation_seeds")
_NOTE_PLACEHOLDER = "x" * 600

ASK = (
    ' Ask for code with query="<file path or symbol>, ..."; '
    'read another page with wiki(action="read", page_id=...).'
)
CLOSING = " The file cards and the other fields alone exceed it."


def at_most(rule, value, limit):
    """Return whether a value keeps within a limit: all comparisons of the rules go through here, so
    that a test can see how near to its edge a page has come."""
    return value <= limit


told = {}  # the numbers of the last call's decisions, of which reports are made


# ---- values -------------------------------------------------------------------------------------


def expect(value, *kinds):
    """Return the value when it is of one of the kinds; any other type is wrong."""
    if isinstance(value, kinds):
        return value
    raise TypeError(f"expected {kinds[0].__name__}, not {type(value).__name__}")


def count64(value):
    """Return a count, a budget or a size: an integer of at most 64 bits."""
    if -(2**63) <= expect(value, int) < 2**63:
        return int(value)
    raise OverflowError("beyond 64 bits")


def double(value):
    """Return a number as a double; an integer too large for one is infinite."""
    try:
        return float(expect(value, float, int))
    except OverflowError:
        return math.inf if value > 0 else -math.inf


def missing(value):
    """Tell whether a value is as good as none at all, as every empty and every zero one is."""
    if value is None:
        return True
    return isinstance(value, (str, int, float, list, tuple, dict)) and not value


def text_form(value):
    """Return a JSON value the way it is written into a text."""
    if isinstance(value, str):
        return str.__str__(value)
    if value is None or isinstance(value, (bool, list, tuple, dict)):
        return str(value)
    return int.__repr__(value) if isinstance(value, int) else float.__repr__(value)


def line_number(value):
    """Return a line number as an integer: 0 when it is missing, a fraction cut off."""
    if missing(value):
        return 0
    if isinstance(value, (int, str)) or (isinstance(value, float) and math.isfinite(value)):
        return int(value)
    raise ValueError(f"no line number: {type(value).__name__}")


def joined(pieces):
    """Return the pieces of a grounding as one text, a blank line between each two."""
    return "\n\n".join(pieces)


# ---- a page's grounding -------------------------------------------------------------------------


def label(block):
    """Return what a note calls a fact block: its own name, or the bare title of its heading."""
    heading = block.text.split("\n", 1)[0].lstrip("# ").split(" (", 1)[0]
    return block.name or f"the '{heading}' block"


def part_seeds(parts):
    """Return what a page may cite of its fact blocks."""
    return citable(one for block in parts.prose for one in block.seeds)


def fact_texts(prose):
    """Return the texts of the fact blocks that have one."""
    return [block.text for block in prose if block.text]


def pairs(parts):
    """Return the symbol blocks, best first: each a rendered text and its symbol record."""
    for pair in parts.blocks:  # all of them, whatever is read of them later
        if len(expect(pair, tuple, list)) != 2 or not isinstance(pair[0], str):
            raise TypeError("a symbol block is a pair of a text and a symbol record")
    return parts.blocks


def seed(path, start, end=0):
    """Return a citation seed that never ends before it starts."""
    last = start if at_most("end of a seed", expect(end, int), expect(start, int)) else end
    return {"path": expect(path, str), "line_start": start, "line_end": last}


def citable(seeds):
    """Return the seeds that start at a line that a file can have."""
    starts = ((one, line_number(expect(one, dict).get("line_start"))) for one in seeds)
    return [one for one, start in starts if not at_most("start of a seed", start, 0)]


def symbol_seeds(symbols):
    """Return what can be cited of symbols: the lines of each whose file is known."""
    seeds = []
    for sym in symbols:
        if not missing(expect(sym, dict).get("file")):
            path = expect(_norm(text_form(sym["file"])), str)
            seeds.append(seed(path, *(line_number(sym.get(key)) for key in ("line", "end_line"))))
    return citable(seeds)


def symbol_names(symbols):
    """Return the qualified names of the symbols that have one."""
    return [text_form(sym["fqn"]) for sym in symbols if not missing(expect(sym, dict).get("fqn"))]


# ---- symbols as text ----------------------------------------------------------------------------


def having(entries, key):
    """Yield the entries with a value under the key, which must be a string."""
    for one in expect(entries, list, tuple):
        if not missing(expect(one, dict).get(key)) and expect(one[key], str):
            yield one


def parameter(one):
    """Return a parameter as it stands in a symbol block."""
    return one["name"] + ("" if missing(one.get("type")) else ": " + text_form(one["type"]))


def skeleton(digest):
    """Return a logic skeleton in its fence, the lines beyond the most that are shown counted."""
    lines = digest.split("\n")
    shown = lines[:_SKELETON_LINES]
    if not at_most("skeleton", len(lines), _SKELETON_LINES):
        shown.append(f"... ({len(lines) - _SKELETON_LINES} more)")
    return "\n".join(["logic skeleton:", "```", *shown, "```"])


def render_symbol(sym):
    """Return the symbol block: a head line, then what is known of the symbol, line by line."""
    file = _norm(text_form(expect(sym, dict).get("file", "")))
    head = f"### {text_form(sym.get('fqn', ''))} ({text_form(sym.get('kind', ''))})"
    lines = [f"{head} — {text_form(file)}:L{text_form(sym.get('line', 0))}"]
    there = {key: value for key, value in sym.items() if not missing(value)}

    def add(key, before, after=""):
        if key in there:
            lines.append(before + text_form(there[key]) + after)

    add("signature", "signature: ")
    if parameters := [parameter(one) for one in having(there.get("parameters", []), "name")]:
        lines.append("params: " + ", ".join(parameters))
    add("docstring", "doc: ")
    add("fan_in", "fan-in: ", " references from production code outside this page")
    add("inside_refs", "inside this page: ", " references from its own files")
    add("neighbour_refs", "outside this page: its files reference it ", " times")
    add("snippet", "```\n", "\n```")
    if {"snippet", "snippet_cut"} <= there.keys():
        add("snippet_cut", "body cut: ", f" more lines, to L{text_form(sym.get('end_line', 0))}")
    if "snippet" not in there and "body_digest" in there:
        lines.append(skeleton(text_form(there["body_digest"])))
    if "callees" in there:
        lines.append("calls (static): " + ", ".join(expect(there["callees"], list, tuple)))
    add("usage_example", "usage: ")
    if related := [one["fqn"] for one in having(there.get("related", []), "fqn")]:
        lines.append("related: " + ", ".join(related))
    if "has_tests" in there:
        lines.append("has_tests: yes")
    return "\n".join(lines)


def _listed(sym):
    """Return the one line that lists a symbol: its name, kind, lines and signature."""
    line = line_number(expect(sym, dict).get("line"))
    end = line_number(sym.get("end_line"))
    span = f"L{line}" if at_most("end of a listed symbol", end, line) else f"L{line}-L{end}"
    what = next((sym[key] for key in ("signature", "docstring") if not missing(sym.get(key))), "")
    what = text_form(what).strip().split("\n", 1)[0]
    if not at_most("listed signature", len(what), _LISTED_CHARS):
        what = what[: _LISTED_CHARS - 3] + "..."
    head = f"- `{text_form(sym.get('fqn', ''))}` ({text_form(sym.get('kind', ''))})"
    head += f" — {text_form(_norm(text_form(sym.get('file', ''))))}:{span}"
    return f"{head}: {what}" if what else head


def _listing(symbols):
    """Return the heading and a line for each symbol; nothing when there are no symbols."""
    lines = [] if symbols is None else [_listed(sym) for sym in symbols]
    return "\n".join([_LISTED_HEADING, *lines]) if lines else ""


def window(left):
    """Return how many symbols are listed of those that are left without their body."""
    return left if at_most("listed symbols", left, _LISTED_MAX) else _LISTED_MAX


# ---- the API path, in tokens --------------------------------------------------------------------


def _assemble_blocks(blocks, budget):
    """Return the leading blocks that a budget in tokens holds; the top one whatever it takes."""
    expect(budget, int)
    kept = []
    used = 0
    for block in blocks:
        cost = count64(estimate_tokens(expect(block, str)))
        if kept and not at_most("tokens of bodies", used + cost, budget):
            told["short_by_tokens"] = used + cost - budget
            break
        kept.append(block)
        used += cost
    told["used"] = used
    return kept


def _blocks_within(parts, budget):
    """Return how many bodies a page may show: what the code's share of its tokens holds."""
    floor = int(expect(budget, int) * _SYM_BUDGET_FLOOR)
    whole = count64(estimate_tokens(joined(fact_texts(parts.prose))))
    left = budget - whole
    code = left if at_most("code's share of the tokens", floor, left) else floor
    told.update(floor=floor, share=code, whole=whole)
    return len(_assemble_blocks([text for text, _ in pairs(parts)], code))


def _assemble_grounding(parts, budget):
    """Fit a grounding to its token budget: whole code first, the facts cut to the rest."""
    count = _blocks_within(parts, budget)
    told["bodies"] = count
    symbols = [sym for _, sym in pairs(parts)]
    code = [text for text, _ in parts.blocks[:count]]
    if listing := _listing(symbols[count : count + window(len(symbols) - count)]):
        code.append(listing)
    tokens = count64(estimate_tokens(joined(code)))
    rest = 0 if at_most("tokens left for facts", budget, tokens) else budget - tokens
    facts = expect(_truncate_to_tokens(joined(fact_texts(parts.prose)), rest), str)
    told.update(code=tokens, room=rest, cut_facts=facts)
    grounding = joined(piece for piece in [facts, *code] if piece)
    seeds = symbol_seeds(symbols)
    files = {expect(path, str) for path in parts.files} | {one["path"] for one in seeds}
    return grounding, symbol_names(symbols), sorted(files), part_seeds(parts) + seeds


# ---- the agent path, in JSON characters ---------------------------------------------------------


def _json_size(value):
    """Return the characters of a value's JSON text."""
    return len(json.dumps(value, ensure_ascii=False))


def _cap_note(left_out, ask=False):
    """Return what a cut answer says of its cuts: some by name, and how many more there are."""
    named = [expect(item, str) for item in expect(left_out, list, tuple)]
    if not at_most("items of a note", len(named), _NOTE_ITEMS):
        named[_NOTE_ITEMS:] = [f"{len(named) - _NOTE_ITEMS} more blocks"]
    what = "; ".join(named) or "nothing that can be left out"
    note = f"answer capped at {_PAGE_CONTEXT_MAX_CHARS} characters; left out: {what}."
    return note + ASK if ask else note


def _code_cut(kept, listed, total):
    """Return the note's item on code: nothing when every symbol block has its body."""
    cut = expect(total, int) - expect(kept, int)
    unlisted = cut - expect(listed, int)
    if at_most("bodies cut", cut, 0):
        return []
    of_them = f"{listed:d} of them listed by lines and signature, {unlisted} not at all"
    return [f"the bodies of {cut} of {total:d} symbol blocks (the lowest ranked; {of_them})"]


def _most(high, fits):
    """Return the largest count up to `high` that fits; each test halves what is left."""
    low, high = 0, expect(high, int)
    while low < high:
        mid = (low + high + 1) // 2
        if fits(mid):
            low = mid
        else:
            high = mid - 1
    return low


def _fit_prose(parts, size, total):
    """Return the fact blocks that stay in a cut answer, and what a note calls the others."""
    first = {expect(key, str) for key in expect(parts.budget.first, tuple, list)}

    def always_kept(block):
        return block.text.startswith(_ALWAYS_KEPT) or (block.key != "" and block.key in first)

    always = [block for block in parts.prose if always_kept(block)]
    base = count64(size(list(always), 0))
    full = at_most("room", _PAGE_CONTEXT_MAX_CHARS, base)
    room = 0 if full else _PAGE_CONTEXT_MAX_CHARS - base
    floor = double(room) * double(parts.code_floor)
    if not math.isfinite(floor):
        raise ValueError("code_floor gives no finite share of the room")
    needed = count64(size(list(always), total)) - base
    reserve = int(floor) if at_most("room kept for code", int(floor), needed) else needed
    told.update(base=base, room=room, floor=int(floor), all_bodies=needed, reserve=reserve)
    told["facts"] = []
    prose = []
    dropped = []
    used = {}

    def limit_of(key):
        shares = parts.budget.shares
        return double(shares[key]) * double(room) if key in shares else None

    for block in parts.prose:
        cost = _json_size(block.text), _json_size(block.seeds)
        limit = limit_of(block.key)
        before = used.get(block.key, 0)
        taken = before + sum(cost)
        verdict = "fits"
        short_by = 0
        if always_kept(block):
            pinned = block.text.startswith(_ALWAYS_KEPT)
            verdict = "always kept" if pinned else "kept first"
        elif limit is not None and not at_most("share", taken, limit):
            verdict = "over its share"
            short_by = missing_of(taken, limit)
        else:
            size_with = count64(size([*prose, block], 0))
            if not at_most("fact block", size_with + reserve, _PAGE_CONTEXT_MAX_CHARS):
                verdict = "over the cap"
                short_by = size_with + reserve - _PAGE_CONTEXT_MAX_CHARS
        kept = not verdict.startswith("over")
        share = None if limit is None else (limit, before)
        told["facts"].append((block, verdict, kept, cost, share, short_by))
        if kept:
            prose.append(block)
            used[block.key] = taken
        else:
            dropped.append(label(block))
    return prose, dropped


def missing_of(taken, limit):
    """Return by how much a limit is too small, rounded up; nothing where no double tells it."""
    if not math.isfinite(limit):
        return None
    short = math.ceil(fractions.Fraction(taken) - fractions.Fraction(limit))
    return short if short <= 2**53 else None


def prior_item(prior, page_id):
    """Return what a note says of a page's markdown that its answer no longer holds."""
    return (
        f"prior_markdown ({len(expect(prior, str))} characters; read the page with "
        f'wiki(action="read", page_id="{text_form(page_id)}") before you edit it)'
    )


def _fit_page_context(result, parts, budget):
    """Return a page's answer within its JSON characters: as it is, without its old markdown, or
    made anew of whole blocks."""

    def fits(rule, answer):
        return at_most(rule, _json_size(answer), _PAGE_CONTEXT_MAX_CHARS)

    told["given"] = _json_size(expect(result, dict))
    if at_most("given answer", told["given"], _PAGE_CONTEXT_MAX_CHARS):
        return result
    fixed = {key: value for key, value in result.items() if key not in _FITTED_FIELDS}
    left_out = []
    prior = result.get("prior_markdown")
    if not missing(prior):
        left_out = [prior_item(prior, result["page_id"])]
        whole = {**result, "prior_markdown": None, "truncated": _cap_note(left_out)}
        if fits("answer without its prior markdown", whole):
            return whole
        fixed["prior_markdown"] = None
    symbols = [sym for _, sym in pairs(parts)]
    total = _blocks_within(parts, budget)

    def build(prose, count, listed, note):
        shown = symbols[: count + listed]
        texts = fact_texts(prose) + [text for text, _ in parts.blocks[:count]]
        if listing := _listing(shown[count:]):
            texts.append(listing)
        seeds = citable(one for block in prose for one in block.seeds)
        return {
            **fixed,
            "grounding": joined(texts),
            "symbols": symbol_names(shown),
            "citation_seeds": seeds + symbol_seeds(symbols[:count]),
            "truncated": note,
        }

    def candidate(prose, count, listed=None):
        listed = window(len(symbols) - count) if listed is None else listed
        return build(prose, count, listed, _NOTE_PLACEHOLDER)

    prose, dropped = _fit_prose(parts, lambda *args: _json_size(candidate(*args)), total)
    count = _most(total, lambda n: fits("bodies", candidate(prose, n)))
    told.update(total=len(symbols), within_tokens=total, stopped_by="nothing")
    if count < total:
        told.update(stopped_by="cap", refused=_json_size(candidate(prose, count + 1)))
    elif count < len(symbols):
        told["stopped_by"] = "tokens"
    listed = window(len(symbols) - count)
    if count == 0:
        listed = _most(listed, lambda n: fits("listed lines", candidate(prose, 0, n)))
    taken_off = [0, 0]  # bodies, lines
    while True:
        note = _cap_note(left_out + _code_cut(count, listed, len(symbols)) + dropped, ask=True)
        fitted = build(prose, count, listed, note)
        told.update(bodies=count, listed=listed, taken_off=taken_off)
        if fits("answer with its note", fitted):
            return fitted
        if at_most("symbols to take off", count + listed, 0):
            return {**fitted, "truncated": note + CLOSING}
        if at_most("bodies to take off", count, 0):
            listed -= 1
            taken_off[1] += 1
        else:
            told.update(stopped_by="note", refused=_json_size(fitted))
            count -= 1
            listed = window(len(symbols) - count)
            taken_off[0] += 1


# ---- what both paths tell of their decisions ----------------------------------------------------


def symbols_report(total, within_tokens, bodies, listed, stopped_by):
    """Return how many symbols are shown, and what kept the next body out."""
    report = {"total": total, "within_tokens": within_tokens, "bodies": bodies, "listed": listed}
    report |= {"not_shown": total - bodies - listed, "stopped_by": stopped_by}
    if stopped_by == "tokens":
        report["short_by_tokens"] = told["short_by_tokens"]
    elif stopped_by != "nothing":
        report["short_by_characters"] = told["refused"] - _PAGE_CONTEXT_MAX_CHARS
    return report


def fact_report(cited, block, verdict, kept, cost, share, short_by):
    """Return what became of one fact block, given what is cited of those before it."""
    try:
        added = _json_size(cited + citable(block.seeds)) - _json_size(cited)
    except (TypeError, ValueError):
        added = None  # of a block over its share, whose seeds nobody had to read
    report = {"label": label(block), "key": block.key, "verdict": verdict, "kept": kept}
    report |= {"text": cost[0], "seeds": cost[1], "citable_seeds": added}
    if share:
        limit = share[0] if math.isfinite(share[0]) else None
        report |= {"share": limit, "share_used": share[1]}
    return report | {"short_by": short_by}


def explain_page_context(result, parts, budget):
    """Return the answer of `_fit_page_context`, and why it is as it is."""
    told.clear()
    answer = _fit_page_context(result, parts, budget)
    size = _json_size(answer)
    report = {"outcome": "fits", "cap": _PAGE_CONTEXT_MAX_CHARS, "given": told["given"]}
    report["size"] = size
    if answer is result:
        return answer, report
    note = {"size": _json_size(answer["truncated"]) - 2, "bodies_taken_off": 0}
    note["lines_taken_off"] = 0
    report["outcome"] = "fits without prior_markdown"
    if "bodies" in told:
        report["outcome"] = "rebuilt" if size <= _PAGE_CONTEXT_MAX_CHARS else "over the cap"
        for key in ("base", "room", "floor", "all_bodies", "reserve"):
            report[key] = told[key]
        report["facts"] = []
        cited = []
        for block, verdict, kept, *rest in told["facts"]:
            report["facts"].append(fact_report(cited, block, verdict, kept, *rest))
            cited += citable(block.seeds) if kept else []
        keys = ("total", "within_tokens", "bodies", "listed", "stopped_by")
        report["symbols"] = symbols_report(*(told[key] for key in keys))
        note["bodies_taken_off"], note["lines_taken_off"] = told["taken_off"]
    return answer, report | {"note": note}


def explain_grounding(parts, budget):
    """Return the tuple of `_assemble_grounding`, and why it is as it is."""
    told.clear()
    made = _assemble_grounding(parts, budget)
    facts = {"whole": told["whole"], "room": told["room"]}
    facts["kept"] = count64(estimate_tokens(told["cut_facts"]))
    size = count64(estimate_tokens(made[0]))
    total = len(parts.blocks)
    bodies = told["bodies"]
    report = {"budget": budget, "size": size, "floor": told["floor"], "share": told["share"]}
    report |= {"used": told["used"], "code": told["code"], "facts": facts}
    stopped_by = "nothing" if bodies == total else "tokens"
    listed = window(total - bodies)
    report["symbols"] = symbols_report(total, bodies, bodies, listed, stopped_by)
    return made, report | {"over": max(0, size - budget)}
