"""The workbench's pages files, and the wrong values that it finds in a page's arguments."""

import json
import tempfile
import unittest
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

import pages as random_pages
from grounding_fit_workbench import load_pages, problems, save_page
from harness import UsualHost, fit, over, parts

PAGES = 50
Block = fit.FactBlock
CYCLE = []
CYCLE.append(CYCLE)
LONE = [text.replace("\udfff", "b") for text in random_pages.SLICED]  # two kinds could make a pair


def jsoned(value):
    """Return a value's JSON, in which a tuple is a list."""
    return json.dumps(value)


def fits(answer, page, budget):
    """Return all that both paths make of a page, or how they refuse it."""
    made = []
    for call, arguments in [
        (fit.explain_page_context, (answer, page, budget)),
        (fit.explain_grounding, (page, budget)),
    ]:
        try:
            made.append(jsoned(call(*arguments)))
        except (TypeError, ValueError, KeyError, OverflowError) as error:
            made.append(str(error))
    return made


class PagesFiles(UsualHost):
    def setUp(self):
        super().setUp()
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.file = Path(folder.name, "pages")

    def save(self, answer=None, page=None, budget=1, name="n", **rest):
        save_page(self.file, answer or {}, page or parts(), budget, name=name, **rest)

    def test_fits_and_reports_are_those_of_the_originals(self):
        saved = []
        self.addCleanup(setattr, random_pages, "SLICED", random_pages.SLICED)
        random_pages.SLICED = LONE
        for seed in range(PAGES):
            source = random_pages.Source(seed)
            saved.append((source.answer(), source.parts(), source.tokens()))
        odd = {"nan": [float("nan"), -float("inf"), -0.0, 10**300, "\ud800", ("\udfff",)]}
        saved.append((over(**odd), parts(code_floor=1, budget=fit.section_budget("decisions")), 9))
        for number, (answer, page, budget) in enumerate(saved):
            self.save(answer, page, budget, name=f"page {number}", page_type="t")
        loaded = load_pages(self.file)
        self.assertEqual((len(loaded), loaded.refused), (len(saved), []))
        for number, (page, original) in enumerate(zip(loaded, saved, strict=True)):
            self.assertEqual((page.name, page.page_type), (f"page {number}", "t"))
            self.assertEqual(jsoned(page.answer), jsoned(original[0]))
            self.assertEqual(fits(page.answer, page.parts, page.budget), fits(*original), number)

    def test_a_line_is_what_it_says(self):
        policy = fit.SectionBudget(5, ("k",), {"k": 0.5}, 6)
        facts = [Block("# t", [fit.seed("a", 1)], "n", "k")]
        self.save({"x": 1}, fit.GroundingParts(facts, [("c", {})], {"b", "a"}, 0.2, policy), 7)
        fact = {"text": "# t", "seeds": [fit.seed("a", 1)], "name": "n", "key": "k"}
        told = {"readme_chars": 5, "first": ["k"], "shares": {"k": 0.5}, "document_chars": 6}
        line = {"name": "n", "page_type": "", "budget": 7, "answer": {"x": 1}, "prose": [fact]}
        line |= {"blocks": [["c", {}]], "files": ["a", "b"], "code_floor": 0.2, "policy": told}
        self.assertEqual(json.loads(self.file.read_text("ascii")), line)

    def test_what_json_lacks_is_refused_with_its_place(self):
        seeds = parts([Block("t"), Block("t", [{"path": {1}}])])
        record = {"fqn": ("a",)}
        for error, words, arguments in [
            (TypeError, r"answer\['a'\]\[1\]: expected a JSON value, got set", {"a": [1, {2}]}),
            (TypeError, r"answer\['a'\]: expected string keys, got 3", {"a": {3: 4}}),
            (TypeError, r"answer\['page_id'\]: tuple where a fit reads a text", {"page_id": (1,)}),
            (ValueError, r"answer\['a'\]: a pair of surrogates", {"a": "\ud800\udc00"}),
            (RecursionError, "answer: nested too deep", {"a": CYCLE}),
            (TypeError, r"parts.prose\[1\].seeds\[0\]\['path'\]: expected", seeds),
            (TypeError, r"parts.blocks\[0\]\[1\]\['fqn'\]: tuple", parts((), [("t", record)])),
            (TypeError, r"parts.prose\[0\]: expected a FactBlock, got int", parts([3])),
            (TypeError, r"parts.files: expected strings, got 3", parts(files={3})),
            (TypeError, "parts: expected a GroundingParts, got str", "parts"),
        ]:
            answer, page = (arguments, None) if isinstance(arguments, dict) else (None, arguments)
            with self.assertRaisesRegex(error, rf"^save_page\(\): {words}"):
                self.save(answer, page)
        for wrong in ({"budget": "1"}, {"name": 1}, {"page_type": None}):
            with self.assertRaisesRegex(TypeError, f"{next(iter(wrong))}: expected"):
                self.save(**wrong)
        self.assertFalse(self.file.exists())

    def test_a_line_that_cannot_be_read_is_told(self):
        self.save()
        good = json.loads(self.file.read_text())
        wrong = [
            ("{", "expected an object of JSON: Expecting"),
            ("[]", "line: expected an object, got an array"),
            (
                jsoned({**good, "budget": True, "answer": None}),
                "answer: expected an object, got null",
            ),
            (jsoned({**good, "code_floor": "x"}), "code_floor: expected a number, got a string"),
            (
                jsoned({**good, "prose": [{"text": 3}]}),
                r"prose\[0\].text: expected a string, got an in",
            ),
            (jsoned({**good, "policy": {"first": 1}}), "policy.readme_chars: .*it is not there"),
            (jsoned({**good, "files": ["a", 3]}), r"files\[1\]: expected a string, got an integer"),
            (
                jsoned({key: good[key] for key in good if key != "name"}),
                "name: expected a string, and",
            ),
            ("\udcff", "utf-8"),
        ]
        lines = [jsoned(good), "", *(line for line, _ in wrong), jsoned({**good, "more": 1})]
        self.file.write_bytes("\n".join(lines).encode("utf-8", "surrogateescape"))
        loaded = load_pages(self.file)
        self.assertEqual([page.name for page in loaded], ["n", "n"])
        for number, (refused, (_, words)) in enumerate(zip(loaded.refused, wrong, strict=True), 3):
            self.assertRegex(str(refused), f"^line {number}: .*{words}")
        self.assertEqual(len(loaded.refused), len(wrong))

    def test_many_writers_append_to_one_file(self):
        """As processes do; but threads come between two writes more often."""
        self.file.write_text('{"broken off')

        def save(writer):
            for page in range(60):
                text = str(writer) * (100_000 if page < 9 else 1)
                self.save({"text": text}, name=f"{writer} {page}")

        with ThreadPoolExecutor(4) as executor:
            list(executor.map(save, range(4)))
        loaded = load_pages(self.file)
        self.assertEqual([refused.line for refused in loaded.refused], [1])
        wanted = sorted(f"{writer} {page}" for writer in range(4) for page in range(60))
        self.assertEqual(sorted(page.name for page in loaded), wanted)


class Problems(UsualHost):
    def test_what_is_wrong_is_told_by_its_place(self):
        record = {"file": "f", "line": "x", "end_line": "y", "kind": {2}, "docstring": {3}}
        seeds = [{"line_start": "x"}, 5, {2: 3}, {"line_start": 0, "path": {3}}]
        shares = {"digest": "25%", "low": -0.1, "q'\"": None, "odd": float("nan")}
        policy = fit.SectionBudget(first=[3, "late", ""], shares=shares)
        prose = [Block("# t", seeds), 3, Block("# l", key="late"), Block("x\ny", [CYCLE])]
        blocks = [("t", record), 5, (3, {}), ("t", 4), ("a", "b", "c")]
        page = fit.GroundingParts(prose, blocks, {3}, float("inf"), policy)
        answer = {4: 5, "a": [1, {2}], "b": {"c": object()}, "prior_markdown": [2]}
        found = [str(problem) for problem in problems(answer, page)]
        wanted = """\
answer: expected string keys, got 4
answer['a'][1]: expected a JSON value, got set
answer['b']['c']: expected a JSON value, got object
answer['page_id']: expected beside a prior_markdown, which a note tells to read
answer['prior_markdown']: expected a string, got list
parts.prose[0].seeds[0]['line_start']: expected an integer, got 'x'
parts.prose[0].seeds[1]: expected an object (dict), got 5
parts.prose[0].seeds[2]: expected string keys, got 2
parts.prose[0].seeds[3]['path']: expected a JSON value, got set
parts.prose[1]: expected a FactBlock of this module, got 3
parts.prose[3].seeds: containers nested too deep to measure as JSON
parts.files: expected a string, got 3
parts.blocks[0][1]['line']: expected an integer, got 'x'
parts.blocks[0][1]['end_line']: expected an integer, got 'y'
parts.blocks[0][1]['kind']: expected a JSON value, got set
parts.blocks[0][1]['docstring']: expected a JSON value, got set
parts.blocks[1]: expected a pair (tuple or list of two), got 5
parts.blocks[2][0]: expected a string, got 3
parts.blocks[3][1]: expected an object (dict), got 4
parts.blocks[4]: expected a pair (tuple or list of two), got 3 items
parts.code_floor: expected a number whose product with the room is finite, got inf
parts.budget.first[0]: expected a string, got 3
parts.budget.shares['digest']: expected a float or integer, got '25%'
parts.budget.shares['q\\'"']: expected a float or integer, got None
parts.budget.shares['low']: expected a fraction of the room, from 0 to 1, got -0.1
parts.budget.shares['odd']: expected a fraction of the room, from 0 to 1, got nan
parts.prose[2]: expected before the 't' block, which may take its room: this block always stays
parts.prose[3].name: expected a name, or a heading as its first line, for a note to name it by"""
        self.assertEqual(sorted(found), sorted(wanted.splitlines()))

    def test_a_page_without_one_is_refused_by_no_path(self):
        """And what is told to be refused is, where a page is large enough to be cut."""
        told = 0
        for seed in range(100):
            source = random_pages.Source(seed, junk=0.01)
            answer, page = source.answer(), source.parts()
            refused = [one for one in problems(answer, page) if one.refused]
            told += bool(refused)
            if not refused:
                for given in (answer, {**answer, "page_id": "p", "grounding": "g" * 41_000}):
                    fit.explain_page_context(given, page, 900)
                fit._assemble_grounding(page, 900)
        self.assertGreater(told, 20)

    def test_arguments_of_another_type(self):
        self.assertEqual(problems({}, parts()), [])
        for answer, page, place in [([], parts(), "answer"), ({}, 3, "parts")]:
            self.assertEqual([one.place for one in problems(answer, page)], [place])


if __name__ == "__main__":
    unittest.main()
