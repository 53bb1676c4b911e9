"""Says in one sentence what both paths left out of a page, and in another what a change changed."""

from __future__ import annotations

from collections.abc import Iterator

from grounding_fit_workbench.cases import changes_told
from grounding_fit_workbench.module import fit
from grounding_fit_workbench.pieces import Report

Reports = tuple[Report, Report]  # of the agent path, of the API path
OLD_TEXT = "the page's old text"  # its prior_markdown


def code_left(symbols: Report) -> Iterator[str]:
    """Yield how many symbols have no body, if any."""
    missing = symbols["total"] - symbols["bodies"]
    if missing:
        lines = f" ({symbols['listed']:,} of them keep a line)" if symbols["listed"] else ""
        yield f"the code of {missing:,} of {symbols['total']:,} symbols{lines}"


def are_left_out(items: list[str]) -> str:
    """Return in words that these are left out, which may be none."""
    if not items:
        return "nothing is left out"
    listed = " and ".join([", ".join(items[:-1]), items[-1]] if len(items) > 1 else items)
    return f"{listed} {'is' if items == [OLD_TEXT] else 'are'} left out"


def left_of_answer(report: Report, prior: bool) -> str:
    """Return what the agent path left out, in JSON characters."""
    size, given, cap = (f"{report[key]:,}" for key in ("size", "given", "cap"))
    items = []
    facts = report.get("facts", [])
    refused = sum(not fact["kept"] for fact in facts)
    if refused:
        items.append(f"{refused:,} of {len(facts):,} fact blocks")
    if "symbols" in report:
        items += code_left(report["symbols"])
    if prior and report["outcome"] != "fits":
        items.append(OLD_TEXT)
    remain = f"{given} JSON characters" if given == size else f"{size} of {given} JSON characters"
    excess = report["size"] - report["cap"]
    within = f"{excess:,} over the cap of {cap}" if excess > 0 else f"the cap is {cap}"
    return f"{are_left_out(items)}: {remain} stand, {within}"


def left_of_text(report: Report) -> str:
    """Return what the API path left out, in tokens."""
    facts = report["facts"]
    items = []
    if facts["kept"] != facts["whole"]:
        items.append(f"{facts['whole'] - facts['kept']:,} of {facts['whole']:,} tokens of facts")
    items += code_left(report["symbols"])
    over = f"{report['over']:,} over the budget of" if report["over"] else "the budget is"
    return f"{are_left_out(items)}: {report['size']:,} tokens stand, {over} {report['budget']:,}"


def left_out(agent: Report, api: Report, prior: bool) -> str:
    """Return what both paths left out, and by how much; prior: the given answer had an old text."""
    return f"For an agent, {left_of_answer(agent, prior)}; for the API, {left_of_text(api)}."


def beside(parts: fit.GroundingParts, before: Reports, now: Reports) -> str:
    """Return what differs between two fits of a page, each told by its reports; "" for nothing."""
    if before == now:
        return ""
    answer = changes_of_answer(parts, before[0], now[0])
    text = changes_of_text(before[1], now[1])
    nothing = ["nothing changes"]
    return (
        f"Beside the page as saved: for an agent, {'; '.join(answer or nothing)}; "
        f"for the API, {'; '.join(text or nothing)}."
    )


def changes_of_answer(parts: fit.GroundingParts, before: Report, now: Report) -> list[str]:
    """Return what differs between two answers of the agent path."""
    kept = [
        [fact["kept"] for fact in report.get("facts", [])] or [True] * len(parts.prose)
        for report in (before, now)
    ]
    labels = [block.label() for block in parts.prose]
    won = [label for label, was, stands in zip(labels, *kept, strict=True) if stands and not was]
    lost = [label for label, was, stands in zip(labels, *kept, strict=True) if was and not stands]
    everything = {"bodies": len(parts.blocks)}
    was, stand = (report.get("symbols", everything)["bodies"] for report in (before, now))
    told = changes_told(won, lost, stand - was)
    if before["outcome"] != now["outcome"]:
        excess = now["size"] - now["cap"]
        told.append(f"{now['outcome']}{f' by {excess:,}' if excess > 0 else ''} now")
    return told


def changes_of_text(before: Report, now: Report) -> list[str]:
    """Return what differs between two texts of the API path, in tokens."""
    told = changes_told([], [], now["symbols"]["bodies"] - before["symbols"]["bodies"])
    facts = now["facts"]["kept"] - before["facts"]["kept"]
    if facts:
        told.append(f"{abs(facts):,} tokens of facts {'more' if facts > 0 else 'fewer'}")
    return told
