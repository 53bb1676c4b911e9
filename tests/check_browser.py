"""Drives the workbench's pages in Chromium, and holds what they tell against plain calls.

python tests/check_browser.py CHROMIUM FOLDER   # FOLDER: for the pages, and pictures of them
"""

import sys
import unittest
from dataclasses import replace
from pathlib import Path

import harness  # loads the module before the example does
from chromium import Browser
from examples import host, repository
from grounding_fit_workbench import Page, Trial, compare
from grounding_fit_workbench.browser.overview import overview_text
from grounding_fit_workbench.browser.page import page_data, page_text
from test_workbench_compare import TRIALS, some_pages

ROOT, fit = harness.ROOT, harness.fit

PROGRAM, FOLDER = sys.argv[1], Path(sys.argv[2]).resolve()
LARGE = 1_000_000  # bytes of a page of MANY symbols, at the most
MANY = 1200
MOST_STOPS = 60  # of the Tab key
MOST_SHEETS = 9
A4 = {"paperWidth": 8.27, "paperHeight": 11.69}  # inches
FOCUS = "(e => e.id || e.className.baseVal || e.className || e.tagName)(document.activeElement)"
ROWS = "document.querySelectorAll('#{} tbody tr[id]').length"


def example(page_type, budget):
    """Return the example's page of this repository."""
    read = repository.read_repository(ROOT / "workbench")
    parts = host.page_parts(read, page_type, 90)
    given = host.page_answer(read.name, page_type, read.sources, parts)
    return Page(read.name, page_type, given, parts, budget)


def large():
    """Return a page of MANY symbols whose fact blocks are many, too."""
    lines = "".join(f"    value_{n} = compute({n * n})\n" for n in range(40))
    symbols = [
        {"fqn": f"app.part_{n % 9}.name_{n}", "line": n, "file": "a.py"} for n in range(MANY)
    ]
    blocks = [(f"def name_{n}():\n{lines[: 300 + n % 900]}", one) for n, one in enumerate(symbols)]
    facts = [
        fit.FactBlock(
            f"# {n}\n{'fact ' * (40 + n)}",
            [fit.seed("a.py", n)] * 5,
            f"block {n}",
            "digest" * (n % 2),
        )
        for n in range(120)
    ]
    parts = fit.GroundingParts(
        facts, blocks, {"a.py"}, 0.5, fit.SectionBudget(shares={"digest": 0.3})
    )
    given = {"page_id": "large", "grounding": "g" * 90_000}
    return Page("large", "", given, parts, 12_000)


def every_page():
    """Return pages of every outcome by name, those of the example, and a large one."""
    made = {"module": example("module", 4000), "guide": example("getting-started", 8000)}
    none = replace(made["module"].with_parts(blocks=[], prose=[]), answer={}, budget=0)
    others = {page.name.strip("<i>"): page for page in some_pages()[:-1]}
    return {**made, "none": none, "large": large(), **others}


class Browsed(harness.UsualHost):
    @classmethod
    def setUpClass(cls):
        FOLDER.mkdir(parents=True, exist_ok=True)
        cls.pages = every_page()
        for name, page in cls.pages.items():
            cls.written(
                name, page_text(page_data(page, [f"<b>{name}</b>", "policy"], "index.html"))
            )
        found = compare(some_pages(), TRIALS)
        cls.written("index", overview_text(found, lambda page: f"{page.name.strip('<i>')}.html"))
        cls.found = found
        cls.browser = Browser(PROGRAM)
        cls.addClassCleanup(cls.browser.close)

    @staticmethod
    def written(name, text):
        (FOLDER / f"{name}.html").write_text(text, "utf-8", "backslashreplace")

    def open(self, name, width=1400, **features):
        """Open a page; return what its own checks say, and its console."""
        self.browser.open((FOLDER / f"{name}.html").as_uri(), width, **features)
        return self.value("document.documentElement.dataset.checks"), self.browser.said

    def value(self, expression):
        return self.browser.value(expression)

    def text(self, identity):
        return self.value(f"document.getElementById('{identity}').textContent")

    def test_pages_are_drawn_at_any_width_without_a_complaint(self):
        """Their own checks hold: sums, contrast, nothing fetched. Nothing leaves the window."""
        for name in [*self.pages, "index"]:
            for width, scheme in [(1400, "light"), (1024, "dark"), (400, "light")]:
                with self.subTest(page=name, width=width, scheme=scheme):
                    said = self.open(name, width, prefers_color_scheme=scheme)
                    self.assertEqual(said, ("ok", []))
                    wide = self.value("document.documentElement.scrollWidth")
                    self.assertLessEqual(wide, width)
                    file = FOLDER / f"{name}-{width}-{scheme}.png"
                    self.browser.save(file, "Page.captureScreenshot", captureBeyondViewport=True)

    def test_a_page_that_is_wrong_says_so(self):
        good = (FOLDER / "module.html").read_text("utf-8")
        for name, old, new in [
            ("size", '"sizes":[', '"sizes":[1'),
            ("contrast", "--faint: #545d67", "--faint: #949da7"),
            ("stopped", "tellHead();", "missing();"),
            ("fetched", "<header>", '<header><img alt="" src="none.png">'),
        ]:
            self.assertIn(old, good)
            # The page's own policy would stop what was changed before any check of it.
            self.written(
                "spoilt", good.replace(old, new).replace("Content-Security-Policy", "none")
            )
            said, console = self.open("spoilt")
            self.assertTrue(said != "ok" or console, name)

    def test_knobs_tell_what_plain_calls_do(self):
        for name in ("module", "crowded"):
            page = self.pages[name]
            for knob, key, times in [
                ("budget", "ArrowLeft", 3),
                ("floor", "Home", 1),
                ("budget", "End", 1),
            ]:
                self.open(name)
                self.value(f"document.getElementById('{knob}-knob').focus()")
                self.browser.press(key, times)
                told = self.text(f"{knob}-value").split()[0].replace(",", "")
                changed = {"code_floor": float(told)} if knob == "floor" else {"budget": int(told)}
                self.assertNotEqual(changed.get("budget"), page.budget)
                self.check_told(Trial("", **changed).changed(page))
                self.value("document.getElementById('reset').click()")
                self.check_told(page)

    def check_told(self, page):
        """Hold the sums, counts and reasons that stand on a page against both paths."""
        report = fit.explain_page_context(page.answer, page.parts, page.budget)[1]
        api = fit.explain_grounding(page.parts, page.budget)[1]
        self.assertIn(f"{report['size']:,} of 40,000 JSON", self.text("agent-total"))
        self.assertIn(f"{api['size']:,} of {page.budget:,} tokens", self.text("api-total"))
        left = [fact for fact in report["facts"] if not fact["kept"]]
        choice = "#fact-choice input[value='left out for an agent']"
        self.value(f'document.querySelector("{choice}").click()')
        self.assertEqual(self.value(ROWS.format("fact-rows")), len(left))
        said = f"{len(left)} of {len(page.parts.prose)} fact blocks"
        self.assertEqual(said in self.text("said"), bool(left))
        for symbols, path in [(report["symbols"], "agent"), (api["symbols"], "api")]:
            drawn = self.value(f"document.querySelectorAll('#{path}-bar .ink.bodies').length")
            self.assertEqual(drawn, symbols["bodies"])

    def test_the_keyboard_alone_reaches_everything(self):
        """Each bar and table is one stop of the Tab key; the arrows lead on from there."""
        self.open("large")
        reached = []
        while len(reached) <= MOST_STOPS and "BODY" not in reached[1:]:
            self.browser.press("Tab")
            reached.append(self.value(FOCUS))
            if reached[-1] == "piece":
                self.browser.press("ArrowRight")
                self.assertRegex(self.text("agent-told"), r"^block 0: [\d,]+ JSON characters")
        self.assertLess(len(reached), MOST_STOPS)
        self.assertLessEqual(
            {"budget-knob", "floor-knob", "fact-order", "symbol-sought"}, {*reached}
        )
        self.assertEqual([reached.count("piece"), reached.count("opens stop")], [2, 2])
        self.value("document.getElementById('symbol-sought').focus()")
        self.browser.ask("Input.insertText", text=f"name_{MANY - 1}")
        self.value("document.querySelector('#symbol-choice input[value=all]').click()")
        self.assertEqual(self.value(ROWS.format("symbol-rows")), 1)
        self.browser.press("Tab")
        self.browser.press("Enter")
        self.browser.wait_for("document.querySelector('#symbol-rows pre')?.textContent.length > 1")
        shown = self.value("document.querySelector('#symbol-rows pre').textContent")
        self.assertTrue(self.pages["large"].parts.blocks[-1][0].startswith(shown.split("\n…")[0]))
        self.value("location.hash = 'fact-120'")
        self.browser.wait_for("document.activeElement.closest('#fact-120')")

    def test_many_symbols_are_small_and_fast(self):
        self.assertLess((FOLDER / "large.html").stat().st_size, LARGE)
        self.browser.ask("Performance.enable")
        self.open("large")
        told = self.browser.ask("Performance.getMetrics")["metrics"]
        took = {each["name"]: each["value"] for each in told}
        print(f"large: {took['TaskDuration']:.2f} s of work to open it")
        self.assertLess(took["TaskDuration"], 1)

    def test_paper_and_forced_colours_keep_the_legend(self):
        for name in ("module", "large"):
            self.assertEqual(self.open(name, forced_colors="active"), ("ok", []))
            fill = "getComputedStyle(document.querySelector('#agent-legend .ink.{}')).fill"
            fills = {self.value(fill.format(part)) for part in ("facts", "seeds", "bodies")}
            self.assertEqual(len(fills), 3)
            file = FOLDER / f"{name}.pdf"
            self.browser.save(file, "Page.printToPDF", **A4)
            self.assertIn(file.read_bytes().count(b"/Type /Page\n"), range(1, MOST_SHEETS + 1))

    def test_the_overview_leads_to_pages(self):
        self.open("index")
        lost = self.found.policies[2].lost
        self.value("document.querySelector('#policy-rows .stop').focus()")
        self.value("document.querySelector('#policy-2 [data-what=lost]').focus()")
        self.browser.press("Enter")
        listed = self.value("document.querySelector('#policy-rows .opened').innerText")
        counts = [int(line.split()[-2]) for line in listed.splitlines()[1:] if line.strip()]
        self.assertEqual(sum(counts), lost)
        results = [next(iter(page.by_policy.values())) for page in self.found.pages[:2]]
        over, fitted = (
            self.value(f"document.querySelector('#page-{at} td').innerText") for at in (0, 1)
        )
        self.assertEqual(over.split("\n")[0], f"over the cap by {results[0].excess:,}")
        self.assertEqual(fitted.split()[:3], [str(len(results[1].left_out)), "left", "out,"])
        self.follow("#policy-rows .opened a")
        self.assertIn("JSON characters", self.text("agent-total"))
        self.follow("#back a")
        self.assertEqual(self.value(ROWS.format("policy-rows")), len(self.found.policies))

    def follow(self, link):
        """Open the page that a link leads to; no question is under way while the old one goes."""
        self.browser.open(self.value(f"document.querySelector('{link}').href"))
        self.assertEqual(self.value("document.documentElement.dataset.checks"), "ok")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
