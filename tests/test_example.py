"""The example, on this repository: what it shows adds up, and what it says holds."""

import json
import re
import tempfile
import unittest
from pathlib import Path

from examples import browser_page, host, pieces, reasons, repository
from examples.host import fit
from harness import ROOT, run_python
from workers.context_builder import estimate_tokens as measure

PROGRAM = ROOT / "examples/fit_repository.py"
PAGES = [("module", 4000, 3), ("getting-started", 300, 180), ("decisions", 9000, 60)]


class Example(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.read = repository.read_repository(ROOT)

    def page(self, page, symbols=60):
        parts = host.page_parts(self.read, page, symbols)
        return host.page_answer("name", page, self.read.sources, parts), parts

    def test_the_report_adds_up(self):
        for page, budget, symbols in PAGES:
            with self.subTest(page=page):
                options = [PROGRAM, "--page", page, "--budget", budget, "--symbols", symbols]
                report = run_python(*options)
                self.assertEqual(report.returncode, 0, report.stderr)
                answer = json.loads(run_python(*options, "--show", "answer").stdout)
                size = fit._json_size(answer)
                self.assertIn(f"Agent path: {size:,} of 40,000", report.stdout)
                legend = report.stdout.split("Agent path")[1].split("truncated")[0]
                sizes = re.findall(
                    r"(?:^| )[OFSNLBC] [a-z ]+? ([\d,]+)", legend.split("fact block")[0]
                )
                self.assertEqual(sum(int(each.replace(",", "")) for each in sizes), size)
                for symbol in answer["symbols"][:3]:
                    self.assertIn(symbol, report.stdout)

    def test_options(self):
        refused = run_python(PROGRAM, "--budget", "-1")
        self.assertEqual((refused.returncode, refused.stdout), (2, ""))
        self.assertIn("--budget -1", refused.stderr)
        self.assertIn("module, getting-started, decisions", run_python(PROGRAM, "--help").stdout)
        self.assertIn("--page guide", run_python(PROGRAM, "--page", "guide").stderr)

    def test_what_was_built_is_not_read(self):
        with tempfile.TemporaryDirectory() as folder:
            for path in (
                "a.py",
                "README",
                "build/b.py",
                "build/made.md",
                "src/build/c.py",
                ".d.py",
            ):
                file = Path(folder, path)
                file.parent.mkdir(parents=True, exist_ok=True)
                file.write_text("x = 1\n")
            read = repository.read_repository(Path(folder))
        self.assertEqual([source.path for source in read.sources], ["a.py", "src/build/c.py"])
        self.assertEqual([text.path for text in read.texts], ["README"])

    def test_page_for_the_browser(self):
        for page, budget, symbols in PAGES:
            with self.subTest(page=page):
                given, parts = self.page(page, symbols)
                data = browser_page.page_data(given, parts, budget, measure, [page])
                text = browser_page.page_text(data)
                inlined = re.search(r'id="data">(.*?)</script>', text, re.DOTALL)
                self.assertEqual(json.loads(inlined[1]), data)
                self.assertNotRegex(
                    text.replace(inlined[0], ""), r"https?:|url\((?!#)|src=|href=|@import"
                )
                self.check_data(data, given, parts, budget)

    def check_data(self, data, given, parts, budget):
        """Hold the data of a page against the module's own results."""
        api = fit._assemble_grounding(parts, budget)[0]
        answer = fit._fit_page_context(given, parts, budget)
        for bar, size in zip(data["bars"], [measure(api), fit._json_size(answer)], strict=True):
            sizes = [segment["size"] for segment in bar["segments"]]
            self.assertEqual((sum(sizes), min(sizes) >= 0), (size, True))
        self.assertGreater(len(data["budgets"]), 200)
        for at, each in enumerate(data["budgets"]):
            text = fit._assemble_grounding(parts, each)[0]
            other = fit._fit_page_context(given, parts, each)["grounding"]
            for run, made in zip(data["fills"], (text, other), strict=True):
                fill = run[at]
                self.assertEqual([sum(fill[:4]), *fill[4:]], [len(made), len(made), measure(made)])
        texts = [block.text for block in parts.prose]
        self.assertEqual([fact["text"] for fact in data["facts"]], texts)
        for rank, symbol in enumerate(data["symbols"]):
            self.assertEqual(symbol["text"], parts.blocks[rank][0])
            if rank:
                least = symbol["least"]
                within = [fit._blocks_within(parts, least - 1), fit._blocks_within(parts, least)]
                self.assertEqual([each > rank for each in within], [False, True])

    def test_what_is_said_of_seeds_holds(self):
        """A block said to fit without its seeds is kept without them, another one is not."""
        tried = set()
        for page in ("module", "getting-started"):
            given, parts = self.page(page)
            facts = fit.explain_page_context(given, parts, 8000)[1]["facts"]
            for index, fact in enumerate(facts):
                if fact["kept"]:
                    continue
                said = "; without its" in reasons.fact_reason(fact)
                prose = list(parts.prose)
                prose[index] = fit.FactBlock(prose[index].text, [], key=fact["key"])
                bare = fit.GroundingParts(prose, parts.blocks, parts.files, budget=parts.budget)
                now = fit.explain_page_context(given, bare, 8000)[1]["facts"][index]
                self.assertEqual(now["verdict"] != fact["verdict"], said, fact)
                tried.add((fact["verdict"], said))
        self.assertGreater(len(tried), 2)

    def test_warnings_name_the_cause(self):
        cards, _ = fit._ALWAYS_KEPT
        wide = fit.FactBlock(f"{cards}\n{'w' * 41000}")
        other = fit.FactBlock(f"## Other\n{'o' * 20000}")
        late = fit.FactBlock(f"## Late\n{'l' * 25000}", name="the late one", key="late")
        policy = fit.SectionBudget(first=["late"])
        for facts, field, cause in [
            ([wide], "", r"the 'File cards' block takes 4\d,"),
            ([], "f" * 41000, r"fields that are not fitted and the note take 4\d,"),
            ([other, late], "f" * 1000, "the late one is always kept, but stands after"),
        ]:
            parts = fit.GroundingParts(facts, [], set(), budget=policy)
            given = {"page_id": "p", "field": field, "grounding": "g" * 50000}
            fitted = pieces.fit_agent(given, parts, 100)
            self.assertRegex(" ".join(reasons.agent_warnings(parts, fitted)), cause)
