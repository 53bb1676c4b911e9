"""The example, on this repository: what it shows adds up, and what it says holds."""

import contextlib
import io
import json
import os
import re
import tempfile
import unittest
from pathlib import Path
from unittest import mock

import harness  # loads the module before the example does
from examples import host, repository
from grounding_fit_workbench import Page, load_pages, reasons
from grounding_fit_workbench.pieces import fit_agent

HOST, ROOT, fit = harness.HOST, harness.ROOT, harness.fit

with mock.patch.dict("sys.modules", HOST.modules()):  # the module is there already
    from examples import fit_repository

PAGES = [("module", 4000, 3), ("getting-started", 300, 60), ("decisions", 9000, 30)]
READ = repository.read_repository(ROOT / "workbench")


class Example(harness.UsualHost):
    def page(self, page_type, budget=8000, symbols=60):
        parts = host.page_parts(READ, page_type, symbols)
        given = host.page_answer("name", page_type, READ.sources, parts)
        return Page("name", page_type, given, parts, budget)

    def run_it(self, *arguments):
        """Run the program here, its reading of this repository done; return what it printed."""
        out, err = io.StringIO(), io.StringIO()
        with contextlib.ExitStack() as stack:
            stack.enter_context(contextlib.redirect_stdout(out))
            stack.enter_context(contextlib.redirect_stderr(err))
            stack.enter_context(mock.patch.object(repository, "read_repository", lambda _: READ))
            stack.enter_context(mock.patch.dict(os.environ, COLUMNS="80"))
            try:
                fit_repository.main([*map(str, arguments)])
            except SystemExit as stop:
                return stop.code, out.getvalue(), err.getvalue()
        return 0, out.getvalue(), err.getvalue()

    def test_the_report_adds_up(self):
        for page_type, budget, symbols in PAGES:
            with self.subTest(page=page_type):
                options = ["--page", page_type, "--budget", budget, "--symbols", symbols]
                _, report, _ = self.run_it(*options)
                answer = json.loads(self.run_it(*options, "--show", "answer")[1])
                size = fit._json_size(answer)
                self.assertIn(f"Agent path: {size:,} of 40,000", report)
                self.assertLessEqual(max(map(len, report.splitlines())), 80)
                legend = report.split("Agent path")[1].split(" characters were given")[0]
                sizes = re.findall(r"(?:^| )[OFSNLBC] [a-z ]+? ([\d,]+)", legend, re.MULTILINE)
                self.assertEqual(sum(int(each.replace(",", "")) for each in sizes), size)
                for symbol in answer["symbols"][:3]:
                    self.assertIn(symbol, report)

    def test_options(self):
        with tempfile.TemporaryDirectory() as folder:
            html, saved, absent = (Path(folder, name) for name in ("page.html", "pages", "no/file"))
            for arguments, words in [
                (["--budget", "-1"], "--budget: expected an integer from 0 on"),
                (["--repo", absent], f"--repo: {absent}: expected a folder, and there is none"),
                (["--html", absent], f"--html: {absent}: there is no folder {absent.parent}"),
                (["--html", folder], f"--html: {folder}: expected a file, got a folder"),
            ]:
                ended, out, err = self.run_it(*arguments)
                self.assertEqual((ended, out, err.count("\n")), (2, "", 1))
                self.assertIn(words, err)
            _, out, err = self.run_it(
                "--show", "grounding", "--html", html, "--save", saved, "--symbols", 20
            )
            self.assertIn('id="data">{"head"', html.read_text())
            page = load_pages(saved)[0]
            self.assertEqual(out, fit._assemble_grounding(page.parts, 8000)[0] + "\n")
            self.assertEqual((page.name, page.page_type), (READ.name, "module"))
        self.assertIn("module, getting-started, decisions", self.run_it("--help")[1])
        self.assertIn("--page guide", self.run_it("--page", "guide", "--symbols", 0)[2])

    def test_what_was_built_is_not_read(self):
        paths = ("a.py", "README", "build/b.py", "build/made.md", "src/build/c.py", ".d.py")
        with tempfile.TemporaryDirectory() as folder:
            for path in paths:
                file = Path(folder, path)
                file.parent.mkdir(parents=True, exist_ok=True)
                file.write_text("x = 1\n")
            read = repository.read_repository(Path(folder))
        self.assertEqual([source.path for source in read.sources], ["a.py", "src/build/c.py"])
        self.assertEqual([text.path for text in read.texts], ["README"])

    def test_what_is_said_of_seeds_holds(self):
        """A block said to fit without its seeds is kept without them, another one is not."""
        tried = set()
        for page_type in ("module", "getting-started"):
            page = self.page(page_type, 4000, 3)
            report = fit_agent(page).report
            for index, fact in enumerate(report["facts"]):
                if fact["kept"]:
                    continue
                said = "; without its" in reasons.fact_reason(fact, report)
                prose = list(page.parts.prose)
                prose[index] = fit.FactBlock(prose[index].text, [], key=fact["key"])
                now = fit_agent(page.with_parts(prose=prose)).report["facts"][index]
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
            ([wide], "", r"the 'Files' block takes 4\d,"),
            ([], "f" * 41000, r"fields that are not fitted and the note take 4\d,"),
            ([other, late], "f" * 1000, "the late one is always kept, but stands after"),
        ]:
            parts = fit.GroundingParts(facts, [], set(), budget=policy)
            given = {"page_id": "p", "field": field, "grounding": "g" * 50000}
            fitted = fit_agent(Page("p", "", given, parts, 100))
            self.assertRegex(" ".join(reasons.agent_warnings(parts, fitted)), cause)


if __name__ == "__main__":
    unittest.main()
