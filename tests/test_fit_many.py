"""Pages of many packages, made and fitted by other processes."""

import contextlib
import errno
import functools
import io
import json
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path
from unittest import mock

from examples import fit_many, host, repository

ROOT = Path(__file__).resolve().parent.parent
LIBRARY = Path(os.__file__).parent
PROGRAM = [sys.executable, str(ROOT / "examples/fit_many.py")]
ENV = {**os.environ, "PYTHONPATH": os.pathsep.join([*sys.path, str(ROOT), str(ROOT / "workbench")])}
INTERPRETERS = sys.version_info >= (3, 14)  # in an executor of their own
KINDS = [[], ["--forkserver"], *([["--interpreters"]] if INTERPRETERS else [])]


class FitMany(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = Path(folder.name)
        for name, package in {"json": "json", "json/deep": "dbm", "tests": "dbm"}.items():
            shutil.copytree(LIBRARY / package, self.root / name)
        (self.root / "broken").mkdir()
        (self.root / "broken/__init__.py").write_text("def")
        self.jobs = {
            name: fit_many.Job(str(folder), "module", 8000, 180)
            for name, folder in repository.packages(self.root).items()
        }

    def test_workers_of_every_kind_bring_back_what_one_call_gives(self):
        for kind in KINDS:
            with self.subTest(kind=kind):
                self.check_workers(kind)

    def check_workers(self, kind):
        """Hold what workers of a kind bring back against calls here."""
        told = self.root / "told.json"
        done = []
        arguments = ["--repo", self.root, "--workers", "1", "--try", "first=digest", "--json", told]
        arguments += kind
        keep = mock.patch.object(fit_many, "print_table", done.append)
        with keep, contextlib.redirect_stdout(io.StringIO()) as out:
            self.assertEqual(fit_many.main([*map(str, arguments)]), 1)
        done = done[0]
        self.assertEqual(list(done.failed), ["broken"])
        self.assertIn("no Python code that can be read", done.failed["broken"])
        self.assertEqual(set(done.fitted), {"json", "json.deep"})
        pages = {row["name"]: row["by_policy"] for row in json.loads(told.read_text())["pages"]}
        for name, page in done.fitted.items():
            read = repository.read_repository(Path(self.jobs[name].folder))
            here = host.fit_page(read, "module", 8000, 180)
            self.assertEqual(page.answer, here.answer)
            self.assertEqual(page.size, host.fit._json_size(here.answer))
            self.assertEqual(pages[name]["unchanged"]["size"], page.size)
        self.assertIn("truncated", done.fitted["json"].answer)
        self.assertEqual(list(pages["json"]), ["unchanged", "first=digest"])
        self.assertRegex(out.getvalue(), r"(?m)^\d.* json$")

    def test_the_pages_over_the_cap_are_named(self):
        figures = {"size": 3, "tokens": 1, "seconds": 0.1, "answer": {}}
        fitted = {
            name: fit_many.Fitted(given_size=50_000, over=over, **figures)
            for name, over in {
                "one": (True, False),
                "two": (True, True),
                "six": (False,) * 2,
            }.items()
        }
        with contextlib.redirect_stdout(io.StringIO()) as out:
            fit_many.print_table(fit_many.Run(fitted, {}, 9, 9, 1.0))
        self.assertRegex(out.getvalue(), "over the cap +2 before: one, two\n.* 1 after: two\n")

    @unittest.skipIf(INTERPRETERS, "this CPython has them")
    def test_a_python_without_interpreters_says_what_it_needs(self):
        with self.assertRaisesRegex(SystemExit, "^--interpreters: CPython 3.14 or newer is needed"):
            fit_many.main(["--repo", str(self.root), "--interpreters"])

    def test_wrong_uses_are_told_in_a_line(self):
        absent = self.root / "absent"
        (self.root / "empty").mkdir()
        for arguments, words in [
            (["--workers", "0"], "--workers: expected an integer from 1 on, got '0'"),
            (["--repo", absent], f"{absent}: expected a folder, and there is none"),
            (["--repo", self.root / "empty"], "no packages"),
            (["--html", absent / "html"], "No such file"),
            (["--save", absent / "pages"], f"there is no folder {absent}"),
            (["--try", "floor=1"], "expected code_floor="),
        ]:
            said = io.StringIO()
            with self.assertRaises(SystemExit) as ended, contextlib.redirect_stderr(said):
                fit_many.main([*map(str, arguments)])
            self.assertEqual((ended.exception.code, said.getvalue().count("\n")), (2, 1))
            self.assertIn(words, said.getvalue())

    def test_a_worker_says_what_it_lacks(self):
        """Any executor will do; a worker that cannot make a page fails that page alone."""
        there = self.jobs["json"].folder
        jobs = {
            "version": fit_many.Job(there, "module", 8000, 180, version="2.7"),
            "folder": fit_many.Job(f"{there}/absent", "module", 8000, 180),
            "json": self.jobs["json"],
        }
        with ThreadPoolExecutor(2) as executor:
            done = fit_many.run(executor, jobs)
        self.assertEqual(list(done.fitted), ["json"])
        self.assertRegex(done.failed["version"], r"worker .*: CPython 3\..*, not 2\.7$")
        self.assertRegex(done.failed["folder"], r"worker .*: no folder .*absent$")
        lacking = mock.patch.dict(sys.modules, {"grounding_fit": None})
        with ThreadPoolExecutor(2) as executor, lacking:
            done = fit_many.run(executor, self.jobs)
        self.assertRegex(done.failed["json"], "worker .*: import of grounding_fit halted")
        self.assertEqual((len(done.failed), done.fitted), (3, {}))
        with contextlib.redirect_stdout(io.StringIO()) as out:
            fit_many.print_table(done)
        self.assertEqual(out.getvalue(), "pages           0, 3 failed\n")

    def test_an_interruption_leaves_no_process(self):
        """The worker reads of a pipe into which nobody writes, so that no run can end by itself."""
        for send in (os.killpg, os.kill):  # to all, as a terminal does, or to the program alone
            with self.subTest(send=send.__name__), tempfile.TemporaryDirectory() as folder:
                pipe = Path(folder, "__init__.py")
                os.mkfifo(pipe)
                command = [*PROGRAM, "--repo", folder, "--workers", "1"]
                streams = {"stdout": subprocess.DEVNULL, "stderr": subprocess.PIPE}
                # Who was started in the background ignores interrupts, and passes that on.
                heed = functools.partial(signal.signal, signal.SIGINT, signal.SIG_DFL)
                options = {"start_new_session": True, "preexec_fn": heed, **streams}
                program = subprocess.Popen(command, env=ENV, **options)
                self.addCleanup(self.kill_group, program.pid)
                writer = self.opened(pipe, program)
                send(program.pid, signal.SIGINT)
                said = program.communicate()[1]
                os.close(writer)
                self.assertEqual((program.returncode, said), (130, b""))
                self.assertTrue(self.group_ends(program.pid))

    def opened(self, pipe, program):
        """Open a pipe for writing, once a worker of the program has opened it for reading."""
        while program.poll() is None:
            try:
                return os.open(pipe, os.O_WRONLY | os.O_NONBLOCK)
            except OSError as error:
                self.assertEqual(error.errno, errno.ENXIO)
                time.sleep(0.01)
        raise AssertionError(program.communicate()[1])

    def kill_group(self, group):
        """End what a failed test leaves."""
        with contextlib.suppress(ProcessLookupError):
            os.killpg(group, signal.SIGKILL)

    def group_ends(self, group):
        """Wait until no process of a group is left, for seconds at most."""
        for _ in range(100):
            try:
                os.killpg(group, 0)
            except ProcessLookupError:
                return True
            time.sleep(0.1)
        return False


if __name__ == "__main__":
    unittest.main()
