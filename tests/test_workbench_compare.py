"""The workbench's trials, comparisons, diffs and command, held against plain calls."""

import contextlib
import io
import json
import os
import re
import subprocess
import sys
import tempfile
from pathlib import Path

import harness  # loads the module before the workbench does
from grounding_fit_workbench import (
    Page,
    Trial,
    compare,
    diff,
    diff_reports,
    load_pages,
    save_page,
    terminal,
)
from grounding_fit_workbench.command import run
from test_workbench_ranges import crowded

ROOT, UsualHost, find, fit, parts = (
    harness.ROOT,
    harness.UsualHost,
    harness.find,
    harness.fit,
    harness.parts,
)

TRIALS = [
    "code_floor=.2",
    "half: code_floor=.5 budget=5%",
    "first=digest,lone front=kept",
    "share:digest=none share:lone=0 budget=3000",
]
HOST_MODULE = """
import sys, types
def put(name, **defined):
    sys.modules[name] = types.ModuleType(name)
    vars(sys.modules[name]).update(defined)
put("workers.context_builder", estimate_tokens=lambda text: len(text) // 4,
    _truncate_to_tokens=lambda text, budget: text[: 4 * budget])
put("workers.wiki.repo_facts", _norm=lambda path: path, FILE_CARDS_HEADING="## Files")
put("workers.wiki_types", REQUESTED_CONTEXT_HEADING="## Requested")
"""


def some_pages():
    """Return pages of every outcome, one of which stands late in reading order."""
    page = crowded()
    files, *others = page.parts.prose
    late = page.with_parts(prose=[*others, files])
    prior = Page("prior", "", {"page_id": "x", "prior_markdown": "m" * 40_000}, page.parts, 9)
    small = Page("small", "", {"text": "t"}, parts([others[0]], [("code", {})] * 3), 9)
    named = {"crowded": page, "late": late, "prior": prior, "<i>small": small}
    made = [Page(name, "", one.answer, one.parts, one.budget) for name, one in named.items()]
    policy = fit.SectionBudget(shares={"digest": "25%"})
    return [*made, Page("wrong", "", page.answer, page.with_parts(budget=policy).parts, 9)]


def by_hand(page, words):
    """Return what a plain call makes of a page with a trial that is made by hand."""
    prose, floor, budget = page.parts.prose, page.parts.code_floor, page.budget
    first, shares = list(page.parts.budget.first), dict(page.parts.budget.shares)
    if words == TRIALS[0]:
        floor = 0.2
    elif words == TRIALS[1]:
        floor, budget = 0.5, budget // 20
    elif words == TRIALS[2]:
        first = ["digest", "lone"]
        kept = [one for one in prose if one.text.startswith("## Files") or one.key in first]
        prose = kept + [one for one in prose if one not in kept]
    elif words == TRIALS[3]:
        shares, budget = {"lone": 0}, 3000
    policy = fit.SectionBudget(first=first, shares=shares)
    changed = fit.GroundingParts(prose, page.parts.blocks, set(), floor, policy)
    return fit.explain_page_context(page.answer, changed, budget)[1]


def kept_of(report, page):
    """Return the labels of the blocks that an answer leaves out, and its bodies."""
    left_out = [fact["label"] for fact in report.get("facts", []) if not fact["kept"]]
    return left_out, report.get("symbols", {"bodies": len(page.parts.blocks)})["bodies"]


class Compare(UsualHost):
    def test_a_comparison_is_what_plain_calls_make(self):
        pages = some_pages()
        told = compare(pages, TRIALS).as_json()
        names = ["unchanged", TRIALS[0], "half", *TRIALS[2:]]
        self.assertEqual([policy["name"] for policy in told["policies"]], names)
        rows = {row["name"]: row["by_policy"] for row in told["pages"]}
        self.assertEqual(set(rows), {"crowded", "late", "prior", "<i>small"})
        bodies_of = {name: [] for name in names}
        for page in pages[:-1]:
            for words, name in zip(["", *TRIALS], names, strict=True):
                report = by_hand(page, words)
                left_out, bodies = kept_of(report, page)
                bodies_of[name].append(bodies)
                wanted = {"outcome": report["outcome"], "left_out": left_out, "bodies": bodies}
                self.assertEqual(rows[page.name][name], {**wanted, "size": report["size"]})
        first = [set(rows[page.name]["unchanged"]["left_out"]) for page in pages[:-1]]
        for policy in told["policies"]:
            now = [rows[page.name][policy["name"]] for page in pages[:-1]]
            left_out = [set(one["left_out"]) for one in now]
            self.assertEqual(
                policy["won"], sum(len(a - b) for a, b in zip(first, left_out, strict=True))
            )
            self.assertEqual(
                policy["lost"], sum(len(b - a) for a, b in zip(first, left_out, strict=True))
            )
            kinds = policy["kinds"].values()
            self.assertEqual(sum(kind["left_out"] for kind in kinds), sum(map(len, left_out)))
            within = [one["outcome"] != "over the cap" for one in now]
            self.assertEqual(
                policy["won_within_cap"],
                sum(len(a - b) for a, b, fits in zip(first, left_out, within, strict=True) if fits),
            )
            pairs = zip(bodies_of["unchanged"], bodies_of[policy["name"]], strict=True)
            lost = [max(0, was - stand) for was, stand in pairs]
            self.assertEqual(
                (policy["bodies_lost"], policy["bodies_lost_within_cap"]),
                (sum(lost), sum(count for count, fits in zip(lost, within, strict=True) if fits)),
            )
            bodies = sorted(bodies_of[policy["name"]])
            self.assertEqual(
                (policy["fewest_bodies"], policy["pages_without_bodies"]),
                (bodies[0], bodies.count(0)),
            )
            self.assertEqual(policy["median_bodies"], (bodies[1] + bodies[2]) / 2)
            self.assertEqual(policy["bodies_change"], sum(bodies) - sum(bodies_of["unchanged"]))
            outcomes = [one["outcome"] for one in now]
            self.assertEqual(
                policy["outcomes"], {one: outcomes.count(one) for one in policy["outcomes"]}
            )
        self.assertEqual(told["policies"][0]["kinds"]["digest"], {"given": 12, "left_out": 4})
        seen = {one["outcome"] for row in rows.values() for one in row.values()}
        self.assertEqual(len(seen), 4)
        self.assertEqual([one["name"] for one in told["failed"]], ["wrong"])
        self.assertIn("shares['digest']: expected a float or integer", told["failed"][0]["error"])
        self.assertEqual(told["pages"][0]["name"], "late")  # the only one over its cap

    def test_a_page_without_symbols_is_not_one_that_lacks_bodies(self):
        bare = Page("bare", "", {"text": "t"}, parts([], []), 9)
        (row,) = compare([some_pages()[0], bare]).policies
        self.assertEqual((row.fewest_bodies, row.without_bodies), (9, 0))

    def test_words_that_are_no_trial(self):
        for words, said in [
            ("", "expected words"),
            ("floor=.2", "'floor=.2': expected code_floor="),
            ("code_floor=1.5", "'code_floor=1.5': expected a number from 0 to 1"),
            ("code_floor=nan", "from 0 to 1"),
            ("share:digest=x", "from 0 to 1, or none"),
            ("share=.2", "expected code_floor=, share:KIND="),
            ("first:x=readme", "expected code_floor="),
            ("budget=-1", "tokens from 0 on"),
            ("budget=1e3", "tokens from 0 on"),
            ("front=all", "front=kept"),
            ("budget=1 budget=2", "expected budget once"),
            ("share:a=.1 share:a=.1", "expected share:a once"),
        ]:
            with self.assertRaisesRegex(ValueError, re.escape(said)):
                Trial.parse(words)
        for twice in (["budget=1", "budget=1"], ["unchanged: budget=1"]):
            with self.assertRaisesRegex(ValueError, "this one is taken"):
                compare([], twice)

    def test_a_diff_is_what_changed(self):
        pages = some_pages()[:4]
        changed = [Trial.parse("code_floor=0 budget=1900").changed(page) for page in pages]
        found = diff([*pages, pages[0]], [changed[0], *changed, pages[1]])
        self.assertEqual(
            [one.name for one in found.pages], [page.name for page in pages] + ["crowded"]
        )
        self.assertEqual((found.only_before, found.only_after), ([], ["late"]))
        for one, page, other in zip(found.pages, pages, changed, strict=False):
            reports = []
            texts = []
            for each in (page, other):
                answer, report = fit.explain_page_context(each.answer, each.parts, each.budget)
                reports.append(report)
                grounding = fit._assemble_grounding(each.parts, each.budget)[0]
                texts.append((json.dumps(answer, ensure_ascii=False), grounding))
            before, after = (set(kept_of(report, page)[0]) for report in reports)
            self.assertEqual((set(one.won), set(one.lost)), (before - after, after - before))
            for prefix, pair in zip((one.agent, one.api), zip(*texts, strict=True), strict=True):
                same = len(os.path.commonprefix(pair))
                self.assertEqual(
                    (prefix.same, prefix.before, prefix.after), (same, *map(len, pair))
                )
            told = diff_reports(*reports)
            self.assertEqual((told.won, told.lost), (one.won, one.lost))
        self.assertTrue(found.pages[0].won and found.pages[0].lost)
        with self.assertRaisesRegex(ValueError, "a report of explain_page_context"):
            diff_reports({}, {})


class Command(UsualHost):
    def setUp(self):
        super().setUp()
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.addCleanup(os.environ.pop, "COLUMNS")
        os.environ["COLUMNS"] = "80"
        self.folder = Path(folder.name)
        self.file = self.folder / "pages"
        for page in some_pages():
            save_page(self.file, page.answer, page.parts, page.budget, name=page.name)

    def run_it(self, *arguments):
        """Run the command here; return how it ended, what it printed and what it said."""
        out, err = io.StringIO(), io.StringIO()
        with contextlib.redirect_stdout(out), contextlib.redirect_stderr(err):
            try:
                ended = run([*map(str, arguments)])
            except SystemExit as stop:
                ended = stop.code
        return ended, out.getvalue(), err.getvalue()

    def test_wrong_uses_are_told_in_a_line(self):
        absent, pages = self.folder / "no" / "file", self.file
        for arguments, words in [
            (["compare", absent], f"{absent}: No such file"),
            (["compare", pages, "--workers", "0"], "expected an integer from 1 on, got '0'"),
            (["compare", pages, "--html", absent], f"{absent}: No such file"),
            (["compare", pages, "--html", pages], f"{pages}: expected a folder, got a file"),
            (["compare", pages, "--json", absent], f"there is no folder {absent.parent}"),
            (["compare", pages, "--json", self.folder], "expected a file, got a folder"),
            (["compare", pages, "--try", "floor=.2"], "'floor=.2': expected code_floor="),
            (["compare", pages, "--try", "budget=1", "--try", "budget=1"], "this one is taken"),
            (["diff", pages], "expected OTHER, or --try"),
            (["diff", pages, pages, "--try", "budget=1"], "expected OTHER, or --try"),
            (["page", pages], "name one of its 5 pages: crowded, late"),
            (["page", pages, "none"], "name one of its 5 pages"),
            (["--host", "not_there", "problems", pages], "--host not_there: ModuleNotFoundError"),
            (["nothing"], "invalid choice"),
        ]:
            ended, out, err = self.run_it(*arguments)
            self.assertEqual((ended, out, err.count("\n")), (2, "", 1), (arguments, err))
            self.assertRegex(err, f"^grounding-fit-workbench.*{re.escape(words)}")

    def test_compare(self):
        told = self.folder / "told.json"
        with open(self.file, "a") as file:
            file.write("{}\n")
        arguments = ["--try", TRIALS[0], "--json", told, "--html", self.folder / "html"]
        ended, out, _ = self.run_it("compare", self.file, *arguments)
        self.assertEqual(ended, 1)
        self.assertIn("FAILED: line 6: name: expected a string", out)
        self.assertRegex(out, r"FAILED: wrong: unchanged: TypeError: explain_page_context\(\):\s")
        self.assertRegex(out, r"(?m)^ *\d+ \d+b OVER by 10,164 .* late$")
        wanted = compare(load_pages(self.file), [TRIALS[0]]).as_json()
        wanted["failed"].append({"name": "line 6", "error": wanted["failed"][0]["error"]})
        read = json.loads(told.read_text())
        self.assertEqual([read["policies"], read["pages"]], [wanted["policies"], wanted["pages"]])
        overview = (self.folder / "html" / "index.html").read_text()
        links = set(re.findall(r'"href":"(.*?)"', overview))
        self.assertEqual(len(links), 4)
        for link in links:
            self.assertIn('{"head":["', (self.folder / "html" / link).read_text())
        self.assertEqual(("<i>" in overview, out.count("FAILED: wrong")), (False, 1))

    def test_its_version_is_that_of_the_module(self):
        project = (ROOT / "workbench/pyproject.toml").read_text()
        self.assertIn(f'version = "{fit.__version__}"', project)

    def test_other_commands(self):
        other, report = self.folder / "other", self.folder / "report"
        for page in load_pages(self.file)[:1]:
            save_page(other, page.answer, page.parts, 1677, name=page.name)
            given = fit.explain_page_context(page.answer, page.parts, 1677)[1]
            report.write_text(json.dumps(given, indent=1))
        for wanted, arguments, words in [
            (
                0,
                ["diff", self.file, other],
                r"crowded: won block 6; lost digest 0\nonly in the first",
            ),
            (1, ["diff", self.file, "--try", "budget=1677"], "crowded: won block 6"),
            (0, ["diff", report, report], "= +report 1"),
            (
                1,
                ["problems", self.file],
                r"(?m)^wrong: parts.budget.shares\['digest'\]: expected a float",
            ),
            (0, ["page", self.file, "crowded"], r"(?s)no room .* \+ a code floor from 0.2346"),
            (2, ["page", self.file, "wrong"], "^$"),
            (0, ["ranges", self.file, "crowded"], r"(?m)^digest 0: whole [\d,]+ on; in part "),
        ]:
            ended, out, err = self.run_it(*arguments)
            self.assertEqual((ended, "Traceback" in err), (wanted, False), err)
            self.assertRegex(out, words)
            if arguments[0] != "problems":
                self.assertLessEqual(max(map(len, out.splitlines()), default=0), 80)

    def test_processes_and_a_host(self):
        """In a process of its own: the host's module comes first, and what it lacks is named."""
        (self.folder / "my_host.py").write_text(HOST_MODULE)
        path = os.pathsep.join([str(Path(find()).parent), str(ROOT / "workbench")])
        env = {**os.environ, "PYTHONPATH": path}

        def command(*arguments):
            whole = [sys.executable, "-m", "grounding_fit_workbench", *arguments]
            options = {"env": env, "cwd": self.folder, "capture_output": True, "text": True}
            return subprocess.run(whole, check=False, **options)

        lines = self.file.read_text().splitlines(keepends=True)
        self.file.write_text("".join(lines * 8))
        with_host = "--host my_host --workers 2 --json told.json --try".split()
        done = command("compare", "pages", *with_host, TRIALS[2])
        self.assertRegex(
            done.stderr, r"^([\d,]+ of [\d,]+ pages compared\n)*$"
        )  # where the machine is slow
        self.assertEqual(done.returncode, 1)
        wanted = compare(load_pages(self.file), [TRIALS[2]]).as_json()
        self.assertEqual(json.loads((self.folder / "told.json").read_text()), wanted)
        done = command("problems", "pages")
        self.assertRegex(
            done.stderr, "^grounding-fit-workbench.* needs estimate_tokens .*--host MOD.*\n$"
        )
        self.assertEqual(done.returncode, 2)


class Terminal(UsualHost):
    def test_what_a_host_writes_steers_no_terminal(self):
        self.assertEqual(terminal.safe("a\x1b[2J\r\n\x9b\u202eé"), r"a\x1b[2J\r\n\x9b\u202eé")
        self.assertEqual(terminal.safe("a\n\x07", kept="\n"), "a\n\\x07")
        self.assertEqual(terminal.cell("漢字漢字漢字", 9), "漢字漢...")
        self.assertEqual(
            [terminal.columns(terminal.cell("é漢", 6)), terminal.columns("e\u0301")], [6, 1]
        )
        name = "\x1b]0;x\x07"
        page = Page(name, name, {}, parts([fit.FactBlock(f"# {name}")], [(name, {"fqn": name})]), 1)
        printed = io.StringIO()
        with contextlib.redirect_stdout(printed):
            terminal.say(name)
            compare([page])
        self.assertNotIn("\x1b", printed.getvalue())

    def test_progress(self):
        """In lines where there is no terminal, and not at all where it is quick."""
        for seconds, terminal_is_there, said in [
            (0.01, False, ""),
            (3, False, "2 of 4 pages\n4 of 4 pages\n"),
            (3, True, "1 of 4 pages\r2 of 4 pages\r3 of 4 pages\r4 of 4 pages\r\x1b[K"),
        ]:
            to = io.StringIO()
            to.isatty = lambda: terminal_is_there
            ticks = iter(range(9))
            done = terminal.progress("abcd", 4, "pages", to, lambda: next(ticks) * seconds)
            self.assertEqual(("".join(done), to.getvalue()), ("abcd", said))
