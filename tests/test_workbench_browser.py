"""What the workbench's pages for the browser hold, against plain calls of the module."""

import json
import re
from dataclasses import replace

import harness  # loads the module before the workbench does
from grounding_fit_workbench import Trial, compare
from grounding_fit_workbench.browser.overview import overview_data, overview_text
from grounding_fit_workbench.browser.page import page_data, page_text
from grounding_fit_workbench.browser.writer import MOST_PACKED, packed
from test_workbench_compare import TRIALS, some_pages

HOST, UsualHost, fit = harness.HOST, harness.UsualHost, harness.fit

MEASURE = HOST.modules()["workers.context_builder"].estimate_tokens


def stands(spans, budget):
    """Whether a budget is within one of the spans."""
    return any(first <= budget and (last is None or budget <= last) for first, last in spans)


def data_in(text):
    """Return the data that a page for the browser has in it."""
    return json.loads(re.search(r'id="data">(.*?)</script>', text, re.DOTALL)[1])


class PageData(UsualHost):
    def test_states_and_ranges_are_those_of_plain_calls(self):
        for page in some_pages()[:-1]:
            with self.subTest(page=page.name):
                data = page_data(page, ["</script><b>"])
                states = data["states"]
                for state in states["budgets"]:
                    now = replace(page, budget=state["budget"])
                    self.check_state(now, state, data)
                    self.check_ranges(now, data)
                for state in states["floors"]:
                    floor = float(state["floor"])
                    self.check_state(Trial("", code_floor=floor).changed(page), state, data)
                self.assertIn(page.budget, [state["budget"] for state in states["budgets"]])
                self.check_growth(page, data["growth"])

    def check_state(self, page, state, data):
        """Hold a stored state against both paths, with that budget or floor."""
        agent = data["states"]["agents"][state["agent"]]
        api = data["states"]["apis"][state["api"]]
        answer, report = fit.explain_page_context(page.answer, page.parts, page.budget)
        (text, *_), told = fit.explain_grounding(page.parts, page.budget)
        left = [at for at, fact in enumerate(report.get("facts", [])) if not fact["kept"]]
        self.assertEqual([agent["outcome"], agent["size"]], [report["outcome"], report["size"]])
        self.assertEqual([*agent["left"]], left)
        for at in left:
            short, sentence, *_ = data["states"]["refusals"][agent["left"][at]]
            verdict, _ = data["states"]["sentences"][sentence]
            fact = report["facts"][at]
            told_as = {"over the cap": "no room"}.get(fact["verdict"], fact["verdict"])
            self.assertEqual((short, verdict), (fact["short_by"], told_as))
        self.assertEqual(agent["note"], answer.get("truncated", "") if "note" in report else "")
        self.assertEqual(api["size"], MEASURE(text))
        self.assertEqual(api["bodies"], told["symbols"]["bodies"])
        for reached in filter(None, state["holds"] if "floor" not in state else []):
            self.assertTrue(stands([reached], page.budget))

    def check_ranges(self, page, data):
        """Hold what is told of budgets against both paths with a budget."""
        report = fit.explain_page_context(page.answer, page.parts, page.budget)[1]
        for fact, row in zip(report.get("facts", []), data["facts"], strict=False):
            self.assertEqual(stands(row["runs"][1], page.budget), fact["kept"])
        rows = data["symbols"]["bodies"]
        bodies = next(count for *span, count in rows if stands([span], page.budget))
        everything = {"bodies": len(page.parts.blocks)}
        self.assertEqual(bodies, report.get("symbols", everything)["bodies"])
        within = fit._blocks_within(page.parts, page.budget)
        least = data["symbols"]["least"]
        self.assertEqual(sum(each is not None and each <= page.budget for each in least), within)

    def check_growth(self, page, growth):
        """Hold what the charts draw against the sizes at those budgets and floors."""
        for least, _, *sizes in growth["agent"]:
            report = fit.explain_page_context(page.answer, page.parts, least)[1]
            self.assertEqual(sum(sizes), report["size"])
        for _, floor, *sizes in growth["floors"]:
            now = Trial("", code_floor=floor).changed(page)
            report = fit.explain_page_context(now.answer, now.parts, now.budget)[1]
            self.assertEqual(sum(sizes), report["size"])
        for budget, *sizes in growth["api"]:
            self.assertEqual(sum(sizes), MEASURE(fit._assemble_grounding(page.parts, budget)[0]))

    def test_a_page_fetches_nothing_and_holds_its_data(self):
        page = some_pages()[0]
        data = page_data(page, ["</script><b>", "\u202eturned"])
        text = page_text(data)
        stored = data_in(text)
        self.assertEqual({**stored, "texts": data["texts"]}, json.loads(json.dumps(data)))
        self.assertNotIn("\u202e", text)
        found = compare(some_pages(), TRIALS)
        for made in (text, overview_text(found)):
            rest = re.sub(r"http://www.w3.org/2000/svg", "", made)
            self.assertNotRegex(rest, r"https?:|url\((?!#)|\bsrc=|@import|eval\(|/\*[A-Z]+\*/")
            self.assertEqual(made.count("</script>"), made.count("<script"))

    def test_long_texts_are_cut_until_they_are_small(self):
        texts = [
            "".join(chr(33 + at * at * 7919 % 90) for at in range(n, n + 9000)) for n in range(400)
        ]
        self.assertLess(len(packed(texts)), MOST_PACKED)

    def test_the_overview_names_the_blocks_of_each_result(self):
        found = compare(some_pages(), TRIALS)
        data = overview_data(found, lambda page: f"{page.number}.html")
        for row, page in zip(data["pages"], found.pages, strict=True):
            for result, told in zip(page.by_policy.values(), row["results"], strict=True):
                labels = sorted(row["labels"][at] for at in told["left"])
                self.assertEqual(labels, sorted(result.left_out))
            self.assertEqual(row["href"], f"{page.number}.html")
        given = sum(count for _, count, _ in data["kinds"])
        self.assertEqual(given, sum(len(page.labels) for page in found.pages))
        crowded = next(row for row in data["pages"] if row["name"] == "crowded")
        names = [result["names"] for result in crowded["results"]]
        self.assertEqual(names[:3], ["", "s6, s7, s8", "s5, s6, s7, 1 more"])
        budgets = [page.budget for page in some_pages()]
        told = f"code_floor=0.35, shares of its page type, no first, budget={min(budgets)} to "
        self.assertEqual(data["present"], f"as saved: {told}{max(budgets):,}")
        self.assertEqual([name for name, _ in data["failed"]], ["wrong"])

    def test_the_headline_names_first_what_puts_no_more_pages_over_the_cap(self):
        all_digests = (
            "first=digest,lone (8 fact blocks won, none of them within the cap; "
            "9 bodies lost, none of them within the cap), but 2 pages over the cap: late, crowded."
        )
        lower = "code_floor=.1 (2 fact blocks won; 6 bodies lost)"
        for trials, said in [
            (["budget=100%"], "No other policy keeps more fact blocks, or more bodies."),
            (["code_floor=.1"], f"The fewest fact blocks are left out with {lower}."),
            (["first=digest,lone"], f"Fewer fact blocks are left out with {all_digests}"),
            (
                ["first=digest,lone", "code_floor=.1"],
                f"The fewest fact blocks are left out with {lower}. Fewer still with {all_digests}",
            ),
        ]:
            told = overview_data(compare(some_pages(), trials))["said"]
            self.assertEqual(told.partition("one answer is over the cap. ")[2], said)
