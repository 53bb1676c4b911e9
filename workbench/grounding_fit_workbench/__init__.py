"""Shows what the fit of a wiki page did and why, and tries what would have kept more of it.

A host saves its pages where it fits them (save_page), and asks here afterwards, from Python or with
the command `grounding-fit-workbench`:

- ranges, floors: from which token budget, or code floor, on what stands in a page;
- advice: for each block that was left out, the least change that keeps it;
- compare: other policies over all pages; diff: two fits of the same pages;
- problems: wrong values that a page would meet one day.

Everything is found by calls of `grounding_fit`, which is loaded with the first call and not before,
so that a host can put what it needs in place.
"""

from grounding_fit_workbench.budget_ranges import Range, Ranges, ranges
from grounding_fit_workbench.cases import Advice, Change
from grounding_fit_workbench.comparison import (
    Comparison,
    Failed,
    Kind,
    PageRow,
    PolicyRow,
    Result,
    compare,
)
from grounding_fit_workbench.difference import Diff, PageDiff, Prefix, diff, diff_reports
from grounding_fit_workbench.floor_ranges import FloorRange, floors
from grounding_fit_workbench.mistakes import Problem, problems
from grounding_fit_workbench.page_files import Pages, Refused, load_pages, save_page
from grounding_fit_workbench.page_lines import Page
from grounding_fit_workbench.remedies import advice
from grounding_fit_workbench.trials import Trial

__all__ = [
    "Advice",
    "Change",
    "Comparison",
    "Diff",
    "Failed",
    "FloorRange",
    "Kind",
    "Page",
    "PageDiff",
    "PageRow",
    "Pages",
    "PolicyRow",
    "Prefix",
    "Problem",
    "Range",
    "Ranges",
    "Refused",
    "Result",
    "Trial",
    "advice",
    "compare",
    "diff",
    "diff_reports",
    "floors",
    "load_pages",
    "problems",
    "ranges",
    "save_page",
]
