"""What holds of every answer of the agent path, whatever the page."""

import collections
import os
import re
import time
import unittest

from harness import CAP, UsualHost, fit, model, over, parts
from pages import Source

Block = fit.FactBlock


def told_apart(page):
    """Return the grounding with a heading of its own in every fact block and symbol block."""
    prose = [
        Block(f"## Fact {i}\n{block.text}", block.seeds, f"<{i}>", block.key)
        for i, block in enumerate(page.prose)
    ]
    blocks = [
        (f"### S{i}\n{text}", {"fqn": f"S{i}", **symbol})
        for i, (text, symbol) in enumerate(page.blocks)
    ]
    return parts(prose, blocks, code_floor=page.code_floor, budget=page.budget)


class Answers(UsualHost):
    def test_invariants(self):
        rebuilt = 0
        for seed in range(700):
            source = Source(seed)
            page, answer, tokens = told_apart(source.parts()), source.answer(), source.tokens()
            try:
                result = fit._fit_page_context(answer, page, tokens)
            except (ValueError, KeyError):
                continue  # a line number that cannot be read, or no page_id
            with self.subTest(seed=seed):
                note = result.get("truncated", "")
                fits = fit._json_size(result) <= CAP
                self.assertTrue(fits or note.endswith("the other fields alone exceed it."))
                if result is not answer and "Ask for code" in note:
                    rebuilt += 1
                    kept = [block for block in page.prose if block.text in result["grounding"]]
                    bodies = sum(text in result["grounding"] for text, _ in page.blocks)
                    self.assert_counts(result, page, kept, bodies)
        self.assertGreater(rebuilt, 150)

    def assert_counts(self, result, page, kept, bodies):
        """Assert that what the note says is left out of code and facts is what the answer lacks."""
        note, total = result["truncated"], len(page.blocks)
        cut = re.search(r"the bodies of (\d+) of (\d+) .*?; (\d+) of them .*?, (\d+) not", note)
        self.assertEqual(bool(cut), bodies < total)
        if cut:
            listed = result["grounding"].partition(fit._LISTED_HEADING)[2].count("\n- `")
            counts = total - bodies, total, listed, total - bodies - listed
            self.assertEqual(tuple(map(int, cut.groups())), counts)
        more = int((re.search(r"(\d+) more blocks", note) or [0, 0])[1])
        named = sum(block.label() in note for block in page.prose if block not in kept)
        self.assertEqual(len(kept) + named + more, len(page.prose))

    def test_an_ordered_dict_keeps_its_own_order(self):
        answer = collections.OrderedDict(page_id=1, a=2, b=3, grounding="g" * CAP, c=4)
        answer.move_to_end("page_id")
        answer.move_to_end("b", last=False)
        for prior in (None, "m" * CAP):
            answer["prior_markdown"] = prior
            result = fit._fit_page_context(answer, parts(), 1)
            self.assertEqual(list(result), list(model._fit_page_context(answer, parts(), 1)))
            self.assertEqual(next(iter(result)), "b")

    def test_keys_of_one_text(self):
        """The first one counts; what else has its text is carried over."""

        class Key(str):
            __eq__ = object.__eq__
            __hash__ = object.__hash__

        names = ["prior_markdown", "truncated"]
        answer = over(**{name: name for name in names}) | {Key(name): "odd" for name in names}
        made = fit._fit_page_context(answer, parts(), 1)
        told = [[value for key, value in made.items() if str(key) == name] for name in names]
        self.assertEqual(told, [[None, "odd"], [made["truncated"], "odd"]])

    def test_what_no_answer_lists_is_not_read(self):
        """All symbols have their body, and none of the answers tried lists the one at 40."""
        records = [{"fqn": f"S{i}"} for i in range(100)]
        records[40]["signature"] = b"no JSON value"
        page = parts([], [("x", record) for record in records])
        made = fit._fit_page_context(over(), page, CAP)
        self.assertEqual(made["symbols"], [record["fqn"] for record in records])

    def test_seeds_of_a_block_that_goes(self):
        """They are not read where it is over its share, and they are where it is over the cap."""
        budget = fit.SectionBudget(shares={"digest": 0})
        for key, text in [("digest", "x"), ("", "x" * CAP)]:
            block = Block(text, [{"line_start": "x"}], key=key)
            page = parts([Block("f" * 200), block], budget=budget)
            if key:
                self.assertIn("f" * 200, fit._fit_page_context(over(), page, 1)["grounding"])
            else:
                self.assertRaises(ValueError, fit._fit_page_context, over(), page, 1)

    @unittest.skipIf(os.environ.get("SIZES_CHECKED") == "ON", "every candidate is built")
    def test_a_note_with_very_long_labels(self):
        """However much comes off for it, each label is sized once and the note written once."""
        prose = [Block("x" * 10**7) for _ in range(4)]
        blocks = [("t" * 90, {})] * 400
        started = time.process_time()
        made = fit._fit_page_context(over(), parts(prose, blocks), 10**9)
        self.assertLess(time.process_time() - started, 0.6)  # 12 when it is written for each body
        self.assertEqual(made["truncated"].count("x" * 10**7), 4)

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
