"""The example, on this repository."""

import json
import unittest

from harness import ROOT, fit, run_python


class Example(unittest.TestCase):
    def test_pages_of_a_real_repository(self):
        """The report adds up, for a page of each kind."""
        pages = [["--symbols", "3"], ["--budget", "300", "--page", "getting-started"]]
        for options in [*pages, ["--page", "decisions"]]:
            command = [ROOT / "examples/fit_repository.py", *options]
            report = run_python(*command)
            self.assertEqual(report.returncode, 0, report.stderr)
            shown = run_python(*command, "--show", "answer")
            size = fit._json_size(json.loads(shown.stdout))
            self.assertIn(f"Agent path: {size:,} of 40,000", report.stdout)
