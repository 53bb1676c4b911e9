"""The memo and the cut that the documents recommend to a host with a real tokenizer."""

import re

from harness import HOST, ROOT, UsualHost, fit, parts

TEXT = (ROOT / "docs/interface.md").read_text(encoding="utf-8")
BLOCKS_OF_CODE = re.findall(r"^```python\n(.*?)^```", TEXT, re.DOTALL | re.MULTILINE)
RECIPE = next(block for block in BLOCKS_OF_CODE if "token_starts" in block)
FACT = "one  two, thrée\n\n— 😀 four() " * 30
FACTS = [fit.FactBlock(f"## Facts {n}\n{FACT}") for n in range(4)]
BLOCKS = [(f"### f{n}\n" + "def f(x):\n    return x\n" * 12, {"fqn": f"f{n}"}) for n in range(40)]


class Tokenizer(UsualHost):
    def setUp(self):
        super().setUp()
        self.recipe = {}
        exec(RECIPE, self.recipe)
        self.read = []
        starts = self.recipe["token_starts"]

        def watched(text):
            self.read.append(text)
            return starts(text)

        self.recipe["token_starts"] = watched
        HOST.set(self.recipe["estimate_tokens"], self.recipe["_truncate_to_tokens"])

    def test_a_page_is_read_once(self):
        page = parts(FACTS, BLOCKS)
        answer = {"page_id": "p", "grounding": "g" * fit._PAGE_CONTEXT_MAX_CHARS}
        first, report = fit.explain_grounding(page, 1500)
        self.assertEqual(report["facts"]["kept"], report["facts"]["room"])
        self.assertLess(0, report["facts"]["kept"])
        self.assertLess(report["facts"]["kept"], report["facts"]["whole"])
        self.assertEqual(len(self.read), len(set(self.read)), "a text was read twice")
        self.read.clear()
        self.assertEqual(fit._assemble_grounding(page, 1500), first)
        capped = fit._fit_page_context(answer, page, 1500)
        self.assertEqual(self.read, [], "the second fit and the other path read a text again")
        self.recipe["known_starts"].cache_clear()
        self.assertEqual(fit._fit_page_context(answer, page, 1500), capped)
        self.assertNotEqual(self.read, [])

    def test_the_cut_keeps_the_tokens_that_were_counted(self):
        estimate, truncate = (
            self.recipe[key] for key in ("estimate_tokens", "_truncate_to_tokens")
        )
        for text in (FACTS[0].text, "a", ""):
            whole = estimate(text)
            for budget in range(whole + 2):
                with self.subTest(text=text[:9], budget=budget):
                    cut = truncate(text, budget)
                    self.assertTrue(text.startswith(cut))
                    self.assertEqual(estimate(cut), min(budget, whole))

    def test_a_character_of_several_tokens_stays_whole_or_goes(self):
        split = {"a😀b": [0, 1, 1, 1, 2]}  # as bytes give it: three tokens begin with the character
        self.recipe["token_starts"] = split.__getitem__
        truncate = self.recipe["_truncate_to_tokens"]
        kept = [truncate("a😀b", budget) for budget in range(6)]
        self.assertEqual(kept, ["", "a", "a", "a", "a😀", "a😀b"])
