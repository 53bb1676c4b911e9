"""What holds of every answer of the agent path, whatever the page."""

import json
import re
from dataclasses import dataclass

from harness import CAP, UsualHost, fit, over, parts
from pages import Source

Block = fit.FactBlock


@dataclass
class Case:
    """A page on which every fact block and every symbol can be told apart, and its answer."""

    seed: int
    answer: dict
    page: fit.GroundingParts
    tokens: int
    result: dict

    @property
    def kept(self):
        """The fact blocks that the answer holds."""
        return [block for block in self.page.prose if block.text in self.result["grounding"]]

    @property
    def bodies(self):
        """How many symbol blocks the answer holds."""
        return sum(text in self.result["grounding"] for text, _ in self.page.blocks)


def draw(seed):
    """Return a case; its result is None where the page has a line number that cannot be read."""
    source = Source(seed)
    drawn, answer, tokens = source.parts(), source.answer(), source.tokens()
    prose = [
        Block(f"## Fact {i}\n{block.text}", block.seeds, f"<{i}>", block.key)
        for i, block in enumerate(drawn.prose)
    ]
    blocks = [
        (f"### S{i}\n{text}", {"fqn": f"S{i}", **symbol})
        for i, (text, symbol) in enumerate(drawn.blocks)
    ]
    page = parts(prose, blocks, code_floor=drawn.code_floor, budget=drawn.budget)
    try:
        result = fit._fit_page_context(answer, page, tokens)
    except (ValueError, KeyError):
        result = None
    return Case(seed, answer, page, tokens, result)


class Answers(UsualHost):
    def test_invariants(self):
        rebuilt = 0
        for seed in range(700):
            case = draw(seed)
            if case.result is None:
                continue
            note = case.result.get("truncated", "")
            fits = fit._json_size(case.result) <= CAP
            self.assertTrue(fits or note.endswith("the other fields alone exceed it."), seed)
            if case.result is not case.answer and "Ask for code" in note:
                rebuilt += 1
                self.assert_counts(case, note)
                self.assert_full(case, note)
        self.assertGreater(rebuilt, 150)

    def assert_counts(self, case, note):
        """What the note says of code and of fact blocks is what the answer leaves out."""
        total, kept = len(case.page.blocks), case.kept
        cut = re.search(r"the bodies of (\d+) of (\d+) .*?; (\d+) of them .*?, (\d+) not", note)
        self.assertEqual(bool(cut), case.bodies < total)
        if cut:
            without = total - case.bodies
            listing = case.result["grounding"].partition(fit._LISTED_HEADING)[2]
            listed = listing.count("\n- `")
            counts = without, total, listed, without - listed
            self.assertEqual(tuple(map(int, cut.groups())), counts, case.seed)
        more = int((re.search(r"(\d+) more blocks", note) or [0, 0])[1])
        named = sum(block.label() in note for block in case.page.prose if block not in kept)
        self.assertEqual(len(kept) + named + more, len(case.page.prose), case.seed)

    def assert_full(self, case, note):
        """With the next body, the answer would pass the cap or the token budget's count."""
        bodies = case.bodies
        if bodies == fit._blocks_within(case.page, case.tokens) or len(json.dumps(note)) > 602:
            return
        symbols = [symbol for _, symbol in case.page.blocks]
        texts = [block.text for block in case.kept]
        texts += [text for text, _ in case.page.blocks[: bodies + 1]]
        if listing := fit._listing(symbols[bodies + 1 : bodies + 31]):
            texts.append(listing)
        seeds = fit.citable(one for block in case.kept for one in block.seeds)
        more = {
            **case.result,
            "grounding": "\n\n".join(texts),
            "symbols": [str(symbol["fqn"]) for symbol in symbols[: bodies + 31] if symbol["fqn"]],
            "citation_seeds": seeds + fit.symbol_seeds(symbols[: bodies + 1]),
            "truncated": fit._NOTE_PLACEHOLDER,
        }
        self.assertGreater(fit._json_size(more), CAP, case.seed)

    def test_the_same_objects(self):
        seeds = [{"path": "a", "line_start": 1}, {"path": "b", "line_start": 0}]
        page = parts([Block("## Files", seeds)])
        for given in ({"a": 1}, {"p": "x" * (CAP - 9)}):  # small, and just at the cap
            self.assertIs(fit._fit_page_context(given, page, 1), given)
        result = fit._fit_page_context(over(keep=seeds), page, 1)
        self.assertIs(result["citation_seeds"][0], seeds[0])
        self.assertIs(result["keep"], seeds)
        fitted = ["grounding", "symbols", "citation_seeds", "truncated"]
        self.assertEqual(list(result), ["page_id", "old", "keep", *fitted])
        self.assertIsNot(page.seeds, page.seeds)

    def test_cap_is_exact(self):
        for extra in (0, 1):
            answer = {"prior_markdown": "m", "page_id": 7, "p": "x" * (CAP - 46 + extra)}
            self.assertEqual(fit._json_size(answer), CAP + extra)
            result = fit._fit_page_context(answer, parts(), 1)
            self.assertEqual(result is answer, not extra)
            if extra:
                self.assertEqual((result["prior_markdown"], list(result)[-1]), (None, "truncated"))
