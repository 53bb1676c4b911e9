"""Says in words what the reports of a page decide, and by how much."""

from __future__ import annotations

import math
from collections.abc import Iterator

from grounding_fit_workbench.module import fit
from grounding_fit_workbench.pieces import QUOTES, Fitted, Report, symbol_name


def fields_of(policy: fit.SectionBudget) -> tuple[object, ...]:
    """Return what a policy says, whatever containers say it."""
    sizes = policy.readme_chars, policy.document_chars
    return list(policy.first), dict(policy.shares), *sizes


def part_of(share: object) -> str:
    """Return a share in words, also one that no page has met yet and that is no number."""
    return f"{share:.0%}" if isinstance(share, float) else repr(share)


def policy_line(page_type: str, policy: fit.SectionBudget) -> str:
    """Return what a page's policy is; sizes are code points, shares are of the room."""
    shares = [f"{key} at most {part_of(share)} of the room" for key, share in policy.shares.items()]
    texts = [f"README up to {policy.readme_chars:,}", f"documents up to {policy.document_chars:,}"]
    first = f"kept first: {', '.join(map(str, policy.first)) or 'none'}"
    of_type = fit._BUDGETS.get(page_type, fit._DEFAULT_BUDGET)
    own = "its own" if page_type in fit._BUDGETS else "the default"
    if fields_of(policy) != fields_of(of_type):
        own = "the host's"
    named = f" of {page_type!r}" if page_type else ""
    return f"policy{named} ({own}): {', '.join([first, *shares, *texts])} code points"


Told = tuple[str, list[int | str]]  # a sentence with {} in place of these values


def in_words(told: Told) -> str:
    """Return a sentence with its values."""
    sentence, values = told
    return sentence.format(*(each if isinstance(each, str) else f"{each:,}" for each in values))


def verdict_words(fact: Report) -> str:
    """Return a block's verdict; what is "over the cap" with it is an answer that was not given."""
    return "no room" if fact["verdict"] == "over the cap" else str(fact["verdict"])


def fact_reason(fact: Report, report: Report) -> str:
    """Return what a block lacked that was left out, in JSON characters; "" for one that stays."""
    return in_words(refusal(fact, report))


def refusal(fact: Report, report: Report) -> Told:
    """Return what a block that was left out lacked, and what its seeds had to do with it.

    Sizes are JSON characters. The sentence is empty for a block that was kept.
    """
    short = fact["short_by"]
    if fact["kept"] or short is None:
        return "", []
    seeds = fact["citable_seeds"]
    values: list[int | str] = [short]
    reason = "beside what is reserved for bodies, by {}"
    if report["reserve"] <= 0:
        reason = "by {}, though nothing is reserved for bodies"
    enough = "it would fit"
    if fact["verdict"] == "over its share":
        seeds = fact["seeds"] - QUOTES
        values = [short, fact["key"], fact["share_used"], math.floor(fact["share"])]
        reason = "by {}: {} blocks before it have used {} of the {} of their share"
        enough = "it would be within the share"
    if not seeds:
        return reason, values
    if short <= seeds:
        return f"{reason}; without its {{}} of seeds {enough}", [*values, seeds]
    return f"{reason}; even without its {{}} of seeds, by {{}}", [*values, seeds, short - seeds]


def api_reasons(parts: fit.GroundingParts, report: Report) -> Iterator[str]:
    """Yield why the API path kept what it did of the facts and of the bodies, in tokens."""
    facts = report["facts"]
    code = report["code"]
    used = report["used"]
    besides = "listing" if report["symbols"]["listed"] else "what joins them"
    rest = f" and {besides} {code - used:,}" if code > used else ""
    takes = f"bodies {used:,}{rest} take {code:,} of {report['budget']:,}"
    if facts["kept"] == facts["whole"]:
        yield f"All {facts['whole']:,} tokens of facts stand."
    elif facts["room"] == 0:
        yield f"No facts of {facts['whole']:,} tokens: {takes}, which leaves them no room."
    else:
        empty = "" if facts["kept"] else ", less than the host can cut them to"
        yield (
            f"Facts cut from {facts['whole']:,} to {facts['kept']:,} tokens: {takes}, "
            f"which leaves {facts['room']:,}{empty}."
        )
    source = "its floor" if report["share"] == report["floor"] else "what the facts leave"
    share = f"the code's share of {report['share']:,} ({source})"
    if used > report["share"]:
        first = symbol_name(parts, 0)
        yield f"{first} alone takes {used:,}, more than {share}: the first body is always kept."
    yield from body_reasons(parts, report["symbols"], share)


def body_reasons(parts: fit.GroundingParts, symbols: Report, share: str) -> Iterator[str]:
    """Yield what kept the next body out, and by how much."""
    stop = symbols["stopped_by"]
    if stop == "nothing":
        if symbols["total"]:
            yield f"All {symbols['total']:,} bodies stand."
        return
    name = symbol_name(parts, symbols["bodies"])
    if stop == "tokens":
        short = symbols["short_by_tokens"]
        yield f"Tokens stop the bodies: with {name} they would pass {share} by {short:,}."
    else:
        short = symbols["short_by_characters"]
        noted = " with its real note" if stop == "note" else ""
        yield f"The cap stops the bodies: with that of {name}{noted} it is passed by {short:,}."


def agent_reasons(parts: fit.GroundingParts, report: Report) -> Iterator[str]:
    """Yield what decided the answer of the agent path, in JSON characters."""
    given = f"{report['given']:,} characters were given"
    if report["outcome"] == "fits":
        yield f"{given}, which fit: the answer went back unchanged."
    elif report["outcome"] == "fits without prior_markdown":
        yield f"{given}; without prior_markdown they fit."
    else:
        yield (
            f"{given}. The always-kept facts and other fields with no body take "
            f"{report['base']:,}, which leaves a room of {report['room']:,}. "
            f"Of it {reserved(report)}."
        )
        yield from body_reasons(parts, report["symbols"], "the code's share of the budget")


def reserved(report: Report) -> str:
    """Return how much of the room is held free for bodies, and why so much, in JSON characters."""
    if report["reserve"] <= 0:
        cause = "there is none" if report["all_bodies"] <= 0 else "the code floor comes to nothing"
        return f"nothing is reserved for bodies: {cause}"
    return (
        f"{report['reserve']:,} are reserved for bodies: the lesser of the code floor's part, "
        f"{report['floor']:,}, and of all bodies that the tokens allow, {report['all_bodies']:,}"
    )


def api_warnings(report: Report) -> Iterator[str]:
    """Yield why a grounding passes its budget, in tokens."""
    if report["over"]:
        code = f"bodies {report['used']:,} and listing {report['code'] - report['used']:,}"
        yield (
            f"the grounding passes its budget by {report['over']:,} tokens: {code} are not cut; "
            "the first body is always kept, and the listing stands beside the code's share"
        )


def agent_warnings(parts: fit.GroundingParts, fitted: Fitted) -> Iterator[str]:
    """Yield why an answer passes the cap without any code, in JSON characters."""
    report = fitted.report
    if report["outcome"] != "over the cap":
        return
    kept = [fact for fact in report["facts"] if fact["kept"]]
    sizes: dict[str, int] = {}
    for fact in kept:
        size = fact["text"] - QUOTES + (fact["citable_seeds"] or 0)
        sizes[fact["label"]] = sizes.get(fact["label"], 0) + size
    facts = sum(sizes.values())
    fields = report["size"] - facts
    excess = report["size"] - report["cap"]
    cause = f"the fields that are not fitted and the note take {fields:,}"
    if facts > fields:
        widest = max(sizes, key=lambda label: sizes[label])
        cause = f"{widest} takes {sizes[widest]:,} with its seeds"
    yield (
        f"facts and fields alone pass the cap by {excess:,} characters, so no code is shown: "
        f"the {len(kept)} facts kept take {facts:,}, {cause}"
    )
    verdicts = [fact["verdict"] for fact in kept]
    pinned = [index for index, one in enumerate(verdicts) if one in ("always kept", "kept first")]
    if pinned and "fits" in verdicts[: pinned[-1]]:
        late = kept[pinned[-1]]["label"]
        yield (
            f"{late} is always kept, but stands after blocks that were kept because they fitted "
            "without it: always-kept blocks belong first"
        )
