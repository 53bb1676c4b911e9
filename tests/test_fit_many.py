"""Pages of many packages, made and fitted by other processes."""

import contextlib
import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

from examples import fit_many, host, repository

ROOT = Path(__file__).resolve().parent.parent
LIBRARY = Path(os.__file__).parent
PROGRAM = [sys.executable, str(ROOT / "examples/fit_many.py")]


class FitMany(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = Path(folder.name)
        for name, package in {"email": "email", "json": "json", "tests": "json"}.items():
            shutil.copytree(LIBRARY / package, self.root / name)
        (self.root / "broken").mkdir()
        (self.root / "broken/__init__.py").write_text("def")
        self.jobs = {
            name: fit_many.Job(str(folder), "module", 8000, 180)
            for name, folder in repository.packages(self.root).items()
        }

    def test_processes_bring_back_what_one_call_gives(self):
        with fit_many.process_pool(2) as executor:
            done = fit_many.run(executor, self.jobs)
        self.assertEqual(list(done.failed), ["broken"])
        self.assertIn("no Python code that can be read", done.failed["broken"])
        self.assertEqual(set(done.fitted), {"email", "email.mime", "json"})
        for name, page in done.fitted.items():
            read = repository.read_repository(Path(self.jobs[name].folder))
            here = host.fit_page(read, "module", 8000, 180)
            self.assertEqual(page.answer, here.answer)
            self.assertEqual(page.size, host.fit._json_size(here.answer))
        self.assertIn("truncated", done.fitted["email"].answer)

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
        first = self.root / "path"  # before any folder where the module may be installed
        first.mkdir()
        (first / "grounding_fit.py").write_text("raise ModuleNotFoundError('no module here')")
        bare = {**os.environ, "PYTHONPATH": os.pathsep.join([str(first), str(ROOT)])}
        command = [*PROGRAM, "--repo", str(self.root), "--workers", "1"]
        ended = subprocess.run(command, env=bare, capture_output=True, text=True, check=False)
        self.assertEqual(ended.returncode, 1, ended.stderr)
        self.assertRegex(ended.stdout, "(?m)^json: .*worker .*: no module here$")
        self.assertRegex(ended.stdout, r"(?m)^pages +0, 4 failed$")

    def test_an_interruption_leaves_no_process(self):
        for send in (os.killpg, os.kill):  # to all, as a terminal does, or to the program alone
            with self.subTest(send=send.__name__):
                command = [*PROGRAM, "--repo", str(LIBRARY), "--workers", "2"]
                env = {**os.environ, "PYTHONPATH": os.pathsep.join([*sys.path, str(ROOT)])}
                streams = {"stdout": subprocess.DEVNULL, "stderr": subprocess.PIPE}
                program = subprocess.Popen(command, env=env, start_new_session=True, **streams)
                self.addCleanup(self.kill_group, program.pid)
                shown = b""  # after a few pages, all workers have begun
                while not re.search(rb"[5-9]( of |/)", shown):
                    more = program.stderr.read1()
                    self.assertTrue(more, shown)
                    shown += more
                send(program.pid, signal.SIGINT)
                said = program.communicate(timeout=120)[1]
                self.assertEqual(program.returncode, 130, said)
                self.assertNotIn(b"Traceback", said)
                self.assertTrue(self.group_ends(program.pid))

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
