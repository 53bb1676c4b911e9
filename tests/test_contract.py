"""What the module says of itself: names, signatures, docstrings, and its documents."""

import ast
import inspect
import re
from pathlib import Path

import catalogue
from harness import HOST_NAMES, ROOT, UsualHost, fit, model, parts, run_python

RECORDS = (fit.FactBlock, fit.GroundingParts, fit.SectionBudget)
STUB = (ROOT / "grounding_fit.pyi").read_text(encoding="utf-8")
DOCUMENTS = [ROOT / "README.md", *sorted(ROOT.glob("docs/*.md"))]


class Contract(UsualHost):
    def test_every_name_says_what_it_is(self):
        public = {name for name in vars(fit) if not name.startswith("__")}
        self.assertEqual(set(fit.__all__), public)
        for name in fit.__all__:
            one = getattr(fit, name)
            if callable(one):
                signature = inspect.signature(one)
                self.assertNotIn("args", signature.parameters)
                self.assertGreater(len(inspect.getdoc(one).splitlines()), 2, name)
                if name in vars(model):
                    plain = inspect.signature(getattr(model, name))
                    self.assertEqual(str(signature), str(plain), name)
        for record in RECORDS:
            told = re.findall(r"[(,] ?(\w+)", record.__text_signature__)
            self.assertEqual(tuple(told), record.__match_args__)
            for field in record.__match_args__:
                self.assertTrue(getattr(record, field).__doc__, f"{record.__name__}.{field}")

    def test_the_catalogue_has_every_name(self):
        """What it lacks would be called by none of the tests that call everything."""
        names = catalogue.public(fit)
        self.assertEqual(set(catalogue.working(fit)), names)
        self.assertEqual(set(catalogue.entries(fit, lambda: None)), names | {"operations"})
        self.assertLessEqual({name for name, _ in catalogue.failing(fit)}, names)

    def test_signatures_of_records(self):
        """A default that is no literal, as a budget, is told as an ellipsis."""
        shown = [str(inspect.signature(record)) for record in RECORDS]
        told = [
            "(text, seeds=(), name='', key='')",
            "(prose, blocks, files, code_floor=0.35, budget=Ellipsis)",
            "(readme_chars=4000, first=(), shares={}, document_chars=0)",
        ]
        self.assertEqual(shown, told)

    def test_the_stub_tells_the_values(self):
        told = re.findall(r"^(\w+): Final = ([^#\n]+)", STUB, re.MULTILINE)
        self.assertGreater(len(told), 5)
        for name, value in told:
            self.assertEqual(getattr(fit, name), ast.literal_eval(value.strip()), name)

    def test_named_arguments(self):
        self.assertEqual(fit._code_cut(total=4, kept=0, listed=0), fit._code_cut(0, 0, 4))
        self.assertEqual(fit._fit_page_context(budget=1, result={}, parts=parts()), {})

    def test_examples_run_as_they_stand(self):
        readme = (ROOT / "README.md").read_text(encoding="utf-8")
        blocks = re.findall(r"^```python\n(.*?)^```", readme, re.DOTALL | re.MULTILINE)
        examples = [block for block in blocks if "#> " in block]
        self.assertTrue(examples)
        for example in examples:
            done = run_python("-c", example)
            said = re.findall(r"#> (.*)", example)
            self.assertEqual(done.stdout.splitlines(), said, done.stderr)

    def test_documents_tell_every_name_and_no_other(self):
        told = set()
        for document in DOCUMENTS:
            told |= set(re.findall(r"`([A-Za-z_]\w*)", document.read_text(encoding="utf-8")))
        self.assertEqual(set(fit.__all__) - told, set())
        known = set(re.findall(r"\w+", STUB)).union(HOST_NAMES)
        stale = {name for name in told - known if re.match("_[A-Za-z]", name)}
        self.assertEqual(stale, set(), "told, but nowhere to be found")

    def test_documents_for_developers_name_what_there_is(self):
        """Files below the sources by their folder, or alone; and names that some file has."""
        folders = ("docs", "examples", "tests", "tools", "workers", ".")
        files = [path for folder in folders for path in ROOT.glob(f"{folder}/*.*")]
        files += ROOT.glob("workers/**/*.?pp")
        sources = [path for path in files if path.suffix in (".cpp", ".hpp", ".py", ".pyi")]
        written = set(re.findall(r"\w+", " ".join(map(Path.read_text, sources))))
        for document in ("changing", "design"):
            text = (ROOT / f"docs/{document}.md").read_text(encoding="utf-8")
            named = re.findall(r"`([a-z_/]+\.(?:cpp|hpp|md|pyi?|toml))`", text)
            self.assertGreater(len(named), 10)
            stale = [name for name in named if not any(path.match(name) for path in files)]
            stale += set(re.findall(r"`([a-z]\w*_\w+)\b(?!\.)", text)) - written
            self.assertEqual(stale, [], document)
